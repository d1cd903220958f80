#include "platform/x11/x11_keyboard_tap.h"

#include <QByteArray>
#include <QChar>
#include <QLoggingCategory>
#include <QStringView>

#include <algorithm>
#include <array>
#include <atomic>
#include <bitset>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

// X11 last: its macros (None, KeyPress, Bool, Status) clash with Qt's names.
#include <X11/XKBlib.h>
#include <X11/Xlib-xcb.h>
#include <X11/Xlib.h>
#include <X11/Xproto.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>
#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcTap, "tavo.platform.x11")

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A grabbed key freezes the whole keyboard until it is answered; a decision is a few
// microseconds, so anything near this is a bug, and the key passes rather than wait longer.
constexpr auto DecisionTimeout = 50ms;
// Held keys go back by themselves if nobody ends the hold, so a lost release never eats typing.
constexpr auto HoldSafety = 1000ms;
// Every press the tap decides gets a number, unique for the process (a restarted tap goes on
// counting), so that an expansion can name the key whose hold it counts on.
std::atomic<quint64> g_nextKeyId{0};
// A hold an expansion has claimed waits longer: its trigger is removed by then, and keys given
// back before the paste would land in front of it. A slow clipboard owner asked for a token can
// take seconds.
constexpr auto ClaimedHoldSafety = 10000ms;
// How long a release waits for the user to let go of the held keys: XTest cannot press a key
// that is still down on the same device.
constexpr auto KeysUpBound = 400ms;
constexpr auto KeysUpPoll = 3ms;
// How long held keys wait for a shortcut modifier they were not typed with to be let go.
constexpr auto ModifiersUpBound = 3000ms;
constexpr auto ActiveGrabRetry = 50ms;
constexpr auto KeymapRetry = 100ms;
// A grab another client held a moment ago is asked for again, less often each time it is not
// given: a window manager's key binding keeps it for good.
constexpr auto RegrabFirst = 1s;
constexpr auto RegrabLast = 30s;
// A raw event of a grabbed key is followed by the grabbed press at once; if none comes, the grab
// did not fire (another client's grab won) and the raw event stands for the key.
constexpr auto RawGrace = 30ms;
// Keys typed back come back through the hold grabs at once; a press the server dropped (the key
// was still down) never does.
constexpr auto TypedBackBound = 500ms;

// Grab ids: the key code, plus this for the grab of the key with Ctrl held.
constexpr int WithControl = 256;
constexpr std::size_t GrabIds = 512;
using KeySet = std::bitset<256>;
// Per grab id, which of the 16 modifier combinations below are grabbed (bit i: combination i).
using Combinations = quint16;
using GrabState = std::array<Combinations, GrabIds>;
constexpr Combinations AllCombinations = 0xffff;

// Modifiers that do not make a key a shortcut: a grab is placed under each of their 16
// combinations instead of AnyModifier, which fails whole as soon as another client (any window
// manager) grabs one combination of the same key.
constexpr std::array<unsigned, 4> TransparentModifiers = {ShiftMask, LockMask, Mod2Mask, Mod5Mask};
constexpr unsigned TransparentMask = ShiftMask | LockMask | Mod2Mask | Mod5Mask;

std::array<unsigned, 16> transparentCombinations()
{
    std::array<unsigned, 16> combinations{};
    for (unsigned i = 0; i < combinations.size(); ++i) {
        unsigned mask = 0;
        for (unsigned bit = 0; bit < TransparentModifiers.size(); ++bit) {
            if (i & (1u << bit))
                mask |= TransparentModifiers[bit];
        }
        combinations[i] = mask;
    }
    return combinations;
}

const std::array<unsigned, 16> GrabCombinations = transparentCombinations();

int combinationOf(unsigned state)
{
    int index = 0;
    for (unsigned bit = 0; bit < TransparentModifiers.size(); ++bit) {
        if (state & TransparentModifiers[bit])
            index |= 1 << bit;
    }
    return index;
}

// The combinations with the Caps Lock and Num Lock of `state`, any Shift and AltGr: locks
// change rarely, and a quarter of the grabs is a quarter of the server's work.
Combinations combinationsWithLocksOf(unsigned state)
{
    Combinations combinations = 0;
    for (std::size_t i = 0; i < GrabCombinations.size(); ++i) {
        if ((GrabCombinations[i] & (LockMask | Mod2Mask)) == (state & (LockMask | Mod2Mask)))
            combinations |= Combinations(1u << i);
    }
    return combinations;
}

// The tap's connection, and the serials of its key grabs the server refused. Errors of a
// connection are read by the thread that uses it, so only the tap's thread touches the list.
std::atomic<Display*> g_tapDisplay{nullptr};
std::vector<unsigned long> g_refusedGrabs;

// Xlib's default handler ends the process on any error. A refused grab (another client holds
// that combination) or a request on a window that just vanished is normal here.
int tolerateXError(Display* display, XErrorEvent* error)
{
    if (error->request_code == X_GrabKey && error->error_code == BadAccess) {
        qCDebug(lcTap) << "a key grab was refused: another client holds it";
        if (display == g_tapDisplay.load())
            g_refusedGrabs.push_back(error->serial);
    } else {
        qCDebug(lcTap) << "X error" << int(error->error_code) << "on request" << int(error->request_code);
    }
    return 0;
}

void installErrorHandler()
{
    static std::once_flag once;
    std::call_once(once, [] { XSetErrorHandler(tolerateXError); });
}

// A crash must not leave the keyboard frozen while the process dumps core: closing the socket
// makes the server drop the connection's grabs at once. shutdown() is safe in a signal handler.
std::atomic<int> g_tapSocket{-1};
constexpr std::array<int, 5> CrashSignals = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
std::array<struct sigaction, CrashSignals.size()> g_previousActions{};

void releaseGrabsOnCrash(int signal)
{
    const int fd = g_tapSocket.exchange(-1);
    if (fd >= 0)
        ::shutdown(fd, SHUT_RDWR);
    for (std::size_t i = 0; i < CrashSignals.size(); ++i) {
        if (CrashSignals[i] == signal)
            sigaction(signal, &g_previousActions[i], nullptr);
    }
    raise(signal);
}

void installCrashHandler()
{
    static std::once_flag once;
    std::call_once(once, [] {
        for (std::size_t i = 0; i < CrashSignals.size(); ++i) {
            struct sigaction action = {};
            action.sa_handler = releaseGrabsOnCrash;
            sigemptyset(&action.sa_mask);
            action.sa_flags = SA_RESETHAND;
            sigaction(CrashSignals[i], &action, &g_previousActions[i]);
        }
    });
}

