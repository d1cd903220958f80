#include "builder/calculations.h"
#include "store/defaults.h"

#include <QTemporaryDir>
#include <QtTest>

#include <clocale>

using namespace tavo;

namespace {

// "key=value" pairs; a value may hold "=".
BuilderValues valuesOf(const QStringList& pairs)
{
    BuilderValues values;
    for (const QString& pair : pairs) {
        const qsizetype equals = pair.indexOf(u'=');
        values.insert(pair.left(equals), pair.mid(equals + 1));
    }
    return values;
}

} // namespace

class TestCalculations : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void parse_data();
    void parse();
    void names();
    void resolve_data();
    void resolve();
    void mergedOrder_data();
    void mergedOrder();
    void blockTitles_data();
    void blockTitles();
    void orderModel();
};

void TestCalculations::initTestCase()
{
    // The application takes the user's locale; the de_DE run then has a comma as the C library's
    // decimal mark, which no printed number may pick up.
    std::setlocale(LC_ALL, "");
    if (qEnvironmentVariable("LC_ALL").startsWith(QLatin1String("de_DE"))) {
        QVERIFY2(qstrcmp(std::localeconv()->decimal_point, ",") == 0, "the de_DE locale is not installed");
    }
}

void TestCalculations::parse_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("parses");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expression");

    QTest::newRow("name = expression, trimmed")
        << QStringLiteral("  GST = Amount * 18%\n") << true << QStringLiteral("GST") << QStringLiteral("Amount * 18%");
    QTest::newRow("two = split at the first")
        << QStringLiteral("a = b = c") << true << QStringLiteral("a") << QStringLiteral("b = c");
    QTest::newRow("empty name") << QStringLiteral(" = 5") << false << QString() << QString();
    QTest::newRow("empty expression") << QStringLiteral("Total =  ") << false << QString() << QString();
    QTest::newRow("percent label") << QStringLiteral("18% GST") << true << QStringLiteral("GST")
                                   << QStringLiteral("18%");
    QTest::newRow("percent label of several words") << QStringLiteral("Amount * 5% Service Fee") << true
                                                    << QStringLiteral("Service Fee") << QStringLiteral("Amount * 5%");
    QTest::newRow("label must start with a letter") << QStringLiteral("18% 2nd") << false << QString() << QString();
    QTest::newRow("no percent, no equals") << QStringLiteral("Amount GST") << false << QString() << QString();
    QTest::newRow("blank line") << QStringLiteral("   ") << false << QString() << QString();
}

void TestCalculations::parse()
{
    QFETCH(QString, line);
    QFETCH(bool, parses);
    const auto parsed = parseBuilderCalculation(line);
    QCOMPARE(parsed.has_value(), parses);
    if (parsed) {
        QTEST(parsed->first, "name");
        QTEST(parsed->second, "expression");
    }
}

void TestCalculations::names()
{
    QCOMPARE(builderCalculationNames(
                 QStringLiteral("GST = a\nNet Total = b\njunk\n18% Service Fee\n%% = 1\nStart-Date = 2")),
             (QStringList{QStringLiteral("gst"), QStringLiteral("nettotal"), QStringLiteral("servicefee"),
                          QStringLiteral("startdate")}));
    QCOMPARE(builderTokenKey(QStringLiteral(u"Gr\u00F6\u00DFe \u212Aelvin_2 \u0130D")), QStringLiteral("grekelvin2id"));
}

