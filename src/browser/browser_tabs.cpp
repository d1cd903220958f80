#include "browser/browser_tabs.h"

#include "browser/chrome_bookmarks.h"
#include "browser/workspace_seal.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/password_hash.h"

#include <QFile>
#include <QFileInfo>
#include <QUrl>
#include <QUuid>

#include <algorithm>
#include <utility>

namespace tavo {

namespace {

const QString webPageTitle = QStringLiteral("Web page");
const QString homeTitle = QStringLiteral("Home");

QStringList sortedNames(const QSet<QString>& names)
{
    QStringList list(names.cbegin(), names.cend());
    list.sort();
    return list;
}

QString storedText(const Defaults& defaults, const QString& key)
{
    return defaults.string(key).value_or(QString());
}

std::optional<QByteArray> workspaceKey()
{
    const Result<std::optional<QString>> stored = KeyStore::load(BrowserKeys::privateKeyAccount);
    if (!stored.ok() || !stored.value()) {
        return std::nullopt;
    }
    auto decoded = QByteArray::fromBase64Encoding(stored.value()->toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || (*decoded).size() != workspaceKeyLength) {
        return std::nullopt;
    }
    return *decoded;
}

} // namespace

TabGroupColor tabGroupColor(const QString& group)
{
    return static_cast<TabGroupColor>(qHash(group) % 6);
}

TavoBrowserTabs::TavoBrowserTabs(Defaults& defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_address(QStringLiteral("https://www.google.com/"))
{
    loadStored();
    m_selectedID = homeTabID;
    m_address = homeURL;
    connect(&m_defaults, &Defaults::valuesChanged, this, &TavoBrowserTabs::followStoredChanges);
}

TavoBrowserTabs::~TavoBrowserTabs()
{
    flush();
    releaseWebViews();
}

void TavoBrowserTabs::loadStored()
{
    const QString tabsText = storedText(m_defaults, BrowserKeys::tabs);
    const std::optional<BrowserPersisted> persisted = browserPersistedFromJson(tabsText.toUtf8());
    m_tabs = {TavoBrowserTab::home()};
    m_saved = {TavoSavedSite::builtInHomeLink()};
    if (persisted) {
        std::copy_if(persisted->tabs.cbegin(), persisted->tabs.cend(), std::back_inserter(m_tabs),
                     [](const TavoBrowserTab& tab) { return tab.id != homeTabID; });
        std::copy_if(persisted->saved.cbegin(), persisted->saved.cend(), std::back_inserter(m_saved),
                     [](const TavoSavedSite& site) { return site.id != homeTabID; });
    }

    const std::optional<QList<TavoBrowserCollection>> collections =
        browserCollectionsFromJson(storedText(m_defaults, BrowserKeys::collections).toUtf8());
    m_collections = collections ? *collections : QList<TavoBrowserCollection>{};
    if (!collections) {
        m_collections = {TavoBrowserCollection::make(favoritesCollection)};
    }
    const bool hasFavorites =
        std::any_of(m_collections.cbegin(), m_collections.cend(), [](const TavoBrowserCollection& collection) {
            return collection.title.compare(favoritesCollection, Qt::CaseInsensitive) == 0;
        });
    if (!hasFavorites) {
        m_collections.append(TavoBrowserCollection::make(favoritesCollection));
    }

    m_tabGroups =
        tabGroupsFromJson(storedText(m_defaults, BrowserKeys::tabGroups).toUtf8()).value_or(QMap<QString, QString>());
    const QStringList collapsed =
        groupNamesFromJson(storedText(m_defaults, BrowserKeys::collapsedGroups).toUtf8()).value_or(QStringList());
    m_collapsedTabGroups = QSet<QString>(collapsed.cbegin(), collapsed.cend());
    m_splitEnabled = m_defaults.boolean(BrowserKeys::splitEnabled).value_or(false);
    m_secondaryID = m_defaults.string(BrowserKeys::splitSecondary).value_or(QString());

    for (const QString& key : {BrowserKeys::tabs, BrowserKeys::collections, BrowserKeys::tabGroups,
                               BrowserKeys::collapsedGroups, BrowserKeys::splitEnabled, BrowserKeys::splitSecondary}) {
        m_lastStored.insert(key, m_defaults.value(key));
    }
}

void TavoBrowserTabs::followStoredChanges()
{
    // Another process (tavoctl) changed the normal workspace. Modes keep their own contents, and
    // a change of ours still waiting to be written wins.
    if (m_isIncognito || m_isPrivateMode || m_dirty) {
        return;
    }
    bool changed = false;
    for (auto it = m_lastStored.cbegin(); it != m_lastStored.cend(); ++it) {
        if (m_defaults.value(it.key()) != it.value()) {
            changed = true;
            break;
        }
    }
    if (!changed) {
        return;
    }
    loadStored();
    for (const QString& tabID : m_webViews.keys()) {
        if (std::none_of(m_tabs.cbegin(), m_tabs.cend(),
                         [&tabID](const TavoBrowserTab& tab) { return tab.id == tabID; })) {
            releaseWebViews(tabID);
        }
    }
    if (std::none_of(m_tabs.cbegin(), m_tabs.cend(),
                     [this](const TavoBrowserTab& tab) { return tab.id == m_selectedID; })) {
        m_selectedID = homeTabID;
        m_address = homeURL;
        emit selectedIDChanged();
        emit addressChanged();
    }
    emit tabsChanged();
    emit savedChanged();
    emit collectionsChanged();
    emit tabGroupsChanged();
    emit collapsedTabGroupsChanged();
    emit splitEnabledChanged();
    emit secondaryIDChanged();
}

// Properties

void TavoBrowserTabs::setTabs(QList<TavoBrowserTab> tabs)
{
    m_tabs = std::move(tabs);
    emit tabsChanged();
    persist(StoredTabs);
}

void TavoBrowserTabs::setSaved(QList<TavoSavedSite> saved)
{
    m_saved = std::move(saved);
    emit savedChanged();
    persist(StoredTabs);
}

void TavoBrowserTabs::setSelectedID(const QString& id)
{
    m_selectedID = id;
    emit selectedIDChanged();
    persist(StoredTabs);
}

void TavoBrowserTabs::setCollections(QList<TavoBrowserCollection> collections)
{
    m_collections = std::move(collections);
    emit collectionsChanged();
    persist(StoredCollections);
}

void TavoBrowserTabs::setTabGroups(QMap<QString, QString> groups)
{
    m_tabGroups = std::move(groups);
    emit tabGroupsChanged();
    persist(StoredGroups);
}

void TavoBrowserTabs::setCollapsedTabGroups(QSet<QString> names)
{
    m_collapsedTabGroups = std::move(names);
    emit collapsedTabGroupsChanged();
    persist(StoredCollapsed);
}

void TavoBrowserTabs::setSplitEnabled(bool enabled)
{
    m_splitEnabled = enabled;
    emit splitEnabledChanged();
    persist(StoredSplit);
}

void TavoBrowserTabs::setSecondaryID(const QString& id)
{
    m_secondaryID = id;
    emit secondaryIDChanged();
    persist(StoredSecondary);
}

void TavoBrowserTabs::setAddress(const QString& address)
{
    if (m_address != address) {
        m_address = address;
        emit addressChanged();
    }
}

void TavoBrowserTabs::setDownloadStatus(const std::optional<QString>& status)
{
    m_downloadStatus = status;
    emit downloadStatusChanged();
}

void TavoBrowserTabs::setBrowserMessage(const std::optional<QString>& message)
{
    m_browserMessage = message;
    emit browserMessageChanged();
}

void TavoBrowserTabs::setLastDownloadURL(const std::optional<QString>& location)
{
    m_lastDownloadURL = location;
    emit lastDownloadURLChanged();
}

void TavoBrowserTabs::dismissStatus()
{
    setBrowserMessage(std::nullopt);
    setDownloadStatus(std::nullopt);
}

void TavoBrowserTabs::setModeFlags(bool incognito, bool privateMode)
{
    // Whatever waits is written where the mode it was made in says.
    flush();
    m_isIncognito = incognito;
    m_isPrivateMode = privateMode;
    emit modeChanged();
}

void TavoBrowserTabs::setWebView(const QString& tabID, QObject* view)
{
    QObject* old = m_webViews.value(tabID);
    if (old && old != view) {
        old->deleteLater();
    }
    m_webViews.insert(tabID, view);
}

void TavoBrowserTabs::releaseWebViews(const std::optional<QString>& tabID)
{
    if (m_webViews.isEmpty()) {
        return;
    }
    if (tabID) {
        if (QObject* view = m_webViews.take(*tabID)) {
            view->deleteLater();
        }
    } else {
        for (const QPointer<QObject>& view : std::as_const(m_webViews)) {
            if (view) {
                view->deleteLater();
            }
        }
        m_webViews.clear();
    }
    emit webViewsReleased();
}

void TavoBrowserTabs::addressFollowsCurrent()
{
    const std::optional<TavoBrowserTab> tab = current();
    setAddress(tab ? tab->url : homeURL);
}

// Tabs

std::optional<TavoBrowserTab> TavoBrowserTabs::current() const
{
    for (const TavoBrowserTab& tab : m_tabs) {
        if (tab.id == m_selectedID) {
            return tab;
        }
    }
    return std::nullopt;
}

void TavoBrowserTabs::newTab(const QString& url)
{
    const TavoBrowserTab tab{newBrowserID(), url == homeURL ? homeTitle : QStringLiteral("New tab"), url};
    QList<TavoBrowserTab> tabs = m_tabs;
    tabs.append(tab);
    setTabs(std::move(tabs));
    setSelectedID(tab.id);
    setAddress(url);
}

void TavoBrowserTabs::select(const QString& id)
{
    for (const TavoBrowserTab& tab : std::as_const(m_tabs)) {
        if (tab.id == id) {
            const QString url = tab.url;
            setSelectedID(id);
            setAddress(url);
            return;
        }
    }
}

void TavoBrowserTabs::open(const QString& url)
{
    QList<TavoBrowserTab> tabs = m_tabs;
    for (TavoBrowserTab& tab : tabs) {
        if (tab.id == m_selectedID) {
            tab.url = url;
            tab.title = url == homeURL ? homeTitle : webPageTitle;
            setTabs(std::move(tabs));
            setAddress(url);
            return;
        }
    }
}

std::optional<QString> TavoBrowserTabs::navigableAddress(const QString& text)
{
    QString address = text.trimmed();
    if (!address.contains(QLatin1StringView("://"))) {
        address.prepend(QLatin1StringView("https://"));
    }
    if (!parsesAsURL(address) || !isLoadableAddress(address)) {
        return std::nullopt;
    }
    return address;
}

bool TavoBrowserTabs::isLoadableAddress(const QString& url)
{
    const QString scheme = QUrl(url).scheme().toLower();
    return scheme == QLatin1StringView("http") || scheme == QLatin1StringView("https");
}

void TavoBrowserTabs::navigate()
{
    if (!current()) {
        return;
    }
    const std::optional<QString> address = navigableAddress(m_address);
    if (!address) {
        return;
    }
    QList<TavoBrowserTab> tabs = m_tabs;
    for (TavoBrowserTab& tab : tabs) {
        if (tab.id == m_selectedID) {
            tab.url = *address;
        }
    }
    setTabs(std::move(tabs));
    setAddress(*address);
}

void TavoBrowserTabs::close(const QString& id)
{
    if (id == homeTabID) {
        return;
    }
    QList<TavoBrowserTab> tabs = m_tabs;
    tabs.removeIf([&id](const TavoBrowserTab& tab) { return tab.id == id; });
    setTabs(std::move(tabs));
    if (m_tabGroups.contains(id)) {
        QMap<QString, QString> groups = m_tabGroups;
        groups.remove(id);
        setTabGroups(std::move(groups));
    }
    releaseWebViews(id);
    if (m_tabs.isEmpty()) {
        newTab(homeURL);
    }
    if (!current()) {
        select(m_tabs.first().id);
    }
}

void TavoBrowserTabs::update(const QString& id, const QString& title, const QString& url)
{
    QList<TavoBrowserTab> tabs = m_tabs;
    for (TavoBrowserTab& tab : tabs) {
        if (tab.id == id) {
            tab.title = title.isEmpty() ? webPageTitle : title;
            tab.url = url;
            setTabs(std::move(tabs));
            if (m_selectedID == id) {
                setAddress(url);
            }
            return;
        }
    }
}

// Groups

void TavoBrowserTabs::assignGroup(const QString& tabID, const std::optional<QString>& group)
{
    QMap<QString, QString> groups = m_tabGroups;
    if (group && !group->isEmpty()) {
        groups.insert(tabID, *group);
    } else {
        groups.remove(tabID);
    }
    setTabGroups(std::move(groups));
}

void TavoBrowserTabs::renameGroup(const QString& oldName, const QString& newName)
{
    const QString name = newName.trimmed();
    if (name.isEmpty()) {
        return;
    }
    QMap<QString, QString> groups = m_tabGroups;
    for (QString& group : groups) {
        if (group == oldName) {
            group = name;
        }
    }
    setTabGroups(std::move(groups));
    if (m_collapsedTabGroups.contains(oldName)) {
        QSet<QString> collapsed = m_collapsedTabGroups;
        collapsed.remove(oldName);
        collapsed.insert(name);
        setCollapsedTabGroups(std::move(collapsed));
    }
}

void TavoBrowserTabs::toggleGroup(const QString& name)
{
    QSet<QString> collapsed = m_collapsedTabGroups;
    if (!collapsed.remove(name)) {
        collapsed.insert(name);
    }
    setCollapsedTabGroups(std::move(collapsed));
}

void TavoBrowserTabs::ungroup(const QString& name)
{
    QMap<QString, QString> groups = m_tabGroups;
    for (auto it = groups.begin(); it != groups.end();) {
        it = it.value() == name ? groups.erase(it) : std::next(it);
    }
    setTabGroups(std::move(groups));
}

QStringList TavoBrowserTabs::orderedGroups() const
{
    QStringList result;
    for (const TavoBrowserTab& tab : m_tabs) {
        const QString group = m_tabGroups.value(tab.id);
        if (!result.contains(group)) {
            result.append(group);
        }
    }
    return result;
}

// Saved links and collections

void TavoBrowserTabs::saveCurrent(const QString& title, const QString& url, const QStringList& tags,
                                  const QString& note, const QString& collection)
{
    QString collectionName = collection.trimmed();
    if (collectionName.isEmpty()) {
        collectionName = favoritesCollection;
    }
    ensureCollection(collectionName);

    QString storedTitle = title;
    if (storedTitle.isEmpty()) {
        const std::optional<TavoBrowserTab> tab = current();
        storedTitle = tab && !tab->title.isEmpty() ? tab->title : url;
    }
    QList<TavoSavedSite> saved = m_saved;
    for (TavoSavedSite& site : saved) {
        if (site.url == url) {
            site.title = storedTitle;
            site.tags = tags;
            site.note = note;
            site.collection = collectionName;
            setSaved(std::move(saved));
            return;
        }
    }
    TavoSavedSite site;
    site.title = storedTitle;
    site.url = url;
    site.tags = tags;
    site.note = note;
    site.collection = collectionName;
    saved.append(std::move(site));
    setSaved(std::move(saved));
}

std::optional<QString> TavoBrowserTabs::saveBookmark(const QString& urlText, const QString& name,
                                                     const QString& openedTitle, const QString& tagsText,
                                                     const QString& note, const QString& collection)
{
    QString url = urlText.trimmed();
    if (!url.contains(QLatin1StringView("://"))) {
        url.prepend(QLatin1StringView("https://"));
    }
    if (!parsesAsURL(url)) {
        return std::nullopt;
    }
    const QString title = name.trimmed().isEmpty() ? openedTitle : name;
    QStringList tags;
    for (const QString& piece : tagsText.split(u',')) {
        if (const QString tag = piece.trimmed(); !tag.isEmpty()) {
            tags.append(tag);
        }
    }
    saveCurrent(title, url, tags, note, collection);
    for (const TavoSavedSite& site : std::as_const(m_saved)) {
        if (site.url == url) {
            return site.id;
        }
    }
    return std::nullopt;
}

void TavoBrowserTabs::ensureCollection(const QString& name)
{
    const QString title = name.trimmed();
    if (title.isEmpty()) {
        return;
    }
    for (const TavoBrowserCollection& collection : std::as_const(m_collections)) {
        if (collection.title.compare(title, Qt::CaseInsensitive) == 0) {
            return;
        }
    }
    QList<TavoBrowserCollection> collections = m_collections;
    collections.append(TavoBrowserCollection::make(title));
    setCollections(std::move(collections));
}

void TavoBrowserTabs::removeBookmark(const QString& id)
{
    if (id == homeTabID) {
        return;
    }
    QList<TavoSavedSite> saved = m_saved;
    saved.removeIf([&id](const TavoSavedSite& site) { return site.id == id; });
    setSaved(std::move(saved));
}

bool TavoBrowserTabs::savedSiteVisible(const TavoSavedSite& site, const QString& collection, const QString& search)
{
    if (!collection.isEmpty() && site.collection != collection) {
        return false;
    }
    if (search.isEmpty()) {
        return true;
    }
    return site.title.contains(search, Qt::CaseInsensitive) || site.url.contains(search, Qt::CaseInsensitive) ||
           site.tags.join(u' ').contains(search, Qt::CaseInsensitive) ||
           site.note.contains(search, Qt::CaseInsensitive);
}

// Zoom and split

double TavoBrowserTabs::currentZoom() const
{
    return m_zoomLevels.value(m_selectedID, defaultZoom);
}

void TavoBrowserTabs::setZoom(double value)
{
    if (m_selectedID.isEmpty()) {
        return;
    }
    m_zoomLevels.insert(m_selectedID, std::clamp(value, minimumZoom, maximumZoom));
    emit zoomLevelsChanged();
}

void TavoBrowserTabs::toggleSplit()
{
    if (m_splitEnabled) {
        setSplitEnabled(false);
        return;
    }
    if (m_tabs.size() < 2) {
        newTab(homeURL);
    }
    for (const TavoBrowserTab& tab : std::as_const(m_tabs)) {
        if (tab.id != m_selectedID) {
            const QString id = tab.id;
            setSecondaryID(id);
            setSplitEnabled(true);
            return;
        }
    }
}

// Modes

BrowserWorkspaceArchive TavoBrowserTabs::archive() const
{
    return {m_tabs,         m_saved,      m_selectedID, m_collections, m_tabGroups, sortedNames(m_collapsedTabGroups),
            m_splitEnabled, m_secondaryID};
}

void TavoBrowserTabs::apply(const BrowserWorkspaceArchive& archive)
{
    setTabs(archive.tabs);
    setSaved(archive.saved);
    setSelectedID(archive.selectedID);
    setCollections(archive.collections);
    setTabGroups(archive.tabGroups);
    setCollapsedTabGroups(QSet<QString>(archive.collapsedTabGroups.cbegin(), archive.collapsedTabGroups.cend()));
    setSplitEnabled(archive.splitEnabled);
    setSecondaryID(archive.secondaryID);
}

void TavoBrowserTabs::restoreSuspendedWorkspace()
{
    if (m_suspendedWorkspace) {
        const BrowserWorkspaceArchive suspended = std::move(*m_suspendedWorkspace);
        m_suspendedWorkspace.reset();
        apply(suspended);
        addressFollowsCurrent();
    } else {
        BrowserWorkspaceArchive start = BrowserWorkspaceArchive::empty();
        apply(start);
        setAddress(homeURL);
    }
    persist();
}

void TavoBrowserTabs::toggleIncognito()
{
    if (m_isPrivateMode) {
        return;
    }
    if (m_isIncognito) {
        setModeFlags(false, false);
        restoreSuspendedWorkspace();
        return;
    }
    m_suspendedWorkspace = archive();
    setModeFlags(true, false);
    releaseWebViews();
    apply(BrowserWorkspaceArchive::empty());
    setAddress(homeURL);
}

bool TavoBrowserTabs::hasPrivatePasscode() const
{
    const Result<std::optional<QString>> stored = KeyStore::loadFresh(BrowserKeys::privatePinAccount);
    return stored.ok() && stored.value().has_value();
}

bool TavoBrowserTabs::unlockPrivateMode(const QString& passcode, const std::optional<QString>& confirmation)
{
    if (!BrowserPrivateGate::isWellFormed(passcode)) {
        return false;
    }
    // Asked afresh: tavoctl may have set the passcode up since this process last looked.
    const Result<std::optional<QString>> pin = KeyStore::loadFresh(BrowserKeys::privatePinAccount);
    if (!pin.ok()) {
        return false;
    }
    if (pin.value()) {
        const std::optional<StoredPassword> stored = parseStoredPassword(*pin.value());
        if (!stored) {
            return false;
        }
        const std::optional<QByteArray> hash = derivePasswordHash(passcode, stored->salt);
        if (!hash || !constantTimeEquals(*hash, stored->hash)) {
            return false;
        }
    } else {
        if (!confirmation || *confirmation != passcode) {
            return false;
        }
        const QByteArray salt = makePasswordSalt();
        const std::optional<QByteArray> hash = derivePasswordHash(passcode, salt);
        if (!hash || KeyStore::save(formatStoredPassword({salt, *hash}), BrowserKeys::privatePinAccount)) {
            return false;
        }
    }
    const Result<std::optional<QString>> key = KeyStore::loadFresh(BrowserKeys::privateKeyAccount);
    if (!key.ok()) {
        return false;
    }
    if (!key.value()) {
        const std::optional<QByteArray> fresh = makeWorkspaceKey();
        if (!fresh || KeyStore::save(QString::fromLatin1(fresh->toBase64()), BrowserKeys::privateKeyAccount)) {
            return false;
        }
    }

    if (m_isPrivateMode) {
        return true; // already open: suspending it would put the private workspace in the normal one's place
    }
    if (m_isIncognito) {
        setModeFlags(false, false);
        restoreSuspendedWorkspace();
    }
    m_suspendedWorkspace = archive();
    const BrowserWorkspaceArchive privateWorkspace = loadPrivateArchive().value_or(BrowserWorkspaceArchive::empty());
    setModeFlags(false, true);
    releaseWebViews();
    apply(privateWorkspace);
    addressFollowsCurrent();
    return true;
}

void TavoBrowserTabs::lockPrivateMode()
{
    if (!m_isPrivateMode) {
        return;
    }
    persist();
    setModeFlags(false, false);
    releaseWebViews();
    restoreSuspendedWorkspace();
}

std::optional<BrowserWorkspaceArchive> TavoBrowserTabs::loadPrivateArchive() const
{
    const std::optional<QByteArray> key = workspaceKey();
    const std::optional<QByteArray> sealed = m_defaults.bytes(BrowserKeys::privateWorkspace);
    if (!key || !sealed) {
        return std::nullopt;
    }
    std::optional<QByteArray> plain = openWorkspace(*sealed, *key);
    if (!plain) {
        return std::nullopt;
    }
    std::optional<BrowserWorkspaceArchive> archive = workspaceArchiveFromJson(*plain);
    plain->fill('\0');
    return archive;
}

QString TavoBrowserTabs::privateWebsiteDataStoreID()
{
    const std::optional<QString> stored = m_defaults.string(BrowserKeys::privateWebsiteDataStoreID);
    if (stored && !QUuid::fromString(*stored).isNull()) {
        return *stored;
    }
    const QString id = newBrowserID();
    m_defaults.setString(BrowserKeys::privateWebsiteDataStoreID, id);
    return id;
}

// Import

qsizetype TavoBrowserTabs::importChromeFile(const QString& path)
{
    return importChromeLinks(readChromeFile(path));
}

Result<QList<TavoSavedSite>> TavoBrowserTabs::readChromeFile(const QString& path)
{
    const auto couldNot = [](const QString& why) {
        return TavoError{QStringLiteral("TavoBrowser"), 0, QStringLiteral("Could not import bookmarks: ") + why};
    };
    QFile file(path);
    if (QFileInfo(path).isDir()) {
        return couldNot(QStringLiteral("It is a folder, not a file."));
    }
    if (file.size() > maximumBookmarkFileSize) {
        return couldNot(QStringLiteral("The file is larger than 64 MiB."));
    }
    if (!file.open(QIODevice::ReadOnly)) {
        return couldNot(file.errorString());
    }
    // Read one byte past the limit: a device or a growing file may be longer than its size said.
    const QByteArray data = file.read(maximumBookmarkFileSize + 1);
    if (data.size() > maximumBookmarkFileSize) {
        return couldNot(QStringLiteral("The file is larger than 64 MiB."));
    }
    if (file.error() != QFileDevice::NoError) {
        return couldNot(file.errorString());
    }

    QList<TavoSavedSite> links =
        looksLikeChromeJSON(path, data) ? parseChromeJSON(data) : parseChromeHTML(QString::fromUtf8(data));
    if (links.isEmpty()) {
        return TavoError{QStringLiteral("TavoBrowser"), 0,
                         QStringLiteral("No bookmarks found. Export Chrome bookmarks as HTML or choose a Chrome "
                                        "profile\u2019s Bookmarks file.")};
    }
    return links;
}

qsizetype TavoBrowserTabs::importChromeLinks(const Result<QList<TavoSavedSite>>& read)
{
    if (!read) {
        setBrowserMessage(read.error().description);
        return 0;
    }
    const QList<TavoSavedSite>& links = read.value();
    mergeImported(links);
    setBrowserMessage(
        QStringLiteral("Imported %1 Chrome bookmark(s), with folders saved as Tavo collections.").arg(links.size()));
    return links.size();
}

void TavoBrowserTabs::mergeImported(const QList<TavoSavedSite>& links)
{
    // One pass over a copy, stored once at the end: the same lists as merging link by link.
    QList<TavoSavedSite> saved = m_saved;
    QList<TavoBrowserCollection> collections = m_collections;
    QHash<QString, qsizetype> byURL;
    for (qsizetype i = saved.size() - 1; i >= 0; --i) {
        byURL.insert(saved[i].url, i); // the first link with an address is the one replaced
    }
    QSet<QString> collectionTitles;
    for (const TavoBrowserCollection& collection : std::as_const(collections)) {
        collectionTitles.insert(collection.title.toCaseFolded());
    }
    for (const TavoSavedSite& link : links) {
        const QString title = link.collection.trimmed();
        if (!title.isEmpty() && !collectionTitles.contains(title.toCaseFolded())) {
            collectionTitles.insert(title.toCaseFolded());
            collections.append(TavoBrowserCollection::make(title));
        }
        const auto known = byURL.constFind(link.url);
        if (known != byURL.constEnd()) {
            saved[*known] = link;
        } else {
            byURL.insert(link.url, saved.size());
            saved.append(link);
        }
    }
    if (collections.size() != m_collections.size()) {
        setCollections(std::move(collections));
    }
    setSaved(std::move(saved));
}

// Storing

void TavoBrowserTabs::persist(unsigned keys)
{
    m_dirty |= keys;
    if (!m_writeScheduled) {
        m_writeScheduled = true;
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_writeScheduled = false;
                flush();
            },
            Qt::QueuedConnection);
    }
}

