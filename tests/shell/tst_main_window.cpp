#include "platform/secret/libsecret_store.h"
#include "shell/bulk_rename_sheet.h"
#include "shell/main_window.h"
#include "shell/registration_view.h"
#include "shell/shortcut_editor.h"
#include "shell/shortcut_list_page.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"

#include <QClipboard>
#include <QComboBox>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableView>
#include <QtTest>

using namespace tavo;

namespace {

Clip clip(const QString& key, const QString& name = QString())
{
    Clip c;
    c.key = key;
    c.name = name.isEmpty() ? key.mid(1) : name;
    c.text = QStringLiteral("text");
    c.group = QStringLiteral("Personal");
    return c;
}

} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void registration_data();
    void registration();
    void editorSavesByItsRules_data();
    void editorSavesByItsRules();
    void pagesOfFifty();
    void quickAddFromTheClipboard();
    void deletingAsksFirst();
    void bulkRenameChecksTheWholeLibrary();

private:
    template<typename T>
    T* find(QWidget* parent, const char* name)
    {
        auto* found = parent->findChild<T*>(QString::fromLatin1(name));
        if (!found) {
            qFatal("no widget named %s", name);
        }
        return found;
    }
    void submit(bool creating, const QString& username, const QString& password, const QString& confirmation);

    LibsecretStore m_keyring;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
    std::unique_ptr<TavoAccountStore> m_accounts;
    std::unique_ptr<MainWindow> m_window;
};

void TestMainWindow::initTestCase()
{
    KeyStore::setBackend(&m_keyring);
    // One account that exists before every test.
    Defaults defaults(QDir::home().filePath(QStringLiteral("defaults-setup.json")));
    TavoAccountStore accounts(defaults);
    QVERIFY(accounts.registerAccount(QStringLiteral("existing"), QStringLiteral("long enough")));
}

void TestMainWindow::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(QStringLiteral("defaults.json")));
    m_db = std::make_unique<DB>(*m_defaults, m_dir->filePath(QStringLiteral("Tavo")));
    m_accounts = std::make_unique<TavoAccountStore>(*m_defaults);
    m_window = std::make_unique<MainWindow>(*m_db, *m_accounts, *m_defaults);
    m_window->show();
}

void TestMainWindow::cleanup()
{
    m_window.reset();
    m_accounts.reset();
    m_db.reset();
}

void TestMainWindow::submit(bool creating, const QString& username, const QString& password,
                            const QString& confirmation)
{
    RegistrationView* view = m_window->registration();
    if (view->isCreating() != creating) {
        QTest::mouseClick(find<QPushButton>(view, "switchMode"), Qt::LeftButton);
    }
    QTest::keyClicks(find<QLineEdit>(view, "username"), username);
    QTest::keyClicks(find<QLineEdit>(view, "password"), password);
    QTest::keyClicks(find<QLineEdit>(view, "confirmPassword"), confirmation);
    QTest::mouseClick(find<QPushButton>(view, "submit"), Qt::LeftButton);
}

void TestMainWindow::registration_data()
{
    QTest::addColumn<bool>("creating");
    QTest::addColumn<QString>("username");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("confirmation");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("signedIn");
    const char* ok = "long enough";
    QTest::newRow("a password of seven") << true << "robin"
                                         << "1234567"
                                         << "1234567" << AccountText::passwordTooShort << false;
    QTest::newRow("a confirmation that differs")
        << true << "robin" << ok << "long enougj" << AccountText::passwordsDiffer << false;
    QTest::newRow("a username too short") << true << "r" << ok << ok << AccountText::invalidUsername << false;
    QTest::newRow("a username already here") << true << "Existing" << ok << ok << AccountText::usernameTaken << false;
    QTest::newRow("a wrong password") << false << "existing"
                                      << "not the one" << QString() << AccountText::wrongCredentials << false;
    QTest::newRow("the right password") << false << "existing" << ok << QString()
                                        << AccountText::welcomeBack(QStringLiteral("existing")) << true;
    QTest::newRow("a new account") << true << "robin" << ok << ok << AccountText::accountReady << true;
}

void TestMainWindow::registration()
{
    QFETCH(bool, creating);
    QFETCH(QString, username);
    QFETCH(QString, password);
    QFETCH(QString, confirmation);
    QFETCH(QString, message);
    QFETCH(bool, signedIn);
    RegistrationView* view = m_window->registration();
    QVERIFY(view->isVisible());
    submit(creating, username, password, confirmation);
    QCOMPARE(find<QLabel>(view, "message")->text(), message);
    QCOMPARE(m_accounts->isAuthenticated(), signedIn);
    // Signed in, the workspace takes the registration screen's place.
    QCOMPARE(view->isVisible(), !signedIn);
    QCOMPARE(find<QListWidget>(m_window.get(), "sideMenu")->isVisible(), signedIn);
    if (signedIn) {
        QVERIFY(find<QLineEdit>(view, "password")->text().isEmpty());
    }
}

