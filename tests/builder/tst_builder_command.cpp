#include "builder/builder_app.h"
#include "builder/builder_command.h"
#include "builder/builder_prompt.h"
#include "language/live_tokens.h"
#include "store/defaults.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

using Settings = QList<QPair<QString, QJsonValue>>;

// The keys of one app; `prefix` absent leaves the prefix key out.
Settings app(const QString& name, const std::optional<QString>& prefix, const QString& variables,
             const QString& collections, const QStringList& order = {})
{
    Settings keys = {
        {builderKey(u"Variables"_s, name), variables},
        {builderKey(u"Collections"_s, name), collections},
    };
    if (prefix) {
        keys.append({builderKey(u"Prefix"_s, name), *prefix});
    }
    if (!order.isEmpty()) {
        keys.append({builderKey(u"FormulaOrder"_s, name), QJsonArray::fromStringList(order)});
    }
    return keys;
}

Settings appList(const QStringList& names)
{
    return {{builderAppsKey, QString::fromUtf8(QJsonDocument(QJsonArray::fromStringList(names)).toJson())}};
}

// The app of the Part's examples: Invoice, typed as inv, a client then an amount.
Settings invoice()
{
    return appList({u"Invoice"_s}) +
           app(u"Invoice"_s, u"inv"_s, u"amount"_s, u"Clients"_s, {u"Collection: Clients"_s, u"Variable: amount"_s});
}

Clip clip(const QString& key, const QString& group, const std::optional<QStringList>& groups = std::nullopt)
{
    Clip made;
    made.key = key;
    made.name = key;
    made.group = group;
    made.groups = groups;
    return made;
}

CollectionRecord record(const QString& collection, const QString& alias)
{
    CollectionRecord made;
    made.collection = collection;
    made.name = alias;
    made.alias = alias;
    return made;
}

QList<Clip> clips()
{
    return {clip(u"/north-star"_s, u"Clients"_s), clip(u"/\\globex-corp\\"_s, u"Work"_s, QStringList{u"clients"_s}),
            clip(u"/thanks"_s, u"Personal"_s)};
}

QList<CollectionRecord> records()
{
    return {record(u"Clients"_s, u"acme-ltd"_s),
            record(u"Clients"_s, u"big-co"_s),
            record(u"Clients"_s, u"big"_s),
            record(u"Products"_s, u"co-widget-x"_s),
            record(u"Products"_s, u"widget"_s),
            record(u"Customers"_s, u"jane-doe"_s),
            record(u"clients"_s, u"solo-traders-united-group"_s)};
}

} // namespace

Q_DECLARE_METATYPE(Settings)

// Typed builder commands: the splitter, the format words and the matching of apps and slots, on
// settings in a real store file.
class TestBuilderCommand : public QObject
{
    Q_OBJECT

private slots:
    void split_data();
    void split();
    void quoteRoundTrip_data();
    void quoteRoundTrip();
    void formatCode_data();
    void formatCode();
    void command_data();
    void command();
    void readingChangesNothing();
    void hostileCommandEnds();
    void commandJson();
    void promptDraft_data();
    void promptDraft();

private:
    QTemporaryDir m_dir;
};

void TestBuilderCommand::split_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("tokens");

    QTest::newRow("empty text: one empty token") << u""_s << QStringList{u""_s};
    QTest::newRow("plain") << u"a-b-c"_s << QStringList{u"a"_s, u"b"_s, u"c"_s};
    QTest::newRow("double hyphen: an empty middle token") << u"a--b"_s << QStringList{u"a"_s, u""_s, u"b"_s};
    QTest::newRow("trailing hyphen: an empty last token") << u"a-"_s << QStringList{u"a"_s, u""_s};
    QTest::newRow("quotes group a hyphen") << u"\"a-b\"-c"_s << QStringList{u"a-b"_s, u"c"_s};
    QTest::newRow("quotes inside a token are dropped") << u"x\"y-z\"w"_s << QStringList{u"xy-zw"_s};
    QTest::newRow("backslash outside quotes stays") << u"a\\-b"_s << QStringList{u"a\\"_s, u"b"_s};
    QTest::newRow("backslash inside quotes escapes a quote")
        << u"\"say \\\"hi\\\"\"-x"_s << QStringList{u"say \"hi\""_s, u"x"_s};
    QTest::newRow("backslash inside quotes escapes a backslash") << u"\"a\\\\b\""_s << QStringList{u"a\\b"_s};
    QTest::newRow("unterminated quote runs to the end") << u"a-\"b-c"_s << QStringList{u"a"_s, u"b-c"_s};
    QTest::newRow("empty quotes make an empty token") << u"\"\"-x"_s << QStringList{u""_s, u"x"_s};
    QTest::newRow("blanks are kept") << u" a - b "_s << QStringList{u" a "_s, u" b "_s};
    QTest::newRow("escape at the very end is dropped") << u"\"a\\"_s << QStringList{u"a"_s};
}