void TavoBrowserTabs::flush()
{
    const unsigned dirty = std::exchange(m_dirty, 0u);
    if (dirty) {
        writeNow(dirty);
    }
}

void TavoBrowserTabs::writeNow(unsigned keys)
{
    if (m_isIncognito) {
        return;
    }
    if (m_isPrivateMode) {
        writePrivate();
        return;
    }
    writeNormal(keys);
}

void TavoBrowserTabs::writeNormal(unsigned keys)
{
    // Only the keys whose properties were assigned are encoded again: the saved links alone can
    // be a megabyte.
    QList<QPair<QString, QJsonValue>> values;
    // The first write stores the whole workspace, as every later one then finds it complete.
    if (std::any_of(m_lastStored.cbegin(), m_lastStored.cend(), [](const QJsonValue& v) { return v.isUndefined(); })) {
        keys = StoredAll;
    }
    if (keys & StoredTabs) {
        values.append({BrowserKeys::tabs, QString::fromUtf8(browserPersistedToJson({m_tabs, m_saved, m_selectedID}))});
    }
    if (keys & StoredCollections) {
        values.append({BrowserKeys::collections, QString::fromUtf8(browserCollectionsToJson(m_collections))});
    }
    if (keys & StoredGroups) {
        values.append({BrowserKeys::tabGroups, QString::fromUtf8(tabGroupsToJson(m_tabGroups))});
    }
    if (keys & StoredCollapsed) {
        values.append(
            {BrowserKeys::collapsedGroups, QString::fromUtf8(groupNamesToJson(sortedNames(m_collapsedTabGroups)))});
    }
    if (keys & StoredSplit) {
        values.append({BrowserKeys::splitEnabled, m_splitEnabled});
    }
    if (keys & StoredSecondary) {
        values.append({BrowserKeys::splitSecondary, m_secondaryID});
    }
    // Only what differs from what is stored: an unchanged workspace is not written again, and a
    // key another process just wrote is not overwritten with the same old value.
    QList<QPair<QString, QJsonValue>> changed;
    for (const auto& [key, value] : values) {
        if (m_lastStored.value(key) != value || m_defaults.value(key) != value) {
            m_lastStored.insert(key, value);
            changed.append({key, value});
        }
    }
    if (!changed.isEmpty()) {
        m_defaults.setValues(changed);
    }
}

