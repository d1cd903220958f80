#include "platform/x11/x11_desktop.h"