void TestBuilderCommand::split()
{
    QFETCH(QString, text);
    QFETCH(QStringList, tokens);
    QCOMPARE(splitBuilderCommand(text), tokens);
}

void TestBuilderCommand::quoteRoundTrip_data()
{
    QTest::addColumn<QStringList>("values");
    QTest::addColumn<QString>("joined");

    QTest::newRow("plain values stay bare") << QStringList{u"acme"_s, u"100"_s} << u"acme-100"_s;
    QTest::newRow("hyphen") << QStringList{u"acme-ltd"_s, u"5"_s} << u"\"acme-ltd\"-5"_s;
    QTest::newRow("space") << QStringList{u"New York"_s} << u"\"New York\""_s;
    QTest::newRow("quote") << QStringList{u"6\" pipe"_s, u"x"_s} << u"\"6\\\" pipe\"-x"_s;
    QTest::newRow("backslash") << QStringList{u"C:\\x"_s} << u"\"C:\\\\x\""_s;
    QTest::newRow("lone quote") << QStringList{u"\""_s} << u"\"\\\"\""_s;
    QTest::newRow("trailing blank survives") << QStringList{u"a "_s, u"b"_s} << u"\"a \"-b"_s;
    QTest::newRow("empty value") << QStringList{u"a"_s, u""_s, u"b"_s} << u"a--b"_s;
}

void TestBuilderCommand::quoteRoundTrip()
{
    QFETCH(QStringList, values);
    QFETCH(QString, joined);
    QStringList quoted;
    for (const QString& value : values) {
        quoted.append(quoteBuilderValue(value));
    }
    QCOMPARE(quoted.join(u'-'), joined);
    QCOMPARE(splitBuilderCommand(joined), values);
}

void TestBuilderCommand::formatCode_data()
{
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("readBack"); // the format the code names as a last token

    QTest::newRow("Image") << u"Image"_s << u"img"_s << u"Image"_s;
    QTest::newRow("PDF") << u"PDF"_s << u"pdf"_s << u"PDF"_s;
    QTest::newRow("WhatsApp") << u"WhatsApp"_s << u"whatsapp"_s << u"WhatsApp"_s;
    QTest::newRow("Email any case") << u"eMail"_s << u"email"_s << u"Email"_s;
    QTest::newRow("HTML") << u"HTML"_s << u"html"_s << u"HTML"_s;
    QTest::newRow("Video") << u"Video"_s << u"video"_s << u"Video"_s;
    QTest::newRow("Text") << u"Text"_s << u"text"_s << u"Text"_s;
    QTest::newRow("unknown label gives text") << u"Poster"_s << u"text"_s << u"Text"_s;
    QTest::newRow("empty label gives text") << u""_s << u"text"_s << u"Text"_s;
}

void TestBuilderCommand::formatCode()
{
    QFETCH(QString, label);
    QFETCH(QString, code);
    QFETCH(QString, readBack);
    QCOMPARE(builderFormatCode(label), code);
    QCOMPARE(builderFormatForWord(code), std::optional(readBack));
}

