#pragma once

// Typing a key the tap kept back, through XTest, as the user typed it.

#include "platform/x11/x11_tap_common.h"

#include <functional>
#include <vector>

struct _XDisplay;

namespace tavo::x11tap {

class TapKeymap;

// Sends the press and release of `key` with the modifiers it was typed with, and without a
// Shift or AltGr that is down now but was not then (put back down right after). False, with
// nothing typed, when such a modifier is held on another keyboard, where XTest cannot lift it;
// `force` types the key all the same. Flushed.
bool typeKey(_XDisplay* display, const HeldKey& key, const TapKeymap& keymap, bool force);

// Under XGrabServer: releases the keys down now that `lift` picks, and returns those that went
// up. XTest lifts only its own device's keys; `held` tells whether another keyboard holds one.
std::vector<unsigned> liftKeys(_XDisplay* display, const std::function<bool(unsigned)>& lift, bool* held);
// Presses again the keys liftKeys() lifted. Still under the server grab: no release of theirs
// by another client can have come (and been dropped) in between.
void putBack(_XDisplay* display, const std::vector<unsigned>& lifted);

} // namespace tavo::x11tap
