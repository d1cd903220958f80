#include "tavoctl/ctl_commands.h"

#include "store/accounts.h"
#include "store/collection_rules.h"
#include "store/defaults.h"
#include "store/profile_store.h"
#include "store/scorecard.h"

#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <algorithm>

#include <functional>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

// The signed-in profile as the files hold it after a command.
struct Saved
{
    Defaults defaults;
    DB db{defaults, QString(), DB::Access::ReadOnly};

    Saved() { db.activateProfile(u"sam"_s); }

    const CollectionDefinition* definition(const QString& name) const
    {
        return findCollectionDefinition(db.collectionDefinitions(), name);
    }
    std::optional<CollectionRecord> record(const QString& alias) const
    {
        const QList<CollectionRecord>& records = db.collectionRecords();
        const auto found =
            std::find_if(records.cbegin(), records.cend(), [&](const auto& r) { return r.alias == alias; });
        return found == records.cend() ? std::nullopt : std::optional(*found);
    }
    QStringList fieldsOf(const QString& name) const
    {
        QStringList names;
        for (const CollectionFieldDefinition& field : definition(name)->fields) {
            names.append(field.name);
        }
        return names;
    }
};

using Check = std::function<void(const Saved&)>;

// "collection rename clients Accounts" as its arguments; "|" separates them instead when one
// holds a blank or is empty.
QStringList words(const QString& line)
{
    return line.split(line.contains(u'|') ? u'|' : u' ');
}

// Every file of the profile and the settings, with its content and the moment it was written.
QHash<QString, std::pair<QByteArray, QDateTime>> snapshot()
{
    QHash<QString, std::pair<QByteArray, QDateTime>> files;
    const QStringList roots{qEnvironmentVariable("XDG_DATA_HOME") + u"/Quill"_s,
                            qEnvironmentVariable("XDG_CONFIG_HOME") + u"/Tavo"_s};
    for (const QString& root : roots) {
        QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile file(it.next());
            // An unreadable file reads as empty, and then differs from its former content.
            file.open(QIODevice::ReadOnly);
            files.insert(file.fileName(), {file.readAll(), QFileInfo(file).lastModified()});
        }
    }
    return files;
}

} // namespace

Q_DECLARE_METATYPE(Check)

// tavoctl's collection, record, duplicate and scorecard commands, run in-process over a signed-in
// profile in the test's own home, each checked for its output and for what it left in the files.
class TestTavoctlCollections : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void commands_data();
    void commands();
    void statsKeepAccountsApart();

private:
    struct Run
    {
        int status;
        QString out;
        QString err;
    };
    static Run tavoctl(const QStringList& arguments);
};

TestTavoctlCollections::Run TestTavoctlCollections::tavoctl(const QStringList& arguments)
{
    QString in;
    QString out;
    QString err;
    QTextStream inStream(&in);
    QTextStream outStream(&out);
    QTextStream errStream(&err);
    const int status = ctl::run(arguments, inStream, outStream, errStream);
    outStream.flush();
    errStream.flush();
    return {status, out, err};
}

