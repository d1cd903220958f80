#pragma once

#include "language/live_tokens.h"
#include "language/shortcut_record.h"
#include "store/collections.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace tavo {

// A prompt with its mentions of saved things replaced by what they stand for.
struct PromptShortcutExpansion
{
    QString text;
    QStringList labels; // of the entries used, in order of first mention, at most 10
    QStringList paths;  // every media file of the entries used, each once

    bool operator==(const PromptShortcutExpansion&) const = default;
};

// How many labels a summary line names.
inline constexpr qsizetype promptExpansionMaxLabels = 10;
// How many member lines a collection's expansion shows before its closing line.
inline constexpr qsizetype promptCollectionMaxLines = 60;

// The alias a mention must match: trimmed, lower-cased, without one leading "/" or "\" and without
// one type suffix (".media", ".app", ".ai", ".web", ".gif", ".e").
QString promptCanonicalAlias(const QString& text);

// Replaces mentions of shortcuts (by key), records (by alias) and collections (by name) in `text`.
// A mention may carry a leading "\" or "/" and a type suffix, ignores case, and needs a boundary of
// [A-Za-z0-9_] on both sides; where mentions overlap the longer token keeps its place. The
// expansions are inserted as literal text. `sources` feeds the live tokens of the bodies.
PromptShortcutExpansion expandPromptShortcutMentions(const QString& text, const QList<Clip>& clips,
                                                     const QList<CollectionRecord>& records,
                                                     const LiveTokenSources& sources = {});

} // namespace tavo
