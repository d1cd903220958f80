#include "language/shortcut_record.h"

#include <cstddef>
#include <cstdint>

// Whatever a damaged or hostile clips.json holds, decoding never crashes, and a list that does
// decode writes back to bytes that decode to the same list.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView json(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const std::optional<QList<tavo::Clip>> clips = tavo::clipsFromJsonBytes(json);
    if (clips) {
        const std::optional<QList<tavo::Clip>> again = tavo::clipsFromJsonBytes(tavo::clipsToJsonBytes(*clips));
        if (!again || *again != *clips) {
            __builtin_trap();
        }
    }
    return 0;
}
