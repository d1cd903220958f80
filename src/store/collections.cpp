#include "store/collections.h"

#include "language/text_utils.h"
#include "language/triggers.h"

#include <QHash>
#include <QJsonValue>
#include <QSet>
#include <QStringMatcher>
#include <QUuid>

#include <algorithm>
#include <cmath>
#include <vector>

namespace tavo {

namespace {

// 1 January 2001, 00:00 UTC, in milliseconds since the Unix epoch.
constexpr qint64 referenceEpochMsecs = Q_INT64_C(978307200000);
// Beyond a few million years a stored date is corrupt, and the conversion would overflow.
constexpr double largestReferenceSeconds = 1e14;

const QString keyId = QStringLiteral("id");
const QString keyName = QStringLiteral("name");
const QString keyType = QStringLiteral("type");
const QString keyRequired = QStringLiteral("required");
const QString keyDefaultValue = QStringLiteral("defaultValue");
const QString keyDescription = QStringLiteral("description");
const QString keyFields = QStringLiteral("fields");
const QString keyUpdatedAt = QStringLiteral("updatedAt");
const QString keyCategory = QStringLiteral("category");
const QString keyCollection = QStringLiteral("collection");
const QString keyAlias = QStringLiteral("alias");
const QString keyValues = QStringLiteral("values");
const QString keyFiles = QStringLiteral("files");

// Strict readers: a missing key, null or another type is a failure, never a quiet default.
std::optional<QString> readString(const QJsonObject& object, const QString& key)
{
    const QJsonValue value = object.value(key);
    if (!value.isString()) {
        return std::nullopt;
    }
    return value.toString();
}

std::optional<bool> readBool(const QJsonObject& object, const QString& key)
{
    const QJsonValue value = object.value(key);
    if (!value.isBool()) {
        return std::nullopt;
    }
    return value.toBool();
}

std::optional<QDateTime> readDate(const QJsonObject& object, const QString& key)
{
    const QJsonValue value = object.value(key);
    if (!value.isDouble()) {
        return std::nullopt;
    }
    const QDateTime moment = fromReferenceSeconds(value.toDouble());
    if (!moment.isValid()) {
        return std::nullopt;
    }
    return moment;
}

std::optional<QStringList> readStringList(const QJsonObject& object, const QString& key)
{
    const QJsonValue value = object.value(key);
    if (!value.isArray()) {
        return std::nullopt;
    }
    const QJsonArray array = value.toArray();
    QStringList list;
    list.reserve(array.size());
    for (const QJsonValue& item : array) {
        if (!item.isString()) {
            return std::nullopt;
        }
        list.append(item.toString());
    }
    return list;
}

std::optional<QMap<QString, QString>> readStringMap(const QJsonObject& object, const QString& key)
{
    const QJsonValue value = object.value(key);
    if (!value.isObject()) {
        return std::nullopt;
    }
    const QJsonObject map = value.toObject();
    QMap<QString, QString> result;
    for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
        if (!it.value().isString()) {
            return std::nullopt;
        }
        result.insert(it.key(), it.value().toString());
    }
    return result;
}

template<typename T>
QJsonArray listToJson(const QList<T>& items)
{
    QJsonArray array;
    for (const T& item : items) {
        array.append(item.toJson());
    }
    return array;
}

template<typename T>
std::optional<QList<T>> listFromJson(const QJsonArray& array)
{
    QList<T> items;
    items.reserve(array.size());
    for (const QJsonValue& value : array) {
        if (!value.isObject()) {
            return std::nullopt;
        }
        std::optional<T> item = T::fromJson(value.toObject());
        if (!item) {
            return std::nullopt;
        }
        items.append(std::move(*item));
    }
    return items;
}

bool equalsIgnoringCase(const QString& a, const QString& b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

// Whether `name` is one of the clip's collections, ignoring case, without building allGroups.
bool clipHasGroup(const Clip& clip, const QString& name)
{
    if (equalsIgnoringCase(clip.group, name)) {
        return true;
    }
    if (clip.groups) {
        for (const QString& group : *clip.groups) {
            if (equalsIgnoringCase(group, name)) {
                return true;
            }
        }
    }
    return false;
}

// Hidden names, case-folded. A user hides a handful of collections, and comparing with each of
// them ignoring case costs no allocation; a long list is looked up folded in a set instead.
class HiddenSet
{
public:
    explicit HiddenSet(const QStringList& hidden)
    {
        for (const QString& name : hidden) {
            const QString folded = name.toCaseFolded();
            if (!m_folded.contains(folded)) {
                m_folded.insert(folded);
                m_list.append(folded);
            }
        }
    }

    bool isEmpty() const { return m_list.isEmpty(); }
    bool contains(const QString& name) const
    {
        if (m_list.size() > shortListSize) {
            return m_folded.contains(name.toCaseFolded());
        }
        return std::any_of(m_list.cbegin(), m_list.cend(),
                           [&](const QString& folded) { return folded.compare(name, Qt::CaseInsensitive) == 0; });
    }

private:
    static constexpr qsizetype shortListSize = 8;
    QSet<QString> m_folded;
    QStringList m_list;
};

bool isBlank(QStringView text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c.isSpace(); });
}

