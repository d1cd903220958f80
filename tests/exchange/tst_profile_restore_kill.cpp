#include "backup_profiles.h"

#include "exchange/profile_backup.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <csignal>

using namespace tavo;
using namespace backup_test;
using namespace Qt::StringLiterals;

namespace {

// Enough shortcuts and media that a restore takes a while, with names that clash with Sam's.
constexpr int shortcutCount = 1000;
constexpr int mediaCount = 100;

QList<Shortcut> library(const QString& owner, int count, int media)
{
    QList<Shortcut> shortcuts;
    for (int i = 0; i < count; ++i) {
        Shortcut shortcut{u"/%1-%2"_s.arg(owner).arg(i), u"%1's text %2"_s.arg(owner).arg(i), {}};
        if (i < media) {
            shortcut.media.append({u"media-%1.bin"_s.arg(i), (owner + u" media "_s + QString::number(i)).toUtf8() +
                                                                 QByteArray(20'000 + i, char('a' + i % 26))});
        }
        shortcuts.append(shortcut);
    }
    return shortcuts;
}

// The side a shortcut's key belongs to, and what each of its files must hold on that side.
struct Side
{
    QString owner;
    QHash<QString, QList<QByteArray>> media; // key -> contents in order
};

Side sideOf(const QString& owner, const QList<Shortcut>& shortcuts)
{
    Side side{owner, {}};
    for (const Shortcut& shortcut : shortcuts) {
        QList<QByteArray> contents;
        for (const Media& media : shortcut.media) {
            contents.append(media.content);
        }
        side.media.insert(shortcut.key, contents);
    }
    return side;
}

void copyTree(const QString& from, const QString& to)
{
    QDirIterator it(from, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString target = to + u'/' + QDir(from).relativeFilePath(path);
        QDir().mkpath(QFileInfo(target).absolutePath());
        QFile::copy(path, target);
    }
}

} // namespace

// tavoctl restore killed at random moments: whenever it dies, the profile is all old or all new.
class TestProfileRestoreKill : public QObject
{
    Q_OBJECT

private slots:
    void killedAtAnyMoment();
};

void TestProfileRestoreKill::killedAtAnyMoment()
{
    wipeStore();
    const QList<Shortcut> ana = library(u"ana"_s, shortcutCount, mediaCount);
    const QList<Shortcut> sam = library(u"sam"_s, shortcutCount / 2, mediaCount / 2);
    const Side oldSide = sideOf(u"sam"_s, sam);
    const Side newSide = sideOf(u"ana"_s, ana);
    const QStringList oldCollections{u"Sam's"_s};
    const QStringList newCollections{u"Ana's"_s, u"Personal"_s};
    const QString archive = QDir::tempPath() + u"/ana-backup.zip"_s;
    {
        Defaults defaults;
        fillProfile(defaults, u"ana"_s, ana, newCollections, {});
        const Result<QString> saved = makeProfileBackup({profileFolder(u"ana"_s), {}, archive});
        QVERIFY(saved.ok());
        fillProfile(defaults, u"sam"_s, sam, oldCollections, {});
        TavoAccountStore(defaults).accept(u"sam"_s);
    }
    const QString samFolder = profileFolder(u"sam"_s);
    const QString pristine = QDir::tempPath() + u"/pristine"_s;
    // Only Sam's folder and the settings change; Ana's profile stays as the backup was made.
    copyTree(samFolder, pristine + u"/sam"_s);
    copyTree(configRoot(), pristine + u"/config"_s);
    const QHash<QString, QByteArray> oldAttachments = [&] {
        QHash<QString, QByteArray> files;
        for (const QString& name : QDir(samFolder + u"/Attachments"_s).entryList(QDir::Files)) {
            files.insert(name, readFile(samFolder + u"/Attachments/"_s + name));
        }
        return files;
    }();
    const QString collectionsKey = u"tavoShortcutCollections."_s + tavoProfileSlug(u"sam"_s);

    // One full run tells how long a restore takes here; the kills fall anywhere in that span.
    const auto start = [&] {
        auto* process = new QProcess(this);
        process->start(tavoctlCopy(QStringLiteral(TAVOCTL_PATH)), {u"restore"_s, archive});
        return process;
    };
    QElapsedTimer timer;
    timer.start();
    {
        QProcess* whole = start();
        QVERIFY(whole->waitForFinished(30'000));
        QCOMPARE(whole->exitCode(), 0);
        delete whole;
    }
    const qint64 span = qMax<qint64>(timer.elapsed(), 20);

    int sawOld = 0;
    int killed = 0;
    int sawNew = 0;
    QElapsedTimer budget;
    budget.start();
    for (int run = 0; run < 30 && budget.elapsed() < 15'000; ++run) {
        QDir(samFolder).removeRecursively();
        QDir(configRoot()).removeRecursively();
        copyTree(pristine + u"/sam"_s, samFolder);
        copyTree(pristine + u"/config"_s, configRoot());

        QProcess* process = start();
        QVERIFY(process->waitForStarted());
        // Past the measured span too: a loaded machine runs the restore slower than the first time.
        const qint64 delay = QRandomGenerator::global()->bounded(span * 3 / 2 + 1);
        QThread::msleep(ulong(delay));
        ::kill(pid_t(process->processId()), SIGKILL);
        QVERIFY(process->waitForFinished(10'000));
        killed += process->exitStatus() == QProcess::CrashExit ? 1 : 0;
        delete process;

        // Opened again, as Tavo or the next tavoctl command opens it: a restore cut short is finished.
        {
            Defaults opening;
            DB(opening).activateProfile(u"sam"_s);
        }
        const std::optional<QList<Clip>> clips = clipsFromJsonBytes(readFile(samFolder + u"/clips.json"_s));
        QVERIFY2(clips, "clips.json must always decode");
        QVERIFY(!clips->isEmpty());
        const bool isNew = clips->first().key.startsWith(u"/ana-"_s);
        const Side& side = isNew ? newSide : oldSide;
        QCOMPARE(clips->size(), side.media.size());
        for (const Clip& clip : *clips) {
            QVERIFY2(side.media.contains(clip.key), qPrintable(clip.key + u" mixed into the other side"_s));
            const QList<QByteArray> expected = side.media.value(clip.key);
            QCOMPARE(clip.files.size(), expected.size());
            for (qsizetype f = 0; f < clip.files.size(); ++f) {
                QVERIFY2(readFile(clip.files.at(f)) == expected.at(f), qPrintable(clip.files.at(f)));
            }
        }
        // Sam's own media is never overwritten, whichever side the shortcuts are on.
        for (auto it = oldAttachments.cbegin(); it != oldAttachments.cend(); ++it) {
            QCOMPARE(readFile(samFolder + u"/Attachments/"_s + it.key()), it.value());
        }
        // The collections are on the shortcuts' side, in the settings and in their copy.
        const Defaults reread;
        const QStringList& collections = isNew ? newCollections : oldCollections;
        QCOMPARE(reread.stringList(collectionsKey), collections);
        QCOMPARE(QJsonDocument::fromJson(readFile(samFolder + u"/collections.json"_s)).array(),
                 QJsonArray::fromStringList(collections));
        QVERIFY(!QFileInfo::exists(samFolder + u"/restore-journal.json"_s));
        ++(isNew ? sawNew : sawOld);
    }
    qInfo() << "restore span" << span << "ms;" << killed << "of" << sawOld + sawNew << "runs killed; old" << sawOld
            << "times, new" << sawNew << "times";
    QVERIFY(sawOld + sawNew >= 8);
}

QTEST_GUILESS_MAIN(TestProfileRestoreKill)
#include "tst_profile_restore_kill.moc"