void TestMainWindow::editorSavesByItsRules_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("collection");
    QTest::addColumn<QString>("savedKey");
    QTest::addColumn<QString>("savedName");
    QTest::addColumn<QString>("savedGroup");
    const char* web = "Websites & URLs";
    QTest::newRow("the collection gives its suffix") << "\\Thanks.WEB"
                                                     << "Thanks" << web << "/Thanks.web"
                                                     << "Thanks" << web;
    QTest::newRow("another collection takes it off") << "/zoom.app"
                                                     << "Zoom"
                                                     << "Personal"
                                                     << "/zoom"
                                                     << "Zoom"
                                                     << "Personal";
    QTest::newRow("no collection: Imported") << "abc"
                                             << "  Abc  " << QString() << "/abc"
                                             << "Abc"
                                             << "Imported";
    QTest::newRow("no name: the key") << "\\sig"
                                      << " "
                                      << "Work"
                                      << "/sig"
                                      << "/sig"
                                      << "Work";
}

void TestMainWindow::editorSavesByItsRules()
{
    QFETCH(QString, key);
    QFETCH(QString, name);
    QFETCH(QString, collection);
    QFETCH(QString, savedKey);
    QFETCH(QString, savedName);
    QFETCH(QString, savedGroup);
    m_db->activateProfile(QStringLiteral("sam"));
    m_db->setClips({});
    m_db->setCollections({QStringLiteral("Personal"), QStringLiteral("Work"), QStringLiteral("Websites & URLs")});

    ShortcutEditor editor(*m_db, std::nullopt, QString());
    QTest::keyClicks(find<QLineEdit>(&editor, "key"), key);
    QTest::keyClicks(find<QLineEdit>(&editor, "name"), name);
    QTest::keyClicks(find<QPlainTextEdit>(&editor, "text"), QStringLiteral("Some text"));
    auto* group = find<QComboBox>(&editor, "group");
    group->setCurrentIndex(qMax(0, group->findText(collection)));
    editor.accept();
    QCOMPARE(m_db->clips().size(), 1);
    const Clip saved = m_db->clips().first();
    QCOMPARE(saved.key, savedKey);
    QCOMPARE(saved.name, savedName);
    QCOMPARE(saved.group, savedGroup);

    // Editing keeps the record's identity and what the form does not show (an application to
    // launch, a collection the library no longer lists), and a change made elsewhere while the
    // editor is open (a portrait's article) stays too.
    Clip stored = saved;
    stored.appBundleIdentifier = QStringLiteral("org.example.viewer");
    stored.groups = QStringList{QStringLiteral("Work"), QStringLiteral("Retired")};
    m_db->setClips({stored});
    ShortcutEditor again(*m_db, stored, QString());
    Clip meanwhile = stored;
    meanwhile.defaultMediaArticle = QStringLiteral("Grace_Hopper");
    m_db->setClips({meanwhile});
    find<QLineEdit>(&again, "name")->setText(QStringLiteral("Renamed"));
    find<QPlainTextEdit>(&again, "text")->setPlainText(QStringLiteral("New text"));
    again.accept();
    QCOMPARE(m_db->clips().size(), 1);
    const Clip last = m_db->clips().first();
    QCOMPARE(last.id, saved.id);
    QCOMPARE(last.name, QStringLiteral("Renamed"));
    QCOMPARE(last.text, QStringLiteral("New text"));
    QCOMPARE(last.appBundleIdentifier, stored.appBundleIdentifier);
    QCOMPARE(last.defaultMediaArticle, meanwhile.defaultMediaArticle);
    QCOMPARE(last.groups, stored.groups);
}

void TestMainWindow::pagesOfFifty()
{
    QVERIFY(m_accounts->registerAccount(QStringLiteral("pager"), QStringLiteral("long enough")));
    m_db->activateProfile(QStringLiteral("pager"));
    QList<Clip> clips;
    for (int i = 0; i < 120; ++i) {
        clips << clip(QStringLiteral("/key%1").arg(i), QStringLiteral("Shortcut %1").arg(i));
    }
    m_db->setClips(clips);
    m_window->setSection(QStringLiteral("My shortcuts"));
    ShortcutListPage* list = m_window->shortcutList();
    QTRY_VERIFY(!list->isFiltering());
    QTRY_COMPARE(list->visibleClips().size(), 120);

    QAbstractItemModel* table = find<QTableView>(list, "shortcuts")->model();
    auto* next = find<QPushButton>(list, "nextPage");
    auto* label = find<QLabel>(list, "pageLabel");
    QCOMPARE(table->rowCount(), 50);
    QCOMPARE(label->text(), QStringLiteral("Page 1 of 3"));
    QCOMPARE(find<QLabel>(list, "shortcutCount")->text(), QStringLiteral("120 shortcuts"));
    QTest::mouseClick(next, Qt::LeftButton);
    QTest::mouseClick(next, Qt::LeftButton);
    QCOMPARE(table->rowCount(), 20);
    QCOMPARE(table->index(0, 1).data().toString(), list->visibleClips().at(100).name);
    QVERIFY(!next->isEnabled());
    QCOMPARE(label->text(), QStringLiteral("Page 3 of 3"));

    // Deleting from the last page keeps the list consistent: it refilters and stays in range.
    m_db->setClips(clips.mid(0, 60));
    QTRY_COMPARE(list->visibleClips().size(), 60);
    QCOMPARE(list->currentPage(), 1);
    QCOMPARE(table->rowCount(), 10);

    // A chosen collection that goes away gives way to all of them, rows and label alike.
    m_db->setCollections({QStringLiteral("Personal"), QStringLiteral("Empty")});
    auto* collection = find<QComboBox>(list, "collectionFilter");
    collection->setCurrentText(QStringLiteral("Empty"));
    QTRY_VERIFY(!list->isFiltering());
    QTRY_COMPARE(list->visibleClips().size(), 0);
    m_db->setCollections({QStringLiteral("Personal")});
    QCOMPARE(collection->currentText(), allCollectionsName);
    QTRY_COMPARE(list->visibleClips().size(), 60);
}