bool hasVisibleGroup(const Clip& clip, const HiddenSet& hidden)
{
    auto visible = [&](const QString& group) {
        return !isBlank(group) && (hidden.isEmpty() || !hidden.contains(group));
    };
    if (visible(clip.group)) {
        return true;
    }
    if (clip.groups) {
        for (const QString& group : *clip.groups) {
            if (visible(group)) {
                return true;
            }
        }
    }
    return false;
}

bool isEmptySection(const QString& section)
{
    static const QSet<QString> sections{
        QStringLiteral("Settings"),     QStringLiteral("Lumen Studio"), QStringLiteral("Browser"),
        QStringLiteral("Apps & links"), QStringLiteral("Desktop apps"), QStringLiteral("User guide"),
        QStringLiteral("Dashboard"),    QStringLiteral("Marketplace"),
    };
    return sections.contains(section);
}

// The last component of a path, as a file name: "/a/b.png" and "/a/b.png/" both give "b.png".
QStringView lastPathComponent(QStringView path)
{
    while (path.size() > 1 && path.endsWith(u'/')) {
        path.chop(1);
    }
    const qsizetype slash = path.lastIndexOf(u'/');
    return slash < 0 || path.size() == 1 ? path : path.mid(slash + 1);
}

QString fileNamesSignature(const QStringList& files)
{
    if (files.isEmpty()) {
        return {};
    }
    QStringList names;
    names.reserve(files.size());
    for (const QString& file : files) {
        names.append(lastPathComponent(file).toString().toLower());
    }
    names.sort();
    return names.join(u',');
}

QString shortcutSignature(const Clip& clip)
{
    return QStringLiteral("shortcut|") + normalizedCollectionText(clip.key) + u'|' +
           normalizedCollectionText(clip.name) + u'|' + normalizedCollectionText(clip.text) + u'|' +
           fileNamesSignature(clip.files);
}

QString recordSignature(const CollectionRecord& record)
{
    // Entries are sorted after normalising, so "Email" and "email" fields sort alike.
    QStringList values;
    values.reserve(record.values.size());
    for (auto it = record.values.constBegin(); it != record.values.constEnd(); ++it) {
        values.append(normalizedCollectionText(it.key()) + u'=' + normalizedCollectionText(it.value()));
    }
    values.sort();
    return QStringLiteral("record|") + normalizedCollectionText(record.name) + u'|' +
           normalizedCollectionText(record.alias) + u'|' + values.join(u';') + u'|' + fileNamesSignature(record.files);
}

} // namespace

double referenceSeconds(const QDateTime& moment)
{
    return static_cast<double>(moment.toMSecsSinceEpoch() - referenceEpochMsecs) / 1000.0;
}

QDateTime fromReferenceSeconds(double seconds)
{
    if (!std::isfinite(seconds) || std::abs(seconds) > largestReferenceSeconds) {
        return {};
    }
    const qint64 msecs = std::llround(seconds * 1000.0) + referenceEpochMsecs;
    return QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC);
}

QJsonObject CollectionFieldDefinition::toJson() const
{
    return QJsonObject{
        {keyId, id}, {keyName, name}, {keyType, type}, {keyRequired, required}, {keyDefaultValue, defaultValue},
    };
}

