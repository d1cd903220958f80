#pragma once

#include "language/shortcut_record.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

namespace tavo {

// Stored dates are seconds since 1 January 2001 (UTC), as a JSON number.
double referenceSeconds(const QDateTime& moment);
QDateTime fromReferenceSeconds(double seconds);

struct CollectionFieldDefinition
{
    QString id;
    QString name;
    QString type = QStringLiteral("Text"); // "multiline" gives a many-line editor
    bool required = false;
    QString defaultValue;

    QJsonObject toJson() const;
    static std::optional<CollectionFieldDefinition> fromJson(const QJsonObject& object);
    bool operator==(const CollectionFieldDefinition&) const = default;
};

// What a collection is: its description, its fields and, when the user chose one, its category.
struct CollectionDefinition
{
    QString id; // UUID text
    QString name;
    QString description;
    QList<CollectionFieldDefinition> fields;
    QDateTime updatedAt;
    std::optional<QString> category;

    // An empty definition for a collection name, as the store builds when it has none.
    static CollectionDefinition emptyFor(const QString& name, const QDateTime& now = QDateTime::currentDateTimeUtc());

    QJsonObject toJson() const;
    static std::optional<CollectionDefinition> fromJson(const QJsonObject& object);
    bool operator==(const CollectionDefinition&) const = default;
};

// A structured item of a collection (a customer, a product, …), addressed by its alias.
struct CollectionRecord
{
    QString id; // UUID text
    QString collection;
    QString name;
    QString alias; // lower case, unique per collection ignoring case
    QMap<QString, QString> values;
    QStringList files;
    QDateTime updatedAt;

    QJsonObject toJson() const;
    static std::optional<CollectionRecord> fromJson(const QJsonObject& object);
    bool operator==(const CollectionRecord&) const = default;
};

} // namespace tavo

Q_DECLARE_TYPEINFO(tavo::CollectionRecord, Q_RELOCATABLE_TYPE);
Q_DECLARE_TYPEINFO(tavo::CollectionDefinition, Q_RELOCATABLE_TYPE);

