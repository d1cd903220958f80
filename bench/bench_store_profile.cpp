#include "bench_profile.h"

#include "store/defaults.h"
#include "store/profile_store.h"
#include "store/store_files.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include <benchmark/benchmark.h>

using namespace tavo;
using namespace tavo::bench;

namespace {

constexpr int shortcutCount = 100'000;
constexpr int recordCount = 20'000;

LargeProfile& profile()
{
    static LargeProfile large(QStringLiteral("tavo-bench-profile-v1"), shortcutCount, recordCount);
    return large;
}

void loadProfile(benchmark::State& state)
{
    LargeProfile& large = profile();
    const double before = peakMemoryMiB();
    for (auto _ : state) {
        // The store as the application holds it: loaded, then kept.
        Defaults defaults(large.config());
        DB db(defaults, large.root(), DB::Access::ReadOnly);
        db.activateProfile(LargeProfile::identity());
        benchmark::DoNotOptimize(db.clips().size());
    }
    state.counters["peak_MiB"] = peakMemoryMiB();
    state.counters["peak_growth_MiB"] = peakMemoryMiB() - before;
}

void saveProfile(benchmark::State& state)
{
    LargeProfile& large = profile();
    Defaults defaults(large.config());
    DB db(defaults, large.root());
    db.activateProfile(LargeProfile::identity());
    for (auto _ : state) {
        state.PauseTiming(); // the edit itself is not the save
        QList<Clip> clips = db.clips();
        clips.first().text = QStringLiteral("changed %1").arg(state.iterations());
        db.setClips(std::move(clips));
        state.ResumeTiming();
        db.save();
        db.saveCollectionLibrary();
    }
}

void storeFilters(benchmark::State& state)
{
    LargeProfile& large = profile();
    Defaults defaults(large.config());
    DB db(defaults, large.root(), DB::Access::ReadOnly);
    db.activateProfile(LargeProfile::identity());
    const int which = static_cast<int>(state.range(0));
    if (which == 0) {
        QStringList hidden;
        for (int i = 0; i < 10; ++i) {
            hidden.append(QStringLiteral("Collection %1").arg(i));
        }
        db.setHiddenCollections(hidden); // read-only: not written
    }
    db.setSearch(QStringLiteral("order 4242"));
    for (auto _ : state) {
        if (which == 0) {
            benchmark::DoNotOptimize(db.availableClips().size());
        } else {
            benchmark::DoNotOptimize(db.found().size());
        }
    }
}

} // namespace

BENCHMARK(loadProfile)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(saveProfile)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(storeFilters)->Arg(0)->ArgName("availableClips_hidden10")->Unit(benchmark::kMillisecond);
BENCHMARK(storeFilters)->Arg(1)->ArgName("found")->Unit(benchmark::kMillisecond);
