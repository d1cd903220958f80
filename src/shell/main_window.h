#pragma once

#include "language/shortcut_record.h"

#include <QMainWindow>

#include <optional>

class QCheckBox;
class QLabel;
class QListWidget;
class QStackedWidget;
class QToolButton;

namespace tavo {

class DB;
class Defaults;
class RegistrationView;
class ShortcutListPage;
class TavoAccountStore;

// The one main window: the registration screen until someone is signed in, then the workspace,
// a section at a time beside the side menu, with the window's one notice line. Closing it leaves
// Tavo running in the tray.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    MainWindow(DB& db, TavoAccountStore& accounts, Defaults& defaults, QWidget* parent = nullptr);

    static const QStringList& sections();
    QString section() const { return m_section; }
    void setSection(const QString& section);

    QString notice() const;
    void setNotice(const QString& text);
    // What the keyboard tap can do here, shown in Settings: empty when it runs.
    void setKeyboardProblem(const QString& problem);

    ShortcutListPage* shortcutList() const { return m_list; }
    RegistrationView* registration() const { return m_registration; }

    // The editor over the window: a shortcut to edit or a draft, or nothing for a new one.
    void openEditor(const std::optional<Clip>& chosen, const QString& defaultGroup = {});
    void addClipboardShortcut();
    void newShortcut(const QString& group = {});

    // Registration or workspace, as the account says; a new account's screen starts clean.
    void showAccountState();

protected:
    void closeEvent(QCloseEvent* event) override;
    bool event(QEvent* event) override;

private:
    QWidget* buildWorkspace();
    QWidget* buildSettings();

    DB& m_db;
    TavoAccountStore& m_accounts;
    Defaults& m_defaults;
    QString m_section;
    QStackedWidget* m_screens;
    RegistrationView* m_registration;
    QListWidget* m_menu = nullptr;
    QLabel* m_sectionTitle = nullptr;
    QLabel* m_notice = nullptr;
    QStackedWidget* m_pages = nullptr;
    ShortcutListPage* m_list = nullptr;
    QWidget* m_settings = nullptr;
    QWidget* m_placeholder = nullptr;
    QLabel* m_keyboardState = nullptr;
    QLabel* m_signedInAs = nullptr;
    QCheckBox* m_autostart = nullptr;
    bool m_painted = false;
};

// Start at log-in through an XDG autostart entry.
bool startsAtLogin();
bool setStartsAtLogin(bool on, const QString& program);

} // namespace tavo