void TestBuilderCommand::command_data()
{
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("app"); // empty: nothing matches
    QTest::addColumn<QStringList>("slotList");
    QTest::addColumn<QStringList>("slotValues");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("format");
    QTest::addColumn<bool>("complete");

    const QStringList invoiceSlots{u"collection Clients"_s, u"variable amount"_s};
    const auto inv = [&](const char* name, const QString& typed, const QStringList& values, const QString& key,
                         const QString& format = u"PDF"_s, bool complete = true) {
        QTest::newRow(name) << invoice() << typed << u"Invoice"_s << invoiceSlots << values << key << format
                            << complete;
    };
    const auto none = [](const char* name, const Settings& settings, const QString& typed) {
        QTest::newRow(name) << settings << typed << QString() << QStringList() << QStringList() << QString()
                            << QString() << false;
    };

    inv("bare prefix: two empty slots", u"\\inv"_s, {u""_s, u""_s}, u"inv"_s, u"PDF"_s, false);
    inv("hyphenated alias and amount", u"\\inv-acme-ltd-100"_s, {u"acme-ltd"_s, u"100"_s}, u"inv-acme-ltd-100"_s);
    inv("format word after the slots", u"\\inv-acme-ltd-100-img"_s, {u"acme-ltd"_s, u"100"_s}, u"inv-acme-ltd-100"_s,
        u"Image"_s);
    inv("format word in capitals", u"\\inv-acme-ltd-100-WA"_s, {u"acme-ltd"_s, u"100"_s}, u"inv-acme-ltd-100"_s,
        u"WhatsApp"_s);
    inv("unknown alias fills one token", u"\\inv-acme-100"_s, {u"acme"_s, u"100"_s}, u"inv-acme-100"_s);
    inv("typed case kept", u"\\INV-ACME-LTD-100"_s, {u"ACME-LTD"_s, u"100"_s}, u"inv-ACME-LTD-100"_s);
    inv("quoted value", u"\\inv-\"a-b\"-5"_s, {u"a-b"_s, u"5"_s}, u"inv-a-b-5"_s);
    inv("slash trigger, blanks around", u"  /inv-acme-ltd-7 \n"_s, {u"acme-ltd"_s, u"7"_s}, u"inv-acme-ltd-7"_s);
    inv("no trigger character", u"inv-big-3"_s, {u"big"_s, u"3"_s}, u"inv-big-3"_s);
    inv("partial: alias only", u"\\inv-acme-ltd"_s, {u"acme-ltd"_s, u""_s}, u"inv-acme-ltd"_s, u"PDF"_s, false);
    inv("trailing hyphen: an empty slot", u"\\inv-acme-"_s, {u"acme"_s, u""_s}, u"inv-acme"_s, u"PDF"_s, false);
    inv("hyphen alone after the prefix: no tokens", u"\\inv-"_s, {u""_s, u""_s}, u"inv"_s, u"PDF"_s, false);
    inv("empty first value", u"\\inv--100"_s, {u""_s, u"100"_s}, u"inv-100"_s, u"PDF"_s, false);
    inv("blank value is not complete", u"\\inv-\" \"-100"_s, {u" "_s, u"100"_s}, u"inv- -100"_s, u"PDF"_s, false);
    inv("format word counts only when tokens outnumber slots", u"\\inv-acme-pdf"_s, {u"acme"_s, u"pdf"_s},
        u"inv-acme-pdf"_s);
    inv("format word taken, alias fills what is left", u"\\inv-acme-ltd-video"_s, {u"acme-ltd"_s, u""_s},
        u"inv-acme-ltd"_s, u"Video"_s, false);
    inv("shortcut key of the collection is an alias", u"\\inv-north-star-5"_s, {u"north-star"_s, u"5"_s},
        u"inv-north-star-5"_s);
    inv("shortcut in the collection through its further groups", u"\\inv-GLOBEX-corp-5"_s, {u"GLOBEX-corp"_s, u"5"_s},
        u"inv-GLOBEX-corp-5"_s);
    inv("record of the collection in another case", u"\\inv-solo-traders-united-group-9"_s,
        {u"solo-traders-united-group"_s, u"9"_s}, u"inv-solo-traders-united-group-9"_s);
    inv("longest alias wins", u"\\inv-big-co-1"_s, {u"big-co"_s, u"1"_s}, u"inv-big-co-1"_s);
    none("surplus tokens that are no format word", invoice(), u"\\inv-x-1-2-3"_s);
    none("prefix must be followed by a hyphen", invoice(), u"\\invoice-x"_s);
    none("a longer word that starts with the prefix", invoice(), u"\\invx"_s);
    none("an unknown alias does not stretch over two tokens", invoice(), u"\\inv-acme-co-1"_s);
    none("trigger character alone", invoice(), u"\\"_s);
    none("empty text", invoice(), u"   "_s);

    // Two collection slots: the first alias must give way so that the second can take the rest.
    const Settings order = appList({u"Order"_s}) + app(u"Order"_s, u"order"_s, u""_s, u"Clients, Products"_s);
    QTest::newRow("backtracking: a shorter first alias lets the rest be consumed")
        << order << u"\\order-big-co-widget-x"_s << u"Order"_s
        << QStringList{u"collection Clients"_s, u"collection Products"_s} << QStringList{u"big"_s, u"co-widget-x"_s}
        << u"order-big-co-widget-x"_s << u"PDF"_s << true;
    QTest::newRow("without an order: collections first, then variables")
        << appList({u"Quote"_s}) + app(u"Quote"_s, u"q"_s, u"Qty, Rate"_s, u"Products"_s) << u"\\q-widget-2-30"_s
        << u"Quote"_s << QStringList{u"collection Products"_s, u"variable Qty"_s, u"variable Rate"_s}
        << QStringList{u"widget"_s, u"2"_s, u"30"_s} << u"q-widget-2-30"_s << u"PDF"_s << true;
    QTest::newRow("order drops unlisted variables and keeps its spelling")
        << appList({u"Quote"_s}) +
               app(u"Quote"_s, u"q"_s, u"Qty, Rate"_s, u"Products"_s,
                   {u"Variable: RATE"_s, u"Collection: products"_s, u"Formula: x"_s, u"Variable: nope"_s})
        << u"\\q-9-widget"_s << u"Quote"_s << QStringList{u"variable RATE"_s, u"collection products"_s}
        << QStringList{u"9"_s, u"widget"_s} << u"q-9-widget"_s << u"PDF"_s << true;
    QTest::newRow("order naming no collection keeps them all")
        << appList({u"Quote"_s}) + app(u"Quote"_s, u"q"_s, u"Qty"_s, u"Products"_s, {u"Variable: Qty"_s}) << u"\\q-5"_s
        << u"Quote"_s << QStringList{u"variable Qty"_s} << QStringList{u"5"_s} << u"q-5"_s << u"PDF"_s << true;

    const Settings noSlots = appList({u"Hello"_s}) + app(u"Hello"_s, u"hello"_s, u""_s, u""_s);
    QTest::newRow("no slots: the bare prefix is complete")
        << noSlots << u"\\HELLO"_s << u"Hello"_s << QStringList() << QStringList() << u"hello"_s << u"PDF"_s << true;
    QTest::newRow("no slots: a format word") << noSlots << u"\\hello-html"_s << u"Hello"_s << QStringList()
                                             << QStringList() << u"hello"_s << u"HTML"_s << true;
    none("no slots: any other token", noSlots, u"\\hello-there"_s);

    // Prefixes: the slug when the key is absent, nothing when it is empty.
    const Settings slugged = appList({u"Abcdefghijk Zed"_s}) + app(u"Abcdefghijk Zed"_s, std::nullopt, u"n"_s, u""_s);
    QTest::newRow("slug cut at 12 may end in a hyphen")
        << slugged << u"\\abcdefghijk--4"_s << u"Abcdefghijk Zed"_s << QStringList{u"variable n"_s}
        << QStringList{u"4"_s} << u"abcdefghijk--4"_s << u"PDF"_s << true;
    QTest::newRow("slug of punctuation runs")
        << appList({u"Tax & GST Bill!"_s}) + app(u"Tax & GST Bill!"_s, std::nullopt, u""_s, u""_s)
        << u"\\Tax-GST-Bill-"_s << u"Tax & GST Bill!"_s << QStringList() << QStringList() << u"tax-gst-bill"_s
        << u"PDF"_s << true;
    none("an empty prefix turns the command off", appList({u"Off"_s}) + app(u"Off"_s, u""_s, u""_s, u""_s), u"\\off"_s);
    QTest::newRow("the first app in list order wins")
        << appList({u"B"_s, u"A"_s}) + app(u"A"_s, u"dup"_s, u"x"_s, u""_s) + app(u"B"_s, u"dup"_s, u"y"_s, u""_s)
        << u"\\dup-1"_s << u"B"_s << QStringList{u"variable y"_s} << QStringList{u"1"_s} << u"dup-1"_s << u"PDF"_s
        << true;
    QTest::newRow("an app that fails hands on to the next")
        << appList({u"A"_s, u"B"_s}) + app(u"A"_s, u"dup"_s, u"x"_s, u""_s) + app(u"B"_s, u"dup"_s, u"x, y"_s, u""_s)
        << u"\\dup-1-2"_s << u"B"_s << QStringList{u"variable x"_s, u"variable y"_s} << QStringList{u"1"_s, u"2"_s}
        << u"dup-1-2"_s << u"PDF"_s << true;
    QTest::newRow("the saved format is the default")
        << invoice() + Settings{{builderKey(u"Format"_s, u"Invoice"_s), u"Email"_s}} << u"\\inv-big-2"_s << u"Invoice"_s
        << invoiceSlots << QStringList{u"big"_s, u"2"_s} << u"inv-big-2"_s << u"Email"_s << true;
    none("an undecodable app list is no apps",
         Settings{{builderAppsKey, u"[\"Invoice\""_s}} + app(u"Invoice"_s, u"inv"_s, u""_s, u""_s), u"\\inv"_s);

    // The old bill schema: customer and product were variables beside their collections.
    const Settings oldBill =
        appList({u"Bill"_s}) + app(u"Bill"_s, u"BILL"_s, u"customer, Product, amount"_s, u"Customers, Products"_s,
                                   {u"Variable: customer"_s, u"Variable: amount"_s});
    QTest::newRow("old bill schema is read migrated")
        << oldBill << u"\\bill-jane-doe-widget-12"_s << u"Bill"_s
        << QStringList{u"collection Customers"_s, u"collection Products"_s, u"variable Amount"_s}
        << QStringList{u"jane-doe"_s, u"widget"_s, u"12"_s} << u"BILL-jane-doe-widget-12"_s << u"PDF"_s << true;
    QTest::newRow("a bill without the old schema keeps its variables")
        << appList({u"Bill"_s}) + app(u"Bill"_s, u"bill"_s, u"Client, amount"_s, u"Customers"_s)
        << u"\\bill-jane-doe-x-1"_s << u"Bill"_s
        << QStringList{u"collection Customers"_s, u"variable Client"_s, u"variable amount"_s}
        << QStringList{u"jane-doe"_s, u"x"_s, u"1"_s} << u"bill-jane-doe-x-1"_s << u"PDF"_s << true;
    QTest::newRow("another prefix with the old schema is left alone")
        << appList({u"Bill"_s}) + app(u"Bill"_s, u"bl"_s, u"customer"_s, u"Customers"_s) << u"\\bl-jane-doe-x"_s
        << u"Bill"_s << QStringList{u"collection Customers"_s, u"variable customer"_s}
        << QStringList{u"jane-doe"_s, u"x"_s} << u"bl-jane-doe-x"_s << u"PDF"_s << true;
}

