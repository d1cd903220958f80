#include "shell/main_window.h"

#include "shell/registration_view.h"
#include "shell/shortcut_editor.h"
#include "shell/shortcut_list_page.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QCloseEvent>
#include <QDir>
#include <QFile>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QLoggingCategory>
#include <QMenu>
#include <QPushButton>
#include <QStackedWidget>
#include <QStandardPaths>
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

MainWindow::MainWindow(DB& db, TavoAccountStore& accounts, Defaults& defaults, QWidget* parent)
    : QMainWindow(parent)
    , m_db(db)
    , m_accounts(accounts)
    , m_defaults(defaults)
    , m_screens(new QStackedWidget(this))
    , m_registration(new RegistrationView(accounts, this))
{
    setWindowTitle(QStringLiteral("Tavo"));
    setWindowIcon(QIcon::fromTheme(QStringLiteral("tavo"), QIcon::fromTheme(QStringLiteral("input-keyboard"))));
    m_screens->addWidget(m_registration);
    m_screens->addWidget(buildWorkspace());
    setCentralWidget(m_screens);
    resize(1040, 680);
    if (const std::optional<QString> geometry = m_defaults.string(geometryKey)) {
        restoreGeometry(QByteArray::fromBase64(geometry->toLatin1()));
    }
    connect(&m_accounts, &TavoAccountStore::isAuthenticatedChanged, this, &MainWindow::showAccountState);
    setSection(QStringLiteral("Dashboard"));
    showAccountState();
}

QWidget* MainWindow::buildWorkspace()
{
    auto* workspace = new QWidget(this);
    m_menu = new QListWidget(workspace);
    m_menu->setObjectName(QStringLiteral("sideMenu"));
    m_menu->addItems(sections());
    m_menu->setFixedWidth(190);
    connect(m_menu, &QListWidget::currentTextChanged, this, &MainWindow::setSection);

    m_sectionTitle = new QLabel(workspace);
    m_sectionTitle->setStyleSheet(QStringLiteral("font-size: 18pt; font-weight: 600;"));
    m_notice = new QLabel(workspace);
    m_notice->setObjectName(QStringLiteral("notice"));
    m_notice->setWordWrap(true);
    m_notice->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto* quickAdd = new QToolButton(workspace);
    quickAdd->setObjectName(QStringLiteral("quickAdd"));
    quickAdd->setText(QStringLiteral("+ Add"));
    quickAdd->setPopupMode(QToolButton::InstantPopup);
    auto* menu = new QMenu(quickAdd);
    menu->addAction(QStringLiteral("From clipboard"), this, &MainWindow::addClipboardShortcut);
    QAction* newAction = menu->addAction(QStringLiteral("New shortcut"), this, [this] { newShortcut(); });
    newAction->setShortcut(QKeySequence::New);
    addAction(newAction); // Ctrl+N works with the menu closed
    for (const QString& later :
         {QStringLiteral("Paste many"), QStringLiteral("Bulk media"), QStringLiteral("Crop Screen")}) {
        menu->addAction(later)->setEnabled(false); // their tools come later
    }
    quickAdd->setMenu(menu);

    m_list = new ShortcutListPage(m_db, workspace);
    connect(m_list, &ShortcutListPage::editRequested, this, [this](const Clip& clip) { openEditor(clip); });
    connect(m_list, &ShortcutListPage::noticeRequested, this, &MainWindow::setNotice);
    m_settings = buildSettings();
    m_placeholder = new QWidget(workspace);
    m_pages = new QStackedWidget(workspace);
    m_pages->addWidget(m_list);
    m_pages->addWidget(m_settings);
    m_pages->addWidget(m_placeholder);

    auto* header = new QHBoxLayout;
    header->addWidget(m_sectionTitle);
    header->addStretch();
    header->addWidget(quickAdd);
    auto* content = new QVBoxLayout;
    content->addLayout(header);
    content->addWidget(m_notice);
    content->addWidget(m_pages, 1);
    auto* layout = new QHBoxLayout(workspace);
    layout->addWidget(m_menu);
    layout->addLayout(content, 1);
    return workspace;
}

QWidget* MainWindow::buildSettings()
{
    auto* page = new QWidget(this);
    m_signedInAs = new QLabel(page);
    m_keyboardState = new QLabel(page);
    m_keyboardState->setObjectName(QStringLiteral("keyboardState"));
    m_keyboardState->setWordWrap(true);
    m_autostart = new QCheckBox(QStringLiteral("Start Tavo when I log in"), page);
    m_autostart->setObjectName(QStringLiteral("autostart"));
    m_autostart->setChecked(startsAtLogin());
    connect(m_autostart, &QCheckBox::toggled, this, [this](bool on) {
        if (!setStartsAtLogin(on, QApplication::applicationFilePath())) {
            setNotice(QStringLiteral("Could not change the log-in start of Tavo."));
        }
    });
    auto* signOut = new QPushButton(QStringLiteral("Sign out"), page);
    signOut->setObjectName(QStringLiteral("signOut"));
    connect(signOut, &QPushButton::clicked, &m_accounts, &TavoAccountStore::signOut);
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(m_signedInAs);
    layout->addWidget(m_keyboardState);
    layout->addWidget(m_autostart);
    layout->addWidget(signOut, 0, Qt::AlignLeft);
    layout->addStretch();
    setKeyboardProblem(QString());
    return page;
}

void MainWindow::setSection(const QString& section)
{
    if (!sections().contains(section)) {
        return;
    }
    m_section = section;
    m_sectionTitle->setText(section);
    if (m_menu->currentItem() == nullptr || m_menu->currentItem()->text() != section) {
        const QSignalBlocker blocker(m_menu);
        m_menu->setCurrentRow(int(sections().indexOf(section)));
    }
    if (listSections.contains(section)) {
        m_list->setSection(section);
        m_pages->setCurrentWidget(m_list);
    } else if (section == QLatin1String("Settings")) {
        m_pages->setCurrentWidget(m_settings);
    } else {
        m_pages->setCurrentWidget(m_placeholder); // its tools come in their own time
    }
}

QString MainWindow::notice() const
{
    return m_notice->text();
}

void MainWindow::setNotice(const QString& text)
{
    m_notice->setText(text);
}

void MainWindow::setKeyboardProblem(const QString& problem)
{
    m_keyboardState->setText(
        problem.isEmpty()
            ? QStringLiteral("Keyboard access: ready. Type \\ or / and a shortcut's key, then a space, in any "
                             "application.")
            : QStringLiteral("Keyboard access: not available. %1 Tavo follows typing in an X11 session whose "
                             "server offers XTEST; log in to an X11 (Xorg) session and start Tavo again.")
                  .arg(problem));
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
    if (m_accounts.isAuthenticated()) {
        m_signedInAs->setText(QStringLiteral("Signed in as ") + m_accounts.currentUsername());
        m_screens->setCurrentIndex(1); // the list follows the profile's activation
    } else {
        m_notice->clear();
        m_list->clear();
        m_registration->setCreating(m_accounts.currentUsername().isEmpty());
        m_screens->setCurrentWidget(m_registration);
        m_registration->setFocus();
    }
}

bool MainWindow::event(QEvent* event)
{
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
