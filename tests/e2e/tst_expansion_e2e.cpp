#include <QPlainTextEdit>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

// Tavo as a person uses it: the real application, a real X server with a window manager, a
// real keyring, and keys typed through XTest into a window of another program (this test).
class TestExpansionEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void expansions_data();
    void expansions();
    void returnEndsATriggerOnce();
    void rolloverOfTheEndingKey();
    void aShortcutAddedWhileRunningExpandsAtOnce();
    void fastTypingLosesNothing();
    void aSecondStartLeavesTheFirstInCharge();

private:
    static int tavoctl(const QStringList& arguments, const QByteArray& input = {});
    static void type(const QString& text, int delayMs = 12);
    QString typedText() const { return m_editor->toPlainText(); }

    QProcess m_tavo;
    QByteArray m_tavoLog;
    std::unique_ptr<QPlainTextEdit> m_editor;
};

int TestExpansionEndToEnd::tavoctl(const QStringList& arguments, const QByteArray& input)
{
    QProcess process;
    process.start(QStringLiteral(TAVOCTL_PATH), arguments);
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(30000);
    return process.exitCode();
}

void TestExpansionEndToEnd::type(const QString& text, int delayMs)
{
    // Through XTest, as a keyboard would: never to a window directly, which would bypass grabs.
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"),
                  {QStringLiteral("type"), QStringLiteral("--delay"), QString::number(delayMs), text});
    QVERIFY(xdotool.waitForFinished(30000));
}

void TestExpansionEndToEnd::initTestCase()
{
    QCOMPARE(tavoctl({QStringLiteral("account"), QStringLiteral("register"), QStringLiteral("sam")}, "correct horse\n"),
             0);
    QCOMPARE(tavoctl({QStringLiteral("add"), QStringLiteral("thx"), QStringLiteral("Thank you!"),
                      QStringLiteral("--collection"), QStringLiteral("Personal")}),
             0);

    m_editor = std::make_unique<QPlainTextEdit>();
    m_editor->setWindowTitle(QStringLiteral("Target"));
    m_editor->resize(600, 300);
    m_editor->show();
    QVERIFY(QTest::qWaitForWindowActive(m_editor.get()));

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_LOGGING_RULES"),
               qEnvironmentVariable("TAVO_E2E_LOGGING", QStringLiteral("tavo.*.info=true")));
    m_tavo.setProcessEnvironment(env);
    m_tavo.setProcessChannelMode(QProcess::MergedChannels);
    connect(&m_tavo, &QProcess::readyRead, this, [this] { m_tavoLog += m_tavo.readAll(); });
    m_tavo.start(QStringLiteral(TAVO_PATH));
    QVERIFY(m_tavo.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.contains("keyboard tap running"), 15000);
}

void TestExpansionEndToEnd::cleanupTestCase()
{
    m_tavo.terminate();
    if (!m_tavo.waitForFinished(5000)) {
        m_tavo.kill();
    }
    // Tavo's own account of the run, for a look after a failure.
    QFile log(QDir::home().filePath(QStringLiteral("tavo.log")));
    if (log.open(QIODevice::WriteOnly)) {
        log.write(m_tavoLog);
    }
}

void TestExpansionEndToEnd::init()
{
    m_editor->clear();
    m_editor->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_editor.get()));
}

void TestExpansionEndToEnd::expansions_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("result");
    QTest::newRow("a key and a space") << "Hello \\thx and more"
                                       << "Hello Thank you! and more";
    QTest::newRow("a slash starts a key too, a semicolon ends it") << "/thx;"
                                                                   << "Thank you!;";
    QTest::newRow("a full stop is part of a key") << "/thx."
                                                  << "/thx.";
    QTest::newRow("the calculator") << "= \\2+3*4 "
                                    << "= 14 ";
    QTest::newRow("a start shortcut with a live date") << "\\intro "
                                                       << "Hi, I’m Sam. Great to connect! ";
    QTest::newRow("nothing is called this: every key stays") << "and/or this \\nothing here"
                                                             << "and/or this \\nothing here";
    QTest::newRow("an unfinished expression keeps its first space") << "\\2+ 3 "
                                                                    << "5 ";
    QTest::newRow("a batch on two lines") << "\\thx&intro "
                                          << "Thank you!\nHi, I’m Sam. Great to connect!";
    QTest::newRow("a path stays as typed") << "see /usr/share/doc now"
                                           << "see /usr/share/doc now";
}

void TestExpansionEndToEnd::expansions()
{
    QFETCH(QString, typed);
    QFETCH(QString, result);
    type(typed);
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), result, 5000);
    QTest::qWait(200); // nothing arrives late
    QCOMPARE(typedText(), result);
}

void TestExpansionEndToEnd::returnEndsATriggerOnce()
{
    type(QStringLiteral("\\date\n"));
    // The long date of the locale and one line break: the Return was withheld, then pasted back.
    static const QRegularExpression longDate(QStringLiteral("^[A-Z][a-z]+ \\d{1,2}, \\d{4}\n$"));
    QTRY_VERIFY_WITH_TIMEOUT(longDate.match(typedText()).hasMatch(), 5000);
    QTest::qWait(200);
    QVERIFY2(longDate.match(typedText()).hasMatch(), qPrintable(typedText()));

    // A picture of the target after an expansion, kept with the test's files for a look.
    m_editor->grab().save(QDir::home().filePath(QStringLiteral("target-after-expansion.png")));
}

void TestExpansionEndToEnd::rolloverOfTheEndingKey()
{
    type(QStringLiteral("\\thx"));
    // The next key goes down before the space comes up, as fast typists do.
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"),
                  {QStringLiteral("keydown"), QStringLiteral("space"), QStringLiteral("keydown"), QStringLiteral("s"),
                   QStringLiteral("keyup"), QStringLiteral("space"), QStringLiteral("keyup"), QStringLiteral("s")});
    QVERIFY(xdotool.waitForFinished(10000));
    type(QStringLiteral("ee you"));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Thank you! see you"), 5000);
}

void TestExpansionEndToEnd::aShortcutAddedWhileRunningExpandsAtOnce()
{
    QCOMPARE(tavoctl({QStringLiteral("add"), QStringLiteral("addr"), QStringLiteral("1 Main Street")}), 0);
    QTest::qWait(500); // the running application follows the profile folder
    type(QStringLiteral("\\addr "));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("1 Main Street "), 5000);
}

void TestExpansionEndToEnd::fastTypingLosesNothing()
{
    // About 170 characters a second: what follows the key is held until the paste has landed.
    const QString typed = QStringLiteral("\\thx see you soon, and/or later \\thx bye");
    type(typed, 5);
    const QString expected = QStringLiteral("Thank you! see you soon, and/or later Thank you! bye");
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), expected, 8000);
}

void TestExpansionEndToEnd::aSecondStartLeavesTheFirstInCharge()
{
    QProcess second;
    second.start(QStringLiteral(TAVO_PATH));
    QVERIFY(second.waitForFinished(10000));
    QCOMPARE(second.exitCode(), 0);
    QVERIFY(second.readAllStandardError().contains("Tavo is already running."));
    QCOMPARE(m_tavo.state(), QProcess::Running);
}

QTEST_MAIN(TestExpansionEndToEnd)
#include "tst_expansion_e2e.moc"