std::optional<CollectionFieldDefinition> CollectionFieldDefinition::fromJson(const QJsonObject& object)
{
    std::optional<QString> id = readString(object, keyId);
    std::optional<QString> name = readString(object, keyName);
    std::optional<QString> type = readString(object, keyType);
    const std::optional<bool> required = readBool(object, keyRequired);
    std::optional<QString> defaultValue = readString(object, keyDefaultValue);
    if (!id || !name || !type || !required || !defaultValue) {
        return std::nullopt;
    }
    return CollectionFieldDefinition{std::move(*id), std::move(*name), std::move(*type), *required,
                                     std::move(*defaultValue)};
}

CollectionDefinition CollectionDefinition::emptyFor(const QString& name, const QDateTime& now)
{
    CollectionDefinition definition;
    definition.id = uuidText(QUuid::createUuid());
    definition.name = name;
    definition.updatedAt = now;
    return definition;
}

QJsonObject CollectionDefinition::toJson() const
{
    QJsonObject object{
        {keyId, id},
        {keyName, name},
        {keyDescription, description},
        {keyFields, listToJson(fields)},
        {keyUpdatedAt, referenceSeconds(updatedAt)},
    };
    if (category) {
        object.insert(keyCategory, *category);
    }
    return object;
}

std::optional<CollectionDefinition> CollectionDefinition::fromJson(const QJsonObject& object)
{
    std::optional<QString> id = readString(object, keyId);
    std::optional<QString> name = readString(object, keyName);
    std::optional<QString> description = readString(object, keyDescription);
    const QJsonValue fieldsValue = object.value(keyFields);
    std::optional<QList<CollectionFieldDefinition>> fields =
        fieldsValue.isArray() ? listFromJson<CollectionFieldDefinition>(fieldsValue.toArray()) : std::nullopt;
    std::optional<QDateTime> updatedAt = readDate(object, keyUpdatedAt);
    if (!id || !name || !description || !fields || !updatedAt) {
        return std::nullopt;
    }

    CollectionDefinition definition;
    definition.id = std::move(*id);
    definition.name = std::move(*name);
    definition.description = std::move(*description);
    definition.fields = std::move(*fields);
    definition.updatedAt = *updatedAt;
    const QJsonValue category = object.value(keyCategory);
    if (category.isString()) {
        definition.category = category.toString();
    } else if (!category.isUndefined() && !category.isNull()) {
        return std::nullopt;
    }
    return definition;
}

QJsonObject CollectionRecord::toJson() const
{
    QJsonObject valuesObject;
    for (auto it = values.constBegin(); it != values.constEnd(); ++it) {
        valuesObject.insert(it.key(), it.value());
    }
    return QJsonObject{
        {keyId, id},
        {keyCollection, collection},
        {keyName, name},
        {keyAlias, alias},
        {keyValues, valuesObject},
        {keyFiles, QJsonArray::fromStringList(files)},
        {keyUpdatedAt, referenceSeconds(updatedAt)},
    };
}

std::optional<CollectionRecord> CollectionRecord::fromJson(const QJsonObject& object)
{
    std::optional<QString> id = readString(object, keyId);
    std::optional<QString> collection = readString(object, keyCollection);
    std::optional<QString> name = readString(object, keyName);
    std::optional<QString> alias = readString(object, keyAlias);
    std::optional<QMap<QString, QString>> values = readStringMap(object, keyValues);
    std::optional<QStringList> files = readStringList(object, keyFiles);
    std::optional<QDateTime> updatedAt = readDate(object, keyUpdatedAt);
    if (!id || !collection || !name || !alias || !values || !files || !updatedAt) {
        return std::nullopt;
    }
    return CollectionRecord{std::move(*id),     std::move(*collection), std::move(*name), std::move(*alias),
                            std::move(*values), std::move(*files),      *updatedAt};
}

QJsonArray definitionsToJson(const QList<CollectionDefinition>& definitions)
{
    return listToJson(definitions);
}

std::optional<QList<CollectionDefinition>> definitionsFromJson(const QJsonArray& array)
{
    return listFromJson<CollectionDefinition>(array);
}

QJsonArray recordsToJson(const QList<CollectionRecord>& records)
{
    return listToJson(records);
}

std::optional<QList<CollectionRecord>> recordsFromJson(const QJsonArray& array)
{
    return listFromJson<CollectionRecord>(array);
}