void TavoBrowserTabs::writePrivate()
{
    // Never in plain form, and never over the normal keys: without a key, nothing is written.
    const std::optional<QByteArray> key = workspaceKey();
    QByteArray plain = workspaceArchiveToJson(archive());
    const std::optional<QByteArray> sealed = key ? sealWorkspace(plain, *key) : std::nullopt;
    plain.fill('\0');
    if (!sealed) {
        setBrowserMessage(privateSaveFailedMessage);
        return;
    }
    m_defaults.setBytes(BrowserKeys::privateWorkspace, *sealed);
}

// The gate

namespace BrowserPrivateGate {

QString fieldText(const QString& typed)
{
    QString kept;
    int count = 0;
    for (const char32_t code : typed.toUcs4()) {
        if (count == 6) {
            break;
        }
        if (QChar::isNumber(code)) {
            kept.append(QString::fromUcs4(&code, 1));
            ++count;
        }
    }
    return kept;
}

bool isWellFormed(const QString& passcode)
{
    const QList<uint> codes = passcode.toUcs4();
    return codes.size() == 6 &&
           std::all_of(codes.cbegin(), codes.cend(), [](uint code) { return QChar::isNumber(code); });
}

std::optional<QString> submit(TavoBrowserTabs& tabs, const QString& passcode, const QString& confirmation,
                              bool hasPasscode)
{
    if (passcode.toUcs4().size() != 6) {
        return enterAllDigits;
    }
    if (!hasPasscode && confirmation != passcode) {
        return passcodesDoNotMatch;
    }
    if (!tabs.unlockPrivateMode(passcode, hasPasscode ? std::nullopt : std::optional<QString>(confirmation))) {
        return didNotUnlock;
    }
    return std::nullopt;
}

} // namespace BrowserPrivateGate

} // namespace tavo
