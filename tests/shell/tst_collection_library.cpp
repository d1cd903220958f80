#include "shell/collection_library_page.h"
#include "shell/collection_sheets.h"
#include "shell/shortcut_list_page.h"
#include "shell/shortcut_table_model.h"
#include "shell/ui/card.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSemaphore>
#include <QStackedWidget>
#include <QTableView>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(tavo::CollectionLibraryPage::Mode)

namespace {

const QString builderKey = QStringLiteral("tavoBuilderCollections.invoice-app");
const QString builderOutputKey = QStringLiteral("tavoBuilderOutputCollections.invoice-app");

Clip clip(const QString& key, const QString& group, const QString& text = QStringLiteral("text"))
{
    Clip c;
    c.key = key;
    c.name = key.mid(1);
    c.text = text;
    c.group = group;
    return c;
}

CollectionRecord record(const QString& collection, const QString& name, const QString& alias,
                        const QMap<QString, QString>& values = {})
{
    CollectionRecord r;
    r.id = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    r.collection = collection;
    r.name = name;
    r.alias = alias;
    r.values = values;
    r.updatedAt = QDateTime::currentDateTimeUtc();
    return r;
}

// Answers the next confirmation with Yes once it is up.
void confirmNextQuestion()
{
    auto* poll = new QTimer;
    QObject::connect(poll, &QTimer::timeout, poll, [poll] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            poll->deleteLater();
            box->button(QMessageBox::Yes)->click();
        }
    });
    poll->start(10);
}

} // namespace

class TestCollectionLibrary : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    // Sheets: each refusal changes nothing, each success is in the files
    void definitionSheet_data();
    void definitionSheet();
    void recordSheet_data();
    void recordSheet();
    void recordEditKeepsDroppedFieldsAndDeletes();
    void renameRefusals_data();
    void renameRefusals();
    void renameHiddenCollectionNamedInBuilderKeys();
    void categoryAdd_data();
    void categoryAdd();
    void categoryOfCustomCollection();
    void managerRemoval_data();
    void managerRemoval();

    // The page
    void pagesOfFifty();
    void staleLoadNeverShows_data();
    void staleLoadNeverShows();
    void duplicatePanels_data();
    void duplicatePanels();
    void hidingFollowsAtOnce();

private:
    QByteArray file(const QString& name) const;
    QJsonValue defaultsValue(const QString& key) const;
    QByteArray snapshot() const; // every file a refusal must leave alone
    void waitLoaded();
    QStringList shownRows() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
    std::unique_ptr<CollectionLibraryPage> m_page;
};

void TestCollectionLibrary::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(QStringLiteral("defaults.json")));
    m_db = std::make_unique<DB>(*m_defaults, m_dir->filePath(QStringLiteral("Tavo")));
    m_db->activateProfile(QStringLiteral("sam"));
    m_db->setCollections(builtInCollections() + QStringList{QStringLiteral("Clients"), QStringLiteral("Ledger"),
                                                            QStringLiteral("Archive"), QStringLiteral("Twin"),
                                                            QStringLiteral("Mirror")});
    m_db->setHiddenCollections({QStringLiteral("Archive")});
    m_defaults->setString(builderKey, QStringLiteral("Clients,Archive"));
    m_defaults->setString(builderOutputKey, QStringLiteral("Archive"));
    m_db->setClips({clip(QStringLiteral("/hello"), QStringLiteral("Clients")),
                    clip(QStringLiteral("/twin"), QStringLiteral("Twin"), QStringLiteral("Same")),
                    clip(QStringLiteral("/TWIN"), QStringLiteral("Mirror"), QStringLiteral("same "))});
    m_db->save();
    CollectionDefinition clients = CollectionDefinition::emptyFor(QStringLiteral("Clients"));
    CollectionDefinitionEditor fields;
    fields.fieldsText = QStringLiteral("Email, Phone");
    clients.fields = fields.fields();
    m_db->setCollectionDefinitions({clients, CollectionDefinition::emptyFor(QStringLiteral("Ledger"))});
    m_db->setCollectionRecords(
        {record(QStringLiteral("Clients"), QStringLiteral("Acme"), QStringLiteral("acme"),
                {{QStringLiteral("Email"), QStringLiteral("hi@acme.test")},
                 {QStringLiteral("Fax"), QStringLiteral("12")}}),
         record(QStringLiteral("Ledger"), QStringLiteral("First quarter"), QStringLiteral("q1"))});
    m_db->saveCollectionLibrary();

    m_page = std::make_unique<CollectionLibraryPage>(*m_db);
    m_page->resize(1100, 800);
    m_page->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_page.get()));
    QTRY_VERIFY(!m_page->isLoading());
}