bool isRecordLikeCollection(const QString& name)
{
    static const QSet<QString> names{
        QStringLiteral("companies"), QStringLiteral("customers"),  QStringLiteral("products"),
        QStringLiteral("vendors"),   QStringLiteral("employees"),  QStringLiteral("contacts"),
        QStringLiteral("services"),  QStringLiteral("candidates"), QStringLiteral("roles"),
        QStringLiteral("suppliers"),
    };
    return names.contains(name.toLower());
}

CollectionRecord recordFromClip(const Clip& clip, const QString& collection, const QDateTime& now)
{
    CollectionRecord record;
    record.id = uuidText(QUuid::createUuid());
    record.collection = collection;
    record.name = clip.name;
    record.alias = migratedRecordAlias(clip.key);
    record.values.insert(QStringLiteral("Content"), clip.text);
    record.files = clip.files;
    record.updatedAt = now;
    return record;
}

const CollectionDefinition* findCollectionDefinition(const QList<CollectionDefinition>& definitions,
                                                     const QString& name)
{
    for (const CollectionDefinition& definition : definitions) {
        if (equalsIgnoringCase(definition.name, name)) {
            return &definition;
        }
    }
    return nullptr;
}

const QStringList& tavoCollectionCategories()
{
    static const QStringList categories{
        systemGeneratedCategory,
        QStringLiteral("Finance & Billing"),
        QStringLiteral("Sales & CRM"),
        QStringLiteral("HR & People"),
        QStringLiteral("Legal & Agreements"),
        QStringLiteral("Marketing"),
        QStringLiteral("Creative & Media"),
        QStringLiteral("Operations"),
        QStringLiteral("Productivity"),
        QStringLiteral("Collections & Data"),
        QStringLiteral("Utilities"),
        QStringLiteral("Personal"),
        QStringLiteral("Work"),
        QStringLiteral("Other"),
    };
    return categories;
}

QString suggestedTavoCategory(const QString& name, const QString& context)
{
    struct Row
    {
        QString category;
        QStringList keywords;
    };
    static const QList<Row> rows{
        {QStringLiteral("Finance & Billing"),
         {QStringLiteral("invoice"), QStringLiteral("bill"), QStringLiteral("payment"), QStringLiteral("receipt"),
          QStringLiteral("expense"), QStringLiteral("tax"), QStringLiteral("account"), QStringLiteral("purchase order"),
          QStringLiteral("payroll"), QStringLiteral("budget")}},
        {QStringLiteral("Sales & CRM"),
         {QStringLiteral("customer"), QStringLiteral("client"), QStringLiteral("sales"), QStringLiteral("lead"),
          QStringLiteral("quote"), QStringLiteral("quotation"), QStringLiteral("proposal"), QStringLiteral("vendor"),
          QStringLiteral("supplier")}},
        {QStringLiteral("HR & People"),
         {QStringLiteral("employee"), QStringLiteral("candidate"), QStringLiteral("appointment"),
          QStringLiteral("offer letter"), QStringLiteral("recruit"), QStringLiteral("people"), QStringLiteral("staff"),
          QStringLiteral("onboard")}},
        {QStringLiteral("Legal & Agreements"),
         {QStringLiteral("agreement"), QStringLiteral("contract"), QStringLiteral("nda"), QStringLiteral("legal"),
          QStringLiteral("policy"), QStringLiteral("compliance")}},
        {QStringLiteral("Marketing"),
         {QStringLiteral("marketing"), QStringLiteral("campaign"), QStringLiteral("social"), QStringLiteral("seo"),
          QStringLiteral("brand"), QStringLiteral("content plan")}},
        {QStringLiteral("Creative & Media"),
         {QStringLiteral("image"), QStringLiteral("photo"), QStringLiteral("video"), QStringLiteral("audio"),
          QStringLiteral("media"), QStringLiteral("gif"), QStringLiteral("design"), QStringLiteral("creative")}},
        {QStringLiteral("Operations"),
         {QStringLiteral("inventory"), QStringLiteral("order"), QStringLiteral("delivery"), QStringLiteral("project"),
          QStringLiteral("task"), QStringLiteral("operations"), QStringLiteral("workflow")}},
        {QStringLiteral("Productivity"),
         {QStringLiteral("writing"), QStringLiteral("letter"), QStringLiteral("email"), QStringLiteral("note"),
          QStringLiteral("summary"), QStringLiteral("document"), QStringLiteral("report")}},
        {QStringLiteral("Collections & Data"),
         {QStringLiteral("collection builder"), QStringLiteral("collection"), QStringLiteral("directory"),
          QStringLiteral("catalog"), QStringLiteral("database"), QStringLiteral("contacts"), QStringLiteral("products"),
          QStringLiteral("services")}},
    };

    const QString text = (name + u' ' + context).toLower();
    for (const Row& row : rows) {
        for (const QString& keyword : row.keywords) {
            if (text.contains(keyword)) {
                return row.category;
            }
        }
    }
    return QStringLiteral("Utilities");
}

