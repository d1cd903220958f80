#include "language/date_format.h"
