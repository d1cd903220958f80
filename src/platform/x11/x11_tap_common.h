#pragma once

// What the parts of the X11 keyboard tap share: its clock, its log, and the sets of key codes
// and modifier combinations its grabs are counted in. Included by the tap's own files only.

#include <QLoggingCategory>
#include <QtGlobal>

#include <array>
#include <bitset>
#include <chrono>
#include <cstddef>

namespace tavo {

Q_DECLARE_LOGGING_CATEGORY(lcTap)

namespace x11tap {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

using KeySet = std::bitset<256>;

// Grab ids: the key code, plus this for the grab of the key with Ctrl held.
constexpr int WithControl = 256;
constexpr std::size_t GrabIds = 512;
// Per grab id, which of the 16 modifier combinations are grabbed (bit i: combination i).
using Combinations = quint16;
using GrabState = std::array<Combinations, GrabIds>;
constexpr Combinations AllCombinations = 0xffff;

// A key the tap keeps back, to type again later with the modifiers it was typed with.
struct HeldKey
{
    unsigned keycode = 0;
    unsigned state = 0; // the core modifiers it was typed with
};

// Wakes the tap's thread out of its poll().
void wake(int fd);

} // namespace x11tap
} // namespace tavo
