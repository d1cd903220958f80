#include "tavoctl/ctl_commands.h"
#include "tavoctl/ctl_options.h"
#include "tavoctl/ctl_profile.h"

#include "store/collection_rules.h"
#include "store/defaults.h"
#include "store/scorecard.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace tavo::ctl {

namespace {

using Kind = CommandLine::Kind;

const QString collectionUsage = QStringLiteral(R"(Usage: tavoctl collection list [--json]
       tavoctl collection add NAME [--fields "A, B"] [--category C] [--description D]
       tavoctl collection rename FROM TO
       tavoctl collection hide|show|remove NAME
)");

const QString recordUsage =
    QStringLiteral(R"(Usage: tavoctl record add COLLECTION --name N --alias A [--value FIELD=VALUE]...
       tavoctl record list [COLLECTION] [--json]
       tavoctl record remove COLLECTION ALIAS
)");

QString json(const QJsonValue& value)
{
    return QString::fromUtf8(value.isArray() ? QJsonDocument(value.toArray()).toJson(QJsonDocument::Indented)
                                             : QJsonDocument(value.toObject()).toJson(QJsonDocument::Indented));
}

// The collection a typed name means, in its stored spelling.
std::optional<QString> existingCollection(const DB& db, const QString& typed)
{
    const QString name = typed.trimmed();
    for (const QString& collection : db.collections()) {
        if (collection.compare(name, Qt::CaseInsensitive) == 0) {
            return collection;
        }
    }
    return std::nullopt;
}

QString noSuchCollection(const QString& typed)
{
    return QStringLiteral("No collection is named ") + typed.trimmed() + u'.';
}

QString shownAlias(const QString& alias)
{
    return displayTrigger(normalizedTrigger(alias));
}

int collectionList(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("collection list [--json]"), {{QStringLiteral("--json"), Kind::Flag}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    QString user;
    const std::unique_ptr<DB> db = openForReading(defaults, user, err);
    if (!db) {
        return 1;
    }
    const QHash<QString, CollectionItemCounts> counts =
        countCollectionItems(db->collections(), db->clips(), db->collectionRecords());
    QJsonArray all;
    for (const QString& name : db->collections()) {
        const CollectionDefinition* definition = findCollectionDefinition(db->collectionDefinitions(), name);
        const QString category = collectionCategory(name, definition);
        const bool hidden = db->isCollectionHidden(name);
        const qsizetype shortcutCount = counts.value(name.toLower()).shortcuts;
        const qsizetype recordCount = counts.value(name.toLower()).records;
        if (!line.isSet(QStringLiteral("--json"))) {
            out << oneLine(name) << '\t' << category << '\t' << shortcutCount << " shortcuts\t" << recordCount
                << " records" << (hidden ? "\thidden" : "") << '\n';
            continue;
        }
        QJsonArray fields;
        if (definition) {
            for (const CollectionFieldDefinition& field : definition->fields) {
                fields.append(field.name);
            }
        }
        all.append(QJsonObject{
            {QStringLiteral("name"), name},
            {QStringLiteral("category"), category},
            {QStringLiteral("description"), definition ? definition->description : QString()},
            {QStringLiteral("fields"), fields},
            {QStringLiteral("hidden"), hidden},
            {QStringLiteral("shortcuts"), shortcutCount},
            {QStringLiteral("records"), recordCount},
        });
    }
    if (line.isSet(QStringLiteral("--json"))) {
        out << json(all);
    }
    return 0;
}

int collectionAdd(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral(R"(collection add NAME [--fields "A, B"] [--category C] [--description D])"),
                     {{QStringLiteral("--fields"), Kind::Value},
                      {QStringLiteral("--category"), Kind::Value},
                      {QStringLiteral("--description"), Kind::Value}},
                     1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    // The definition editor's form, with what was not given left at its start values.
    CollectionDefinitionEditor editor;
    editor.name = line.positional().first();
    editor.description = line.value(QStringLiteral("--description"));
    if (line.isSet(QStringLiteral("--fields"))) {
        editor.fieldsText = line.value(QStringLiteral("--fields"));
    }
    return changeLibrary(
        [&](DB& db) {
            if (const std::optional<QString> problem = validateNewCollectionName(editor.name, db.collections())) {
                return LibraryChange::refused(*problem);
            }
            CollectionDefinitionEditor form = editor;
            if (line.isSet(QStringLiteral("--category"))) {
                const QStringList custom =
                    db.defaults().stringList(customCategoriesDefaultsKey).value_or(QStringList());
                const std::optional<QString> category =
                    CollectionDefinitionEditor::categoryChoice(line.value(QStringLiteral("--category")), custom);
                if (!category) {
                    return LibraryChange::refused(
                        QStringLiteral("Choose one of these categories: ") +
                        CollectionDefinitionEditor::categoryChoices(custom).join(QStringLiteral(", ")) + u'.');
                }
                form.category = *category;
            }
            const CollectionDefinition definition = form.save();
            QStringList names = db.collections();
            QList<CollectionDefinition> definitions = db.collectionDefinitions();
            addCollection(names, definitions, definition);
            db.setCollections(names);
            db.setCollectionDefinitions(definitions);
            LibraryChange change;
            change.library = true;
            change.done = QStringLiteral("Added collection ") + definition.name + u'.';
            return change;
        },
        out, err);
}

int collectionRename(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("collection rename FROM TO"), {}, 2, 2);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const QString typedFrom = line.positional()[0];
    const QString to = line.positional()[1].trimmed();
    return changeLibrary(
        [&](DB& db) {
            const std::optional<QString> from = existingCollection(db, typedFrom);
            if (!from) {
                return LibraryChange::refused(noSuchCollection(typedFrom));
            }
            if (const std::optional<QString> problem = validateCollectionRename(to, *from, db.collections())) {
                return LibraryChange::refused(*problem);
            }
            // Saves the shortcuts, the library, the hidden set and the builders' settings itself.
            db.renameCollection(*from, to);
            LibraryChange change;
            change.done = QStringLiteral("Renamed ") + *from + QStringLiteral(" to ") + to + u'.';
            return change;
        },
        out, err);
}

int collectionHide(const QStringList& arguments, bool hide, QTextStream& out, QTextStream& err)
{
    CommandLine line(hide ? QStringLiteral("collection hide NAME") : QStringLiteral("collection show NAME"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    return changeLibrary(
        [&](DB& db) {
            const std::optional<QString> name = existingCollection(db, line.positional().first());
            if (!name) {
                return LibraryChange::refused(noSuchCollection(line.positional().first()));
            }
            LibraryChange change;
            change.done = *name + (hide ? QStringLiteral(" is hidden.") : QStringLiteral(" is shown."));
            if (db.isCollectionHidden(*name) == hide) {
                change.nothingToDo = true;
                return change;
            }
            QStringList hidden = db.hiddenCollections();
            if (hide) {
                hidden.append(*name);
            } else {
                hidden.removeIf([&](const QString& entry) { return entry.compare(*name, Qt::CaseInsensitive) == 0; });
            }
            db.setHiddenCollections(hidden);
            return change;
        },
        out, err);
}

int collectionRemove(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("collection remove NAME"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    return changeLibrary(
        [&](DB& db) {
            const std::optional<QString> name = existingCollection(db, line.positional().first());
            if (!name) {
                return LibraryChange::refused(noSuchCollection(line.positional().first()));
            }
            if (const std::optional<QString> problem =
                    collectionRemovalRefusal(*name, db.clips(), db.collectionRecords())) {
                return LibraryChange::refused(*problem);
            }
            QStringList names = db.collections();
            QStringList hidden = db.hiddenCollections();
            QList<CollectionDefinition> definitions = db.collectionDefinitions();
            removeCollection(names, hidden, definitions, *name);
            db.setCollections(names);
            if (hidden != db.hiddenCollections()) {
                db.setHiddenCollections(hidden);
            }
            db.setCollectionDefinitions(definitions);
            LibraryChange change;
            change.library = true;
            change.done = QStringLiteral("Removed collection ") + *name + u'.';
            return change;
        },
        out, err);
}

// "FIELD=VALUE" of each --value, in order.
std::optional<QList<std::pair<QString, QString>>> fieldValues(const QStringList& given)
{
    QList<std::pair<QString, QString>> values;
    for (const QString& item : given) {
        const qsizetype equals = item.indexOf(u'=');
        if (equals <= 0 || item.left(equals).trimmed().isEmpty()) {
            return std::nullopt;
        }
        values.append({item.left(equals).trimmed(), item.mid(equals + 1)});
    }
    return values;
}

int recordAdd(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("record add COLLECTION --name N --alias A [--value FIELD=VALUE]..."),
                     {{QStringLiteral("--name"), Kind::Value},
                      {QStringLiteral("--alias"), Kind::Value},
                      {QStringLiteral("--value"), Kind::Repeatable}},
                     1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const std::optional<QList<std::pair<QString, QString>>> values =
        fieldValues(line.values(QStringLiteral("--value")));
    if (!values) {
        return line.usageError(QStringLiteral("--value needs FIELD=VALUE."), err);
    }
    const QString typedCollection = line.positional().first();
    return changeLibrary(
        [&](DB& db) {
            const std::optional<QString> existing = existingCollection(db, typedCollection);
            const CollectionDefinition* stored =
                existing ? findCollectionDefinition(db.collectionDefinitions(), *existing) : nullptr;
            CollectionDefinition definition;
            if (stored) {
                definition = *stored;
            } else if (existing) {
                definition = CollectionDefinition::emptyFor(*existing);
            } else {
                // A collection its first record creates, as `add --collection` does; it takes
                // the fields this record fills.
                if (const std::optional<QString> problem =
                        validateNewCollectionName(typedCollection, db.collections())) {
                    return LibraryChange::refused(*problem);
                }
                QStringList filled;
                for (const auto& [field, value] : *values) {
                    if (!filled.contains(field, Qt::CaseInsensitive)) {
                        filled.append(field);
                    }
                }
                CollectionDefinitionEditor form;
                form.name = typedCollection;
                form.fieldsText = filled.join(QStringLiteral(", "));
                form.category.clear(); // left to the automatic rule, as for any name `add` brings
                definition = form.save();
            }

            CollectionRecordEditor editor = CollectionRecordEditor::forRecord(definition, nullptr);
            editor.name = line.value(QStringLiteral("--name"));
            editor.alias = line.value(QStringLiteral("--alias"));
            const QStringList fields = CollectionRecordEditor::fieldNames(definition);
            for (const auto& [field, value] : *values) {
                const auto known = std::find_if(fields.cbegin(), fields.cend(), [&](const QString& name) {
                    return name.compare(field, Qt::CaseInsensitive) == 0;
                });
                if (known == fields.cend()) {
                    return LibraryChange::refused(definition.name + QStringLiteral(" has no field ") + field +
                                                  QStringLiteral("; its fields are ") +
                                                  fields.join(QStringLiteral(", ")) + u'.');
                }
                editor.values.insert(*known, value);
            }
            const std::optional<CollectionRecord> record = editor.save(definition, db.collectionRecords(), nullptr);
            if (!record) {
                return LibraryChange::refused(editor.error);
            }

            if (!stored) {
                QStringList names = db.collections();
                QList<CollectionDefinition> definitions = db.collectionDefinitions();
                addCollection(names, definitions, definition);
                if (names != db.collections()) {
                    db.setCollections(names);
                }
                db.setCollectionDefinitions(definitions);
            }
            db.setCollectionRecords(QList<CollectionRecord>(db.collectionRecords()) << *record);
            LibraryChange change;
            change.library = true;
            change.done = QStringLiteral("Added ") + shownAlias(record->alias) + QStringLiteral(" to ") +
                          record->collection + u'.';
            return change;
        },
        out, err);
}

int recordList(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("record list [COLLECTION] [--json]"), {{QStringLiteral("--json"), Kind::Flag}}, 0,
                     1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    QString user;
    const std::unique_ptr<DB> db = openForReading(defaults, user, err);
    if (!db) {
        return 1;
    }
    const QString collection = line.positional().value(0).trimmed();
    QList<CollectionRecord> records;
    for (const CollectionRecord& record : db->collectionRecords()) {
        if (collection.isEmpty() || record.collection.compare(collection, Qt::CaseInsensitive) == 0) {
            records.append(record);
        }
    }
    if (line.isSet(QStringLiteral("--json"))) {
        out << json(recordsToJson(records));
        return 0;
    }
    for (const CollectionRecord& record : records) {
        QStringList values;
        for (auto it = record.values.cbegin(); it != record.values.cend(); ++it) {
            values.append(it.key() + QStringLiteral(": ") + it.value());
        }
        out << oneLine(record.collection) << '\t' << oneLine(shownAlias(record.alias)) << '\t' << oneLine(record.name)
            << '\t' << oneLine(values.join(QStringLiteral("; "))) << '\n';
    }
    return 0;
}

int recordRemove(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("record remove COLLECTION ALIAS"), {}, 2, 2);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const QString typedCollection = line.positional()[0];
    const QString alias = normalizedRecordAlias(line.positional()[1]);
    return changeLibrary(
        [&](DB& db) {
            const std::optional<QString> collection = existingCollection(db, typedCollection);
            if (!collection) {
                return LibraryChange::refused(noSuchCollection(typedCollection));
            }
            QList<CollectionRecord> records = db.collectionRecords();
            const qsizetype removed = records.removeIf([&](const CollectionRecord& record) {
                return record.collection.compare(*collection, Qt::CaseInsensitive) == 0 &&
                       record.alias.compare(alias, Qt::CaseInsensitive) == 0;
            });
            if (alias.isEmpty() || removed == 0) {
                return LibraryChange::refused(*collection + QStringLiteral(" has no record ") + shownAlias(alias) +
                                              u'.');
            }
            db.setCollectionRecords(records);
            LibraryChange change;
            change.library = true;
            change.done =
                QStringLiteral("Removed ") + shownAlias(alias) + QStringLiteral(" from ") + *collection + u'.';
            return change;
        },
        out, err);
}

} // namespace

int collection(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    const auto hideOrShow = [](bool hide) {
        return [hide](const QStringList& rest, QTextStream& o, QTextStream& e) {
            return collectionHide(rest, hide, o, e);
        };
    };
    return runAction(arguments,
                     {{QStringLiteral("list"), collectionList},
                      {QStringLiteral("add"), collectionAdd},
                      {QStringLiteral("rename"), collectionRename},
                      {QStringLiteral("hide"), hideOrShow(true)},
                      {QStringLiteral("show"), hideOrShow(false)},
                      {QStringLiteral("remove"), collectionRemove}},
                     collectionUsage, out, err);
}

int record(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    return runAction(arguments,
                     {{QStringLiteral("add"), recordAdd},
                      {QStringLiteral("list"), recordList},
                      {QStringLiteral("remove"), recordRemove}},
                     recordUsage, out, err);
}

int duplicates(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("duplicates"), {});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    QString user;
    const std::unique_ptr<DB> db = openForReading(defaults, user, err);
    if (!db) {
        return 1;
    }
    // Worded as the library's two panels, one line per group.
    const QList<DuplicateShortcutGroup> shortcuts = findDuplicateShortcuts(db->clips());
    if (shortcuts.isEmpty()) {
        out << noRepeatedShortcutsText << '\n';
    } else {
        out << repeatedShortcutsTitle(shortcuts.size()) << '\n';
        for (const DuplicateShortcutGroup& group : shortcuts) {
            out << oneLine(displayTrigger(group.shortcut)) << '\t' << repeatsText(group) << '\t'
                << occurrencesText(group) << oneLine(group.collections.join(QStringLiteral(", "))) << '\n';
        }
    }
    const QList<DuplicateCollectionGroup> collections =
        findDuplicateCollections(db->collections(), db->clips(), db->collectionRecords());
    if (collections.isEmpty()) {
        out << noIdenticalCollectionsText << '\n';
    } else {
        out << identicalCollectionsTitle(collections.size()) << '\n';
        for (const DuplicateCollectionGroup& group : collections) {
            out << oneLine(group.collectionNames.join(QStringLiteral(", "))) << '\t' << matchingItemsText(group)
                << '\n';
        }
    }
    return 0;
}

int stats(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("stats [--json]"), {{QStringLiteral("--json"), Kind::Flag}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    QString user;
    const std::unique_ptr<DB> db = openForReading(defaults, user, err);
    if (!db) {
        return 1;
    }
    ScorecardNumbers numbers = readScorecard(defaults, user);
    numbers.shortcutCount = db->clips().size();
    numbers.collectionCount = db->collections().size();
    numbers.duplicateShortcutCount = extraDuplicateShortcuts(findDuplicateShortcuts(db->clips()));
    numbers.duplicateCollectionCount =
        extraDuplicateCollections(findDuplicateCollections(db->collections(), db->clips(), db->collectionRecords()));
    const QList<SpriteDashboardMetric> cards = scorecardMetrics(numbers);

    if (line.isSet(QStringLiteral("--json"))) {
        QJsonArray shown;
        for (const SpriteDashboardMetric& card : cards) {
            shown.append(QJsonObject{{QStringLiteral("title"), card.title},
                                     {QStringLiteral("value"), card.value},
                                     {QStringLiteral("detail"), card.detail}});
        }
        out << json(QJsonObject{{QStringLiteral("username"), numbers.username},
                                {QStringLiteral("shortcuts"), numbers.shortcutCount},
                                {QStringLiteral("collections"), numbers.collectionCount},
                                {QStringLiteral("cards"), shown}});
        return 0;
    }
    out << ScorecardText::greeting(numbers.username) << '\n'
        << ScorecardText::shortcutsCount(numbers.shortcutCount) << QStringLiteral(" \u00b7 ")
        << ScorecardText::collectionsCount(numbers.collectionCount) << '\n';
    for (const SpriteDashboardMetric& card : cards) {
        out << card.title << '\t' << card.value << '\n';
    }
    return 0;
}

} // namespace tavo::ctl
