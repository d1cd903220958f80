#pragma once

#include "language/shortcut_record.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <utility>

namespace tavo {

// Styling asked for by suffixes of a typed key: \sig-b-high.
struct ShortcutTextStyle
{
    bool bold = false;
    bool italic = false;
    bool underline = false;
    std::optional<double> size; // points

    bool isEmpty() const { return !bold && !italic && !underline && !size; }
    bool operator==(const ShortcutTextStyle&) const = default;
};

struct StyledTrigger
{
    QString base;
    ShortcutTextStyle style;
};

// Several shortcuts named at once: \abc!, \a1..5, \a&b&c.
struct ShortcutBatchRequest
{
    QStringList keys; // normalized, in order
    QString separator;

    bool operator==(const ShortcutBatchRequest&) const = default;
};

struct NumericKey
{
    QString prefix; // the key up to its trailing number
    QString suffix; // the known key suffix removed before looking for the number
};

// Peels style suffixes off the end of `text`, any number, in any order.
StyledTrigger parseStyledTrigger(const QString& text);

// The batch a trigger names, or nothing when it is an ordinary key.
std::optional<ShortcutBatchRequest> parseBatchTrigger(const QString& text);

std::optional<NumericKey> numericPrefixAndSuffix(const QString& key);

// The clips the request names, in its order; a key that finds nothing is dropped.
QList<Clip> resolveBatch(const ShortcutBatchRequest& request, const QList<Clip>& clips);

// Pasted lines are joined with the platform's line break, a newline alone: terminals would turn
// a carriage return and a newline into two Returns.
inline const QString batchLineSeparator = QStringLiteral("\n");

} // namespace tavo
