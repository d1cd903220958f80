#include "browser/web/browser_address_bar.h"

#include "browser/browser_tabs.h"
#include "browser/web/tavo_web_view.h"
#include "shell/ui/design.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWidgetAction>

#include <cmath>

namespace tavo {

namespace {

QToolButton* toolButton(QWidget* parent, const QString& icon, const QString& name)
{
    auto* button = new QToolButton(parent);
    button->setIcon(design::icon(icon));
    button->setAutoRaise(true);
    design::name(button, name);
    return button;
}

// A menu that shows one panel of controls and stays open while they are used.
QMenu* panelMenu(QToolButton* button, QWidget* panel)
{
    auto* menu = new QMenu(button);
    auto* action = new QWidgetAction(menu);
    action->setDefaultWidget(panel);
    menu->addAction(action);
    button->setMenu(menu);
    button->setPopupMode(QToolButton::InstantPopup);
    return menu;
}

} // namespace

BrowserAddressBar::BrowserAddressBar(TavoBrowserTabs& state, CurrentView currentView, QWidget* parent)
    : QWidget(parent)
    , m_state(state)
    , m_currentView(std::move(currentView))
    , m_back(toolButton(this, QStringLiteral("go-previous"), QStringLiteral("Back")))
    , m_forward(toolButton(this, QStringLiteral("go-next"), QStringLiteral("Forward")))
    , m_reload(toolButton(this, QStringLiteral("view-refresh"), QStringLiteral("Reload")))
    , m_address(new QLineEdit(this))
    , m_zoom(toolButton(this, QStringLiteral("zoom-in"), QStringLiteral("Page zoom")))
    , m_save(toolButton(this, QStringLiteral("bookmark-new"), QStringLiteral("Save link")))
    , m_links(toolButton(this, QStringLiteral("bookmarks"), QStringLiteral("Saved links")))
    , m_split(toolButton(this, QStringLiteral("view-split-left-right"), QStringLiteral("Split view")))
    , m_incognito(toolButton(this, QStringLiteral("view-private"), QStringLiteral("Incognito")))
    , m_privateMode(toolButton(this, QStringLiteral("object-locked"), QStringLiteral("Private Mode")))
    , m_lock(toolButton(this, QStringLiteral("system-lock-screen"), QStringLiteral("Lock Private Mode")))
{
    design::name(this, QStringLiteral("Address bar"));
    m_address->setPlaceholderText(QStringLiteral("Search or enter a website"));
    m_address->setClearButtonEnabled(true);
    design::name(m_address, QStringLiteral("Address"));
    m_incognito->setCheckable(true);
    m_incognito->setText(QStringLiteral("Incognito"));
    m_incognito->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_split->setCheckable(true);
    m_privateMode->setText(QStringLiteral("Private Mode"));
    m_privateMode->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_lock->setText(QStringLiteral("Lock"));
    m_lock->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);

    const int gap = design::step(this);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(gap, gap / 2, gap, gap / 2);
    layout->setSpacing(gap / 2);
    for (QWidget* widget :
         {static_cast<QWidget*>(m_back), static_cast<QWidget*>(m_forward), static_cast<QWidget*>(m_reload)}) {
        layout->addWidget(widget);
    }
    layout->addWidget(m_address, 1);
    for (QWidget* widget :
         {static_cast<QWidget*>(m_zoom), static_cast<QWidget*>(m_split), static_cast<QWidget*>(m_save),
          static_cast<QWidget*>(m_links), static_cast<QWidget*>(m_incognito), static_cast<QWidget*>(m_privateMode),
          static_cast<QWidget*>(m_lock)}) {
        layout->addWidget(widget);
    }

    connect(m_back, &QToolButton::clicked, this, [this] {
        if (TavoWebView* view = m_currentView()) {
            view->back();
        }
    });
    connect(m_forward, &QToolButton::clicked, this, [this] {
        if (TavoWebView* view = m_currentView()) {
            view->forward();
        }
    });
    connect(m_reload, &QToolButton::clicked, this, [this] {
        if (TavoWebView* view = m_currentView()) {
            view->reload();
        }
    });
    connect(m_address, &QLineEdit::textEdited, &m_state, &TavoBrowserTabs::setAddress);
    connect(m_address, &QLineEdit::returnPressed, this, &BrowserAddressBar::navigate);
    connect(m_incognito, &QToolButton::clicked, &m_state, &TavoBrowserTabs::toggleIncognito);
    connect(m_split, &QToolButton::clicked, &m_state, &TavoBrowserTabs::toggleSplit);
    connect(m_privateMode, &QToolButton::clicked, this, &BrowserAddressBar::privateGateRequested);
    connect(m_lock, &QToolButton::clicked, &m_state, &TavoBrowserTabs::lockPrivateMode);
    connect(m_save, &QToolButton::clicked, this, &BrowserAddressBar::saveLinkRequested);

