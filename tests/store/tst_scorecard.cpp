#include "store/defaults.h"
#include "store/profile_store.h"
#include "store/scorecard.h"

#include <QCoreApplication>
#include <QProcess>
#include <QtTest>

using namespace tavo;

// The scorecard's numbers: each account's own counters, twelve cards in order, sales never a
// number, and counts from several processes at once all kept.
class TestScorecard : public QObject
{
    Q_OBJECT

private slots:
    void cards_data();
    void cards();
    void countsGatherAndAreWrittenOnce();
    void twoProcessesCountingAtOnceLoseNothing();
};

void TestScorecard::cards_data()
{
    QTest::addColumn<QString>("writer"); // the account whose uses were counted
    QTest::addColumn<QString>("reader"); // the account signed in
    QTest::addColumn<qint64>("used");
    QTest::addColumn<qint64>("expectedUsed");
    QTest::newRow("a new account shows 0") << QString() << QStringLiteral("newcomer") << qint64(0) << qint64(0);
    QTest::newRow("another account's counters do not show")
        << QStringLiteral("sam") << QStringLiteral("robin") << qint64(7) << qint64(0);
    QTest::newRow("the account's own counters show, whatever the case of its name")
        << QStringLiteral("Sam") << QStringLiteral(" sam") << qint64(12) << qint64(12);
}

void TestScorecard::cards()
{
    QFETCH(QString, writer);
    QFETCH(QString, reader);
    QFETCH(qint64, used);
    QFETCH(qint64, expectedUsed);
    QTemporaryDir dir;
    Defaults defaults(dir.filePath(QStringLiteral("defaults.json")));
    if (!writer.isEmpty()) {
        recordMetric(defaults, writer, Metric::shortcutsUsed, used);
        recordMetric(defaults, writer, Metric::backslashInvocations, used * 2);
    }
    defaults.setString(QStringLiteral("tavoCustomBuilderAppsJSON"),
                       QStringLiteral("[{\"name\":\"A\"},{\"name\":\"B\"}]"));
    ScorecardNumbers numbers = readScorecard(defaults, reader);
    numbers.sharePackages = 99; // whatever the counts, sales stay unavailable
    const QList<SpriteDashboardMetric> metrics = scorecardMetrics(numbers);

    const QStringList titles = {QStringLiteral("Backslash popups"),
                                QStringLiteral("Duplicate collections"),
                                QStringLiteral("Repeated shortcuts"),
                                QStringLiteral("Shortcuts used"),
                                QStringLiteral("Share packages"),
                                QStringLiteral("Apps created"),
                                QStringLiteral("Live outputs generated"),
                                QStringLiteral("Collections published"),
                                QStringLiteral("Apps published"),
                                QStringLiteral("Collections sold"),
                                QStringLiteral("Apps sold"),
                                QStringLiteral("Revenue earned")};
    QStringList shown;
    for (const SpriteDashboardMetric& metric : metrics) {
        shown << metric.title;
    }
    QCOMPARE(shown, titles);
    QCOMPARE(metrics.at(0).value, QString::number(expectedUsed * 2));
    QCOMPARE(metrics.at(3).value, QString::number(expectedUsed));
    QCOMPARE(metrics.at(5).value, QStringLiteral("2"));
    for (int sales = 8; sales < 12; ++sales) {
        QCOMPARE(metrics.at(sales).value, QStringLiteral("\u2014"));
    }

    // A builder list that does not decode counts as no apps.
    defaults.setString(QStringLiteral("tavoCustomBuilderAppsJSON"), QStringLiteral("[{"));
    QCOMPARE(appsCreatedCount(defaults), 0);
}

void TestScorecard::countsGatherAndAreWrittenOnce()
{
    QTemporaryDir dir;
    Defaults defaults(dir.filePath(QStringLiteral("defaults.json")));
    QSignalSpy writes(&defaults, &Defaults::valuesChanged);
    {
        MetricCounter counter(defaults, 60'000);
        for (int i = 0; i < 5; ++i) {
            counter.count(QStringLiteral("sam"), Metric::shortcutsUsed);
        }
        counter.count(QString(), Metric::shortcutsUsed); // nobody signed in: nothing counted
        QCOMPARE(storedMetric(defaults, QStringLiteral("sam"), Metric::shortcutsUsed), 0);
    } // the counter goes: what it gathered is written
    QCOMPARE(storedMetric(defaults, QStringLiteral("sam"), Metric::shortcutsUsed), 5);
    QCOMPARE(writes.size(), 1);
}

void TestScorecard::twoProcessesCountingAtOnceLoseNothing()
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("defaults.json"));
    constexpr int perProcess = 150;
    QList<QProcess*> counters;
    for (int i = 0; i < 2; ++i) {
        auto* process = new QProcess(this);
        process->start(QCoreApplication::applicationFilePath(),
                       {QStringLiteral("count"), file, QString::number(perProcess)});
        counters << process;
    }
    for (QProcess* process : counters) {
        QVERIFY(process->waitForFinished(60'000));
        QCOMPARE(process->exitCode(), 0);
    }
    Defaults defaults(file);
    QCOMPARE(storedMetric(defaults, QStringLiteral("sam"), Metric::shortcutsUsed), 2 * perProcess);
}

int main(int argc, char* argv[])
{
    // A second process of this test: counts one use at a time into the given settings file.
    if (argc == 4 && qstrcmp(argv[1], "count") == 0) {
        QCoreApplication app(argc, argv);
        Defaults defaults(QString::fromLocal8Bit(argv[2]));
        for (int i = 0; i < QByteArray(argv[3]).toInt(); ++i) {
            recordMetric(defaults, QStringLiteral("sam"), Metric::shortcutsUsed);
        }
        return 0;
    }
    QCoreApplication app(argc, argv);
    TestScorecard test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_scorecard.moc"
