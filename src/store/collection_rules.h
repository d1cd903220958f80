#pragma once

#include "language/shortcut_record.h"
#include "store/collections.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

// The rules of the collection library's screens and sheets, as values the screens drive: they
// validate, compute and tell their messages; the caller stores the result and saves.
namespace tavo {

// Moving shortcuts between collections

enum class BulkAssignmentMode
{
    Move,  // the chosen names replace the shortcut's collections
    AddTo, // the chosen names join them
};

QString bulkAssignmentModeText(BulkAssignmentMode mode);

// Changes the selected clips' collections; gives how many clips changed. Keys are left as they
// are. Nothing changes when `chosen` is empty.
int applyBulkCollectionChange(QList<Clip>& clips, const QSet<QUuid>& selected, BulkAssignmentMode mode,
                              const QStringList& chosen);

// "Moved selected shortcuts to A, B."
QString movedShortcutsMessage(const QStringList& names);

// Renaming a collection
//
// Each function below trims `to` and changes nothing when it is blank; names are matched
// ignoring case. Each gives whether it changed anything.

inline const QString collectionRenameNote =
    QStringLiteral("Shortcuts, records, and builder references in this collection will keep their assignments.");

// The sheet's refusal, or nothing when `newName` may replace `currentName`. A change of case
// only is allowed.
std::optional<QString> validateCollectionRename(const QString& newName, const QString& currentName,
                                                const QStringList& collections);

// The refusal of a new collection's name, as the definition editor and the collection manager
// give it: a blank name, or one that is already a collection in any case.
std::optional<QString> validateNewCollectionName(const QString& name, const QStringList& collections);

// For the collection list and the hidden list alike.
bool renameCollectionInNames(QStringList& names, const QString& from, const QString& to);
bool renameCollectionInClips(QList<Clip>& clips, const QString& from, const QString& to);
// Definitions get the new `name` and records the new `collection`, both stamped `now`.
bool renameCollectionInLibrary(QList<CollectionDefinition>& definitions, QList<CollectionRecord>& records,
                               const QString& from, const QString& to,
                               const QDateTime& now = QDateTime::currentDateTimeUtc());

// Whether a settings key holds a builder's comma-separated collection names.
bool isBuilderCollectionsKey(const QString& key);
// "Work,  Sales" renamed from sales to Deals gives "Work, Deals".
QString renamedBuilderCollections(const QString& value, const QString& from, const QString& to);

// Bulk rename of shortcuts

struct RenamedShortcut
{
    QString key;
    QString name;

    bool operator==(const RenamedShortcut&) const = default;
};

// One rule applied to every selected shortcut's code, name or both.
struct BulkShortcutRename
{
    enum class Target
    {
        Codes,
        Names,
        CodesAndNames
    };
    enum class Mode
    {
        AddPrefix,
        AddSuffix,
        ReplacePrefix,
        ReplaceSuffix,
        FindAndReplace,
        Lowercase,
        Uppercase,
        TitleCase,
        UseShortcutName,
    };

    static constexpr int maximumCodeLength = 48; // in characters as a person counts them

    Target target = Target::Codes;
    Mode mode = Mode::AddPrefix;
    QString findText; // the added text in the "Add" modes
    QString replacement;
    QString error;

    static const QList<Target>& targets();
    static QString targetText(Target target);
    static const QList<Mode>& modes(); // in display order
    static QString modeText(Mode mode);

    bool changesCodes() const { return target != Target::Names; }
    bool changesNames() const { return target != Target::Codes; }

    // The rule applied to one text. An empty `findText` replaces nothing.
    QString transformed(const QString& text) const;
    // The new key: "/", the transformed code in lower case, and the key's file-type suffix.
    QString transformedCode(const Clip& clip) const;

    // The new key and name of each selected clip, by id; or nothing, with `error` set, when a code
    // would be empty, too long, or equal to another (ignoring case). `allKeys` holds every key of
    // the library, the selected clips' own included.
    std::optional<QHash<QUuid, RenamedShortcut>> apply(const QList<Clip>& selectedClips, const QStringList& allKeys);

