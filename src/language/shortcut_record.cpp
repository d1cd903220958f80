#include "language/shortcut_record.h"

#include "language/text_utils.h"

#include <QJsonValue>

namespace tavo {

namespace {

// Known key suffixes, in the order the key-moving rule tries them.
constexpr QLatin1StringView suffixesForMoving[] = {
    QLatin1StringView(".app"), QLatin1StringView(".ai"),  QLatin1StringView(".web"),
    QLatin1StringView(".media"), QLatin1StringView(".gif"), QLatin1StringView(".e"),
};

const QString keyId = QStringLiteral("id");
const QString keyKey = QStringLiteral("key");
const QString keyName = QStringLiteral("name");
const QString keyText = QStringLiteral("text");
const QString keyGroup = QStringLiteral("group");
const QString keyFiles = QStringLiteral("files");
const QString keyDirectMediaPaste = QStringLiteral("directMediaPaste");
const QString keyGroups = QStringLiteral("groups");
const QString keyAppBundleIdentifier = QStringLiteral("appBundleIdentifier");
const QString keyAppPath = QStringLiteral("appPath");
const QString keyIsMathResult = QStringLiteral("isMathResult");
const QString keyWebURL = QStringLiteral("webURL");
const QString keyDefaultMediaArticle = QStringLiteral("defaultMediaArticle");

// Strict readers: a wrong type or null is a failure, never a quiet default.
std::optional<QString> readString(const QJsonValue& value)
{
    if (!value.isString()) {
        return std::nullopt;
    }
    return value.toString();
}

std::optional<QStringList> readStringList(const QJsonValue& value)
{
    if (!value.isArray()) {
        return std::nullopt;
    }
    QStringList list;
    const QJsonArray array = value.toArray();
    list.reserve(array.size());
    for (const QJsonValue& item : array) {
        if (!item.isString()) {
            return std::nullopt;
        }
        list.append(item.toString());
    }
    return list;
}

// An optional key: absent or null leaves the field absent; a value of the wrong type fails.
template<typename T, typename Reader>
bool readOptional(const QJsonObject& object, const QString& key, std::optional<T>& field, Reader read)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) {
        return true;
    }
    std::optional<T> parsed = read(value);
    if (!parsed) {
        return false;
    }
    field = std::move(*parsed);
    return true;
}

std::optional<bool> readBool(const QJsonValue& value)
{
    if (!value.isBool()) {
        return std::nullopt;
    }
    return value.toBool();
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

QJsonObject Clip::toJson() const
{
    QJsonObject object{
        {keyId, uuidText(id)},
        {keyKey, key},
        {keyName, name},
        {keyText, text},
        {keyGroup, group},
        {keyFiles, QJsonArray::fromStringList(files)},
    };
    if (directMediaPaste) {
        object.insert(keyDirectMediaPaste, *directMediaPaste);
    }
    if (groups) {
        object.insert(keyGroups, QJsonArray::fromStringList(*groups));
    }
    if (appBundleIdentifier) {
        object.insert(keyAppBundleIdentifier, *appBundleIdentifier);
    }
    if (appPath) {
        object.insert(keyAppPath, *appPath);
    }
    if (isMathResult) {
        object.insert(keyIsMathResult, *isMathResult);
    }
    if (webURL) {
        object.insert(keyWebURL, *webURL);
    }
    if (defaultMediaArticle) {
        object.insert(keyDefaultMediaArticle, *defaultMediaArticle);
    }
    return object;
}

std::optional<Clip> Clip::fromJson(const QJsonObject& object)
{
    const std::optional<QString> idText = readString(object.value(keyId));
    const std::optional<QUuid> id = idText ? parseUuid(*idText) : std::nullopt;
    std::optional<QString> key = readString(object.value(keyKey));
    std::optional<QString> name = readString(object.value(keyName));
    std::optional<QString> text = readString(object.value(keyText));
    std::optional<QString> group = readString(object.value(keyGroup));
    std::optional<QStringList> files = readStringList(object.value(keyFiles));
    if (!id || !key || !name || !text || !group || !files) {
        return std::nullopt;
    }

    Clip clip;
    clip.id = *id;
    clip.key = std::move(*key);
    clip.name = std::move(*name);
    clip.text = std::move(*text);
    clip.group = std::move(*group);
    clip.files = std::move(*files);
    const bool optionalsRead = readOptional(object, keyDirectMediaPaste, clip.directMediaPaste, readBool)
                               && readOptional(object, keyGroups, clip.groups, readStringList)
                               && readOptional(object, keyAppBundleIdentifier, clip.appBundleIdentifier, readString)
                               && readOptional(object, keyAppPath, clip.appPath, readString)
                               && readOptional(object, keyIsMathResult, clip.isMathResult, readBool)
                               && readOptional(object, keyWebURL, clip.webURL, readString)
                               && readOptional(object, keyDefaultMediaArticle, clip.defaultMediaArticle, readString);
    if (!optionalsRead) {
        return std::nullopt;
    }
    return clip;
}

QJsonArray clipsToJson(const QList<Clip>& clips)
{
    QJsonArray array;
    for (const Clip& clip : clips) {
        array.append(clip.toJson());
    }
    return array;
}

std::optional<QList<Clip>> clipsFromJson(const QJsonArray& array)
{
    QList<Clip> clips;
    clips.reserve(array.size());
    for (const QJsonValue& value : array) {
        if (!value.isObject()) {
            return std::nullopt;
        }
        std::optional<Clip> clip = Clip::fromJson(value.toObject());
        if (!clip) {
            return std::nullopt;
        }
        clips.append(std::move(*clip));
    }
    return clips;
}

QString uuidText(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

std::optional<QUuid> parseUuid(const QString& text)
{
    // Only the plain 36-character form: QUuid would also take braces, which no stored file holds.
    if (text.size() != 36) {
        return std::nullopt;
    }
    const QUuid id = QUuid::fromString(text);
    if (id.isNull() && text != QLatin1String("00000000-0000-0000-0000-000000000000")) {
        return std::nullopt;
    }
    return id;
}

const QStringList& builtInCollections()
{
    static const QStringList names{
        QStringLiteral("Applications"), QStringLiteral("AI Engines"), QStringLiteral("Websites & URLs"),
        QStringLiteral("Media files"),  QStringLiteral("Emoticons"),  QStringLiteral("GIFs"),
        QStringLiteral("Invoices"),     QStringLiteral("Customers"),  QStringLiteral("Products"),
        QStringLiteral("AI Utilities"), QStringLiteral("Personal"),   QStringLiteral("Work"),
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
