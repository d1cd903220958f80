#include "picker/picker_search.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <vector>

#include <algorithm>
#include <vector>

using namespace tavo;

namespace {

// 100,000 shortcuts over 30 collections and 20,000 records, in memory.
struct Library
{
    QTemporaryDir dir;
    Defaults defaults{dir.filePath(QStringLiteral("defaults.json"))};
    DB db{defaults, dir.filePath(QStringLiteral("Tavo"))};

    Library()
    {
        QList<Clip> clips;
        for (int i = 0; i < 100'000; ++i) {
            Clip clip;
            clip.key = QStringLiteral("/key%1").arg(i);
            clip.name = QStringLiteral("Shortcut number %1").arg(i);
            clip.text = QStringLiteral("Dear customer, thank you for order %1.").arg(i);
            clip.group = QStringLiteral("Collection %1").arg(i % 30);
            clips.append(clip);
        }
        QList<CollectionRecord> records;
        for (int i = 0; i < 20'000; ++i) {
            CollectionRecord record;
            record.collection = QStringLiteral("Customers");
            record.name = QStringLiteral("Customer %1").arg(i);
            record.alias = QStringLiteral("customer%1").arg(i);
            record.values = {{QStringLiteral("email"), QStringLiteral("c%1@example.org").arg(i)}};
            records.append(record);
        }
        db.setClips(clips);
        db.setCollectionRecords(records);
    }
};

Library& library()
{
    static Library instance;
    return instance;
}

// From a change of the query to the first five results on screen, steps and yields included.
void firstFive(benchmark::State& state, const QString& query)
{
    Library& lib = library();
    PickerSearch search;
    search.value = query;
    for (auto _ : state) {
        search.restart(lib.db);
        while (search.isLoading()) {
            QCoreApplication::processEvents();
        }
        benchmark::DoNotOptimize(search.results().size());
    }
}

// The durations of event-loop turns, as the counters of `state`: the median, the 99.9th
// percentile and the longest.
void reportTurns(benchmark::State& state, std::vector<qint64>& turns)
{
    std::sort(turns.begin(), turns.end());
    state.counters["turns"] = double(turns.size());
    state.counters["median_turn_us"] = double(turns.at(turns.size() / 2)) / 1000.0;
    state.counters["p999_turn_us"] = double(turns.at(turns.size() * 999 / 1000)) / 1000.0;
    state.counters["longest_turn_us"] = double(turns.back()) / 1000.0;
}

// Each event-loop turn runs one step of five tests; the longest turn is what a key can wait.
void scanTurns(benchmark::State& state)
{
    Library& lib = library();
    PickerSearch search;
    search.value = QStringLiteral("customer19999"); // found only at the very end: the whole scan
    std::vector<qint64> turns;
    turns.reserve(100'000);
    for (auto _ : state) {
        search.restart(lib.db);
        QElapsedTimer timer;
        while (search.isLoading()) {
            timer.start();
            QCoreApplication::processEvents();
            turns.push_back(timer.nsecsElapsed());
        }
    }
    reportTurns(state, turns);
}

// The same number of turns that do nothing: what this machine adds to any turn (a virtual
// machine stalls now and then for tens of microseconds), to read the scan's figures against.
void emptyTurns(benchmark::State& state)
{
    std::vector<qint64> turns;
    turns.reserve(100'000);
    QObject context;
    for (auto _ : state) {
        for (int i = 0; i < 24'000; ++i) {
            QTimer::singleShot(0, &context, [] {});
            QElapsedTimer timer;
            timer.start();
            QCoreApplication::processEvents();
            turns.push_back(timer.nsecsElapsed());
        }
    }
    reportTurns(state, turns);
}

} // namespace

BENCHMARK_CAPTURE(firstFive, commonQuery, QStringLiteral("order 1"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(firstFive, emptyQuery, QString())->Unit(benchmark::kMillisecond);
BENCHMARK(scanTurns)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(emptyTurns)->Unit(benchmark::kMillisecond)->Iterations(3);

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
