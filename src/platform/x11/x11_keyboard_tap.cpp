#include "platform/x11/x11_keyboard_tap.h"

#include "platform/x11/x11_grab_books.h"
#include "platform/x11/x11_key_hold.h"
#include "platform/x11/x11_raw_keys.h"
#include "platform/x11/x11_tap_decider.h"
#include "platform/x11/x11_tap_keymap.h"
#include "platform/x11/x11_tap_session.h"

#include <QElapsedTimer>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <thread>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

// X11 last: its macros (None, KeyPress, Bool, Status) clash with Qt's names.
#include <X11/XKBlib.h>
#include <X11/Xlib-xcb.h>
#include <X11/Xlib.h>
#include <xkbcommon/xkbcommon-x11.h>

namespace tavo {

using namespace x11tap;

namespace {

// A grabbed key freezes the whole keyboard until it is answered; a decision is a few
// microseconds, so anything near this is a bug, and the key passes rather than wait longer.
constexpr auto DecisionTimeout = 50ms;
constexpr auto KeymapRetry = 100ms;

// Off by default: the stages of one expansion on the tap's side, read beside the engine's.
Q_LOGGING_CATEGORY(lcTiming, "tavo.expansion.timing", QtWarningMsg)
// Every press the tap decides gets a number, unique for the process (a restarted tap goes on
// counting), so that an expansion can name the key whose hold it counts on.
std::atomic<quint64> g_nextKeyId{0};

} // namespace

// The tap's thread: reads the X connection, routes each key press to a decision or to the hold,
// and keeps the grabs in step with the mode and the hold.
class X11KeyboardTap::Worker
{
public:
    ~Worker();

    std::optional<QString> open();
    void start(Decide decide);
    void stop();
    bool isRunning() const { return m_running.load(); }

    // From any thread.
    void requestMode(TapMode mode, quint64 version);
    void requestRelease(quint64 keyId, bool replayEndingKey);
    bool claimHold(quint64 keyId) { return m_hold.claim(keyId); }

private:
    void run();
    int pollTimeout() const;
    void handleEvent(XEvent& event);
    void handleRequests();
    void handleTimers();

    void onRawKeyPress(unsigned keycode, unsigned long serial);
    void onGrabbedKeyPress(const XKeyEvent& event);
    void decideGrabbedKey(const KeyEvent& event, const HeldKey& key, bool owned);
    // `dropped`: a grab surely covered it, yet no grabbed press came.
    void decideRawKey(const KeyEvent& event, unsigned keycode, bool dropped = false);
    void flushPendingRaw();
    void applyResults(const std::deque<Decider::Result>& results);
    void applyMode(TapMode mode, quint64 stamp);

    GrabState desiredGrabs() const;
    void syncPassiveGrabs();
    void syncActiveGrab() { m_books.setActive(wantsActiveGrab()); }
    bool wantsActiveGrab() const;
    void beginHold(const HeldKey& endingKey, bool waitForRelease, bool replayEndingKey, quint64 keyId = 0);
    void updateHold(Clock::time_point now);
    unsigned long focusWindow() const;
    // The hold's grabs go to `window`.
    void holdOn(unsigned long window);
    void followFocus(unsigned long window);
    void onFocusOut(const XFocusChangeEvent& event);

    Display* m_display = nullptr;
    Window m_root = 0;
    DisplayFeatures m_features;
    TapKeymap m_keymap;
    bool m_keymapChanged = false;
    Clock::time_point m_keymapRetry;
    GrabBooks m_books;
    RawKeys m_raw;
    // The key whose raw event, the last event read, was decided without a grabbed press: if that
    // press comes through a grab after all, right after, it is answered, not decided again.
    std::optional<unsigned> m_decidedFromRaw;
    // A key of ours taken for dropped by the server at the last event read, to type again.
    std::optional<KeyHold::TypedBack> m_retyping;
    KeyHold m_hold;
    // Armed: the hold's window has had the focus since the grabs went there.
    bool m_armedFocusKnown = false;
    QElapsedTimer m_keySeen;  // the grabbed press last read
    QElapsedTimer m_holdSeen; // the ending key of the hold under way
    unsigned long m_requestsAtKey = 0;

    TapMode m_mode = TapMode::Idle;
    quint64 m_modeStamp = 0;

