#include "engine/tap_state.h"

#include <benchmark/benchmark.h>

using namespace tavo;

namespace {

// An ordinary letter while idle: the decision every key of the session waits for.
void decideIdleLetter(benchmark::State& state)
{
    TriggerTracker tracker;
    QList<TapNotification> notifications;
    const KeyEvent letter{KeyCode::Other, 0, QStringLiteral("a")};
    for (auto _ : state) {
        benchmark::DoNotOptimize(tracker.handle(letter, notifications));
    }
}

// A letter while a trigger is typed: appended and offered to the picker.
void decideTrackingLetter(benchmark::State& state)
{
    TriggerTracker tracker;
    QList<TapNotification> notifications;
    const KeyEvent start{KeyCode::Backslash, 0, QStringLiteral("\\")};
    const KeyEvent letter{KeyCode::Other, 0, QStringLiteral("t")};
    for (auto _ : state) {
        state.PauseTiming();
        tracker.handle(start, notifications);
        notifications.clear();
        state.ResumeTiming();
        benchmark::DoNotOptimize(tracker.handle(letter, notifications));
    }
}

// The space that ends "\2+3*4": the one place the calculator runs inside the tap.
void decideEndingSpaceOfAnExpression(benchmark::State& state)
{
    TriggerTracker tracker;
    QList<TapNotification> notifications;
    const KeyEvent space{KeyCode::Other, 0, QStringLiteral(" ")};
    for (auto _ : state) {
        state.PauseTiming();
        tracker.triggerTracking = true;
        tracker.triggerBuffer = QStringLiteral("\\2+3*4");
        notifications.clear();
        state.ResumeTiming();
        benchmark::DoNotOptimize(tracker.handle(space, notifications));
    }
}

} // namespace

BENCHMARK(decideIdleLetter);
BENCHMARK(decideTrackingLetter);
BENCHMARK(decideEndingSpaceOfAnExpression);
