#include "language/math_expression.h"

#include <benchmark/benchmark.h>

using tavo::MathExpression;

namespace {

// A trigger of typical length, with every operator class the keyboard path meets.
const QString kExpression = QStringLiteral("\\(12.5+7)*3-4/2+10%");
// What most triggers are: a word, which should be turned away at once.
const QString kWord = QStringLiteral("\\signature");

void BM_MathLooksLikeExpression(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(MathExpression::looksLikeExpression(kExpression));
}
BENCHMARK(BM_MathLooksLikeExpression);

void BM_MathLooksLikeExpressionWord(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(MathExpression::looksLikeExpression(kWord));
}
BENCHMARK(BM_MathLooksLikeExpressionWord);

void BM_MathEvaluate(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(MathExpression::evaluate(kExpression));
}
BENCHMARK(BM_MathEvaluate);

void BM_MathEvaluateWord(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(MathExpression::evaluate(kWord));
}
BENCHMARK(BM_MathEvaluateWord);

void BM_MathFormatted(benchmark::State& state)
{
    const double value = 56.6 / 3;
    for (auto _ : state)
        benchmark::DoNotOptimize(MathExpression::formatted(value));
}
BENCHMARK(BM_MathFormatted);

} // namespace
