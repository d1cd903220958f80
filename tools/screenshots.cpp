// Renders each screen of Tavo into PNG files, for the design notes and the README:
//   screenshots OUT_DIR light|dark
// Run it through scripts/screenshots, which gives it a private home and keyring and renders the
// light, dark and 2× sets (QT_SCALE_FACTOR=2 for the last).

#include "browser/browser_tabs.h"
#include "browser/web/browser_address_bar.h"
#include "browser/web/browser_magnifier_lens.h"
#include "browser/web/browser_private_gate.h"
#include "browser/web/browser_workspace.h"
#include "picker/picker_panel.h"
#include "platform/secret/libsecret_store.h"
#include "shell/app_builder_page.h"
#include "shell/bulk_media_sheet.h"
#include "shell/bulk_sheet.h"
#include "shell/collection_library_page.h"
#include "shell/collection_sheets.h"
#include "shell/main_window.h"
#include "shell/shortcut_editor.h"
#include "shell/ui/design.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"
#include "store/seeds.h"

#include <QApplication>
#include <QDialog>
#include <QUuid>

#include <QDir>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QMenu>
#include <QPixmap>
#include <QRegularExpression>
#include <QStyleFactory>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QToolButton>
#include <functional>

#include <cstdio>

using namespace tavo;

namespace {

void settle(int ms = 300)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms) {
        QApplication::processEvents(QEventLoop::AllEvents, 20);
    }
}

bool save(QWidget* widget, const QString& folder, const QString& name)
{
    settle();
    const QString path = QDir(folder).filePath(name + QStringLiteral(".png"));
    if (!widget->grab().save(path)) {
        std::fprintf(stderr, "could not write %s\n", qPrintable(path));
        return false;
    }
    std::printf("%s\n", qPrintable(path));
    return true;
}

Clip shortcut(const QString& key, const QString& name, const QString& text, const QString& group)
{
    Clip clip;
    clip.key = key;
    clip.name = name;
    clip.text = text;
    clip.group = group;
    return clip;
}

// The browser's screens, on a page served from loopback so that nothing leaves the machine.
bool saveBrowserScreens(Defaults& defaults, const QString& folder)
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&server] {
        while (QTcpSocket* socket = server.nextPendingConnection()) {
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [socket] {
                const QByteArray body =
                    "<!doctype html><html><head><title>Field notes</title></head>"
                    "<body style='font-family:sans-serif;margin:40px;color:#223'>"
                    "<h1 style='color:#2a5db0'>Field notes</h1><p>Meet the team at the studio on Thursday at "
                    "10:30. Bring the printed proofs and the colour swatches.</p><ul><li>Proofs, 3 copies</li>"
                    "<li>Swatches: teal, amber, slate</li><li>Invoice #2048</li></ul>"
                    "<h2>Agenda</h2><p>Review the spring catalogue layout, agree on the cover photograph, "
                    "and confirm the print run with the shop. Samples of the paper stock arrive on Monday; "
                    "the binding quote follows by the end of the week.</p><p>Open questions: the font licence "
                    "for the web edition, the delivery address for the launch boxes, and who proofreads the "
                    "price list.</p></body></html>";
                socket->write("HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
                              QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
                socket->disconnectFromHost();
            });
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
    const QString page = QStringLiteral("http://127.0.0.1:%1/notes").arg(server.serverPort());

    TavoBrowserTabs tabs(defaults);
    for (const auto& [title, url] : std::initializer_list<std::pair<QString, QString>>{
             {QStringLiteral("Studio calendar"), QStringLiteral("https://calendar.example.com")},
             {QStringLiteral("Client portal"), QStringLiteral("https://portal.example.com/acme")},
             {QStringLiteral("Design system"), QStringLiteral("https://design.example.com/tokens")}}) {
        tabs.saveCurrent(title, url, {QStringLiteral("work")}, QString(), favoritesCollection);
    }
    BrowserWorkspace workspace(tabs, defaults);
    workspace.resize(1100, 700);
    workspace.show();
    bool ok = save(&workspace, folder, QStringLiteral("browser-home"));

    // The menu runs its own loop while it is open.
    QToolButton* links = workspace.addressBar()->savedLinksTool();
    QTimer::singleShot(200, links, [&] {
        ok = save(links->menu(), folder, QStringLiteral("browser-saved-links")) && ok;
        links->menu()->close();
    });
    links->showMenu();

    workspace.openPrivateGate();
    if (BrowserPrivateGateSheet* gate = workspace.privateGate()) {
        ok = save(gate, folder, QStringLiteral("browser-private-gate")) && ok;
        gate->close();
    }

    tabs.newTab(page);
    QElapsedTimer waited;
    waited.start();
    while (tabs.current()->title != QStringLiteral("Field notes") && waited.elapsed() < 20000) {
        settle(100);
    }
    workspace.lens()->setWanted(true);
    settle(1500); // a snapshot of the painted page
    ok = save(&workspace, folder, QStringLiteral("browser-lens")) && ok;
    workspace.lens()->setWanted(false);
    tabs.toggleSplit();
    settle(1000);
    ok = save(&workspace, folder, QStringLiteral("browser-split")) && ok;
    return ok;
}

} // namespace

