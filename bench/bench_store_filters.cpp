#include "store/collections.h"

#include <benchmark/benchmark.h>

namespace {

constexpr int shortcutCount = 100'000;
constexpr int collectionCount = 30;
constexpr int recordCount = 20'000;

// A library the size of a heavy user's: 100,000 shortcuts over 30 collections, some in two, a
// few keys repeated, and 20,000 records.
struct Library
{
    QStringList collections;
    QList<tavo::Clip> clips;
    QList<tavo::CollectionRecord> records;

    Library()
    {
        for (int c = 0; c < collectionCount; ++c) {
            collections.append(QStringLiteral("Collection %1").arg(c));
        }
        clips.reserve(shortcutCount);
        for (int i = 0; i < shortcutCount; ++i) {
            tavo::Clip clip;
            // One key in fifty repeats an earlier one, with another spelling.
            clip.key = i % 50 == 49 ? QStringLiteral("\\Key%1.app").arg(i - 1) : QStringLiteral("/key%1").arg(i);
            clip.name = QStringLiteral("Shortcut number %1").arg(i);
            clip.text = QStringLiteral("Dear customer, thank you for order %1. We will be in touch within two working "
                                       "days about the delivery.")
                            .arg(i);
            clip.group = collections[i % collectionCount];
            if (i % 7 == 0) {
                clip.groups = QStringList{collections[(i + 1) % collectionCount]};
            }
            if (i % 100 == 0) {
                clip.files = QStringList{QStringLiteral("/home/user/Pictures/image%1.png").arg(i)};
            }
            clips.append(clip);
        }
        records.reserve(recordCount);
        for (int i = 0; i < recordCount; ++i) {
            tavo::CollectionRecord record;
            record.id = tavo::uuidText(QUuid::createUuid());
            record.collection = collections[i % collectionCount];
            record.name = QStringLiteral("Company %1").arg(i);
            record.alias = QStringLiteral("co%1").arg(i);
            record.values = {{QStringLiteral("Name"), QStringLiteral("Company %1 Ltd").arg(i)},
                             {QStringLiteral("Email"), QStringLiteral("office%1@example.com").arg(i)}};
            record.updatedAt = QDateTime::currentDateTimeUtc();
            records.append(record);
        }
    }
};

const Library& library()
{
    static const Library instance;
    return instance;
}

void filterWithQuery(benchmark::State& state)
{
    const Library& lib = library();
    const QStringList hidden{QStringLiteral("Collection 3"), QStringLiteral("Collection 4")};
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavo::filterShortcutClips(lib.clips, hidden, QStringLiteral("order 99"),
                                                           tavo::allCollectionsName, tavo::allCollectionsName, false));
    }
}

void filterWithoutQuery(benchmark::State& state)
{
    const Library& lib = library();
    const QStringList hidden{QStringLiteral("Collection 3"), QStringLiteral("Collection 4")};
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavo::filterShortcutClips(lib.clips, hidden, QString(), tavo::allCollectionsName,
                                                           tavo::allCollectionsName, false));
    }
}

// The shortcut list's category menu: every collection's category worked out once per run.
void filterByCategory(benchmark::State& state)
{
    const Library& lib = library();
    const QString category = QStringLiteral("Utilities");
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavo::filterClipsByCategory(lib.clips, category, {}));
    }
}

void duplicateShortcuts(benchmark::State& state)
{
    const Library& lib = library();
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavo::findDuplicateShortcuts(lib.clips));
    }
}

void duplicateCollections(benchmark::State& state)
{
    const Library& lib = library();
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavo::findDuplicateCollections(lib.collections, lib.clips, lib.records));
    }
}

} // namespace

BENCHMARK(filterWithQuery)->Unit(benchmark::kMillisecond);
BENCHMARK(filterWithoutQuery)->Unit(benchmark::kMillisecond);
BENCHMARK(filterByCategory)->Unit(benchmark::kMillisecond);
BENCHMARK(duplicateShortcuts)->Unit(benchmark::kMillisecond);
BENCHMARK(duplicateCollections)->Unit(benchmark::kMillisecond);
