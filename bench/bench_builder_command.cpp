#include "builder/builder_app.h"
#include "builder/builder_command.h"
#include "store/defaults.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace tavo;

namespace {

CollectionRecord record(const QString& collection, const QString& alias)
{
    CollectionRecord made;
    made.collection = collection;
    made.name = alias;
    made.alias = alias;
    return made;
}

// 10,000 records over 20 collections, three-word aliases, with acme-ltd among the clients.
QList<CollectionRecord> libraryRecords()
{
    QList<CollectionRecord> records;
    for (int index = 0; index < 10000; ++index) {
        records.append(record(QStringLiteral("Collection %1").arg(index % 20),
                              QStringLiteral("client-%1-x%2").arg(index).arg(index % 7)));
    }
    records.append(record(QStringLiteral("Clients"), QStringLiteral("acme-ltd")));
    return records;
}

// 50 apps in a real store file, each with a collection slot and two variables; Invoice, typed as
// inv, comes last so that every other prefix is tried first.
void writeApps(Defaults& defaults)
{
    QStringList names;
    QList<QPair<QString, QJsonValue>> values;
    for (int index = 0; index < 49; ++index) {
        const QString name = QStringLiteral("App %1").arg(index);
        names.append(name);
        values.append({builderKey(QStringLiteral("Prefix"), name), QStringLiteral("app%1").arg(index)});
        values.append(
            {builderKey(QStringLiteral("Collections"), name), QStringLiteral("Collection %1").arg(index % 20)});
        values.append({builderKey(QStringLiteral("Variables"), name), QStringLiteral("Amount, Note")});
    }
    names.append(QStringLiteral("Invoice"));
    values.append({builderKey(QStringLiteral("Prefix"), QStringLiteral("Invoice")), QStringLiteral("inv")});
    values.append({builderKey(QStringLiteral("Collections"), QStringLiteral("Invoice")), QStringLiteral("Clients")});
    values.append({builderKey(QStringLiteral("Variables"), QStringLiteral("Invoice")), QStringLiteral("amount")});
    values.append({builderKey(QStringLiteral("FormulaOrder"), QStringLiteral("Invoice")),
                   QJsonArray{QStringLiteral("Collection: Clients"), QStringLiteral("Variable: amount")}});
    values.append({builderAppsKey, QString::fromUtf8(QJsonDocument(QJsonArray::fromStringList(names)).toJson())});
    defaults.setValues(values);
}

struct Library
{
    QTemporaryDir dir;
    Defaults defaults{dir.filePath(QStringLiteral("defaults.json"))};
    QList<CollectionRecord> records = libraryRecords();

    Library() { writeApps(defaults); }
};

Library& library()
{
    static Library shared;
    return shared;
}

// The parse a keystroke costs: against the snapshot, built once.
void BM_CommandOnSnapshot(benchmark::State& state)
{
    const std::shared_ptr<const BuilderCommandSnapshot> snapshot =
        BuilderCommandSnapshot::read(library().defaults, {}, library().records);
    const QString typed = QStringLiteral("\\inv-acme-ltd-100-pdf");
    for (auto _ : state) {
        std::optional<CustomBuilderCommand> command = snapshot->command(typed);
        benchmark::DoNotOptimize(command);
        if (!command || command->key != QStringLiteral("inv-acme-ltd-100")) {
            state.SkipWithError("no match");
        }
    }
}
BENCHMARK(BM_CommandOnSnapshot)->Unit(benchmark::kMicrosecond);

// What building the snapshot costs, when apps, shortcuts or records change: the 10,000 records,
// with no shortcuts or with 100,000 shortcuts in 40 collections beside them.
void BM_SnapshotRead(benchmark::State& state)
{
    QList<Clip> clips;
    for (int index = 0; index < state.range(0); ++index) {
        Clip clip;
        clip.key = QStringLiteral("/key-%1").arg(index);
        clip.group = QStringLiteral("Collection %1").arg(index % 40);
        clips.append(clip);
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(BuilderCommandSnapshot::read(library().defaults, clips, library().records));
    }
}
BENCHMARK(BM_SnapshotRead)->Arg(0)->Arg(100000)->Unit(benchmark::kMillisecond);

// Eight collection slots whose aliases have one to eight words, and forty tokens.
void BM_HostileCommand(benchmark::State& state)
{
    QList<BuilderCommandApp> apps(1);
    apps[0].name = QStringLiteral("Hostile");
    apps[0].prefix = QStringLiteral("h");
    QList<CollectionRecord> records;
    for (int slot = 0; slot < 8; ++slot) {
        apps[0].slotKinds.append(builderSlotCollection);
        apps[0].slotNames.append(QStringLiteral("C%1").arg(slot));
        for (int words = 1; words <= 8; ++words) {
            records.append(record(QStringLiteral("C%1").arg(slot), QStringList(words, QStringLiteral("a")).join(u'-')));
        }
    }
    const BuilderCommandSnapshot snapshot(apps, {}, records);
    // range 0: runs of seven alias words closed by a word no alias has, which needs ten slots and
    // so fails only after the whole search; range 1: forty alias words, which fit.
    QStringList tokens;
    for (int run = 0; run < 5; ++run) {
        tokens += QStringList(7, QStringLiteral("a"));
        tokens.append(state.range(0) == 0 ? QStringLiteral("b") : QStringLiteral("a"));
    }
    const QString typed = QStringLiteral("\\h-") + tokens.join(u'-');
    for (auto _ : state) {
        benchmark::DoNotOptimize(snapshot.command(typed));
    }
}
BENCHMARK(BM_HostileCommand)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

} // namespace
