#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QDateTime>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

namespace tavo {

class JsonReader;
class JsonWriter;

// The Home tab's id, and at the same time the id of the built-in home link: both lists use it.
inline const QString homeTabID = QStringLiteral("tavo-default-home");
// The Home tab's address; never loaded into a web view.
inline const QString homeURL = QStringLiteral("tavo://home");
// The built-in home link: the project's own page.
inline const QString builtInHomeLinkTitle = QStringLiteral("Tavo");
inline const QString builtInHomeLinkURL = QStringLiteral("https://tavo.app/");
inline const QString favoritesCollection = QStringLiteral("Favorites");

// A new id for a tab, link or collection: a UUID in upper case without braces.
QString newBrowserID();

struct TavoBrowserTab
{
    QString id;
    QString title;
    QString url;

    static TavoBrowserTab home() { return {homeTabID, QStringLiteral("Home"), homeURL}; }
    bool operator==(const TavoBrowserTab&) const = default;
};

// A saved link. Every key may be missing from a stored form; these are the values then.
struct TavoSavedSite
{
    TavoSavedSite() = default;
    // Without drawing an id, for decoders that fill it in themselves.
    struct WithoutID
    {
    };
    explicit TavoSavedSite(WithoutID)
        : id()
    {
    }

    QString id = newBrowserID();
    QString title = QStringLiteral("Saved link");
    QString url = builtInHomeLinkURL;
    QStringList tags;
    QString note;
    QString collection = favoritesCollection;

    static TavoSavedSite builtInHomeLink();
    bool operator==(const TavoSavedSite&) const = default;
};

struct TavoBrowserCollection
{
    QString id;
    QString title;
    // Seconds since 1 January 2001 (UTC), kept as stored so that a rewrite changes no digit.
    double createdAt = 0;

    static TavoBrowserCollection make(const QString& title);
    QDateTime createdDate() const;
    bool operator==(const TavoBrowserCollection&) const = default;
};

// The stored form of the main lists, under `tavoBrowserTabs`.
struct BrowserPersisted
{
    QList<TavoBrowserTab> tabs;
    QList<TavoSavedSite> saved;
    QString selectedID;

    bool operator==(const BrowserPersisted&) const = default;
};

// The whole workspace: the private workspace's sealed content and the one suspended during a mode.
struct BrowserWorkspaceArchive
{
    QList<TavoBrowserTab> tabs;
    QList<TavoSavedSite> saved;
    QString selectedID;
    QList<TavoBrowserCollection> collections;
    QMap<QString, QString> tabGroups;
    QStringList collapsedTabGroups;
    bool splitEnabled = false;
    QString secondaryID;

    // The start of a new workspace: Home alone, the built-in link alone, a fresh "Favorites".
    static BrowserWorkspaceArchive empty();
    bool operator==(const BrowserWorkspaceArchive&) const = default;
};

void writeBrowserTab(JsonWriter& writer, const TavoBrowserTab& tab);
std::optional<TavoBrowserTab> readBrowserTab(JsonReader& reader);
void writeSavedSite(JsonWriter& writer, const TavoSavedSite& site);
std::optional<TavoSavedSite> readSavedSite(JsonReader& reader);
void writeBrowserCollection(JsonWriter& writer, const TavoBrowserCollection& collection);
std::optional<TavoBrowserCollection> readBrowserCollection(JsonReader& reader);

// Whole documents: nothing when the bytes are not exactly such a document.
QByteArray browserPersistedToJson(const BrowserPersisted& persisted);
std::optional<BrowserPersisted> browserPersistedFromJson(QByteArrayView json);
QByteArray browserCollectionsToJson(const QList<TavoBrowserCollection>& collections);
std::optional<QList<TavoBrowserCollection>> browserCollectionsFromJson(QByteArrayView json);
QByteArray tabGroupsToJson(const QMap<QString, QString>& groups);
std::optional<QMap<QString, QString>> tabGroupsFromJson(QByteArrayView json);
QByteArray groupNamesToJson(const QStringList& names);
std::optional<QStringList> groupNamesFromJson(QByteArrayView json);
QByteArray savedSitesToJson(const QList<TavoSavedSite>& sites);
QByteArray workspaceArchiveToJson(const BrowserWorkspaceArchive& archive);
std::optional<BrowserWorkspaceArchive> workspaceArchiveFromJson(QByteArrayView json);

} // namespace tavo
