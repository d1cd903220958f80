#include "engine/tap_state.h"
