#include "bench_profile.h"

#include "exchange/profile_backup.h"

#include <QElapsedTimer>
#include <QFileInfo>

#include <benchmark/benchmark.h>

using namespace tavo;
using namespace tavo::bench;

namespace {

// A profile of 10,000 shortcuts, one in ten with a 200 KB attachment of its own.
struct Store : MediaProfile
{
    Store()
        : MediaProfile(QStringLiteral("tavo-bench-backup-v1"), 10'000)
    {
    }

    QString backup() const { return folder + QStringLiteral("/backup.zip"); }

    static Store& instance()
    {
        static Store store;
        return store;
    }
};

void BM_Backup(benchmark::State& state)
{
    Store& store = Store::instance();
    DB db(store.defaults, store.root(), DB::Access::ReadOnly);
    db.activateProfile(QStringLiteral("ana"));
    for (auto _ : state) {
        const Result<QString> saved = makeProfileBackup({db.dir(), db.hiddenCollections(), store.backup()});
        if (!saved.ok()) {
            state.SkipWithError(saved.error().description.toStdString().c_str());
            return;
        }
    }
    state.counters["archive_MiB"] = double(QFileInfo(store.backup()).size()) / (1024.0 * 1024.0);
    state.counters["peak_MiB"] = peakMemoryMiB();
}

// Into another account's empty profile each time, so every file is copied; the rest runs on a
// worker, and the commit as in the application: its file work on the store's writer thread, then
// taken in on this one. `commit_ms` is the whole commit, `commit_call_ms` what this thread waits
// for the call to return (the new library is taken in later in one step).
void BM_Restore(benchmark::State& state)
{
    Store& store = Store::instance();
    if (!QFileInfo::exists(store.backup())) {
        DB ana(store.defaults, store.root(), DB::Access::ReadOnly);
        ana.activateProfile(QStringLiteral("ana"));
        makeProfileBackup({ana.dir(), {}, store.backup()});
    }
    double worstCommitMs = 0;
    double worstCallMs = 0;
    for (auto _ : state) {
        state.PauseTiming();
        QDir(store.root() + QStringLiteral("/Profiles/") + tavoProfileSlug(QStringLiteral("sam"))).removeRecursively();
        DB db(store.defaults, store.root());
        db.activateProfile(QStringLiteral("sam"));
        db.writeInBackground();
        state.ResumeTiming();

        Result<PreparedRestore> prepared = prepareRestore(store.backup(), db.attachmentsDir());
        if (!prepared.ok()) {
            state.SkipWithError(prepared.error().description.toStdString().c_str());
            return;
        }
        QElapsedTimer commit;
        commit.start();
        std::optional<Result<QString>> outcome;
        commitRestore(db, std::move(prepared).value(), nullptr,
                      [&](const Result<QString>& status) { outcome = status; });
        worstCallMs = qMax(worstCallMs, double(commit.nsecsElapsed()) / 1e6);
        db.waitForSaves();
        worstCommitMs = qMax(worstCommitMs, double(commit.nsecsElapsed()) / 1e6);
        const Result<QString> restored =
            outcome.value_or(Result<QString>(TavoError{{}, 0, QStringLiteral("no outcome")}));
        if (!restored.ok()) {
            state.SkipWithError(restored.error().description.toStdString().c_str());
            return;
        }
    }
    state.counters["commit_ms"] = worstCommitMs;
    state.counters["commit_call_ms"] = worstCallMs;
    state.counters["peak_MiB"] = peakMemoryMiB();
}

} // namespace

BENCHMARK(BM_Backup)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Restore)->Unit(benchmark::kMillisecond)->Iterations(3);
