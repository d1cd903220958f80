#include "store/collection_rules.h"

#include "language/text_utils.h"

#include <QRegularExpression>

#include <algorithm>

namespace tavo {

namespace {

bool equalsIgnoringCase(const QString& a, const QString& b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

// The trimmed new name of a rename, or nothing when it is blank and the rename does nothing.
std::optional<QString> renameTarget(const QString& to)
{
    QString name = to.trimmed();
    if (name.isEmpty()) {
        return std::nullopt;
    }
    return name;
}

// `text` without the characters `isTrimmed` picks at either end.
QString trimmedOf(const QString& text, bool (*isTrimmed)(QChar))
{
    qsizetype start = 0;
    qsizetype end = text.size();
    while (start < end && isTrimmed(text[start])) {
        ++start;
    }
    while (end > start && isTrimmed(text[end - 1])) {
        --end;
    }
    return text.mid(start, end - start);
}

bool isSlash(QChar c)
{
    return c == u'/' || c == u'\\';
}

bool isSlashOrBlank(QChar c)
{
    return isSlash(c) || c.isSpace();
}

bool isDash(QChar c)
{
    return c == u'-';
}

// Every word (a run without blanks) with its first character in title case and the rest lower.
QString titleCased(const QString& text)
{
    QString result;
    result.reserve(text.size());
    qsizetype i = 0;
    while (i < text.size()) {
        if (text[i].isSpace()) {
            result.append(text[i]);
            ++i;
            continue;
        }
        qsizetype end = i;
        while (end < text.size() && !text[end].isSpace()) {
            ++end;
        }
        char32_t first = text[i].unicode();
        qsizetype firstLength = 1;
        if (text[i].isHighSurrogate() && i + 1 < end && text[i + 1].isLowSurrogate()) {
            first = QChar::surrogateToUcs4(text[i], text[i + 1]);
            firstLength = 2;
        }
        result.append(QStringView(QChar::fromUcs4(QChar::toTitleCase(first))));
        result.append(QStringView(text).mid(i + firstLength, end - i - firstLength).toString().toLower());
        i = end;
    }
    return result;
}

struct CodeParts
{
    QString code;   // lower case, without slash and suffix
    QString suffix; // the file-type suffix the key keeps
};

CodeParts renamedCodeParts(const BulkShortcutRename& rule, const Clip& clip)
{
    static constexpr QLatin1StringView suffixes[] = {
        QLatin1StringView(".media"), QLatin1StringView(".app"), QLatin1StringView(".ai"),
        QLatin1StringView(".web"),   QLatin1StringView(".gif"), QLatin1StringView(".e"),
    };
    CodeParts parts;
    QString code = trimmedOf(clip.key, isSlash);
    for (const QLatin1StringView suffix : suffixes) {
        if (code.endsWith(suffix, Qt::CaseInsensitive)) {
            code.chop(suffix.size());
            parts.suffix = suffix;
            break;
        }
    }

    if (rule.mode == BulkShortcutRename::Mode::UseShortcutName) {
        static const QRegularExpression notAlphanumeric(QStringLiteral("[^a-z0-9]+"));
        parts.code = trimmedOf(clip.name.toLower().replace(notAlphanumeric, QStringLiteral("-")), isDash);
    } else {
        static const QRegularExpression separators = unicodeRegex(QStringLiteral("[\\s/\\\\]+"));
        parts.code = rule.transformed(code).toLower().replace(separators, QStringLiteral("-"));
    }
    return parts;
}

bool longerThan(const QString& text, qsizetype characters)
{
    return leadingCharacters(text, characters).size() < text.size();
}

} // namespace

QString bulkAssignmentModeText(BulkAssignmentMode mode)
{
    return mode == BulkAssignmentMode::Move ? QStringLiteral("Move") : QStringLiteral("Add to");
}

int applyBulkCollectionChange(QList<Clip>& clips, const QSet<QUuid>& selected, BulkAssignmentMode mode,
                              const QStringList& chosen)
{
    if (chosen.isEmpty() || selected.isEmpty()) {
        return 0;
    }
    int changed = 0;
    for (Clip& clip : clips) {
        if (!selected.contains(clip.id)) {
            continue;
        }
        const QString oldGroup = clip.group;
        const std::optional<QStringList> oldGroups = clip.groups;
        if (mode == BulkAssignmentMode::Move) {
            clip.group = chosen.first();
            clip.groups = chosen.mid(1);
        } else {
            QStringList all = clip.allGroups();
            for (const QString& name : chosen) {
                if (!all.contains(name, Qt::CaseInsensitive)) {
                    all.append(name);
                    if (!clip.groups) {
                        clip.groups = QStringList();
                    }
                    clip.groups->append(name);
                }
            }
        }
        if (clip.group != oldGroup || clip.groups != oldGroups) {
            ++changed;
        }
    }
    return changed;
}

QString movedShortcutsMessage(const QStringList& names)
{
    return QStringLiteral("Moved selected shortcuts to ") + names.join(QStringLiteral(", ")) + u'.';
}

std::optional<QString> validateCollectionRename(const QString& newName, const QString& currentName,
                                                const QStringList& collections)
{
    const QString name = newName.trimmed();
    if (name.isEmpty()) {
        return QStringLiteral("Enter a collection name.");
    }
    for (const QString& existing : collections) {
        if (!equalsIgnoringCase(existing, currentName) && equalsIgnoringCase(existing, name)) {
            return QStringLiteral("A collection with that name already exists.");
        }
    }
    return std::nullopt;
}

std::optional<QString> validateNewCollectionName(const QString& name, const QStringList& collections)
{
    // A new collection is no existing one, so every name counts against it.
    return validateCollectionRename(name, QString(), collections);
}

bool renameCollectionInNames(QStringList& names, const QString& from, const QString& to)
{
    const std::optional<QString> target = renameTarget(to);
    if (!target) {
        return false;
    }
    bool changed = false;
    QStringList renamed;
    renamed.reserve(names.size());
    for (const QString& name : std::as_const(names)) {
        const QString entry = equalsIgnoringCase(name, from) ? *target : name;
        changed = changed || entry != name;
        // A stale entry that already named the target would otherwise appear twice.
        if (equalsIgnoringCase(entry, *target) && renamed.contains(entry, Qt::CaseInsensitive)) {
            changed = true;
            continue;
        }
        renamed.append(entry);
    }
    names = std::move(renamed);
    return changed;
}

bool renameCollectionInClips(QList<Clip>& clips, const QString& from, const QString& to)
{
    const std::optional<QString> target = renameTarget(to);
    if (!target) {
        return false;
    }
    bool changed = false;
    auto rename = [&](QString& name) {
        if (equalsIgnoringCase(name, from) && name != *target) {
            name = *target;
            changed = true;
        }
    };
    for (Clip& clip : clips) {
        rename(clip.group);
        if (clip.groups) {
            for (QString& group : *clip.groups) {
                rename(group);
            }
        }
    }
    return changed;
}

bool renameCollectionInLibrary(QList<CollectionDefinition>& definitions, QList<CollectionRecord>& records,
                               const QString& from, const QString& to, const QDateTime& now)
{
    const std::optional<QString> target = renameTarget(to);
    if (!target) {
        return false;
    }
    bool changed = false;
    for (CollectionDefinition& definition : definitions) {
        if (equalsIgnoringCase(definition.name, from)) {
            definition.name = *target;
            definition.updatedAt = now;
            changed = true;
        }
    }
    for (CollectionRecord& record : records) {
        if (equalsIgnoringCase(record.collection, from)) {
            record.collection = *target;
            record.updatedAt = now;
            changed = true;
        }
    }
    return changed;
}

bool isBuilderCollectionsKey(const QString& key)
{
    return key.startsWith(QLatin1StringView("tavoBuilderCollections.")) ||
           key.startsWith(QLatin1StringView("tavoBuilderOutputCollections."));
}

QString renamedBuilderCollections(const QString& value, const QString& from, const QString& to)
{
    const std::optional<QString> target = renameTarget(to);
    if (!target) {
        return value;
    }
    QStringList parts = value.split(u',');
    for (QString& part : parts) {
        part = part.trimmed();
        if (equalsIgnoringCase(part, from)) {
            part = *target;
        }
    }
    return parts.join(QStringLiteral(", "));
}

const QList<BulkShortcutRename::Target>& BulkShortcutRename::targets()
{
    static const QList<Target> all{Target::Codes, Target::Names, Target::CodesAndNames};
    return all;
}

QString BulkShortcutRename::targetText(Target target)
{
    switch (target) {
    case Target::Codes:
        return QStringLiteral("Shortcut codes");
    case Target::Names:
        return QStringLiteral("Shortcut names");
    case Target::CodesAndNames:
        return QStringLiteral("Codes and names");
    }
    return {};
}

const QList<BulkShortcutRename::Mode>& BulkShortcutRename::modes()
{
    static const QList<Mode> all{
        Mode::AddPrefix, Mode::AddSuffix, Mode::ReplacePrefix, Mode::ReplaceSuffix,   Mode::FindAndReplace,
        Mode::Lowercase, Mode::Uppercase, Mode::TitleCase,     Mode::UseShortcutName,
    };
    return all;
}

QString BulkShortcutRename::modeText(Mode mode)
{
    switch (mode) {
    case Mode::AddPrefix:
        return QStringLiteral("Add prefix");
    case Mode::AddSuffix:
        return QStringLiteral("Add suffix");
    case Mode::ReplacePrefix:
        return QStringLiteral("Replace prefix");
    case Mode::ReplaceSuffix:
        return QStringLiteral("Replace suffix");
    case Mode::FindAndReplace:
        return QStringLiteral("Find & replace");
    case Mode::Lowercase:
        return QStringLiteral("Lowercase");
    case Mode::Uppercase:
        return QStringLiteral("UPPERCASE");
    case Mode::TitleCase:
        return QStringLiteral("Title Case");
    case Mode::UseShortcutName:
        return QStringLiteral("Use shortcut name");
    }
    return {};
}

QString BulkShortcutRename::transformed(const QString& text) const
{
    switch (mode) {
    case Mode::AddPrefix:
        return findText + text;
    case Mode::AddSuffix:
        return text + findText;
    case Mode::ReplacePrefix:
        if (!findText.isEmpty() && text.startsWith(findText)) {
            return replacement + QStringView(text).mid(findText.size());
        }
        return text;
    case Mode::ReplaceSuffix:
        if (!findText.isEmpty() && text.endsWith(findText)) {
            return QStringView(text).chopped(findText.size()) + replacement;
        }
        return text;
    case Mode::FindAndReplace:
        // Qt would insert the replacement between every character for an empty search.
        if (findText.isEmpty()) {
            return text;
        }
        return QString(text).replace(findText, replacement, Qt::CaseInsensitive);
    case Mode::Lowercase:
        return text.toLower();
    case Mode::Uppercase:
        return text.toUpper();
    case Mode::TitleCase:
        return titleCased(text);
    case Mode::UseShortcutName:
        return text;
    }
    return text;
}

QString BulkShortcutRename::transformedCode(const Clip& clip) const
{
    const CodeParts parts = renamedCodeParts(*this, clip);
    return u'/' + parts.code + parts.suffix;
}

std::optional<QHash<QUuid, RenamedShortcut>> BulkShortcutRename::apply(const QList<Clip>& selectedClips,
                                                                       const QStringList& allKeys)
{
    error.clear();
    QList<std::pair<QUuid, RenamedShortcut>> results;
    results.reserve(selectedClips.size());
    for (const Clip& clip : selectedClips) {
        RenamedShortcut renamed{clip.key, clip.name};
        if (changesCodes()) {
            const CodeParts parts = renamedCodeParts(*this, clip);
            renamed.key = (u'/' + parts.code + parts.suffix).toLower();
            // The code a person typed counts, between the slash and the file-type suffix.
            if (parts.code.isEmpty() || longerThan(parts.code, maximumCodeLength)) {
                error = QStringLiteral("A resulting shortcut code is empty or longer than 48 characters. Shorten the "
                                       "added text and try again.");
                return std::nullopt;
            }
        }
        if (changesNames() && mode != Mode::UseShortcutName) {
            renamed.name = transformed(clip.name).trimmed();
        }
        results.append({clip.id, renamed});
    }

    // A names-only rename leaves every key as it is, so it cannot create a duplicate.
    if (changesCodes()) {
        // The keys of the shortcuts that keep theirs: every key once per holder, less one for each
        // selected shortcut, so an old twin of a selected key still counts.
        QHash<QString, int> keptKeys;
        keptKeys.reserve(allKeys.size());
        for (const QString& key : allKeys) {
            ++keptKeys[key.toLower()];
        }
        for (const Clip& clip : selectedClips) {
            auto it = keptKeys.find(clip.key.toLower());
            if (it != keptKeys.end() && --it.value() == 0) {
                keptKeys.erase(it);
            }
        }
        QSet<QString> newKeys;
        for (const auto& [id, renamed] : std::as_const(results)) {
            if (newKeys.contains(renamed.key) || keptKeys.contains(renamed.key)) {
                error = QStringLiteral("This rename would create a duplicate shortcut code (") + renamed.key +
                        QStringLiteral("). Change the rule or selection and try again.");
                return std::nullopt;
            }
            newKeys.insert(renamed.key);
        }
    }

    QHash<QUuid, RenamedShortcut> renames;
    renames.reserve(results.size());
    for (const auto& [id, renamed] : std::as_const(results)) {
        renames.insert(id, renamed);
    }
    return renames;
}

QString BulkShortcutRename::summaryText(qsizetype count)
{
    return QStringLiteral("Apply one rename rule to all %1 selected shortcuts. Shortcut codes keep their slash and "
                          "file-type suffix.")
        .arg(count);
}

QString BulkShortcutRename::applyButtonText(qsizetype count)
{
    return QStringLiteral("Apply to %1 shortcuts").arg(count);
}

QString BulkShortcutRename::renamedMessage(qsizetype count)
{
    return QStringLiteral("Renamed %1 selected shortcuts.").arg(count);
}

int applyShortcutRenames(QList<Clip>& clips, const QHash<QUuid, RenamedShortcut>& renames)
{
    int changed = 0;
    for (Clip& clip : clips) {
        const auto it = renames.constFind(clip.id);
        if (it == renames.constEnd()) {
            continue;
        }
        if (clip.key != it->key || clip.name != it->name) {
            clip.key = it->key;
            clip.name = it->name;
            ++changed;
        }
    }
    return changed;
}

QStringList CollectionRecordEditor::fieldNames(const CollectionDefinition& definition)
{
    if (definition.fields.isEmpty()) {
        return {QStringLiteral("Details")};
    }
    QStringList names;
    for (const CollectionFieldDefinition& field : definition.fields) {
        if (!names.contains(field.name)) {
            names.append(field.name);
        }
    }
    return names;
}

CollectionRecordEditor CollectionRecordEditor::forRecord(const CollectionDefinition& definition,
                                                         const CollectionRecord* record)
{
    CollectionRecordEditor editor;
    if (record) {
        editor.name = record->name;
        editor.alias = record->alias;
        for (const QString& field : fieldNames(definition)) {
            editor.values.insert(field, record->values.value(field));
        }
        return editor;
    }
    for (const QString& field : fieldNames(definition)) {
        editor.values.insert(field, QString());
    }
    for (const CollectionFieldDefinition& field : definition.fields) {
        if (editor.values.value(field.name).isEmpty()) {
            editor.values.insert(field.name, field.defaultValue);
        }
    }
    return editor;
}

std::optional<CollectionRecord> CollectionRecordEditor::save(const CollectionDefinition& definition,
                                                             const QList<CollectionRecord>& existingRecords,
                                                             const CollectionRecord* editing, const QDateTime& now)
{
    error.clear();
    const QString recordName = name.trimmed();
    const QString recordAlias = normalizedRecordAlias(alias);
    if (recordName.isEmpty() || recordAlias.isEmpty()) {
        error = QStringLiteral("Enter both a record name and shortcut alias.");
        return std::nullopt;
    }
    for (const CollectionRecord& other : existingRecords) {
        if (editing && other.id == editing->id) {
            continue;
        }
        if (equalsIgnoringCase(other.collection, definition.name) && equalsIgnoringCase(other.alias, recordAlias)) {
            error = QStringLiteral("That shortcut alias is already used in this collection.");
            return std::nullopt;
        }
    }

    CollectionRecord record;
    if (editing) {
        record = *editing;
    } else {
        record.id = uuidText(QUuid::createUuid());
        record.collection = definition.name;
    }
    record.name = recordName;
    record.alias = recordAlias;
    record.updatedAt = now;
    for (const QString& field : fieldNames(definition)) {
        record.values.insert(field, values.value(field).trimmed());
    }
    return record;
}

QString normalizedRecordAlias(const QString& alias)
{
    return trimmedOf(alias, isSlashOrBlank).toLower();
}

QList<CollectionFieldDefinition> CollectionDefinitionEditor::fields() const
{
    QList<CollectionFieldDefinition> result;
    for (const QString& piece : fieldsText.split(u',')) {
        const QString fieldName = piece.trimmed();
        if (fieldName.isEmpty()) {
            continue;
        }
        CollectionFieldDefinition field;
        field.id = uuidText(QUuid::createUuid());
        field.name = fieldName;
        result.append(field);
    }
    return result;
}

bool CollectionDefinitionEditor::nameExists(const QStringList& existing) const
{
    return existing.contains(name.trimmed(), Qt::CaseInsensitive);
}

CollectionDefinition CollectionDefinitionEditor::save(const QDateTime& now) const
{
    CollectionDefinition definition;
    definition.id = id.isEmpty() ? uuidText(QUuid::createUuid()) : id;
    definition.name = name.trimmed();
    definition.description = description;
    definition.fields = fields();
    definition.updatedAt = now;
    if (!category.trimmed().isEmpty()) {
        definition.category = category;
    }
    return definition;
}

QStringList CollectionDefinitionEditor::categoryChoices(const QStringList& customCategories)
{
    QStringList choices = allCollectionCategories(customCategories);
    choices.removeAll(systemGeneratedCategory);
    return choices;
}

std::optional<QString> CollectionDefinitionEditor::categoryChoice(const QString& text,
                                                                  const QStringList& customCategories)
{
    const QString wanted = text.trimmed();
    for (const QString& choice : categoryChoices(customCategories)) {
        if (equalsIgnoringCase(choice, wanted)) {
            return choice;
        }
    }
    return std::nullopt;
}

void addCollection(QStringList& names, QList<CollectionDefinition>& definitions, const CollectionDefinition& definition)
{
    if (!names.contains(definition.name, Qt::CaseInsensitive)) {
        names.append(definition.name);
    }
    definitions.removeIf(
        [&](const CollectionDefinition& old) { return equalsIgnoringCase(old.name, definition.name); });
    definitions.append(definition);
}

void removeCollection(QStringList& names, QStringList& hidden, QList<CollectionDefinition>& definitions,
                      const QString& name)
{
    const auto named = [&](const QString& entry) { return equalsIgnoringCase(entry, name); };
    names.removeIf(named);
    hidden.removeIf(named);
    definitions.removeIf([&](const CollectionDefinition& definition) { return named(definition.name); });
}

int collectionPageCount(qsizetype itemCount)
{
    if (itemCount <= 0) {
        return 1;
    }
    return static_cast<int>((itemCount + collectionPageSize - 1) / collectionPageSize);
}

QString collectionPageText(int page, int pageCount)
{
    return QStringLiteral("Page %1 of %2").arg(page + 1).arg(pageCount);
}

QStringList filteredCollectionNames(const QStringList& names, const QStringList& hidden, bool showHidden,
                                    const QStringList& selectedCategoryFilters,
                                    const QList<CollectionDefinition>& definitions)
{
    QStringList shown;
    for (const QString& name : names) {
        if (!showHidden && hidden.contains(name, Qt::CaseInsensitive)) {
            continue;
        }
        if (!selectedCategoryFilters.isEmpty()) {
            const QString category = collectionCategory(name, findCollectionDefinition(definitions, name));
            if (!selectedCategoryFilters.contains(category, Qt::CaseInsensitive)) {
                continue;
            }
        }
        shown.append(name);
    }
    return shown;
}

QString deleteShortcutDetail(const QString& shownKey)
{
    return shownKey + QStringLiteral(" will be removed from Tavo.");
}

QString repeatedShortcutsTitle(qsizetype groupCount)
{
    return QStringLiteral("Repeated shortcuts \u00b7 %1").arg(groupCount);
}

QString repeatsText(const DuplicateShortcutGroup& group)
{
    return QStringLiteral("%1 repeats").arg(group.clips.size());
}

QString occurrencesText(const DuplicateShortcutGroup& group)
{
    return QStringLiteral("%1 occurrences \u00b7 %2 collections \u00b7 ")
        .arg(group.clips.size())
        .arg(group.collections.size());
}

QString identicalCollectionsTitle(qsizetype groupCount)
{
    return QStringLiteral("Identical collections \u00b7 %1").arg(groupCount);
}

QString matchingItemsText(const DuplicateCollectionGroup& group)
{
    return QStringLiteral("%1 matching items").arg(group.matchingItems);
}

std::optional<QString> collectionRemovalRefusal(const QString& name, const QList<Clip>& clips,
                                                const QList<CollectionRecord>& records)
{
    if (builtInCollections().contains(name, Qt::CaseInsensitive)) {
        return QStringLiteral("%1 is built in and cannot be removed.").arg(name);
    }
    const qsizetype shortcuts =
        std::count_if(clips.cbegin(), clips.cend(), [&](const Clip& clip) { return clipHasGroup(clip, name); });
    if (shortcuts > 0) {
        return QStringLiteral("%1 is used by %2 %3; move or delete them first.")
            .arg(name)
            .arg(shortcuts)
            .arg(shortcuts == 1 ? QStringLiteral("shortcut") : QStringLiteral("shortcuts"));
    }
    const qsizetype held = std::count_if(records.cbegin(), records.cend(), [&](const CollectionRecord& record) {
        return equalsIgnoringCase(record.collection, name);
    });
    if (held > 0) {
        return QStringLiteral("%1 holds %2 %3; delete them first.")
            .arg(name)
            .arg(held)
            .arg(held == 1 ? QStringLiteral("record") : QStringLiteral("records"));
    }
    return std::nullopt;
}

bool addCustomCategory(QStringList& customCategories, const QString& name)
{
    const QString category = name.trimmed();
    if (category.isEmpty() || allCollectionCategories(customCategories).contains(category, Qt::CaseInsensitive)) {
        return false;
    }
    customCategories.append(category);
    return true;
}

bool assignCollectionCategory(QList<CollectionDefinition>& definitions, const QString& name, const QString& category,
                              const QDateTime& now)
{
    if (builtInCollections().contains(name, Qt::CaseInsensitive) || category.trimmed().isEmpty()) {
        return false;
    }
    for (CollectionDefinition& definition : definitions) {
        if (equalsIgnoringCase(definition.name, name)) {
            if (definition.category == category) {
                return false;
            }
            definition.category = category;
            definition.updatedAt = now;
            return true;
        }
    }
    CollectionDefinition definition = CollectionDefinition::emptyFor(name, now);
    definition.category = category;
    definitions.append(definition);
    return true;
}

CollectionDefinitionEditor definitionEditorFor(const CollectionDefinition& definition)
{
    CollectionDefinitionEditor editor;
    editor.id = definition.id;
    editor.name = definition.name;
    editor.description = definition.description;
    QStringList fieldNames;
    for (const CollectionFieldDefinition& field : definition.fields) {
        fieldNames.append(field.name);
    }
    editor.fieldsText = fieldNames.join(QStringLiteral(", "));
    editor.category = definition.category.value_or(collectionCategory(definition.name, &definition));
    return editor;
}

QHash<QString, CollectionItemCounts> countCollectionItems(const QStringList& collections, const QList<Clip>& clips,
                                                          const QList<CollectionRecord>& records)
{
    QHash<QString, CollectionItemCounts> counts;
    for (const QString& name : collections) {
        counts.insert(name.toLower(), {});
    }
    for (const Clip& clip : clips) {
        // allGroups already names each collection once, whatever its case.
        for (const QString& group : clip.allGroups()) {
            const auto it = counts.find(group.toLower());
            if (it != counts.end()) {
                ++it->shortcuts;
            }
        }
    }
    for (const CollectionRecord& record : records) {
        const auto it = counts.find(record.collection.toLower());
        if (it != counts.end()) {
            ++it->records;
        }
    }
    return counts;
}

} // namespace tavo
