#include "picker/picker_search.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

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

// Each event-loop turn runs one step of five tests; the longest turn is what a key can wait.
void longestStep(benchmark::State& state)
{
    Library& lib = library();
    PickerSearch search;
    search.value = QStringLiteral("customer19999"); // found only at the very end: the whole scan
    qint64 longest = 0;
    for (auto _ : state) {
        search.restart(lib.db);
        QElapsedTimer timer;
        while (search.isLoading()) {
            timer.start();
            QCoreApplication::processEvents();
            longest = std::max(longest, timer.nsecsElapsed());
        }
    }
    state.counters["longest_step_us"] = double(longest) / 1000.0;
}

} // namespace

BENCHMARK_CAPTURE(firstFive, commonQuery, QStringLiteral("order 1"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(firstFive, emptyQuery, QString())->Unit(benchmark::kMillisecond);
BENCHMARK(longestStep)->Unit(benchmark::kMillisecond)->Iterations(3);

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
