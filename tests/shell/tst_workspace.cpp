#include "browser/browser_tabs.h"
#include "browser/web/browser_workspace.h"
#include "engine/expansion_runner.h"
#include "platform/secret/libsecret_store.h"
#include "shell/dashboard_page.h"
#include "shell/main_window.h"
#include "shell/ui/card.h"
#include "shell/ui/empty_state.h"
#include "shell/ui/inline_message.h"
#include "shell/ui/page_header.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QToolButton>
#include <QtTest>

using namespace tavo;

// The workspace around the pages: the side menu and its settings, the keys that open sections,
// the Browser section's late start, the Dashboard's first steps, and the shared pieces every page
// is built from.
class TestWorkspace : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void sideMenuSettingsSurviveARestart_data();
    void sideMenuSettingsSurviveARestart();
    void ctrlNumberOpensOnlyWhatTheMenuShows_data();
    void ctrlNumberOpensOnlyWhatTheMenuShows();
    void theBrowserStartsWhenFirstShown_data();
    void theBrowserStartsWhenFirstShown();
    void websiteShortcutSetting();
    void gettingStartedUntilTheFirstExpansion();
    void sharedPieces();

private:
    void restart();

    LibsecretStore m_keyring;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
    std::unique_ptr<TavoAccountStore> m_accounts;
    std::unique_ptr<MainWindow> m_window;
};

void TestWorkspace::initTestCase()
{
    KeyStore::setBackend(&m_keyring);
    Defaults defaults(QDir::home().filePath(QStringLiteral("defaults-setup.json")));
    TavoAccountStore accounts(defaults);
    QVERIFY(accounts.registerAccount(QStringLiteral("menu"), QStringLiteral("long enough")));
}

void TestWorkspace::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    restart();
    QVERIFY(m_accounts->signIn(QStringLiteral("menu"), QStringLiteral("long enough")));
    m_db->activateProfile(QStringLiteral("menu"));
}

void TestWorkspace::cleanup()
{
    m_window.reset();
    m_accounts.reset();
    m_db.reset();
    m_defaults.reset();
}

// A new process over the same settings file.
void TestWorkspace::restart()
{
    m_window.reset();
    m_accounts.reset();
    m_db.reset();
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(QStringLiteral("defaults.json")));
    m_db = std::make_unique<DB>(*m_defaults, m_dir->filePath(QStringLiteral("Tavo")));
    m_accounts = std::make_unique<TavoAccountStore>(*m_defaults);
    m_window = std::make_unique<MainWindow>(*m_db, *m_accounts, *m_defaults);
    m_window->show();
}

void TestWorkspace::sideMenuSettingsSurviveARestart_data()
{
    QTest::addColumn<QString>("control"); // what the user clicks
    QTest::addColumn<bool>("collapsed");
    QTest::addColumn<bool>("hidden");
    QTest::newRow("labels hidden from the menu") << QStringLiteral("hideMenuLabels") << true << false;
    QTest::newRow("labels hidden from Settings") << QStringLiteral("menuLabelsSetting") << true << false;
    QTest::newRow("menu hidden from the menu") << QStringLiteral("hideMenu") << false << true;
    QTest::newRow("menu hidden from Settings") << QStringLiteral("menuHiddenSetting") << false << true;
}

void TestWorkspace::sideMenuSettingsSurviveARestart()
{
    QFETCH(QString, control);
    QFETCH(bool, collapsed);
    QFETCH(bool, hidden);
    m_window->setSection(QStringLiteral("Settings"));
    auto* button = m_window->findChild<QAbstractButton*>(control);
    QVERIFY(button);
    button->click();
    QCOMPARE(m_window->sidebarCollapsed(), collapsed);
    QCOMPARE(m_window->sidebarHidden(), hidden);

    restart();
    QCOMPARE(m_window->sidebarCollapsed(), collapsed);
    QCOMPARE(m_window->sidebarHidden(), hidden);
    auto* menu = m_window->findChild<QListWidget*>(QStringLiteral("sideMenu"));
    QCOMPARE(menu->isVisible(), !hidden);
    // With labels hidden a row shows its icon alone and keeps its name for tooltips and readers.
    const QListWidgetItem* first = menu->item(0);
    QCOMPARE(first->text().isEmpty(), collapsed);
    QCOMPARE(first->data(Qt::AccessibleTextRole).toString(), QStringLiteral("Dashboard"));
    auto* showMenu = m_window->findChild<QToolButton*>(QStringLiteral("showMenu"));
    QCOMPARE(showMenu->isVisible(), hidden);
    if (hidden) {
        showMenu->click();
        QVERIFY(menu->isVisible());
        QVERIFY(!m_defaults->flag(QStringLiteral("tavoSidebarHidden")));
    }
}

