#pragma once

#include "language/shortcut_record.h"

#include <QDeadlineTimer>
#include <QMainWindow>

#include <optional>

class QStackedWidget;
class QToolButton;

namespace tavo {

class ApiConfigurationPage;
class AppBuilderPage;
class BrowserWorkspace;
class CollectionLibraryPage;
class DB;
class DashboardPage;
class ExchangeActions;
class Defaults;
class InlineMessage;
class PageHeader;
class RegistrationView;
class SettingsPage;
class ShortcutListPage;
class SideMenu;
class TavoAccountStore;
class TavoBrowserTabs;

// The one main window: the registration screen until someone is signed in, then the workspace,
// a section at a time beside the side menu, with the window's one notice line. Closing it leaves
// Tavo running in the tray.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    MainWindow(DB& db, TavoAccountStore& accounts, Defaults& defaults, QWidget* parent = nullptr);
    ~MainWindow() override;

    static const QStringList& sections();
    // The sections whose screens exist, in the side menu's order: the only ones that open.
    static QStringList menuSections();
    QString section() const { return m_section; }
    void setSection(const QString& section);

    QString notice() const;
    void setNotice(const QString& text);
    void setWarning(const QString& text);
    // What the keyboard tap can do here, shown in Settings: empty when it runs.
    void setKeyboardProblem(const QString& problem);

    ShortcutListPage* shortcutList() const { return m_list; }
    DashboardPage* dashboard() const { return m_dashboard; }
    CollectionLibraryPage* collections() const { return m_collections; }
    ApiConfigurationPage* apiConfiguration() const { return m_apiConfiguration; }
    AppBuilderPage* appBuilder() const { return m_appBuilder; }
    RegistrationView* registration() const { return m_registration; }
    ExchangeActions* exchange() const { return m_exchange; }
    // The browser's model lives as long as the window; its screen only once "Browser" was shown,
    // so that the web engine starts for those who browse and no one else.
    TavoBrowserTabs& browserTabs() const { return *m_browserTabs; }
    BrowserWorkspace* browser() const { return m_browser; }

    // A page in a new tab of the built-in browser, brought to the front: website shortcuts and
    // other sections' links.
    void openTavoBrowser(const QString& url);

    // "Paste many" and "Bulk media", from the Add menu, the File menu and the picker.
    void openBulkSheet();
    void openBulkMediaSheet();

    // The editor over the window: a shortcut to edit or a draft, or nothing for a new one.
    void openEditor(const std::optional<Clip>& chosen, const QString& defaultGroup = {});
    void addClipboardShortcut();
    void newShortcut(const QString& group = {});

    // Registration or workspace, as the account says; a new account's screen starts clean.
    void showAccountState();

    // "Hide menu labels" and "Hide left menu completely", kept across restarts.
    bool sidebarCollapsed() const { return m_sidebarCollapsed; }
    void setSidebarCollapsed(bool collapsed);
    bool sidebarHidden() const { return m_sidebarHidden; }
    void setSidebarHidden(bool hidden);

signals:
    // The Dashboard's "Open the picker": the application shows it over this window.
    void pickerRequested();

protected:
    void closeEvent(QCloseEvent* event) override;
    bool event(QEvent* event) override;

private:
    QWidget* buildWorkspace();
    void buildFileMenu();
    void openSectionAt(int index);
    void focusPageSearch();
    void showBrowser();

    DB& m_db;
    TavoAccountStore& m_accounts;
    Defaults& m_defaults;
    QString m_section;
    QStackedWidget* m_screens;
    RegistrationView* m_registration;
    SideMenu* m_menu = nullptr;
    QToolButton* m_showMenu = nullptr;
    PageHeader* m_header = nullptr;
    InlineMessage* m_notice = nullptr;
    QStackedWidget* m_pages = nullptr;
    DashboardPage* m_dashboard = nullptr;
    ShortcutListPage* m_list = nullptr;
    CollectionLibraryPage* m_collections = nullptr;
    SettingsPage* m_settings = nullptr;
    ApiConfigurationPage* m_apiConfiguration = nullptr;
    AppBuilderPage* m_appBuilder = nullptr;
    ExchangeActions* m_exchange = nullptr;
    TavoBrowserTabs* m_browserTabs = nullptr;
    BrowserWorkspace* m_browser = nullptr;
    QDeadlineTimer m_inFrontUntil; // expired unless a page was just opened from elsewhere
    bool m_reactivationScheduled = false;
    QList<QAction*> m_fileActions;
    bool m_sidebarCollapsed = false;
    bool m_sidebarHidden = false;
    bool m_painted = false;
};

// Start at log-in through an XDG autostart entry.
bool startsAtLogin();
bool setStartsAtLogin(bool on, const QString& program);

} // namespace tavo
