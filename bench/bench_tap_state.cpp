#include "engine/expansion_plan.h"
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

// What the tap's thread runs when a trigger ends, with the keyboard frozen: the whole decision
// over 100,000 shortcuts and 20,000 records. The worst case is a key that matches nothing.
const ExpansionLibrary& largeLibrary()
{
    static const ExpansionLibrary library = [] {
        ExpansionLibrary made;
        for (int i = 0; i < 100'000; ++i) {
            Clip clip;
            clip.key = QStringLiteral("/key%1").arg(i);
            clip.text = QStringLiteral("Text of shortcut %1").arg(i);
            clip.group = QStringLiteral("Collection %1").arg(i % 30);
            made.clips.append(clip);
        }
        for (int i = 0; i < 20'000; ++i) {
            CollectionRecord record;
            record.alias = QStringLiteral("record%1").arg(i);
            record.collection = QStringLiteral("Collection %1").arg(i % 30);
            made.records.append(record);
        }
        made.hiddenCollections = QStringList{QStringLiteral("Collection 3")};
        return made;
    }();
    return library;
}

// Scanned (0) as before the index is built, or looked up (1), as every key of a trigger is once
// the index is there.
void planUnmatchedTriggerInLargeLibrary(benchmark::State& state)
{
    ExpansionLibrary library = largeLibrary();
    if (state.range(0) != 0) {
        library.index = ExpansionIndex::build(library.clips, library.records);
    }
    const QString trigger = QStringLiteral("or");
    const QString suffix = QStringLiteral(" ");
    for (auto _ : state) {
        benchmark::DoNotOptimize(planExpansion(trigger, suffix, library));
    }
}

} // namespace

BENCHMARK(decideIdleLetter);
BENCHMARK(decideTrackingLetter);
BENCHMARK(decideEndingSpaceOfAnExpression);
BENCHMARK(planUnmatchedTriggerInLargeLibrary)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// What a change of a large library costs the pool before its keys are looked up.
static void indexLargeLibrary(benchmark::State& state)
{
    const ExpansionLibrary& library = largeLibrary();
    for (auto _ : state) {
        benchmark::DoNotOptimize(ExpansionIndex::build(library.clips, library.records));
    }
}
BENCHMARK(indexLargeLibrary)->Unit(benchmark::kMillisecond);
