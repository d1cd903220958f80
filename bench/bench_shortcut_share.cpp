#include "bench_profile.h"

#include "exchange/shortcut_share.h"

#include <QElapsedTimer>
#include <QFileInfo>

#include <benchmark/benchmark.h>

using namespace tavo;
using namespace tavo::bench;

namespace {

constexpr int shortcutCount = 10'000;

// A profile of 10,000 shortcuts, one in ten with a 200 KB attachment.
struct Store : MediaProfile
{
    Store()
        : MediaProfile(QStringLiteral("tavo-bench-share-v1"), shortcutCount)
    {
    }

    QString package() const { return folder + QStringLiteral("/package.zip"); }

    static Store& instance()
    {
        static Store store;
        return store;
    }
};

void BM_ExportPackage(benchmark::State& state)
{
    Store& store = Store::instance();
    DB db(store.defaults, store.root(), DB::Access::ReadOnly);
    db.activateProfile(QStringLiteral("ana"));
    for (auto _ : state) {
        const Result<QString> made =
            TavoShortcutShare::makeArchive(db.clips(), QStringLiteral("Bench"), std::nullopt, store.package());
        if (!made.ok()) {
            state.SkipWithError(made.error().description.toStdString().c_str());
            return;
        }
    }
    state.counters["archive_MiB"] = double(QFileInfo(store.package()).size()) / (1024.0 * 1024.0);
    state.counters["peak_MiB"] = peakMemoryMiB();
}

// Into another profile that holds the same 10,000 keys, so every key gets a number. The unpacking
// and copying is a worker's part; adding the clips is the store's thread's part.
void BM_ImportPackage(benchmark::State& state)
{
    Store& store = Store::instance();
    if (!QFileInfo::exists(store.package())) {
        DB ana(store.defaults, store.root(), DB::Access::ReadOnly);
        ana.activateProfile(QStringLiteral("ana"));
        TavoShortcutShare::makeArchive(ana.clips(), QStringLiteral("Bench"), std::nullopt, store.package());
    }
    double worstAddMs = 0;
    for (auto _ : state) {
        state.PauseTiming();
        QDir(store.root() + QStringLiteral("/Profiles/") + tavoProfileSlug(QStringLiteral("sam"))).removeRecursively();
        DB db(store.defaults, store.root());
        db.activateProfile(QStringLiteral("sam"));
        db.updateClips([](QList<Clip>& clips) { clips = shortcutsWithMedia(shortcutCount); });
        state.ResumeTiming();

        const Result<QList<Clip>> imported = TavoShortcutShare::importBundle(store.package(), db.attachmentsDir());
        if (!imported.ok()) {
            state.SkipWithError(imported.error().description.toStdString().c_str());
            return;
        }
        QElapsedTimer add;
        add.start();
        const std::optional<TavoError> error = addImportedClips(db, *imported);
        worstAddMs = qMax(worstAddMs, double(add.nsecsElapsed()) / 1e6);
        if (error) {
            state.SkipWithError(error->description.toStdString().c_str());
            return;
        }
    }
    state.counters["add_ms"] = worstAddMs;
    state.counters["peak_MiB"] = peakMemoryMiB();
}

} // namespace

BENCHMARK(BM_ExportPackage)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ImportPackage)->Unit(benchmark::kMillisecond)->Iterations(3);
