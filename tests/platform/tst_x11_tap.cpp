// The X11 keyboard tap and desktop against a real X server: keys typed through XTest by xdotool
// (never sent to a window, which would bypass the grabs) into a real Qt text field, under Xvfb
// with and without a window manager.

#include "platform/x11/x11_desktop.h"
#include "platform/x11/x11_keyboard_tap.h"

#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QPlainTextEdit>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

using tavo::DesktopWindow;
using tavo::KeyEvent;
using tavo::KeyVerdict;
using tavo::TapDecision;
using tavo::TapMode;
using tavo::X11Desktop;
using tavo::X11KeyboardTap;

Q_DECLARE_METATYPE(tavo::TapMode)

namespace {

bool keyboardGrabbedElsewhere();
// Whether another client grabs the key that types `keysym` under `modifiers`. The probe holds
// that grab itself for a moment: a grab the tap asks for meanwhile is refused and asked again.
bool keyGrabbedElsewhere(const char* keysym, unsigned modifiers);

// A tiny trigger tracker: a backslash starts a trigger, a space ends it and is held with the keys
// typed after it; in Exclusive mode letters are swallowed and everything else passes.
class ScriptedDecide
{
public:
    TapDecision decide(const KeyEvent& event)
    {
        QMutexLocker lock(&m_mutex);
        m_seen += event.text;
        if (!m_slowOn.isEmpty() && event.text == m_slowOn) {
            // A decision stuck far beyond what the tap may wait for.
            lock.unlock();
            QThread::msleep(200);
            lock.relock();
        }
        if (m_exclusive) {
            const bool letter = event.text.size() == 1 && event.text.at(0).isLetter();
            return {letter ? KeyVerdict::Swallow : KeyVerdict::Pass, TapMode::Exclusive};
        }
        if (m_passAllIn) {
            return {KeyVerdict::Pass, *m_passAllIn};
        }
        if (!m_tracking && (event.text == QLatin1String("\\") || event.keyCode == tavo::KeyCode::Backslash)) {
            m_tracking = true;
            return {KeyVerdict::Pass, TapMode::Tracking};
        }
        if (m_tracking && event.text == QLatin1String(" ")) {
            m_tracking = false;
            ++m_holds;
            return {KeyVerdict::SwallowAndHold, TapMode::Idle};
        }
        return {KeyVerdict::Pass, m_tracking ? TapMode::Tracking : TapMode::Idle};
    }

    void reset()
    {
        QMutexLocker lock(&m_mutex);
        m_seen.clear();
        m_tracking = false;
        m_exclusive = false;
        m_passAllIn.reset();
        m_slowOn.clear();
        m_holds = 0;
    }
    void beSlowOn(const QString& text)
    {
        QMutexLocker lock(&m_mutex);
        m_slowOn = text;
    }
    void passAll(TapMode mode)
    {
        QMutexLocker lock(&m_mutex);
        m_passAllIn = mode;
    }
    void setExclusive(bool exclusive)
    {
        QMutexLocker lock(&m_mutex);
        m_exclusive = exclusive;
    }
    QString seen()
    {
        QMutexLocker lock(&m_mutex);
        return m_seen;
    }
    int holds()
    {
        QMutexLocker lock(&m_mutex);
        return m_holds;
    }

private:
    QMutex m_mutex;
    QString m_seen;
    bool m_tracking = false;
    bool m_exclusive = false;
    std::optional<TapMode> m_passAllIn;
    QString m_slowOn;
    int m_holds = 0;
};

} // namespace

class TestX11Tap : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void startReportsWhyItCannotRun_data();
    void startReportsWhyItCannotRun();

    void passedKeysArriveExactly_data();
    void passedKeysArriveExactly();
    void endingKeyAndLaterKeysAreHeld_data();
    void endingKeyAndLaterKeysAreHeld();
    void aTriggerTypedDuringAHoldIsFollowed();
    void releaseWaitsForHeldKeysToGoUp();
    void heldKeysComeBackWithoutRelease();
    void exclusiveModeTakesEveryKey();
    void aStuckDecisionLetsTheKeyPass();
    void followsTheKeyboardLayout();

    void desktopSeesTheActiveWindow();
    void desktopActivatesAWindow();
    void desktopRemovesAndPastes();
    void desktopReleasesHeldModifiers();
    void desktopLaunchesAnEntry();
    void pasteChord_data();
    void pasteChord();