    std::unique_ptr<Decider> m_decider;
    std::atomic<quint64> m_stamps{0};
    std::thread m_thread;
    std::atomic<bool> m_running{false};
    int m_wakeFd = -1;

    std::mutex m_requestMutex;
    std::optional<std::pair<TapMode, quint64>> m_requestedMode;
    std::optional<std::pair<quint64, bool>> m_requestedRelease; // the hold's key, replay
    bool m_stopRequested = false;
};

X11KeyboardTap::Worker::~Worker()
{
    stop();
    if (m_display) {
        forgetTapDisplay(m_display);
        XCloseDisplay(m_display);
    }
    if (m_wakeFd >= 0)
        ::close(m_wakeFd);
}

std::optional<QString> X11KeyboardTap::Worker::open()
{
    installErrorHandler();
    if (auto problem = openDisplay(&m_display))
        return problem;
    setTapDisplay(m_display);
    if (auto problem = checkDisplay(m_display, &m_features))
        return problem;

    m_root = XDefaultRootWindow(m_display);
    xcb_connection_t* xcb = XGetXCBConnection(m_display);
    if (!xkb_x11_setup_xkb_extension(xcb, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr))
        return QStringLiteral("The X server's XKB extension is too old for Tavo.");
    if (!m_keymap.open(m_display, xcb))
        return QStringLiteral("Cannot read the keyboard layout from the X server.");
    m_books.open(m_display, m_root);
    m_hold.open(m_display, &m_keymap);

    XkbSelectEvents(m_display, XkbUseCoreKbd, XkbNewKeyboardNotifyMask | XkbMapNotifyMask | XkbStateNotifyMask,
                    XkbNewKeyboardNotifyMask | XkbMapNotifyMask | XkbStateNotifyMask);
    // Without it a held key reports a release before each repeat, and the hold would see the key
    // go up while the user still presses it.
    Bool supported = False;
    XkbSetDetectableAutoRepeat(m_display, True, &supported);
    m_raw.open(m_display, m_root, m_features.xiOpcode);

    syncPassiveGrabs();
    XSync(m_display, False);

    m_wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_wakeFd < 0)
        return QStringLiteral("Cannot start the keyboard tap's thread.");
    return std::nullopt;
}

void X11KeyboardTap::Worker::start(Decide decide)
{
    m_decider = std::make_unique<Decider>(std::move(decide), m_wakeFd, &m_stamps);
    // Presses numbered before this worker (a plan queued for a tap that has since been
    // restarted) were never held here.
    m_hold.settleUpTo(g_nextKeyId.load());
    installCrashHandler();
    setTapSocket(XConnectionNumber(m_display));
    // The display is handed over to the thread here and used by no other thread from now on.
    m_running = true;
    m_thread = std::thread([this] {
        run();
        m_running = false;
    });
    pthread_setname_np(m_thread.native_handle(), "tavo-tap");
}

void X11KeyboardTap::Worker::stop()
{
    if (!m_thread.joinable())
        return;
    {
        std::lock_guard lock(m_requestMutex);
        m_stopRequested = true;
    }
    wake(m_wakeFd);
    m_thread.join();
    setTapSocket(-1);
    m_decider.reset();
}

void X11KeyboardTap::Worker::requestMode(TapMode mode, quint64 version)
{
    {
        std::lock_guard lock(m_requestMutex);
        const quint64 stamp = version != 0 ? version : ++m_stamps;
        // Two callers at once: the newer change wins here too.
        if (!m_requestedMode || m_requestedMode->second < stamp)
            m_requestedMode = std::make_pair(mode, stamp);
    }
    wake(m_wakeFd);
}

void X11KeyboardTap::Worker::requestRelease(quint64 keyId, bool replayEndingKey)
{
    {
        std::lock_guard lock(m_requestMutex);
        m_requestedRelease = std::make_pair(keyId, replayEndingKey);
    }
    wake(m_wakeFd);
}