void TestWorkspace::ctrlNumberOpensOnlyWhatTheMenuShows_data()
{
    QTest::addColumn<int>("digit");
    QTest::addColumn<QString>("section"); // where the window is after the key
    QTest::newRow("Ctrl+1") << 1 << QStringLiteral("Dashboard");
    QTest::newRow("Ctrl+2") << 2 << QStringLiteral("My shortcuts");
    QTest::newRow("Ctrl+3") << 3 << QStringLiteral("Collections");
    QTest::newRow("Ctrl+7") << 7 << QStringLiteral("API configuration");
    QTest::newRow("Ctrl+8") << 8 << QStringLiteral("Settings");
    QTest::newRow("Ctrl+9") << 9 << QStringLiteral("AppBuilder");
    QTest::newRow("Ctrl+0 is the tenth, Browser, the last in the menu") << 0 << QStringLiteral("Browser");
}

void TestWorkspace::ctrlNumberOpensOnlyWhatTheMenuShows()
{
    QFETCH(int, digit);
    QFETCH(QString, section);
    m_window->setSection(QStringLiteral("Sound & media"));
    // A section without its screen is neither in the menu nor reachable by name.
    m_window->setSection(QStringLiteral("Marketplace"));
    QCOMPARE(m_window->section(), QStringLiteral("Sound & media"));
    QVERIFY(!MainWindow::menuSections().contains(QStringLiteral("Marketplace")));

    QVERIFY(QTest::qWaitForWindowActive(m_window.get()) || QTest::qWaitForWindowExposed(m_window.get()));
    QTest::keyClick(m_window.get(), Qt::Key(Qt::Key_0 + digit), Qt::ControlModifier);
    QCOMPARE(m_window->section(), section);
}

void TestWorkspace::theBrowserStartsWhenFirstShown_data()
{
    QTest::addColumn<QString>("route");
    QTest::addColumn<QString>("section"); // where the window is after it
    QTest::addColumn<int>("newTabs");
    QTest::newRow("other sections leave the web engine alone") << "Settings"
                                                               << "Settings" << 0;
    QTest::newRow("the side menu") << "menu"
                                   << "Browser" << 0;
    QTest::newRow("a page opened from elsewhere") << "open"
                                                  << "Browser" << 1;
}

void TestWorkspace::theBrowserStartsWhenFirstShown()
{
    QFETCH(QString, route);
    QFETCH(QString, section);
    QFETCH(int, newTabs);
    const qsizetype tabsBefore = m_window->browserTabs().tabs().size();
    QVERIFY(!m_window->browser());
    const QString page = QStringLiteral("http://127.0.0.1:9/page");
    if (route == QLatin1String("menu")) {
        auto* menu = m_window->findChild<QListWidget*>(QStringLiteral("sideMenu"));
        const QList<QListWidgetItem*> rows = menu->findItems(QStringLiteral("Browser"), Qt::MatchExactly);
        QCOMPARE(rows.size(), 1);
        menu->setCurrentItem(rows.first());
    } else if (route == QLatin1String("open")) {
        m_window->setSection(QStringLiteral("Settings"));
        m_window->openTavoBrowser(page);
    } else {
        m_window->setSection(route);
    }
    QCOMPARE(m_window->section(), section);
    const bool browsing = section == QLatin1String("Browser");
    QCOMPARE(m_window->browser() != nullptr, browsing);
    QCOMPARE(m_window->browserTabs().tabs().size(), tabsBefore + newTabs);
    QCOMPARE(m_window->findChild<PageHeader*>(QStringLiteral("sectionHeader"))->isVisible(), !browsing);
    if (browsing) {
        QVERIFY(m_window->browser()->isVisible());
        QCOMPARE(m_window->browserTabs().current()->url, newTabs ? page : homeURL);
    }
    // The page header comes back with the next section.
    m_window->setSection(QStringLiteral("Dashboard"));
    QVERIFY(m_window->findChild<PageHeader*>(QStringLiteral("sectionHeader"))->isVisible());
}

