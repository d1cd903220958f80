#include "shell/main_window.h"

#include "browser/browser_tabs.h"
#include "browser/web/browser_workspace.h"
#include "exchange/shortcut_share.h"
#include "shell/api_configuration_page.h"
#include "shell/app_builder_page.h"
#include "shell/bulk_media_sheet.h"
#include "shell/bulk_sheet.h"
#include "shell/collection_library_page.h"
#include "shell/dashboard_page.h"
#include "shell/exchange_actions.h"
#include "shell/registration_view.h"
#include "shell/settings_page.h"
#include "shell/shortcut_editor.h"
#include "shell/shortcut_list_page.h"
#include "shell/side_menu.h"
#include "shell/ui/design.h"
#include "shell/ui/inline_message.h"
#include "shell/ui/page_header.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QDir>
#include <QFile>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QLoggingCategory>
#include <QMenu>
#include <QMenuBar>
#include <QShortcut>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcWindow, "tavo.shell.window", QtWarningMsg)

const QString geometryKey = QStringLiteral("tavoMainWindowGeometry");
const QStringList listSections = {QStringLiteral("My shortcuts"), QStringLiteral("Live & dynamic"),
                                  QStringLiteral("Sound & media"), QStringLiteral("Shortcut ideas")};

QString autostartPath()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::ConfigLocation))
        .filePath(QStringLiteral("autostart/tavo.desktop"));
}

} // namespace

bool startsAtLogin()
{
    return QFile::exists(autostartPath());
}

