#include "engine/expansion_plan.h"
