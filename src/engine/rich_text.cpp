#include "engine/rich_text.h"
