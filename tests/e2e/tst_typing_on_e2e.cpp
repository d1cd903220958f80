#include "e2e_support.h"

#include <QPlainTextEdit>
#include <QProcess>
#include <QtTest>

using e2e::words;

// A fast typist goes on typing while Tavo expands: chained triggers at full speed and a focus
// change in the middle of an expansion, into a Qt text field of this test and into a GTK 3 text
// view of another process. Every key arrives, once, in the order typed.
class TestTypingOn : public QObject
{
    Q_OBJECT

public:
    enum class Target
    {
        Qt,
        SecondQt,
        Gtk
    };

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void chainedTriggers_data();
    void chainedTriggers();
    void focusMovesDuringAHold_data();
    void focusMovesDuringAHold();

private:
    QString text(Target target) const;
    void clear(Target target);
    void activate(Target target);
    QString windowOf(Target target) const;
    // Types through XTest without stopping this process's event loop, so the Qt targets answer
    // the paste as any application would.
    static void typeLive(const QStringList& arguments);

    e2e::TavoRun m_tavoRun;
    std::unique_ptr<QPlainTextEdit> m_editor;
    std::unique_ptr<QPlainTextEdit> m_second;
    QProcess m_gtk;
    QString m_gtkText;
};

Q_DECLARE_METATYPE(TestTypingOn::Target)

void TestTypingOn::initTestCase()
{
    const auto tavoctl = [](const QStringList& arguments, const QByteArray& input = {}) {
        QProcess process;
        process.start(QStringLiteral(TAVOCTL_PATH), arguments);
        process.write(input);
        process.closeWriteChannel();
        process.waitForFinished(30000);
        return process.exitCode();
    };
    QCOMPARE(tavoctl(words({"account", "register", "sam"}), "correct horse\n"), 0);
    QCOMPARE(tavoctl(words({"add", "tq", "Thank you!"})), 0);

    m_second = std::make_unique<QPlainTextEdit>();
    m_second->setWindowTitle(QStringLiteral("Second target"));
    m_second->resize(500, 200);
    m_second->show();

    m_gtkText = QDir::home().filePath(QStringLiteral("gtk-target.txt"));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("NO_AT_BRIDGE"), QStringLiteral("1"));
    m_gtk.setProcessEnvironment(env);
    m_gtk.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // Debian's own Python, which python3-gi belongs to, whatever else PATH finds first.
    m_gtk.start(QStringLiteral("/usr/bin/python3"),
                {QStringLiteral(GTK_TARGET_PATH), QStringLiteral("GTK target"), m_gtkText});
    QVERIFY(m_gtk.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(!windowOf(Target::Gtk).isEmpty(), 15000);

    m_editor = e2e::targetWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_editor.get()));

    m_tavoRun.start();
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoRun.log.contains("keyboard tap running"), 15000);
}

void TestTypingOn::cleanupTestCase()
{
    m_tavoRun.stop();
    m_gtk.closeWriteChannel();
    if (!m_gtk.waitForFinished(5000)) {
        m_gtk.kill();
    }
}

void TestTypingOn::init()
{
    clear(Target::Qt);
    clear(Target::SecondQt);
    clear(Target::Gtk);
}

QString TestTypingOn::text(Target target) const
{
    switch (target) {
    case Target::Qt:
        return m_editor->toPlainText();
    case Target::SecondQt:
        return m_second->toPlainText();
    case Target::Gtk:
        break;
    }
    QFile file(m_gtkText);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QStringLiteral("<unreadable>");
}

void TestTypingOn::clear(Target target)
{
    switch (target) {
    case Target::Qt:
        m_editor->clear();
        break;
    case Target::SecondQt:
        m_second->clear();
        break;
    case Target::Gtk:
        m_gtk.write("clear\n");
        QTRY_COMPARE_WITH_TIMEOUT(text(Target::Gtk), QString(), 5000);
        break;
    }
}

QString TestTypingOn::windowOf(Target target) const
{
    switch (target) {
    case Target::Qt:
        return QString::number(m_editor->winId());
    case Target::SecondQt:
        return QString::number(m_second->winId());
    case Target::Gtk:
        break;
    }
    return e2e::visibleWindow(QStringLiteral("^GTK target$"));
}

void TestTypingOn::activate(Target target)
{
    e2e::xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), windowOf(target)});
    if (target != Target::Gtk) {
        QWidget* window = target == Target::Qt ? m_editor.get() : m_second.get();
        QVERIFY(QTest::qWaitForWindowActive(window));
    }
    QTest::qWait(100); // the window's own focus follows the window manager's
}