void TestCollectionLibrary::cleanup()
{
    CollectionLibraryPage::setWorkerHookForTesting({});
    m_page.reset();
    m_db.reset();
}

QByteArray TestCollectionLibrary::file(const QString& name) const
{
    QFile f(QDir(m_db->dir()).filePath(name));
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QJsonValue TestCollectionLibrary::defaultsValue(const QString& key) const
{
    QFile f(m_defaults->filePath());
    f.open(QIODevice::ReadOnly);
    return QJsonDocument::fromJson(f.readAll()).object().value(key);
}

QByteArray TestCollectionLibrary::snapshot() const
{
    QFile defaults(m_defaults->filePath());
    defaults.open(QIODevice::ReadOnly);
    return file(QStringLiteral("clips.json")) + file(QStringLiteral("collections.json")) +
           file(QStringLiteral("collection-definitions.json")) + file(QStringLiteral("collection-records.json")) +
           defaults.readAll();
}

void TestCollectionLibrary::waitLoaded()
{
    QTRY_VERIFY(!m_page->isLoading());
}

QStringList TestCollectionLibrary::shownRows() const
{
    QStringList rows;
    if (m_page->mode() == CollectionLibraryPage::Mode::Records) {
        for (const CollectionRecord& each : m_page->shownRecords()) {
            rows << each.alias;
        }
        return rows;
    }
    for (const Clip& each : m_page->shortcutList()->pagedClips()) {
        rows << each.key;
    }
    return rows;
}

void TestCollectionLibrary::definitionSheet_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("fields");
    QTest::addColumn<bool>("saves");
    QTest::addColumn<QStringList>("savedFields");
    QTest::newRow("an empty name cannot be saved") << "  "
                                                   << "Name" << false << QStringList();
    QTest::newRow("a taken name in another case offers the existing one") << "CLIENTS"
                                                                          << "Name" << false << QStringList();
    QTest::newRow("empty pieces of the fields text are dropped")
        << "Vendors"
        << " Name, , Email ,," << true << QStringList{u"Name"_s, u"Email"_s};
}

