// The X11 keyboard tap and desktop against a real X server: keys typed through XTest by xdotool
// (never sent to a window, which would bypass the grabs) into a real Qt text field, under Xvfb
// with and without a window manager.

#include "platform/qt/qt_pasteboard.h"
#include "platform/x11/x11_desktop.h"
#include "platform/x11/x11_keyboard_tap.h"

#include <QApplication>
#include <QClipboard>
#include <QMimeData>
#include <QMutex>
#include <QMutexLocker>
#include <QPlainTextEdit>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>
#include <QThread>

#include <functional>

using tavo::KeyEvent;
using tavo::KeyVerdict;
using tavo::TapDecision;
using tavo::TapMode;
using tavo::X11Desktop;
using tavo::X11KeyboardTap;

Q_DECLARE_METATYPE(tavo::TapMode)

namespace {

// Whether another client grabs the whole keyboard (no keysym) or the key that types `keysym` under
// `modifiers`. The probe holds that grab itself for a moment: a grab the tap asks for meanwhile is
// refused and asked again.
// Whether another client holds the keyboard, or a grab of `keysym` on `window` (0: the root).
bool grabbedElsewhere(const char* keysym = nullptr, unsigned modifiers = 0, unsigned long window = 0);

QStringList words(const char* text)
{
    return QString::fromLatin1(text).split(u' ');
}

QStringList typing(const QString& text)
{
    return words("type --delay 1") << text;
}

// Rollover: the next key goes down before the space comes up.
const QStringList rollover = words("keydown space keydown a keyup space keyup a");

// A tiny trigger tracker: a backslash starts a trigger, a space ends it and is held with the keys
// typed after it. The tap decides on a thread of its own: touch the fields through with().
struct ScriptedDecide
{
    QString seen;
    int holds = 0;
    bool tracking = false;
    bool arms = false;                       // a trigger under way would paste as it stands
    std::optional<TapMode> fixedMode;        // every key passes, but letters in Exclusive
    QString slowOn;                          // a key whose decision gets stuck
    quint64 lastHold = 0;                    // the id of the last key held
    std::function<void(quint64)> whileStuck; // told the stuck key's id before its decision comes
    QMutex mutex;

    TapDecision decide(const KeyEvent& event)
    {
        QMutexLocker lock(&mutex);
        seen += event.text;
        if (!slowOn.isEmpty() && event.text == slowOn) {
            // A decision stuck far beyond what the tap may wait for.
            if (whileStuck)
                whileStuck(event.id);
            lock.unlock();
            QThread::msleep(200);
            lock.relock();
        }
        if (fixedMode) {
            const bool letter = event.text.size() == 1 && event.text.at(0).isLetter();
            return {letter && fixedMode == TapMode::Exclusive ? KeyVerdict::Swallow : KeyVerdict::Pass, *fixedMode};
        }
        if (!tracking && (event.text == QLatin1String("\\") || event.keyCode == tavo::KeyCode::Backslash)) {
            tracking = true;
            return {KeyVerdict::Pass, TapMode::Tracking};
        }
        if (tracking && event.text == QLatin1String(" ")) {
            tracking = false;
            ++holds;
            lastHold = event.id;
            return {KeyVerdict::SwallowAndHold, TapMode::Idle};
        }
        if (!tracking)
            return {KeyVerdict::Pass, TapMode::Idle};
        return {KeyVerdict::Pass, arms ? TapMode::Armed : TapMode::Tracking};
    }
    template<typename Use>
    auto with(Use use)
    {
        QMutexLocker lock(&mutex);
        return use();
    }
};

} // namespace

class TestX11Tap : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void startReportsWhyItCannotRun_data();
    void startReportsWhyItCannotRun();
    void passedKeysArriveExactly_data();
    void passedKeysArriveExactly();
    void endingKeyAndLaterKeysAreHeld_data();
    void endingKeyAndLaterKeysAreHeld();
    void exclusiveModeTakesEveryKey();
    void onlyAClaimedHoldOutlastsTheSafetyLimit();
    void aStuckEndingKeyCannotBeClaimed();
    void aStuckEndingKeyClaimedInTimeIsHeld();
    void keysGoBackAsTyped_data();
    void keysGoBackAsTyped();
    void desktopRemovesAndPastes();
    void aClipboardManagersCopyIsToldFromTheTargets();
    void pasteChord_data();
    void pasteChord();