void TestMainWindow::quickAddFromTheClipboard()
{
    // Signed out there is no profile to write into.
    m_window->newShortcut();
    m_window->addClipboardShortcut();
    QVERIFY(!m_window->findChild<ShortcutEditor*>());

    QVERIFY(m_accounts->signIn(QStringLiteral("existing"), QStringLiteral("long enough")));
    m_db->activateProfile(QStringLiteral("existing"));
    const qsizetype before = m_db->clips().size();
    QApplication::clipboard()->clear();
    m_window->addClipboardShortcut();
    QCOMPARE(m_window->notice(), QStringLiteral("Copy some text, an image, or a file first."));

    QImage image(40, 30, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QApplication::clipboard()->setImage(image);
    m_window->addClipboardShortcut();
    auto* editor = m_window->findChild<ShortcutEditor*>();
    QVERIFY(editor);
    const Clip draft = editor->builtClip();
    QCOMPARE(draft.files.size(), 1);
    QVERIFY(draft.files.first().startsWith(m_db->attachmentsDir()));
    QVERIFY(draft.files.first().endsWith(QStringLiteral("-clipboard-image.png")));
    QCOMPARE(QImage(draft.files.first()).size(), image.size());
    QVERIFY(draft.text.isEmpty());
    QCOMPARE(m_db->clips().size(), before); // a draft saves nothing by itself
}

void TestMainWindow::deletingAsksFirst()
{
    m_db->activateProfile(QStringLiteral("sam"));
    const QList<Clip> before = m_db->clips();
    QVERIFY(before.size() >= 3);
    m_window->setSection(QStringLiteral("My shortcuts"));
    ShortcutListPage* list = m_window->shortcutList();
    QTRY_COMPARE(list->visibleClips().size(), before.size());
    auto* table = find<QTableView>(list, "shortcuts");
    table->selectRow(0);
    table->setSelectionMode(QAbstractItemView::MultiSelection);
    table->selectRow(1);

    // Answers the confirmation that is on screen with `button`, and tells what it asked.
    QString asked;
    const auto answer = [&](QMessageBox::StandardButton button) {
        QTimer::singleShot(0, this, [&asked, button] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            QVERIFY(box);
            asked = box->text();
            box->button(button)->click();
        });
    };
    answer(QMessageBox::Cancel);
    list->deleteSelected();
    QCOMPARE(asked, QStringLiteral("Delete selected shortcuts?"));
    QCOMPARE(m_db->clips().size(), before.size());

    answer(QMessageBox::Yes);
    list->deleteSelected();
    QCOMPARE(m_db->clips().size(), before.size() - 2);
    QCOMPARE(m_window->notice(), QStringLiteral("2 shortcuts deleted."));
    QTRY_COMPARE(list->visibleClips().size(), before.size() - 2);
}

void TestMainWindow::bulkRenameChecksTheWholeLibrary()
{
    m_db->activateProfile(QStringLiteral("sam"));
    const QList<Clip> clips = {clip(QStringLiteral("/ty")), clip(QStringLiteral("/sig.web")),
                               clip(QStringLiteral("/old-ty"))};
    m_db->setClips(clips);

    // A prefix that would turn /ty into the existing /old-ty is refused as a whole.
    BulkRenameSheet sheet({clips.at(0), clips.at(1)},
                          {QStringLiteral("/ty"), QStringLiteral("/sig.web"), QStringLiteral("/old-ty")});
    find<QLineEdit>(&sheet, "renameFind")->setText(QStringLiteral("old-"));
    sheet.accept();
    QCOMPARE(sheet.result(), int(QDialog::Rejected));
    QVERIFY(!find<QLabel>(&sheet, "renameError")->text().isEmpty());

    // Another prefix goes through; the file-type suffix stays where it was.
    find<QLineEdit>(&sheet, "renameFind")->setText(QStringLiteral("my"));
    sheet.accept();
    QCOMPARE(sheet.result(), int(QDialog::Accepted));
    QCOMPARE(sheet.renames().value(clips.at(0).id).key, QStringLiteral("/myty"));
    QCOMPARE(sheet.renames().value(clips.at(1).id).key, QStringLiteral("/mysig.web"));
}

QTEST_MAIN(TestMainWindow)
#include "tst_main_window.moc"
