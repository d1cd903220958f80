#include "platform/qt/qt_pasteboard.h"