QStringList allCollectionCategories(const QStringList& custom)
{
    QStringList categories = tavoCollectionCategories();
    for (const QString& category : custom) {
        if (!category.trimmed().isEmpty() && !categories.contains(category, Qt::CaseInsensitive)) {
            categories.append(category);
        }
    }
    return categories;
}

QString collectionCategory(const QString& name, const CollectionDefinition* definition)
{
    if (builtInCollections().contains(name, Qt::CaseInsensitive)) {
        return systemGeneratedCategory;
    }
    if (definition && definition->category && !definition->category->isEmpty()) {
        return *definition->category;
    }
    return suggestedTavoCategory(name, definition ? definition->description : QString());
}

QString collectionSymbol(const QString& name)
{
    static const QHash<QString, QString> symbols{
        {QStringLiteral("applications"), QStringLiteral("app.dashed")},
        {QStringLiteral("ai engines"), QStringLiteral("sparkles")},
        {QStringLiteral("websites & urls"), QStringLiteral("globe")},
        {QStringLiteral("media files"), QStringLiteral("photo.on.rectangle.angled")},
        {QStringLiteral("emoticons"), QStringLiteral("face.smiling")},
        {QStringLiteral("gifs"), QStringLiteral("play.rectangle")},
        {QStringLiteral("invoices"), QStringLiteral("doc.text.fill")},
        {QStringLiteral("customers"), QStringLiteral("person.2.fill")},
        {QStringLiteral("products"), QStringLiteral("shippingbox.fill")},
        {QStringLiteral("ai utilities"), QStringLiteral("wand.and.stars")},
        {QStringLiteral("personal"), QStringLiteral("person.crop.circle")},
        {QStringLiteral("work"), QStringLiteral("briefcase.fill")},
        {QStringLiteral("writing"), QStringLiteral("pencil.and.outline")},
        {QStringLiteral("live & dynamic"), QStringLiteral("waveform.path")},
        {QStringLiteral("imported"), QStringLiteral("square.and.arrow.down")},
    };
    return symbols.value(name.toLower(), QStringLiteral("folder.fill"));
}

QList<Clip> filterShortcutClips(const QList<Clip>& clips, const QStringList& hidden, const QString& query,
                                const QString& section, const QString& collection, bool includeHidden)
{
    // Work on pointers and copy only the survivors at the end.
    std::vector<const Clip*> kept;
    kept.reserve(static_cast<size_t>(clips.size()));
    if (includeHidden) {
        for (const Clip& clip : clips) {
            kept.push_back(&clip);
        }
    } else {
        const HiddenSet hiddenSet(hidden);
        for (const Clip& clip : clips) {
            if (hasVisibleGroup(clip, hiddenSet)) {
                kept.push_back(&clip);
            }
        }
    }

    QList<Clip> resolved; // owns the clips of a batch query
    if (const std::optional<ShortcutBatchRequest> batch = parseBatchTrigger(query)) {
        QList<Clip> candidates;
        candidates.reserve(static_cast<qsizetype>(kept.size()));
        for (const Clip* clip : kept) {
            candidates.append(*clip);
        }
        resolved = resolveBatch(*batch, candidates);
        kept.clear();
        for (const Clip& clip : std::as_const(resolved)) {
            kept.push_back(&clip);
        }
    } else if (!query.isEmpty()) {
        const QString base = parseStyledTrigger(query).base;
        if (base.isEmpty()) {
            kept.clear();
        } else {
            // One matcher for all clips: its skip table is built once, not per text.
            const QStringMatcher matcher(base, Qt::CaseInsensitive);
            std::erase_if(kept, [&](const Clip* clip) {
                return matcher.indexIn(clip->key) < 0 && matcher.indexIn(clip->name) < 0 &&
                       matcher.indexIn(clip->text) < 0;
            });
        }
    }

    static const QString liveSection = QStringLiteral("Live & dynamic");
    if (section == liveSection) {
        std::erase_if(kept, [](const Clip* clip) {
            return !clipHasGroup(*clip, liveSection) && !clip->text.contains(QLatin1StringView("{{"));
        });
    } else if (section == QLatin1StringView("Sound & media")) {
        std::erase_if(kept, [](const Clip* clip) { return clip->files.isEmpty(); });
    } else if (section == QLatin1StringView("Collections")) {
        if (collection != allCollectionsName) {
            std::erase_if(kept, [&](const Clip* clip) { return !clipHasGroup(*clip, collection); });
        }
    } else if (section == QLatin1StringView("Shortcut ideas")) {
        std::erase_if(kept, [](const Clip* clip) { return clip->group != QLatin1StringView("Ideas"); });
    } else if (isEmptySection(section)) {
        kept.clear();
    } else if (section != allCollectionsName) {
        std::erase_if(kept, [&](const Clip* clip) { return !clipHasGroup(*clip, section); });
    }

    QList<Clip> result;
    result.reserve(static_cast<qsizetype>(kept.size()));
    for (const Clip* clip : kept) {
        result.append(*clip);
    }
    return result;
}

