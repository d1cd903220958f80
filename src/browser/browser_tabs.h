#pragma once

#include "browser/browser_records.h"
#include "language/tavo_error.h"

#include <QHash>
#include <QJsonValue>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

namespace tavo {

class Defaults;

// The browser's stored keys. They carry no profile: the browser belongs to the desktop user and
// is shared by every local profile.
namespace BrowserKeys {
inline const QString tabs = QStringLiteral("tavoBrowserTabs");
inline const QString collections = QStringLiteral("tavoBrowserCollections");
inline const QString tabGroups = QStringLiteral("tavoBrowserTabGroups");
inline const QString collapsedGroups = QStringLiteral("tavoBrowserCollapsedGroups");
inline const QString splitEnabled = QStringLiteral("tavoBrowserSplitEnabled");
inline const QString splitSecondary = QStringLiteral("tavoBrowserSplitSecondary");
inline const QString privateWorkspace = QStringLiteral("tavoBrowserPrivateWorkspace");
inline const QString privateWebsiteDataStoreID = QStringLiteral("tavoBrowserPrivateWebsiteDataStoreID");
inline const QString magnifierHeight = QStringLiteral("tavoBrowserMagnifierHeight");
inline const QString magnifierWidth = QStringLiteral("tavoBrowserMagnifierWidth");
inline const QString magnifierPower = QStringLiteral("tavoBrowserMagnifierPower");
// Key store accounts of Private Mode.
inline const QString privatePinAccount = QStringLiteral("tavo.browser.private.pin");
inline const QString privateKeyAccount = QStringLiteral("tavo.browser.private.key");
} // namespace BrowserKeys

inline const QString privateSaveFailedMessage = QStringLiteral("Could not save the private workspace.");

// Page zoom of a tab, as a factor.
inline constexpr double minimumZoom = 0.5;
inline constexpr double maximumZoom = 2.5;
inline constexpr double defaultZoom = 1.0;
inline constexpr double zoomStep = 0.05;

// The tab strip's colours for named groups, picked by the hash of the name.
enum class TabGroupColor
{
    Purple,
    Blue,
    Green,
    Orange,
    Pink,
    Teal
};
TabGroupColor tabGroupColor(const QString& group);

// The browser's one model: tabs, saved links, collections, tab groups, split view, page zoom,
// the address field and the status lines, and the only writer of the browser's stored state.
// Views observe it through the change signals; it needs no web engine.
//
// Every change is stored, but the writes of one event-loop turn are joined into one (a rename
// changes several properties); `flush` writes at once, and a change of mode flushes first, so
// what lands where is exactly what writing on every change would give.
class TavoBrowserTabs : public QObject
{
    Q_OBJECT

public:
    explicit TavoBrowserTabs(Defaults& defaults, QObject* parent = nullptr);
    ~TavoBrowserTabs() override;

    const QList<TavoBrowserTab>& tabs() const { return m_tabs; }
    const QList<TavoSavedSite>& saved() const { return m_saved; }
    const QString& selectedID() const { return m_selectedID; }
    const QList<TavoBrowserCollection>& collections() const { return m_collections; }
    const QMap<QString, QString>& tabGroups() const { return m_tabGroups; }
    const QSet<QString>& collapsedTabGroups() const { return m_collapsedTabGroups; }
    bool splitEnabled() const { return m_splitEnabled; }
    const QString& secondaryID() const { return m_secondaryID; }
    bool isIncognito() const { return m_isIncognito; }
    bool isPrivateMode() const { return m_isPrivateMode; }
    const QHash<QString, double>& zoomLevels() const { return m_zoomLevels; }
    const QString& address() const { return m_address; }
    const std::optional<QString>& downloadStatus() const { return m_downloadStatus; }
    const std::optional<QString>& browserMessage() const { return m_browserMessage; }
    const std::optional<QString>& lastDownloadURL() const { return m_lastDownloadURL; }

    // The tab whose id is `selectedID`.
    std::optional<TavoBrowserTab> current() const;

    void newTab(const QString& url = QString());
    void select(const QString& id);
    void open(const QString& url);
    // Goes to the address field's text: http and https only, a bare host taken as https.
    void navigate();
    void close(const QString& id);
    void update(const QString& id, const QString& title, const QString& url);

    void assignGroup(const QString& tabID, const std::optional<QString>& group);
    void renameGroup(const QString& oldName, const QString& newName);
    void toggleGroup(const QString& name);
    // "Ungroup tabs": every tab of the group leaves it; a collapsed name stays collapsed.
    void ungroup(const QString& name);
    // The group names in the order the tab strip shows them; "" stands for the ungrouped tabs.
    QStringList orderedGroups() const;

    void saveCurrent(const QString& title, const QString& url, const QStringList& tags, const QString& note,
                     const QString& collection);
    // The bookmark editor's "Save bookmark": the typed fields as the sheet takes them. The id of the
    // link saved, or nothing when the address does not parse (nothing is saved then).
    std::optional<QString> saveBookmark(const QString& urlText, const QString& name, const QString& openedTitle,
                                        const QString& tagsText, const QString& note, const QString& collection);
    void ensureCollection(const QString& name);
    void removeBookmark(const QString& id);

    double currentZoom() const;
    void setZoom(double value);
    void adjustZoom(double delta) { setZoom(currentZoom() + delta); }
    void resetZoom() { setZoom(defaultZoom); }

    // Set by the workspace screen.
    void setSplitEnabled(bool enabled);
    void setSecondaryID(const QString& id);
    // The split tool: off when on; else a second tab beside the current one.
    void toggleSplit();

