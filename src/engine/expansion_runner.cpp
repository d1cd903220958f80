#include "engine/expansion_runner.h"
