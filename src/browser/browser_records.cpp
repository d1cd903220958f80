#include "browser/browser_records.h"

#include "language/json_stream.h"
#include "language/shortcut_record.h"

#include <QUuid>

#include <cmath>

namespace tavo {

namespace {

// 1 January 2001, 00:00 UTC, in milliseconds since the Unix epoch.
constexpr qint64 referenceEpochMsecs = Q_INT64_C(978307200000);

double secondsSinceReference(const QDateTime& when)
{
    return static_cast<double>(when.toMSecsSinceEpoch() - referenceEpochMsecs) / 1000.0;
}

// Reads the members of one object, giving each key to `member`; unknown keys are skipped, as a
// newer version may add some. False when the object or one member does not decode.
template<typename Member>
bool readMembers(JsonReader& reader, Member member)
{
    if (!reader.beginObject()) {
        return false;
    }
    while (const std::optional<QByteArrayView> key = reader.nextKey()) {
        if (!member(*key)) {
            return reader.fail();
        }
    }
    return !reader.failed();
}

bool readText(JsonReader& reader, QString& field)
{
    std::optional<QString> text = reader.readString();
    if (!text) {
        return false;
    }
    field = std::move(*text);
    return true;
}

// A key that may be absent: null counts as absent and leaves the default.
bool readTextOrNull(JsonReader& reader, QString& field)
{
    if (reader.peek() == JsonReader::Type::Null) {
        return reader.readNull();
    }
    return readText(reader, field);
}

template<typename T, typename ReadItem>
bool readList(JsonReader& reader, QList<T>& items, ReadItem readItem)
{
    if (!reader.beginArray()) {
        return false;
    }
    QList<T> result;
    while (reader.nextElement()) {
        std::optional<T> item = readItem(reader);
        if (!item) {
            return reader.fail();
        }
        result.append(std::move(*item));
    }
    if (reader.failed()) {
        return false;
    }
    items = std::move(result);
    return true;
}

bool readGroups(JsonReader& reader, QMap<QString, QString>& groups)
{
    QMap<QString, QString> result;
    const bool ok = readMembers(reader, [&](QByteArrayView key) {
        const QString tabID = QString::fromUtf8(key); // the view dies with the next read
        std::optional<QString> group = reader.readString();
        if (!group) {
            return false;
        }
        result.insert(tabID, *group);
        return true;
    });
    if (ok) {
        groups = std::move(result);
    }
    return ok;
}

void writeGroups(JsonWriter& writer, const QMap<QString, QString>& groups)
{
    writer.beginObject();
    for (auto it = groups.cbegin(); it != groups.cend(); ++it) {
        writer.key(it.key());
        writer.value(it.value());
    }
    writer.endObject();
}

template<typename T, typename Write>
void writeList(JsonWriter& writer, const QList<T>& items, Write write)
{
    writer.beginArray();
    for (const T& item : items) {
        write(writer, item);
    }
    writer.endArray();
}

// Decodes a whole document with `read`, which must consume exactly one value.
template<typename T, typename Read>
std::optional<T> readDocument(QByteArrayView json, Read read)
{
    JsonReader reader(json);
    T value;
    if (!read(reader, value) || reader.failed() || !reader.atEnd()) {
        return std::nullopt;
    }
    return value;
}

} // namespace

QString newBrowserID()
{
    return uuidText(QUuid::createUuid());
}

TavoSavedSite TavoSavedSite::builtInHomeLink()
{
    TavoSavedSite site;
    site.id = homeTabID;
    site.title = builtInHomeLinkTitle;
    site.url = builtInHomeLinkURL;
    site.collection = favoritesCollection;
    return site;
}

TavoBrowserCollection TavoBrowserCollection::make(const QString& title)
{
    return {newBrowserID(), title, secondsSinceReference(QDateTime::currentDateTimeUtc())};
}

QDateTime TavoBrowserCollection::createdDate() const
{
    return QDateTime::fromMSecsSinceEpoch(referenceEpochMsecs + std::llround(createdAt * 1000.0), Qt::UTC);
}

BrowserWorkspaceArchive BrowserWorkspaceArchive::empty()
{
    BrowserWorkspaceArchive archive;
    archive.tabs = {TavoBrowserTab::home()};
    archive.saved = {TavoSavedSite::builtInHomeLink()};
    archive.selectedID = homeTabID;
    archive.collections = {TavoBrowserCollection::make(favoritesCollection)};
    return archive;
}

void writeBrowserTab(JsonWriter& writer, const TavoBrowserTab& tab)
{
    writer.beginObject();
    writer.key(QLatin1StringView("id"));
    writer.value(tab.id);
    writer.key(QLatin1StringView("title"));
    writer.value(tab.title);
    writer.key(QLatin1StringView("url"));
    writer.value(tab.url);
    writer.endObject();
}

std::optional<TavoBrowserTab> readBrowserTab(JsonReader& reader)
{
    TavoBrowserTab tab;
    unsigned found = 0;
    const bool ok = readMembers(reader, [&](QByteArrayView key) {
        if (key == "id") {
            found |= 1;
            return readText(reader, tab.id);
        }
        if (key == "title") {
            found |= 2;
            return readText(reader, tab.title);
        }
        if (key == "url") {
            found |= 4;
            return readText(reader, tab.url);
        }
        return reader.skipValue();
    });
    return ok && found == 7 ? std::optional<TavoBrowserTab>(std::move(tab)) : std::nullopt;
}

void writeSavedSite(JsonWriter& writer, const TavoSavedSite& site)
{
    writer.beginObject();
    writer.key(QLatin1StringView("id"));
    writer.value(site.id);
    writer.key(QLatin1StringView("title"));
    writer.value(site.title);
    writer.key(QLatin1StringView("url"));
    writer.value(site.url);
    writer.key(QLatin1StringView("tags"));
    writer.value(site.tags);
    writer.key(QLatin1StringView("note"));
    writer.value(site.note);
    writer.key(QLatin1StringView("collection"));
    writer.value(site.collection);
    writer.endObject();
}

std::optional<TavoSavedSite> readSavedSite(JsonReader& reader)
{
    TavoSavedSite site{TavoSavedSite::WithoutID()};
    bool hasID = false;
    const bool ok = readMembers(reader, [&](QByteArrayView key) {
        if (key == "id") {
            hasID = reader.peek() != JsonReader::Type::Null;
            return readTextOrNull(reader, site.id);
        }
        if (key == "title") {
            return readTextOrNull(reader, site.title);
        }
        if (key == "url") {
            return readTextOrNull(reader, site.url);
        }
        if (key == "tags") {
            if (reader.peek() == JsonReader::Type::Null) {
                return reader.readNull();
            }
            std::optional<QStringList> tags = reader.readStringList();
            if (tags) {
                site.tags = std::move(*tags);
            }
            return tags.has_value();
        }
        if (key == "note") {
            return readTextOrNull(reader, site.note);
        }
        if (key == "collection") {
            return readTextOrNull(reader, site.collection);
        }
        return reader.skipValue();
    });
    if (!ok) {
        return std::nullopt;
    }
    if (!hasID) {
        site.id = newBrowserID();
    }
    return site;
}

void writeBrowserCollection(JsonWriter& writer, const TavoBrowserCollection& collection)
{
    writer.beginObject();
    writer.key(QLatin1StringView("id"));
    writer.value(collection.id);
    writer.key(QLatin1StringView("title"));
    writer.value(collection.title);
    writer.key(QLatin1StringView("createdAt"));
    writer.value(collection.createdAt);
    writer.endObject();
}

std::optional<TavoBrowserCollection> readBrowserCollection(JsonReader& reader)
{
    TavoBrowserCollection collection;
    unsigned found = 0;
    const bool ok = readMembers(reader, [&](QByteArrayView key) {
        if (key == "id") {
            found |= 1;
            return readText(reader, collection.id);
        }
        if (key == "title") {
            found |= 2;
            return readText(reader, collection.title);
        }
        if (key == "createdAt") {
            found |= 4;
            const std::optional<double> seconds = reader.readNumber();
            collection.createdAt = seconds.value_or(0);
            return seconds.has_value();
        }
        return reader.skipValue();
    });
    return ok && found == 7 ? std::optional<TavoBrowserCollection>(std::move(collection)) : std::nullopt;
}

QByteArray browserPersistedToJson(const BrowserPersisted& persisted)
{
    JsonWriter writer(persisted.saved.size() * 200 + persisted.tabs.size() * 120 + 64);
    writer.beginObject();
    writer.key(QLatin1StringView("tabs"));
    writeList(writer, persisted.tabs, writeBrowserTab);
    writer.key(QLatin1StringView("saved"));
    writeList(writer, persisted.saved, writeSavedSite);
    writer.key(QLatin1StringView("selectedID"));
    writer.value(persisted.selectedID);
    writer.endObject();
    return writer.take();
}

std::optional<BrowserPersisted> browserPersistedFromJson(QByteArrayView json)
{
    return readDocument<BrowserPersisted>(json, [](JsonReader& reader, BrowserPersisted& persisted) {
        unsigned found = 0;
        const bool ok = readMembers(reader, [&](QByteArrayView key) {
            if (key == "tabs") {
                found |= 1;
                return readList(reader, persisted.tabs, readBrowserTab);
            }
            if (key == "saved") {
                found |= 2;
                return readList(reader, persisted.saved, readSavedSite);
            }
            if (key == "selectedID") {
                found |= 4;
                return readText(reader, persisted.selectedID);
            }
            return reader.skipValue();
        });
        return ok && found == 7;
    });
}

QByteArray browserCollectionsToJson(const QList<TavoBrowserCollection>& collections)
{
    JsonWriter writer(collections.size() * 100 + 2);
    writeList(writer, collections, writeBrowserCollection);
    return writer.take();
}

std::optional<QList<TavoBrowserCollection>> browserCollectionsFromJson(QByteArrayView json)
{
    return readJsonArray<TavoBrowserCollection>(json, readBrowserCollection);
}

QByteArray tabGroupsToJson(const QMap<QString, QString>& groups)
{
    JsonWriter writer;
    writeGroups(writer, groups);
    return writer.take();
}

std::optional<QMap<QString, QString>> tabGroupsFromJson(QByteArrayView json)
{
    return readDocument<QMap<QString, QString>>(json, readGroups);
}

QByteArray groupNamesToJson(const QStringList& names)
{
    JsonWriter writer;
    writer.value(names);
    return writer.take();
}

std::optional<QStringList> groupNamesFromJson(QByteArrayView json)
{
    return readDocument<QStringList>(json, [](JsonReader& reader, QStringList& names) {
        std::optional<QStringList> list = reader.readStringList();
        if (list) {
            names = std::move(*list);
        }
        return list.has_value();
    });
}

QByteArray savedSitesToJson(const QList<TavoSavedSite>& sites)
{
    JsonWriter writer(sites.size() * 200 + 2);
    writeList(writer, sites, writeSavedSite);
    return writer.take();
}

QByteArray workspaceArchiveToJson(const BrowserWorkspaceArchive& archive)
{
    JsonWriter writer(archive.saved.size() * 200 + archive.tabs.size() * 120 + archive.collections.size() * 100 + 256);
    writer.beginObject();
    writer.key(QLatin1StringView("tabs"));
    writeList(writer, archive.tabs, writeBrowserTab);
    writer.key(QLatin1StringView("saved"));
    writeList(writer, archive.saved, writeSavedSite);
    writer.key(QLatin1StringView("selectedID"));
    writer.value(archive.selectedID);
    writer.key(QLatin1StringView("collections"));
    writeList(writer, archive.collections, writeBrowserCollection);
    writer.key(QLatin1StringView("tabGroups"));
    writeGroups(writer, archive.tabGroups);
    writer.key(QLatin1StringView("collapsedTabGroups"));
    writer.value(archive.collapsedTabGroups);
    writer.key(QLatin1StringView("splitEnabled"));
    writer.value(archive.splitEnabled);
    writer.key(QLatin1StringView("secondaryID"));
    writer.value(archive.secondaryID);
    writer.endObject();
    return writer.take();
}

std::optional<BrowserWorkspaceArchive> workspaceArchiveFromJson(QByteArrayView json)
{
    return readDocument<BrowserWorkspaceArchive>(json, [](JsonReader& reader, BrowserWorkspaceArchive& archive) {
        unsigned found = 0;
        const bool ok = readMembers(reader, [&](QByteArrayView key) {
            if (key == "tabs") {
                found |= 1;
                return readList(reader, archive.tabs, readBrowserTab);
            }
            if (key == "saved") {
                found |= 2;
                return readList(reader, archive.saved, readSavedSite);
            }
            if (key == "selectedID") {
                found |= 4;
                return readText(reader, archive.selectedID);
            }
            if (key == "collections") {
                found |= 8;
                return readList(reader, archive.collections, readBrowserCollection);
            }
            if (key == "tabGroups") {
                found |= 16;
                return readGroups(reader, archive.tabGroups);
            }
            if (key == "collapsedTabGroups") {
                found |= 32;
                std::optional<QStringList> names = reader.readStringList();
                if (names) {
                    archive.collapsedTabGroups = std::move(*names);
                }
                return names.has_value();
            }
            if (key == "splitEnabled") {
                found |= 64;
                const std::optional<bool> flag = reader.readBool();
                archive.splitEnabled = flag.value_or(false);
                return flag.has_value();
            }
            if (key == "secondaryID") {
                found |= 128;
                return readText(reader, archive.secondaryID);
            }
            return reader.skipValue();
        });
        return ok && found == 255;
    });
}

} // namespace tavo
