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

// A profile as a heavy user would have it: 100,000 shortcuts over 30 collections with a
// sentence or two each, some media, and 20,000 records. Made once and kept in the temporary
// folder, so that a run of the load benchmark alone measures the memory of loading only.
struct LargeProfile
{
    QString folder = QDir::tempPath() + QStringLiteral("/tavo-bench-profile-v1");
    QString root() const { return folder + QStringLiteral("/Quill"); }
    QString config() const { return folder + QStringLiteral("/defaults.json"); }

    LargeProfile()
    {
        if (QFile::exists(root() + QStringLiteral("/Profiles/") + tavoProfileSlug(QStringLiteral("bench")) +
                          QStringLiteral("/collection-definitions.json"))) {
            return;
        }
        QList<Clip> clips;
        clips.reserve(shortcutCount);
        for (int i = 0; i < shortcutCount; ++i) {
            Clip clip;
            clip.key = QStringLiteral("/key%1").arg(i);
            clip.name = QStringLiteral("Shortcut number %1").arg(i);
            clip.text = QStringLiteral("Thanks for your message about order %1. We will get back to you within two "
                                       "working days with an update on delivery.")
                            .arg(i);
            clip.group = QStringLiteral("Collection %1").arg(i % 30);
            if (i % 10 == 0) {
                clip.files = {QStringLiteral("/home/user/.local/share/Quill/Attachments/file%1.png").arg(i)};
            }
            clips.append(clip);
        }
        QList<CollectionRecord> records;
        records.reserve(recordCount);
        for (int i = 0; i < recordCount; ++i) {
            CollectionRecord record;
            record.id = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
            record.collection = QStringLiteral("Customers");
            record.name = QStringLiteral("Customer %1").arg(i);
            record.alias = QStringLiteral("cust%1").arg(i);
            record.values = {{QStringLiteral("Name"), record.name},
                             {QStringLiteral("Email"), QStringLiteral("c%1@example.com").arg(i)},
                             {QStringLiteral("Address"), QStringLiteral("%1 Main Street, Springfield").arg(i)}};
            record.updatedAt = QDateTime::currentDateTimeUtc();
            records.append(record);
        }
        const QString profile = root() + QStringLiteral("/Profiles/") + tavoProfileSlug(QStringLiteral("bench"));
        writeJsonAtomically(profile + QStringLiteral("/clips.json"), QJsonDocument(clipsToJson(clips)));
        writeJsonAtomically(profile + QStringLiteral("/collection-records.json"),
                            QJsonDocument(recordsToJson(records)));
        Defaults defaults(config());
        DB db(defaults, root());
        db.activateProfile(QStringLiteral("bench")); // writes the definitions once
    }
};

LargeProfile& profile()
{
    static LargeProfile large;
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
        db.activateProfile(QStringLiteral("bench"));
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
    db.activateProfile(QStringLiteral("bench"));
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
    db.activateProfile(QStringLiteral("bench"));
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