bool isModifierKeysym(xkb_keysym_t sym)
{
    return (sym >= XKB_KEY_Shift_L && sym <= XKB_KEY_Hyper_R) ||
           (sym >= XKB_KEY_ISO_Lock && sym <= XKB_KEY_ISO_Last_Group_Lock) || sym == XKB_KEY_Mode_switch ||
           sym == XKB_KEY_Num_Lock;
}

bool isDeadKeysym(xkb_keysym_t sym)
{
    return (sym >= XKB_KEY_dead_grave && sym <= XKB_KEY_dead_longsolidusoverlay) || sym == XKB_KEY_Multi_key;
}

// Whether a character typed while a trigger is followed ends it: Unicode punctuation other
// than the twelve characters that batches, suffixes and expressions use.
bool endsTrigger(char32_t c)
{
    static constexpr QStringView Kept = u".-!&%+*/^(),";
    if (c < 0x10000 && Kept.contains(QChar(char16_t(c))))
        return false;
    return QChar::isPunct(c);
}

bool isPrintable(char32_t c)
{
    return c >= 0x20 && c != 0x7f && !(c >= 0x80 && c < 0xa0);
}

void wake(int fd)
{
    const quint64 one = 1;
    [[maybe_unused]] const auto written = ::write(fd, &one, sizeof one);
}

std::optional<QString> waylandProblem()
{
    if (qEnvironmentVariable("XDG_SESSION_TYPE") == QLatin1String("wayland") ||
        !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        return QStringLiteral("This is a Wayland session. Tavo can follow typed keys only in an X11 session "
                              "for now; log in with an X11 (Xorg) session to use triggers.");
    }
    return std::nullopt;
}

struct DisplayFeatures
{
    int xiOpcode = 0;
    int xkbEventBase = 0;
};

std::optional<QString> checkDisplay(Display* display, DisplayFeatures* features)
{
    int event = 0, error = 0, major = 0, minor = 0;
    if (!XTestQueryExtension(display, &event, &error, &major, &minor))
        return QStringLiteral("The X server has no XTEST extension, which Tavo needs to send keys.");

    int opcode = 0;
    major = XkbMajorVersion;
    minor = XkbMinorVersion;
    if (!XkbQueryExtension(display, &opcode, &features->xkbEventBase, &error, &major, &minor))
        return QStringLiteral("The X server has no XKB extension, which Tavo needs to read the keyboard layout.");

    if (!XQueryExtension(display, "XInputExtension", &features->xiOpcode, &event, &error))
        return QStringLiteral("The X server has no XInput 2 extension, which Tavo needs to follow typed keys.");
    major = 2;
    minor = 2;
    if (XIQueryVersion(display, &major, &minor) != Success || major < 2)
        return QStringLiteral("The X server has no XInput 2 extension, which Tavo needs to follow typed keys.");
    return std::nullopt;
}

} // namespace

void keepRunningWhenLost(Display* display)
{
    // Xlib ends the process when a connection breaks, from whichever thread notices. Returning
    // instead leaves the connection dead: its calls fail at once and its thread winds down.
    XSetIOErrorExitHandler(
        display, [](Display*, void*) { qCWarning(lcTap) << "the connection to the X server was lost"; }, nullptr);
}

namespace {

std::optional<QString> openDisplay(Display** display)
{
    if (auto problem = waylandProblem())
        return problem;
    const QByteArray name = qgetenv("DISPLAY");
    if (name.isEmpty())
        return QStringLiteral("There is no X11 display (DISPLAY is not set).");
    *display = XOpenDisplay(nullptr);
    if (!*display)
        return QStringLiteral("Cannot open the X11 display \"%1\".").arg(QString::fromLocal8Bit(name));
    keepRunningWhenLost(*display);
    return std::nullopt;
}

// Runs `decide` on a thread of its own, so that the X thread can give up on a decision that
// does not come in time and still answer the frozen keyboard.
class Decider
{
public:
    struct Result
    {
        quint64 sequence = 0;
        quint64 stamp = 0; // orders decisions and setMode() calls
        TapDecision decision;
    };

    Decider(KeyboardTap::Decide decide, int wakeFd, std::atomic<quint64>* stamps)
        : m_decide(std::move(decide))
        , m_wakeFd(wakeFd)
        , m_stamps(stamps)
    {
        m_thread = std::thread([this] { run(); });
        pthread_setname_np(m_thread.native_handle(), "tavo-decide");
    }

    ~Decider()
    {
        {
            std::lock_guard lock(m_mutex);
            m_stopping = true;
        }
        m_jobAdded.notify_one();
        m_thread.join();
    }

    quint64 submit(const KeyEvent& event)
    {
        quint64 sequence;
        {
            std::lock_guard lock(m_mutex);
            sequence = ++m_submitted;
            m_jobs.push_back({sequence, event});
        }
        m_jobAdded.notify_one();
        return sequence;
    }

    bool waitFor(quint64 sequence, Clock::time_point deadline)
    {
        std::unique_lock lock(m_mutex);
        return m_resultAdded.wait_until(lock, deadline, [&] { return m_decided >= sequence; });
    }

    std::deque<Result> takeResults()
    {
        std::deque<Result> results;
        std::lock_guard lock(m_mutex);
        results.swap(m_results);
        return results;
    }

private:
    struct Job
    {
        quint64 sequence;
        KeyEvent event;
    };

    void run()
    {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_jobAdded.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
            if (m_stopping)
                return;
            Job job = std::move(m_jobs.front());
            m_jobs.pop_front();
            lock.unlock();
            const TapDecision decision = m_decide(job.event);
            const quint64 stamp = decision.version != 0 ? decision.version : ++*m_stamps;
            lock.lock();
            m_results.push_back({job.sequence, stamp, decision});
            m_decided = job.sequence;
            m_resultAdded.notify_all();
            wake(m_wakeFd);
        }
    }

    KeyboardTap::Decide m_decide;
    const int m_wakeFd;
    std::atomic<quint64>* m_stamps;
    std::mutex m_mutex;
    std::condition_variable m_jobAdded;
    std::condition_variable m_resultAdded;
    std::deque<Job> m_jobs;
    std::deque<Result> m_results;
    quint64 m_submitted = 0;
    quint64 m_decided = 0;
    bool m_stopping = false;
    std::thread m_thread;
};

} // namespace

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
    bool claimHold(quint64 keyId);