QString duplicateShortcutKey(const QString& key)
{
    static constexpr QLatin1StringView suffixes[] = {
        QLatin1StringView(".media"), QLatin1StringView(".web"), QLatin1StringView(".app"),
        QLatin1StringView(".ai"),    QLatin1StringView(".gif"), QLatin1StringView(".e"),
    };
    QString result = key.trimmed();
    if (result.startsWith(u'\\')) {
        result.remove(0, 1);
    }
    if (!result.startsWith(u'/')) {
        result.prepend(u'/');
    }
    result = std::move(result).toLower();
    for (const QLatin1StringView suffix : suffixes) {
        if (result.endsWith(suffix)) {
            result.chop(suffix.size());
            break;
        }
    }
    return result;
}

QList<DuplicateShortcutGroup> findDuplicateShortcuts(const QList<Clip>& clips)
{
    // Sorting (hash, index) pairs puts equal keys side by side without the allocations of a hash
    // table of 100,000 strings; only the rare runs of equal hashes need their keys again.
    std::vector<std::pair<size_t, qsizetype>> hashed(static_cast<size_t>(clips.size()));
    for (qsizetype i = 0; i < clips.size(); ++i) {
        hashed[static_cast<size_t>(i)] = {qHash(duplicateShortcutKey(clips[i].key)), i};
    }
    std::sort(hashed.begin(), hashed.end());

    QHash<QString, QList<qsizetype>> repeated;
    for (size_t runStart = 0; runStart < hashed.size();) {
        size_t runEnd = runStart + 1;
        while (runEnd < hashed.size() && hashed[runEnd].first == hashed[runStart].first) {
            ++runEnd;
        }
        if (runEnd - runStart > 1) {
            // Indexes within a run ascend, so each group keeps the input order.
            for (size_t member = runStart; member < runEnd; ++member) {
                const qsizetype index = hashed[member].second;
                repeated[duplicateShortcutKey(clips[index].key)].append(index);
            }
        }
        runStart = runEnd;
    }
    repeated.removeIf([](const auto& entry) { return entry.value().size() < 2; });

    QStringList keys = repeated.keys();
    keys.sort();
    QList<DuplicateShortcutGroup> groups;
    groups.reserve(keys.size());
    for (const QString& key : std::as_const(keys)) {
        DuplicateShortcutGroup group;
        group.id = key;
        group.shortcut = key;
        for (const qsizetype index : repeated.value(key)) {
            const Clip& clip = clips[index];
            group.clips.append(clip);
            for (const QString& name : clip.allGroups()) {
                if (!group.collections.contains(name, Qt::CaseInsensitive)) {
                    group.collections.append(name);
                }
            }
        }
        std::sort(group.collections.begin(), group.collections.end(), [](const QString& a, const QString& b) {
            const int byFold = a.compare(b, Qt::CaseInsensitive);
            return byFold != 0 ? byFold < 0 : a < b;
        });
        groups.append(std::move(group));
    }
    return groups;
}

