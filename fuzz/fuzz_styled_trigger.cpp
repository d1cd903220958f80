#include "language/triggers.h"

#include <cstddef>
#include <cstdint>

// The base is always a leading part of the text, whatever suffixes it carries.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const tavo::StyledTrigger styled = tavo::parseStyledTrigger(text);
    if (!text.startsWith(styled.base)) {
        __builtin_trap();
    }
    return 0;
}