    m_zoomPanel = makeZoomPanel();
    panelMenu(m_zoom, m_zoomPanel);
    QMenu* links = panelMenu(m_links, makeSavedLinksPanel());
    connect(links, &QMenu::aboutToHide, this, [this] { m_linksShown = false; });
    connect(links, &QMenu::aboutToShow, this, [this] {
        m_linksShown = true;
        fillCollections();
        rebuildSavedLinks();
        m_linkSearch->setFocus();
    });

    connect(&m_state, &TavoBrowserTabs::addressChanged, this, &BrowserAddressBar::followAddress);
    connect(&m_state, &TavoBrowserTabs::modeChanged, this, &BrowserAddressBar::followMode);
    connect(&m_state, &TavoBrowserTabs::splitEnabledChanged, this, &BrowserAddressBar::followSplit);
    connect(&m_state, &TavoBrowserTabs::tabsChanged, this, [this] {
        // The other pane's page moved on; what the user is typing stays.
        if (!m_paneTab.isEmpty() && !m_address->hasFocus()) {
            followAddress();
        }
    });
    connect(&m_state, &TavoBrowserTabs::zoomLevelsChanged, this, &BrowserAddressBar::followZoom);
    connect(&m_state, &TavoBrowserTabs::selectedIDChanged, this, &BrowserAddressBar::followZoom);
    connect(&m_state, &TavoBrowserTabs::savedChanged, this, &BrowserAddressBar::rebuildSavedLinks);
    connect(&m_state, &TavoBrowserTabs::collectionsChanged, this, &BrowserAddressBar::fillCollections);
    followAddress();
    followMode();
    followSplit();
    followZoom();
}

void BrowserAddressBar::setPaneTab(const QString& tabID)
{
    m_paneTab = tabID == m_state.selectedID() ? QString() : tabID;
    followAddress();
}

void BrowserAddressBar::navigate()
{
    if (m_paneTab.isEmpty()) {
        m_state.navigate();
        return;
    }
    // The other pane's tab goes where the field says, under the same rules as the current one.
    for (const TavoBrowserTab& tab : m_state.tabs()) {
        if (tab.id == m_paneTab) {
            if (const std::optional<QString> url = TavoBrowserTabs::navigableAddress(m_address->text())) {
                m_state.update(tab.id, tab.title, *url);
            }
            return;
        }
    }
}

void BrowserAddressBar::followAddress()
{
    QString address = m_state.address();
    if (!m_paneTab.isEmpty()) {
        for (const TavoBrowserTab& tab : m_state.tabs()) {
            if (tab.id == m_paneTab) {
                address = tab.url;
            }
        }
    }
    // The Home tab's own address is not something to edit.
    const QString shown = address == homeURL ? QString() : address;
    if (m_address->text() != shown) {
        m_address->setText(shown);
    }
}

void BrowserAddressBar::followMode()
{
    m_incognito->setChecked(m_state.isIncognito());
    m_incognito->setEnabled(!m_state.isPrivateMode());
    m_privateMode->setVisible(!m_state.isPrivateMode());
    m_lock->setVisible(m_state.isPrivateMode());
}

void BrowserAddressBar::followSplit()
{
    m_split->setChecked(m_state.splitEnabled());
}

void BrowserAddressBar::followZoom()
{
    const int percent = int(std::lround(m_state.currentZoom() * 100));
    m_resetZoom->setText(QStringLiteral("Reset page zoom · %1%").arg(percent));
    design::name(m_resetZoom, m_resetZoom->text());
}

QWidget* BrowserAddressBar::makeZoomPanel()
{
    auto* panel = new QWidget;
    const int gap = design::step(panel);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(gap * 2, gap * 2, gap * 2, gap * 2);
    layout->setSpacing(gap);
    auto* heading = new QLabel(QStringLiteral("Page zoom"), panel);
    heading->setFont(design::sectionHeaderFont(heading->font()));
    layout->addWidget(heading);
    auto* row = new QHBoxLayout;
    auto* out = toolButton(panel, QStringLiteral("zoom-out"), QStringLiteral("Zoom out"));
    auto* in = toolButton(panel, QStringLiteral("zoom-in"), QStringLiteral("Zoom in"));
    m_resetZoom = new QPushButton(panel);
    row->addWidget(out);
    row->addWidget(m_resetZoom, 1);
    row->addWidget(in);
    layout->addLayout(row);
    connect(out, &QToolButton::clicked, &m_state, [this] { m_state.adjustZoom(-zoomStep); });
    connect(in, &QToolButton::clicked, &m_state, [this] { m_state.adjustZoom(zoomStep); });
    connect(m_resetZoom, &QPushButton::clicked, &m_state, &TavoBrowserTabs::resetZoom);
    return panel;
}

