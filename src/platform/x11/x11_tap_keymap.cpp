#include "platform/x11/x11_tap_keymap.h"

#include <QChar>
#include <QStringView>

#include <algorithm>
#include <cstdlib>

// X11 last: its macros (None, KeyPress, Bool, Status) clash with Qt's names.
#include <X11/Xlib-xcb.h>
#include <X11/Xlib.h>
#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace tavo::x11tap {

namespace {

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

} // namespace

TapKeymap::~TapKeymap()
{
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
}

bool TapKeymap::open(Display* display, xcb_connection_t* xcb)
{
    m_display = display;
    m_xcb = xcb;
    m_context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (!m_context || !load())
        return false;

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
    return true;
}

bool TapKeymap::reload()
{
    return load();
}

bool TapKeymap::load()
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

void TapKeymap::updateState(unsigned baseMods, unsigned latchedMods, unsigned lockedMods, int baseGroup,
                            int latchedGroup, int lockedGroup)
{
    xkb_state_update_mask(m_state, baseMods, latchedMods, lockedMods, xkb_layout_index_t(baseGroup),
                          xkb_layout_index_t(latchedGroup), xkb_layout_index_t(lockedGroup));
}

void TapKeymap::computeKeySets()
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
    m_keyModifiers.fill(0);
    if (XModifierKeymap* map = XGetModifierMapping(m_display)) {
        for (int modifier = 0; modifier < 8; ++modifier) {
            for (int i = 0; i < map->max_keypermod; ++i) {
                const ::KeyCode code = map->modifiermap[modifier * map->max_keypermod + i];
                if (code == 0)
                    continue;
                if (m_modifierKeycodes[std::size_t(modifier)] == 0)
                    m_modifierKeycodes[std::size_t(modifier)] = code;
                m_keyModifiers[code] |= quint8(1u << modifier);
            }
        }
        XFreeModifiermap(map);
    }
}

unsigned TapKeymap::modifiers(int components) const
{
    return unsigned(xkb_state_serialize_mods(m_state, xkb_state_component(components))) & 0xff;
}

unsigned TapKeymap::effectiveModifiers() const
{
    return modifiers(XKB_STATE_MODS_EFFECTIVE);
}

unsigned TapKeymap::depressedModifiers() const
{
    return modifiers(XKB_STATE_MODS_DEPRESSED);
}

bool TapKeymap::shortcutModifierHeld() const
{
    return (effectiveModifiers() & (ControlMask | Mod1Mask | Mod4Mask)) != 0;
}

int TapKeymap::keyCodeOf(unsigned keycode, unsigned sym) const
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

bool TapKeymap::feedCompose(unsigned sym)
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

KeyEvent TapKeymap::makeKeyEvent(unsigned keycode)
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

} // namespace tavo::x11tap