    // "Choose Shortcut codes or Codes and names…", needed when names cannot make codes.
    bool showsUseNameHint() const { return mode == Mode::UseShortcutName && target == Target::Names; }

    static QString summaryText(qsizetype count);
    static QString applyButtonText(qsizetype count);
    static QString renamedMessage(qsizetype count);
};

inline const QString bulkRenameNameNote = QStringLiteral(
    "Name changes affect only the displayed shortcut name; they do not alter the expansion text or attachments.");
inline const QString bulkRenameUseNameHint =
    QStringLiteral("Choose Shortcut codes or Codes and names to create codes from each shortcut\u2019s current name.");

// Stores an accepted rename in the clips; gives how many changed.
int applyShortcutRenames(QList<Clip>& clips, const QHash<QUuid, RenamedShortcut>& renames);

// Record editor

// The form of one record; `values` holds the entered text of each field it shows.
struct CollectionRecordEditor
{
    QString name;
    QString alias;
    QMap<QString, QString> values;
    QString error;

    // The fields the form shows: the definition's, or one "Details" when it has none.
    static QStringList fieldNames(const CollectionDefinition& definition);
    // The form filled from a record in edit, or from the fields' defaults for a new one.
    static CollectionRecordEditor forRecord(const CollectionDefinition& definition, const CollectionRecord* record);

    // The record to store, or nothing with `error` set. An edited record keeps its id and files,
    // and the values of any field the form no longer shows, so a changed definition loses no data.
    std::optional<CollectionRecord> save(const CollectionDefinition& definition,
                                         const QList<CollectionRecord>& existingRecords,
                                         const CollectionRecord* editing,
                                         const QDateTime& now = QDateTime::currentDateTimeUtc());
};

// An alias as stored: no "/", "\" or blanks at its ends, lower case.
QString normalizedRecordAlias(const QString& alias);

// Definition editor

struct CollectionDefinitionEditor
{
    inline static const QString defaultFieldsText = QStringLiteral("Name, Address, Email, Phone");
    inline static const QString defaultCategory = QStringLiteral("Utilities");

    QString id; // empty for a new collection
    QString name;
    QString description;
    QString fieldsText = defaultFieldsText;
    QString category = defaultCategory;

    // One "Text" field per comma-separated piece, trimmed, empty pieces dropped, each a fresh id.
    QList<CollectionFieldDefinition> fields() const;
    bool canSave() const { return !name.trimmed().isEmpty(); }
    // Whether the (trimmed) name is already a collection, ignoring case.
    bool nameExists(const QStringList& existing) const;
    // The definition to store; an empty category leaves it to the automatic rule.
    CollectionDefinition save(const QDateTime& now = QDateTime::currentDateTimeUtc()) const;

