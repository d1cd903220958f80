#pragma once

#include "language/shortcut_record.h"
#include "store/collections.h"

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

namespace tavo {

class Defaults;

inline const QString builderSlotCollection = QStringLiteral("collection");
inline const QString builderSlotVariable = QStringLiteral("variable");

// A typed builder command: a snapshot of the app's settings plus the values typed for its slots.
struct CustomBuilderCommand
{
    QString app;                  // the app's name, the suffix of all its keys
    QString prefix;               // the prefix that matched
    QStringList fields;           // variable slots' names, in slot order
    QStringList values;           // their values; may hold empty texts
    QStringList collections;      // collection slots' names, in slot order
    QStringList collectionValues; // their record aliases
    QStringList slotKinds;        // per slot, in typed order: builderSlotCollection or builderSlotVariable
    QStringList slotNames;
    QStringList slotValues; // empty where not typed
    QStringList outputCollections;
    QString prompt;
    std::optional<QByteArray> richTextData; // RTF of the rich template
    QString details;
    QString assetPath;
    QString templateStyle; // the template style's name ("template" in JSON)
    QString format;        // output format label: "PDF", "Image", …
    double fontSize = 11;
    bool bold = false;
    bool italic = false;
    bool underline = false;
    QString fontColor;
    QString key; // prefix, then "-" and each non-empty slot value

    // Every slot has a value that is not blank. A command without slots is complete.
    bool isComplete() const;

    // The record's fields under their own names, `isComplete` beside them; the rich template as
    // base64 under "richTextData" when there is one.
    QJsonObject toJson() const;
};

// The typed grammar: tokens separated by "-", double quotes group, a backslash escapes inside
// quotes only. Always at least one token.
QStringList splitBuilderCommand(const QString& text);
// The inverse for one value: quoted when it holds "-", a blank, `"` or `\`, so that a card's text
// splits back into exactly its values.
QString quoteBuilderValue(const QString& text);
// The suffix a finished command names its format with: "Image" gives "img", unknown "text".
QString builderFormatCode(const QString& label);
// The format label a last token names ("img", "wa", "mail", …), ignoring case; nothing when the
// token is no format word.
std::optional<QString> builderFormatForWord(const QString& word);

// One app's settings as a command reads them, with the saved defaults taken first.
struct BuilderCommandApp
{
    QString name;
    QString prefix; // empty: the app has no command
    QStringList variables;
    QStringList collections;
    QStringList formulaOrder;
    QStringList slotKinds;
    QStringList slotNames;
    QStringList outputCollections;
    QString format;
    QString prompt;
    std::optional<QByteArray> richTextData;
    QString details;
    QString assetPath;
    QString templateStyle;
    double fontSize = 11;
    bool bold = false;
    bool italic = false;
    bool underline = false;
    QString fontColor;

    // Reads the app's keys; an old bill schema is read as migrated, without writing anything.
    static BuilderCommandApp read(const Defaults& defaults, const QString& app);
};

// What one collection slot may take: the collection's shortcut keys and record aliases.
struct BuilderAliasSet
{
    QSet<QString> lowerAliases;
    QList<int> wordCounts; // distinct, largest first
};

// The apps and the aliases their collection slots take, read once and never changed afterwards,
// so one copy can be shared with another thread (the keyboard tap's decision) and parsed against
// on every key without reading any setting. Build a new one when apps, shortcuts or records change.
class BuilderCommandSnapshot
{
public:
    BuilderCommandSnapshot() = default;
    BuilderCommandSnapshot(QList<BuilderCommandApp> apps, const QList<Clip>& clips,
                           const QList<CollectionRecord>& records);

    // Reads the app list and each app's keys from `defaults`.
    static std::shared_ptr<const BuilderCommandSnapshot> read(const Defaults& defaults, const QList<Clip>& clips,
                                                              const QList<CollectionRecord>& records);

    const QList<BuilderCommandApp>& apps() const { return m_apps; }

    // The command `text` types (a leading "\" or "/" is optional), by the first app in list order
    // that takes it; nothing when none does.
    std::optional<CustomBuilderCommand> command(const QString& text) const;

private:
    QList<BuilderCommandApp> m_apps;
    QHash<QString, BuilderAliasSet> m_aliases; // by lower-cased collection name
};

// The command for `text` on the current settings: reads them all, so a caller that parses on every
// key keeps a BuilderCommandSnapshot instead.
std::optional<CustomBuilderCommand> customBuilderCommand(const QString& text, const QList<Clip>& clips,
                                                         const QList<CollectionRecord>& records,
                                                         const Defaults& defaults);

} // namespace tavo