QWidget* BrowserAddressBar::makeSavedLinksPanel()
{
    auto* panel = new QWidget;
    panel->setMinimumWidth(420);
    const int gap = design::step(panel);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(gap * 2, gap * 2, gap * 2, gap * 2);
    layout->setSpacing(gap);
    m_linkSearch = new QLineEdit(panel);
    m_linkSearch->setPlaceholderText(QStringLiteral("Search saved links"));
    m_linkSearch->setClearButtonEnabled(true);
    design::name(m_linkSearch, QStringLiteral("Search saved links"));
    m_linkCollection = new QComboBox(panel);
    design::name(m_linkCollection, QStringLiteral("Collection"));
    auto* create =
        new QPushButton(design::icon(QStringLiteral("folder-new")), QStringLiteral("New collection…"), panel);
    design::name(create, QStringLiteral("New collection…"));
    auto* filters = new QHBoxLayout;
    filters->addWidget(m_linkSearch, 1);
    filters->addWidget(m_linkCollection);
    layout->addLayout(filters);
    m_linkList = new QListWidget(panel);
    m_linkList->setMinimumHeight(240);
    design::name(m_linkList, QStringLiteral("Saved links"));
    m_noLinks = new QLabel(QStringLiteral("No saved links yet"), panel);
    m_noLinks->setAlignment(Qt::AlignCenter);
    layout->addWidget(m_linkList, 1);
    layout->addWidget(m_noLinks);
    auto* help =
        new QLabel(QStringLiteral("Group links by project or purpose. Add a note and tags to each saved link."), panel);
    help->setWordWrap(true);
    QPalette quiet = help->palette();
    quiet.setColor(QPalette::WindowText, design::secondaryText(quiet));
    help->setPalette(quiet);
    layout->addWidget(help);
    m_import = new QPushButton(design::icon(QStringLiteral("document-import")),
                               QStringLiteral("Import Google Chrome bookmarks…"), panel);
    design::name(m_import, QStringLiteral("Import Google Chrome bookmarks…"));
    auto* actions = new QHBoxLayout;
    actions->addWidget(create);
    actions->addWidget(m_import);
    actions->addStretch(1);
    layout->addLayout(actions);

    connect(m_linkSearch, &QLineEdit::textChanged, this, &BrowserAddressBar::rebuildSavedLinks);
    connect(m_linkCollection, &QComboBox::currentIndexChanged, this, &BrowserAddressBar::rebuildSavedLinks);
    connect(m_linkList, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
        const QString url = item->data(Qt::UserRole).toString();
        m_links->menu()->close();
        m_state.open(url);
    });
    connect(m_import, &QPushButton::clicked, this, [this] {
        m_links->menu()->close();
        emit chromeImportRequested();
    });
    connect(create, &QPushButton::clicked, this, [this] {
        bool ok = false;
        const QString name =
            QInputDialog::getText(this, QStringLiteral("New collection"), QStringLiteral("Collection name"),
                                  QLineEdit::Normal, QString(), &ok);
        if (ok) {
            m_state.ensureCollection(name);
        }
    });
    return panel;
}

void BrowserAddressBar::fillCollections()
{
    if (!m_linkCollection) {
        return;
    }
    const QString chosen = m_linkCollection->currentData().toString();
    const QSignalBlocker quiet(m_linkCollection);
    m_linkCollection->clear();
    m_linkCollection->addItem(QStringLiteral("All collections"), QString());
    for (const TavoBrowserCollection& collection : m_state.collections()) {
        m_linkCollection->addItem(collection.title, collection.title);
    }
    m_linkCollection->setCurrentIndex(qMax(0, m_linkCollection->findData(chosen)));
}

void BrowserAddressBar::rebuildSavedLinks()
{
    // The list is filled while the menu is open, and when it opens.
    if (!m_linkList || !m_linksShown) {
        return;
    }
    m_linkList->clear();
    const QString collection = m_linkCollection->currentData().toString();
    const QString search = m_linkSearch->text();
    for (const TavoSavedSite& site : m_state.saved()) {
        if (!TavoBrowserTabs::savedSiteVisible(site, collection, search)) {
            continue;
        }
        auto* item = new QListWidgetItem(m_linkList);
        item->setData(Qt::UserRole, site.url);
        auto* row = new QWidget;
        auto* rowLayout = new QHBoxLayout(row);
        rowLayout->setContentsMargins(4, 2, 4, 2);
        auto* text = new QLabel(QStringLiteral("<b>%1</b><br><small>%2</small>")
                                    .arg(site.title.toHtmlEscaped(),
                                         QString(site.collection + QStringLiteral(" · ") + site.url).toHtmlEscaped()),
                                row);
        text->setTextFormat(Qt::RichText);
        rowLayout->addWidget(text, 1);
        if (site.id == homeTabID) {
            auto* house = new QLabel(row);
            house->setPixmap(design::icon(QStringLiteral("go-home")).pixmap(16, 16));
            house->setAccessibleName(QStringLiteral("Built-in link"));
            rowLayout->addWidget(house);
        } else {
            auto* remove = toolButton(row, QStringLiteral("edit-delete"), QStringLiteral("Remove ") + site.title);
            const QString id = site.id;
            // Queued: removing the link rebuilds the list, this button with it.
            connect(
                remove, &QToolButton::clicked, &m_state, [this, id] { m_state.removeBookmark(id); },
                Qt::QueuedConnection);
            rowLayout->addWidget(remove);
        }
        item->setSizeHint(row->sizeHint());
        m_linkList->setItemWidget(item, row);
    }
    m_noLinks->setVisible(m_linkList->count() == 0);
}

} // namespace tavo
