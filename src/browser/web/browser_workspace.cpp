#include "browser/web/browser_workspace.h"

#include "browser/browser_tabs.h"
#include "browser/web/browser_address_bar.h"
#include "browser/web/browser_bookmark_editor.h"
#include "browser/web/browser_downloads.h"
#include "browser/web/browser_home_page.h"
#include "browser/web/browser_magnifier_lens.h"
#include "browser/web/browser_status_strip.h"
#include "browser/web/browser_tab_strip.h"
#include "browser/web/tavo_web_view.h"
#include "browser/web/web_profiles.h"
#include "shell/ui/design.h"
#include "shell/ui/empty_state.h"

#include <QFrame>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

namespace tavo {

BrowserWorkspace::BrowserWorkspace(TavoBrowserTabs& tabs, Defaults& defaults, QWidget* parent)
    : QWidget(parent)
    , m_state(tabs)
    , m_defaults(defaults)
    , m_profiles(new WebProfiles(tabs, this))
    , m_downloads(new BrowserDownloads(tabs, this))
    , m_tabStrip(new BrowserTabStrip(tabs, this))
    , m_addressBar(new BrowserAddressBar(
          tabs, [this] { return currentView(); }, this))
    , m_status(new BrowserStatusStrip(tabs, this))
    , m_pages(new QStackedWidget(this))
    , m_home(new BrowserHomePage(tabs, m_pages))
    , m_noTab(new EmptyState(QStringLiteral("tab-new"), QStringLiteral("Open a tab to browse"), QString(),
                             QStringLiteral("New tab"), m_pages))
    , m_lens(new BrowserMagnifierLens(
          defaults, [this] { return static_cast<QWidget*>(currentView()); }, m_pages))
{
    design::name(this, QStringLiteral("Browser"));
    if (auto* zoom = qobject_cast<QVBoxLayout*>(m_addressBar->zoomPanel()->layout())) {
        zoom->addWidget(makeMagnifierControls(m_lens));
    }
    m_pages->addWidget(m_home);
    m_pages->addWidget(m_noTab);
    auto* rule = new QFrame(this);
    rule->setFrameShape(QFrame::HLine);
    rule->setFrameShadow(QFrame::Sunken);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_tabStrip);
    layout->addWidget(m_addressBar);
    layout->addWidget(rule);
    layout->addWidget(m_status);
    layout->addWidget(m_pages, 1);

    connect(m_profiles, &WebProfiles::downloadRequested, m_downloads, &BrowserDownloads::begin);
    connect(m_noTab, &EmptyState::actionTriggered, this, [this] { m_state.newTab(homeURL); });
    connect(m_home, &BrowserHomePage::addFavoriteRequested, this, &BrowserWorkspace::editBookmark);
    connect(m_addressBar, &BrowserAddressBar::saveLinkRequested, this, &BrowserWorkspace::editBookmark);
    for (auto signal : {&TavoBrowserTabs::tabsChanged, &TavoBrowserTabs::selectedIDChanged,
                        &TavoBrowserTabs::modeChanged, &TavoBrowserTabs::zoomLevelsChanged}) {
        connect(&m_state, signal, this, &BrowserWorkspace::scheduleShow);
    }
    connect(&m_state, &TavoBrowserTabs::webViewsReleased, this, &BrowserWorkspace::forgetReleasedViews);
    showCurrent();
}

BrowserWorkspace::~BrowserWorkspace()
{
    // Every page goes before the profiles it was made on.
    for (const QPointer<TavoWebView>& view : std::as_const(m_views)) {
        delete view.data();
    }
    delete m_profiles;
}

void BrowserWorkspace::openTavoBrowser(const QString& url)
{
    m_state.newTab(url);
}

TavoWebView* BrowserWorkspace::webView(const QString& tabID) const
{
    return m_views.value(TavoWebView::identityFor(tabID, m_state.isIncognito(), m_state.isPrivateMode()));
}

TavoWebView* BrowserWorkspace::currentView() const
{
    return qobject_cast<TavoWebView*>(m_pages->currentWidget());
}

QWidget* BrowserWorkspace::currentPage() const
{
    return m_pages->currentWidget();
}

void BrowserWorkspace::editBookmark()
{
    const std::optional<TavoBrowserTab> tab = m_state.current();
    const bool onPage = tab && tab->url != homeURL;
    BrowserBookmarkEditor editor(m_state, onPage ? tab->title : QString(), onPage ? tab->url : QString(), this);
    editor.exec();
}

void BrowserWorkspace::scheduleShow()
{
    // One operation changes several properties; the page area follows once, after all of them.
    if (!m_showScheduled) {
        m_showScheduled = true;
        QTimer::singleShot(0, this, &BrowserWorkspace::showCurrent);
    }
}

void BrowserWorkspace::showCurrent()
{
    m_showScheduled = false;
    showPage();
    m_lens->follow();
}

void BrowserWorkspace::showPage()
{
    const std::optional<TavoBrowserTab> tab = m_state.current();
    if (!tab) {
        m_pages->setCurrentWidget(m_noTab);
        return;
    }
    if (tab->url == homeURL) {
        m_pages->setCurrentWidget(m_home);
        return;
    }
    const QString identity = TavoWebView::identityFor(tab->id, m_state.isIncognito(), m_state.isPrivateMode());
    TavoWebView* view = m_views.value(identity);
    if (!view) {
        view = new TavoWebView(m_state, tab->id, *m_profiles, m_pages);
        m_views.insert(identity, view);
        m_pages->addWidget(view);
        m_state.setWebView(tab->id, view);
    } else {
        view->refresh();
    }
    m_pages->setCurrentWidget(view);
}

void BrowserWorkspace::forgetReleasedViews()
{
    // The model lets go of views by deleting them later; none of them may be shown again meanwhile.
    for (auto it = m_views.begin(); it != m_views.end();) {
        TavoWebView* view = it.value();
        if (!view || m_state.webView(view->tabID()) != view) {
            if (view) {
                m_pages->removeWidget(view);
            }
            it = m_views.erase(it);
        } else {
            ++it;
        }
    }
    scheduleShow();
}

} // namespace tavo
