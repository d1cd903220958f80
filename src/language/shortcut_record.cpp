#include "language/shortcut_record.h"

#include "language/json_stream.h"
#include "language/text_utils.h"

#include <QJsonDocument>

namespace tavo {

namespace {

// Known key suffixes, in the order the key-moving rule tries them.
constexpr QLatin1StringView suffixesForMoving[] = {
    QLatin1StringView(".app"),   QLatin1StringView(".ai"),  QLatin1StringView(".web"),
    QLatin1StringView(".media"), QLatin1StringView(".gif"), QLatin1StringView(".e"),
};

// Absent optionals are left out rather than written as null.
template<typename T>
void writeOptional(JsonWriter& writer, QLatin1StringView key, const std::optional<T>& value)
{
    if (value) {
        writer.key(key);
        writer.value(*value);
    }
}

} // namespace

QStringList Clip::allGroups() const
{
    QStringList result{group};
    if (groups) {
        for (const QString& extra : *groups) {
            if (!result.contains(extra, Qt::CaseInsensitive)) {
                result.append(extra);
            }
        }
    }
    return result;
}

void writeClip(JsonWriter& writer, const Clip& clip, ShortcutForm form)
{
    const bool library = form == ShortcutForm::Library;
    writer.beginObject();
    if (library) {
        writer.key(QLatin1StringView("id"));
        writer.value(uuidText(clip.id));
    }
    writer.key(QLatin1StringView("key"));
    writer.value(clip.key);
    writer.key(QLatin1StringView("name"));
    writer.value(clip.name);
    writer.key(QLatin1StringView("text"));
    writer.value(clip.text);
    writer.key(QLatin1StringView("group"));
    writer.value(clip.group);
    writer.key(library ? QLatin1StringView("files") : QLatin1StringView("media"));
    writer.value(clip.files);
    writeOptional(writer, QLatin1StringView("directMediaPaste"), clip.directMediaPaste);
    writeOptional(writer, QLatin1StringView("groups"), clip.groups);
    writeOptional(writer, QLatin1StringView("appBundleIdentifier"), clip.appBundleIdentifier);
    writeOptional(writer, QLatin1StringView("appPath"), clip.appPath);
    if (library) {
        writeOptional(writer, QLatin1StringView("isMathResult"), clip.isMathResult);
    }
    writeOptional(writer, QLatin1StringView("webURL"), clip.webURL);
    writeOptional(writer, QLatin1StringView("defaultMediaArticle"), clip.defaultMediaArticle);
    writer.endObject();
}

std::optional<Clip> readClip(JsonReader& reader, ShortcutForm form)
{
    if (!reader.beginObject()) {
        return std::nullopt;
    }
    const bool library = form == ShortcutForm::Library;
    // The library's form always names its own id, and a package's has none: no fresh one to make.
    Clip clip{.id = QUuid()};
    enum Required : unsigned
    {
        Id = 1,
        Key = 2,
        Name = 4,
        Text = 8,
        Group = 16,
        Files = 32,
        All = 63
    };
    const unsigned all = library ? All : All & ~Id;
    const QByteArrayView filesKey = library ? QByteArrayView("files") : QByteArrayView("media");
    unsigned found = 0;
    auto required = [&](QString& field, Required bit) {
        std::optional<QString> value = reader.readString();
        if (!value) {
            return false;
        }
        field = std::move(*value);
        found |= bit;
        return true;
    };
    auto text = [&] { return reader.readString(); };
    auto flag = [&] { return reader.readBool(); };
    auto list = [&] { return reader.readStringList(); };

    while (const std::optional<QByteArrayView> key = reader.nextKey()) {
        bool ok = true;
        if (*key == "id" && library) {
            const std::optional<QByteArrayView> idText = reader.readRawString();
            const std::optional<QUuid> id = idText ? parseUuid(QLatin1StringView(*idText)) : std::nullopt;
            ok = id.has_value();
            if (ok) {
                clip.id = *id;
                found |= Id;
            }
        } else if (*key == "key") {
            ok = required(clip.key, Key);
        } else if (*key == "name") {
            ok = required(clip.name, Name);
        } else if (*key == "text") {
            ok = required(clip.text, Text);
        } else if (*key == "group") {
            ok = required(clip.group, Group);
        } else if (*key == filesKey) {
            std::optional<QStringList> files = reader.readStringList();
            ok = files.has_value();
            if (ok) {
                clip.files = std::move(*files);
                found |= Files;
            }
        } else if (*key == "directMediaPaste") {
            ok = readOptional(reader, clip.directMediaPaste, flag);
        } else if (*key == "groups") {
            ok = readOptional(reader, clip.groups, list);
        } else if (*key == "appBundleIdentifier") {
            ok = readOptional(reader, clip.appBundleIdentifier, text);
        } else if (*key == "appPath") {
            ok = readOptional(reader, clip.appPath, text);
        } else if (*key == "isMathResult" && library) {
            ok = readOptional(reader, clip.isMathResult, flag);
        } else if (*key == "webURL") {
            ok = readOptional(reader, clip.webURL, text);
        } else if (*key == "defaultMediaArticle") {
            ok = readOptional(reader, clip.defaultMediaArticle, text);
        } else {
            ok = reader.skipValue(); // a key of a newer version, or of the other form
        }
        if (!ok) {
            reader.fail();
            return std::nullopt;
        }
    }
    if (reader.failed() || found != all) {
        return std::nullopt;
    }
    return clip;
}

QByteArray clipsToJsonBytes(const QList<Clip>& clips)
{
    JsonWriter writer(clips.size() * 320); // a little over a typical clip, so it rarely grows
    writer.beginArray();
    for (const Clip& clip : clips) {
        writeClip(writer, clip);
    }
    writer.endArray();
    return writer.take();
}

std::optional<QList<Clip>> clipsFromJsonBytes(QByteArrayView json)
{
    // Thousands of shortcuts name the same few collections: one shared copy of each name.
    StringPool names;
    return readJsonArray<Clip>(json, [&names](JsonReader& reader) {
        std::optional<Clip> clip = readClip(reader);
        if (clip) {
            names.intern(clip->group);
            if (clip->groups) {
                for (QString& group : *clip->groups) {
                    names.intern(group);
                }
            }
        }
        return clip;
    });
}

// The QJson forms go through the same codec, so there is one set of rules.

QJsonObject Clip::toJson() const
{
    JsonWriter writer;
    writeClip(writer, *this);
    return QJsonDocument::fromJson(writer.take()).object();
}

std::optional<Clip> Clip::fromJson(const QJsonObject& object)
{
    const QByteArray json = QJsonDocument(object).toJson(QJsonDocument::Compact);
    JsonReader reader(json);
    std::optional<Clip> clip = readClip(reader);
    return clip && reader.atEnd() ? clip : std::nullopt;
}

QJsonArray clipsToJson(const QList<Clip>& clips)
{
    return QJsonDocument::fromJson(clipsToJsonBytes(clips)).array();
}

std::optional<QList<Clip>> clipsFromJson(const QJsonArray& array)
{
    return clipsFromJsonBytes(QJsonDocument(array).toJson(QJsonDocument::Compact));
}

QString uuidText(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

std::optional<QUuid> parseUuid(QAnyStringView text)
{
    // Only the plain 36-character form: QUuid would also take braces, which no stored file holds.
    if (text.size() != 36) {
        return std::nullopt;
    }
    const QUuid id = QUuid::fromString(text);
    if (id.isNull() && !QAnyStringView::equal(text, QLatin1StringView("00000000-0000-0000-0000-000000000000"))) {
        return std::nullopt;
    }
    return id;
}

const QStringList& builtInCollections()
{
    static const QStringList names{
        QStringLiteral("Applications"), QStringLiteral("AI Engines"),     QStringLiteral("Websites & URLs"),
        QStringLiteral("Media files"),  QStringLiteral("Emoticons"),      QStringLiteral("GIFs"),
        QStringLiteral("Invoices"),     QStringLiteral("Customers"),      QStringLiteral("Products"),
        QStringLiteral("AI Utilities"), QStringLiteral("Personal"),       QStringLiteral("Work"),
        QStringLiteral("Writing"),      QStringLiteral("Live & dynamic"), QStringLiteral("Sound & media"),
        QStringLiteral("Imported"),
    };
    return names;
}

QString displayTrigger(const QString& key)
{
    if (key.startsWith(u'/')) {
        return u'\\' + key.mid(1);
    }
    return key;
}

QString normalizedTrigger(const QString& typed)
{
    const QString text = typed.trimmed();
    if (text.startsWith(u'\\')) {
        return u'/' + text.mid(1);
    }
    if (text.startsWith(u'/')) {
        return text;
    }
    return u'/' + text;
}

QString collectionSuffix(const QString& collection)
{
    const QString name = collection.toLower();
    if (name == QLatin1String("applications")) {
        return QStringLiteral(".app");
    }
    if (name == QLatin1String("ai engines")) {
        return QStringLiteral(".ai");
    }
    if (name == QLatin1String("websites & urls")) {
        return QStringLiteral(".web");
    }
    if (name == QLatin1String("media files")) {
        return QStringLiteral(".media");
    }
    if (name == QLatin1String("emoticons")) {
        return QStringLiteral(".e");
    }
    if (name == QLatin1String("gifs")) {
        return QStringLiteral(".gif");
    }
    return {};
}

QString collectionTrigger(const QString& key, const QString& collection)
{
    QString normalized = normalizedTrigger(key);
    for (const QLatin1StringView suffix : suffixesForMoving) {
        if (normalized.endsWith(suffix, Qt::CaseInsensitive)) {
            normalized.chop(suffix.size());
            break;
        }
    }
    return normalized + collectionSuffix(collection);
}

QString migratedRecordAlias(const QString& key)
{
    // The suffix's dot is literal: /cafe keeps its e.
    static const QRegularExpression knownSuffix(QStringLiteral("\\.(?:app|ai|web|media|gif|e)$"));
    qsizetype from = 0;
    qsizetype to = key.size();
    auto isSlash = [](QChar c) { return c == u'/' || c == u'\\'; };
    while (from < to && isSlash(key[from])) {
        ++from;
    }
    while (to > from && isSlash(key[to - 1])) {
        --to;
    }
    QString alias = key.mid(from, to - from);
    const QRegularExpressionMatch match = knownSuffix.match(alias);
    if (match.hasMatch()) {
        alias.truncate(match.capturedStart());
    }
    return leadingCharacters(alias, 40);
}

bool triggerMatches(const QString& typed, const QString& key)
{
    return normalizedTrigger(typed).compare(key, Qt::CaseInsensitive) == 0;
}

} // namespace tavo