private:
    void typeWith(const QStringList& arguments);
    void setLayout(const QString& layout);
    void startTyping(const QStringList& arguments);
    bool typingDone() const { return m_typing.state() == QProcess::NotRunning; }

    ScriptedDecide m_decide;
    X11KeyboardTap m_tap;
    QPlainTextEdit m_edit;
    QProcess m_typing;
};

void TestX11Tap::initTestCase()
{
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/with-xvfb");
    QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty(), "xdotool is needed");
    m_edit.setWindowTitle(QStringLiteral("Tavo tap test – ünïcode"));
    m_edit.resize(400, 300);
    m_edit.show();
    m_edit.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&m_edit));
    m_edit.setFocus();
    QTRY_VERIFY(m_edit.hasFocus());

    const auto problem = m_tap.start([this](const KeyEvent& event) { return m_decide.decide(event); });
    QVERIFY2(!problem, qPrintable(problem.value_or(QString())));
    QVERIFY(m_tap.isRunning());
}

void TestX11Tap::init()
{
    m_decide.reset();
    m_tap.setMode(TapMode::Idle);
    QTRY_VERIFY(!keyboardGrabbedElsewhere());
    // The tap holds its idle grabs for the layout of the moment.
    QTRY_VERIFY(keyGrabbedElsewhere("backslash", 0));
    m_edit.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&m_edit));
    m_edit.clear();
}

void TestX11Tap::cleanupTestCase()
{
    m_tap.stop();
    QVERIFY(!m_tap.isRunning());
}

void TestX11Tap::startTyping(const QStringList& arguments)
{
    m_typing.start(QStringLiteral("xdotool"), arguments);
    QVERIFY(m_typing.waitForStarted());
}

void TestX11Tap::typeWith(const QStringList& arguments)
{
    startTyping(arguments);
    QTRY_VERIFY(typingDone());
    QCOMPARE(m_typing.exitCode(), 0);
}

void TestX11Tap::startReportsWhyItCannotRun_data()
{
    QTest::addColumn<QByteArray>("variable");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("reasonMentions");

    QTest::newRow("a Wayland session") << QByteArray("WAYLAND_DISPLAY") << QByteArray("wayland-0")
                                       << QStringLiteral("Wayland");
    QTest::newRow("a Wayland session type")
        << QByteArray("XDG_SESSION_TYPE") << QByteArray("wayland") << QStringLiteral("Wayland");
    QTest::newRow("no display") << QByteArray("DISPLAY") << QByteArray() << QStringLiteral("DISPLAY");
    QTest::newRow("a display that is not there")
        << QByteArray("DISPLAY") << QByteArray(":987") << QStringLiteral(":987");
}

void TestX11Tap::startReportsWhyItCannotRun()
{
    QFETCH(QByteArray, variable);
    QFETCH(QByteArray, value);
    QFETCH(QString, reasonMentions);

    const QByteArray saved = qgetenv(variable.constData());
    const bool wasSet = qEnvironmentVariableIsSet(variable.constData());
    if (value.isEmpty())
        qunsetenv(variable.constData());
    else
        qputenv(variable.constData(), value);

    X11KeyboardTap tap;
    const auto problem = tap.start([](const KeyEvent&) { return TapDecision{}; });
    const auto desktopProblem = X11Desktop().unavailableReason();

    if (wasSet)
        qputenv(variable.constData(), saved);
    else
        qunsetenv(variable.constData());

    QVERIFY(problem.has_value());
    QVERIFY2(problem->contains(reasonMentions), qPrintable(*problem));
    QVERIFY(!tap.isRunning());
    QCOMPARE(desktopProblem, *problem);
}