private:
    // Runs xdotool; unless `wait` is false, until it is done. waitForTyping() waits for it later.
    void xdotool(const QStringList& arguments, bool wait = true);
    void type(const QString& text, bool wait = true) { xdotool(typing(text), wait); }
    void waitForTyping();
    void setLayout(const QString& layout);

    ScriptedDecide m_decide;
    X11KeyboardTap m_tap;
    QPlainTextEdit m_edit;
    QProcess m_typing;
};

void TestX11Tap::initTestCase()
{
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/with-xvfb");
    QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty(), "xdotool is needed");
    m_edit.show();
    m_edit.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&m_edit));
    m_edit.setFocus();
    QTRY_VERIFY(m_edit.hasFocus());

    const auto problem = m_tap.start([this](const KeyEvent& event) { return m_decide.decide(event); });
    QVERIFY2(!problem, qPrintable(problem.value_or(QString())));
}

void TestX11Tap::init()
{
    m_decide.with([this] {
        m_decide.seen.clear();
        m_decide.holds = 0;
        m_decide.tracking = false;
        m_decide.arms = false;
        m_decide.fixedMode.reset();
        m_decide.slowOn.clear();
    });
    m_tap.setMode(TapMode::Idle, 0);
    QTRY_VERIFY(!grabbedElsewhere());
    // The tap holds its idle grabs for the layout of the moment.
    QTRY_VERIFY(grabbedElsewhere("backslash"));
    m_edit.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&m_edit));
    m_edit.clear();
}

void TestX11Tap::xdotool(const QStringList& arguments, bool wait)
{
    m_typing.start(QStringLiteral("xdotool"), arguments);
    QVERIFY(m_typing.waitForStarted());
    if (wait)
        waitForTyping();
}

void TestX11Tap::waitForTyping()
{
    QTRY_COMPARE(m_typing.state(), QProcess::NotRunning);
    QCOMPARE(m_typing.exitCode(), 0);
}

void TestX11Tap::setLayout(const QString& layout)
{
    QProcess setxkbmap;
    setxkbmap.start(QStringLiteral("setxkbmap"), {layout});
    QVERIFY(setxkbmap.waitForFinished());
    QCOMPARE(setxkbmap.exitCode(), 0);
}

void TestX11Tap::startReportsWhyItCannotRun_data()
{
    QTest::addColumn<QByteArray>("variable");
    QTest::addColumn<QByteArray>("value"); // empty: unset
    QTest::addColumn<QString>("reasonMentions");

    QTest::newRow("Wayland display") << QByteArray("WAYLAND_DISPLAY") << QByteArray("wayland-0")
                                     << QStringLiteral("Wayland");
    QTest::newRow("Wayland session type")
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

    const auto setVariable = [&](const QByteArray& to) {
        to.isEmpty() ? qunsetenv(variable.constData()) : qputenv(variable.constData(), to);
    };
    const QByteArray saved = qgetenv(variable.constData());
    setVariable(value);
    X11KeyboardTap tap;
    const auto problem = tap.start([](const KeyEvent&) { return TapDecision{}; });
    const auto desktopProblem = X11Desktop().unavailableReason();
    setVariable(saved);

    QVERIFY(problem.has_value());
    QVERIFY2(problem->contains(reasonMentions), qPrintable(*problem));
    QVERIFY(!tap.isRunning());
    QCOMPARE(desktopProblem, *problem);
}

