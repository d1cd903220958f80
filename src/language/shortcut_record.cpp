#include "language/shortcut_record.h"
