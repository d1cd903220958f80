#include "shell/tavo_application.h"

#include "engine/expansion_runner.h"
#include "engine/quill_app_delegate.h"
#include "picker/picker_panel.h"
#include "platform/qt/qt_pasteboard.h"
#include "platform/secret/libsecret_store.h"
#include "platform/x11/x11_desktop.h"
#include "platform/x11/x11_keyboard_tap.h"
#include "shell/main_window.h"
#include "shell/shortcut_list_page.h"
#include "shell/ui/design.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"
#include "store/seeds.h"

#include <QApplication>
#include <QDir>
#include <QLocalSocket>
#include <QLoggingCategory>
#include <QMenu>
#include <QStandardPaths>
#include <QSystemTrayIcon>

#include <cstdio>

namespace tavo {

// Quiet unless asked for (QT_LOGGING_RULES="tavo.shell.info=true"): notices name the keys a
// person typed.
Q_LOGGING_CATEGORY(lcShell, "tavo.shell", QtWarningMsg)

namespace {

QString runtimeFolder()
{
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    return runtime.isEmpty() ? QDir::tempPath() : runtime;
}

QString instanceName()
{
    // One name per user session: the runtime folder is the user's own.
    return QStringLiteral("tavo-") + QString::number(qHash(runtimeFolder()), 16);
}

const QString tapFailedNotice = QStringLiteral("Tavo needs keyboard access to open the shortcut picker.");
const QString builderGenerationUnavailable = QStringLiteral("Generating builder outputs is not available yet.");

} // namespace

TavoApplication::TavoApplication(QObject* parent)
    : QObject(parent)
    , m_instanceLock(runtimeFolder() + QStringLiteral("/tavo.lock"))
{
}

TavoApplication::~TavoApplication() = default;

bool TavoApplication::claimSingleInstance()
{
    m_instanceLock.setStaleLockTime(0);
    if (m_instanceLock.tryLock(0)) {
        QLocalServer::removeServer(instanceName());
        m_instanceServer.listen(instanceName());
        connect(&m_instanceServer, &QLocalServer::newConnection, this, [this] {
            while (QLocalSocket* socket = m_instanceServer.nextPendingConnection()) {
                socket->deleteLater();
                showMainWindow(); // a second start asks this one to show itself
            }
        });
        return true;
    }
    QLocalSocket socket;
    socket.connectToServer(instanceName());
    socket.waitForConnected(500);
    std::fputs("Tavo is already running.\n", stderr);
    return false;
}

bool TavoApplication::start()
{
    if (!claimSingleInstance()) {
        m_exitCode = 0;
        return false;
    }

    design::installStyle();
    design::useIconThemeFor(QApplication::palette());
    m_defaults = std::make_unique<Defaults>();
    m_defaults->watchForChanges();
    m_keyring = std::make_unique<LibsecretStore>();
    KeyStore::setBackend(m_keyring.get());
    m_accounts = std::make_unique<TavoAccountStore>(*m_defaults);
    m_accounts->followSignInsElsewhere();
    m_db = std::make_unique<DB>(*m_defaults);
    m_db->writeInBackground(); // a save never holds up the clipboard or the tap
    m_tap = std::make_unique<X11KeyboardTap>();
    m_desktop = std::make_unique<X11Desktop>();
    m_pasteboard = std::make_unique<QtPasteboard>();
    m_delegate = std::make_unique<QuillAppDelegate>(*m_tap);
    m_runner =
        std::make_unique<ExpansionRunner>(*m_db, *m_accounts, *m_defaults, *m_delegate, *m_desktop, *m_pasteboard);
    m_window = std::make_unique<MainWindow>(*m_db, *m_accounts, *m_defaults);

    connect(m_delegate.get(), &QuillAppDelegate::openPickerRequested, m_runner.get(), &ExpansionRunner::openPicker);
    connectPicker();
    connect(m_delegate.get(), &QuillAppDelegate::expansionPlanned, m_runner.get(), &ExpansionRunner::carryOutPlanned);
    connect(m_pasteboard.get(), &QtPasteboard::dataRequested, m_runner.get(), &ExpansionRunner::pasteTaken);
    connect(m_runner.get(), &ExpansionRunner::noticeChanged, this, &TavoApplication::showNotice);
    connect(m_runner.get(), &ExpansionRunner::showSelfRequested, this, &TavoApplication::showMainWindow);
    connect(m_runner.get(), &ExpansionRunner::tavoBrowserRequested, m_window.get(), &MainWindow::openTavoBrowser);
    connect(m_delegate.get(), &QuillAppDelegate::tapFailed, this, [this](const QString& reason) {
        m_window->setKeyboardProblem(reason);
        m_window->setWarning(tapFailedNotice);
        if (m_tray && !m_window->isVisible()) {
            // Nothing expands until this is fixed: worth a message even with the window closed.
            m_tray->showMessage(QStringLiteral("Tavo"), tapFailedNotice, QSystemTrayIcon::Warning, 8000);
        }
    });
    connect(m_delegate.get(), &QuillAppDelegate::tapInstalled, this, [this] {
        qCInfo(lcShell) << "keyboard tap running";
        m_window->setKeyboardProblem(QString());
    });
    connect(m_accounts.get(), &TavoAccountStore::isAuthenticatedChanged, this, [this](bool signedIn) {
        if (signedIn) {
            activateSignedInProfile();
        }
    });

    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        m_tray = new QSystemTrayIcon(QIcon::fromTheme(QStringLiteral("input-keyboard")), this);
        auto* menu = new QMenu();
        menu->addAction(QStringLiteral("Open"), this, &TavoApplication::showMainWindow);
        m_pauseAction = menu->addAction(QStringLiteral("Pause expansion"));
        m_pauseAction->setCheckable(true);
        connect(m_pauseAction, &QAction::toggled, this, &TavoApplication::setPaused);
        menu->addSeparator();
        menu->addAction(QStringLiteral("Quit"), qApp, &QApplication::quit);
        m_tray->setContextMenu(menu);
        m_tray->setToolTip(QStringLiteral("Tavo"));
        connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger) {
                showMainWindow();
            }
        });
        m_tray->show();
    }

    if (m_accounts->isAuthenticated()) {
        activateSignedInProfile();
    }
    m_delegate->installSlashTap();
    if (!m_accounts->isAuthenticated()) {
        showMainWindow(); // someone has to sign in first
    } else if (!m_tray) {
        // With no tray to reach it from, the window is how Tavo shows it runs; it must not take
        // the keyboard from the application the user is typing in.
        m_window->setAttribute(Qt::WA_ShowWithoutActivating);
        m_window->show();
        m_window->setAttribute(Qt::WA_ShowWithoutActivating, false);
    }
    return true;
}