void TestX11Tap::passedKeysArriveExactly_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<TapMode>("mode");

    // Idle grabs only the slash; Tracking grabs the space and punctuation as well, so most of
    // these keys are grabbed, decided and replayed while later ones queue behind them.
    QTest::newRow("idle: a slash is replayed") << QStringLiteral("and/or this") << TapMode::Idle;
    QTest::newRow("tracking: blanks and punctuation are replayed")
        << QStringLiteral("and/or this") << TapMode::Tracking;
    QTest::newRow("tracking: shifted punctuation, a backslash")
        << QStringLiteral("Hi, you; (a/b) \\ \"q\" x_y: @home?") << TapMode::Tracking;
}

void TestX11Tap::passedKeysArriveExactly()
{
    QFETCH(QString, text);
    QFETCH(TapMode, mode);

    m_decide.passAll(mode);
    m_tap.setMode(mode);
    typeWith({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), text});
    QTRY_COMPARE(m_edit.toPlainText(), text);
    // Every key decided once: grabbed keys are not decided again through their raw event.
    QTRY_COMPARE(m_decide.seen(), text);

    // Rollover: the next key goes down before the grabbed one comes up.
    typeWith({QStringLiteral("keydown"), QStringLiteral("space"), QStringLiteral("keydown"), QStringLiteral("a"),
              QStringLiteral("keyup"), QStringLiteral("space"), QStringLiteral("keyup"), QStringLiteral("a")});
    QTRY_COMPARE(m_edit.toPlainText(), text + QStringLiteral(" a"));
}

void TestX11Tap::endingKeyAndLaterKeysAreHeld_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<QStringList>("afterTrigger"); // xdotool arguments
    QTest::addColumn<bool>("replayEndingKey");
    QTest::addColumn<QString>("expected");

    const QStringList typeRest = {QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"),
                                  QStringLiteral(" see you")};
    const QStringList rollover = {QStringLiteral("keydown"), QStringLiteral("space"), QStringLiteral("keydown"),
                                  QStringLiteral("a"),       QStringLiteral("keyup"), QStringLiteral("space"),
                                  QStringLiteral("keyup"),   QStringLiteral("a")};

    QTest::newRow("expanded: the space stays out, the rest follows")
        << QStringLiteral("\\ty") << typeRest << false << QStringLiteral("\\tysee you");
    QTest::newRow("not expanded: the space comes first")
        << QStringLiteral("\\ty") << typeRest << true << QStringLiteral("\\ty see you");
    QTest::newRow("capitals keep their Shift") << QStringLiteral("\\ty")
                                               << QStringList{QStringLiteral("type"), QStringLiteral("--delay"),
                                                              QStringLiteral("1"), QStringLiteral(" See You!")}
                                               << false << QStringLiteral("\\tySee You!");
    QTest::newRow("rollover, expanded") << QStringLiteral("\\ty") << rollover << false << QStringLiteral("\\tya");
    QTest::newRow("rollover, not expanded") << QStringLiteral("\\ty") << rollover << true << QStringLiteral("\\ty a");
}

void TestX11Tap::endingKeyAndLaterKeysAreHeld()
{
    QFETCH(QString, trigger);
    QFETCH(QStringList, afterTrigger);
    QFETCH(bool, replayEndingKey);
    QFETCH(QString, expected);

    typeWith({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), trigger});
    QTRY_COMPARE(m_edit.toPlainText(), trigger);
    startTyping(afterTrigger);
    QTRY_COMPARE(m_decide.holds(), 1);
    QTRY_VERIFY(typingDone());

    // What a paste takes; nothing typed after the trigger may arrive meanwhile.
    QTest::qWait(100);
    QCOMPARE(m_edit.toPlainText(), trigger);

    m_tap.releaseHeldKeys(replayEndingKey);
    QTRY_COMPARE(m_edit.toPlainText(), expected);
    // The held keys were decided when typed back, the ending key once.
    QString typed = expected;
    if (!replayEndingKey)
        typed.insert(trigger.size(), u' ');
    QTRY_COMPARE(m_decide.seen(), typed);
    QCOMPARE(m_decide.holds(), 1);
}

