#include "exchange/shortcut_share.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>

#include <benchmark/benchmark.h>

#include <fstream>
#include <string>

using namespace tavo;

namespace {

constexpr int shortcutCount = 10'000;
constexpr int attachmentCount = 1'000;
constexpr qsizetype attachmentBytes = 200 * 1024;

// The peak resident size of this process so far, in MiB.
double peakMemoryMiB()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::stod(line.substr(6)) / 1024.0;
        }
    }
    return 0;
}

QList<Clip> benchClips(const QString& attachmentsDir, bool withFiles)
{
    QList<Clip> clips;
    clips.reserve(shortcutCount);
    QByteArray media(attachmentBytes, Qt::Uninitialized);
    for (int i = 0; i < shortcutCount; ++i) {
        Clip clip;
        clip.key = QStringLiteral("/key%1").arg(i);
        clip.name = QStringLiteral("Shortcut number %1").arg(i);
        clip.text = QStringLiteral("Thanks for your message about order %1. We will get back to you soon.").arg(i);
        clip.group = QStringLiteral("Collection %1").arg(i % 30);
        if (withFiles && i % (shortcutCount / attachmentCount) == 0) {
            // Media does not compress, so the bytes are random.
            QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(media.data()),
                                                  media.size() / qsizetype(sizeof(quint32)));
            const QString path = attachmentsDir + QStringLiteral("/photo-%1.jpg").arg(i);
            QFile file(path);
            if (file.open(QIODevice::WriteOnly)) {
                file.write(media);
            }
            clip.files = {path};
        }
        clips.append(clip);
    }
    return clips;
}

// A profile of 10,000 shortcuts, one in ten with a 200 KB attachment, in a store of the
// benchmark's own in the temporary folder.
struct Store
{
    QString folder = QDir::tempPath() + QStringLiteral("/tavo-bench-share-v1");
    Defaults defaults{folder + QStringLiteral("/defaults.json")};

    QString root() const { return folder + QStringLiteral("/Quill"); }
    QString package() const { return folder + QStringLiteral("/package.zip"); }

    Store()
    {
        DB db(defaults, root());
        db.activateProfile(QStringLiteral("ana"));
        if (db.clips().size() == shortcutCount) {
            return;
        }
        QDir().mkpath(db.attachmentsDir());
        db.setClips(benchClips(db.attachmentsDir(), true));
        db.save();
    }

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
        db.updateClips([](QList<Clip>& clips) { clips = benchClips({}, false); });
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