private:
    struct HeldKey
    {
        unsigned keycode = 0;
        unsigned state = 0; // the core modifiers it was typed with
    };

    struct TypedBack
    {
        unsigned keycode = 0;
        bool decided = false; // the ending key, decided when it was held
    };

    // Keys held back while an expansion is pasted. They are typed back with XTest while the hold
    // grabs are still in place, so that each comes back through a grab and is told apart from
    // keys the user types meanwhile: those are held in turn, and nothing overtakes anything.
    struct Hold
    {
        bool active = false;            // the hold grabs are in place
        quint64 keyId = 0;              // the press that began it
        bool waitingForRelease = false; // an expansion is under way: collect until releaseHeldKeys()
        bool replayEndingKey = false;
        std::optional<HeldKey> endingKey;
        std::vector<HeldKey> keys;       // to type back, in the order typed
        std::vector<HeldKey> lateKeys;   // typed while ours were on their way back
        std::deque<TypedBack> typedBack; // sent, not back through the grabs yet
        Clock::time_point since;         // of the wait for the release, or of the typing back
        Clock::time_point keysUpSince;   // of the wait for the user to let go of the keys
    };

    struct PendingRaw
    {
        bool active = false;
        unsigned keycode = 0;
        KeyEvent event;
        Clock::time_point since;
    };

    void run();
    int pollTimeout() const;
    void handleEvent(XEvent& event);
    void handleRequests();
    void handleTimers();

    void onRawKeyPress(unsigned keycode);
    void onGrabbedKeyPress(const XKeyEvent& event);
    void decideGrabbedKey(const KeyEvent& event, const HeldKey& key, bool owned);
    void decideRawKey(const KeyEvent& event, unsigned keycode);
    void flushPendingRaw();
    bool expectsGrabbedPress(unsigned keycode) const;
    void applyResults(const std::deque<Decider::Result>& results);
    void applyMode(TapMode mode, quint64 stamp);

    bool loadKeymap();
    void computeKeySets();
    KeyEvent makeKeyEvent(unsigned keycode);
    bool feedCompose(xkb_keysym_t sym);
    int keyCodeOf(unsigned keycode, xkb_keysym_t sym) const;
    unsigned currentModifiers(xkb_state_component components) const;
    bool shortcutModifierHeld() const;

    GrabState desiredGrabs() const;
    void syncPassiveGrabs();
    void syncActiveGrab();
    void changeGrabs(std::size_t id, Combinations combinations, bool grab, bool onHoldWindow = false);
    void releaseAllGrabs();
    void takeRefusedGrabs();
    bool fromActiveGrab(unsigned long serial) const;
    bool wantsActiveGrab() const;

    void beginHold(const HeldKey& endingKey, bool waitForRelease, bool replayEndingKey, quint64 keyId = 0);
    // The press `keyId` is held or has gone on to the application: presses are settled in the
    // order they are numbered. One an expansion has claimed already is held whatever `hold`
    // says (its decision is only late). Returns whether it is held.
    bool settleKey(quint64 keyId, bool hold);
    // The hold of `keyId` ends, unless an expansion has claimed it; false then.
    bool dropHoldUnlessClaimed(quint64 keyId);
    std::chrono::milliseconds holdSafety() const;
    void updateHold(Clock::time_point now);
    bool heldKeysDown();
    bool shortcutModifierAdded() const;
    void typeBack();
    void typedBackArrived();
    void endHold();
    void typeKey(const HeldKey& key);

    Display* m_display = nullptr;
    Window m_root = 0;
    DisplayFeatures m_features;
    xcb_connection_t* m_xcb = nullptr;
    xkb_context* m_context = nullptr;
    xkb_keymap* m_keymap = nullptr;
    xkb_state* m_state = nullptr;
    xkb_compose_table* m_composeTable = nullptr;
    xkb_compose_state* m_compose = nullptr;
    bool m_keymapChanged = false;
    Clock::time_point m_keymapRetry;

    KeySet m_startKeys;    // type \ or / somewhere, or sit where the ANSI \ and / keys are
    KeySet m_endKeys;      // type a blank, Return, Tab or trigger-ending punctuation
    KeySet m_holdKeys;     // type text; not the keys the paste itself sends
    KeySet m_modifierKeys; // never decided: the tap sees key presses, not modifier changes
    KeySet m_vKeys;
    unsigned m_backslashKey = 0;
    unsigned m_slashKey = 0;
    std::array<unsigned, 8> m_modifierKeycodes{}; // a key code per core modifier, to type it back

    GrabState m_grabbed{}; // on the root window
    // The hold's grabs sit on the window that had the focus when it began: few grabs there make
    // them cheap for the server, where the root's long list would delay the paste behind them.
    std::array<Combinations, 256> m_holdGrabbed{};
    Window m_holdWindow = 0;
    struct GrabRequest
    {
        unsigned long serial;
        std::size_t id;
        int combination;
        bool onHoldWindow;
    };
    std::deque<GrabRequest> m_grabRequests; // sent, their refusal not read yet
    std::optional<Clock::time_point> m_regrabAt;
    std::chrono::milliseconds m_regrabDelay = RegrabFirst;
    bool m_activeGrab = false;
    unsigned long m_activeGrabFrom = 0;  // serial of the request that took the active grab
    unsigned long m_activeGrabUntil = 0; // serial of the request that ended it
    Clock::time_point m_activeGrabRetry;

    TapMode m_mode = TapMode::Idle;
    quint64 m_modeStamp = 0;
    Hold m_hold;
    PendingRaw m_pendingRaw;

    std::unique_ptr<Decider> m_decider;
    std::atomic<quint64> m_stamps{0};
    std::thread m_thread;
    std::atomic<bool> m_running{false};
    int m_wakeFd = -1;

    std::mutex m_requestMutex;
    // Which ending keys an expansion can count on as held: the tap's thread settles each press,
    // the main thread claims the one that ended its trigger.
    mutable std::mutex m_claimMutex;
    quint64 m_settledUpTo = 0; // presses up to this one are held or gone on
    quint64 m_heldKey = 0;     // the press whose hold is on
    quint64 m_claimed = 0;
    std::optional<std::pair<TapMode, quint64>> m_requestedMode;
    std::optional<std::pair<quint64, bool>> m_requestedRelease; // the hold's key, replay
    bool m_stopRequested = false;
};