void TestBuilderCommand::command()
{
    QFETCH(Settings, settings);
    QFETCH(QString, typed);
    QFETCH(QString, app);
    QFETCH(QStringList, slotList);
    QFETCH(QStringList, slotValues);
    QFETCH(QString, key);
    QFETCH(QString, format);
    QFETCH(bool, complete);

    QFile::remove(m_dir.filePath(u"defaults.json"_s));
    Defaults defaults(m_dir.filePath(u"defaults.json"_s));
    defaults.setValues(settings);
    const std::optional<CustomBuilderCommand> command = customBuilderCommand(typed, clips(), records(), defaults);
    if (app.isEmpty()) {
        QVERIFY2(!command, qPrintable(command ? command->app : QString()));
        return;
    }
    QVERIFY(command);
    QCOMPARE(command->app, app);
    QStringList typedSlots;
    for (qsizetype slot = 0; slot < command->slotKinds.size(); ++slot) {
        typedSlots.append(command->slotKinds[slot] + u' ' + command->slotNames[slot]);
    }
    QCOMPARE(typedSlots, slotList);
    QCOMPARE(command->slotValues, slotValues);
    QCOMPARE(command->key, key);
    QCOMPARE(command->format, format);
    QCOMPARE(command->isComplete(), complete);

    // The per-kind lists are the slots split by kind, in slot order.
    QStringList fields;
    QStringList values;
    QStringList collections;
    QStringList collectionValues;
    for (qsizetype slot = 0; slot < command->slotKinds.size(); ++slot) {
        const bool collection = command->slotKinds[slot] == builderSlotCollection;
        (collection ? collections : fields).append(command->slotNames[slot]);
        (collection ? collectionValues : values).append(command->slotValues[slot]);
    }
    QCOMPARE(command->fields, fields);
    QCOMPARE(command->values, values);
    QCOMPARE(command->collections, collections);
    QCOMPARE(command->collectionValues, collectionValues);
}