void TestTypingOn::typeLive(const QStringList& arguments)
{
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"), arguments);
    QVERIFY(xdotool.waitForStarted());
    const bool finished = QTest::qWaitFor([&] { return xdotool.state() == QProcess::NotRunning; }, 30000);
    if (!finished) {
        xdotool.kill();
        xdotool.waitForFinished();
    }
    QVERIFY(finished);
    QCOMPARE(xdotool.exitCode(), 0);
}

void TestTypingOn::chainedTriggers_data()
{
    // xdotool runs, one after the other: a run starts once the window shows what the one before
    // it must leave there.
    QTest::addColumn<Target>("target");
    QTest::addColumn<QStringList>("typing");
    QTest::addColumn<QStringList>("between");
    QTest::addColumn<QString>("result");
    // Capitals: the Shift that makes them is held and typed back with them, in order.
    const QString chained = QStringLiteral("\\tq See \\tq You Bill");
    const QString expanded = QStringLiteral("Thank you! See Thank you! You Bill");
    for (const auto& [target, name] : {std::pair{Target::Qt, "Qt"}, std::pair{Target::Gtk, "GTK"}}) {
        QTest::addRow("%s: two triggers a few words apart at full speed", name)
            << target << QStringList{chained} << QStringList{} << expanded;
        // The first hold ends on half a trigger, typed back; the rest comes live after it.
        QTest::addRow("%s: the second trigger half typed during the first's hold", name)
            << target << QStringList{QStringLiteral("\\tq See \\t"), QStringLiteral("q You Bill")}
            << QStringList{QStringLiteral("Thank you! See \\t")} << expanded;
    }
}

void TestTypingOn::chainedTriggers()
{
    QFETCH(Target, target);
    QFETCH(QStringList, typing);
    QFETCH(QStringList, between);
    QFETCH(QString, result);
    activate(target);
    int exact = 0;
    QStringList wrong;
    constexpr int Runs = 20;
    for (int run = 0; run < Runs; ++run) {
        clear(target);
        for (qsizetype i = 0; i < typing.size(); ++i) {
            typeLive({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("5"), typing.at(i)});
            if (i < between.size()) {
                QTRY_COMPARE_WITH_TIMEOUT(text(target), between.at(i), 5000);
            }
        }
        [[maybe_unused]] const bool arrived = QTest::qWaitFor([&] { return text(target) == result; }, 5000);
        QTest::qWait(100); // nothing arrives late
        if (text(target) == result) {
            ++exact;
        } else {
            wrong << text(target);
        }
    }
    QVERIFY2(
        exact == Runs,
        qPrintable(
            QStringLiteral("%1 of %2 exact; got: %3").arg(exact).arg(Runs).arg(wrong.join(QStringLiteral(" | ")))));
}

void TestTypingOn::focusMovesDuringAHold_data()
{
    QTest::addColumn<Target>("second");
    QTest::newRow("to another Qt window") << Target::SecondQt;
    QTest::newRow("to a GTK window") << Target::Gtk;
}

void TestTypingOn::focusMovesDuringAHold()
{
    QFETCH(Target, second);
    activate(Target::Qt);
    typeLive({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("5"), QStringLiteral("\\tq")});
    QTRY_COMPARE_WITH_TIMEOUT(text(Target::Qt), QStringLiteral("\\tq"), 5000);
    // One run of xdotool with this process's event loop stopped: the Qt window cannot ask for
    // the clipboard before it ends, so the hold lasts through the focus change.
    e2e::xdotool({QStringLiteral("key"), QStringLiteral("space"), QStringLiteral("a"), QStringLiteral("b"),
                  QStringLiteral("windowactivate"), QStringLiteral("--sync"), windowOf(second), QStringLiteral("key"),
                  QStringLiteral("c"), QStringLiteral("d")});
    // The expansion lands where its trigger was typed; the keys typed during the hold cannot go
    // back to the window that lost the focus, so all go to the one that has it, in order.
    QTRY_COMPARE_WITH_TIMEOUT(text(Target::Qt), QStringLiteral("Thank you! "), 5000);
    QTRY_COMPARE_WITH_TIMEOUT(text(second), QStringLiteral("abcd"), 5000);
    QTest::qWait(200); // nothing arrives late
    QCOMPARE(text(Target::Qt), QStringLiteral("Thank you! "));
    QCOMPARE(text(second), QStringLiteral("abcd"));
}

QTEST_MAIN(TestTypingOn)
#include "tst_typing_on_e2e.moc"
