#pragma once

// The books of the tap's key grabs: which key codes under which modifier combinations are
// grabbed on the root and on the window a hold sits on, which grabs the server refused, and the
// active keyboard grab. Changes are sent, not flushed: the tap flushes them with the request
// that thaws the keyboard.

#include "platform/x11/x11_tap_common.h"

#include <deque>
#include <optional>

struct _XDisplay;

namespace tavo::x11tap {

// The combinations with the Caps Lock and Num Lock of `state`, any Shift and AltGr.
Combinations combinationsWithLocksOf(unsigned state);
// The combination bit of a core modifier state, or none when it has a shortcut modifier
// (`withControl` set when that is Ctrl alone).
Combinations combinationOf(unsigned state, bool* withControl);

class GrabBooks
{
public:
    void open(_XDisplay* display, unsigned long root);

    // Brings the passive grabs to `wanted` on the root, and `holdCombinations` of `holdKeys` on
    // the hold's window (none: no hold). While a hold is on, a root grab of a key it would hold
    // anyway stays until it ends.
    void sync(GrabState wanted, const KeySet& holdKeys, Combinations holdCombinations);
    // Takes or gives back the whole keyboard. Taking it may fail (another client has it): then it
    // is asked again after activeRetryAt().
    void setActive(bool wanted);
    void releaseAll();

    bool active() const { return m_activeGrab; }
    Clock::time_point activeRetryAt() const { return m_activeGrabRetry; }
    // Whether the press of this serial came through the active grab.
    bool fromActive(unsigned long serial) const;
    // Whether a press of `keycode` with the core modifiers `state`, made when the server had
    // processed the requests up to `serial`, may come through a grab. A grab of that key changed
    // after it counts as catching: the server may have seen the grab it had before.
    bool catches(unsigned keycode, unsigned state, unsigned long serial) const;
    // Whether the server may not have seen the latest change of the grabs of `keycode` at `serial`.
    bool inFlux(unsigned keycode, unsigned long serial) const;

    // The window the hold's grabs sit on: the root when there is no focus window of its own.
    void setHoldWindow(unsigned long window) { m_holdWindow = window; }
    // The focus moved during a hold: its grabs leave the old window; sync() puts them on this one.
    void moveHold(unsigned long window);
    unsigned long holdWindow() const { return m_holdWindow; }
    bool holdOnRoot() const { return m_holdWindow == m_root; }

    // Reads refusals that arrived; schedules asking again for what was refused.
    void takeRefused();
    std::optional<Clock::time_point> regrabAt() const { return m_regrabAt; }
    bool regrabDue(Clock::time_point now) const { return m_regrabAt && now >= *m_regrabAt; }
    // After sync() for a due regrab: waits for the answers and sets the next try.
    void finishRegrab(Clock::time_point now);

private:
    void change(std::size_t id, Combinations combinations, bool grab, bool onHoldWindow);

    _XDisplay* m_display = nullptr;
    unsigned long m_root = 0;
    GrabState m_grabbed{}; // on the root window
    // The hold's grabs sit on the window that had the focus when it began: few grabs there make
    // them cheap for the server, where the root's long list would delay the paste behind them.
    std::array<Combinations, 256> m_holdGrabbed{};
    // Per grab id, the serial of the last request that changed its grabs, on either window.
    std::array<unsigned long, GrabIds> m_changedAt{};
    unsigned long m_holdWindow = 0;
    struct GrabRequest
    {
        unsigned long serial;
        std::size_t id;
        int combination;
        bool onHoldWindow;
    };
    std::deque<GrabRequest> m_grabRequests; // sent, their refusal not read yet
    std::optional<Clock::time_point> m_regrabAt;
    std::chrono::milliseconds m_regrabDelay;
    bool m_activeGrab = false;
    unsigned long m_activeGrabFrom = 0;  // serial of the request that took the active grab
    unsigned long m_activeGrabUntil = 0; // serial of the request that ended it
    Clock::time_point m_activeGrabRetry;
};

} // namespace tavo::x11tap
