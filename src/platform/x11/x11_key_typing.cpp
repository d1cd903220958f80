#include "platform/x11/x11_key_typing.h"

#include <vector>

// X11 last: its macros (None, KeyPress, Bool, Status) clash with Qt's names.
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

namespace tavo::x11tap {

void typeKey(Display* display, const HeldKey& key, unsigned depressed, const std::array<unsigned, 8>& modifierKeycodes)
{
    // A capital typed during the hold comes back a capital; a Shift still down is not pressed
    // again.
    const unsigned wanted = key.state & (ShiftMask | ControlMask | Mod1Mask | Mod4Mask | Mod5Mask);
    const unsigned missing = wanted & ~depressed;
    std::vector<unsigned> pressed;
    for (unsigned modifier = 0; modifier < 8; ++modifier) {
        if ((missing & (1u << modifier)) && modifierKeycodes[modifier] != 0) {
            XTestFakeKeyEvent(display, modifierKeycodes[modifier], True, 0);
            pressed.push_back(modifierKeycodes[modifier]);
        }
    }
    XTestFakeKeyEvent(display, key.keycode, True, 0);
    XTestFakeKeyEvent(display, key.keycode, False, 0);
    for (auto it = pressed.rbegin(); it != pressed.rend(); ++it)
        XTestFakeKeyEvent(display, *it, False, 0);
}

} // namespace tavo::x11tap