    // The categories a user may choose: every one but "System generated".
    static QStringList categoryChoices(const QStringList& customCategories);
    // The choice a typed category names, ignoring case, in its listed spelling; nothing when it
    // names none of them.
    static std::optional<QString> categoryChoice(const QString& text, const QStringList& customCategories);
};

// Adding and removing collections

// A new collection: its name at the end of `names`, and its definition in place of any that a
// former collection of that name left behind.
void addCollection(QStringList& names, QList<CollectionDefinition>& definitions,
                   const CollectionDefinition& definition);
// Takes a removable collection out of the names, the hidden set and the definitions.
void removeCollection(QStringList& names, QStringList& hidden, QList<CollectionDefinition>& definitions,
                      const QString& name);

inline const QString openExistingInBuilderText = QStringLiteral("Open existing in Builder");
inline const QString openExistingCollectionText = QStringLiteral("Open existing collection");

// Library screen

inline constexpr int collectionPageSize = 50;

// At least one page, so an empty list reads "Page 1 of 1".
int collectionPageCount(qsizetype itemCount);
// "Page 1 of 3" for the first of three pages; `page` counts from 0.
QString collectionPageText(int page, int pageCount);

// The items on page `page` (from 0): empty past the end.
template<typename T>
QList<T> collectionPage(const QList<T>& items, int page)
{
    if (page < 0) {
        return {};
    }
    return items.mid(qsizetype(page) * collectionPageSize, collectionPageSize);
}

// The names the sidebar lists: without hidden ones unless `showHidden`, and, when filters are
// chosen, only those whose category is one of them.
QStringList filteredCollectionNames(const QStringList& names, const QStringList& hidden, bool showHidden,
                                    const QStringList& selectedCategoryFilters,
                                    const QList<CollectionDefinition>& definitions);

inline const QString customCategoriesDefaultsKey = QStringLiteral("tavoCustomCollectionCategories");
inline const QString categoryManagerNote =
    QStringLiteral("Collections are automatically categorized by name. Change a custom collection\u2019s category "
                   "to move it. System collections stay locked in System generated.");
inline const QString addCategoryText = QStringLiteral("Add your own category\u2026");

inline const QString loadingShortcutsText = QStringLiteral("Loading shortcuts\u2026");
inline const QString loadingRecordsText = QStringLiteral("Loading records\u2026");
inline const QString noShortcutsTitle = QStringLiteral("No shortcuts in this collection");
inline const QString noShortcutsHint =
    QStringLiteral("Add a phrase or attach media to create your first shortcut here.");
inline const QString noRecordsTitle = QStringLiteral("No records yet");
inline const QString noRecordsHint =
    QStringLiteral("Add one record for each company, customer, product, or other reusable item.");
inline const QString deleteSelectedShortcutsQuestion = QStringLiteral("Delete selected shortcuts?");
inline const QString deleteShortcutQuestion = QStringLiteral("Delete shortcut?");
QString deleteShortcutDetail(const QString& shownKey); // "<key> will be removed from Tavo."

// Duplicate panels

inline const QString noRepeatedShortcutsText = QStringLiteral("No repeated shortcut codes found.");
inline const QString editRepeatedShortcutText = QStringLiteral("Edit this repeated shortcut");
inline const QString noIdenticalCollectionsText = QStringLiteral("No identical collection contents found.");
QString repeatedShortcutsTitle(qsizetype groupCount);
QString repeatsText(const DuplicateShortcutGroup& group);
QString occurrencesText(const DuplicateShortcutGroup& group);
QString identicalCollectionsTitle(qsizetype groupCount);
QString matchingItemsText(const DuplicateCollectionGroup& group);

// Collection manager and category manager

// Why `name` cannot leave the collection list: it is built in, shortcuts use it, or records are
// kept in it. Nothing when it may go.
std::optional<QString> collectionRemovalRefusal(const QString& name, const QList<Clip>& clips,
                                                const QList<CollectionRecord>& records);

// Appends the trimmed `name` unless it is blank or already a category, built in or custom, in
// any case. Gives whether the list changed.
bool addCustomCategory(QStringList& customCategories, const QString& name);

// Stores the category a user chose for a collection, with `updatedAt`; a collection without a
// definition gets one. Built-in collections stay locked in "System generated", and an unchanged
// category changes nothing. Gives whether anything changed.
bool assignCollectionCategory(QList<CollectionDefinition>& definitions, const QString& name, const QString& category,
                              const QDateTime& now = QDateTime::currentDateTimeUtc());

// The definition editor filled from a stored definition, for editing it.
CollectionDefinitionEditor definitionEditorFor(const CollectionDefinition& definition);

struct CollectionItemCounts
{
    qsizetype shortcuts = 0;
    qsizetype records = 0;

    bool operator==(const CollectionItemCounts&) const = default;
};

// How many shortcuts (by any of their collections) and records each name holds, ignoring case;
// keyed by the lower-cased name. One pass over each list, so it serves a library of any size.
QHash<QString, CollectionItemCounts> countCollectionItems(const QStringList& collections, const QList<Clip>& clips,
                                                          const QList<CollectionRecord>& records);

inline const QString deleteRecordQuestion = QStringLiteral("Delete record?");

} // namespace tavo