void TestX11Tap::passedKeysArriveExactly_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<TapMode>("mode");
    QTest::addColumn<QString>("slowOn");

    // Idle grabs only the slash; Tracking grabs the space and punctuation as well, so most of
    // these keys are grabbed, decided and replayed while later ones queue behind them.
    QTest::newRow("idle: a slash is replayed") << QStringLiteral("and/or this") << TapMode::Idle << QString();
    QTest::newRow("tracking: blanks, shifted punctuation, a backslash")
        << QStringLiteral("Hi, you; (a/b) \\ \"q\" x_y: @home?") << TapMode::Tracking << QString();
    QTest::newRow("a stuck decision lets the key pass")
        << QStringLiteral("a/b c") << TapMode::Idle << QStringLiteral("/");
}

void TestX11Tap::passedKeysArriveExactly()
{
    QFETCH(QString, text);
    QFETCH(TapMode, mode);
    QFETCH(QString, slowOn);

    m_decide.with([&] {
        m_decide.fixedMode = mode;
        m_decide.slowOn = slowOn;
    });
    m_tap.setMode(mode, 0);
    if (!slowOn.isEmpty())
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("no decision within 50 ms")));
    type(text);
    QTRY_COMPARE(m_edit.toPlainText(), text);
    // Every key decided once: grabbed keys are not decided again through their raw event.
    QTRY_COMPARE(m_decide.with([this] { return m_decide.seen; }), text);

    xdotool(rollover);
    QTRY_COMPARE(m_edit.toPlainText(), text + QStringLiteral(" a"));
}

void TestX11Tap::endingKeyAndLaterKeysAreHeld_data()
{
    QTest::addColumn<QString>("layout");
    QTest::addColumn<QStringList>("afterTrigger"); // xdotool arguments
    QTest::addColumn<bool>("replayEndingKey");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("decided");
    QTest::addColumn<bool>("armed"); // the hold's grabs are in place while the trigger is typed

    // Capitals among the held keys must come back with their Shift.
    const QStringList typeRest = typing(QStringLiteral(" See You!"));
    QTest::newRow("expanded: the space stays out")
        << QString() << typeRest << false << QStringLiteral("\\tySee You!") << QStringLiteral("\\ty See You!") << false;
    QTest::newRow("not expanded: the space comes first")
        << QString() << typeRest << true << QStringLiteral("\\ty See You!") << QStringLiteral("\\ty See You!") << false;
    QTest::newRow("rollover, expanded") << QString() << rollover << false << QStringLiteral("\\tya")
                                        << QStringLiteral("\\ty a") << false;
    QTest::newRow("rollover, not expanded")
        << QString() << rollover << true << QStringLiteral("\\ty a") << QStringLiteral("\\ty a") << false;
    // The keys typed back start a second trigger, whose space holds what follows it in turn.
    QTest::newRow("a trigger typed during a hold")
        << QString() << typing(QStringLiteral(" \\tz x")) << false << QStringLiteral("\\ty\\tzx")
        << QStringLiteral("\\ty \\tz x") << false;
    // German: the backslash is AltGr+ß, a key the US layout does not grab.
    QTest::newRow("German backslash") << QStringLiteral("de") << typing(QStringLiteral(" see")) << false
                                      << QStringLiteral("\\tysee") << QStringLiteral("\\ty see") << false;
    // Letters typed while armed come through the hold's grabs and go on as typed.
    QTest::newRow("armed, expanded") << QString() << typeRest << false << QStringLiteral("\\tySee You!")
                                     << QStringLiteral("\\ty See You!") << true;
    QTest::newRow("armed, a trigger typed during a hold")
        << QString() << typing(QStringLiteral(" \\tz x")) << false << QStringLiteral("\\ty\\tzx")
        << QStringLiteral("\\ty \\tz x") << true;
}

