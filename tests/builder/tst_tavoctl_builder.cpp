#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

struct Run
{
    int status;
    QString out;
    QString err;
};

// "builder set Invoice Prefix inv" as its arguments; "|" separates them instead when one holds a
// blank or is empty.
QStringList words(const QString& line)
{
    return line.split(line.contains(u'|') ? u'|' : u' ');
}

Run tavoctl(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral(TAVOCTL_PATH), arguments);
    if (!process.waitForFinished(20000)) {
        process.kill();
        return {-1, {}, {}};
    }
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

QString scratchFile(const QString& name, const QByteArray& content)
{
    const QString path = qEnvironmentVariable("HOME") + u'/' + name;
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(content);
    return path;
}

} // namespace

// `tavoctl builder` as a user runs it: the real program over a signed-in profile with a Clients
// collection and an Invoice app, typed as inv, a client then an amount.
class TestTavoctlBuilder : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void commands_data();
    void commands();
};

void TestTavoctlBuilder::init()
{
    QDir(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/Tavo"_s).removeRecursively();
    QDir(qEnvironmentVariable("XDG_DATA_HOME") + u"/Quill"_s).removeRecursively();
    {
        Defaults defaults;
        TavoAccountStore(defaults).accept(u"sam"_s);
        DB(defaults).activateProfile(u"sam"_s);
    }
    for (const QString& step : {
             u"collection|add|Clients|--fields|Name, City"_s,
             u"record|add|Clients|--name|Acme Ltd|--alias|acme-ltd|--value|City=Pune"_s,
             u"record|add|Clients|--name|Acme|--alias|acme"_s,
             u"builder new Invoice"_s,
             u"builder set Invoice Prefix inv"_s,
             u"builder set Invoice Collections Clients"_s,
             u"builder set Invoice Variables amount"_s,
             u"builder|set|Invoice|FormulaOrder|[\"Collection: Clients\", \"Variable: amount\"]"_s,
         }) {
        const Run run = tavoctl(words(step));
        QVERIFY2(run.status == 0, qPrintable(step + u": "_s + run.err));
    }
}

void TestTavoctlBuilder::commands_data()
{
    QTest::addColumn<QStringList>("given"); // commands run first, each as words()
    QTest::addColumn<QString>("command");
    QTest::addColumn<int>("status");
    // Standard output; a JSON object lists the members the output must hold, a JSON array is the
    // whole output.
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");

    const QStringList none;
    const auto row = [](const char* name, const QStringList& given, const QString& command, int status,
                        const QString& out,
                        const QString& err = {}) { QTest::newRow(name) << given << command << status << out << err; };
    const QString prompt = scratchFile(u"prompt.txt"_s, "Line one\nAmount: ₹{{amount}}\n");
    const QString rtf = scratchFile(u"template.rtf"_s, "{\\rtf1\\ansi \\b Hi\\b0}");

    row("list: name, prefix, format, slots", none, u"builder list"_s, 0,
        u"Invoice\t\\inv\tPDF\tClients (collection), amount (variable)\n"_s);
    row("list as JSON", none, u"builder list --json"_s, 0, uR"([{"name": "Invoice", "prefix": "inv", "format": "PDF",
              "slots": [{"kind": "collection", "name": "Clients"}, {"kind": "variable", "name": "amount"}]}])"_s);
    row("list: an empty prefix shows no command", {u"builder|set|Invoice|Prefix|"_s}, u"builder list"_s, 0,
        u"Invoice\t-\tPDF\tClients (collection), amount (variable)\n"_s);
    row("list: an old bill is shown migrated",
        {u"builder new Bill"_s, u"builder set Bill Prefix bill"_s, u"builder|set|Bill|Variables|customer, Amount"_s,
         u"builder set Bill Collections Customers"_s},
        u"builder list"_s, 0,
        u"Invoice\t\\inv\tPDF\tClients (collection), amount (variable)\n"
        "Bill\t\\bill\tPDF\tCustomers (collection), Amount (variable)\n"_s);
    row("show: a complete command", none, u"builder show \\inv-acme-ltd-100-img"_s, 0,
        u"App: Invoice\nPrefix: \\inv\nKey: inv-acme-ltd-100\nFormat: Image\nTemplate: Blank\nComplete: yes\n"
        "Slot 1: Clients (collection): acme-ltd\nSlot 2: amount (variable): 100\n"_s);
    row("show as JSON: the record's fields and isComplete", none, u"builder show /INV-acme --json"_s, 0,
        uR"({"app": "Invoice", "prefix": "inv", "key": "inv-acme", "isComplete": false, "format": "PDF",
             "slotKinds": ["collection", "variable"], "slotNames": ["Clients", "amount"],
             "slotValues": ["acme", ""], "collections": ["Clients"], "collectionValues": ["acme"],
             "fields": ["amount"], "values": [""], "template": "Blank", "fontSize": 11, "bold": false,
             "fontColor": "Ink", "richTextData": null, "outputCollections": []})"_s);
    row("show: nothing matches", none, u"builder show \\inv-x-1-2"_s, 1, {},
        u"No builder app matches \\inv-x-1-2.\n"_s);
    row("show: a hidden collection's aliases are not offered", {u"collection hide Clients"_s},
        u"builder show \\inv-acme-ltd-100"_s, 1, {}, u"No builder app matches \\inv-acme-ltd-100.\n"_s);
    row("show: signed out", {u"account signout"_s}, u"builder show \\inv"_s, 1, {}, u"Sign in to Tavo first.\n"_s);

    row("new from a preset", none, u"builder new Quotes --preset 5"_s, 0, u"Added builder app Quotes (\\quote).\n"_s);
    row("new from a preset, then listed", {u"builder new Quotes --preset 5"_s}, u"builder list"_s, 0,
        u"Invoice\t\\inv\tPDF\tClients (collection), amount (variable)\n"
        "Quotes\t\\quote\tPDF\tCustomers (collection), Products (collection), Customer (variable), Product "
        "(variable), Quantity (variable), Rate (variable)\n"_s);
    row("new: a slug prefix", none, u"builder|new|Purchase Orders 2025"_s, 0,
        u"Added builder app Purchase Orders 2025 (\\purchase-ord).\n"_s);
    row("new: a name taken in another case", none, u"builder new INVOICE"_s, 1, {},
        u"An app named INVOICE already exists.\n"_s);
    row("new: a blank name", none, u"builder|new| "_s, 1, {}, u"Give the action a short name first.\n"_s);

    row("set text from a file", {u"builder|set|invoice|prompt|@"_s + prompt}, u"builder show \\inv --json"_s, 0,
        uR"({"prompt": "Line one\nAmount: ₹{{amount}}\n"})"_s);
    row("set bytes from a file", {u"builder|set|Invoice|DefaultRTF|@"_s + rtf}, u"builder show \\inv --json"_s, 0,
        uR"({"richTextData": "%1"})"_s.arg(QString::fromLatin1(QByteArray("{\\rtf1\\ansi \\b Hi\\b0}").toBase64())));
    row("set flags and numbers", {u"builder set Invoice Bold yes"_s, u"builder set Invoice DefaultFontSize 12.5"_s},
        u"builder show \\inv --json"_s, 0, uR"({"bold": true, "fontSize": 12.5})"_s);
    row("set a list one item per line", {u"builder|set|Invoice|FormulaOrder|Variable: amount\nCollection: Clients"_s},
        u"builder show \\inv-5-acme-ltd --json"_s, 0, uR"({"slotValues": ["5", "acme-ltd"], "isComplete": true})"_s);
    row("set: the confirmation", none, u"builder set Invoice Format Email"_s, 0, u"Set tavoBuilderFormat.Invoice.\n"_s);
    row("set: not a number", none, u"builder set Invoice FontSize big"_s, 1, {},
        u"Give a number, such as 11 or 12.5.\n"_s);
    row("set: not a flag", none, u"builder set Invoice Italic maybe"_s, 1, {}, u"Give true or false.\n"_s);
    row("set: an unknown app", none, u"builder set Nope Prefix x"_s, 1, {}, u"No builder app is named Nope.\n"_s);
    row("set: a file that is not there", none, u"builder set Invoice Prompt @/nonexistent/p.txt"_s, 1, {},
        u"Could not read /nonexistent/p.txt.\n"_s);
    row("unset: the slug for the prefix, Modern for the template",
        {u"builder unset Invoice Prefix"_s, u"builder unset Invoice Template"_s},
        u"builder show \\invoice-acme-ltd-5"_s, 0,
        u"App: Invoice\nPrefix: \\invoice\nKey: invoice-acme-ltd-5\nFormat: PDF\nTemplate: Modern\nComplete: yes\n"
        "Slot 1: Clients (collection): acme-ltd\nSlot 2: amount (variable): 5\n"_s);
    row("unset: the confirmation", none, u"builder unset Invoice Variables"_s, 0,
        u"Removed tavoBuilderVariables.Invoice.\n"_s);
}

void TestTavoctlBuilder::commands()
{
    QFETCH(QStringList, given);
    QFETCH(QString, command);
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, err);

    for (const QString& step : given) {
        const Run run = tavoctl(words(step));
        QVERIFY2(run.status == 0, qPrintable(step + u": "_s + run.err));
    }
    const Run run = tavoctl(words(command));
    QCOMPARE(run.err, err);
    QCOMPARE(run.status, status);
    const QJsonDocument expected = QJsonDocument::fromJson(out.toUtf8());
    if (expected.isObject()) {
        const QJsonObject actual = QJsonDocument::fromJson(run.out.toUtf8()).object();
        const QJsonObject members = expected.object();
        for (auto it = members.begin(); it != members.end(); ++it) {
            QVERIFY2(actual.contains(it.key()), qPrintable(it.key()));
            QCOMPARE(actual.value(it.key()), it.value());
        }
    } else if (expected.isArray()) {
        QCOMPARE(QJsonDocument::fromJson(run.out.toUtf8()).array(), expected.array());
    } else {
        QCOMPARE(run.out, out);
    }
}

QTEST_GUILESS_MAIN(TestTavoctlBuilder)
#include "tst_tavoctl_builder.moc"
