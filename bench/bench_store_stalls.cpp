// How long the main thread stops turning while the store saves, changes a shortcut or signs in,
// at 100,000 shortcuts and 20,000 records: an event-loop watchdog records the longest gap between
// two turns from the start of the work until the last write is on disk. Each benchmark runs with
// the writes made in place (as tavoctl makes them) and in the background (as the application).
#include "bench_profile.h"

#include "store/defaults.h"
#include "store/profile_store.h"
#include "store/store_files.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <functional>

using namespace tavo;
using namespace tavo::bench;

namespace {

constexpr int shortcutCount = 100'000;
constexpr int recordCount = 20'000;
const QString identity = LargeProfile::identity();

LargeProfile& profile()
{
    static LargeProfile large(QStringLiteral("tavo-bench-stalls-v2"), shortcutCount, recordCount);
    return large;
}

// Runs `work` from the event loop and keeps the loop turning until the store has nothing left to
// write; returns the longest gap between two turns in milliseconds. A 1 ms timer marks the
// turns, so a loop that never stops shows gaps of about 1 ms.
double longestStallDuring(
    DB& db, const std::function<void()>& work, const std::function<bool()>& finished = [] { return true; })
{
    QEventLoop loop;
    QElapsedTimer clock;
    clock.start();
    qint64 lastTurn = clock.nsecsElapsed();
    qint64 longest = 0;
    bool done = false;
    QTimer watchdog;
    watchdog.setTimerType(Qt::PreciseTimer);
    watchdog.setInterval(1);
    QObject::connect(&watchdog, &QTimer::timeout, &loop, [&] {
        const qint64 now = clock.nsecsElapsed();
        longest = std::max(longest, now - lastTurn);
        lastTurn = now;
        if (done && !db.savesPending() && finished()) {
            loop.quit();
        }
    });
    watchdog.start();
    QTimer::singleShot(2, &loop, [&] {
        work();
        done = true;
    });
    loop.exec();
    return double(longest) / 1e6;
}

void reportStalls(benchmark::State& state, const std::vector<double>& stalls)
{
    state.counters["longest_stall_ms"] = *std::max_element(stalls.begin(), stalls.end());
    state.counters["background"] = double(state.range(0));
}

std::unique_ptr<DB> openStore(Defaults& defaults, bool background)
{
    auto db = std::make_unique<DB>(defaults, profile().root());
    if (background) {
        db->writeInBackground();
    }
    db->activateProfile(identity);
    return db;
}

// One shortcut edited, then the shortcuts and the record library saved, as a sheet does.
void saveStall(benchmark::State& state)
{
    Defaults defaults(profile().config());
    const std::unique_ptr<DB> db = openStore(defaults, state.range(0) != 0);
    std::vector<double> stalls;
    for (auto _ : state) {
        QList<Clip> clips = db->clips();
        clips.first().text = QStringLiteral("changed %1").arg(stalls.size());
        db->setClips(std::move(clips));
        stalls.push_back(longestStallDuring(*db, [&] {
            db->save();
            db->saveCollectionLibrary();
        }));
    }
    reportStalls(state, stalls);
}

// What the shortcut editor does on OK: the list copied, one shortcut changed, set and saved.
void editStall(benchmark::State& state)
{
    Defaults defaults(profile().config());
    const std::unique_ptr<DB> db = openStore(defaults, state.range(0) != 0);
    std::vector<double> stalls;
    for (auto _ : state) {
        stalls.push_back(longestStallDuring(*db, [&] {
            QList<Clip> clips = db->clips();
            clips[clips.size() / 2].name = QStringLiteral("Edited %1").arg(stalls.size());
            db->setClips(std::move(clips));
            db->save();
        }));
    }
    reportStalls(state, stalls);
}

// A change through updateClips, as an import or the bulk media sheet makes it: the file read,
// changed and written under its lock, then the new list taken in (in the background, as the
// application asks for it, with a completion).
void updateStall(benchmark::State& state)
{
    Defaults defaults(profile().config());
    const std::unique_ptr<DB> db = openStore(defaults, state.range(0) != 0);
    std::vector<double> stalls;
    for (auto _ : state) {
        const QString text = QStringLiteral("Updated %1").arg(stalls.size());
        bool finished = false;
        stalls.push_back(longestStallDuring(
            *db,
            [&] {
                db->updateClips([text](QList<Clip>& clips) { clips[clips.size() / 3].text = text; }, nullptr,
                                [&](bool) { finished = true; });
            },
            [&] { return finished; }));
        if (db->clips().at(shortcutCount / 3).text != text) {
            state.SkipWithError("the update was not taken in");
        }
    }
    reportStalls(state, stalls);
}

// A restore's commit: the whole library, its collections and record library replaced through
// the store's journal.
void restoreStall(benchmark::State& state)
{
    Defaults defaults(profile().config());
    const std::unique_ptr<DB> db = openStore(defaults, state.range(0) != 0);
    std::vector<double> stalls;
    for (auto _ : state) {
        DB::Replacement replacement;
        replacement.clips = db->clips();
        replacement.clips.first().text = QStringLiteral("Restored %1").arg(stalls.size());
        replacement.collections = db->collections();
        replacement.definitions = db->collectionDefinitions();
        replacement.records = db->collectionRecords();
        bool finished = false;
        stalls.push_back(longestStallDuring(
            *db, [&] { db->replaceProfile(std::move(replacement), nullptr, [&](bool) { finished = true; }); },
            [&] { return finished; }));
    }
    reportStalls(state, stalls);
}

// tavoctl changes a shortcut while the application follows the folder: the reload of the file.
void reloadStall(benchmark::State& state)
{
    Defaults defaults(profile().config());
    const std::unique_ptr<DB> db = openStore(defaults, state.range(0) != 0);
    db->watchForChanges();
    Defaults toolDefaults(profile().config());
    DB tool(toolDefaults, profile().root());
    tool.activateProfile(identity);
    std::vector<double> stalls;
    for (auto _ : state) {
        const QString name = QStringLiteral("From the tool %1").arg(stalls.size());
        QList<Clip> clips = tool.clips();
        clips[7].name = name;
        tool.setClips(std::move(clips));
        tool.save();
        stalls.push_back(longestStallDuring(
            *db, [] {}, [&] { return db->clips().at(7).name == name; }));
    }
    reportStalls(state, stalls);
}

// A sign-in: the store, started on the root folder, activates the large profile.
void signInStall(benchmark::State& state)
{
    Defaults defaults(profile().config());
    std::vector<double> stalls;
    for (auto _ : state) {
        state.PauseTiming();
        DB db(defaults, profile().root());
        if (state.range(0) != 0) {
            db.writeInBackground();
        }
        state.ResumeTiming();
        stalls.push_back(longestStallDuring(db, [&] { db.activateProfile(identity); }));
    }
    reportStalls(state, stalls);
}

// An expansion asked for 2 ms into a save: how long after that it runs (it looks its shortcut up
// in the store, as the expansion does).
void expansionDuringSave(benchmark::State& state)
{
    Defaults defaults(profile().config());
    const std::unique_ptr<DB> db = openStore(defaults, state.range(0) != 0);
    double slowest = 0;
    for (auto _ : state) {
        QList<Clip> clips = db->clips();
        clips.first().text = QStringLiteral("changed again %1").arg(slowest);
        db->setClips(std::move(clips));
        QElapsedTimer asked;
        longestStallDuring(*db, [&] {
            QTimer::singleShot(0, db.get(), [&] {
                db->save();
                db->saveCollectionLibrary();
            });
            QTimer::singleShot(2, db.get(), [&] {
                // Measured from when the timer was due, not from when the save began.
                benchmark::DoNotOptimize(std::find_if(db->clips().cbegin(), db->clips().cend(), [](const Clip& c) {
                    return c.key == QLatin1String("/key99999");
                }));
                slowest = std::max(slowest, double(asked.nsecsElapsed()) / 1e6 - 2.0);
            });
            asked.start();
        });
    }
    state.counters["expansion_delay_ms"] = slowest;
    state.counters["background"] = double(state.range(0));
}

} // namespace

BENCHMARK(saveStall)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(editStall)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(updateStall)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(restoreStall)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(reloadStall)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(signInStall)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(expansionDuringSave)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(5);

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    profile();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