void TestCalculations::resolve_data()
{
    QTest::addColumn<QString>("formulas");
    QTest::addColumn<QStringList>("values");
    QTest::addColumn<QStringList>("expected"); // the whole map after the run
    QTest::addColumn<QString>("summary");

    const QStringList amount{QStringLiteral("Amount=1000")};
    QTest::newRow("empty formula text gives the input back") << QString() << amount << amount << QString();
    QTest::newRow("GST then total: a later line sees an earlier result")
        << QStringLiteral("GST = Amount * 18%\nTotal = Amount + GST") << amount
        << QStringList{QStringLiteral("Amount=1000"), QStringLiteral("gst=180.00"), QStringLiteral("total=1180.00")}
        << QStringLiteral("GST: 180.00\nTotal: 1180.00");
    QTest::newRow("names are whole words, any case")
        << QStringLiteral("X = amount * 2\nY = Amounts * 2") << QStringList{QStringLiteral("Amount=5")}
        << QStringList{QStringLiteral("Amount=5"), QStringLiteral("x=10.00")} << QStringLiteral("X: 10.00");
    QTest::newRow("a letter of another script continues the word")
        << QStringLiteral(u"T = Tax\u00E9 + 1") << QStringList{QStringLiteral("Tax=5")}
        << QStringList{QStringLiteral("Tax=5")} << QString();
    QTest::newRow("names beyond ASCII, any case")
        << QStringLiteral(u"T = GR\u00D6\u00DFE * 2") << QStringList{QStringLiteral(u"Gr\u00F6\u00DFe=3")}
        << QStringList{QStringLiteral(u"Gr\u00F6\u00DFe=3"), QStringLiteral("t=6.00")} << QStringLiteral("T: 6.00");
    QTest::newRow("the longer key is replaced first")
        << QStringLiteral("R = Tax Rate * 100 + Tax")
        << QStringList{QStringLiteral("Tax=5"), QStringLiteral("Tax Rate=0.5")}
        << QStringList{QStringLiteral("Tax=5"), QStringLiteral("Tax Rate=0.5"), QStringLiteral("r=55.00")}
        << QStringLiteral("R: 55.00");
    QTest::newRow("percent alone with a label")
        << QStringLiteral("18% GST") << QStringList() << QStringList{QStringLiteral("gst=0.18")}
        << QStringLiteral("GST: 0.18");
    QTest::newRow("expression with a percent label")
        << QStringLiteral("Amount * 18% GST") << amount
        << QStringList{QStringLiteral("Amount=1000"), QStringLiteral("gst=180.00")} << QStringLiteral("GST: 180.00");
    QTest::newRow("discount percent of a value")
        << QStringLiteral("Discounted = Amount * (1 - Discount%)")
        << QStringList{QStringLiteral("Amount=200"), QStringLiteral("Discount=10")}
        << QStringList{QStringLiteral("Amount=200"), QStringLiteral("Discount=10"), QStringLiteral("discounted=180.00")}
        << QStringLiteral("Discounted: 180.00");
    QTest::newRow("average of two values")
        << QStringLiteral("Mean = AVERAGE(Amount, Tax)")
        << QStringList{QStringLiteral("Amount=10"), QStringLiteral("Tax=25")}
        << QStringList{QStringLiteral("Amount=10"), QStringLiteral("Tax=25"), QStringLiteral("mean=17.50")}
        << QStringLiteral("Mean: 17.50");
    QTest::newRow("a symbol-only name computes but is not stored")
        << QStringLiteral("%% = 2 + 3") << QStringList() << QStringList() << QStringLiteral("%%: 5.00");
    QTest::newRow("stored under the key, summary as written")
        << QStringLiteral("Net Total = 1.5 + 2") << QStringList() << QStringList{QStringLiteral("nettotal=3.50")}
        << QStringLiteral("Net Total: 3.50");
    QTest::newRow("currency and group marks are cleaned")
        << QStringLiteral("T = Amount * 2") << QStringList{QStringLiteral(u"Amount=\u20B91,200.50")}
        << QStringList{QStringLiteral(u"Amount=\u20B91,200.50"), QStringLiteral("t=2401.00")}
        << QStringLiteral("T: 2401.00");
    QTest::newRow("a value without a number leaves its name: nothing computes")
        << QStringLiteral("T = Name * 2") << QStringList{QStringLiteral("Name=Acme")}
        << QStringList{QStringLiteral("Name=Acme")} << QString();
    QTest::newRow("a value that is not one number is skipped")
        << QStringLiteral("T = When + 1") << QStringList{QStringLiteral("When=2024-01-05")}
        << QStringList{QStringLiteral("When=2024-01-05")} << QString();
    QTest::newRow("a failed line adds nothing; the next still runs")
        << QStringLiteral("A = 1 / 0\nnot a formula\nB = 2") << QStringList() << QStringList{QStringLiteral("b=2.00")}
        << QStringLiteral("B: 2.00");
    QTest::newRow("a large value is substituted as plain digits")
        << QStringLiteral("T = Amount + 1") << QStringList{QStringLiteral("Amount=1e12")}
        << QStringList{QStringLiteral("Amount=1e12"), QStringLiteral("t=1000000000001.00")}
        << QStringLiteral("T: 1000000000001.00");
    QTest::newRow("a tiny value is substituted as plain digits")
        << QStringLiteral("T = Amount * 1000000000") << QStringList{QStringLiteral("Amount=2.5e-7")}
        << QStringList{QStringLiteral("Amount=2.5e-7"), QStringLiteral("t=250.00")} << QStringLiteral("T: 250.00");
    QTest::newRow("a negative value is squared whole")
        << QStringLiteral("Sq = Amount^2") << QStringList{QStringLiteral("Amount=-5")}
        << QStringList{QStringLiteral("Amount=-5"), QStringLiteral("sq=25.00")} << QStringLiteral("Sq: 25.00");
    QTest::newRow("negative results print with a point")
        << QStringLiteral("Change = 0 - Amount / 8") << QStringList{QStringLiteral("Amount=1234.5")}
        << QStringList{QStringLiteral("Amount=1234.5"), QStringLiteral("change=-154.31")}
        << QStringLiteral("Change: -154.31");
    QTest::newRow("a formula's result beats the typed value it shadows")
        << QStringLiteral("GST = Amount * 18%\nTotal = Amount + GST")
        << QStringList{QStringLiteral("Amount=1000"), QStringLiteral("GST=50")}
        << QStringList{QStringLiteral("Amount=1000"), QStringLiteral("GST=50"), QStringLiteral("gst=180.00"),
                       QStringLiteral("total=1180.00")}
        << QStringLiteral("GST: 180.00\nTotal: 1180.00");
    QTest::newRow("a formula redefining a name takes its new value")
        << QStringLiteral("x = 2\nx = x * 3") << QStringList() << QStringList{QStringLiteral("x=6.00")}
        << QStringLiteral("x: 2.00\nx: 6.00");
    QTest::newRow("an empty key never matches everywhere")
        << QStringLiteral("T = 1 + 1") << QStringList{QStringLiteral("=7")}
        << QStringList{QStringLiteral("=7"), QStringLiteral("t=2.00")} << QStringLiteral("T: 2.00");
}

