#include "language/math_expression.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

using tavo::MathExpression;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    MathExpression::looksLikeExpression(text);
    const std::optional<double> value = MathExpression::evaluate(text);
    if (value) {
        // A value that stands is finite by contract, and always prints.
        if (!std::isfinite(*value))
            std::abort();
        if (MathExpression::formatted(*value).isEmpty())
            std::abort();
    }
    return 0;
}