void X11KeyboardTap::Worker::run()
{
    const int xfd = XConnectionNumber(m_display);
    for (;;) {
        while (XPending(m_display) > 0) {
            XEvent event;
            XNextEvent(m_display, &event);
            handleEvent(event);
        }
        if (m_keymapChanged && Clock::now() >= m_keymapRetry) {
            // The grabs follow the new layout's key codes. Reading a key map the server is still
            // changing can fail: then it is read again a moment later.
            if (m_keymap.reload()) {
                m_keymapChanged = false;
                syncPassiveGrabs();
            } else {
                qCDebug(lcTap) << "cannot read the new keyboard layout yet";
                m_keymapRetry = Clock::now() + KeymapRetry;
            }
        }
        handleRequests();
        {
            std::lock_guard lock(m_requestMutex);
            if (m_stopRequested)
                break;
        }
        handleTimers();
        XFlush(m_display);
        // Refusals read anywhere in this round (inside a key map read, say) set the next regrab.
        m_books.takeRefused();
        if (XEventsQueued(m_display, QueuedAlready) > 0)
            continue;

        std::array<pollfd, 2> fds = {pollfd{xfd, POLLIN, 0}, pollfd{m_wakeFd, POLLIN, 0}};
        const int ready = ::poll(fds.data(), fds.size(), pollTimeout());
        if (ready < 0 && errno != EINTR)
            break;
        if (fds[1].revents & POLLIN) {
            quint64 count;
            [[maybe_unused]] const auto drained = ::read(m_wakeFd, &count, sizeof count);
        }
        if (fds[0].revents & (POLLHUP | POLLERR)) {
            qCWarning(lcTap) << "the X connection of the keyboard tap closed";
            return;
        }
    }

    // A key frozen by a grab and not read yet reaches the application.
    XAllowEvents(m_display, ReplayKeyboard, CurrentTime);
    m_books.releaseAll();
    // Keys held when the tap stops are typed back, not lost.
    m_hold.typeAllNow();
    XSync(m_display, False);
}

int X11KeyboardTap::Worker::pollTimeout() const
{
    const auto now = Clock::now();
    auto deadline = std::min(m_hold.deadline(now), m_raw.deadline());
    if (m_keymapChanged)
        deadline = std::min(deadline, m_keymapRetry);
    if (const auto regrab = m_books.regrabAt())
        deadline = std::min(deadline, *regrab);
    if (wantsActiveGrab() && !m_books.active())
        deadline = std::min(deadline, m_books.activeRetryAt());
    if (deadline == Clock::time_point::max())
        return -1;
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    return int(std::max<qint64>(wait, 0));
}

void X11KeyboardTap::Worker::handleEvent(XEvent& event)
{
    std::optional<unsigned> rawKey;
    unsigned long serial = 0;
    if (m_raw.read(event, &rawKey, &serial)) {
        if (rawKey)
            onRawKeyPress(*rawKey, serial);
        return;
    }
    if (event.type == KeyPress) {
        m_keySeen.start();
        m_requestsAtKey = XNextRequest(m_display);
        onGrabbedKeyPress(event.xkey);
        return;
    }
    if (event.type == FocusOut) {
        onFocusOut(event.xfocus);
        return;
    }
    if (event.type == m_features.xkbEventBase) {
        const auto* xkb = reinterpret_cast<const XkbEvent*>(&event);
        if (xkb->any.xkb_type == XkbStateNotify) {
            const bool held = m_keymap.shortcutModifierHeld();
            const XkbStateNotifyEvent& s = xkb->state;
            m_keymap.updateState(s.base_mods, s.latched_mods, s.locked_mods, s.base_group, s.latched_group,
                                 s.locked_group);
            if (held != m_keymap.shortcutModifierHeld() && m_mode == TapMode::Exclusive) {
                // While Ctrl, Alt or Super is down the picker lets shortcuts through: the active
                // grab steps aside, and only Ctrl+V is caught.
                syncPassiveGrabs();
                syncActiveGrab();
            } else if (m_hold.active() || m_mode == TapMode::Armed) {
                // The hold grabs follow Caps Lock and Num Lock.
                syncPassiveGrabs();
            }
        } else if (xkb->any.xkb_type == XkbNewKeyboardNotify || xkb->any.xkb_type == XkbMapNotify) {
            m_keymapChanged = true;
            m_keymapRetry = {};
        }
        return;
    }
    if (event.type == MappingNotify) {
        XRefreshKeyboardMapping(&event.xmapping);
        if (event.xmapping.request != MappingPointer)
            m_keymapChanged = true;
        m_keymapRetry = {};
    }
}

