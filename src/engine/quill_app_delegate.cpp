#include "engine/quill_app_delegate.h"
