#include "language/live_tokens.h"
