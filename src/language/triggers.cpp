#include "language/triggers.h"