    void setAddress(const QString& address);
    void setDownloadStatus(const std::optional<QString>& status);
    void setBrowserMessage(const std::optional<QString>& message);
    void setLastDownloadURL(const std::optional<QString>& location);
    // The status strip's "Dismiss".
    void dismissStatus();

    void toggleIncognito();
    bool hasPrivatePasscode() const;
    bool unlockPrivateMode(const QString& passcode, const std::optional<QString>& confirmation);
    void lockPrivateMode();
    // The id of Private Mode's own web data store, made and stored on first use.
    QString privateWebsiteDataStoreID();

    // Reads a Chrome bookmark file, merges its links and says how it went in `browserMessage`.
    // Returns how many links it imported.
    qsizetype importChromeFile(const QString& path);
    // The two halves of `importChromeFile`. Reading touches no model, so a large file can be read
    // and parsed on another thread; its error is the message to show.
    static Result<QList<TavoSavedSite>> readChromeFile(const QString& path);
    qsizetype importChromeLinks(const Result<QList<TavoSavedSite>>& read);

    // The live web views by tab id. The model takes the view and deletes it when its tab closes
    // or the mode changes.
    void setWebView(const QString& tabID, QObject* view);
    QObject* webView(const QString& tabID) const { return m_webViews.value(tabID); }

    // Writes what waits for the end of this event-loop turn.
    void flush();

    // The address `navigate` would go to for `text`, or nothing when it would stay.
    static std::optional<QString> navigableAddress(const QString& text);
    // Whether a view may load `url`: http and https only.
    static bool isLoadableAddress(const QString& url);
    // The saved-links menu: `collection` empty for "All collections"; `search` without regard to case.
    static bool savedSiteVisible(const TavoSavedSite& site, const QString& collection, const QString& search);

signals:
    void tabsChanged();
    void savedChanged();
    void selectedIDChanged();
    void collectionsChanged();
    void tabGroupsChanged();
    void collapsedTabGroupsChanged();
    void splitEnabledChanged();
    void secondaryIDChanged();
    void modeChanged();
    void zoomLevelsChanged();
    void addressChanged();
    void downloadStatusChanged();
    void browserMessageChanged();
    void lastDownloadURLChanged();
    // A tab's web view was let go (its tab closed, or every view at a change of mode).
    void webViewsReleased();

private:
    void setTabs(QList<TavoBrowserTab> tabs);
    void setSaved(QList<TavoSavedSite> saved);
    void setSelectedID(const QString& id);
    void setCollections(QList<TavoBrowserCollection> collections);
    void setTabGroups(QMap<QString, QString> groups);
    void setCollapsedTabGroups(QSet<QString> names);
    void setModeFlags(bool incognito, bool privateMode);
    void releaseWebViews(const std::optional<QString>& tabID = std::nullopt);
    void addressFollowsCurrent();

    BrowserWorkspaceArchive archive() const;
    void apply(const BrowserWorkspaceArchive& archive);
    void restoreSuspendedWorkspace();
    std::optional<BrowserWorkspaceArchive> loadPrivateArchive() const;
    void mergeImported(const QList<TavoSavedSite>& links);

    void loadStored();
    void followStoredChanges();
    // Which stored keys a change touches.
    enum StoredKey : unsigned
    {
        StoredTabs = 1, // tabs, saved links and the selection share one key
        StoredCollections = 2,
        StoredGroups = 4,
        StoredCollapsed = 8,
        StoredSplit = 16,
        StoredSecondary = 32,
        StoredAll = 63
    };
    void persist(unsigned keys = StoredAll);
    void writeNow(unsigned keys);
    void writeNormal(unsigned keys);
    void writePrivate();

    Defaults& m_defaults;
    QList<TavoBrowserTab> m_tabs;
    QList<TavoSavedSite> m_saved;
    QString m_selectedID;
    QList<TavoBrowserCollection> m_collections;
    QMap<QString, QString> m_tabGroups;
    QSet<QString> m_collapsedTabGroups;
    bool m_splitEnabled = false;
    QString m_secondaryID;
    bool m_isIncognito = false;
    bool m_isPrivateMode = false;
    QHash<QString, double> m_zoomLevels;
    QString m_address;
    std::optional<QString> m_downloadStatus;
    std::optional<QString> m_browserMessage;
    std::optional<QString> m_lastDownloadURL;

    std::optional<BrowserWorkspaceArchive> m_suspendedWorkspace;
    QHash<QString, QPointer<QObject>> m_webViews;

    unsigned m_dirty = 0; // the stored keys whose properties changed since the last write
    bool m_writeScheduled = false;
    // What this model last read or wrote under each normal key, to tell other writers' changes.
    QHash<QString, QJsonValue> m_lastStored;
};

// The rules of the sheet that guards Private Mode.
namespace BrowserPrivateGate {
inline const QString enterAllDigits = QStringLiteral("Enter all six digits.");
inline const QString passcodesDoNotMatch = QStringLiteral("The passcodes do not match.");
inline const QString didNotUnlock = QStringLiteral("That passcode did not unlock the private workspace.");

// What a passcode field keeps of typed text: number characters, the first six.
QString fieldText(const QString& typed);
// Whether `passcode` is six number characters.
bool isWellFormed(const QString& passcode);
// The sheet's button: nothing when Private Mode opened, else the message to show.
std::optional<QString> submit(TavoBrowserTabs& tabs, const QString& passcode, const QString& confirmation,
                              bool hasPasscode);
} // namespace BrowserPrivateGate

} // namespace tavo
