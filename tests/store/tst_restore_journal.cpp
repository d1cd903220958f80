#include "store/collections.h"
#include "store/defaults.h"
#include "store/profile_store.h"
#include "store/restore_journal.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

Clip makeClip(const QString& key)
{
    Clip clip;
    clip.key = key;
    clip.name = key.mid(1);
    clip.text = key + u" text"_s;
    clip.group = u"Personal"_s;
    return clip;
}

QStringList keysOf(const QList<Clip>& clips)
{
    QStringList keys;
    for (const Clip& clip : clips) {
        keys.append(clip.key);
    }
    return keys;
}

QStringList namesOf(const QList<CollectionDefinition>& definitions)
{
    QStringList names;
    for (const CollectionDefinition& definition : definitions) {
        names.append(definition.name);
    }
    return names;
}

QByteArray readBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// One side of a restore: what the whole profile holds before it, or after it.
struct Side
{
    QStringList keys;
    QStringList collections;
    QStringList hidden;
};

const Side oldSide{{u"/ty"_s, u"/date"_s, u"/time"_s, u"/intro"_s}, {u"Old"_s}, {}};
const Side newSide{{u"/new1"_s, u"/new2"_s}, {u"New"_s, u"Also new"_s}, {u"Also new"_s}};

} // namespace

// A restore killed after each of its steps: reopening the profile finds it all old or all new.
class TestRestoreJournal : public QObject
{
    Q_OBJECT

private slots:
    void killedRestoreReopensWhole_data();
    void killedRestoreReopensWhole();
};

void TestRestoreJournal::killedRestoreReopensWhole_data()
{
    QTest::addColumn<int>("steps"); // how far the restore got: -1 the whole restore through the store
    QTest::addColumn<QString>("fault");
    QTest::addColumn<bool>("expectNew");

    QTest::newRow("killed after staging: old") << 1 << QString() << false;
    QTest::newRow("killed after the journal: finished") << 2 << QString() << true;
    QTest::newRow("killed after the shortcuts: finished") << 3 << QString() << true;
    QTest::newRow("killed after every file: finished") << 4 << QString() << true;
    QTest::newRow("killed after the settings: finished") << 5 << QString() << true;
    QTest::newRow("killed after the journal went: new, leftovers ignored") << 6 << QString() << true;
    QTest::newRow("a staged file unreadable: old kept, journal aside") << 2 << u"unreadable"_s << false;
    QTest::newRow("a staged file missing: old kept, journal aside") << 2 << u"missing"_s << false;
    QTest::newRow("the whole restore in the background") << -1 << QString() << true;
}

void TestRestoreJournal::killedRestoreReopensWhole()
{
    QFETCH(int, steps);
    QFETCH(QString, fault);
    QFETCH(bool, expectNew);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString root = dir.filePath(u"Quill"_s);
    const QString config = dir.filePath(u"config/defaults.json"_s);
    QString folder;
    {
        Defaults defaults(config);
        DB db(defaults, root);
        db.activateProfile(u"sam"_s);
        QCOMPARE(keysOf(db.clips()), oldSide.keys);
        db.setCollections(oldSide.collections);
        db.setHiddenCollections(oldSide.hidden);
        db.setCollectionDefinitions({CollectionDefinition::emptyFor(u"Old"_s)});
        QVERIFY(db.saveCollectionLibrary());
        folder = db.dir();

        QList<Clip> clips;
        for (const QString& key : newSide.keys) {
            clips.append(makeClip(key));
        }
        QList<CollectionDefinition> definitions;
        for (const QString& name : newSide.collections) {
            definitions.append(CollectionDefinition::emptyFor(name));
        }
        if (steps < 0) {
            db.writeInBackground();
            bool finished = false;
            db.replaceProfile({clips, newSide.collections, newSide.hidden, definitions, std::nullopt, {}}, &db,
                              [&](bool written) { finished = written; });
            QTRY_VERIFY(finished);
        } else {
            // The restore's steps one by one, as the store takes them, stopped where the kill fell.
            const QList<QPair<QString, QByteArray>> files{
                {ProfileFiles::clips, clipsToJsonBytes(clips)},
                {ProfileFiles::collections, QJsonDocument(QJsonArray::fromStringList(newSide.collections)).toJson()},
                {ProfileFiles::definitions, definitionsToJsonBytes(definitions)}};
            RestoreJournal journal;
            journal.settings = {{db.collectionDefaultsKey(), QJsonArray::fromStringList(newSide.collections)},
                                {db.hiddenDefaultsKey(), QJsonArray::fromStringList(newSide.hidden)}};
            for (const auto& [name, bytes] : files) {
                QVERIFY(stageRestoreFile(folder, name, bytes));
                journal.files.append(name);
            }
            const QString damaged = folder + u'/' + stagedRestoreName(ProfileFiles::definitions);
            if (fault == u"unreadable"_s) {
                QFile file(damaged);
                QVERIFY(file.open(QIODevice::WriteOnly));
                file.write("[{\"half");
            } else if (fault == u"missing"_s) {
                QVERIFY(QFile::remove(damaged));
            }
            if (steps >= 2) {
                QVERIFY(writeRestoreJournal(folder, journal));
            }
            if (steps >= 3) {
                QVERIFY(replaceWithStaged(folder, ProfileFiles::clips));
            }
            if (steps >= 4) {
                QVERIFY(replaceWithStaged(folder, ProfileFiles::collections));
                QVERIFY(replaceWithStaged(folder, ProfileFiles::definitions));
            }
            if (steps >= 5) {
                defaults.setValues(journal.settings);
            }
            if (steps >= 6) {
                QVERIFY(QFile::remove(folder + u'/' + restoreJournalFile));
            }
        }
    }

    // Reopened as the application or tavoctl opens it.
    Defaults defaults(config);
    DB db(defaults, root);
    db.activateProfile(u"sam"_s);
    const Side& side = expectNew ? newSide : oldSide;
    QCOMPARE(keysOf(db.clips()), side.keys);
    QCOMPARE(db.collections(), side.collections);
    QCOMPARE(db.hiddenCollections(), side.hidden);
    QCOMPARE(namesOf(db.collectionDefinitions()), side.collections);
    QCOMPARE(QJsonDocument::fromJson(readBytes(folder + u'/' + ProfileFiles::collections)).array(),
             QJsonArray::fromStringList(side.collections));
    QVERIFY(!QFileInfo::exists(folder + u'/' + restoreJournalFile));
    const QStringList aside = QDir(folder).entryList({restoreJournalFile + u".unreadable-*"_s});
    QCOMPARE(aside.size(), fault.isEmpty() ? 0 : 1);
    if (steps < 0) {
        QCOMPARE(QDir(folder).entryList({u"*.restoring*"_s}), QStringList()); // nothing left behind
    }
}

QTEST_GUILESS_MAIN(TestRestoreJournal)
#include "tst_restore_journal.moc"
