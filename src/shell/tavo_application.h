#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QPointer>

#include <memory>

class QAction;
class QSystemTrayIcon;

namespace tavo {

class DB;
class Defaults;
class ExpansionRunner;
class LibsecretStore;
class QtPasteboard;
class QuillAppDelegate;
class MainWindow;
class PickerPanel;
class TavoAccountStore;
class X11Desktop;
class X11KeyboardTap;

// The running application: one process with a tray icon, the keyboard tap and the expansion
// engine over the signed-in profile. It keeps running with no window open, since it serves the
// clipboard it pastes from.
class TavoApplication : public QObject
{
    Q_OBJECT

public:
    explicit TavoApplication(QObject* parent = nullptr);
    ~TavoApplication() override;

    // False when the application should not run (another instance has it); exitCode() says how.
    bool start();
    int exitCode() const { return m_exitCode; }

    void showMainWindow();
    MainWindow* mainWindow() const { return m_window.get(); }

signals:
    // A complete builder command, typed and ended or finished on the picker's card: its output
    // is to be made from `trigger`, the command's text.
    void tavoBuilderGenerateShortcut(const QString& trigger);

private:
    bool claimSingleInstance();
    void activateSignedInProfile();
    void connectPicker();
    void showNotice(const QString& text);
    void setPaused(bool paused);

    int m_exitCode = 0;
    QLockFile m_instanceLock;
    QLocalServer m_instanceServer;

    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<LibsecretStore> m_keyring;
    std::unique_ptr<TavoAccountStore> m_accounts;
    std::unique_ptr<DB> m_db;
    std::unique_ptr<X11KeyboardTap> m_tap;
    std::unique_ptr<X11Desktop> m_desktop;
    std::unique_ptr<QtPasteboard> m_pasteboard;
    std::unique_ptr<QuillAppDelegate> m_delegate;
    std::unique_ptr<ExpansionRunner> m_runner;
    std::unique_ptr<MainWindow> m_window;
    std::unique_ptr<PickerPanel> m_picker;
    QPointer<QSystemTrayIcon> m_tray;
    QAction* m_pauseAction = nullptr;
};

} // namespace tavo
