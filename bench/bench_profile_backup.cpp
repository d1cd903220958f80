#include "exchange/profile_backup.h"
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

// A profile of 10,000 shortcuts, one in ten with a 200 KB attachment of its own (media does not
// compress, so the bytes are random), in a store of the benchmark's own in the temporary folder.
struct Store
{
    QString folder = QDir::tempPath() + QStringLiteral("/tavo-bench-backup-v1");
    Defaults defaults{folder + QStringLiteral("/defaults.json")};

    QString root() const { return folder + QStringLiteral("/Quill"); }
    QString backup() const { return folder + QStringLiteral("/backup.zip"); }

    Store()
    {
        DB db(defaults, root());
        db.activateProfile(QStringLiteral("ana"));
        if (db.clips().size() == shortcutCount) {
            return;
        }
        QDir().mkpath(db.attachmentsDir());
        QList<Clip> clips;
        clips.reserve(shortcutCount);
        QByteArray media(attachmentBytes, Qt::Uninitialized);
        for (int i = 0; i < shortcutCount; ++i) {
            Clip clip;
            clip.key = QStringLiteral("/key%1").arg(i);
            clip.name = QStringLiteral("Shortcut number %1").arg(i);
            clip.text = QStringLiteral("Thanks for your message about order %1. We will get back to you soon.").arg(i);
            clip.group = QStringLiteral("Collection %1").arg(i % 30);
            if (i % (shortcutCount / attachmentCount) == 0) {
                QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(media.data()),
                                                      media.size() / qsizetype(sizeof(quint32)));
                const QString path = db.attachmentsDir() + QStringLiteral("/photo-%1.jpg").arg(i);
                QFile file(path);
                if (file.open(QIODevice::WriteOnly)) {
                    file.write(media);
                }
                clip.files = {path};
            }
            clips.append(clip);
        }
        db.setClips(clips);
        db.save();
    }

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

// Into another account's empty profile each time, so every file is copied; the commit is what
// the store's thread does, the rest runs on a worker.
void BM_Restore(benchmark::State& state)
{
    Store& store = Store::instance();
    if (!QFileInfo::exists(store.backup())) {
        DB ana(store.defaults, store.root(), DB::Access::ReadOnly);
        ana.activateProfile(QStringLiteral("ana"));
        makeProfileBackup({ana.dir(), {}, store.backup()});
    }
    double worstCommitMs = 0;
    for (auto _ : state) {
        state.PauseTiming();
        QDir(store.root() + QStringLiteral("/Profiles/") + tavoProfileSlug(QStringLiteral("sam"))).removeRecursively();
        DB db(store.defaults, store.root());
        db.activateProfile(QStringLiteral("sam"));
        state.ResumeTiming();

        Result<PreparedRestore> prepared = prepareRestore(store.backup(), db.attachmentsDir());
        if (!prepared.ok()) {
            state.SkipWithError(prepared.error().description.toStdString().c_str());
            return;
        }
        QElapsedTimer commit;
        commit.start();
        const Result<QString> restored = commitRestore(db, std::move(prepared).value());
        worstCommitMs = qMax(worstCommitMs, double(commit.nsecsElapsed()) / 1e6);
        if (!restored.ok()) {
            state.SkipWithError(restored.error().description.toStdString().c_str());
            return;
        }
    }
    state.counters["commit_ms"] = worstCommitMs;
    state.counters["peak_MiB"] = peakMemoryMiB();
}

} // namespace

BENCHMARK(BM_Backup)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Restore)->Unit(benchmark::kMillisecond)->Iterations(3);