void X11KeyboardTap::Worker::handleRequests()
{
    std::optional<std::pair<TapMode, quint64>> mode;
    std::optional<std::pair<quint64, bool>> release;
    {
        std::lock_guard lock(m_requestMutex);
        mode.swap(m_requestedMode);
        release.swap(m_requestedRelease);
    }
    applyResults(m_decider->takeResults());
    if (mode)
        applyMode(mode->first, mode->second);
    if (release && !m_hold.release(release->first, release->second))
        qCDebug(lcTap) << "release of held keys with nothing held for that key";
}

void X11KeyboardTap::Worker::handleTimers()
{
    const auto now = Clock::now();
    if (m_raw.due(now))
        flushPendingRaw();
    updateHold(now);
    if (wantsActiveGrab() && !m_books.active() && now >= m_books.activeRetryAt())
        syncActiveGrab();
    if (m_books.regrabDue(now)) {
        syncPassiveGrabs();
        m_books.finishRegrab(now);
    }
}

void X11KeyboardTap::Worker::applyResults(const std::deque<Decider::Result>& results)
{
    for (const auto& result : results)
        applyMode(result.decision.mode, result.stamp);
}

void X11KeyboardTap::Worker::applyMode(TapMode mode, quint64 stamp)
{
    // setMode() from the main thread and the tap's decisions both move the mode; the later wins.
    if (stamp < m_modeStamp)
        return;
    m_modeStamp = stamp;
    if (mode == m_mode)
        return;
    const bool wasArmed = m_mode == TapMode::Armed;
    m_mode = mode;
    if (!m_hold.active()) {
        if (mode == TapMode::Armed) {
            const Window focus = focusWindow();
            holdOn(focus);
            followFocus(focus);
            m_armedFocusKnown = focus != m_root;
        } else if (wasArmed) {
            if (m_books.holdWindow() != m_root)
                XSelectInput(m_display, m_books.holdWindow(), NoEventMask);
            m_armedFocusKnown = false;
        }
    }
    syncPassiveGrabs();
    syncActiveGrab();
}

void X11KeyboardTap::Worker::onRawKeyPress(unsigned keycode, unsigned long serial)
{
    if (keycode >= 256)
        return;
    flushPendingRaw();
    m_decidedFromRaw.reset();
    m_retyping.reset();
    if (m_keymap.modifierKeys().test(keycode))
        return;
    KeyEvent event = m_keymap.makeKeyEvent(keycode);
    // A press that may come through a grab is decided when it does, once: a key decided here
    // and again as a grabbed press would be typed once and counted twice in a trigger. Whether
    // a grab caught it is the server's view when the key went down, not the books' now: a grab
    // taken away (the hold ending) still catches keys the server handled before the ungrab.
    if (m_books.catches(keycode, m_keymap.effectiveModifiers(), serial)) {
        const bool surely = !m_books.inFlux(keycode, serial) && !m_books.active();
        // The grabbed press follows, or, if none does, the next key or a short wait decides it.
        m_raw.expectGrabbed(keycode, std::move(event), surely);
        return;
    }
    decideRawKey(event, keycode);
}

void X11KeyboardTap::Worker::flushPendingRaw()
{
    if (auto pending = m_raw.take())
        decideRawKey(pending->event, pending->keycode, pending->surely);
}

void X11KeyboardTap::Worker::decideRawKey(const KeyEvent& event, unsigned keycode, bool dropped)
{
    m_decidedFromRaw = keycode;
    if (const auto back = m_hold.takeTypedBack(keycode)) {
        if (dropped) {
            qCDebug(lcTap) << "a key typed back was dropped by the server; typing it again";
            m_hold.retype(*back);
            m_hold.typedBackArrived();
            m_decidedFromRaw.reset();
            m_retyping = back;
            return;
        }
        // A key typed back that no grab caught (another client holds that combination).
        m_hold.typedBackArrived();
        if (back->decided)
            return;
    }
    // The key has reached the application already; only the state it leaves behind counts, and
    // no expansion may count on holding it: settled before anybody can know its number.
    KeyEvent numbered = event;
    numbered.id = ++g_nextKeyId;
    m_hold.settleKey(numbered.id, false);
    m_decider->submit(numbered);
}

