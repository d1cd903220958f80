#include <QProcess>
#include <QtTest>

// tavoctl as a user runs it: a real process, its output streams and its exit status.
class TestTavoctl : public QObject
{
    Q_OBJECT

private slots:
    void calc_data();
    void calc();
    void helpAndUnknownCommands();

private:
    struct Run
    {
        int status;
        QString out;
        QString err;
    };
    static Run tavoctl(const QStringList& arguments, const QByteArray& lang = "en_US.UTF-8");
};

TestTavoctl::Run TestTavoctl::tavoctl(const QStringList& arguments, const QByteArray& lang)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("LANG"), QString::fromLatin1(lang));
    env.insert(QStringLiteral("LC_ALL"), QString::fromLatin1(lang));
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(TAVOCTL_PATH), arguments);
    if (!process.waitForFinished(10000)) {
        return {-1, {}, {}};
    }
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

void TestTavoctl::calc_data()
{
    QTest::addColumn<QString>("expression");
    QTest::addColumn<QByteArray>("lang");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");

    QTest::newRow("trigger with backslash") << "\\2+3*4" << QByteArray("en_US.UTF-8") << 0 << "14\n";
    QTest::newRow("german user still gets a point") << "1/2" << QByteArray("de_DE.UTF-8") << 0 << "0.5\n";
    QTest::newRow("leading minus is not an option") << "-2^2" << QByteArray("en_US.UTF-8") << 0 << "-4\n";
    QTest::newRow("division by zero") << "1/0" << QByteArray("en_US.UTF-8") << 1 << "";
    QTest::newRow("not an expression") << "\\thanks" << QByteArray("en_US.UTF-8") << 1 << "";
}

void TestTavoctl::calc()
{
    QFETCH(QString, expression);
    QFETCH(QByteArray, lang);
    QFETCH(int, status);
    QFETCH(QString, out);
    const Run run = tavoctl({QStringLiteral("calc"), expression}, lang);
    QCOMPARE(run.status, status);
    QCOMPARE(run.out, out);
    if (status != 0) {
        // One line that names what was typed.
        QVERIFY(run.err.endsWith(u'\n'));
        QCOMPARE(run.err.count(u'\n'), 1);
        QVERIFY(run.err.contains(expression));
    }
}

void TestTavoctl::helpAndUnknownCommands()
{
    const Run help = tavoctl({QStringLiteral("--help")});
    QCOMPARE(help.status, 0);
    QVERIFY(help.out.contains(QStringLiteral("calc EXPRESSION")));

    const Run unknown = tavoctl({QStringLiteral("frobnicate")});
    QCOMPARE(unknown.status, 2);
    QVERIFY(unknown.err.contains(QStringLiteral("frobnicate")));

    QCOMPARE(tavoctl({QStringLiteral("calc")}).status, 2);
}

QTEST_GUILESS_MAIN(TestTavoctl)
#include "tst_tavoctl.moc"