namespace tavo {

class JsonReader;
class JsonWriter;

// The codecs on the streaming reader and writer; the QJson forms use them too.
void writeFieldDefinition(JsonWriter& writer, const CollectionFieldDefinition& field);
std::optional<CollectionFieldDefinition> readFieldDefinition(JsonReader& reader);
void writeDefinition(JsonWriter& writer, const CollectionDefinition& definition);
std::optional<CollectionDefinition> readDefinition(JsonReader& reader);
void writeRecord(JsonWriter& writer, const CollectionRecord& record);
std::optional<CollectionRecord> readRecord(JsonReader& reader);

// Whole-file codecs: one record that does not decode fails the file.
QByteArray definitionsToJsonBytes(const QList<CollectionDefinition>& definitions);
std::optional<QList<CollectionDefinition>> definitionsFromJsonBytes(QByteArrayView json);
QByteArray recordsToJsonBytes(const QList<CollectionRecord>& records);
std::optional<QList<CollectionRecord>> recordsFromJsonBytes(QByteArrayView json);
QJsonArray definitionsToJson(const QList<CollectionDefinition>& definitions);
std::optional<QList<CollectionDefinition>> definitionsFromJson(const QJsonArray& array);
QJsonArray recordsToJson(const QList<CollectionRecord>& records);
std::optional<QList<CollectionRecord>> recordsFromJson(const QJsonArray& array);

// The collections whose shortcuts become records when a profile has no record file yet.
bool isRecordLikeCollection(const QString& name);

// The record derived from a shortcut of a record-like collection.
CollectionRecord recordFromClip(const Clip& clip, const QString& collection,
                                const QDateTime& now = QDateTime::currentDateTimeUtc());

// The stand-in shortcut a collection record expands and is listed through: its alias as key,
// its name and values ("field: value" lines, by field name) as text, its media.
Clip clipForRecord(const CollectionRecord& record);

// The definition named `name`, ignoring case, or null.
const CollectionDefinition* findCollectionDefinition(const QList<CollectionDefinition>& definitions,
                                                     const QString& name);

// Categories

inline const QString systemGeneratedCategory = QStringLiteral("System generated");

// The fourteen built-in categories, "System generated" first, in their display order.
const QStringList& tavoCollectionCategories();

// The category a collection's words suggest: the first keyword row found anywhere in
// "<name> <context>", lower-cased; "Utilities" when none is. A plain substring test on purpose,
// so "calendar" counts as legal ("nda").
QString suggestedTavoCategory(const QString& name, const QString& context);

// The built-ins followed by the user's own categories, in stored order. A custom entry equal to a
// built-in or to an earlier custom entry (ignoring case), or blank, is left out so that no choice
// appears twice.
QStringList allCollectionCategories(const QStringList& custom);

// Built-in collections are always "System generated"; otherwise the user's category, or the
// suggestion from the name and the definition's description.
QString collectionCategory(const QString& name, const CollectionDefinition* definition);

inline const QString allCategoriesName = QStringLiteral("All categories");

// Whether a clip has at least one collection in a category (ignoring case); every clip is in "All
// categories". Each collection's category is worked out once, so one test serves a whole list.
class CategoryTest
{
public:
    CategoryTest(const QString& category, const QList<CollectionDefinition>& definitions);
    bool operator()(const Clip& clip);

private:
    QString m_category;
    QList<CollectionDefinition> m_definitions;
    QHash<QString, bool> m_inCategory; // by lower-cased collection name
};

// The clips that pass a CategoryTest, in their order.
QList<Clip> filterClipsByCategory(const QList<Clip>& clips, const QString& category,
                                  const QList<CollectionDefinition>& definitions);

// The categories the given collections fall in, each once, in the order first met.
QStringList categoriesOf(const QStringList& collections, const QList<CollectionDefinition>& definitions);

// The icon name of a collection; "folder.fill" for any name without its own.
QString collectionSymbol(const QString& name);

// The shortcut list filter

inline const QString allCollectionsName = QStringLiteral("All collections");

// The clips a list shows for a search `query`, a sidebar `section` and, in the "Collections"
// section, the chosen `collection`. Without `includeHidden`, a clip needs a collection that is not
// in `hidden` (ignoring case); a blank group counts as none. An empty query filters nothing, but a
// query that is all style suffix ("-b") leaves an empty search text, which matches nothing.
// Whether a clip shows while `hidden` collections are hidden: one of its collections is not.
bool isClipVisible(const Clip& clip, const QStringList& hidden);

// Whether `name` is one of the clip's collections, ignoring case, without building allGroups.
bool clipHasGroup(const Clip& clip, const QString& name);

QList<Clip> filterShortcutClips(const QList<Clip>& clips, const QStringList& hidden, const QString& query,
                                const QString& section, const QString& collection, bool includeHidden);
// The same filter as positions in `clips`, in the filter's order: a list of a hundred thousand
// can hold these instead of copies, which cost more than the search itself.
QList<qsizetype> filterShortcutClipPositions(const QList<Clip>& clips, const QStringList& hidden, const QString& query,
                                             const QString& section, const QString& collection, bool includeHidden);

// The columns a shortcut list sorts by.
enum class ShortcutSortKey
{
    Key,
    Name,
    Collection, // the first collection, `group`
};

// Orders positions in `clips` by one column of their clips, ignoring case. Ties fall back to the
// name, then the key, and clips equal in all three keep their order, so a list reads the same
// after every refresh.
void sortShortcutClipPositions(QList<qsizetype>& positions, const QList<Clip>& clips, ShortcutSortKey by,
                               Qt::SortOrder order);

// Duplicate analysis

struct DuplicateShortcutGroup
{
    QString id; // the normalised key, stable across refreshes
    QString shortcut;
    QList<Clip> clips;
    QStringList collections;

    bool operator==(const DuplicateShortcutGroup&) const = default;
};

// The key two shortcuts collide on: trimmed, "\" made "/", lower case, one file-type suffix off.
QString duplicateShortcutKey(const QString& key);

// Shortcuts sharing a duplicate key. Groups come sorted by key; a group's clips keep the input
// order; its `collections` are the distinct names (first spelling, ignoring case) sorted ignoring
// case.
QList<DuplicateShortcutGroup> findDuplicateShortcuts(const QList<Clip>& clips);

struct DuplicateCollectionGroup
{
    QString id; // the group's names, lower-cased and joined
    QStringList collectionNames;
    int matchingItems = 0;

    bool operator==(const DuplicateCollectionGroup&) const = default;
};

// Trimmed, lower-cased, each run of blanks (any script's) made one space.
QString normalizedCollectionText(const QString& text);

// Collections whose shortcuts and records are the same, ignoring order, case and spacing.
// Names keep the order of `collections` within a group, and groups come in the order of their
// first name there; a name listed twice (ignoring case) is taken once.
QList<DuplicateCollectionGroup> findDuplicateCollections(const QStringList& collections, const QList<Clip>& clips,
                                                         const QList<CollectionRecord>& records);

} // namespace tavo