void TestX11Tap::endingKeyAndLaterKeysAreHeld()
{
    QFETCH(QString, layout);
    QFETCH(QStringList, afterTrigger);
    QFETCH(bool, replayEndingKey);
    QFETCH(QString, expected);
    QFETCH(QString, decided);
    QFETCH(bool, armed);
    const int holds = int(decided.count(u'\\')); // one for each trigger
    m_decide.with([&] { m_decide.arms = armed; });

    auto restore = qScopeGuard([&] {
        if (!layout.isEmpty())
            setLayout(QStringLiteral("us"));
    });
    if (!layout.isEmpty())
        setLayout(layout);
    const QString trigger = QStringLiteral("\\ty");
    type(trigger);
    QTRY_COMPARE(m_edit.toPlainText(), trigger);
    // Armed, a letter is caught in the target's window before the ending key comes.
    QTRY_COMPARE(grabbedElsewhere("x", 0, m_edit.window()->winId()), armed);
    xdotool(afterTrigger, false);
    for (int hold = 1; hold <= holds; ++hold) {
        QTRY_COMPARE(m_decide.with([this] { return m_decide.holds; }), hold);
        waitForTyping();
        // What a paste takes; nothing after the ending key may arrive meanwhile.
        const QString before = m_edit.toPlainText();
        QTest::qWait(100);
        QCOMPARE(m_edit.toPlainText(), before);
        m_tap.releaseHeldKeys(m_decide.with([this] { return m_decide.lastHold; }), replayEndingKey);
    }
    QTRY_COMPARE(m_edit.toPlainText(), expected);
    // The held keys were decided when typed back, each ending key once.
    QTRY_COMPARE(m_decide.with([this] { return m_decide.seen; }), decided);
    QCOMPARE(m_decide.with([this] { return m_decide.holds; }), holds);
}

void TestX11Tap::onlyAClaimedHoldOutlastsTheSafetyLimit()
{
    for (const bool claimed : {false, true}) {
        m_edit.clear();
        m_decide.with([this] { m_decide.holds = 0; });
        if (!claimed)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("not released within 1000 ms")));
        type(QStringLiteral("\\ty "));
        QTRY_COMPARE(m_decide.with([this] { return m_decide.holds; }), 1);
        const quint64 space = m_decide.with([this] { return m_decide.lastHold; });
        if (claimed)
            QVERIFY(m_tap.claimHold(space));
        xdotool(typing(QStringLiteral("ok")));
        if (!claimed) {
            // Nobody claims it: after a second the keys go back by themselves, and a late claim
            // fails.
            QTRY_COMPARE_WITH_TIMEOUT(m_edit.toPlainText(), QStringLiteral("\\ty ok"), 3000);
            QVERIFY(!m_tap.claimHold(space));
            continue;
        }
        // Claimed, they wait for the release past the second an unclaimed hold gets.
        QTest::qWait(1500);
        QCOMPARE(m_edit.toPlainText(), QStringLiteral("\\ty"));
        m_tap.releaseHeldKeys(space, false);
        QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("\\tyok"));
    }
}

void TestX11Tap::aStuckEndingKeyCannotBeClaimed()
{
    // The space's decision comes too late: the space reaches the application, and the
    // expansion its decision asked for must not remove anything.
    m_decide.with([this] { m_decide.slowOn = QStringLiteral(" "); });
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("no decision within 50 ms")));
    type(QStringLiteral("\\ty "));
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("\\ty "));
    QTRY_VERIFY(m_decide.with([this] { return m_decide.holds; }) == 1);
    QVERIFY(!m_tap.claimHold(m_decide.with([this] { return m_decide.lastHold; })));
}

void TestX11Tap::aStuckEndingKeyClaimedInTimeIsHeld()
{
    // The expansion is planned and claims the space while the tap still waits for the verdict:
    // the verdict was to hold, only late, and the space is held.
    quint64 stuck = 0;
    bool claimed = false;
    m_decide.with([&] {
        m_decide.slowOn = QStringLiteral(" ");
        m_decide.whileStuck = [&](quint64 id) {
            stuck = id;
            claimed = m_tap.claimHold(id);
        };
    });
    auto forget = qScopeGuard([this] { m_decide.with([this] { m_decide.whileStuck = nullptr; }); });
    type(QStringLiteral("\\ty "));
    QTRY_VERIFY(m_decide.with([&] { return stuck; }) != 0);
    if (!m_decide.with([&] { return claimed; }))
        QSKIP("the decision thread started after the tap had stopped waiting: a machine this busy cannot show it");
    xdotool(typing(QStringLiteral("ok")));
    QTest::qWait(300);
    QCOMPARE(m_edit.toPlainText(), QStringLiteral("\\ty"));
    m_tap.releaseHeldKeys(stuck, false);
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("\\tyok"));
}

