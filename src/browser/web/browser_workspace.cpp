#include "browser/web/browser_workspace.h"

#include "browser/browser_tabs.h"
#include "browser/web/browser_address_bar.h"
#include "browser/web/browser_bookmark_editor.h"
#include "browser/web/browser_downloads.h"
#include "browser/web/browser_home_page.h"
#include "browser/web/browser_magnifier_lens.h"
#include "browser/web/browser_private_gate.h"
#include "browser/web/browser_status_strip.h"
#include "browser/web/browser_tab_strip.h"
#include "browser/web/tavo_web_view.h"
#include "browser/web/web_profiles.h"
#include "shell/ui/design.h"
#include "shell/ui/empty_state.h"

#include <QApplication>
#include <QComboBox>
#include <QFrame>
#include <QFutureWatcher>
#include <QHBoxLayout>
#include <QLabel>
#include <QSplitter>
#include <QStackedWidget>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

namespace tavo {

namespace {

// A pane's header line: a label, or a picker, and its tools, in the style's own spacing.
QWidget* paneHeader(QWidget* parent, const QList<QWidget*>& widgets)
{
    auto* header = new QWidget(parent);
    const int gap = design::step(header);
    auto* layout = new QHBoxLayout(header);
    layout->setContentsMargins(gap, gap / 2, gap, gap / 2);
    layout->setSpacing(gap);
    for (QWidget* widget : widgets) {
        layout->addWidget(widget, widget == widgets.constFirst() ? 1 : 0);
    }
    return header;
}

QWidget* pane(QWidget* parent, QWidget* header, QWidget* pages)
{
    auto* pane = new QWidget(parent);
    auto* layout = new QVBoxLayout(pane);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(header);
    layout->addWidget(pages, 1);
    return pane;
}

bool inside(const QWidget* widget, const QWidget* ancestor)
{
    return widget && (widget == ancestor || ancestor->isAncestorOf(widget));
}

} // namespace

BrowserWorkspace::BrowserWorkspace(TavoBrowserTabs& tabs, Defaults& defaults, QWidget* parent)
    : QWidget(parent)
    , m_state(tabs)
    , m_defaults(defaults)
    , m_profiles(new WebProfiles(tabs, this))
    , m_downloads(new BrowserDownloads(tabs, this))
    , m_tabStrip(new BrowserTabStrip(tabs, this))
    , m_addressBar(new BrowserAddressBar(
          tabs, [this] { return focusedView(); }, this))
    , m_status(new BrowserStatusStrip(tabs, this))
    , m_pages(new QStackedWidget(this))
    , m_home(new BrowserHomePage(tabs, m_pages))
    , m_noTab(new EmptyState(QStringLiteral("tab-new"), QStringLiteral("Open a tab to browse"), QString(),
                             QStringLiteral("New tab"), m_pages))
    , m_lens(new BrowserMagnifierLens(
          defaults, [this] { return static_cast<QWidget*>(currentView()); }, m_pages))
    , m_splitter(new QSplitter(Qt::Horizontal, this))
    , m_primaryLabel(new QLabel(this))
    , m_secondPicker(new QComboBox(this))
    , m_swap(new QToolButton(this))
    , m_secondPages(new QStackedWidget(this))
    , m_secondHome(new BrowserHomePage(tabs, m_secondPages))
    , m_noSecond(new EmptyState(QStringLiteral("view-split-left-right"), QStringLiteral("No second tab"),
                                QStringLiteral("Choose the tab to show beside the current one."), QString(),
                                m_secondPages))
{
    design::name(this, QStringLiteral("Browser"));
    if (auto* zoom = qobject_cast<QVBoxLayout*>(m_addressBar->zoomPanel()->layout())) {
        zoom->addWidget(makeMagnifierControls(m_lens));
    }
    m_pages->addWidget(m_home);
    m_pages->addWidget(m_noTab);
    m_secondPages->addWidget(m_secondHome);
    m_secondPages->addWidget(m_noSecond);

    // The split: the current tab on the left, as the lens expects, and the picked one on the right.
    m_primaryLabel->setTextFormat(Qt::PlainText);
    design::name(m_primaryLabel, QStringLiteral("Current tab"));
    m_secondPicker->setPlaceholderText(QStringLiteral("Second tab"));
    m_secondPicker->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_secondPicker->setMinimumContentsLength(16);
    design::name(m_secondPicker, QStringLiteral("Second tab"));
    m_swap->setIcon(design::icon(QStringLiteral("object-flip-horizontal")));
    m_swap->setAutoRaise(true);
    design::name(m_swap, QStringLiteral("Swap panes"));
    auto* secondLabel = new QLabel(QStringLiteral("Second tab"), this);
    secondLabel->setBuddy(m_secondPicker);
    auto* secondChoice = new QWidget(this);
    auto* choiceLayout = new QHBoxLayout(secondChoice);
    choiceLayout->setContentsMargins(0, 0, 0, 0);
    choiceLayout->addWidget(secondLabel);
    choiceLayout->addWidget(m_secondPicker, 1);
    QWidget* primaryHeader = paneHeader(this, {m_primaryLabel});
    QWidget* secondaryHeader = paneHeader(this, {secondChoice, m_swap});
    // Both pages start on the same line.
    primaryHeader->setMinimumHeight(secondaryHeader->sizeHint().height());
    m_primaryPane = pane(m_splitter, primaryHeader, m_pages);
    m_secondaryPane = pane(m_splitter, secondaryHeader, m_secondPages);
    m_splitter->addWidget(m_primaryPane);
    m_splitter->addWidget(m_secondaryPane);
    m_splitter->setChildrenCollapsible(false);
    m_splitter->setStretchFactor(0, 1);
    m_splitter->setStretchFactor(1, 1);
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
    layout->addWidget(m_splitter, 1);

    connect(m_profiles, &WebProfiles::downloadRequested, m_downloads, &BrowserDownloads::begin);
    connect(m_noTab, &EmptyState::actionTriggered, this, [this] { m_state.newTab(homeURL); });
    connect(m_home, &BrowserHomePage::addFavoriteRequested, this, &BrowserWorkspace::editBookmark);
    connect(m_secondHome, &BrowserHomePage::addFavoriteRequested, this, &BrowserWorkspace::editBookmark);
    connect(m_addressBar, &BrowserAddressBar::saveLinkRequested, this, &BrowserWorkspace::editBookmark);
    connect(m_addressBar, &BrowserAddressBar::privateGateRequested, this, &BrowserWorkspace::openPrivateGate);
    connect(m_addressBar, &BrowserAddressBar::chromeImportRequested, this, &BrowserWorkspace::importChromeBookmarks);
    connect(m_swap, &QToolButton::clicked, this, &BrowserWorkspace::swapPanes);
    connect(m_secondPicker, &QComboBox::activated, this,
            [this](int index) { m_state.setSecondaryID(m_secondPicker->itemData(index).toString()); });
    connect(qApp, &QApplication::focusChanged, this, [this](QWidget*, QWidget* now) { followFocus(now); });
    for (auto signal : {&TavoBrowserTabs::tabsChanged, &TavoBrowserTabs::selectedIDChanged,
                        &TavoBrowserTabs::modeChanged, &TavoBrowserTabs::zoomLevelsChanged,
                        &TavoBrowserTabs::splitEnabledChanged, &TavoBrowserTabs::secondaryIDChanged}) {
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
    showSecondary();
    followFocus(QApplication::focusWidget());
    m_lens->follow();
}

TavoWebView* BrowserWorkspace::viewIn(QStackedWidget* pages, const QString& tabID)
{
    const QString identity = TavoWebView::identityFor(tabID, m_state.isIncognito(), m_state.isPrivateMode());
    TavoWebView* view = m_views.value(identity);
    if (!view) {
        view = new TavoWebView(m_state, tabID, *m_profiles, pages);
        m_views.insert(identity, view);
        pages->addWidget(view);
        m_state.setWebView(tabID, view);
    } else {
        // A tab moves between the panes with its page, history and all.
        if (view->parentWidget() != pages) {
            if (auto* other = qobject_cast<QStackedWidget*>(view->parentWidget())) {
                other->removeWidget(view);
            }
            pages->addWidget(view);
        }
        view->refresh();
    }
    return view;
}

void BrowserWorkspace::showPage()
{
    const std::optional<TavoBrowserTab> tab = m_state.current();
    m_primaryLabel->setText(tab && !tab->title.isEmpty() ? tab->title : QStringLiteral("Tab 1"));
    if (!tab) {
        m_pages->setCurrentWidget(m_noTab);
        return;
    }
    if (tab->url == homeURL) {
        m_pages->setCurrentWidget(m_home);
        return;
    }
    m_pages->setCurrentWidget(viewIn(m_pages, tab->id));
}

void BrowserWorkspace::showSecondary()
{
    const bool split = m_state.splitEnabled();
    m_primaryLabel->parentWidget()->setVisible(split);
    m_secondaryPane->setVisible(split);
    if (!split) {
        return;
    }
    // Every tab but the current one may go beside it.
    const QSignalBlocker quiet(m_secondPicker);
    m_secondPicker->clear();
    std::optional<TavoBrowserTab> second;
    for (const TavoBrowserTab& tab : m_state.tabs()) {
        if (tab.id == m_state.selectedID()) {
            continue;
        }
        m_secondPicker->addItem(tab.title.isEmpty() ? tab.url : tab.title, tab.id);
        if (tab.id == m_state.secondaryID()) {
            second = tab;
        }
    }
    m_secondPicker->setCurrentIndex(m_secondPicker->findData(m_state.secondaryID()));
    m_swap->setEnabled(second.has_value());
    // A second tab that has gone, or is the current one now, leaves the pane empty until another
    // is picked.
    if (!second) {
        m_secondPages->setCurrentWidget(m_noSecond);
    } else if (second->url == homeURL) {
        m_secondPages->setCurrentWidget(m_secondHome);
    } else {
        m_secondPages->setCurrentWidget(viewIn(m_secondPages, second->id));
    }
}

QWidget* BrowserWorkspace::secondaryPage() const
{
    return m_state.splitEnabled() ? m_secondPages->currentWidget() : nullptr;
}

TavoWebView* BrowserWorkspace::secondaryView() const
{
    return qobject_cast<TavoWebView*>(secondaryPage());
}

TavoWebView* BrowserWorkspace::focusedView() const
{
    return m_secondaryFocused && m_state.splitEnabled() ? secondaryView() : currentView();
}

void BrowserWorkspace::swapPanes()
{
    const QString current = m_state.selectedID();
    const QString second = m_state.secondaryID();
    const auto& tabs = m_state.tabs();
    const bool known =
        std::any_of(tabs.cbegin(), tabs.cend(), [&](const TavoBrowserTab& tab) { return tab.id == second; });
    if (!known || second == current) {
        return;
    }
    m_state.select(second);
    m_state.setSecondaryID(current);
}

void BrowserWorkspace::followFocus(QWidget* focused)
{
    // Only the panes move the address bar; the bar itself, and the rest of the window, leave it.
    if (inside(focused, m_secondaryPane)) {
        m_secondaryFocused = true;
    } else if (inside(focused, m_primaryPane)) {
        m_secondaryFocused = false;
    }
    const bool second = m_secondaryFocused && m_state.splitEnabled() && m_secondPicker->currentIndex() >= 0;
    m_addressBar->setPaneTab(second ? m_state.secondaryID() : QString());
    QFont font = m_primaryLabel->font();
    font.setBold(m_state.splitEnabled() && !second);
    m_primaryLabel->setFont(font);
}

void BrowserWorkspace::openPrivateGate()
{
    if (m_gate || m_state.isPrivateMode()) {
        return;
    }
    m_gate = new BrowserPrivateGateSheet(m_state, m_state.hasPrivatePasscode(), this);
    m_gate->setAttribute(Qt::WA_DeleteOnClose);
    m_gate->open();
}

BrowserPrivateGateSheet* BrowserWorkspace::privateGate() const
{
    return m_gate;
}

void BrowserWorkspace::setBookmarkFileChooser(ChooseBookmarkFile chooser)
{
    m_chooseBookmarkFile = std::move(chooser);
}

void BrowserWorkspace::importChromeBookmarks()
{
    if (m_importing) {
        return;
    }
    const QString path = m_chooseBookmarkFile(this, chromeImportFolder());
    if (path.isEmpty()) {
        return;
    }
    // A profile's file can be tens of megabytes: read and parse it away from the window, then
    // merge here, where the model lives.
    m_importing = true;
    using Read = Result<QList<TavoSavedSite>>;
    auto* watcher = new QFutureWatcher<Read>(this);
    connect(watcher, &QFutureWatcher<Read>::finished, this, [this, watcher] {
        m_importing = false;
        m_state.importChromeLinks(watcher->result());
        watcher->deleteLater();
        emit chromeImportFinished();
    });
    watcher->setFuture(QtConcurrent::run(&TavoBrowserTabs::readChromeFile, path));
}

void BrowserWorkspace::forgetReleasedViews()
{
    // The model lets go of views by deleting them later; none of them may be shown again meanwhile.
    for (auto it = m_views.begin(); it != m_views.end();) {
        TavoWebView* view = it.value();
        if (!view || m_state.webView(view->tabID()) != view) {
            if (view) {
                if (auto* pages = qobject_cast<QStackedWidget*>(view->parentWidget())) {
                    pages->removeWidget(view);
                }
            }
            it = m_views.erase(it);
        } else {
            ++it;
        }
    }
    scheduleShow();
}

} // namespace tavo