void TestCollectionLibrary::definitionSheet()
{
    QFETCH(QString, name);
    QFETCH(QString, fields);
    QFETCH(bool, saves);
    QFETCH(QStringList, savedFields);
    const QByteArray before = snapshot();
    CollectionDefinitionSheet* sheet = m_page->openNewCollection();
    QCOMPARE(sheet->findChild<QLineEdit*>(QStringLiteral("collectionFields"))->text(),
             QStringLiteral("Name, Address, Email, Phone"));
    auto* category = sheet->findChild<QComboBox*>(QStringLiteral("collectionCategory"));
    QCOMPARE(category->currentText(), QStringLiteral("Utilities"));
    QCOMPARE(category->findText(systemGeneratedCategory), -1);
    sheet->findChild<QLineEdit*>(QStringLiteral("collectionName"))->setText(name);
    sheet->findChild<QLineEdit*>(QStringLiteral("collectionFields"))->setText(fields);
    QCOMPARE(sheet->findChild<QPushButton*>(QStringLiteral("save"))->isEnabled(), saves);
    auto* openExisting = sheet->findChild<QPushButton*>(QStringLiteral("openExisting"));
    QCOMPARE(openExisting->isVisibleTo(sheet), !saves && !name.trimmed().isEmpty());
    QVERIFY(!sheet->findChild<QPushButton*>(QStringLiteral("openExistingInBuilder"))->isEnabled());
    sheet->accept();
    if (!saves) {
        QCOMPARE(snapshot(), before);
        if (openExisting->isVisibleTo(sheet)) {
            openExisting->click();
            QCOMPARE(m_page->selectedCollection(), QStringLiteral("Clients"));
        } else {
            sheet->reject();
        }
        return;
    }
    QVERIFY(QJsonDocument::fromJson(file(QStringLiteral("collections.json"))).array().contains(name));
    const auto definitions = definitionsFromJsonBytes(file(QStringLiteral("collection-definitions.json")));
    QVERIFY(definitions);
    const CollectionDefinition* saved = findCollectionDefinition(*definitions, name);
    QVERIFY(saved);
    QStringList names;
    for (const CollectionFieldDefinition& field : saved->fields) {
        names << field.name;
    }
    QCOMPARE(names, savedFields);
    QCOMPARE(m_page->selectedCollection(), name);
}

void TestCollectionLibrary::recordSheet_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("alias");
    QTest::addColumn<QString>("error");
    QTest::newRow("a name is needed") << "  "
                                      << "globex"
                                      << "Enter both a record name and shortcut alias.";
    QTest::newRow("an alias is needed") << "Globex"
                                        << " / "
                                        << "Enter both a record name and shortcut alias.";
    QTest::newRow("an alias taken in another case") << "Acme again"
                                                    << "\\ACME"
                                                    << "That shortcut alias is already used in this collection.";
    QTest::newRow("a new alias is stored trimmed, lower case") << " Globex "
                                                               << "/Globex "
                                                               << "";
}

void TestCollectionLibrary::recordSheet()
{
    QFETCH(QString, name);
    QFETCH(QString, alias);
    QFETCH(QString, error);
    m_page->selectCollection(QStringLiteral("Clients"));
    const QByteArray before = snapshot();
    CollectionRecordSheet* sheet = m_page->openNewRecord();
    QVERIFY(sheet->valueField(QStringLiteral("Email")) && sheet->valueField(QStringLiteral("Phone")));
    sheet->findChild<QLineEdit*>(QStringLiteral("recordName"))->setText(name);
    sheet->findChild<QLineEdit*>(QStringLiteral("recordAlias"))->setText(alias);
    sheet->valueField(QStringLiteral("Email"))->setText(QStringLiteral("  sales@globex.test \n"));
    sheet->accept();
    QCOMPARE(sheet->error(), error);
    if (!error.isEmpty()) {
        QCOMPARE(snapshot(), before);
        sheet->reject();
        return;
    }
    const auto records = recordsFromJsonBytes(file(QStringLiteral("collection-records.json")));
    QVERIFY(records);
    const auto saved = std::find_if(records->cbegin(), records->cend(),
                                    [](const CollectionRecord& each) { return each.alias == QLatin1String("globex"); });
    QVERIFY(saved != records->cend());
    QCOMPARE(saved->name, QStringLiteral("Globex"));
    QCOMPARE(saved->collection, QStringLiteral("Clients"));
    QCOMPARE(saved->values.value(QStringLiteral("Email")), QStringLiteral("sales@globex.test"));
}

