// Renders each screen of Tavo into PNG files, for the design notes and the README:
//   screenshots OUT_DIR light|dark
// Run it through scripts/screenshots, which gives it a private home and keyring and renders the
// light, dark and 2× sets (QT_SCALE_FACTOR=2 for the last).

#include "picker/picker_panel.h"
#include "platform/secret/libsecret_store.h"
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
#include <QPixmap>
#include <QRegularExpression>
#include <QStyleFactory>
#include <QTimer>
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

} // namespace

int main(int argc, char* argv[])
{
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
    return ok ? 0 : 1;
}
