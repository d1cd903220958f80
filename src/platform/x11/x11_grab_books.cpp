#include "platform/x11/x11_grab_books.h"

#include "platform/x11/x11_tap_session.h"

#include <algorithm>

// X11 last: its macros (None, KeyPress, Bool, Status) clash with Qt's names.
#include <X11/Xlib.h>

namespace tavo::x11tap {

namespace {

constexpr auto ActiveGrabRetry = 50ms;
// A grab another client held a moment ago is asked for again, less often each time it is not
// given: a window manager's key binding keeps it for good.
constexpr auto RegrabFirst = std::chrono::milliseconds(1s);
constexpr auto RegrabLast = std::chrono::milliseconds(30s);

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

int combinationIndexOf(unsigned state)
{
    int index = 0;
    for (unsigned bit = 0; bit < TransparentModifiers.size(); ++bit) {
        if (state & TransparentModifiers[bit])
            index |= 1 << bit;
    }
    return index;
}

} // namespace

// Locks change rarely, and a quarter of the grabs is a quarter of the server's work.
Combinations combinationsWithLocksOf(unsigned state)
{
    Combinations combinations = 0;
    for (std::size_t i = 0; i < GrabCombinations.size(); ++i) {
        if ((GrabCombinations[i] & (LockMask | Mod2Mask)) == (state & (LockMask | Mod2Mask)))
            combinations |= Combinations(1u << i);
    }
    return combinations;
}

Combinations combinationOf(unsigned state, bool* withControl)
{
    const unsigned modifiers = state & ~TransparentMask;
    *withControl = modifiers == ControlMask;
    if (modifiers != 0 && modifiers != ControlMask)
        return 0;
    return Combinations(1u << combinationIndexOf(state));
}

void GrabBooks::open(Display* display, unsigned long root)
{
    m_display = display;
    m_root = root;
    m_regrabDelay = RegrabFirst;
}

bool GrabBooks::catches(unsigned keycode, unsigned state, unsigned long serial) const
{
    if (m_activeGrab)
        return true;
    if (inFlux(keycode, serial))
        return true;
    bool withControl = false;
    const Combinations combination = combinationOf(state, &withControl);
    if (withControl)
        return m_grabbed[keycode + WithControl] & combination;
    return (m_grabbed[keycode] | m_holdGrabbed[keycode]) & combination;
}

bool GrabBooks::inFlux(unsigned keycode, unsigned long serial) const
{
    return m_changedAt[keycode] > serial || m_changedAt[keycode + WithControl] > serial;
}

void GrabBooks::change(std::size_t id, Combinations combinations, bool grab, bool onHoldWindow)
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
    m_changedAt[id] = XNextRequest(m_display) - 1;
}

void GrabBooks::sync(GrabState wanted, const KeySet& holdKeys, Combinations holdCombinations)
{
    const bool holding = holdCombinations != 0;
    // With no focus window of its own (PointerRoot), the hold shares the root with the other
    // grabs: one set of books, or one side would ungrab what the other still counts on.
    const bool onRoot = holdOnRoot();
    if (onRoot) {
        for (std::size_t keycode = 0; keycode < 256; ++keycode) {
            if (holdKeys.test(keycode))
                wanted[keycode] |= holdCombinations;
        }
    }
    for (std::size_t id = 0; id < GrabIds; ++id) {
        const Combinations added = wanted[id] & ~m_grabbed[id];
        Combinations removed = m_grabbed[id] & ~wanted[id];
        if (removed && holding && id < 256 && holdKeys.test(id)) {
            // Any grab of a key that would be held anyway may stay until the hold ends.
            wanted[id] |= removed;
            removed = 0;
        }
        if (added)
            change(id, added, true, false);
        if (removed)
            change(id, removed, false, false);
        m_grabbed[id] = wanted[id];
    }

    // On the focus window: only where the root's grabs leave a key open.
    for (std::size_t keycode = 0; keycode < m_holdGrabbed.size(); ++keycode) {
        const Combinations wantedHere =
            holdKeys.test(keycode) && !onRoot ? Combinations(holdCombinations & ~m_grabbed[keycode]) : Combinations(0);
        const Combinations added = wantedHere & ~m_holdGrabbed[keycode];
        const Combinations removed = m_holdGrabbed[keycode] & ~wantedHere;
        if (added)
            change(keycode, added, true, true);
        if (removed)
            change(keycode, removed, false, true);
        m_holdGrabbed[keycode] = wantedHere;
    }
}

void GrabBooks::moveHold(unsigned long window)
{
    for (std::size_t keycode = 0; keycode < m_holdGrabbed.size(); ++keycode) {
        if (m_holdGrabbed[keycode])
            change(keycode, m_holdGrabbed[keycode], false, true);
    }
    m_holdGrabbed.fill(0);
    m_holdWindow = window;
}

void GrabBooks::setActive(bool wanted)
{
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

bool GrabBooks::fromActive(unsigned long serial) const
{
    if (m_activeGrabFrom == 0 || serial < m_activeGrabFrom)
        return false;
    return m_activeGrab || serial < m_activeGrabUntil;
}

void GrabBooks::takeRefused()
{
    std::vector<unsigned long>& refused = refusedGrabs();
    if (!refused.empty()) {
        for (const unsigned long serial : refused) {
            const auto request =
                std::lower_bound(m_grabRequests.begin(), m_grabRequests.end(), serial,
                                 [](const GrabRequest& sent, unsigned long value) { return sent.serial < value; });
            if (request != m_grabRequests.end() && request->serial == serial) {
                const auto kept = Combinations(~(1u << request->combination));
                if (request->onHoldWindow)
                    m_holdGrabbed[request->id] &= kept;
                else
                    m_grabbed[request->id] &= kept;
            }
        }
        refused.clear();
        if (!m_regrabAt)
            m_regrabAt = Clock::now() + m_regrabDelay;
    }
    // Errors come in the order of the requests: one read after a request means that request's
    // error, if any, has been read too.
    const unsigned long processed = XLastKnownRequestProcessed(m_display);
    while (!m_grabRequests.empty() && m_grabRequests.front().serial <= processed)
        m_grabRequests.pop_front();
}

void GrabBooks::finishRegrab(Clock::time_point now)
{
    m_regrabAt.reset();
    XSync(m_display, False);
    const bool refusedAgain = !refusedGrabs().empty();
    takeRefused();
    m_regrabDelay = refusedAgain ? std::min<std::chrono::milliseconds>(m_regrabDelay * 2, RegrabLast) : RegrabFirst;
    if (refusedAgain)
        m_regrabAt = now + m_regrabDelay;
}

void GrabBooks::releaseAll()
{
    for (std::size_t id = 0; id < GrabIds; ++id) {
        if (m_grabbed[id])
            change(id, m_grabbed[id], false, false);
    }
    m_grabbed.fill(0);
    for (std::size_t keycode = 0; keycode < m_holdGrabbed.size(); ++keycode) {
        if (m_holdGrabbed[keycode])
            change(keycode, m_holdGrabbed[keycode], false, true);
    }
    m_holdGrabbed.fill(0);
    if (m_activeGrab) {
        m_activeGrabUntil = XNextRequest(m_display);
        XUngrabKeyboard(m_display, CurrentTime);
        m_activeGrab = false;
    }
}

} // namespace tavo::x11tap
