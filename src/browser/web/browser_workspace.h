#pragma once

#include <QHash>
#include <QPointer>
#include <QWidget>

class QStackedWidget;

namespace tavo {

class BrowserAddressBar;
class BrowserDownloads;
class BrowserHomePage;
class BrowserMagnifierLens;
class BrowserStatusStrip;
class BrowserTabStrip;
class Defaults;
class EmptyState;
class TavoBrowserTabs;
class TavoWebView;
class WebProfiles;

// The built-in browser's screen: tab strip, address bar, status strip and the page area, which
// shows the Home page for the Home tab and otherwise the tab's web view in the current mode, made
// when the tab is first shown. The model lives elsewhere and outlives nothing here; the web
// profiles and downloads belong to the workspace.
class BrowserWorkspace : public QWidget
{
    Q_OBJECT

public:
    BrowserWorkspace(TavoBrowserTabs& tabs, Defaults& defaults, QWidget* parent = nullptr);
    ~BrowserWorkspace() override;

    // Opens `url` in a new tab, for website shortcuts and other sections.
    void openTavoBrowser(const QString& url);

    // The live view of a tab in the current mode, if it has been shown.
    TavoWebView* webView(const QString& tabID) const;
    TavoWebView* currentView() const;
    QWidget* currentPage() const;

    BrowserHomePage* homePage() const { return m_home; }
    BrowserAddressBar* addressBar() const { return m_addressBar; }
    BrowserStatusStrip* statusStrip() const { return m_status; }
    WebProfiles& profiles() const { return *m_profiles; }
    BrowserMagnifierLens* lens() const { return m_lens; }

    // The "Save link" sheet for the current page.
    void editBookmark();

private:
    void scheduleShow();
    void showCurrent();
    void showPage();
    void forgetReleasedViews();

    TavoBrowserTabs& m_state;
    Defaults& m_defaults;
    WebProfiles* m_profiles;
    BrowserDownloads* m_downloads;
    BrowserTabStrip* m_tabStrip;
    BrowserAddressBar* m_addressBar;
    BrowserStatusStrip* m_status;
    QStackedWidget* m_pages;
    BrowserHomePage* m_home;
    EmptyState* m_noTab;
    BrowserMagnifierLens* m_lens;
    // By identity: a tab has one view per mode, never shared between modes.
    QHash<QString, QPointer<TavoWebView>> m_views;
    bool m_showScheduled = false;
};

} // namespace tavo
