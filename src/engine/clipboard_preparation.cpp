#include "engine/clipboard_preparation.h"
