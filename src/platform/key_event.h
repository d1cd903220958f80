#pragma once

#include <QString>
#include <QtGlobal>

namespace tavo {

// Keys as the engine knows them: the virtual key codes of an ANSI keyboard for the few keys the
// engine cares about, whatever the desktop's own codes are. Every other key is `Other`.
namespace KeyCode {
constexpr int Other = -1;
constexpr int V = 9;
constexpr int Return = 36;
constexpr int Backslash = 42; // the key at the backslash position, whatever it types
constexpr int Slash = 44;     // the key at the slash position
constexpr int Tab = 48;
constexpr int Delete = 51; // Backspace
constexpr int Escape = 53;
constexpr int KeypadEnter = 76;
constexpr int ForwardDelete = 117;
} // namespace KeyCode

// Modifier flags. Ctrl is the shortcut and paste modifier here, so it plays the Command role;
// Alt is Option and Super is Control. Shift, Caps Lock, AltGr and Num Lock are none of them, so
// a shifted or AltGr key counts as a plain key.
namespace ModifierFlag {
constexpr quint64 Control = 0x40000;
constexpr quint64 Option = 0x80000;
constexpr quint64 Command = 0x100000;
constexpr quint64 Mask = Control | Option | Command;
} // namespace ModifierFlag

// One key press as the tap sees it.
struct KeyEvent
{
    int keyCode = KeyCode::Other;
    quint64 flags = 0;
    QString text;           // what the key types at the current layout and level, up to 8 UTF-16 units
    bool composing = false; // a dead key or a step of a Compose sequence: the text is not final
    quint64 id = 0;         // the tap's number for this press: names the hold it may start

    bool hasModifier() const { return (flags & ModifierFlag::Mask) != 0; }
};

} // namespace tavo
