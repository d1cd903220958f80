#include "platform/x11/x11_keyboard_tap.h"
