#pragma once

#include <QAnyStringView>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

namespace tavo {

// A shortcut: a typed key joined to text, media files, a website or a desktop application.
struct Clip
{
    QUuid id = QUuid::createUuid();
    QString key; // stored form, always beginning with `/`
    QString name;
    QString text; // may hold live tokens
    QString group = QStringLiteral("Personal");
    QStringList files; // absolute paths of attached media
    std::optional<bool> directMediaPaste;
    std::optional<QStringList> groups;
    std::optional<QString> appBundleIdentifier;
    std::optional<QString> appPath;
    std::optional<bool> isMathResult;
    std::optional<QString> webURL;
    std::optional<QString> defaultMediaArticle;

    // `group` followed by every further collection not already named, ignoring case.
    QStringList allGroups() const;

    QJsonObject toJson() const;
    // Nothing when a required key is missing, or any key has the wrong type.
    static std::optional<Clip> fromJson(const QJsonObject& object);

    bool operator==(const Clip&) const = default;
};

class JsonReader;
class JsonWriter;

// The two stored forms of a shortcut: the library's own, and a package's, which carries no `id`
// and no `isMathResult` and names its attachments `media` instead of `files`.
enum class ShortcutForm
{
    Library,
    Package
};

// The codec itself, on the streaming JSON reader and writer; the QJson forms above use it too.
// Reading a package's form leaves `id` null.
void writeClip(JsonWriter& writer, const Clip& clip, ShortcutForm form = ShortcutForm::Library);
std::optional<Clip> readClip(JsonReader& reader, ShortcutForm form = ShortcutForm::Library);

} // namespace tavo

// Moving a clip in memory needs none of its members' help, so lists of a hundred thousand grow
// by a block copy.
Q_DECLARE_TYPEINFO(tavo::Clip, Q_RELOCATABLE_TYPE);

namespace tavo {

// A list of clips; the decode of the whole list fails on the first record that does not decode.
QByteArray clipsToJsonBytes(const QList<Clip>& clips);
std::optional<QList<Clip>> clipsFromJsonBytes(QByteArrayView json);
QJsonArray clipsToJson(const QList<Clip>& clips);
std::optional<QList<Clip>> clipsFromJson(const QJsonArray& array);

// The UUID text form used in every stored file: upper case, no braces.
QString uuidText(const QUuid& id);
// Reads a UUID in the 36-character hyphenated form, either case; nothing otherwise.
std::optional<QUuid> parseUuid(QAnyStringView text);

// The sixteen collections every profile offers, in their display order.
const QStringList& builtInCollections();

// `/abc` is shown as `\abc`; anything else as it is.
QString displayTrigger(const QString& key);

// The stored form of a typed key: trimmed, `\` turned into `/`, `/` added when missing.
QString normalizedTrigger(const QString& typed);

// The suffix (".web", ".app", …) that keys in `collection` carry, or an empty text.
QString collectionSuffix(const QString& collection);

// The key of a record living in `collection`: one known suffix of `key` replaced by the
// collection's own.
QString collectionTrigger(const QString& key, const QString& collection);

// The alias a record gets when a clip of a record collection becomes a collection record: the key
// without slashes at its ends and without one known suffix, cut to 40 characters.
QString migratedRecordAlias(const QString& key);

// Whether a typed text matches a stored key: normalized, compared ignoring case.
bool triggerMatches(const QString& typed, const QString& key);

} // namespace tavo