int main(int argc, char* argv[])
{
    // The browser's web pages draw through contexts shared with the application's own; Chromium's
    // sandbox cannot run in the private home, and there is no GPU offscreen.
    QApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    if (!qEnvironmentVariableIsSet("QTWEBENGINE_CHROMIUM_FLAGS")) {
        qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--disable-gpu");
    }
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    QApplication app(argc, argv);
    if (argc < 3) {
        std::fputs("usage: screenshots OUT_DIR light|dark\n", stderr);
        return 2;
    }
    const QString folder = QString::fromLocal8Bit(argv[1]);
    const bool dark = qstrcmp(argv[2], "dark") == 0;
    QDir().mkpath(folder);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    if (dark) {
        QApplication::setPalette(design::darkPalette());
    }
    design::installStyle();
    design::useIconThemeFor(QApplication::palette());

    LibsecretStore keyring;
    KeyStore::setBackend(&keyring);
    Defaults defaults;
    if (dark) {
        defaults.setString(QStringLiteral("quillTheme"), QStringLiteral("Dark"));
    }
    DB db(defaults);
    TavoAccountStore accounts(defaults);
    MainWindow window(db, accounts, defaults);
    window.resize(1100, 700);
    window.show();
    bool ok = save(&window, folder, QStringLiteral("registration"));

    if (!accounts.registerAccount(QStringLiteral("sam"), QStringLiteral("a long password"))) {
        std::fputs("could not make the account\n", stderr);
        return 1;
    }
    db.activateProfile(QStringLiteral("sam"));
    seedDefaultShortcuts(db, QStringLiteral("tavo"), QStringLiteral("/usr/bin/tavo"));
    QList<Clip> clips = db.clips();
    clips.prepend(shortcut(QStringLiteral("/sig"), QStringLiteral("Signature"),
                           QStringLiteral("Best regards,\nSam Rivera\nRivera Design Studio"), QStringLiteral("Work")));
    clips.prepend(shortcut(QStringLiteral("/today"), QStringLiteral("Today's date"), QStringLiteral("{{date}}"),
                           QStringLiteral("Live & dynamic")));
    clips.append(shortcut(QStringLiteral("/sig"), QStringLiteral("Short signature"), QStringLiteral("Sam"),
                          QStringLiteral("Personal"))); // a repeated code for the duplicates panel
    db.setClips(clips);
    db.save();
    QStringList collections = db.collections();
    collections << QStringLiteral("Clients");
    db.setCollections(collections);
    CollectionDefinition customers = CollectionDefinition::emptyFor(QStringLiteral("Clients"));
    for (const QString& field : {QStringLiteral("Email"), QStringLiteral("Phone"), QStringLiteral("City")}) {
        CollectionFieldDefinition each;
        each.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
        each.name = field;
        customers.fields << each;
    }
    QList<CollectionDefinition> definitions = db.collectionDefinitions();
    definitions << customers;
    db.setCollectionDefinitions(definitions);
    QList<CollectionRecord> records;
    const QList<QStringList> people = {
        {QStringLiteral("Acme Corporation"), QStringLiteral("acme"), QStringLiteral("orders@acme.example"),
         QStringLiteral("+1 555 0100"), QStringLiteral("Springfield")},
        {QStringLiteral("Globex"), QStringLiteral("globex"), QStringLiteral("hello@globex.example"),
         QStringLiteral("+1 555 0142"), QStringLiteral("Cypress Creek")},
        {QStringLiteral("Initech"), QStringLiteral("initech"), QStringLiteral("billing@initech.example"),
         QStringLiteral("+1 555 0199"), QStringLiteral("Austin")}};
    for (const QStringList& person : people) {
        CollectionRecord record;
        record.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
        record.collection = QStringLiteral("Clients");
        record.name = person.at(0);
        record.alias = person.at(1);
        record.values = {{QStringLiteral("Email"), person.at(2)},
                         {QStringLiteral("Phone"), person.at(3)},
                         {QStringLiteral("City"), person.at(4)}};
        records << record;
    }
    db.setCollectionRecords(records);
    db.saveCollectionLibrary();
    window.showAccountState();

    for (const QString& section : MainWindow::menuSections()) {
        window.setSection(section);
        ok = save(&window, folder,
                  section.toLower().replace(QRegularExpression(QStringLiteral("[^a-z0-9]+")), QStringLiteral("-"))) &&
             ok;
    }
    window.setSection(QStringLiteral("My shortcuts"));
    if (auto* search = window.findChild<QLineEdit*>(QStringLiteral("searchShortcuts"))) {
        search->setText(QStringLiteral("thank"));
        ok = save(&window, folder, QStringLiteral("my-shortcuts-search")) && ok;
        search->setText(QStringLiteral("no such words"));
        ok = save(&window, folder, QStringLiteral("my-shortcuts-no-match")) && ok;
        search->clear();
    }
    window.setSection(QStringLiteral("Collections"));
    window.collections()->selectCollection(QStringLiteral("Clients"));
    window.collections()->setMode(CollectionLibraryPage::Mode::Records);
    ok = save(&window, folder, QStringLiteral("collections-records")) && ok;
    for (const auto& [name, open] : std::initializer_list<std::pair<QString, std::function<QDialog*()>>>{
             {QStringLiteral("collection-definition-sheet"), [&] { return window.collections()->openNewCollection(); }},
             {QStringLiteral("collection-record-sheet"), [&] { return window.collections()->openNewRecord(); }},
             {QStringLiteral("collection-manager-sheet"), [&] { return window.collections()->openManager(); }},
             {QStringLiteral("collection-categories-sheet"), [&] { return window.collections()->openCategories(); }}}) {
        QDialog* sheet = open();
        ok = save(sheet, folder, name) && ok;
        sheet->close();
    }
    window.collections()->setMode(CollectionLibraryPage::Mode::Shortcuts);
    window.setNotice(QStringLiteral("Saved \\ty."));
    window.setSidebarCollapsed(true);
    ok = save(&window, folder, QStringLiteral("menu-icons-only")) && ok;
    window.setSidebarCollapsed(false);
    window.setNotice(QString());

    window.setSection(QStringLiteral("AppBuilder"));
    window.appBuilder()->openApp(QStringLiteral("Bill"));
    ok = save(&window, folder, QStringLiteral("appbuilder-editor")) && ok;
    // The whole editor, past the scrolled part: its lists of check boxes are further down.
    if (auto* content = window.findChild<QWidget*>(QStringLiteral("builderEditorContent"))) {
        ok = save(content, folder, QStringLiteral("appbuilder-editor-full")) && ok;
    }
    window.appBuilder()->showGallery();

    BulkSheet bulk(db, &window);
    bulk.show();
    ok = save(&bulk, folder, QStringLiteral("paste-many-sheet")) && ok;
    bulk.close();
    BulkMediaSheet media(db, &window);
    media.show();
    ok = save(&media, folder, QStringLiteral("bulk-media-sheet")) && ok;
    media.close();

    ShortcutEditor editor(db, db.clips().first(), QString(), &window);
    editor.show();
    ok = save(&editor, folder, QStringLiteral("shortcut-editor")) && ok;
    editor.close();

    PickerPanel picker(defaults);
    picker.showFor(db);
    picker.setQuery(QStringLiteral("t"));
    ok = save(&picker, folder, QStringLiteral("picker")) && ok;
    picker.hidePanel();

    ok = saveBrowserScreens(defaults, folder) && ok;
    return ok ? 0 : 1;
}
