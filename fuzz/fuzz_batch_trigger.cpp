#include "language/triggers.h"

#include <cstddef>
#include <cstdint>

// Any typed trigger either names a batch of at most twenty keys or nothing; resolving it
// against a few clips must never fail.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const std::optional<tavo::ShortcutBatchRequest> request = tavo::parseBatchTrigger(text);
    if (request) {
        if (request->keys.isEmpty() || request->keys.size() > 19) {
            __builtin_trap();
        }
        tavo::Clip clip;
        clip.key = request->keys.first();
        tavo::resolveBatch(*request, {clip});
    }
    tavo::numericPrefixAndSuffix(text);
    return 0;
}
