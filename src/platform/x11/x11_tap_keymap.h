#pragma once

// The keyboard as the tap reads it: the XKB key map and state, which key codes can start, end
// or be held in a trigger, and the text and engine key code of each press.

#include "platform/key_event.h"
#include "platform/x11/x11_tap_common.h"

#include <array>

struct _XDisplay;
struct xcb_connection_t;
struct xkb_context;
struct xkb_keymap;
struct xkb_state;
struct xkb_compose_table;
struct xkb_compose_state;

namespace tavo::x11tap {

class TapKeymap
{
public:
    TapKeymap() = default;
    ~TapKeymap();
    TapKeymap(const TapKeymap&) = delete;
    TapKeymap& operator=(const TapKeymap&) = delete;

    // Sets up XKB on the connection and reads the key map; false if it cannot.
    bool open(_XDisplay* display, xcb_connection_t* xcb);
    // Reads the key map again (a new layout); false while the server is still changing it.
    bool reload();

    // Follows the server's XKB state (an XkbStateNotify's fields).
    void updateState(unsigned baseMods, unsigned latchedMods, unsigned lockedMods, int baseGroup, int latchedGroup,
                     int lockedGroup);

    KeyEvent makeKeyEvent(unsigned keycode);
    // The core modifiers in effect (XKB_STATE_MODS_EFFECTIVE) or held down (DEPRESSED).
    unsigned effectiveModifiers() const;
    unsigned depressedModifiers() const;
    bool shortcutModifierHeld() const;

    const KeySet& startKeys() const { return m_startKeys; }
    const KeySet& endKeys() const { return m_endKeys; }
    const KeySet& holdKeys() const { return m_holdKeys; }
    const KeySet& modifierKeys() const { return m_modifierKeys; }
    const KeySet& vKeys() const { return m_vKeys; }
    // A key code per core modifier, to type it back.
    const std::array<unsigned, 8>& modifierKeycodes() const { return m_modifierKeycodes; }
    // Per key code, the core modifiers it sets.
    const std::array<quint8, 256>& keyModifiers() const { return m_keyModifiers; }

private:
    bool load();
    void computeKeySets();
    bool feedCompose(unsigned sym);
    int keyCodeOf(unsigned keycode, unsigned sym) const;
    unsigned modifiers(int components) const;

    _XDisplay* m_display = nullptr;
    xcb_connection_t* m_xcb = nullptr;
    xkb_context* m_context = nullptr;
    xkb_keymap* m_keymap = nullptr;
    xkb_state* m_state = nullptr;
    xkb_compose_table* m_composeTable = nullptr;
    xkb_compose_state* m_compose = nullptr;

    KeySet m_startKeys;    // type \ or / somewhere, or sit where the ANSI \ and / keys are
    KeySet m_endKeys;      // type a blank, Return, Tab or trigger-ending punctuation
    KeySet m_holdKeys;     // type text; not the keys the paste itself sends
    KeySet m_modifierKeys; // never decided: the tap sees key presses, not modifier changes
    KeySet m_vKeys;
    unsigned m_backslashKey = 0;
    unsigned m_slashKey = 0;
    std::array<unsigned, 8> m_modifierKeycodes{};
    std::array<quint8, 256> m_keyModifiers{};
};

} // namespace tavo::x11tap