void TestCollectionLibrary::recordEditKeepsDroppedFieldsAndDeletes()
{
    m_page->selectCollection(QStringLiteral("Clients"));
    m_page->setMode(CollectionLibraryPage::Mode::Records);
    waitLoaded();
    QCOMPARE(shownRows(), QStringList{u"acme"_s});
    const QString id = m_page->shownRecords().first().id;

    CollectionRecordSheet* sheet = m_page->openRecord(id);
    QVERIFY(!sheet->valueField(QStringLiteral("Fax"))); // no longer a field of the collection
    sheet->valueField(QStringLiteral("Phone"))->setText(QStringLiteral(" 555 "));
    sheet->accept();
    auto records = recordsFromJsonBytes(file(QStringLiteral("collection-records.json")));
    QCOMPARE(records->first().values.value(QStringLiteral("Fax")), QStringLiteral("12"));
    QCOMPARE(records->first().values.value(QStringLiteral("Phone")), QStringLiteral("555"));

    sheet = m_page->openRecord(id);
    confirmNextQuestion();
    sheet->findChild<QPushButton*>(QStringLiteral("deleteRecord"))->click();
    records = recordsFromJsonBytes(file(QStringLiteral("collection-records.json")));
    QCOMPARE(records->size(), 1); // Ledger's alone
    QTRY_COMPARE(m_page->findChild<QStackedWidget*>(QStringLiteral("collectionContent"))->currentWidget()->objectName(),
                 QStringLiteral("noRecords"));
}

void TestCollectionLibrary::renameRefusals_data()
{
    QTest::addColumn<QString>("to");
    QTest::addColumn<QString>("error");
    QTest::newRow("an empty name") << "   "
                                   << "Enter a collection name.";
    QTest::newRow("another collection's name in another case") << "ledger"
                                                               << "A collection with that name already exists.";
    QTest::newRow("its own name in another case is allowed") << "CLIENTS"
                                                             << "";
}

void TestCollectionLibrary::renameRefusals()
{
    QFETCH(QString, to);
    QFETCH(QString, error);
    m_page->selectCollection(QStringLiteral("Clients"));
    const QByteArray before = snapshot();
    CollectionRenameSheet* sheet = m_page->openRename();
    sheet->findChild<QLineEdit*>(QStringLiteral("collectionName"))->setText(to);
    sheet->accept();
    QCOMPARE(sheet->error(), error);
    if (!error.isEmpty()) {
        QCOMPARE(snapshot(), before);
        return;
    }
    QVERIFY(QJsonDocument::fromJson(file(QStringLiteral("collections.json"))).array().contains(to));
    QCOMPARE(defaultsValue(builderKey).toString(), QStringLiteral("CLIENTS, Archive"));
    QCOMPARE(m_page->selectedCollection(), to);
}

void TestCollectionLibrary::renameHiddenCollectionNamedInBuilderKeys()
{
    m_page->findChild<QCheckBox*>(QStringLiteral("showHiddenCollections"))->setChecked(true);
    m_page->selectCollection(QStringLiteral("Archive"));
    QCOMPARE(m_page->selectedCollection(), QStringLiteral("Archive"));
    CollectionRenameSheet* sheet = m_page->openRename();
    sheet->findChild<QLineEdit*>(QStringLiteral("collectionName"))->setText(QStringLiteral(" Old files "));
    sheet->accept();
    QCOMPARE(sheet->error(), QString());

    const QJsonArray names = QJsonDocument::fromJson(file(QStringLiteral("collections.json"))).array();
    QVERIFY(names.contains(QStringLiteral("Old files")) && !names.contains(QStringLiteral("Archive")));
    QCOMPARE(defaultsValue(m_db->hiddenDefaultsKey()).toArray(), QJsonArray{u"Old files"_s});
    QCOMPARE(defaultsValue(builderKey).toString(), QStringLiteral("Clients, Old files"));
    QCOMPARE(defaultsValue(builderOutputKey).toString(), QStringLiteral("Old files"));
    QCOMPARE(m_page->selectedCollection(), QStringLiteral("Old files"));
}

void TestCollectionLibrary::categoryAdd_data()
{
    QTest::addColumn<QStringList>("typed");
    QTest::addColumn<QJsonValue>("stored");
    QTest::newRow("an empty name is ignored") << QStringList{u"  "_s} << QJsonValue(QJsonValue::Undefined);
    QTest::newRow("a built-in in another case is ignored")
        << QStringList{u"marketing"_s} << QJsonValue(QJsonValue::Undefined);
    QTest::newRow("a custom one again in another case is ignored")
        << QStringList{u"Field work"_s, u"FIELD WORK "_s} << QJsonValue(QJsonArray{u"Field work"_s});
}

