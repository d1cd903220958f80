#pragma once

// Typing a key the tap kept back, through XTest, as the user typed it.

#include "platform/x11/x11_tap_common.h"

#include <array>

struct _XDisplay;

namespace tavo::x11tap {

// Sends the press and release of `key`, with the modifiers it was typed with: only those not
// down now (`depressed`) are pressed around it, through `modifierKeycodes` (one per core
// modifier). Not flushed.
void typeKey(_XDisplay* display, const HeldKey& key, unsigned depressed,
             const std::array<unsigned, 8>& modifierKeycodes);

} // namespace tavo::x11tap