void X11KeyboardTap::Worker::onGrabbedKeyPress(const XKeyEvent& xevent)
{
    const unsigned keycode = xevent.keycode;
    std::optional<KeyEvent> event = m_raw.takeFor(keycode);
    if (!event)
        flushPendingRaw();

    // A press caught by the active grab, or by a passive grab the active grab has replaced,
    // already belongs to the tap: there is nothing frozen to answer.
    const bool owned = m_books.fromActive(xevent.serial) || m_books.active();
    const HeldKey key{keycode, xevent.state};

    if (keycode >= 256 || m_keymap.modifierKeys().test(keycode)) {
        if (!owned)
            XAllowEvents(m_display, ReplayKeyboard, CurrentTime);
        return;
    }
    if (!event && m_retyping && m_retyping->key.keycode == keycode && m_hold.active()) {
        // Late, not dropped: it goes on as it came.
        const KeyHold::TypedBack back = *std::exchange(m_retyping, std::nullopt);
        m_hold.cancelRetype(back);
        if (back.decided) {
            if (!owned)
                XAllowEvents(m_display, ReplayKeyboard, CurrentTime);
        } else {
            decideGrabbedKey(m_keymap.makeKeyEvent(keycode), key, owned);
        }
        return;
    }
    m_retyping.reset();
    if (!event && m_decidedFromRaw == keycode) {
        // Its raw event was taken for a key no grab caught, and decided as one that reached the
        // application: so it does.
        qCDebug(lcTap) << "a key decided from its raw event came through a grab after all";
        m_decidedFromRaw.reset();
        if (!owned)
            XAllowEvents(m_display, ReplayKeyboard, CurrentTime);
        return;
    }
    m_decidedFromRaw.reset();

    if (m_hold.active()) {
        if (const auto back = m_hold.takeTypedBack(keycode)) {
            // One of ours, back through a grab: it goes on as if typed now.
            if (m_hold.waitingForRelease()) {
                // Another expansion began meanwhile: ours waits again, first of the keys held.
                m_hold.retype({back->key, false});
                if (!owned)
                    XUngrabKeyboard(m_display, CurrentTime);
            } else if (back->decided) {
                if (!owned)
                    XAllowEvents(m_display, ReplayKeyboard, CurrentTime);
            } else {
                decideGrabbedKey(event ? *event : m_keymap.makeKeyEvent(keycode), key, owned);
            }
            m_hold.typedBackArrived();
            return;
        }
        // Typed by the user during the hold: it waits behind everything held before it.
        m_hold.holdTyped(key);
        if (!owned)
            XUngrabKeyboard(m_display, CurrentTime);
        return;
    }

    decideGrabbedKey(event ? *event : m_keymap.makeKeyEvent(keycode), key, owned);
}