void TestCollectionLibrary::categoryAdd()
{
    QFETCH(QStringList, typed);
    QFETCH(QJsonValue, stored);
    CollectionCategorySheet* sheet = m_page->openCategories();
    for (const QString& name : typed) {
        sheet->findChild<QLineEdit*>(QStringLiteral("newCategory"))->setText(name);
        sheet->findChild<QPushButton*>(QStringLiteral("addCategory"))->click();
    }
    QCOMPARE(defaultsValue(customCategoriesDefaultsKey), stored);
    sheet->reject();
}

void TestCollectionLibrary::categoryOfCustomCollection()
{
    CollectionCategorySheet* sheet = m_page->openCategories();
    QComboBox* personal = sheet->categoryChoice(QStringLiteral("Personal"));
    QVERIFY(!personal->isEnabled());
    QCOMPARE(personal->currentText(), systemGeneratedCategory);
    QComboBox* clients = sheet->categoryChoice(QStringLiteral("Clients"));
    QVERIFY(clients->isEnabled());
    QCOMPARE(clients->findText(systemGeneratedCategory), -1);
    clients->setCurrentText(QStringLiteral("Marketing"));
    sheet->accept();
    const auto definitions = definitionsFromJsonBytes(file(QStringLiteral("collection-definitions.json")));
    QCOMPARE(findCollectionDefinition(*definitions, QStringLiteral("Clients"))->category, QStringLiteral("Marketing"));
    // Untouched suggestions stay automatic.
    QCOMPARE(findCollectionDefinition(*definitions, QStringLiteral("Ledger"))->category, std::nullopt);
}

void TestCollectionLibrary::managerRemoval_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("message");
    QTest::newRow("a built-in name stays") << "remove"
                                           << "Personal"
                                           << "Personal is built in and cannot be removed.";
    QTest::newRow("a name in use stays") << "remove"
                                         << "Clients"
                                         << "Clients is used by 1 shortcut; move or delete them first.";
    QTest::newRow("a name holding records stays") << "remove"
                                                  << "Ledger"
                                                  << "Ledger holds 1 record; delete them first.";
    QTest::newRow("a new name equal to another in any case is refused")
        << "add"
        << "mirror"
        << "A collection with that name already exists.";
    QTest::newRow("an empty custom name goes, hidden with it") << "remove"
                                                               << "Archive"
                                                               << "";
    QTest::newRow("a new name joins") << "add"
                                      << "Suppliers"
                                      << "";
}

void TestCollectionLibrary::managerRemoval()
{
    QFETCH(QString, action);
    QFETCH(QString, name);
    QFETCH(QString, message);
    const QByteArray before = snapshot();
    CollectionManagerSheet* sheet = m_page->openManager();
    const bool taken = action == QLatin1String("add") ? sheet->addName(name) : sheet->removeName(name);
    QCOMPARE(taken, message.isEmpty());
    QCOMPARE(sheet->message(), message);
    sheet->accept();
    if (!taken) {
        QCOMPARE(snapshot(), before);
        return;
    }
    const QJsonArray names = QJsonDocument::fromJson(file(QStringLiteral("collections.json"))).array();
    QCOMPARE(names.contains(name), action == QLatin1String("add"));
    QCOMPARE(defaultsValue(m_db->hiddenDefaultsKey()).toArray().contains(QStringLiteral("Archive")),
             action == QLatin1String("add"));
}