void TestX11Tap::aTriggerTypedDuringAHoldIsFollowed()
{
    typeWith({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), QStringLiteral("\\ty")});
    startTyping({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), QStringLiteral(" \\tz x")});
    QTRY_COMPARE(m_decide.holds(), 1);
    QTRY_VERIFY(typingDone());
    QTest::qWait(50);
    QCOMPARE(m_edit.toPlainText(), QStringLiteral("\\ty"));

    // The keys typed back start a second trigger, whose space holds what follows it in turn.
    m_tap.releaseHeldKeys(false);
    QTRY_COMPARE(m_decide.holds(), 2);
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("\\ty\\tz"));
    QTest::qWait(50);
    QCOMPARE(m_edit.toPlainText(), QStringLiteral("\\ty\\tz"));

    m_tap.releaseHeldKeys(false);
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("\\ty\\tzx"));
    QTRY_COMPARE(m_decide.seen(), QStringLiteral("\\ty \\tz x"));
}

void TestX11Tap::releaseWaitsForHeldKeysToGoUp()
{
    typeWith({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), QStringLiteral("\\ty")});
    typeWith({QStringLiteral("keydown"), QStringLiteral("space"), QStringLiteral("keydown"), QStringLiteral("a")});
    QTRY_COMPARE(m_decide.holds(), 1);

    // XTest cannot press a key that is still down: the keys go back once they are up.
    m_tap.releaseHeldKeys(true);
    QTest::qWait(60);
    QCOMPARE(m_edit.toPlainText(), QStringLiteral("\\ty"));

    typeWith({QStringLiteral("keyup"), QStringLiteral("space"), QStringLiteral("keyup"), QStringLiteral("a")});
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("\\ty a"));
}

void TestX11Tap::heldKeysComeBackWithoutRelease()
{
    typeWith({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), QStringLiteral("\\ty ok")});
    QTRY_COMPARE(m_decide.holds(), 1);
    QCOMPARE(m_edit.toPlainText(), QStringLiteral("\\ty"));
    // Nobody releases: the keys come back by themselves after about a second.
    QTRY_COMPARE_WITH_TIMEOUT(m_edit.toPlainText(), QStringLiteral("\\ty ok"), 3000);
}

void TestX11Tap::exclusiveModeTakesEveryKey()
{
    m_decide.setExclusive(true);
    m_tap.setMode(TapMode::Exclusive);
    QTRY_VERIFY(keyboardGrabbedElsewhere());

    typeWith({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), QStringLiteral("ab1c2d")});
    QTRY_COMPARE(m_decide.seen(), QStringLiteral("ab1c2d"));
    // Letters were swallowed; the digits passed, typed back to the application.
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("12"));
    QTRY_VERIFY(keyboardGrabbedElsewhere());

    // Shortcuts pass: Ctrl+V pastes into the application.
    QGuiApplication::clipboard()->setText(QStringLiteral("+clip"));
    typeWith({QStringLiteral("key"), QStringLiteral("ctrl+v")});
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("12+clip"));
    QTRY_VERIFY(keyboardGrabbedElsewhere());
    m_edit.setPlainText(QStringLiteral("12"));
    m_edit.moveCursor(QTextCursor::End);

    m_decide.setExclusive(false);
    m_tap.setMode(TapMode::Idle);
    QTRY_VERIFY(!keyboardGrabbedElsewhere());
    typeWith({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), QStringLiteral("xy")});
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("12xy"));
    QCOMPARE(m_decide.seen(), QStringLiteral("ab1c2d\x16xy"));
}

void TestX11Tap::aStuckDecisionLetsTheKeyPass()
{
    m_decide.beSlowOn(QStringLiteral("/"));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("no decision within 50 ms")));
    typeWith({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), QStringLiteral("a/b c")});
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("a/b c"));
    QTRY_COMPARE(m_decide.seen(), QStringLiteral("a/b c"));
}

void TestX11Tap::setLayout(const QString& layout)
{
    QProcess setxkbmap;
    setxkbmap.start(QStringLiteral("setxkbmap"), {layout});
    QVERIFY(setxkbmap.waitForFinished());
    QCOMPARE(setxkbmap.exitCode(), 0);
}