void TestWorkspace::websiteShortcutSetting()
{
    m_window->setSection(QStringLiteral("Settings"));
    auto* choice = m_window->findChild<QComboBox*>(QStringLiteral("websiteShortcutsIn"));
    QCOMPARE(choice->currentText(), QStringLiteral("Tavo Browser"));
    QCOMPARE(choice->accessibleName(), QStringLiteral("Open website shortcuts in:"));
    choice->setCurrentIndex(choice->findText(QStringLiteral("my default browser")));
    QCOMPARE(m_defaults->boolean(websiteShortcutsInDefaultBrowserKey), std::optional<bool>(true));
    restart();
    m_window->setSection(QStringLiteral("Settings"));
    choice = m_window->findChild<QComboBox*>(QStringLiteral("websiteShortcutsIn"));
    QCOMPARE(choice->currentText(), QStringLiteral("my default browser"));
    QVERIFY(!m_window->browser()); // Settings never start the web engine
}

void TestWorkspace::gettingStartedUntilTheFirstExpansion()
{
    m_window->setSection(QStringLiteral("Dashboard"));
    DashboardPage* dashboard = m_window->dashboard();
    auto* card = dashboard->findChild<QWidget*>(QStringLiteral("gettingStarted"));
    QVERIFY(card->isVisible());
    dashboard->findChild<QPushButton*>(QStringLiteral("startExpand"))->click();
    QCOMPARE(m_window->section(), QStringLiteral("My shortcuts"));

    // Another account's use does not count; this account's first expansion does.
    m_defaults->setNumber(metricStorageKey(QStringLiteral("someone else"), QStringLiteral("shortcutsUsed")), 4);
    m_window->setSection(QStringLiteral("Dashboard"));
    QVERIFY(card->isVisible());
    m_defaults->setNumber(metricStorageKey(QStringLiteral("Menu"), QStringLiteral("shortcutsUsed")), 1);
    QVERIFY(!card->isVisible());
}

void TestWorkspace::sharedPieces()
{
    QWidget page;
    auto* header = new PageHeader(QStringLiteral("Title"), QString(), &page);
    auto* message = new InlineMessage(&page);
    auto* empty = new EmptyState(QStringLiteral("edit-find"), QStringLiteral("No shortcuts match"),
                                 QStringLiteral("Nothing matches."), QString(), &page);
    auto* card = new Card(QStringLiteral("Account"), QStringLiteral("user-identity"), &page);
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));

    // A header without a subtitle shows no empty line; with one, it shows it.
    auto* subtitle = header->findChild<QLabel*>(QStringLiteral("pageSubtitle"));
    QVERIFY(!subtitle->isVisible());
    header->setSubtitle(QStringLiteral("One line"));
    QVERIFY(subtitle->isVisible());

    // A message shows until closed, and an empty one is no message.
    QVERIFY(!message->isVisible());
    QSignalSpy closed(message, &InlineMessage::closed);
    message->showMessage(QStringLiteral("Saved."), InlineMessage::Kind::Warning);
    QVERIFY(message->isVisible());
    QCOMPARE(message->kind(), InlineMessage::Kind::Warning);
    message->findChild<QToolButton*>(QStringLiteral("inlineMessageClose"))->click();
    QVERIFY(!message->isVisible());
    QCOMPARE(closed.size(), 1);
    message->showMessage(QStringLiteral("Again."));
    QVERIFY(message->isVisible());
    message->showMessage(QString());
    QVERIFY(!message->isVisible());

    // An empty state without an action shows no button; given one, its click is the action.
    QVERIFY(!empty->actionButton()->isVisible());
    QSignalSpy acted(empty, &EmptyState::actionTriggered);
    empty->setAction(QStringLiteral("Clear search"));
    QVERIFY(empty->actionButton()->isVisible());
    empty->actionButton()->click();
    QCOMPARE(acted.size(), 1);

    QCOMPARE(card->title(), QStringLiteral("Account"));
    QVERIFY(card->findChild<QLabel*>(QStringLiteral("cardTitle"))->font().weight() > page.font().weight());
}

int main(int argc, char** argv)
{
    // The Browser section's web engine asks for this before the application exists.
    QApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    TestWorkspace test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_workspace.moc"
