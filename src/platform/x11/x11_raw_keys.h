#pragma once

// The XInput 2 listener: raw key presses of every keyboard, which the tap follows without a
// grab. A raw event of a key that a grab also catches waits a moment for the grabbed press,
// which comes right after it, so that the key is decided once.

#include "platform/key_event.h"
#include "platform/x11/x11_tap_common.h"

#include <optional>

struct _XDisplay;
union _XEvent;

namespace tavo::x11tap {

class RawKeys
{
public:
    // Asks for raw key presses on the root for all master devices.
    void open(_XDisplay* display, unsigned long root, int xiOpcode);
    // Whether `event` is of the extension; if it is a raw key press, `keycode` is set to its key
    // and `serial` to the last request the server had processed when the key was pressed.
    bool read(_XEvent& event, std::optional<unsigned>* keycode, unsigned long* serial) const;

    // The raw event of a key a grab catches: its press comes next.
    // `surely`: no grab of it was changing, so a press that does not come was dropped.
    void expectGrabbed(unsigned keycode, KeyEvent event, bool surely);
    // The waiting raw event, if it is of `keycode`.
    std::optional<KeyEvent> takeFor(unsigned keycode);
    // The waiting raw event, whatever its key: no grabbed press came for it.
    struct Pending
    {
        unsigned keycode;
        KeyEvent event;
        bool surely = false;
    };
    std::optional<Pending> take();
    bool due(Clock::time_point now) const;
    Clock::time_point deadline() const;

private:
    _XDisplay* m_display = nullptr;
    int m_xiOpcode = 0;
    std::optional<Pending> m_pending;
    Clock::time_point m_since;
};

} // namespace tavo::x11tap