void TestX11Tap::keysGoBackAsTyped_data()
{
    QTest::addColumn<QString>("modifier"); // held down by the user as the paste lands
    QTest::addColumn<QStringList>("typedWhileDown");
    QTest::addColumn<QString>("whileDown");
    QTest::addColumn<QString>("afterwards");
    // The user reaches for Ctrl+S: typed back now, "ok" would be Ctrl+O, Ctrl+K.
    QTest::newRow("Ctrl: they wait for it to be up")
        << QStringLiteral("ctrl") << QStringList{} << QStringLiteral("\\ty") << QStringLiteral("\\tyok");
    // A Shift for the next capital: lowercase keys go back lowercase, and the Shift stays down.
    QTest::newRow("Shift: lifted around them, then down again")
        << QStringLiteral("shift") << words("key a") << QStringLiteral("\\tyokA") << QStringLiteral("\\tyokA");
}

void TestX11Tap::keysGoBackAsTyped()
{
    QFETCH(QString, modifier);
    QFETCH(QStringList, typedWhileDown);
    QFETCH(QString, whileDown);
    QFETCH(QString, afterwards);
    type(QStringLiteral("\\ty "));
    QTRY_COMPARE(m_decide.with([this] { return m_decide.holds; }), 1);
    xdotool(typing(QStringLiteral("ok")));
    xdotool({QStringLiteral("keydown"), modifier});
    auto lift = qScopeGuard([&] { xdotool({QStringLiteral("keyup"), modifier}); });
    m_tap.releaseHeldKeys(m_decide.with([this] { return m_decide.lastHold; }), false);
    QTest::qWait(300);
    if (!typedWhileDown.isEmpty())
        xdotool(typedWhileDown);
    QTRY_COMPARE(m_edit.toPlainText(), whileDown);
    lift.dismiss();
    xdotool({QStringLiteral("keyup"), modifier});
    QTRY_COMPARE(m_edit.toPlainText(), afterwards);
}

void TestX11Tap::aClipboardManagersCopyIsToldFromTheTargets()
{
    X11Desktop desktop;
    tavo::QtPasteboard pasteboard;
    QSignalSpy requested(&pasteboard, &tavo::QtPasteboard::dataRequested);
    auto data = std::make_unique<QMimeData>();
    data->setText(QStringLiteral("Thank you!"));
    pasteboard.write(std::move(data));

    // Another program reads it, as a clipboard manager does the moment the content changes.
    QProcess manager;
    manager.start(QStringLiteral("xclip"), words("-o -selection clipboard"));
    // Not waitForFinished(): this event loop serves the request.
    QTRY_COMPARE_WITH_TIMEOUT(manager.state(), QProcess::NotRunning, 5000);
    QCOMPARE(manager.readAllStandardOutput(), QByteArray("Thank you!"));
    QTRY_COMPARE(requested.count(), 1);
    const quint64 requestor = requested.first().first().toULongLong();
    QVERIFY(requestor != 0);

    const tavo::DesktopWindow target = desktop.activeWindow();
    QVERIFY(!desktop.isWindowOf(target, requestor));
    QVERIFY(desktop.isWindowOf(target, target.id));
    QWidget another; // the target's requests come from some window of its own
    QVERIFY(desktop.isWindowOf(target, another.winId()));
}

