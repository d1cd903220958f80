#include "language/text_utils.h"