void TestBuilderCommand::readingChangesNothing()
{
    // The parser reads an old bill as migrated but leaves the store to its writers.
    QFile::remove(m_dir.filePath(u"defaults.json"_s));
    Defaults defaults(m_dir.filePath(u"defaults.json"_s));
    defaults.setValues(
        appList({u"Bill"_s}) +
        app(u"Bill"_s, u"bill"_s, u"Customer, Product, Amount"_s, u"Customers, Products"_s, {u"Variable: Customer"_s}) +
        Settings{{builderKey(u"Prompt"_s, u"Bill"_s), legacyBillPrompt},
                 {builderKey(u"DefaultPrompt"_s, u"Bill"_s), u"own words"_s}});
    QFile file(defaults.filePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray before = file.readAll();
    file.close();

    const std::optional<CustomBuilderCommand> command = customBuilderCommand(u"\\bill"_s, {}, {}, defaults);
    QVERIFY(command);
    QCOMPARE(command->prompt, u"own words"_s); // the saved default is no legacy text
    QCOMPARE(command->fields, QStringList{u"Amount"_s});
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), before);

    defaults.remove(builderKey(u"DefaultPrompt"_s, u"Bill"_s));
    QCOMPARE(customBuilderCommand(u"\\bill"_s, {}, {}, defaults)->prompt, migratedBillPrompt);
}