void TestX11Tap::exclusiveModeTakesEveryKey()
{
    m_decide.with([this] { m_decide.fixedMode = TapMode::Exclusive; });
    m_tap.setMode(TapMode::Exclusive, 0);
    QTRY_VERIFY(grabbedElsewhere());

    type(QStringLiteral("ab1c2d"));
    QTRY_COMPARE(m_decide.with([this] { return m_decide.seen; }), QStringLiteral("ab1c2d"));
    // Letters were swallowed; the digits passed, typed back to the application.
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("12"));
    QTRY_VERIFY(grabbedElsewhere());

    // Shortcuts pass: Ctrl+V pastes into the application.
    QGuiApplication::clipboard()->setText(QStringLiteral("+clip"));
    xdotool(words("key ctrl+v"));
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("12+clip"));
    QTRY_VERIFY(grabbedElsewhere());

    m_decide.with([this] { m_decide.fixedMode.reset(); });
    m_tap.setMode(TapMode::Idle, 0);
    QTRY_VERIFY(!grabbedElsewhere());
    type(QStringLiteral("xy"));
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("12+clipxy"));
    QCOMPARE(m_decide.with([this] { return m_decide.seen; }), QStringLiteral("ab1c2d\x16xy"));
}

void TestX11Tap::desktopRemovesAndPastes()
{
    X11Desktop desktop;
    // Shift held down is let go by the desktop before it types.
    xdotool(words("keydown shift"));
    desktop.waitForModifiersReleased(200);
    type(QStringLiteral("hello\\ty"));
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("hello\\ty"));

    desktop.sendBackspaces(3);
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("hello"));

    QGuiApplication::clipboard()->setText(QStringLiteral(" wörld ✓"));
    const tavo::DesktopWindow target = desktop.activeWindow();
    QCOMPARE(target.pid, QCoreApplication::applicationPid());
    QCOMPARE(X11Desktop::pasteChordFor(target.windowClass), QStringLiteral("ctrl+v"));
    desktop.sendPaste(target);
    desktop.flush();
    QTRY_COMPARE(m_edit.toPlainText(), QStringLiteral("hello wörld ✓"));
}

void TestX11Tap::pasteChord_data()
{
    QTest::addColumn<QString>("windowClass");
    QTest::addColumn<QString>("chord");
    QTest::addColumn<bool>("primary");

    QTest::newRow("an ordinary application") << QStringLiteral("firefox") << QStringLiteral("ctrl+v") << false;
    QTest::newRow("no class at all") << QString() << QStringLiteral("ctrl+v") << false;
    QTest::newRow("xterm reads PRIMARY") << QStringLiteral("xterm") << QStringLiteral("shift+Insert") << true;
    QTest::newRow("urxvt, as its class is written")
        << QStringLiteral("URxvt") << QStringLiteral("shift+Insert") << true;
    QTest::newRow("Alacritty, capitalised") << QStringLiteral("Alacritty") << QStringLiteral("ctrl+shift+v") << false;
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

bool grabbedElsewhere(const char* keysym, unsigned modifiers, unsigned long window)
{
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        return false;
    bool grabbed = false;
    if (!keysym) {
        const int status =
            XGrabKeyboard(display, XDefaultRootWindow(display), False, GrabModeAsync, GrabModeAsync, CurrentTime);
        if (status == GrabSuccess)
            XUngrabKeyboard(display, CurrentTime);
        grabbed = status == AlreadyGrabbed;
    } else if (const KeyCode keycode = XKeysymToKeycode(display, XStringToKeysym(keysym))) {
        // Through xcb, so that the process's Xlib error handler (the tap's) stays in place.
        xcb_connection_t* connection = XGetXCBConnection(display);
        const xcb_window_t root = window != 0 ? xcb_window_t(window) : XDefaultRootWindow(display);
        xcb_generic_error_t* error =
            xcb_request_check(connection, xcb_grab_key_checked(connection, 0, root, uint16_t(modifiers), keycode,
                                                               XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        grabbed = error && error->error_code == XCB_ACCESS;
        free(error);
        if (!grabbed)
            xcb_request_check(connection, xcb_ungrab_key_checked(connection, keycode, root, uint16_t(modifiers)));
    }
    XCloseDisplay(display);
    return grabbed;
}

} // namespace
