#include "language/triggers.h"

#include <benchmark/benchmark.h>

namespace {

void parseBatch(benchmark::State& state, const char* text)
{
    const QString trigger = QString::fromUtf8(text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavo::parseBatchTrigger(trigger));
    }
}

void parseStyled(benchmark::State& state)
{
    const QString trigger = QStringLiteral("\\signature-b-i-high");
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavo::parseStyledTrigger(trigger));
    }
}

} // namespace

BENCHMARK_CAPTURE(parseBatch, BangForm, "\\invoice2!");
BENCHMARK_CAPTURE(parseBatch, RangeForm, "\\invoice3..12");
BENCHMARK_CAPTURE(parseBatch, ListForm, "\\inv1.web&2&3&4");
BENCHMARK_CAPTURE(parseBatch, OrdinaryKey, "\\thanks");
BENCHMARK(parseStyled);