QString normalizedCollectionText(const QString& text)
{
    // Most texts are ASCII: lower them and fold their blank runs in one pass. ASCII blanks are
    // the same for QChar::isSpace and the pattern's \s, so the result is the pattern's.
    const QStringView trimmed = QStringView(text).trimmed();
    QString result(trimmed.size(), Qt::Uninitialized);
    char16_t* out = reinterpret_cast<char16_t*>(result.data());
    qsizetype length = 0;
    bool inBlank = false;
    for (const QChar ch : trimmed) {
        char16_t c = ch.unicode();
        if (c >= 0x80) {
            static const QRegularExpression blanks = unicodeRegex(QStringLiteral("\\s+"));
            return trimmed.toString().toLower().replace(blanks, QStringLiteral(" "));
        }
        if (c == u' ' || (c >= 0x09 && c <= 0x0d)) {
            if (!inBlank) {
                out[length++] = u' ';
            }
            inBlank = true;
            continue;
        }
        inBlank = false;
        if (c >= u'A' && c <= u'Z') {
            c += u'a' - u'A';
        }
        out[length++] = c;
    }
    result.truncate(length);
    return result;
}

QList<DuplicateCollectionGroup> findDuplicateCollections(const QStringList& collections, const QList<Clip>& clips,
                                                         const QList<CollectionRecord>& records)
{
    // Each item's signature is computed once and filed under each of its collections. The
    // buckets are found by the name as written first, so a name is case-folded once, not once
    // per item.
    std::vector<QStringList> buckets;
    QHash<QString, size_t> bucketByFoldedName;
    QHash<QString, size_t> bucketByExactName;
    auto bucket = [&](const QString& name) -> QStringList& {
        auto exact = bucketByExactName.constFind(name);
        if (exact == bucketByExactName.constEnd()) {
            const QString folded = name.toCaseFolded();
            auto known = bucketByFoldedName.constFind(folded);
            if (known == bucketByFoldedName.constEnd()) {
                known = bucketByFoldedName.insert(folded, buckets.size());
                buckets.emplace_back();
            }
            exact = bucketByExactName.insert(name, known.value());
        }
        return buckets[exact.value()];
    };
    for (const Clip& clip : clips) {
        const QString signature = shortcutSignature(clip);
        if (!clip.groups || clip.groups->isEmpty()) {
            bucket(clip.group).append(signature);
            continue;
        }
        for (const QString& name : clip.allGroups()) {
            bucket(name).append(signature);
        }
    }
    for (const CollectionRecord& record : records) {
        bucket(record.collection).append(recordSignature(record));
    }

    struct Content
    {
        QStringList names;
        qsizetype items = 0;
    };
    // Contents are told apart by comparing the sorted signature lists themselves: lists of another
    // length differ at once and different lists almost always differ early, which is cheaper than
    // hashing every list whole.
    QList<Content> contents;
    QList<QStringList> contentKeys;
    QSet<QString> seenNames;
    for (const QString& name : collections) {
        const QString folded = name.toCaseFolded();
        if (seenNames.contains(folded)) {
            continue;
        }
        seenNames.insert(folded);
        const auto found = bucketByFoldedName.constFind(folded);
        if (found == bucketByFoldedName.constEnd() || buckets[found.value()].isEmpty()) {
            continue;
        }
        QStringList& signatures = buckets[found.value()];
        signatures.sort();
        qsizetype match = 0;
        while (match < contentKeys.size() && contentKeys[match] != signatures) {
            ++match;
        }
        if (match == contentKeys.size()) {
            contentKeys.append(signatures);
            contents.append(Content{{name}, signatures.size()});
        } else {
            contents[match].names.append(name);
        }
    }

    QList<DuplicateCollectionGroup> groups;
    for (const Content& content : std::as_const(contents)) {
        if (content.names.size() < 2) {
            continue;
        }
        QStringList lowered;
        for (const QString& name : content.names) {
            lowered.append(name.toLower());
        }
        groups.append(DuplicateCollectionGroup{lowered.join(u'|'), content.names, static_cast<int>(content.items)});
    }
    return groups;
}

} // namespace tavo