void TestCollectionLibrary::pagesOfFifty()
{
    QList<Clip> clips = m_db->clips();
    for (int i = 0; i < 120; ++i) {
        clips << clip(QStringLiteral("/bulk%1").arg(i, 3, 10, QLatin1Char('0')), QStringLiteral("Ledger"));
    }
    m_db->setClips(clips);
    m_db->save();
    m_page->selectCollection(QStringLiteral("Ledger"));
    waitLoaded();
    ShortcutListPage* list = m_page->shortcutList();
    auto* pageLabel = list->findChild<QLabel*>(QStringLiteral("pageLabel"));
    QCOMPARE(pageLabel->text(), QStringLiteral("Page 1 of 3"));
    list->findChild<QPushButton*>(QStringLiteral("nextPage"))->click();
    QCOMPARE(pageLabel->text(), QStringLiteral("Page 2 of 3"));
    m_page->findChild<QPushButton*>(QStringLiteral("selectPage"))->click();
    QCOMPARE(list->selectedClips().size(), 50);
    QCOMPARE(list->selectedClips().first().key, QStringLiteral("/bulk050"));
    m_page->findChild<QPushButton*>(QStringLiteral("clearPage"))->click();
    QCOMPARE(list->selectedClips().size(), 0);
    m_page->findChild<QPushButton*>(QStringLiteral("selectPage"))->click();
    confirmNextQuestion();
    list->findChild<QPushButton*>(QStringLiteral("deleteSelected"))->click();
    const auto stored = clipsFromJsonBytes(file(QStringLiteral("clips.json")));
    QCOMPARE(std::count_if(stored->cbegin(), stored->cend(),
                           [](const Clip& c) { return c.group == QLatin1String("Ledger"); }),
             70);
    waitLoaded();
    QCOMPARE(pageLabel->text(), QStringLiteral("Page 2 of 2"));
}

void TestCollectionLibrary::staleLoadNeverShows_data()
{
    QTest::addColumn<CollectionLibraryPage::Mode>("mode");
    QTest::addColumn<QStringList>("rows");
    QTest::newRow("shortcuts") << CollectionLibraryPage::Mode::Shortcuts << QStringList{u"/twin"_s, u"/q1"_s};
    QTest::newRow("records") << CollectionLibraryPage::Mode::Records << QStringList{u"q1"_s};
}

void TestCollectionLibrary::staleLoadNeverShows()
{
    QFETCH(CollectionLibraryPage::Mode, mode);
    QFETCH(QStringList, rows);
    m_db->setClips(m_db->clips() + QList<Clip>{clip(QStringLiteral("/q1"), QStringLiteral("Twin"))});
    m_page->setMode(mode);
    waitLoaded();
    // The load for Clients is held on the worker until Twin (shortcuts) or Ledger (records) is asked for.
    QSemaphore entered;
    QSemaphore gate;
    CollectionLibraryPage::setWorkerHookForTesting([&](const QString& collection) {
        if (collection == QLatin1String("Clients")) {
            entered.release();
            gate.acquire();
        }
    });
    QList<QStringList> shown;
    connect(m_page.get(), &CollectionLibraryPage::loaded, this, [&] { shown << shownRows(); });
    m_page->selectCollection(QStringLiteral("Clients"));
    QTRY_COMPARE(entered.available(), 1);
    QCOMPARE(m_page->loadingText(),
             mode == CollectionLibraryPage::Mode::Shortcuts ? loadingShortcutsText : loadingRecordsText);
    m_page->selectCollection(mode == CollectionLibraryPage::Mode::Shortcuts ? QStringLiteral("Twin")
                                                                            : QStringLiteral("Ledger"));
    QTest::qWait(30);
    QVERIFY(shown.isEmpty());
    gate.release();
    QTRY_VERIFY(!shown.isEmpty());
    waitLoaded();
    QCOMPARE(shownRows(), rows);
    for (const QStringList& each : shown) {
        QVERIFY2(!each.contains(QStringLiteral("/hello")) && !each.contains(QStringLiteral("acme")),
                 qPrintable(each.join(u',')));
    }
}