void X11KeyboardTap::Worker::decideGrabbedKey(const KeyEvent& event, const HeldKey& key, bool owned)
{
    handleRequests();
    KeyEvent numbered = event;
    numbered.id = ++g_nextKeyId;
    const quint64 sequence = m_decider->submit(numbered);
    bool decided = m_decider->waitFor(sequence, Clock::now() + DecisionTimeout);
    const qint64 decidedNs = m_keySeen.nsecsElapsed();
    TapDecision decision{KeyVerdict::Pass, m_mode};
    const auto results = m_decider->takeResults();
    for (const auto& result : results) {
        if (result.sequence == sequence) {
            decision = result.decision;
            decided = true; // just after the wait gave up
        }
    }
    // Without a decision in time the key passes, unless an expansion has already claimed it: then
    // the decision was to hold it, and it is only late.
    if (m_hold.settleKey(numbered.id, decision.verdict == KeyVerdict::SwallowAndHold))
        decision.verdict = KeyVerdict::SwallowAndHold;
    // A hold starts before the tracking grabs go, so that they go only once it ends: the paste
    // follows this key at once and must not queue behind hundreds of ungrabs at the server.
    if (decision.verdict == KeyVerdict::SwallowAndHold)
        beginHold(key, true, false, numbered.id);
    for (const auto& result : results)
        applyMode(result.decision.mode, result.stamp);
    if (!decided && decision.verdict == KeyVerdict::Pass)
        qCWarning(lcTap) << "no decision within" << DecisionTimeout.count() << "ms; the key passes";

    switch (decision.verdict) {
    case KeyVerdict::Pass:
        if (owned) {
            // The application never saw it: type it back once the user lets go of it.
            beginHold(key, false, true);
            syncPassiveGrabs();
            syncActiveGrab();
        } else {
            // Grabs first: keys queued behind this one are replayed inside the thaw request.
            syncPassiveGrabs();
            XAllowEvents(m_display, ReplayKeyboard, CurrentTime);
            syncActiveGrab();
        }
        break;
    case KeyVerdict::Swallow:
        syncPassiveGrabs();
        if (owned) {
            syncActiveGrab();
        } else if (wantsActiveGrab()) {
            // Taking the keyboard turns the frozen passive grab into the active one and thaws
            // it, so keys queued meanwhile come to the tap rather than slip past.
            syncActiveGrab();
            if (!m_books.active())
                XUngrabKeyboard(m_display, CurrentTime);
        } else {
            // Not AsyncKeyboard: that keeps the grab, and keys typed in rollover would be lost.
            XUngrabKeyboard(m_display, CurrentTime);
        }
        break;
    case KeyVerdict::SwallowAndHold:
        syncPassiveGrabs();
        if (owned)
            syncActiveGrab();
        else
            XUngrabKeyboard(m_display, CurrentTime);
        XFlush(m_display);
        if (lcTiming().isDebugEnabled()) {
            m_holdSeen = m_keySeen;
            const qint64 answeredNs = m_keySeen.nsecsElapsed();
            const unsigned long requests = XNextRequest(m_display) - m_requestsAtKey;
            XSync(m_display, False);
            qCDebug(lcTiming).nospace() << "key " << numbered.id << " seen at " << m_keySeen.msecsSinceReference()
                                        << " ms: decided +" << decidedNs / 1e6 << ", answered +" << answeredNs / 1e6
                                        << " after " << requests << " requests, server done +"
                                        << m_keySeen.nsecsElapsed() / 1e6;
        }
        break;
    }
}

GrabState X11KeyboardTap::Worker::desiredGrabs() const
{
    GrabState wanted{};
    KeySet keys;
    switch (m_mode) {
    case TapMode::Idle:
        keys = m_keymap.startKeys();
        break;
    case TapMode::Tracking:
    case TapMode::Armed:
        keys = m_keymap.startKeys() | m_keymap.endKeys();
        break;
    case TapMode::Exclusive:
        // The active grab takes every key; while a shortcut modifier is down it steps aside and
        // only Ctrl+V (the image prompt's paste) is still caught.
        if (m_keymap.shortcutModifierHeld() || m_hold.active()) {
            for (std::size_t keycode = 0; keycode < 256; ++keycode) {
                if (m_keymap.vKeys().test(keycode))
                    wanted[keycode + WithControl] = AllCombinations;
            }
        }
        break;
    }
    for (std::size_t keycode = 0; keycode < 256; ++keycode) {
        if (keys.test(keycode))
            wanted[keycode] = AllCombinations;
    }
    return wanted;
}

void X11KeyboardTap::Worker::syncPassiveGrabs()
{
    // The hold grabs are many and short-lived: only under the current locks.
    const bool holding = m_hold.active() || m_mode == TapMode::Armed;
    const Combinations holdCombinations =
        holding ? combinationsWithLocksOf(m_keymap.effectiveModifiers()) : Combinations(0);
    m_books.sync(desiredGrabs(), m_keymap.holdKeys(), holdCombinations);
}

bool X11KeyboardTap::Worker::wantsActiveGrab() const
{
    return m_mode == TapMode::Exclusive && !m_hold.active() && !m_keymap.shortcutModifierHeld();
}

void X11KeyboardTap::Worker::beginHold(const HeldKey& endingKey, bool waitForRelease, bool replayEndingKey,
                                       quint64 keyId)
{
    if (!m_hold.active()) {
        // Armed, the focus is followed already: the keyboard thaws without a round trip.
        const Window focus = m_armedFocusKnown ? m_books.holdWindow() : focusWindow();
        m_armedFocusKnown = false;
        holdOn(focus);
        followFocus(focus);
    }
    m_hold.begin(endingKey, waitForRelease, replayEndingKey, keyId);
}

