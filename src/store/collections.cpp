#include "store/collections.h"

#include "language/json_stream.h"
#include "language/text_utils.h"
#include "language/triggers.h"

#include <QHash>
#include <QJsonDocument>
#include <QSet>
#include <QStringMatcher>
#include <QUuid>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace tavo {

namespace {

// 1 January 2001, 00:00 UTC, in milliseconds since the Unix epoch.
constexpr qint64 referenceEpochMsecs = Q_INT64_C(978307200000);
// Beyond a few million years a stored date is corrupt, and the conversion would overflow.
constexpr double largestReferenceSeconds = 1e14;

std::optional<QDateTime> readDate(JsonReader& reader)
{
    const std::optional<double> seconds = reader.readNumber();
    if (!seconds) {
        return std::nullopt;
    }
    const QDateTime moment = fromReferenceSeconds(*seconds);
    if (!moment.isValid()) {
        return std::nullopt;
    }
    return moment;
}

std::optional<QMap<QString, QString>> readStringMap(JsonReader& reader)
{
    if (!reader.beginObject()) {
        return std::nullopt;
    }
    QMap<QString, QString> map;
    while (const std::optional<QByteArrayView> key = reader.nextKey()) {
        const QString name = QString::fromUtf8(*key);
        std::optional<QString> value = reader.readString();
        if (!value) {
            return std::nullopt;
        }
        map.insert(name, std::move(*value));
    }
    if (reader.failed()) {
        return std::nullopt;
    }
    return map;
}

// Reads the members of one object with `member(key)`, which reads the value and says whether it
// was good, then checks that every bit of `all` was seen.
template<typename Member>
bool readMembers(JsonReader& reader, unsigned& seen, unsigned all, Member member)
{
    if (!reader.beginObject()) {
        return false;
    }
    while (const std::optional<QByteArrayView> key = reader.nextKey()) {
        if (!member(*key)) {
            return reader.fail();
        }
    }
    return !reader.failed() && seen == all;
}

// Stores a required text member and notes that it was seen.
bool readInto(JsonReader& reader, QString& field, unsigned& seen, unsigned bit)
{
    std::optional<QString> value = reader.readString();
    if (!value) {
        return false;
    }
    field = std::move(*value);
    seen |= bit;
    return true;
}

template<typename T, typename Write>
QByteArray writeList(const QList<T>& items, qsizetype sizeHint, Write write)
{
    JsonWriter writer(items.size() * sizeHint);
    writer.beginArray();
    for (const T& item : items) {
        write(writer, item);
    }
    writer.endArray();
    return writer.take();
}

// The QJson forms go through the byte codecs, so there is one set of rules.
template<typename T, typename Write>
QJsonObject toJsonObject(const T& item, Write write)
{
    JsonWriter writer;
    write(writer, item);
    return QJsonDocument::fromJson(writer.take()).object();
}

template<typename T, typename Read>
std::optional<T> fromJsonObject(const QJsonObject& object, Read read)
{
    const QByteArray json = QJsonDocument(object).toJson(QJsonDocument::Compact);
    JsonReader reader(json);
    std::optional<T> item = read(reader);
    return item && reader.atEnd() ? item : std::nullopt;
}

bool equalsIgnoringCase(const QString& a, const QString& b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
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

// The case fold of every 16-bit unit, as QChar gives it; a lone surrogate stays what it is.
const std::array<char16_t, 65536>& foldTable()
{
    static const std::array<char16_t, 65536> table = [] {
        std::array<char16_t, 65536> folds{};
        for (char32_t unit = 0; unit < 65536; ++unit) {
            folds[unit] = QChar::isSurrogate(unit) ? char16_t(unit) : char16_t(QChar::toCaseFolded(unit));
        }
        return folds;
    }();
    return table;
}

// Orders two texts by their folded units, then by length: case-insensitive, and as fast as a
// table lookup per character.
int compareFolded(const QString& a, const QString& b)
{
    const std::array<char16_t, 65536>& folds = foldTable();
    const auto* left = reinterpret_cast<const char16_t*>(a.constData());
    const auto* right = reinterpret_cast<const char16_t*>(b.constData());
    const qsizetype common = std::min(a.size(), b.size());
    for (qsizetype i = 0; i < common; ++i) {
        if (left[i] != right[i]) {
            const int difference = int(folds[left[i]]) - int(folds[right[i]]);
            if (difference != 0) {
                return difference;
            }
        }
    }
    return a.size() < b.size() ? -1 : (a.size() > b.size() ? 1 : 0);
}

// Whether a text contains a search text, ignoring case, exactly as QStringMatcher with
// Qt::CaseInsensitive decides it, only faster. A search text without surrogates can only match
// where each of its units equals the case fold of one unit of the text (a surrogate folds to a
// surrogate or to a character beyond the 16-bit range), so one table of the 65,536 folds takes
// the place of the Unicode lookups per character: several times faster over a large library.
class CaseInsensitiveSearch
{
public:
    explicit CaseInsensitiveSearch(const QString& needle)
    {
        const bool plain = std::none_of(needle.cbegin(), needle.cend(), [](QChar c) { return c.isSurrogate(); });
        if (!plain) {
            m_fallback.emplace(needle, Qt::CaseInsensitive);
            return;
        }
        const std::array<char16_t, 65536>& folds = foldTable();
        m_folded.reserve(needle.size());
        for (const QChar c : needle) {
            m_folded.push_back(folds[c.unicode()]);
        }
    }

    bool isIn(const QString& haystack) const
    {
        if (m_fallback) {
            return m_fallback->indexIn(haystack) >= 0;
        }
        const std::array<char16_t, 65536>& folds = foldTable();
        const auto* text = reinterpret_cast<const char16_t*>(haystack.constData());
        const qsizetype length = haystack.size();
        const auto count = static_cast<qsizetype>(m_folded.size());
        if (count == 0) {
            return true;
        }
        const char16_t first = m_folded.front();
        for (qsizetype i = 0; i + count <= length; ++i) {
            if (folds[text[i]] != first) {
                continue;
            }
            qsizetype j = 1;
            while (j < count && folds[text[i + j]] == m_folded[static_cast<size_t>(j)]) {
                ++j;
            }
            if (j == count) {
                return true;
            }
        }
        return false;
    }

private:
    std::vector<char16_t> m_folded;
    std::optional<QStringMatcher> m_fallback;
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

void writeFieldDefinition(JsonWriter& writer, const CollectionFieldDefinition& field)
{
    writer.beginObject();
    writer.key(QLatin1StringView("id"));
    writer.value(field.id);
    writer.key(QLatin1StringView("name"));
    writer.value(field.name);
    writer.key(QLatin1StringView("type"));
    writer.value(field.type);
    writer.key(QLatin1StringView("required"));
    writer.value(field.required);
    writer.key(QLatin1StringView("defaultValue"));
    writer.value(field.defaultValue);
    writer.endObject();
}

std::optional<CollectionFieldDefinition> readFieldDefinition(JsonReader& reader)
{
    CollectionFieldDefinition field;
    unsigned seen = 0;
    const bool ok = readMembers(reader, seen, 31, [&](QByteArrayView key) {
        if (key == "id") {
            return readInto(reader, field.id, seen, 1);
        }
        if (key == "name") {
            return readInto(reader, field.name, seen, 2);
        }
        if (key == "type") {
            return readInto(reader, field.type, seen, 4);
        }
        if (key == "required") {
            const std::optional<bool> required = reader.readBool();
            field.required = required.value_or(false);
            seen |= required ? 8 : 0;
            return required.has_value();
        }
        if (key == "defaultValue") {
            return readInto(reader, field.defaultValue, seen, 16);
        }
        return reader.skipValue();
    });
    return ok ? std::optional(std::move(field)) : std::nullopt;
}

void writeDefinition(JsonWriter& writer, const CollectionDefinition& definition)
{
    writer.beginObject();
    writer.key(QLatin1StringView("id"));
    writer.value(definition.id);
    writer.key(QLatin1StringView("name"));
    writer.value(definition.name);
    writer.key(QLatin1StringView("description"));
    writer.value(definition.description);
    writer.key(QLatin1StringView("fields"));
    writer.beginArray();
    for (const CollectionFieldDefinition& field : definition.fields) {
        writeFieldDefinition(writer, field);
    }
    writer.endArray();
    writer.key(QLatin1StringView("updatedAt"));
    writer.value(referenceSeconds(definition.updatedAt));
    if (definition.category) {
        writer.key(QLatin1StringView("category"));
        writer.value(*definition.category);
    }
    writer.endObject();
}

std::optional<CollectionDefinition> readDefinition(JsonReader& reader)
{
    CollectionDefinition definition;
    unsigned seen = 0;
    const bool ok = readMembers(reader, seen, 31, [&](QByteArrayView key) {
        if (key == "id") {
            return readInto(reader, definition.id, seen, 1);
        }
        if (key == "name") {
            return readInto(reader, definition.name, seen, 2);
        }
        if (key == "description") {
            return readInto(reader, definition.description, seen, 4);
        }
        if (key == "fields") {
            std::optional<QList<CollectionFieldDefinition>> fields;
            if (reader.beginArray()) {
                fields.emplace();
                while (reader.nextElement()) {
                    std::optional<CollectionFieldDefinition> field = readFieldDefinition(reader);
                    if (!field) {
                        return false;
                    }
                    fields->append(std::move(*field));
                }
            }
            if (!fields || reader.failed()) {
                return false;
            }
            definition.fields = std::move(*fields);
            seen |= 8;
            return true;
        }
        if (key == "updatedAt") {
            const std::optional<QDateTime> updatedAt = readDate(reader);
            definition.updatedAt = updatedAt.value_or(QDateTime());
            seen |= updatedAt ? 16 : 0;
            return updatedAt.has_value();
        }
        if (key == "category") {
            return readOptional(reader, definition.category, [&] { return reader.readString(); });
        }
        return reader.skipValue();
    });
    return ok ? std::optional(std::move(definition)) : std::nullopt;
}

void writeRecord(JsonWriter& writer, const CollectionRecord& record)
{
    writer.beginObject();
    writer.key(QLatin1StringView("id"));
    writer.value(record.id);
    writer.key(QLatin1StringView("collection"));
    writer.value(record.collection);
    writer.key(QLatin1StringView("name"));
    writer.value(record.name);
    writer.key(QLatin1StringView("alias"));
    writer.value(record.alias);
    writer.key(QLatin1StringView("values"));
    writer.beginObject();
    for (auto it = record.values.constBegin(); it != record.values.constEnd(); ++it) {
        writer.key(it.key());
        writer.value(it.value());
    }
    writer.endObject();
    writer.key(QLatin1StringView("files"));
    writer.value(record.files);
    writer.key(QLatin1StringView("updatedAt"));
    writer.value(referenceSeconds(record.updatedAt));
    writer.endObject();
}

std::optional<CollectionRecord> readRecord(JsonReader& reader)
{
    CollectionRecord record;
    unsigned seen = 0;
    const bool ok = readMembers(reader, seen, 127, [&](QByteArrayView key) {
        if (key == "id") {
            return readInto(reader, record.id, seen, 1);
        }
        if (key == "collection") {
            return readInto(reader, record.collection, seen, 2);
        }
        if (key == "name") {
            return readInto(reader, record.name, seen, 4);
        }
        if (key == "alias") {
            return readInto(reader, record.alias, seen, 8);
        }
        if (key == "values") {
            std::optional<QMap<QString, QString>> values = readStringMap(reader);
            record.values = values.value_or(QMap<QString, QString>());
            seen |= values ? 16 : 0;
            return values.has_value();
        }
        if (key == "files") {
            std::optional<QStringList> files = reader.readStringList();
            record.files = files.value_or(QStringList());
            seen |= files ? 32 : 0;
            return files.has_value();
        }
        if (key == "updatedAt") {
            const std::optional<QDateTime> updatedAt = readDate(reader);
            record.updatedAt = updatedAt.value_or(QDateTime());
            seen |= updatedAt ? 64 : 0;
            return updatedAt.has_value();
        }
        return reader.skipValue();
    });
    return ok ? std::optional(std::move(record)) : std::nullopt;
}

QJsonObject CollectionFieldDefinition::toJson() const
{
    return toJsonObject(*this, writeFieldDefinition);
}

std::optional<CollectionFieldDefinition> CollectionFieldDefinition::fromJson(const QJsonObject& object)
{
    return fromJsonObject<CollectionFieldDefinition>(object, readFieldDefinition);
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
    return toJsonObject(*this, writeDefinition);
}

std::optional<CollectionDefinition> CollectionDefinition::fromJson(const QJsonObject& object)
{
    return fromJsonObject<CollectionDefinition>(object, readDefinition);
}

QJsonObject CollectionRecord::toJson() const
{
    return toJsonObject(*this, writeRecord);
}

std::optional<CollectionRecord> CollectionRecord::fromJson(const QJsonObject& object)
{
    return fromJsonObject<CollectionRecord>(object, readRecord);
}

QByteArray definitionsToJsonBytes(const QList<CollectionDefinition>& definitions)
{
    return writeList(definitions, 256, writeDefinition);
}

std::optional<QList<CollectionDefinition>> definitionsFromJsonBytes(QByteArrayView json)
{
    return readJsonArray<CollectionDefinition>(json, readDefinition);
}

QByteArray recordsToJsonBytes(const QList<CollectionRecord>& records)
{
    return writeList(records, 320, writeRecord);
}

std::optional<QList<CollectionRecord>> recordsFromJsonBytes(QByteArrayView json)
{
    // Records of one collection repeat its name and its field names: one shared copy of each.
    StringPool names;
    return readJsonArray<CollectionRecord>(json, [&names](JsonReader& reader) {
        std::optional<CollectionRecord> record = readRecord(reader);
        if (record) {
            names.intern(record->collection);
            QMap<QString, QString> values;
            for (auto it = record->values.cbegin(); it != record->values.cend(); ++it) {
                QString field = it.key();
                names.intern(field);
                values.insert(field, it.value());
            }
            record->values = std::move(values);
        }
        return record;
    });
}

QJsonArray definitionsToJson(const QList<CollectionDefinition>& definitions)
{
    return QJsonDocument::fromJson(definitionsToJsonBytes(definitions)).array();
}

std::optional<QList<CollectionDefinition>> definitionsFromJson(const QJsonArray& array)
{
    return definitionsFromJsonBytes(QJsonDocument(array).toJson(QJsonDocument::Compact));
}

QJsonArray recordsToJson(const QList<CollectionRecord>& records)
{
    return QJsonDocument::fromJson(recordsToJsonBytes(records)).array();
}

std::optional<QList<CollectionRecord>> recordsFromJson(const QJsonArray& array)
{
    return recordsFromJsonBytes(QJsonDocument(array).toJson(QJsonDocument::Compact));
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

Clip clipForRecord(const CollectionRecord& record)
{
    Clip clip;
    clip.key = normalizedTrigger(u'/' + record.alias);
    clip.name = record.name;
    clip.text = record.name;
    if (!record.values.isEmpty()) {
        QStringList lines;
        for (auto it = record.values.cbegin(); it != record.values.cend(); ++it) { // sorted by field name
            lines.append(it.key() + QStringLiteral(": ") + it.value());
        }
        clip.text += u'\n' + lines.join(u'\n');
    }
    clip.group = record.collection;
    clip.files = record.files;
    clip.directMediaPaste = record.values.isEmpty() && !record.files.isEmpty();
    return clip;
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

bool isClipVisible(const Clip& clip, const QStringList& hidden)
{
    return hasVisibleGroup(clip, HiddenSet(hidden));
}

QList<qsizetype> filterShortcutClipPositions(const QList<Clip>& clips, const QStringList& hidden, const QString& query,
                                             const QString& section, const QString& collection, bool includeHidden)
{
    // Work on pointers; the positions come from them at the end.
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

    if (const std::optional<ShortcutBatchRequest> batch = parseBatchTrigger(query)) {
        QList<Clip> candidates;
        candidates.reserve(static_cast<qsizetype>(kept.size()));
        for (const Clip* clip : kept) {
            candidates.append(*clip);
        }
        const QList<Clip> resolved = resolveBatch(*batch, candidates);
        // The request's clips are copies: find each one's original, by its id and then in full.
        QHash<QUuid, const Clip*> byId;
        byId.reserve(static_cast<qsizetype>(kept.size()));
        for (const Clip* clip : kept) {
            if (!byId.contains(clip->id)) {
                byId.insert(clip->id, clip);
            }
        }
        std::vector<const Clip*> originals;
        for (const Clip& copy : resolved) {
            const Clip* original = byId.value(copy.id);
            if (!original || !(*original == copy)) {
                const auto same = std::find_if(kept.cbegin(), kept.cend(), [&](const Clip* c) { return *c == copy; });
                original = same == kept.cend() ? nullptr : *same;
            }
            if (original) {
                originals.push_back(original);
            }
        }
        kept = std::move(originals);
    } else if (!query.isEmpty()) {
        const QString base = parseStyledTrigger(query).base;
        if (base.isEmpty()) {
            kept.clear();
        } else {
            // One matcher for all clips: it prepares the search text once, not per text.
            const CaseInsensitiveSearch matcher(base);
            std::erase_if(kept, [&](const Clip* clip) {
                return !matcher.isIn(clip->key) && !matcher.isIn(clip->name) && !matcher.isIn(clip->text);
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

    QList<qsizetype> positions;
    positions.reserve(static_cast<qsizetype>(kept.size()));
    for (const Clip* clip : kept) {
        positions.append(clip - clips.constData());
    }
    return positions;
}

QList<Clip> filterShortcutClips(const QList<Clip>& clips, const QStringList& hidden, const QString& query,
                                const QString& section, const QString& collection, bool includeHidden)
{
    const QList<qsizetype> positions =
        filterShortcutClipPositions(clips, hidden, query, section, collection, includeHidden);
    QList<Clip> result;
    result.reserve(positions.size());
    for (const qsizetype position : positions) {
        result.append(clips.at(position));
    }
    return result;
}

void sortShortcutClipPositions(QList<qsizetype>& positions, const QList<Clip>& clips, ShortcutSortKey by,
                               Qt::SortOrder order)
{
    // Sorted as a compact array that points straight at the compared texts, so that most
    // comparisons read two texts and nothing else.
    struct Entry
    {
        const QString* primary;
        int rank; // of the collection among the list's collections, for a sort by collection
        const Clip* clip;
        qsizetype position;
    };
    std::vector<Entry> entries;
    entries.reserve(static_cast<size_t>(positions.size()));
    for (const qsizetype position : std::as_const(positions)) {
        const Clip& clip = clips.at(position);
        const QString* primary = by == ShortcutSortKey::Key ? &clip.key : &clip.name;
        entries.push_back({primary, 0, &clip, position});
    }
    if (by == ShortcutSortKey::Collection) {
        // A library has a few dozen collections: they are put in order once, and a hundred
        // thousand clips compare their ranks.
        QHash<QString, int> ranks;
        for (const Entry& entry : entries) {
            ranks.insert(entry.clip->group, 0);
        }
        QStringList groups = ranks.keys();
        std::sort(groups.begin(), groups.end(),
                  [](const QString& a, const QString& b) { return compareFolded(a, b) < 0; });
        int rank = 0;
        for (qsizetype i = 0; i < groups.size(); ++i) {
            if (i > 0 && compareFolded(groups.at(i - 1), groups.at(i)) != 0) {
                ++rank;
            }
            ranks[groups.at(i)] = rank;
        }
        for (Entry& entry : entries) {
            entry.rank = ranks.value(entry.clip->group);
        }
    }
    const auto compare = [&](const Entry& a, const Entry& b) {
        int result = a.rank - b.rank;
        if (result == 0) {
            result = compareFolded(*a.primary, *b.primary);
        }
        if (result == 0 && by != ShortcutSortKey::Key) {
            result = compareFolded(a.clip->key, b.clip->key);
        }
        if (result == 0 && by == ShortcutSortKey::Key) {
            result = compareFolded(a.clip->name, b.clip->name);
        }
        return order == Qt::AscendingOrder ? result : -result;
    };
    std::stable_sort(entries.begin(), entries.end(), [&](const Entry& a, const Entry& b) { return compare(a, b) < 0; });
    for (size_t i = 0; i < entries.size(); ++i) {
        positions[static_cast<qsizetype>(i)] = entries[i].position;
    }
}

QList<Clip> filterClipsByCategory(const QList<Clip>& clips, const QString& category,
                                  const QList<CollectionDefinition>& definitions)
{
    if (category == allCategoriesName) {
        return clips;
    }
    CategoryTest inCategory(category, definitions);
    QList<Clip> kept;
    for (const Clip& clip : clips) {
        if (inCategory(clip)) {
            kept.append(clip);
        }
    }
    return kept;
}

CategoryTest::CategoryTest(const QString& category, const QList<CollectionDefinition>& definitions)
    : m_category(category)
    , m_definitions(definitions)
{
}

bool CategoryTest::operator()(const Clip& clip)
{
    if (m_category == allCategoriesName) {
        return true;
    }
    const auto inCategory = [this](const QString& group) {
        const QString folded = group.toLower();
        const auto known = m_inCategory.constFind(folded);
        if (known != m_inCategory.constEnd()) {
            return *known;
        }
        const bool result = collectionCategory(group, findCollectionDefinition(m_definitions, group))
                                .compare(m_category, Qt::CaseInsensitive) == 0;
        m_inCategory.insert(folded, result);
        return result;
    };
    const QStringList groups = clip.allGroups();
    return std::any_of(groups.cbegin(), groups.cend(), inCategory);
}

QStringList categoriesOf(const QStringList& collections, const QList<CollectionDefinition>& definitions)
{
    QStringList categories;
    for (const QString& collection : collections) {
        const QString category = collectionCategory(collection, findCollectionDefinition(definitions, collection));
        if (!categories.contains(category, Qt::CaseInsensitive)) {
            categories.append(category);
        }
    }
    return categories;
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
