#include "language/rtf.h"

#include <cstddef>
#include <cstdint>

// Any bytes: the reader stops or reads as far as it makes sense, and what it read can be written
// back as a document that reads again to the same text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const std::optional<tavo::StyledText> read = tavo::styledTextFromRtf(bytes);
    if (!read) {
        return 0;
    }
    const QByteArray written = tavo::rtfFromStyledText(*read);
    if (!written.startsWith("{\\rtf1")) {
        __builtin_trap();
    }
    const std::optional<tavo::StyledText> again = tavo::styledTextFromRtf(written);
    if (!again) {
        __builtin_trap();
    }
    return 0;
}