void X11KeyboardTap::Worker::holdOn(unsigned long window)
{
    // Grabs placed while armed stay where they are when the ending key comes in the same window.
    if (window != m_books.holdWindow())
        m_books.moveHold(window);
}

unsigned long X11KeyboardTap::Worker::focusWindow() const
{
    Window focus = 0;
    int revert = 0;
    XGetInputFocus(m_display, &focus, &revert);
    return focus == None || focus == PointerRoot ? m_root : focus;
}

void X11KeyboardTap::Worker::followFocus(unsigned long window)
{
    // The window losing the focus tells, on this connection: the hold follows the keys' way.
    if (window != m_root)
        XSelectInput(m_display, window, FocusChangeMask);
}

void X11KeyboardTap::Worker::onFocusOut(const XFocusChangeEvent& event)
{
    // A grab of ours or of the window manager moves no focus; a focus passing to a child of the
    // hold's window keeps its keys there.
    if (event.mode == NotifyGrab || event.mode == NotifyUngrab || event.detail == NotifyInferior ||
        event.detail == NotifyPointer)
        return;
    if (event.window != m_books.holdWindow())
        return;
    if (!m_hold.active()) {
        m_armedFocusKnown = false; // armed: the ending key asks where the focus is
        return;
    }
    const Window focus = focusWindow();
    if (focus == m_books.holdWindow())
        return;
    // Keys typed into the new window are held as well, behind the ones held already; all go back
    // to the window that has the focus, in the order typed.
    qCDebug(lcTap) << "the focus moved during a hold; the hold follows it";
    XSelectInput(m_display, m_books.holdWindow(), NoEventMask);
    m_books.moveHold(focus);
    followFocus(focus);
    syncPassiveGrabs();
    XFlush(m_display);
}

void X11KeyboardTap::Worker::updateHold(Clock::time_point now)
{
    const Window window = m_books.holdWindow();
    const quint64 heldKey = m_hold.keyId();
    if (m_hold.update(now)) {
        if (lcTiming().isDebugEnabled() && heldKey != 0 && m_holdSeen.isValid())
            qCDebug(lcTiming).nospace() << "key " << heldKey << ": hold ended +" << m_holdSeen.nsecsElapsed() / 1e6;
        if (window != m_root)
            XSelectInput(m_display, window, NoEventMask);
        // The active grab first, so that no key slips past between the two.
        syncActiveGrab();
        syncPassiveGrabs();
    }
}

X11KeyboardTap::X11KeyboardTap() = default;

X11KeyboardTap::~X11KeyboardTap()
{
    stop();
}

std::optional<QString> X11KeyboardTap::start(Decide decide)
{
    if (m_worker && m_worker->isRunning())
        return std::nullopt;
    m_worker.reset(); // one whose connection failed under it starts afresh
    auto worker = std::make_unique<Worker>();
    if (auto problem = worker->open()) {
        qCWarning(lcTap) << "keyboard tap unavailable:" << *problem;
        return problem;
    }
    worker->start(std::move(decide));
    m_worker = std::move(worker);
    return std::nullopt;
}

void X11KeyboardTap::stop()
{
    m_worker.reset();
}

bool X11KeyboardTap::isRunning() const
{
    return m_worker && m_worker->isRunning();
}

void X11KeyboardTap::setMode(TapMode mode, quint64 version)
{
    if (m_worker)
        m_worker->requestMode(mode, version);
}

void X11KeyboardTap::releaseHeldKeys(quint64 keyId, bool replayEndingKey)
{
    if (m_worker)
        m_worker->requestRelease(keyId, replayEndingKey);
}

bool X11KeyboardTap::claimHold(quint64 keyId)
{
    return m_worker && m_worker->isRunning() && m_worker->claimHold(keyId);
}

std::optional<QString> X11KeyboardTap::sessionProblem()
{
    installErrorHandler();
    Display* display = nullptr;
    if (auto problem = openDisplay(&display))
        return problem;
    DisplayFeatures features;
    auto problem = checkDisplay(display, &features);
    XCloseDisplay(display);
    return problem;
}

} // namespace tavo
