#include "platform/x11/x11_key_typing.h"

#include "platform/x11/x11_tap_keymap.h"

#include <array>
#include <vector>

// X11 last: its macros (None, KeyPress, Bool, Status) clash with Qt's names.
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

namespace tavo::x11tap {

namespace {

constexpr unsigned TypedModifiers = ShiftMask | ControlMask | Mod1Mask | Mod4Mask | Mod5Mask;
// The modifiers that choose a key's character. Ctrl, Alt and Super down now are waited out by
// the hold: a key typed back under them would be a shortcut.
constexpr unsigned LevelModifiers = ShiftMask | Mod5Mask;

using Keymap = std::array<char, 32>;

bool isDown(const Keymap& keys, unsigned keycode)
{
    return (keys[keycode / 8] >> (keycode % 8)) & 1;
}

unsigned modifiersDown(Display* display)
{
    XkbStateRec state{};
    return XkbGetState(display, XkbUseCoreKbd, &state) == Success ? state.base_mods : 0;
}

} // namespace

bool typeKey(Display* display, const HeldKey& key, const TapKeymap& keymap, bool force)
{
    // No other client runs between the question and the keys: a Shift the user presses for the
    // next capital cannot come between them, and the user's release of a Shift lifted here
    // cannot come before it is put back (XTest would drop that release, and the Shift would
    // stay down).
    XGrabServer(display);
    const auto giveUp = [display] {
        XUngrabServer(display);
        XFlush(display);
        return false;
    };
    const unsigned wanted = key.state & TypedModifiers;
    unsigned down = modifiersDown(display);
    // An event not read yet may be a press one of the tap's grabs froze the keyboard on: the
    // keys sent now would wait behind it, and the state just read would be out of date by then.
    if (!force && XEventsQueued(display, QueuedAlready) > 0)
        return giveUp();
    std::vector<unsigned> lifted; // put back down after the key
    if (const unsigned extra = down & LevelModifiers & ~wanted) {
        bool held = false;
        lifted = liftKeys(
            display, [&](unsigned keycode) { return (keymap.keyModifiers()[keycode] & extra) != 0; }, &held);
        if (held && !force) {
            putBack(display, lifted);
            return giveUp();
        }
        if (!held)
            down &= ~extra;
    }
    std::vector<unsigned> pressed;
    const unsigned missing = wanted & ~down;
    for (unsigned modifier = 0; modifier < 8; ++modifier) {
        const unsigned keycode = keymap.modifierKeycodes()[modifier];
        if ((missing & (1u << modifier)) && keycode != 0) {
            XTestFakeKeyEvent(display, keycode, True, 0);
            pressed.push_back(keycode);
        }
    }
    XTestFakeKeyEvent(display, key.keycode, True, 0);
    XTestFakeKeyEvent(display, key.keycode, False, 0);
    for (auto it = pressed.rbegin(); it != pressed.rend(); ++it)
        XTestFakeKeyEvent(display, *it, False, 0);
    putBack(display, lifted);
    XUngrabServer(display);
    XFlush(display);
    return true;
}

std::vector<unsigned> liftKeys(Display* display, const std::function<bool(unsigned)>& lift, bool* held)
{
    Keymap keys{};
    XQueryKeymap(display, keys.data());
    std::vector<unsigned> tried;
    for (unsigned keycode = 0; keycode < 256; ++keycode) {
        if (isDown(keys, keycode) && lift(keycode)) {
            XTestFakeKeyEvent(display, keycode, False, 0);
            tried.push_back(keycode);
        }
    }
    *held = false;
    if (tried.empty())
        return tried;
    XQueryKeymap(display, keys.data());
    std::vector<unsigned> lifted;
    for (const unsigned keycode : tried) {
        if (isDown(keys, keycode))
            *held = true;
        else
            lifted.push_back(keycode);
    }
    return lifted;
}

void putBack(Display* display, const std::vector<unsigned>& lifted)
{
    for (const unsigned keycode : lifted)
        XTestFakeKeyEvent(display, keycode, True, 0);
}

} // namespace tavo::x11tap