void TestCollectionLibrary::duplicatePanels_data()
{
    QTest::addColumn<bool>("withTwins");
    QTest::addColumn<QString>("repeated");
    QTest::addColumn<QString>("identical");
    QTest::addColumn<qint64>("extra");
    QTest::newRow("a repeated key in two identical collections") << true << "Repeated shortcuts · 1"
                                                                 << "Identical collections · 1" << qint64(1);
    QTest::newRow("nothing repeats") << false << "Repeated shortcuts · 0"
                                     << "Identical collections · 0" << qint64(0);
}

void TestCollectionLibrary::duplicatePanels()
{
    QFETCH(bool, withTwins);
    QFETCH(QString, repeated);
    QFETCH(QString, identical);
    QFETCH(qint64, extra);
    QSignalSpy counted(m_page.get(), &CollectionLibraryPage::duplicatesCounted);
    if (!withTwins) {
        m_db->setClips({m_db->clips().first()});
    } else {
        m_page->refresh(); // counts arrive with every load of a changed library only
        m_db->setClips(m_db->clips());
    }
    QVERIFY(counted.wait());
    QCOMPARE(counted.last().at(0).toLongLong(), extra);
    QCOMPARE(counted.last().at(1).toLongLong(), extra);
    auto* repeatedCard = m_page->findChild<Card*>(QStringLiteral("repeatedShortcuts"));
    auto* identicalCard = m_page->findChild<Card*>(QStringLiteral("identicalCollections"));
    QCOMPARE(repeatedCard->title(), repeated);
    QCOMPARE(identicalCard->title(), identical);
    QStringList texts;
    for (const QLabel* label : repeatedCard->findChildren<QLabel*>() + identicalCard->findChildren<QLabel*>()) {
        texts << label->text();
    }
    auto* edit = repeatedCard->findChild<QPushButton*>(QStringLiteral("editRepeatedShortcut"));
    if (!withTwins) {
        QVERIFY(texts.contains(QStringLiteral("No repeated shortcut codes found.")));
        QVERIFY(texts.contains(QStringLiteral("No identical collection contents found.")));
        QVERIFY(!edit);
        return;
    }
    QVERIFY(texts.contains(QStringLiteral("2 repeats")));
    QVERIFY(texts.contains(QStringLiteral("2 occurrences · 2 collections · Mirror, Twin")));
    QVERIFY(texts.contains(QStringLiteral("1 matching items")));
    QSignalSpy edited(m_page.get(), &CollectionLibraryPage::editRequested);
    edit->click();
    QCOMPARE(edited.size(), 1);
    QCOMPARE(edited.first().first().value<Clip>().key, QStringLiteral("/twin"));
}

void TestCollectionLibrary::hidingFollowsAtOnce()
{
    m_page->selectCollection(QStringLiteral("Clients"));
    auto* hide = m_page->findChild<QPushButton*>(QStringLiteral("hideCollection"));
    QCOMPARE(hide->text(), QStringLiteral("Hide"));
    hide->click();
    QVERIFY(defaultsValue(m_db->hiddenDefaultsKey()).toArray().contains(QStringLiteral("Clients")));
    QVERIFY(m_db->isCollectionHidden(QStringLiteral("Clients")));
    QTRY_VERIFY(!m_page->shownCollectionNames().contains(QStringLiteral("Clients")));
    QCOMPARE(m_page->selectedCollection(), allCollectionsName);

    m_page->findChild<QCheckBox*>(QStringLiteral("showHiddenCollections"))->setChecked(true);
    QVERIFY(m_page->shownCollectionNames().contains(QStringLiteral("Clients")));
    m_page->selectCollection(QStringLiteral("Clients"));
    QCOMPARE(hide->text(), QStringLiteral("Show"));
    waitLoaded();
    QCOMPARE(shownRows(), QStringList{u"/hello"_s}); // a hidden collection still lists its own shortcuts
    hide->click();
    QVERIFY(!defaultsValue(m_db->hiddenDefaultsKey()).toArray().contains(QStringLiteral("Clients")));
}

QTEST_MAIN(TestCollectionLibrary)
#include "tst_collection_library.moc"