void TestTavoctlCollections::init()
{
    QDir(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/Tavo"_s).removeRecursively();
    QDir(qEnvironmentVariable("XDG_DATA_HOME") + u"/Quill"_s).removeRecursively();

    // Sam's library: the built-ins with the start shortcuts, Clients with one record, and a
    // builder app that draws on Clients.
    Defaults defaults;
    TavoAccountStore(defaults).accept(u"sam"_s);
    DB(defaults).activateProfile(u"sam"_s);
    defaults.setString(u"tavoBuilderCollections.invoice"_s, u"Clients,Work"_s);
    defaults.setString(u"tavoBuilderOutputCollections.invoice"_s, u"clients"_s);
    for (const QString& step :
         {u"collection|add|Clients|--fields|Name, Email|--category|Sales & CRM"_s,
          u"record|add|Clients|--name|Acme Ltd|--alias|acme|--value|Name=Acme|--value|Email=hi@acme.test"_s}) {
        QCOMPARE(tavoctl(words(step)).err, QString());
    }
}

void TestTavoctlCollections::commands_data()
{
    QTest::addColumn<QStringList>("given"); // commands run first, each as words()
    QTest::addColumn<QString>("command");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");
    QTest::addColumn<Check>("check");

    const QStringList none;
    const Check nothing;
    const QStringList hideClients{u"collection hide Clients"_s};
    const QStringList twins{u"add x X --collection A"_s, u"add x X --collection B"_s};
    const auto row = [](const char* name, const QStringList& given, const QString& command, int status,
                        const QString& out, const QString& err, const Check& check = {}) {
        QTest::newRow(name) << given << command << status << out << err << check;
    };

    QString listed;
    for (const QString& name : builtInCollections()) {
        const int shortcuts = name == u"Live & dynamic"_s ? 2 : name == u"Personal"_s || name == u"Work"_s ? 1 : 0;
        listed += u"%1\tSystem generated\t%2 shortcuts\t0 records\n"_s.arg(name).arg(shortcuts);
    }
    row("collection list: categories, counts, hidden", hideClients, u"collection list"_s, 0,
        listed + u"Clients\tSales & CRM\t0 shortcuts\t1 records\thidden\n"_s, {});
    row("collection add: fields text without its empty pieces, a built-in category in any case", none,
        u"collection|add|Vendors|--fields| Name, , Phone,,|--category|marketing|--description=Who we buy from"_s, 0,
        u"Added collection Vendors.\n"_s, {}, [](const Saved& saved) {
            QCOMPARE(saved.db.collections().last(), u"Vendors"_s);
            QCOMPARE(saved.fieldsOf(u"vendors"_s), (QStringList{u"Name"_s, u"Phone"_s}));
            QCOMPARE(saved.definition(u"Vendors"_s)->category, u"Marketing"_s);
            QCOMPARE(saved.definition(u"Vendors"_s)->description, u"Who we buy from"_s);
        });
    row("collection add: an empty name", none, u"collection|add| "_s, 1, {}, u"Enter a collection name.\n"_s);
    row("collection add: a built-in name in another case", none, u"collection add WORK"_s, 1, {},
        u"A collection with that name already exists.\n"_s);
    row("collection add: System generated is no choice", none, u"collection|add|Vendors|--category|system generated"_s,
        1, {},
        u"Choose one of these categories: Finance & Billing, Sales & CRM, HR & People, Legal & Agreements, "
        "Marketing, Creative & Media, Operations, Productivity, Collections & Data, Utilities, Personal, Work, "
        "Other.\n"_s);

    row("collection rename: a hidden collection named by a builder", hideClients,
        u"collection|rename|clients| Accounts "_s, 0, u"Renamed Clients to Accounts.\n"_s, {}, [](const Saved& saved) {
            QVERIFY(saved.db.collections().contains(u"Accounts"_s));
            QVERIFY(!saved.db.collections().contains(u"Clients"_s, Qt::CaseInsensitive));
            QCOMPARE(saved.db.hiddenCollections(), QStringList{u"Accounts"_s});
            QCOMPARE(saved.record(u"acme"_s)->collection, u"Accounts"_s);
            QCOMPARE(saved.fieldsOf(u"Accounts"_s), (QStringList{u"Name"_s, u"Email"_s}));
            QCOMPARE(saved.defaults.string(u"tavoBuilderCollections.invoice"_s), u"Accounts, Work"_s);
            QCOMPARE(saved.defaults.string(u"tavoBuilderOutputCollections.invoice"_s), u"Accounts"_s);
        });
    row("collection rename: a change of case only", none, u"collection rename work WORK"_s, 0,
        u"Renamed Work to WORK.\n"_s, {},
        [](const Saved& saved) { QCOMPARE(saved.db.clips().last().group, u"WORK"_s); });
    row("collection rename: onto another collection", none, u"collection rename Clients personal"_s, 1, {},
        u"A collection with that name already exists.\n"_s);
    row("collection rename: to nothing", none, u"collection|rename|Clients|"_s, 1, {}, u"Enter a collection name.\n"_s);
    row("collection rename: an unknown collection", none, u"collection rename Nope X"_s, 1, {},
        u"No collection is named Nope.\n"_s);

    row("collection hide", none, u"collection hide clients"_s, 0, u"Clients is hidden.\n"_s, {},
        [](const Saved& saved) { QCOMPARE(saved.db.hiddenCollections(), QStringList{u"Clients"_s}); });
    row("expand: a record of a hidden collection", hideClients, u"expand acme"_s, 1, {},
        u"No shortcut matches \\acme.\n"_s);
    row("expand: a shortcut of a hidden collection", {u"collection hide Personal"_s}, u"expand \\ty"_s, 1, {},
        u"No shortcut matches \\ty.\n"_s);
    row("expand: a record shown again", hideClients + QStringList{u"collection show CLIENTS"_s}, u"expand acme"_s, 0,
        u"Acme Ltd\nEmail: hi@acme.test\nName: Acme\n"_s, {});

    row("collection remove: an unused collection", {u"collection add Vendors"_s}, u"collection remove vendors"_s, 0,
        u"Removed collection Vendors.\n"_s, {}, [](const Saved& saved) {
            QVERIFY(!saved.db.collections().contains(u"Vendors"_s));
            QVERIFY(!saved.definition(u"Vendors"_s));
        });
    row("collection remove: a built-in", none, u"collection remove imported"_s, 1, {},
        u"Imported is built in and cannot be removed.\n"_s);
    row("collection remove: a name in use", {u"add draft Draft --collection Drafts"_s}, u"collection remove drafts"_s,
        1, {}, u"Drafts is used by 1 shortcut; move or delete them first.\n"_s);
    row("collection remove: a name that holds records", none, u"collection remove Clients"_s, 1, {},
        u"Clients holds 1 record; delete them first.\n"_s);

    row("record add: every --value counts", none,
        u"record|add|clients|--name| Globex |--alias=\\Globex |--value|Name=Globex|--value|email= info@globex.test "_s,
        0, u"Added \\globex to Clients.\n"_s, {}, [](const Saved& saved) {
            QCOMPARE(saved.record(u"globex"_s)->name, u"Globex"_s);
            QCOMPARE(saved.record(u"globex"_s)->values,
                     (QMap<QString, QString>{{u"Name"_s, u"Globex"_s}, {u"Email"_s, u"info@globex.test"_s}}));
        });
    row("record add: a new collection with the fields it fills", none,
        u"record add Suppliers --name Initech --alias ini --value Phone=555"_s, 0, u"Added \\ini to Suppliers.\n"_s, {},
        [](const Saved& saved) {
            QCOMPARE(saved.db.collections().last(), u"Suppliers"_s);
            QCOMPARE(saved.fieldsOf(u"Suppliers"_s), QStringList{u"Phone"_s});
            QCOMPARE(saved.record(u"ini"_s)->values.value(u"Phone"_s), u"555"_s);
        });
    row("record add: an alias taken in another case", none, u"record add Clients --name Other --alias /ACME"_s, 1, {},
        u"That shortcut alias is already used in this collection.\n"_s);
    row("record add: no name", none, u"record add Clients --alias x"_s, 1, {},
        u"Enter both a record name and shortcut alias.\n"_s);
    row("record add: a field the collection lacks", none, u"record add Clients --name X --alias x --value Fax=1"_s, 1,
        {}, u"Clients has no field Fax; its fields are Name, Email.\n"_s);
    row("record add: --value without a field", none, u"record add Clients --value =1"_s, 2, {},
        u"--value needs FIELD=VALUE.\n"
        "Usage: tavoctl record add COLLECTION --name N --alias A [--value FIELD=VALUE]...\n"_s);
    row("record list", none, u"record list CLIENTS"_s, 0,
        u"Clients\t\\acme\tAcme Ltd\tEmail: hi@acme.test; Name: Acme\n"_s, {});
    row("record remove", none, u"record remove clients \\ACME"_s, 0, u"Removed \\acme from Clients.\n"_s, {},
        [](const Saved& saved) { QVERIFY(saved.db.collectionRecords().isEmpty()); });
    row("record remove: an unknown alias", none, u"record remove Clients nope"_s, 1, {},
        u"Clients has no record \\nope.\n"_s);

    row("add: a key that exists already", none, u"add ty Thanks --collection Work"_s, 0, u"Saved \\ty.\n"_s,
        u"\\ty exists already in Personal; added another.\n"_s,
        [](const Saved& saved) { QCOMPARE(saved.db.clips().size(), 5); });
    row("duplicates: none", none, u"duplicates"_s, 0,
        u"No repeated shortcut codes found.\nNo identical collection contents found.\n"_s, {});
    row("duplicates: both panels", twins, u"duplicates"_s, 0,
        u"Repeated shortcuts · 1\n\\x\t2 repeats\t2 occurrences · 2 collections · A, B\n"
        "Identical collections · 1\nA, B\t1 matching items\n"_s,
        {});
    row("stats: the header and the cards with extra copies", twins, u"stats"_s, 0,
        u"Hey, sam\n6 shortcuts · 19 collections\nBackslash popups\t0\nDuplicate collections\t1\n"
        "Repeated shortcuts\t1\nShortcuts used\t0\nShare packages\t0\nApps created\t0\nLive outputs generated\t0\n"
        "Collections published\t0\nApps published\t—\nCollections sold\t—\nApps sold\t—\nRevenue earned\t—\n"_s,
        {});

    row("an unknown option", none, u"collection list --bogus"_s, 2, {},
        u"Unknown option --bogus.\nUsage: tavoctl collection list [--json]\n"_s);
    row("an option without its value", none, u"record add Clients --name"_s, 2, {},
        u"--name needs a value.\nUsage: tavoctl record add COLLECTION --name N --alias A [--value FIELD=VALUE]...\n"_s);
    row("a single option given twice", none, u"list --collection A --collection=B"_s, 2, {},
        u"--collection is given more than once.\nUsage: tavoctl list [--collection NAME] [--json]\n"_s);
    row("a missing argument", none, u"collection rename Clients"_s, 2, {},
        u"Missing arguments.\nUsage: tavoctl collection rename FROM TO\n"_s);
}

void TestTavoctlCollections::commands()
{
    QFETCH(QStringList, given);
    QFETCH(QString, command);
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, err);
    QFETCH(Check, check);

    for (const QString& step : given) {
        const Run run = tavoctl(words(step));
        QVERIFY2(run.status == 0, qPrintable(step + u": "_s + run.err));
    }
    const auto before = snapshot();
    // A write within the same millisecond would otherwise go unseen.
    QTest::qWait(15);

    const Run run = tavoctl(words(command));
    QCOMPARE(run.err, err);
    QCOMPARE(run.out, out);
    QCOMPARE(run.status, status);
    if (status != 0) {
        // A refusal writes nothing, not even what was there.
        QCOMPARE(snapshot(), before);
    }
    if (check) {
        check(Saved());
    }
}