void TestX11Tap::followsTheKeyboardLayout()
{
    if (QStandardPaths::findExecutable(QStringLiteral("setxkbmap")).isEmpty())
        QSKIP("setxkbmap is needed");
    auto restore = qScopeGuard([this] { setLayout(QStringLiteral("us")); });

    // German: the backslash is AltGr+ß, a key the US layout does not grab.
    setLayout(QStringLiteral("de"));
    QTRY_VERIFY(keyGrabbedElsewhere("backslash", 0x80 /* Mod5 */));
    typeWith({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), QStringLiteral("\\ty see")});
    QTRY_COMPARE(m_decide.holds(), 1);
    m_tap.releaseHeldKeys(false);
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("\\tysee"));

    // Russian has no v: the paste lends a spare key code the keysym for as long as it needs it.
    setLayout(QStringLiteral("ru"));
    m_edit.clear();
    X11Desktop desktop;
    QGuiApplication::clipboard()->setText(QStringLiteral("pasted"));
    desktop.sendPaste(desktop.activeWindow());
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("pasted"));
}

void TestX11Tap::desktopSeesTheActiveWindow()
{
    X11Desktop desktop;
    QCOMPARE(desktop.unavailableReason(), QString());
    const DesktopWindow window = desktop.activeWindow();
    QVERIFY(window.isValid());
    QCOMPARE(window.windowClass, QStringLiteral("tst_x11_tap"));
    QVERIFY(!window.applicationName.isEmpty());
    QCOMPARE(window.pid, QCoreApplication::applicationPid());
    QCOMPARE(desktop.title(window), QStringLiteral("Tavo tap test – ünïcode"));
}

void TestX11Tap::desktopActivatesAWindow()
{
    X11Desktop desktop;
    const DesktopWindow first = desktop.activeWindow();
    QVERIFY(first.isValid());

    QPlainTextEdit other;
    other.setWindowTitle(QStringLiteral("Another window"));
    other.resize(200, 100);
    other.show();
    other.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&other));
    QTRY_VERIFY(desktop.activeWindow().id != first.id);
    QCOMPARE(desktop.title(desktop.activeWindow()), QStringLiteral("Another window"));

    QVERIFY(desktop.activate(first, 2000));
    QTRY_VERIFY(m_edit.isActiveWindow());
    QCOMPARE(desktop.activeWindow().id, first.id);
    // Already focused: nothing to do.
    QVERIFY(desktop.activate(first, 0));
}

void TestX11Tap::desktopRemovesAndPastes()
{
    X11Desktop desktop;
    typeWith({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), QStringLiteral("hello\\ty")});
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("hello\\ty"));

    desktop.waitForModifiersReleased(200);
    desktop.sendBackspaces(3);
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("hello"));

    QGuiApplication::clipboard()->setText(QStringLiteral(" wörld ✓"));
    const DesktopWindow target = desktop.activeWindow();
    QCOMPARE(X11Desktop::pasteChordFor(target.windowClass), QStringLiteral("ctrl+v"));
    desktop.sendPaste(target);
    desktop.flush();
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("hello wörld ✓"));
}

void TestX11Tap::desktopReleasesHeldModifiers()
{
    X11Desktop desktop;
    typeWith({QStringLiteral("keydown"), QStringLiteral("shift")});
    desktop.waitForModifiersReleased(50);
    // Shift was let go by the desktop, so the key comes out lower-case.
    typeWith({QStringLiteral("key"), QStringLiteral("a")});
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("a"));
}

void TestX11Tap::desktopLaunchesAnEntry()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString marker = dir.filePath(QStringLiteral("launched"));
    const QString entry = dir.filePath(QStringLiteral("tavo-test.desktop"));
    QFile file(entry);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Tavo test\nExec=touch %1 %U\n").arg(marker).toUtf8());
    file.close();

    X11Desktop desktop;
    QString error;
    QVERIFY2(desktop.launchDesktopEntry(entry, &error), qPrintable(error));
    QTRY_VERIFY(QFileInfo::exists(marker));

    QVERIFY(!desktop.launchDesktopEntry(QStringLiteral("no-such-application.desktop"), &error));
    QVERIFY(error.contains(QStringLiteral("no-such-application.desktop")));
}