bool setStartsAtLogin(bool on, const QString& program)
{
    const QString path = autostartPath();
    if (!on) {
        return !QFile::exists(path) || QFile::remove(path);
    }
    QDir().mkpath(QFileInfo(path).path());
    QFile entry(path);
    if (!entry.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    entry.write(QStringLiteral("[Desktop Entry]\nType=Application\nName=Tavo\nExec=%1\nIcon=tavo\n"
                               "X-GNOME-Autostart-enabled=true\n")
                    .arg(program)
                    .toUtf8());
    return entry.error() == QFile::NoError;
}

const QStringList& MainWindow::sections()
{
    static const QStringList all = {
        QStringLiteral("Dashboard"),     QStringLiteral("My shortcuts"),      QStringLiteral("Collections"),
        QStringLiteral("Marketplace"),   QStringLiteral("API configuration"), QStringLiteral("Live & dynamic"),
        QStringLiteral("Sound & media"), QStringLiteral("Shortcut ideas"),    QStringLiteral("Settings"),
        QStringLiteral("Lumen Studio"),  QStringLiteral("AppBuilder"),        QStringLiteral("Browser"),
        QStringLiteral("Apps & links"),  QStringLiteral("Desktop apps"),      QStringLiteral("User guide")};
    return all;
}

namespace {

struct SectionLook
{
    SideMenu::Entry entry;
    QString subtitle;
};

// The sections that have a screen, in the menu's order; a section comes in here with its screen.
const QList<SectionLook>& sectionLooks()
{
    static const QList<SectionLook> looks = {
        {{QStringLiteral("Dashboard"), QStringLiteral("go-home"), QString()},
         QStringLiteral("Your activity with Tavo, and how to begin")},
        {{QStringLiteral("My shortcuts"), QStringLiteral("view-list-details"), QStringLiteral("Library")},
         QStringLiteral("Every shortcut you keep; type its key and a space in any application")},
        {{QStringLiteral("Collections"), QStringLiteral("folder"), QStringLiteral("Library")},
         QStringLiteral("Collections of shortcuts and records, their categories and repeats")},
        {{QStringLiteral("Live & dynamic"), QStringLiteral("chronometer"), QStringLiteral("Library")},
         QStringLiteral("Shortcuts with live values such as {{date}} and {{clipboard}}")},
        {{QStringLiteral("Sound & media"), QStringLiteral("applications-multimedia"), QStringLiteral("Library")},
         QStringLiteral("Shortcuts that paste images, sound and other files")},
        {{QStringLiteral("Shortcut ideas"), QStringLiteral("help-hint"), QStringLiteral("Library")},
         QStringLiteral("Shortcuts kept in the Ideas collection")},
        {{QStringLiteral("API configuration"), QStringLiteral("network-server"), QStringLiteral("Setup")},
         QStringLiteral("One shared model library for AppBuilder and Collection Builder.")},
        {{QStringLiteral("Settings"), QStringLiteral("configure"), QStringLiteral("Setup")},
         QStringLiteral("Your account, keyboard access, start-up, website shortcuts and the picker")},
        {{QStringLiteral("AppBuilder"), QStringLiteral("tools-wizard"), QStringLiteral("Setup")},
         QStringLiteral("Apps that turn a typed command into a document, a message or an image")},
        {{QStringLiteral("Browser"), QStringLiteral("internet-web-browser"), QStringLiteral("Web")},
         QStringLiteral("Tabs, saved links and collections, kept apart from your other browsers")},
    };
    return looks;
}

const QString sidebarCollapsedKey = QStringLiteral("tavoSidebarCollapsed");
const QString sidebarHiddenKey = QStringLiteral("tavoSidebarHidden");
const QString browserSection = QStringLiteral("Browser");
// How long after a page opened from elsewhere Tavo keeps itself in front through a new window.
constexpr int bringForwardMs = 5000;

} // namespace

QStringList MainWindow::menuSections()
{
    QStringList names;
    for (const SectionLook& look : sectionLooks()) {
        names << look.entry.section;
    }
    return names;
}

MainWindow::MainWindow(DB& db, TavoAccountStore& accounts, Defaults& defaults, QWidget* parent)
    : QMainWindow(parent)
    , m_db(db)
    , m_accounts(accounts)
    , m_defaults(defaults)
    , m_screens(new QStackedWidget(this))
    , m_registration(new RegistrationView(accounts, this))
    , m_browserTabs(new TavoBrowserTabs(defaults, this))
{
    setWindowTitle(QStringLiteral("Tavo"));
    setWindowIcon(QIcon::fromTheme(QStringLiteral("tavo"), design::icon(QStringLiteral("input-keyboard"))));
    m_screens->addWidget(m_registration);
    m_screens->addWidget(buildWorkspace());
    setCentralWidget(m_screens);
    buildFileMenu();
    resize(1040, 680);
    if (const std::optional<QString> geometry = m_defaults.string(geometryKey)) {
        restoreGeometry(QByteArray::fromBase64(geometry->toLatin1()));
    }
    connect(&m_accounts, &TavoAccountStore::isAuthenticatedChanged, this, &MainWindow::showAccountState);
    setSidebarCollapsed(m_defaults.flag(sidebarCollapsedKey));
    setSidebarHidden(m_defaults.flag(sidebarHiddenKey));
    setSection(QStringLiteral("Dashboard"));
    showAccountState();
}

QWidget* MainWindow::buildWorkspace()
{
    auto* workspace = new QWidget(this);
    QList<SideMenu::Entry> entries;
    for (const SectionLook& look : sectionLooks()) {
        entries << look.entry;
    }
    m_menu = new SideMenu(entries, workspace);
    connect(m_menu, &SideMenu::sectionChosen, this, &MainWindow::setSection);
    connect(m_menu, &SideMenu::labelsHiddenToggled, this, &MainWindow::setSidebarCollapsed);
    connect(m_menu, &SideMenu::hideRequested, this, [this] { setSidebarHidden(true); });

    m_showMenu = new QToolButton(workspace);
    m_showMenu->setObjectName(QStringLiteral("showMenu"));
    m_showMenu->setAutoRaise(true);
    m_showMenu->setIcon(design::icon(QStringLiteral("view-left-new")));
    design::name(m_showMenu, QStringLiteral("Show left menu"));
    connect(m_showMenu, &QToolButton::clicked, this, [this] { setSidebarHidden(false); });

    m_header = new PageHeader(QString(), QString(), workspace);
    m_header->setObjectName(QStringLiteral("sectionHeader"));
    m_notice = new InlineMessage(workspace);
    m_notice->setObjectName(QStringLiteral("notice"));

    auto* quickAdd = new QToolButton(workspace);
    quickAdd->setObjectName(QStringLiteral("quickAdd"));
    quickAdd->setText(QStringLiteral("Add"));
    quickAdd->setIcon(design::icon(QStringLiteral("list-add")));
    quickAdd->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    quickAdd->setPopupMode(QToolButton::InstantPopup);
    design::name(quickAdd, QStringLiteral("Add shortcuts"));
    auto* menu = new QMenu(quickAdd);
    menu->addAction(design::icon(QStringLiteral("edit-paste")), QStringLiteral("From clipboard"), this,
                    &MainWindow::addClipboardShortcut);
    QAction* newAction = menu->addAction(design::icon(QStringLiteral("document-new")), QStringLiteral("New shortcut"),
                                         this, [this] { newShortcut(); });
    newAction->setShortcut(QKeySequence::New);
    addAction(newAction); // Ctrl+N works with the menu closed
    menu->addAction(design::icon(QStringLiteral("text-csv")), QStringLiteral("Paste many"), this,
                    &MainWindow::openBulkSheet);
    menu->addAction(design::icon(QStringLiteral("folder-pictures")), QStringLiteral("Bulk media"), this,
                    &MainWindow::openBulkMediaSheet);
    menu->addAction(QStringLiteral("Crop Screen"))->setEnabled(false); // its tool comes later
    quickAdd->setMenu(menu);
    m_header->addAction(quickAdd);

    m_dashboard = new DashboardPage(m_db, m_accounts, m_defaults, workspace);
    connect(m_dashboard, &DashboardPage::sectionRequested, this, &MainWindow::setSection);
    connect(m_dashboard, &DashboardPage::newShortcutRequested, this, [this] { newShortcut(); });
    connect(m_dashboard, &DashboardPage::pickerRequested, this, &MainWindow::pickerRequested);
    connect(m_dashboard, &DashboardPage::buildCollectionRequested, this, [this] {
        setSection(QStringLiteral("Collections"));
        m_collections->openNewCollection();
    });
    m_exchange = new ExchangeActions(m_db, m_accounts, this);
    connect(m_exchange, &ExchangeActions::notice, this, &MainWindow::setNotice);
    connect(m_exchange, &ExchangeActions::warning, this, &MainWindow::setWarning);
    m_list = new ShortcutListPage(m_db, workspace);
    connect(m_list, &ShortcutListPage::shareRequested, this, [this](const QList<Clip>& clips) {
        m_exchange->shareShortcuts(ShareText::selectedShortcutsTitle, clips, m_list);
    });
    connect(m_list, &ShortcutListPage::editRequested, this, [this](const Clip& clip) { openEditor(clip); });
    connect(m_list, &ShortcutListPage::noticeRequested, this, &MainWindow::setNotice);
    connect(m_list, &ShortcutListPage::newShortcutRequested, this, &MainWindow::newShortcut);
    m_collections = new CollectionLibraryPage(m_db, workspace);
    connect(m_collections, &CollectionLibraryPage::editRequested, this, [this](const Clip& clip) { openEditor(clip); });
    connect(m_collections, &CollectionLibraryPage::newShortcutRequested, this, &MainWindow::newShortcut);
    connect(m_collections, &CollectionLibraryPage::noticeRequested, this, &MainWindow::setNotice);
    connect(m_collections, &CollectionLibraryPage::shareRequested, this,
            [this](const QString& name) { m_exchange->shareCollection(name, m_collections); });
    // The scorecard's repeats come from the library's own load, never from the window's thread.
    connect(m_collections, &CollectionLibraryPage::duplicatesCounted, m_dashboard, &DashboardPage::setDuplicateCounts);
    m_settings = new SettingsPage(m_accounts, m_defaults, workspace);
    connect(m_settings, &SettingsPage::noticeRequested, this, &MainWindow::setWarning);
    connect(m_settings, &SettingsPage::menuLabelsHiddenToggled, this, &MainWindow::setSidebarCollapsed);
    connect(m_settings, &SettingsPage::menuHiddenToggled, this, &MainWindow::setSidebarHidden);
    m_pages = new QStackedWidget(workspace);
    m_pages->addWidget(m_dashboard);
    m_pages->addWidget(m_list);
    m_pages->addWidget(m_collections);
    m_apiConfiguration = new ApiConfigurationPage(m_defaults, workspace);
    m_pages->addWidget(m_apiConfiguration);
    m_appBuilder = new AppBuilderPage(m_db, m_defaults, workspace);
    connect(m_appBuilder, &AppBuilderPage::collectionsRequested, this,
            [this] { setSection(QStringLiteral("Collections")); });
    m_pages->addWidget(m_appBuilder);
    m_pages->addWidget(m_settings);

    // Ctrl+1 to Ctrl+9, then Ctrl+0, open the menu's first ten sections, as the number row runs;
    // Ctrl+F the page's search.
    for (int index = 0; index < 10; ++index) {
        const Qt::Key digit = index < 9 ? Qt::Key(Qt::Key_1 + index) : Qt::Key_0;
        auto* jump = new QShortcut(QKeySequence(Qt::CTRL | digit), workspace);
        connect(jump, &QShortcut::activated, this, [this, index] { openSectionAt(index); });
    }
    auto* find = new QShortcut(QKeySequence::Find, workspace);
    connect(find, &QShortcut::activated, this, &MainWindow::focusPageSearch);

    const int gap = design::step(workspace, 2);
    auto* top = new QHBoxLayout;
    top->addWidget(m_showMenu, 0, Qt::AlignTop);
    top->addWidget(m_header, 1);
    auto* content = new QVBoxLayout;
    content->setSpacing(design::step(workspace));
    content->addLayout(top);
    content->addWidget(m_notice);
    content->addWidget(m_pages, 1);
    auto* layout = new QHBoxLayout(workspace);
    layout->setContentsMargins(gap, gap, gap, gap);
    layout->setSpacing(gap);
    layout->addWidget(m_menu);
    layout->addLayout(content, 1);
    return workspace;
}

void MainWindow::buildFileMenu()
{
    QMenu* file = menuBar()->addMenu(QStringLiteral("&File"));
    file->setObjectName(QStringLiteral("fileMenu"));
    const auto add = [this, file](const QString& icon, const QString& text, auto slot) {
        QAction* action = file->addAction(design::icon(icon), text, m_exchange, slot);
        m_fileActions << action;
        return action;
    };
    add(QStringLiteral("document-import"), QStringLiteral("Import shortcut package…"),
        &ExchangeActions::importSharedShortcut);
    add(QStringLiteral("document-share"), QStringLiteral("Share all shortcuts…"),
        [this] { m_exchange->shareCollection(ShareText::allCollections); });
    file->addSeparator();
    add(QStringLiteral("document-save"), QStringLiteral("Back up profile…"), &ExchangeActions::exportProfileBackup);
    add(QStringLiteral("document-revert"), QStringLiteral("Restore from backup…"),
        &ExchangeActions::importProfileBackup);
    file->addSeparator();
    add(QStringLiteral("text-csv"), QStringLiteral("Import CSV…"), [this] { openBulkSheet(); });
    add(QStringLiteral("document-export"), QStringLiteral("Export CSV…"), &ExchangeActions::exportCSV);
    file->addSeparator();
    file->addAction(design::icon(QStringLiteral("window-close")), QStringLiteral("Close window"), this, &QWidget::close)
        ->setShortcut(QKeySequence::Close);
    m_settings->setDataActions(m_fileActions);
    // One archive at a time: the actions wait while one is being made or read.
    connect(m_exchange, &ExchangeActions::busyChanged, this, [this](bool busy) {
        for (QAction* action : std::as_const(m_fileActions)) {
            action->setEnabled(!busy);
        }
    });
}

void MainWindow::openBulkSheet()
{
    if (!m_accounts.isAuthenticated()) {
        return;
    }
    auto* sheet = new BulkSheet(m_db, this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    connect(sheet, &BulkSheet::imported, this, &MainWindow::setNotice);
    sheet->open();
}

void MainWindow::openBulkMediaSheet()
{
    if (!m_accounts.isAuthenticated()) {
        return;
    }
    auto* sheet = new BulkMediaSheet(m_db, this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    connect(sheet, &BulkMediaSheet::saved, this, &MainWindow::setNotice);
    sheet->open();
}

void MainWindow::setSection(const QString& section)
{
    if (!menuSections().contains(section)) {
        return; // its screen is not there yet: nothing leads to an empty page
    }
    m_section = section;
    qCInfo(lcWindow).noquote() << "section:" << section;
    for (const SectionLook& look : sectionLooks()) {
        if (look.entry.section == section) {
            m_header->setTitle(section);
            m_header->setSubtitle(look.subtitle);
        }
    }
    m_menu->setCurrentSection(section);
    if (listSections.contains(section)) {
        m_list->setSection(section);
        m_pages->setCurrentWidget(m_list);
    } else if (section == QLatin1String("Collections")) {
        m_pages->setCurrentWidget(m_collections);
    } else if (section == QLatin1String("API configuration")) {
        m_pages->setCurrentWidget(m_apiConfiguration);
    } else if (section == QLatin1String("AppBuilder")) {
        m_pages->setCurrentWidget(m_appBuilder);
    } else if (section == QLatin1String("Settings")) {
        m_pages->setCurrentWidget(m_settings);
    } else if (section == browserSection) {
        showBrowser();
    } else {
        m_pages->setCurrentWidget(m_dashboard);
    }
    // The browser takes all the room beside the side menu; its tab strip says where one is.
    m_header->setVisible(section != browserSection);
}

void MainWindow::showBrowser()
{
    if (!m_browser) {
        m_browser = new BrowserWorkspace(*m_browserTabs, m_defaults, m_pages);
        m_pages->addWidget(m_browser);
    }
    m_pages->setCurrentWidget(m_browser);
}

void MainWindow::openTavoBrowser(const QString& url)
{
    setSection(browserSection);
    m_browser->openTavoBrowser(url);
    m_inFrontUntil.setRemainingTime(bringForwardMs);
    show();
    raise();
    activateWindow();
}

void MainWindow::openSectionAt(int index)
{
    const QStringList shown = menuSections();
    if (m_accounts.isAuthenticated() && index >= 0 && index < shown.size()) {
        setSection(shown.at(index));
    }
}

void MainWindow::focusPageSearch()
{
    // The page's own search field, whatever page it is: each names it "search…".
    const QList<QLineEdit*> fields = m_pages->currentWidget()->findChildren<QLineEdit*>();
    for (QLineEdit* field : fields) {
        if (field->objectName().startsWith(QLatin1String("search")) && field->isVisible()) {
            field->setFocus(Qt::ShortcutFocusReason);
            field->selectAll();
            return;
        }
    }
}

void MainWindow::setSidebarCollapsed(bool collapsed)
{
    m_sidebarCollapsed = collapsed;
    m_menu->setLabelsHidden(collapsed);
    m_settings->setMenuOptions(m_sidebarCollapsed, m_sidebarHidden);
    if (m_defaults.flag(sidebarCollapsedKey) != collapsed) {
        m_defaults.setBoolean(sidebarCollapsedKey, collapsed);
    }
}

void MainWindow::setSidebarHidden(bool hidden)
{
    m_sidebarHidden = hidden;
    m_menu->setVisible(!hidden);
    m_showMenu->setVisible(hidden);
    m_settings->setMenuOptions(m_sidebarCollapsed, m_sidebarHidden);
    if (m_defaults.flag(sidebarHiddenKey) != hidden) {
        m_defaults.setBoolean(sidebarHiddenKey, hidden);
    }
}

QString MainWindow::notice() const
{
    return m_notice->text();
}

void MainWindow::setNotice(const QString& text)
{
    qCInfo(lcWindow).noquote() << "notice:" << text;
    m_notice->showMessage(text, InlineMessage::Kind::Information);
}

void MainWindow::setWarning(const QString& text)
{
    qCInfo(lcWindow).noquote() << "warning:" << text;
    m_notice->showMessage(text, InlineMessage::Kind::Warning);
}

void MainWindow::setKeyboardProblem(const QString& problem)
{
    m_settings->setKeyboardProblem(problem);
}

void MainWindow::openEditor(const std::optional<Clip>& chosen, const QString& defaultGroup)
{
    if (!m_accounts.isAuthenticated()) {
        return; // Ctrl+N on the sign-in screen: no profile to write into
    }
    auto* editor = new ShortcutEditor(m_db, chosen, defaultGroup, this);
    editor->setAttribute(Qt::WA_DeleteOnClose);
    editor->open();
}

void MainWindow::newShortcut(const QString& group)
{
    openEditor(std::nullopt, group);
}

void MainWindow::addClipboardShortcut()
{
    if (!m_accounts.isAuthenticated()) {
        return;
    }
    const std::optional<Clip> draft =
        clipboardDraft(QApplication::clipboard()->mimeData(), m_db.clips(), m_db.attachmentsDir());
    if (!draft) {
        setNotice(QStringLiteral("Copy some text, an image, or a file first."));
        return;
    }
    openEditor(draft);
}

void MainWindow::showAccountState()
{
    // The File menu acts on a profile: without an account there is none.
    menuBar()->setVisible(m_accounts.isAuthenticated());
    if (m_accounts.isAuthenticated()) {
        m_settings->showAccount();
        m_screens->setCurrentIndex(1); // the list follows the profile's activation
        m_dashboard->refresh();
    } else {
        m_notice->showMessage(QString());
        m_list->clear();
        m_collections->clear();
        m_registration->setCreating(m_accounts.currentUsername().isEmpty());
        m_screens->setCurrentWidget(m_registration);
        m_registration->setFocus();
    }
}

MainWindow::~MainWindow()
{
    // The browser's screen shows the model's tabs: it goes first, whatever order children go in.
    delete m_browser;
}

bool MainWindow::event(QEvent* event)
{
    if (event->type() == QEvent::WinIdChange && !m_inFrontUntil.hasExpired() && !m_reactivationScheduled) {
        // The first web page makes Qt create the window anew for GPU drawing; the new one must not
        // leave the focus where the old one gave it back.
        m_reactivationScheduled = true;
        QTimer::singleShot(0, this, [this] {
            m_reactivationScheduled = false;
            raise();
            activateWindow();
        });
    }
    if (event->type() == QEvent::Paint && !m_painted) {
        m_painted = true;
        qCInfo(lcWindow) << "main window painted";
    }
    return QMainWindow::event(event);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    // The window goes, Tavo stays in the tray: it still expands and serves the clipboard.
    m_defaults.setString(geometryKey, QString::fromLatin1(saveGeometry().toBase64()));
    event->accept();
}

} // namespace tavo