void TestTavoctlCollections::statsKeepAccountsApart()
{
    Defaults defaults;
    recordMetric(defaults, u"sam"_s, Metric::shortcutsUsed, 3);
    QVERIFY(tavoctl({u"stats"_s}).out.contains(u"Shortcuts used\t3\n"_s));

    TavoAccountStore(defaults).accept(u"kim"_s);
    const QJsonObject stats = QJsonDocument::fromJson(tavoctl({u"stats"_s, u"--json"_s}).out.toUtf8()).object();
    QCOMPARE(stats.value(u"username"_s).toString(), u"kim"_s);
    QCOMPARE(stats.value(u"shortcuts"_s).toInteger(-1), 0);
    const QJsonArray cards = stats.value(u"cards"_s).toArray();
    QCOMPARE(cards.size(), 12);
    for (qsizetype i = 0; i < cards.size(); ++i) {
        // A new account counts nothing; the four of sales and revenue, last, never show a number.
        QCOMPARE(cards[i].toObject().value(u"value"_s).toString(), i < 8 ? u"0"_s : u"—"_s);
    }
    QCOMPARE(cards[3].toObject().value(u"title"_s).toString(), u"Shortcuts used"_s);
}

QTEST_GUILESS_MAIN(TestTavoctlCollections)
#include "tst_tavoctl_collections.moc"