void TestBuilderCommand::hostileCommandEnds()
{
    // Eight collection slots whose aliases have one to eight words, and forty tokens they cannot
    // take: without memory of failed tries this search would not end in a test's life.
    QList<BuilderCommandApp> apps(1);
    apps[0].name = u"Hostile"_s;
    apps[0].prefix = u"h"_s;
    QList<CollectionRecord> aliases;
    for (int slot = 0; slot < 8; ++slot) {
        apps[0].slotKinds.append(builderSlotCollection);
        apps[0].slotNames.append(u"C%1"_s.arg(slot));
        for (int words = 1; words <= 8; ++words) {
            QStringList alias(words, u"a"_s);
            aliases.append(record(u"C%1"_s.arg(slot), alias.join(u'-')));
        }
    }
    const BuilderCommandSnapshot snapshot(apps, {}, aliases);
    // Five runs of seven alias words, each closed by a word no alias has: ten slots' worth.
    QStringList runs;
    for (int run = 0; run < 5; ++run) {
        runs += QStringList(7, u"a"_s);
        runs.append(u"b"_s);
    }
    QVERIFY(!snapshot.command(u"\\h-"_s + runs.join(u'-')));
    const QStringList tokens(40, u"a"_s);
    // Forty words of aliases over eight slots of at most eight words each still fit.
    const std::optional<CustomBuilderCommand> fits = snapshot.command(u"\\h-"_s + tokens.join(u'-'));
    QVERIFY(fits);
    // Longest first: five slots of eight words each, and the last three left empty.
    const QString eight = QStringList(8, u"a"_s).join(u'-');
    QCOMPARE(fits->slotValues, (QStringList{eight, eight, eight, eight, eight, u""_s, u""_s, u""_s}));
}