void TavoApplication::connectPicker()
{
    m_picker = std::make_unique<PickerPanel>(*m_defaults);
    PickerPanel* picker = m_picker.get();
    connect(m_delegate.get(), &QuillAppDelegate::openPickerRequested, picker, [this] {
        if (m_accounts->isAuthenticated()) {
            m_picker->showFor(*m_db);
        }
    });
    connect(m_delegate.get(), &QuillAppDelegate::pickerQueryChanged, picker, &PickerPanel::setQuery);
    connect(m_delegate.get(), &QuillAppDelegate::chooseFirstRequested, picker, &PickerPanel::chooseFirst);
    connect(m_delegate.get(), &QuillAppDelegate::closePickerRequested, picker, &PickerPanel::hidePanel);
    connect(m_runner.get(), &ExpansionRunner::hidePickerRequested, picker, &PickerPanel::hidePanel);
    connect(picker, &PickerPanel::chosen, m_runner.get(),
            [this](const Clip& clip) { m_runner->chooseClip(clip, false); });
    connect(picker, &PickerPanel::closed, m_delegate.get(), [this] {
        m_delegate->setPickerActive(false);
        m_delegate->setImagePromptMode(false);
    });
    connect(picker, &PickerPanel::showHiddenOnlyChanged, m_runner.get(), &ExpansionRunner::setPickerShowsHiddenOnly);

    // Inline commands: the runner hands the picker a face, the face hands back what to paste.
    ExpansionRunner* runner = m_runner.get();
    connect(runner, &ExpansionRunner::promptCommandEntered, picker, &PickerPanel::enterPromptCommand);
    connect(runner, &ExpansionRunner::rewriteCommandEntered, picker, &PickerPanel::enterRewriteCommand);
    connect(runner, &ExpansionRunner::imageCommandEntered, picker, &PickerPanel::enterImageCommand);
    connect(runner, &ExpansionRunner::promptEditorFocusRequested, picker, &PickerPanel::focusPromptEditor);
    connect(runner, &ExpansionRunner::pickerQueryRequested, picker, &PickerPanel::setQuery);

    // Builder commands: the card completes what was typed; a complete command asks for its
    // output, which nothing makes yet but a notice says so.
    connect(runner, &ExpansionRunner::builderCardRequested, picker, &PickerPanel::showBuilderCommand);
    connect(runner, &ExpansionRunner::builderGenerateRequested, this, &TavoApplication::tavoBuilderGenerateShortcut);
    connect(picker, &PickerPanel::builderGenerateRequested, this, &TavoApplication::tavoBuilderGenerateShortcut);
    connect(this, &TavoApplication::tavoBuilderGenerateShortcut, this, [this](const QString& trigger) {
        qCInfo(lcShell).noquote() << "TavoBuilderGenerateShortcut:" << trigger;
        showNotice(builderGenerationUnavailable);
        m_picker->showBuilderStatus(builderGenerationUnavailable);
    });
    connect(m_delegate.get(), &QuillAppDelegate::imagePromptInput, picker, [this](const QString& text) {
        m_picker->imagePromptInput(text == QLatin1String("__PASTE__") ? m_pasteboard->string() : text);
    });
    connect(picker, &PickerPanel::fieldKeyboardChanged, m_delegate.get(), [this](bool has) {
        m_delegate->setPanelFieldHasKeyboard(has);
        qCInfo(lcShell) << (has ? "a picker field has the keyboard" : "the picker's fields gave the keyboard back");
    });
    connect(picker, &PickerPanel::rewritePasteRequested, runner, &ExpansionRunner::pasteRewrite);
    connect(picker, &PickerPanel::promptPasteRequested, runner, &ExpansionRunner::pastePrompt);
    connect(picker, &PickerPanel::promptCopyRequested, runner, &ExpansionRunner::copyPrompt);
    connect(picker, &PickerPanel::promptMediaCopyRequested, runner, &ExpansionRunner::copyPromptMedia);
    connect(picker, &PickerPanel::openTavoRequested, this, &TavoApplication::showMainWindow);
    connect(m_window.get(), &MainWindow::pickerRequested, picker, [this] {
        if (m_accounts->isAuthenticated()) {
            m_picker->showFor(*m_db);
        }
    });
    connect(picker, &PickerPanel::manageRequested, this, [this] {
        showMainWindow();
        m_window->setSection(QStringLiteral("My shortcuts"));
    });
    connect(picker, &PickerPanel::editRequested, this, [this](const Clip& clip) {
        showMainWindow();
        m_window->openEditor(clip);
    });
    connect(picker, &PickerPanel::deleteRequested, this, [this](const Clip& clip) {
        showMainWindow();
        m_window->shortcutList()->confirmAndDelete({clip});
    });
    connect(picker, &PickerPanel::quickAddRequested, this, [this](const QString& action) {
        showMainWindow();
        if (action == QLatin1String("New shortcut")) {
            m_window->newShortcut();
        } else if (action == QLatin1String("From clipboard")) {
            m_window->addClipboardShortcut();
        } else if (action == QLatin1String("Paste many")) {
            m_window->openBulkSheet();
        } else if (action == QLatin1String("Bulk media")) {
            m_window->openBulkMediaSheet();
        }
    });
}

void TavoApplication::activateSignedInProfile()
{
    m_db->activateProfile(m_accounts->currentUsername(), m_accounts->legacyEmailToMigrate());
    m_db->watchForChanges();
    // Activation has refreshed the list (it follows every change of the shortcuts); the seeds
    // come in after it.
    seedDefaultShortcuts(*m_db, QStringLiteral("tavo"), QCoreApplication::applicationFilePath());
}

void TavoApplication::showMainWindow()
{
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void TavoApplication::showNotice(const QString& text)
{
    qCInfo(lcShell).noquote() << "notice:" << text;
    m_window->setNotice(text);
}

void TavoApplication::setPaused(bool paused)
{
    m_delegate->setPaused(paused);
    showNotice(paused ? QStringLiteral("Expansion is paused.") : QStringLiteral("Expansion is on again."));
}

} // namespace tavo