X11KeyboardTap::Worker::~Worker()
{
    stop();
    if (m_compose)
        xkb_compose_state_unref(m_compose);
    if (m_composeTable)
        xkb_compose_table_unref(m_composeTable);
    if (m_state)
        xkb_state_unref(m_state);
    if (m_keymap)
        xkb_keymap_unref(m_keymap);
    if (m_context)
        xkb_context_unref(m_context);
    if (m_display) {
        Display* expected = m_display;
        g_tapDisplay.compare_exchange_strong(expected, nullptr);
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
    g_tapDisplay.store(m_display);
    if (auto problem = checkDisplay(m_display, &m_features))
        return problem;

    m_root = XDefaultRootWindow(m_display);
    m_xcb = XGetXCBConnection(m_display);
    if (!xkb_x11_setup_xkb_extension(m_xcb, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr))
        return QStringLiteral("The X server's XKB extension is too old for Tavo.");
    m_context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (!m_context || !loadKeymap())
        return QStringLiteral("Cannot read the keyboard layout from the X server.");

    // A dead key or a Compose sequence gives text the application composes itself; following
    // the sequence here tells the engine that the key's own text is not what was typed.
    const char* locale = getenv("LC_ALL");
    if (!locale || !*locale)
        locale = getenv("LC_CTYPE");
    if (!locale || !*locale)
        locale = getenv("LANG");
    if (!locale || !*locale)
        locale = "C";
    m_composeTable = xkb_compose_table_new_from_locale(m_context, locale, XKB_COMPOSE_COMPILE_NO_FLAGS);
    if (m_composeTable)
        m_compose = xkb_compose_state_new(m_composeTable, XKB_COMPOSE_STATE_NO_FLAGS);

    XkbSelectEvents(m_display, XkbUseCoreKbd, XkbNewKeyboardNotifyMask | XkbMapNotifyMask | XkbStateNotifyMask,
                    XkbNewKeyboardNotifyMask | XkbMapNotifyMask | XkbStateNotifyMask);
    // Without it a held key reports a release before each repeat, and the hold would see the key
    // go up while the user still presses it.
    Bool supported = False;
    XkbSetDetectableAutoRepeat(m_display, True, &supported);

    std::array<unsigned char, XIMaskLen(XI_LASTEVENT)> bits{};
    XISetMask(bits.data(), XI_RawKeyPress);
    XIEventMask mask;
    mask.deviceid = XIAllMasterDevices;
    mask.mask_len = int(bits.size());
    mask.mask = bits.data();
    XISelectEvents(m_display, m_root, &mask, 1);

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
    {
        // Presses numbered before this worker (a plan queued for a tap that has since been
        // restarted) were never held here.
        std::lock_guard lock(m_claimMutex);
        m_settledUpTo = g_nextKeyId.load();
    }
    installCrashHandler();
    g_tapSocket.store(XConnectionNumber(m_display));
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
    g_tapSocket.store(-1);
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

bool X11KeyboardTap::Worker::claimHold(quint64 keyId)
{
    std::lock_guard lock(m_claimMutex);
    // Held now, or not settled yet: then the tap holds it however late its decision comes.
    if (keyId == 0 || (keyId != m_heldKey && keyId <= m_settledUpTo))
        return false;
    m_claimed = keyId;
    return true;
}

bool X11KeyboardTap::Worker::settleKey(quint64 keyId, bool hold)
{
    std::lock_guard lock(m_claimMutex);
    m_settledUpTo = std::max(m_settledUpTo, keyId);
    if (m_claimed == keyId)
        hold = true;
    if (hold)
        m_heldKey = keyId;
    return hold;
}

bool X11KeyboardTap::Worker::dropHoldUnlessClaimed(quint64 keyId)
{
    std::lock_guard lock(m_claimMutex);
    if (keyId != 0 && m_claimed == keyId)
        return false;
    if (m_heldKey == keyId)
        m_heldKey = 0;
    return true;
}

std::chrono::milliseconds X11KeyboardTap::Worker::holdSafety() const
{
    std::lock_guard lock(m_claimMutex);
    return m_hold.keyId != 0 && m_claimed == m_hold.keyId ? ClaimedHoldSafety : HoldSafety;
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
            if (loadKeymap()) {
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
        takeRefusedGrabs();
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
    releaseAllGrabs();
    if (m_hold.active) {
        // Keys held when the tap stops are typed back, not lost.
        if ((m_hold.waitingForRelease || m_hold.replayEndingKey) && m_hold.endingKey)
            typeKey(*m_hold.endingKey);
        for (const auto* keys : {&m_hold.keys, &m_hold.lateKeys}) {
            for (const HeldKey& key : *keys)
                typeKey(key);
        }
        m_hold = Hold{};
    }
    XSync(m_display, False);
}

int X11KeyboardTap::Worker::pollTimeout() const
{
    const auto now = Clock::now();
    auto deadline = Clock::time_point::max();
    if (m_hold.active) {
        if (m_hold.waitingForRelease)
            deadline = m_hold.since + holdSafety();
        else if (!m_hold.typedBack.empty())
            deadline = m_hold.since + TypedBackBound;
        else
            deadline = now + KeysUpPoll;
    }
    if (m_pendingRaw.active)
        deadline = std::min(deadline, m_pendingRaw.since + RawGrace);
    if (m_keymapChanged)
        deadline = std::min(deadline, m_keymapRetry);
    if (m_regrabAt)
        deadline = std::min(deadline, *m_regrabAt);
    if (wantsActiveGrab() && !m_activeGrab)
        deadline = std::min(deadline, m_activeGrabRetry);
    if (deadline == Clock::time_point::max())
        return -1;
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    return int(std::max<qint64>(wait, 0));
}

void X11KeyboardTap::Worker::handleEvent(XEvent& event)
{
    if (event.type == GenericEvent && event.xcookie.extension == m_features.xiOpcode) {
        if (XGetEventData(m_display, &event.xcookie)) {
            if (event.xcookie.evtype == XI_RawKeyPress) {
                const auto* raw = static_cast<const XIRawEvent*>(event.xcookie.data);
                onRawKeyPress(unsigned(raw->detail));
            }
            XFreeEventData(m_display, &event.xcookie);
        }
        return;
    }
    if (event.type == KeyPress) {
        onGrabbedKeyPress(event.xkey);
        return;
    }
    if (event.type == m_features.xkbEventBase) {
        const auto* xkb = reinterpret_cast<const XkbEvent*>(&event);
        if (xkb->any.xkb_type == XkbStateNotify) {
            const bool held = shortcutModifierHeld();
            const XkbStateNotifyEvent& s = xkb->state;
            xkb_state_update_mask(m_state, s.base_mods, s.latched_mods, s.locked_mods, xkb_layout_index_t(s.base_group),
                                  xkb_layout_index_t(s.latched_group), xkb_layout_index_t(s.locked_group));
            if (held != shortcutModifierHeld() && m_mode == TapMode::Exclusive) {
                // While Ctrl, Alt or Super is down the picker lets shortcuts through: the active
                // grab steps aside, and only Ctrl+V is caught.
                syncPassiveGrabs();
                syncActiveGrab();
            } else if (m_hold.active) {
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
    if (release) {
        // Only for the hold it was meant for: a late second release must not cut short a newer
        // hold, whose paste has not landed yet.
        if (m_hold.active && m_hold.waitingForRelease && release->first == m_hold.keyId) {
            m_hold.waitingForRelease = false;
            m_hold.replayEndingKey = release->second;
            m_hold.keysUpSince = Clock::now();
        } else {
            qCDebug(lcTap) << "release of held keys with nothing held for that key";
        }
    }
}

void X11KeyboardTap::Worker::handleTimers()
{
    const auto now = Clock::now();
    if (m_pendingRaw.active && now - m_pendingRaw.since >= RawGrace)
        flushPendingRaw();
    updateHold(now);
    if (wantsActiveGrab() && !m_activeGrab && now >= m_activeGrabRetry)
        syncActiveGrab();
    if (m_regrabAt && now >= *m_regrabAt) {
        m_regrabAt.reset();
        syncPassiveGrabs();
        XSync(m_display, False);
        const bool refusedAgain = !g_refusedGrabs.empty();
        takeRefusedGrabs();
        m_regrabDelay = refusedAgain ? std::min<std::chrono::milliseconds>(m_regrabDelay * 2, RegrabLast) : RegrabFirst;
        if (refusedAgain)
            m_regrabAt = now + m_regrabDelay;
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
    m_mode = mode;
    syncPassiveGrabs();
    syncActiveGrab();
}

bool X11KeyboardTap::Worker::expectsGrabbedPress(unsigned keycode) const
{
    if (m_activeGrab)
        return true;
    const unsigned state = currentModifiers(XKB_STATE_MODS_EFFECTIVE);
    const unsigned modifiers = state & ~TransparentMask;
    const auto combination = Combinations(1u << combinationOf(state));
    if (modifiers == 0)
        return (m_grabbed[keycode] | m_holdGrabbed[keycode]) & combination;
    if (modifiers == ControlMask)
        return m_grabbed[keycode + WithControl] & combination;
    return false;
}

void X11KeyboardTap::Worker::onRawKeyPress(unsigned keycode)
{
    if (keycode >= 256)
        return;
    flushPendingRaw();
    if (m_modifierKeys.test(keycode))
        return;
    KeyEvent event = makeKeyEvent(keycode);
    if (expectsGrabbedPress(keycode)) {
        // The grabbed press follows; it is decided then, once.
        m_pendingRaw = {true, keycode, std::move(event), Clock::now()};
        return;
    }
    decideRawKey(event, keycode);
}

void X11KeyboardTap::Worker::flushPendingRaw()
{
    if (!m_pendingRaw.active)
        return;
    m_pendingRaw.active = false;
    decideRawKey(m_pendingRaw.event, m_pendingRaw.keycode);
}

void X11KeyboardTap::Worker::decideRawKey(const KeyEvent& event, unsigned keycode)
{
    // A key typed back that no grab caught (another client holds that combination).
    if (m_hold.active && !m_hold.typedBack.empty() && m_hold.typedBack.front().keycode == keycode) {
        const bool decided = m_hold.typedBack.front().decided;
        m_hold.typedBack.pop_front();
        typedBackArrived();
        if (decided)
            return;
    }
    // The key has reached the application already; only the state it leaves behind counts, and
    // no expansion may count on holding it: settled before anybody can know its number.
    KeyEvent numbered = event;
    numbered.id = ++g_nextKeyId;
    settleKey(numbered.id, false);
    m_decider->submit(numbered);
}

void X11KeyboardTap::Worker::onGrabbedKeyPress(const XKeyEvent& xevent)
{
    const unsigned keycode = xevent.keycode;
    std::optional<KeyEvent> event;
    if (m_pendingRaw.active && m_pendingRaw.keycode == keycode) {
        m_pendingRaw.active = false;
        event = std::move(m_pendingRaw.event);
    } else {
        flushPendingRaw();
    }

    // A press caught by the active grab, or by a passive grab the active grab has replaced,
    // already belongs to the tap: there is nothing frozen to answer.
    const bool owned = fromActiveGrab(xevent.serial) || m_activeGrab;
    const HeldKey key{keycode, xevent.state};

    if (keycode >= 256 || m_modifierKeys.test(keycode)) {
        if (!owned)
            XAllowEvents(m_display, ReplayKeyboard, CurrentTime);
        return;
    }

    if (m_hold.active) {
        if (!m_hold.typedBack.empty() && m_hold.typedBack.front().keycode == keycode) {
            // One of ours, back through a grab: it goes on as if typed now.
            const bool decided = m_hold.typedBack.front().decided;
            m_hold.typedBack.pop_front();
            const bool backlog = !m_hold.keys.empty() || (m_hold.replayEndingKey && m_hold.endingKey);
            if (m_hold.waitingForRelease || backlog) {
                // A key typed back started another expansion: the rest of ours wait again, also
                // once that one is released, behind the keys it held.
                m_hold.keys.push_back(key);
                if (!owned)
                    XUngrabKeyboard(m_display, CurrentTime);
            } else if (decided) {
                if (!owned)
                    XAllowEvents(m_display, ReplayKeyboard, CurrentTime);
            } else {
                decideGrabbedKey(event ? *event : makeKeyEvent(keycode), key, owned);
            }
            typedBackArrived();
            return;
        }
        // Typed by the user during the hold: it waits behind everything held before it.
        if (m_hold.typedBack.empty())
            m_hold.keys.push_back(key);
        else
            m_hold.lateKeys.push_back(key);
        if (!owned)
            XUngrabKeyboard(m_display, CurrentTime);
        return;
    }

    decideGrabbedKey(event ? *event : makeKeyEvent(keycode), key, owned);
}

void X11KeyboardTap::Worker::decideGrabbedKey(const KeyEvent& event, const HeldKey& key, bool owned)
{
    handleRequests();
    KeyEvent numbered = event;
    numbered.id = ++g_nextKeyId;
    const quint64 sequence = m_decider->submit(numbered);
    bool decided = m_decider->waitFor(sequence, Clock::now() + DecisionTimeout);
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
    if (settleKey(numbered.id, decision.verdict == KeyVerdict::SwallowAndHold))
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
            if (!m_activeGrab)
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
        break;
    }
}

bool X11KeyboardTap::Worker::loadKeymap()
{
    const int32_t device = xkb_x11_get_core_keyboard_device_id(m_xcb);
    if (device < 0)
        return false;
    xkb_keymap* keymap = xkb_x11_keymap_new_from_device(m_context, m_xcb, device, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!keymap)
        return false;
    xkb_state* state = xkb_x11_state_new_from_device(keymap, m_xcb, device);
    if (!state) {
        xkb_keymap_unref(keymap);
        return false;
    }
    if (m_state)
        xkb_state_unref(m_state);
    if (m_keymap)
        xkb_keymap_unref(m_keymap);
    m_keymap = keymap;
    m_state = state;
    computeKeySets();
    return true;
}

void X11KeyboardTap::Worker::computeKeySets()
{
    m_startKeys.reset();
    m_endKeys.reset();
    m_holdKeys.reset();
    m_modifierKeys.reset();
    m_vKeys.reset();
    KeySet pasteKeys;

    m_backslashKey = xkb_keymap_key_by_name(m_keymap, "BKSL");
    m_slashKey = xkb_keymap_key_by_name(m_keymap, "AB10");

    const xkb_keycode_t last = std::min<xkb_keycode_t>(xkb_keymap_max_keycode(m_keymap), 255);
    for (xkb_keycode_t keycode = xkb_keymap_min_keycode(m_keymap); keycode <= last; ++keycode) {
        const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(m_keymap, keycode);
        for (xkb_layout_index_t layout = 0; layout < layouts; ++layout) {
            const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(m_keymap, keycode, layout);
            for (xkb_level_index_t level = 0; level < levels; ++level) {
                const xkb_keysym_t* syms = nullptr;
                const int count = xkb_keymap_key_get_syms_by_level(m_keymap, keycode, layout, level, &syms);
                for (int i = 0; i < count; ++i) {
                    const xkb_keysym_t sym = syms[i];
                    const char32_t c = xkb_keysym_to_utf32(sym);
                    if (sym == XKB_KEY_backslash || sym == XKB_KEY_slash)
                        m_startKeys.set(keycode);
                    if (sym == XKB_KEY_space || sym == XKB_KEY_Return || sym == XKB_KEY_KP_Enter ||
                        sym == XKB_KEY_Tab || sym == XKB_KEY_ISO_Left_Tab || (c != 0 && endsTrigger(c)))
                        m_endKeys.set(keycode);
                    if (level <= 1 && (isPrintable(c) || sym == XKB_KEY_Return || sym == XKB_KEY_KP_Enter ||
                                       sym == XKB_KEY_Tab || sym == XKB_KEY_ISO_Left_Tab))
                        m_holdKeys.set(keycode);
                    if (sym == XKB_KEY_BackSpace || sym == XKB_KEY_Escape || sym == XKB_KEY_Insert)
                        pasteKeys.set(keycode);
                    if (level == 0 && isModifierKeysym(sym))
                        m_modifierKeys.set(keycode);
                    if (level == 0 && sym == XKB_KEY_v)
                        m_vKeys.set(keycode);
                }
            }
        }
    }
    if (m_backslashKey != XKB_KEYCODE_INVALID && m_backslashKey < 256)
        m_startKeys.set(m_backslashKey);
    if (m_slashKey != XKB_KEYCODE_INVALID && m_slashKey < 256)
        m_startKeys.set(m_slashKey);
    // The paste sends BackSpace, Escape and Insert without Ctrl; holding them would hold the
    // paste itself. Ctrl+V carries Ctrl, which no hold grab includes, so V can be held.
    m_holdKeys &= ~pasteKeys;
    m_holdKeys &= ~m_modifierKeys;
    m_startKeys &= ~m_modifierKeys;
    m_endKeys &= ~m_modifierKeys;

    m_modifierKeycodes.fill(0);
    if (XModifierKeymap* map = XGetModifierMapping(m_display)) {
        for (int modifier = 0; modifier < 8; ++modifier) {
            for (int i = 0; i < map->max_keypermod; ++i) {
                const ::KeyCode code = map->modifiermap[modifier * map->max_keypermod + i];
                if (code != 0) {
                    m_modifierKeycodes[std::size_t(modifier)] = code;
                    break;
                }
            }
        }
        XFreeModifiermap(map);
    }
}

unsigned X11KeyboardTap::Worker::currentModifiers(xkb_state_component components) const
{
    return unsigned(xkb_state_serialize_mods(m_state, components)) & 0xff;
}

bool X11KeyboardTap::Worker::shortcutModifierHeld() const
{
    return (currentModifiers(XKB_STATE_MODS_EFFECTIVE) & (ControlMask | Mod1Mask | Mod4Mask)) != 0;
}

int X11KeyboardTap::Worker::keyCodeOf(unsigned keycode, xkb_keysym_t sym) const
{
    if (keycode == m_backslashKey)
        return KeyCode::Backslash;
    if (keycode == m_slashKey)
        return KeyCode::Slash;
    switch (sym) {
    case XKB_KEY_Return:
        return KeyCode::Return;
    case XKB_KEY_KP_Enter:
        return KeyCode::KeypadEnter;
    case XKB_KEY_Tab:
    case XKB_KEY_ISO_Left_Tab:
        return KeyCode::Tab;
    case XKB_KEY_BackSpace:
        return KeyCode::Delete;
    case XKB_KEY_Escape:
        return KeyCode::Escape;
    case XKB_KEY_Delete:
    case XKB_KEY_KP_Delete:
        return KeyCode::ForwardDelete;
    default:
        break;
    }
    // V is the key that types v on the active layout, or, on a layout without Latin letters,
    // the key that types v on another one (where Ctrl+V is found by applications too).
    const xkb_layout_index_t layout = xkb_state_key_get_layout(m_state, keycode);
    const xkb_keysym_t* syms = nullptr;
    if (xkb_keymap_key_get_syms_by_level(m_keymap, keycode, layout, 0, &syms) == 1 && syms[0] < 0x100)
        return syms[0] == XKB_KEY_v ? KeyCode::V : KeyCode::Other;
    return m_vKeys.test(keycode) ? KeyCode::V : KeyCode::Other;
}

bool X11KeyboardTap::Worker::feedCompose(xkb_keysym_t sym)
{
    if (!m_compose)
        return isDeadKeysym(sym);
    const xkb_compose_status before = xkb_compose_state_get_status(m_compose);
    xkb_compose_state_feed(m_compose, sym);
    const xkb_compose_status after = xkb_compose_state_get_status(m_compose);
    const bool composing = isDeadKeysym(sym) || after == XKB_COMPOSE_COMPOSING ||
                           (before == XKB_COMPOSE_COMPOSING && after != XKB_COMPOSE_NOTHING);
    if (after == XKB_COMPOSE_COMPOSED || after == XKB_COMPOSE_CANCELLED)
        xkb_compose_state_reset(m_compose);
    return composing;
}

KeyEvent X11KeyboardTap::Worker::makeKeyEvent(unsigned keycode)
{
    KeyEvent event;
    const xkb_keysym_t sym = xkb_state_key_get_one_sym(m_state, keycode);
    event.keyCode = keyCodeOf(keycode, sym);
    if (xkb_state_mod_name_is_active(m_state, XKB_MOD_NAME_CTRL, XKB_STATE_MODS_EFFECTIVE) > 0)
        event.flags |= ModifierFlag::Command;
    if (xkb_state_mod_name_is_active(m_state, XKB_MOD_NAME_ALT, XKB_STATE_MODS_EFFECTIVE) > 0)
        event.flags |= ModifierFlag::Option;
    if (xkb_state_mod_name_is_active(m_state, XKB_MOD_NAME_LOGO, XKB_STATE_MODS_EFFECTIVE) > 0)
        event.flags |= ModifierFlag::Control;
    std::array<char, 64> utf8{};
    const int length = xkb_state_key_get_utf8(m_state, keycode, utf8.data(), utf8.size());
    if (length > 0 && std::size_t(length) < utf8.size()) {
        event.text = QString::fromUtf8(utf8.data(), length);
        if (event.text.size() > 8)
            event.text.truncate(8);
    }
    event.composing = feedCompose(sym);
    return event;
}

GrabState X11KeyboardTap::Worker::desiredGrabs() const
{
    GrabState wanted{};
    KeySet keys;
    switch (m_mode) {
    case TapMode::Idle:
        keys = m_startKeys;
        break;
    case TapMode::Tracking:
        keys = m_startKeys | m_endKeys;
        break;
    case TapMode::Exclusive:
        // The active grab takes every key; while a shortcut modifier is down it steps aside and
        // only Ctrl+V (the image prompt's paste) is still caught.
        if (shortcutModifierHeld() || m_hold.active) {
            for (std::size_t keycode = 0; keycode < 256; ++keycode) {
                if (m_vKeys.test(keycode))
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

void X11KeyboardTap::Worker::changeGrabs(std::size_t id, Combinations combinations, bool grab, bool onHoldWindow)
{
    const Window window = onHoldWindow ? m_holdWindow : m_root;
    const auto keycode = ::KeyCode(id % WithControl);
    const unsigned extra = id >= WithControl ? ControlMask : 0;
    for (std::size_t i = 0; i < GrabCombinations.size(); ++i) {
        if (!(combinations & (1u << i)))
            continue;
        const unsigned modifiers = GrabCombinations[i] | extra;
        if (grab) {
            m_grabRequests.push_back({XNextRequest(m_display), id, int(i), onHoldWindow});
            XGrabKey(m_display, keycode, modifiers, window, False, GrabModeAsync, GrabModeSync);
        } else {
            XUngrabKey(m_display, keycode, modifiers, window);
        }
    }
}

void X11KeyboardTap::Worker::syncPassiveGrabs()
{
    GrabState wanted = desiredGrabs();
    // The hold grabs are many and short-lived: only under the current locks.
    const Combinations holdCombinations =
        m_hold.active ? combinationsWithLocksOf(currentModifiers(XKB_STATE_MODS_EFFECTIVE)) : Combinations(0);
    // With no focus window of its own (PointerRoot), the hold shares the root with the other
    // grabs: one set of books, or one side would ungrab what the other still counts on.
    const bool holdOnRoot = m_holdWindow == m_root;
    if (holdOnRoot) {
        for (std::size_t keycode = 0; keycode < 256; ++keycode) {
            if (m_holdKeys.test(keycode))
                wanted[keycode] |= holdCombinations;
        }
    }
    for (std::size_t id = 0; id < GrabIds; ++id) {
        const Combinations added = wanted[id] & ~m_grabbed[id];
        Combinations removed = m_grabbed[id] & ~wanted[id];
        if (removed && m_hold.active && id < 256 && m_holdKeys.test(id)) {
            // Any grab of a key that would be held anyway may stay until the hold ends.
            wanted[id] |= removed;
            removed = 0;
        }
        if (added)
            changeGrabs(id, added, true);
        if (removed)
            changeGrabs(id, removed, false);
        m_grabbed[id] = wanted[id];
    }

    // On the focus window: only where the root's grabs leave a key open.
    for (std::size_t keycode = 0; keycode < m_holdGrabbed.size(); ++keycode) {
        const Combinations wantedHere = m_holdKeys.test(keycode) && !holdOnRoot
                                            ? Combinations(holdCombinations & ~m_grabbed[keycode])
                                            : Combinations(0);
        const Combinations added = wantedHere & ~m_holdGrabbed[keycode];
        const Combinations removed = m_holdGrabbed[keycode] & ~wantedHere;
        if (added)
            changeGrabs(keycode, added, true, true);
        if (removed)
            changeGrabs(keycode, removed, false, true);
        m_holdGrabbed[keycode] = wantedHere;
    }
}

bool X11KeyboardTap::Worker::wantsActiveGrab() const
{
    return m_mode == TapMode::Exclusive && !m_hold.active && !shortcutModifierHeld();
}

void X11KeyboardTap::Worker::syncActiveGrab()
{
    const bool wanted = wantsActiveGrab();
    if (wanted && !m_activeGrab) {
        const unsigned long serial = XNextRequest(m_display);
        const int status = XGrabKeyboard(m_display, m_root, False, GrabModeAsync, GrabModeAsync, CurrentTime);
        if (status == GrabSuccess) {
            m_activeGrab = true;
            m_activeGrabFrom = serial;
            m_activeGrabUntil = 0;
        } else {
            // Another client holds the keyboard (an open menu, a window manager's switcher).
            m_activeGrabRetry = Clock::now() + ActiveGrabRetry;
        }
    } else if (!wanted && m_activeGrab) {
        m_activeGrabUntil = XNextRequest(m_display);
        XUngrabKeyboard(m_display, CurrentTime);
        m_activeGrab = false;
    }
}

bool X11KeyboardTap::Worker::fromActiveGrab(unsigned long serial) const
{
    if (m_activeGrabFrom == 0 || serial < m_activeGrabFrom)
        return false;
    return m_activeGrab || serial < m_activeGrabUntil;
}

void X11KeyboardTap::Worker::takeRefusedGrabs()
{
    if (!g_refusedGrabs.empty()) {
        for (const unsigned long serial : g_refusedGrabs) {
            const auto request =
                std::lower_bound(m_grabRequests.begin(), m_grabRequests.end(), serial,
                                 [](const GrabRequest& sent, unsigned long value) { return sent.serial < value; });
            if (request != m_grabRequests.end() && request->serial == serial) {
                const auto refused = Combinations(~(1u << request->combination));
                if (request->onHoldWindow)
                    m_holdGrabbed[request->id] &= refused;
                else
                    m_grabbed[request->id] &= refused;
            }
        }
        g_refusedGrabs.clear();
        if (!m_regrabAt)
            m_regrabAt = Clock::now() + m_regrabDelay;
    }
    // Errors come in the order of the requests: one read after a request means that request's
    // error, if any, has been read too.
    const unsigned long processed = XLastKnownRequestProcessed(m_display);
    while (!m_grabRequests.empty() && m_grabRequests.front().serial <= processed)
        m_grabRequests.pop_front();
}

void X11KeyboardTap::Worker::releaseAllGrabs()
{
    for (std::size_t id = 0; id < GrabIds; ++id) {
        if (m_grabbed[id])
            changeGrabs(id, m_grabbed[id], false);
    }
    m_grabbed.fill(0);
    for (std::size_t keycode = 0; keycode < m_holdGrabbed.size(); ++keycode) {
        if (m_holdGrabbed[keycode])
            changeGrabs(keycode, m_holdGrabbed[keycode], false, true);
    }
    m_holdGrabbed.fill(0);
    if (m_activeGrab) {
        m_activeGrabUntil = XNextRequest(m_display);
        XUngrabKeyboard(m_display, CurrentTime);
        m_activeGrab = false;
    }
}

void X11KeyboardTap::Worker::beginHold(const HeldKey& endingKey, bool waitForRelease, bool replayEndingKey,
                                       quint64 keyId)
{
    if (!m_hold.active) {
        Window focus = 0;
        int revert = 0;
        XGetInputFocus(m_display, &focus, &revert);
        m_holdWindow = focus == None || focus == PointerRoot ? m_root : focus;
    }
    // During a typing back the hold goes on: ours still on their way and the late keys stay.
    m_hold.active = true;
    m_hold.waitingForRelease = waitForRelease;
    m_hold.replayEndingKey = replayEndingKey;
    m_hold.endingKey = endingKey;
    m_hold.keyId = keyId;
    m_hold.since = Clock::now();
    m_hold.keysUpSince = m_hold.since;
}

void X11KeyboardTap::Worker::updateHold(Clock::time_point now)
{
    if (!m_hold.active)
        return;
    if (m_hold.waitingForRelease) {
        const auto safety = holdSafety();
        if (now - m_hold.since < safety)
            return;
        if (safety == HoldSafety && !dropHoldUnlessClaimed(m_hold.keyId))
            return; // claimed just now: it waits the longer time
        qCWarning(lcTap) << "held keys were not released within" << safety.count() << "ms; typing them back";
        m_hold.waitingForRelease = false;
        m_hold.replayEndingKey = true;
        m_hold.keysUpSince = now;
    }
    if (!m_hold.typedBack.empty()) {
        if (now - m_hold.since < TypedBackBound)
            return;
        qCDebug(lcTap) << m_hold.typedBack.size() << "keys typed back did not come back";
        m_hold.typedBack.clear();
        typedBackArrived();
    }
    const bool replay = m_hold.replayEndingKey && m_hold.endingKey;
    if (!replay && m_hold.keys.empty()) {
        endHold();
        return;
    }
    if (now - m_hold.keysUpSince < KeysUpBound && heldKeysDown())
        return;
    // A Ctrl, Alt or Super the user holds now would turn a letter typed back into a shortcut
    // (Ctrl+W closes a tab), and XTest cannot lift a key the keyboard holds down.
    if (now - m_hold.keysUpSince < ModifiersUpBound && shortcutModifierAdded())
        return;
    typeBack();
}

bool X11KeyboardTap::Worker::shortcutModifierAdded() const
{
    // Asked of the server, not of the state the tap's events build: a Ctrl pressed a moment ago
    // may still be on its way as an event.
    XkbStateRec state{};
    if (XkbGetState(m_display, XkbUseCoreKbd, &state) != Success)
        return false;
    const unsigned down = state.base_mods & (ControlMask | Mod1Mask | Mod4Mask);
    if (down == 0)
        return false;
    if (m_hold.replayEndingKey && m_hold.endingKey && (down & ~m_hold.endingKey->state))
        return true;
    return std::any_of(m_hold.keys.cbegin(), m_hold.keys.cend(),
                       [down](const HeldKey& key) { return (down & ~key.state) != 0; });
}

bool X11KeyboardTap::Worker::heldKeysDown()
{
    std::array<char, 32> keys{};
    XQueryKeymap(m_display, keys.data());
    const auto down = [&](unsigned keycode) { return (keys[keycode / 8] >> (keycode % 8)) & 1; };
    if (m_hold.replayEndingKey && m_hold.endingKey && down(m_hold.endingKey->keycode))
        return true;
    for (const HeldKey& key : m_hold.keys) {
        if (down(key.keycode))
            return true;
    }
    return false;
}

void X11KeyboardTap::Worker::typeBack()
{
    // The hold grabs stay: each key comes back through one and is answered in turn, so a key
    // the user types meanwhile, which the server may queue before ours, is held behind them.
    if (m_hold.replayEndingKey && m_hold.endingKey) {
        typeKey(*m_hold.endingKey);
        m_hold.typedBack.push_back({m_hold.endingKey->keycode, true});
    }
    m_hold.endingKey.reset();
    m_hold.replayEndingKey = false;
    for (const HeldKey& key : m_hold.keys) {
        typeKey(key);
        m_hold.typedBack.push_back({key.keycode, false});
    }
    m_hold.keys.clear();
    m_hold.since = Clock::now();
    XFlush(m_display);
}

void X11KeyboardTap::Worker::typedBackArrived()
{
    if (!m_hold.typedBack.empty())
        return;
    m_hold.keys.insert(m_hold.keys.end(), m_hold.lateKeys.begin(), m_hold.lateKeys.end());
    m_hold.lateKeys.clear();
    m_hold.keysUpSince = Clock::now();
}

void X11KeyboardTap::Worker::endHold()
{
    {
        // One hold at a time: whatever key it began with, nothing is held after it.
        std::lock_guard lock(m_claimMutex);
        m_heldKey = 0;
    }
    m_hold = Hold{};
    // The active grab first, so that no key slips past between the two.
    syncActiveGrab();
    syncPassiveGrabs();
}

void X11KeyboardTap::Worker::typeKey(const HeldKey& key)
{
    // The key is typed with the modifiers it had (a capital typed during the hold), adding only
    // those no longer down.
    const unsigned wanted = key.state & (ShiftMask | ControlMask | Mod1Mask | Mod4Mask | Mod5Mask);
    const unsigned missing = wanted & ~currentModifiers(xkb_state_component(XKB_STATE_MODS_DEPRESSED));
    std::vector<unsigned> pressed;
    for (unsigned modifier = 0; modifier < 8; ++modifier) {
        if ((missing & (1u << modifier)) && m_modifierKeycodes[modifier] != 0) {
            XTestFakeKeyEvent(m_display, m_modifierKeycodes[modifier], True, 0);
            pressed.push_back(m_modifierKeycodes[modifier]);
        }
    }
    XTestFakeKeyEvent(m_display, key.keycode, True, 0);
    XTestFakeKeyEvent(m_display, key.keycode, False, 0);
    for (auto it = pressed.rbegin(); it != pressed.rend(); ++it)
        XTestFakeKeyEvent(m_display, *it, False, 0);
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