void TestCalculations::resolve()
{
    QFETCH(QString, formulas);
    QFETCH(QStringList, values);
    QFETCH(QStringList, expected);
    const BuilderCalculationResult result = resolveBuilderCalculations(formulas, valuesOf(values));
    QCOMPARE(result.values, valuesOf(expected));
    QTEST(result.summary, "summary");
}

void TestCalculations::mergedOrder_data()
{
    QTest::addColumn<bool>("stored");
    QTest::addColumn<QStringList>("storedOrder");
    QTest::addColumn<QStringList>("expected");

    const QString action = QStringLiteral("Action: inv");
    const QString clients = QStringLiteral("Collection: Clients");
    const QString amount = QStringLiteral("Variable: Amount");
    const QString due = QStringLiteral("Variable: Due");
    QTest::newRow("nothing stored: the tokens") << false << QStringList() << QStringList{action, clients, amount, due};
    QTest::newRow("stored order kept, a new variable at the end")
        << true << QStringList{amount, action, clients} << QStringList{amount, action, clients, due};
    QTest::newRow("a deleted variable vanishes")
        << true << QStringList{due, QStringLiteral("Variable: Gone"), action, clients, amount}
        << QStringList{due, action, clients, amount};
    QTest::newRow("an empty stored order is filled")
        << true << QStringList() << QStringList{action, clients, amount, due};
}

void TestCalculations::mergedOrder()
{
    QFETCH(bool, stored);
    QFETCH(QStringList, storedOrder);
    const QStringList tokens = formulaTokens(QStringLiteral("inv"), {QStringLiteral("Clients")},
                                             {QStringLiteral("Amount"), QStringLiteral("Due")});
    QTEST(mergedFormulaOrder(stored ? std::optional(storedOrder) : std::nullopt, tokens), "expected");
}

void TestCalculations::blockTitles_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("title");
    QTest::newRow("action") << QStringLiteral("Action: inv") << QStringLiteral("inv");
    QTest::newRow("collection") << QStringLiteral("Collection: Clients") << QStringLiteral("Collection Clients");
    QTest::newRow("variable") << QStringLiteral("Variable: Start Date") << QStringLiteral("Start Date");
}

void TestCalculations::blockTitles()
{
    QFETCH(QString, token);
    QTEST(formulaBlockTitle(token), "title");
}

void TestCalculations::orderModel()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    Defaults defaults(dir.filePath(QStringLiteral("defaults.json")));
    const QString key = QStringLiteral("tavoBuilderFormulaOrder.Invoice");

    QCOMPARE(formulaTokens(QString(), {}, {}), QStringList{QStringLiteral("Action: your-action")});

    FormulaOrderModel model(defaults, QStringLiteral("Invoice"));
    model.load(QStringLiteral("inv"), {QStringLiteral("Clients")},
               {QStringLiteral("Amount"), QStringLiteral("Due Date")});
    QVERIFY(model.isInitialised());
    QVERIFY(!defaults.contains(key));
    QCOMPARE(model.previewText(),
             QStringLiteral(u"Action: inv  |  Command: \\inv-<Clients\u2026>-<amount>-<due-date>"));

    QVERIFY(!model.moveFormulaBlock(0, 4));
    QVERIFY(!model.moveFormulaBlock(-1, 0));
    QVERIFY(!defaults.contains(key));

    QVERIFY(model.moveFormulaBlock(3, 1));
    const QStringList moved{QStringLiteral("Action: inv"), QStringLiteral("Variable: Due Date"),
                            QStringLiteral("Collection: Clients"), QStringLiteral("Variable: Amount")};
    QCOMPARE(model.order(), moved);
    QCOMPARE(defaults.stringList(key), moved);

    QVERIFY(!model.replaceCollectionBlock(1, QStringLiteral("Vendors")));
    QVERIFY(model.replaceCollectionBlock(2, QStringLiteral("Vendors")));
    QCOMPARE(model.collections(), QStringList{QStringLiteral("Vendors")});
    QCOMPARE(defaults.stringList(key)->at(2), QStringLiteral("Collection: Vendors"));

    // A second editor on the same settings reads the stored order; a new variable lands at the end.
    FormulaOrderModel again(defaults, QStringLiteral("Invoice"));
    again.load(QStringLiteral("inv"), {QStringLiteral("Vendors")},
               {QStringLiteral("Amount"), QStringLiteral("Due Date"), QStringLiteral("Note")});
    QCOMPARE(again.order(), QStringList(moved).replaceInStrings(QStringLiteral("Clients"), QStringLiteral("Vendors"))
                                << QStringLiteral("Variable: Note"));
}

QTEST_GUILESS_MAIN(TestCalculations)
#include "tst_calculations.moc"