void TestX11Tap::pasteChord_data()
{
    QTest::addColumn<QString>("windowClass");
    QTest::addColumn<QString>("chord");
    QTest::addColumn<bool>("primary");

    QTest::newRow("an ordinary application pastes with Ctrl+V")
        << QStringLiteral("firefox") << QStringLiteral("ctrl+v") << false;
    QTest::newRow("a spreadsheet too") << QStringLiteral("libreoffice-calc") << QStringLiteral("ctrl+v") << false;
    QTest::newRow("no class at all") << QString() << QStringLiteral("ctrl+v") << false;
    QTest::newRow("xterm reads PRIMARY with Shift+Insert")
        << QStringLiteral("xterm") << QStringLiteral("shift+Insert") << true;
    QTest::newRow("uxterm too") << QStringLiteral("uxterm") << QStringLiteral("shift+Insert") << true;
    QTest::newRow("urxvt, as its class is written")
        << QStringLiteral("URxvt") << QStringLiteral("shift+Insert") << true;
    QTest::newRow("GNOME Terminal uses Ctrl+Shift+V")
        << QStringLiteral("gnome-terminal-server") << QStringLiteral("ctrl+shift+v") << false;
    QTest::newRow("Konsole") << QStringLiteral("konsole") << QStringLiteral("ctrl+shift+v") << false;
    QTest::newRow("Xfce Terminal") << QStringLiteral("xfce4-terminal") << QStringLiteral("ctrl+shift+v") << false;
    QTest::newRow("kitty") << QStringLiteral("kitty") << QStringLiteral("ctrl+shift+v") << false;
    QTest::newRow("Alacritty, capitalised") << QStringLiteral("Alacritty") << QStringLiteral("ctrl+shift+v") << false;
    QTest::newRow("Tilix") << QStringLiteral("tilix") << QStringLiteral("ctrl+shift+v") << false;
    QTest::newRow("Terminator") << QStringLiteral("terminator") << QStringLiteral("ctrl+shift+v") << false;
    QTest::newRow("st") << QStringLiteral("st") << QStringLiteral("ctrl+shift+v") << false;
    QTest::newRow("WezTerm") << QStringLiteral("wezterm") << QStringLiteral("ctrl+shift+v") << false;
    QTest::newRow("a name that only contains a terminal's")
        << QStringLiteral("xterminal-notes") << QStringLiteral("ctrl+v") << false;
}

void TestX11Tap::pasteChord()
{
    QFETCH(QString, windowClass);
    QFETCH(QString, chord);
    QFETCH(bool, primary);

    QCOMPARE(X11Desktop::pasteChordFor(windowClass), chord);
    QCOMPARE(X11Desktop::pastesFromPrimary(windowClass), primary);
}

QTEST_MAIN(TestX11Tap)
#include "tst_x11_tap.moc"

// Xlib last: its macros (None, Bool, Status) clash with Qt's names.
#include <X11/Xlib-xcb.h>
#include <X11/Xlib.h>
#include <xcb/xcb.h>

#include <cstdlib>

namespace {

bool keyboardGrabbedElsewhere()
{
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        return false;
    const int status =
        XGrabKeyboard(display, XDefaultRootWindow(display), False, GrabModeAsync, GrabModeAsync, CurrentTime);
    if (status == GrabSuccess)
        XUngrabKeyboard(display, CurrentTime);
    XCloseDisplay(display);
    return status == AlreadyGrabbed;
}

bool keyGrabbedElsewhere(const char* keysym, unsigned modifiers)
{
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        return false;
    const KeyCode keycode = XKeysymToKeycode(display, XStringToKeysym(keysym));
    // Through xcb, so that the process's Xlib error handler (the tap's) stays in place.
    xcb_connection_t* connection = XGetXCBConnection(display);
    const xcb_window_t root = XDefaultRootWindow(display);
    xcb_generic_error_t* error =
        xcb_request_check(connection, xcb_grab_key_checked(connection, 0, root, uint16_t(modifiers), keycode,
                                                           XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    const bool refused = error && error->error_code == XCB_ACCESS;
    free(error);
    if (!refused)
        xcb_request_check(connection, xcb_ungrab_key_checked(connection, keycode, root, uint16_t(modifiers)));
    XCloseDisplay(display);
    return keycode != 0 && refused;
}

} // namespace
