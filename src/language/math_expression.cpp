#include "language/math_expression.h"

namespace tavo {
bool MathExpression::looksLikeExpression(QStringView) { return false; }
std::optional<double> MathExpression::evaluate(QStringView) { return std::nullopt; }
QString MathExpression::formatted(double) { return {}; }
} // namespace tavo