void TestBuilderCommand::commandJson()
{
    QFile::remove(m_dir.filePath(u"defaults.json"_s));
    Defaults defaults(m_dir.filePath(u"defaults.json"_s));
    defaults.setValues(invoice() +
                       Settings{{builderKey(u"DefaultRTF"_s, u"Invoice"_s), Defaults::bytesValue("{\\rtf1}")},
                                {builderKey(u"Template"_s, u"Invoice"_s), u"Bill"_s},
                                {builderKey(u"DefaultFontSize"_s, u"Invoice"_s), 0}});
    const QJsonObject json = customBuilderCommand(u"\\inv-big"_s, {}, records(), defaults)->toJson();
    QCOMPARE(json.value(u"template"_s).toString(), u"Bill"_s);
    QCOMPARE(json.value(u"richTextData"_s).toString(), QString::fromLatin1(QByteArray("{\\rtf1}").toBase64()));
    QCOMPARE(json.value(u"fontSize"_s).toDouble(), 11.0);
    QCOMPARE(json.value(u"isComplete"_s).toBool(), false);
    QCOMPARE(json.value(u"slotValues"_s).toArray(), (QJsonArray{u"big"_s, u""_s}));
    QCOMPARE(json.value(u"fontColor"_s).toString(), u"Ink"_s);
}

void TestBuilderCommand::promptDraft_data()
{
    QTest::addColumn<QString>("payload");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("paths");

    QTest::newRow("a record: its values and its files; the app's action by default")
        << u"inv-acme-ltd-100"_s << u"Create a Invoice.\nClients: hello@acme.test, 555 0100\namount: 100"_s
        << QStringList{u"/media/acme.png"_s};
    QTest::newRow("a shortcut of the collection before a record; its live tokens filled")
        << u"inv-north-star-5"_s << u"Create a Invoice.\nClients: North Star, Wednesday {{unix}}\namount: 5"_s
        << QStringList{u"/media/star.pdf"_s};
    QTest::newRow("an empty value asks for it; the request follows")
        << u"inv-acme-ltd-prompt-keep-it-short"_s
        << u"Create a Invoice.\nClients: hello@acme.test, 555 0100\namount: [enter amount]\n\nUser request:\nkeep it short"_s
        << QStringList{u"/media/acme.png"_s};
    QTest::newRow("no app: free text") << u"hello-there"_s << QString() << QStringList();
}

void TestBuilderCommand::promptDraft()
{
    QFETCH(QString, payload);
    QFETCH(QString, text);
    QFETCH(QStringList, paths);

    QFile::remove(m_dir.filePath(u"defaults.json"_s));
    Defaults defaults(m_dir.filePath(u"defaults.json"_s));
    defaults.setValues(invoice());
    QList<Clip> library = clips();
    library[0].text = u"North Star, {{weekday}} {{unix}}"_s; // prompts keep the tokens they do not fill
    library[0].files = {u"/media/star.pdf"_s};
    QList<CollectionRecord> known = records();
    known[0].values = {{u"Phone"_s, u"555 0100"_s}, {u"Email"_s, u"hello@acme.test"_s}, {u"Fax"_s, u" "_s}};
    known[0].files = {u"/media/acme.png"_s};

    LiveTokenSources sources;
    sources.now = [] { return QDateTime(QDate(2026, 11, 25), QTime(9, 30)); };
    sources.locale = "en_US";
    const std::optional<BuilderPromptDraft> draft = builderPromptDraft(payload, library, known, defaults, sources);
    if (text.isEmpty()) {
        QVERIFY(!draft);
        return;
    }
    QVERIFY(draft);
    QCOMPARE(draft->text, text);
    QCOMPARE(draft->referencePaths, paths);
}

QTEST_GUILESS_MAIN(TestBuilderCommand)
#include "tst_builder_command.moc"
