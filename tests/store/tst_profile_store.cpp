#include "store/attachments.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <csignal>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

Clip makeClip(const QString& key, const QString& name, const QString& group = u"Personal"_s)
{
    Clip clip;
    clip.key = key;
    clip.name = name;
    clip.text = name + u" text"_s;
    clip.group = group;
    return clip;
}

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

void writeClips(const QString& path, const QList<Clip>& clips)
{
    writeBytes(path, QJsonDocument(clipsToJson(clips)).toJson());
}

QByteArray readBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QList<Clip> clipsOnDisk(const QString& path)
{
    return clipsFromJson(QJsonDocument::fromJson(readBytes(path)).array()).value_or(QList<Clip>());
}

QStringList keysOf(const QList<Clip>& clips)
{
    QStringList keys;
    std::transform(clips.cbegin(), clips.cend(), std::back_inserter(keys), [](const Clip& clip) { return clip.key; });
    return keys;
}

const QStringList startKeys{u"/ty"_s, u"/date"_s, u"/time"_s, u"/intro"_s};

} // namespace

class TestProfileStore : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void slug();
    void rootStoreStartsWithFourShortcuts();
    void firstAccountClaimsRootStoreSecondStartsEmpty();
    void emailMigration_data();
    void emailMigration();
    void unreadableFilesKeptAside();
    void lostSettingsDoNotHandTheRootToASecondAccount();
    void renameReachesEveryPlaceANameIsUsed();
    void readOnlyStoreWritesNothing();
    void twoProcessesKeepEachOthersChanges();
    void watcherFollowsAnotherWriter_data();
    void watcherFollowsAnotherWriter();
    void aSaveAnnouncesWhatItMergedIn();
    void killedWriterNeverLeavesABrokenFile_data();
    void killedWriterNeverLeavesABrokenFile();
    void quittingWritesThePendingSave();
    void backgroundSavesCoalesceToTheLatestState_data();
    void backgroundSavesCoalesceToTheLatestState();
    void anotherWriterDuringABackgroundSaveLosesNothing_data();
    void anotherWriterDuringABackgroundSaveLosesNothing();
    void updateClipsSeesAPendingSave();
    void aSignInReadsWhileTheEventLoopTurns();
    void updateClipsChangesTheFileAsItIsNow_data();
    void updateClipsChangesTheFileAsItIsNow();
    void updateClipsKeepsAnUnreadableFileAside();
    void updateClipsFromTwoProcessesLosesNothing();
    void copyIntoAttachments_data();
    void copyIntoAttachments();
    void copiesOfOneFileGetNamesOfTheirOwn();

private:
    QString root() const { return m_dir->filePath(u"Quill"_s); }
    QString profile(const QString& name) const { return root() + u"/Profiles/"_s + tavoProfileSlug(name); }
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
};

void TestProfileStore::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(u"config/defaults.json"_s));
}

void TestProfileStore::slug()
{
    QCOMPARE(tavoProfileSlug(u"  SaM\n"_s), u"c2Ft"_s); // case and blanks ignored
    // Identities whose base64 holds "+", "/" or "=": none of them reaches a folder name.
    QCOMPARE(tavoProfileSlug(u"a?>"_s), u"YT8-"_s);
    QCOMPARE(tavoProfileSlug(u"??"_s), u"Pz8"_s);
}

void TestProfileStore::rootStoreStartsWithFourShortcuts()
{
    DB db(*m_defaults, root());
    QCOMPARE(keysOf(db.clips()), startKeys);
    QCOMPARE(keysOf(clipsOnDisk(root() + u"/clips.json"_s)), startKeys);
    QCOMPARE(db.collections(), builtInCollections());
    QCOMPARE(m_defaults->stringList(u"tavoShortcutCollections"_s), std::optional(builtInCollections()));
    QCOMPARE(DB(*m_defaults, root()).clips(), db.clips()); // a second start reads them back, ids included

    // Missing built-ins are added after a stored list; "work" is not "Work": the comparison is exact.
    m_defaults->setStringList(u"tavoShortcutCollections"_s, {u"Recipes"_s, u"work"_s});
    const QStringList collections = DB(*m_defaults, root()).collections();
    QCOMPARE(collections, QStringList({u"Recipes"_s, u"work"_s}) + builtInCollections());
}

void TestProfileStore::firstAccountClaimsRootStoreSecondStartsEmpty()
{
    const QString rootAttachments = root() + u"/Attachments"_s;
    writeBytes(rootAttachments + u"/logo.png"_s, "png");
    writeBytes(rootAttachments + u"/pack/inner.txt"_s, "inner");
    Clip withMedia = makeClip(u"/logo"_s, u"Logo"_s);
    withMedia.files = {rootAttachments + u"/logo.png"_s, u"/elsewhere/keep.png"_s};
    Clip customer = makeClip(u"/"_s + QString(45, u'a') + u".web"_s, u"Acme"_s, u"Work"_s);
    customer.groups = QStringList{u"CUSTOMERS"_s, u"Vendors"_s};
    writeClips(root() + u"/clips.json"_s, {withMedia, customer});
    m_defaults->setStringList(u"tavoShortcutCollections"_s, {u"Recipes"_s});

    DB db(*m_defaults, root());
    db.activateProfile(u"Sam"_s);

    const QString attachments = profile(u"sam"_s) + u"/Attachments"_s;
    QCOMPARE(db.dir(), profile(u"sam"_s));
    QCOMPARE(keysOf(db.clips()), (QStringList{u"/logo"_s, customer.key}));
    QCOMPARE(db.clips().first().files, (QStringList{attachments + u"/logo.png"_s, u"/elsewhere/keep.png"_s}));
    QCOMPARE(readBytes(attachments + u"/logo.png"_s), QByteArray("png"));
    QCOMPARE(readBytes(attachments + u"/pack/inner.txt"_s), QByteArray("inner"));
    QVERIFY(QFile::exists(rootAttachments + u"/logo.png"_s)); // the source stays
    QVERIFY(m_defaults->flag(u"tavoLegacyDataClaimed"_s));
    QCOMPARE(db.collectionDefaultsKey(), u"tavoShortcutCollections."_s + tavoProfileSlug(u"sam"_s));
    // The root's list, which gained the built-ins when the root store started, was copied.
    QCOMPARE(db.collections(), QStringList{u"Recipes"_s} + builtInCollections());
    QCOMPARE(keysOf(clipsOnDisk(db.dir() + u"/clips.json"_s)), keysOf(db.clips()));
    QCOMPARE(clipsOnDisk(root() + u"/clips.json"_s).size(), 2); // the root store is left as it was

    // Shortcuts in record collections became records, one per collection.
    const QList<CollectionRecord> records = db.collectionRecords();
    QCOMPARE(records.size(), 2);
    QCOMPARE(records[0].collection, u"CUSTOMERS"_s);
    QCOMPARE(records[1].collection, u"Vendors"_s);
    QCOMPARE(records[0].alias, QString(40, u'a'));
    QCOMPARE(records[0].values.value(u"Content"_s), u"Acme text"_s);

    // A second account starts empty; back to the first, its own file is read and nothing is claimed again.
    QSignalSpy clipsChanged(&db, &DB::clipsChanged);
    db.activateProfile(u"second"_s);
    QVERIFY(db.clips().isEmpty());
    QVERIFY(clipsChanged.count() >= 1);
    QCOMPARE(db.collections(), builtInCollections());
    db.activateProfile(u"SAM "_s);
    QCOMPARE(db.clips().size(), 2);
}

void TestProfileStore::emailMigration_data()
{
    QTest::addColumn<QByteArray>("profileClips"); // empty: the account has no profile yet
    QTest::addColumn<bool>("emailProfile");
    QTest::addColumn<QStringList>("keys");
    QTest::newRow("the e-mail profile moves in") << QByteArray() << true << QStringList{u"/old"_s};
    QTest::newRow("a profile with shortcuts is never migrated over")
        << QJsonDocument(clipsToJson({makeClip(u"/mine"_s, u"Mine"_s)})).toJson() << true << QStringList{u"/mine"_s};
    QTest::newRow("an empty list counts as existing") << QByteArray("[]") << true << QStringList();
    QTest::newRow("nothing to move ends empty") << QByteArray() << false << QStringList();
}

void TestProfileStore::emailMigration()
{
    QFETCH(QByteArray, profileClips);
    QFETCH(bool, emailProfile);
    QFETCH(QStringList, keys);
    if (!profileClips.isEmpty()) {
        writeBytes(profile(u"sam"_s) + u"/clips.json"_s, profileClips);
    }
    const QString legacy = profile(u"old@example.com"_s);
    if (emailProfile) {
        writeBytes(legacy + u"/Attachments/a.gif"_s, "gif");
        Clip clip = makeClip(u"/old"_s, u"Old"_s);
        clip.files = {legacy + u"/Attachments/a.gif"_s};
        writeClips(legacy + u"/clips.json"_s, {clip});
        m_defaults->setStringList(u"tavoShortcutCollections."_s + tavoProfileSlug(u"old@example.com"_s), {u"Legacy"_s});
    }
    DB db(*m_defaults, root()); // the root holds its start shortcuts, which are never claimed here
    db.activateProfile(u"sam"_s, u"old@example.com"_s);
    QCOMPARE(keysOf(db.clips()), keys);
    QVERIFY(!m_defaults->contains(u"tavoLegacyDataClaimed"_s));
    const bool moved = keys == QStringList{u"/old"_s};
    QCOMPARE(m_defaults->flag(u"tavoLocalLegacyProfileMoved"_s), moved);
    if (moved) {
        const QString gif = profile(u"sam"_s) + u"/Attachments/a.gif"_s;
        QCOMPARE(db.clips().first().files, QStringList{gif});
        QCOMPARE(readBytes(gif), QByteArray("gif"));
        QCOMPARE(db.collections(), QStringList{u"Legacy"_s});
    }
}

void TestProfileStore::unreadableFilesKeptAside()
{
    writeBytes(root() + u"/collection-definitions.json"_s, "[{\"id\": \"x\"}]");
    writeBytes(root() + u"/collection-records.json"_s, "not json");
    DB db(*m_defaults, root());
    QCOMPARE(db.collectionDefinitions().size(), 16);
    QCOMPARE(QDir(root()).entryList({u"collection-*.unreadable-*"_s}).size(), 2);

    // A collection without a definition gets one on the next load.
    db.setCollections(QStringList(db.collections()) << u"Recipes"_s);
    db.loadCollectionLibrary();
    QCOMPARE(db.collectionDefinitions().size(), 17);
    QCOMPARE(db.collectionDefinitions().last().name, u"Recipes"_s);

    // A shortcut list with one bad record is kept aside whole, never half read.
    const Clip clip = makeClip(u"/mine"_s, u"Mine"_s);
    QJsonObject broken = clip.toJson();
    broken.remove(u"text"_s);
    const QByteArray bytes = QJsonDocument(QJsonArray{clip.toJson(), broken}).toJson();
    writeBytes(profile(u"sam"_s) + u"/clips.json"_s, bytes);
    m_defaults->setBoolean(u"tavoLegacyDataClaimed"_s, true);
    db.activateProfile(u"sam"_s);
    QVERIFY(db.clips().isEmpty());
    const QStringList aside = QDir(profile(u"sam"_s)).entryList({u"clips.json.unreadable-*"_s}, QDir::Files);
    QCOMPARE(aside.size(), 1);
    QCOMPARE(readBytes(profile(u"sam"_s) + u'/' + aside.first()), bytes);
    QCOMPARE(readBytes(profile(u"sam"_s) + u"/clips.json"_s), QByteArray("[]"));
}

void TestProfileStore::lostSettingsDoNotHandTheRootToASecondAccount()
{
    DB(*m_defaults, root()).activateProfile(u"first"_s);
    writeBytes(m_defaults->filePath(), "{broken");
    Defaults lost(m_defaults->filePath());
    DB db(lost, root());
    db.activateProfile(u"second"_s);
    QVERIFY(db.clips().isEmpty());
}

void TestProfileStore::renameReachesEveryPlaceANameIsUsed()
{
    DB db(*m_defaults, root());
    db.activateProfile(u"sam"_s);
    Clip clip = makeClip(u"/acme"_s, u"Acme"_s, u"Work"_s);
    clip.groups = QStringList{u"customers"_s};
    db.setClips({clip});
    db.save();
    db.setCollectionRecords({recordFromClip(clip, u"Customers"_s)});
    db.saveCollectionLibrary();
    db.setHiddenCollections({u"CUSTOMERS"_s});
    m_defaults->setString(u"tavoBuilderCollections.Invoice app"_s, u"Work,customers"_s);
    m_defaults->setString(u"tavoBuilderPrefix.Invoice app"_s, u"customers"_s);

    db.renameCollection(u"Customers"_s, u"  Clients "_s);

    QVERIFY(db.collections().contains(u"Clients"_s));
    QVERIFY(!db.collections().contains(u"Customers"_s, Qt::CaseInsensitive));
    QCOMPARE(db.clips().first().allGroups(), (QStringList{u"Work"_s, u"Clients"_s}));
    QCOMPARE(clipsOnDisk(db.dir() + u"/clips.json"_s).first().groups, db.clips().first().groups);
    QCOMPARE(db.collectionRecords().first().collection, u"Clients"_s);
    QCOMPARE(db.hiddenCollections(), QStringList{u"Clients"_s});
    QCOMPARE(m_defaults->string(u"tavoBuilderCollections.Invoice app"_s), std::optional(u"Work, Clients"_s));
    QCOMPARE(m_defaults->string(u"tavoBuilderPrefix.Invoice app"_s), std::optional(u"customers"_s));

    db.renameCollection(u"Clients"_s, u"   "_s); // a blank name is refused
    QVERIFY(db.collections().contains(u"Clients"_s));
}

void TestProfileStore::readOnlyStoreWritesNothing()
{
    DB(*m_defaults, root()).activateProfile(u"sam"_s);
    const QString clipsPath = profile(u"sam"_s) + u"/clips.json"_s;
    const QDateTime before = QFileInfo(clipsPath).lastModified();
    const QByteArray settings = readBytes(m_defaults->filePath());
    QTest::qWait(20);

    Defaults defaults(m_defaults->filePath());
    DB reader(defaults, root(), DB::Access::ReadOnly);
    reader.activateProfile(u"sam"_s);
    QCOMPARE(reader.clips().size(), 4);
    QVERIFY(!reader.save());
    QCOMPARE(QFileInfo(clipsPath).lastModified(), before);
    QCOMPARE(readBytes(m_defaults->filePath()), settings);
}

void TestProfileStore::twoProcessesKeepEachOthersChanges()
{
    DB app(*m_defaults, root());
    app.activateProfile(u"sam"_s);
    QTest::qWait(20); // distinct modification times
    {
        Defaults toolDefaults(m_defaults->filePath());
        DB tool(toolDefaults, root());
        tool.activateProfile(u"sam"_s);
        tool.setClips(QList<Clip>(tool.clips()) << makeClip(u"/fromtool"_s, u"From tool"_s));
        QVERIFY(tool.save());
    }

    // The application never re-read the file; its edit and save keep the tool's addition.
    QList<Clip> clips = app.clips();
    clips[0].name = u"Edited in the app"_s;
    clips.removeAt(3);
    app.setClips(clips);
    QVERIFY(app.save());

    const QList<Clip> onDisk = clipsOnDisk(profile(u"sam"_s) + u"/clips.json"_s);
    QCOMPARE(keysOf(onDisk), (QStringList{u"/ty"_s, u"/date"_s, u"/time"_s, u"/fromtool"_s}));
    QCOMPARE(onDisk.first().name, u"Edited in the app"_s);
    QCOMPARE(keysOf(app.clips()), keysOf(onDisk));
}

void TestProfileStore::watcherFollowsAnotherWriter_data()
{
    QTest::addColumn<bool>("background");
    QTest::newRow("read in place") << false;
    QTest::newRow("read by the writer's thread") << true;
}

void TestProfileStore::watcherFollowsAnotherWriter()
{
    QFETCH(bool, background);
    DB app(*m_defaults, root());
    if (background) {
        app.writeInBackground();
    }
    app.activateProfile(u"sam"_s);
    app.watchForChanges();
    QSignalSpy changed(&app, &DB::clipsChanged);
    QTest::qWait(20);

    Defaults toolDefaults(m_defaults->filePath());
    DB tool(toolDefaults, root());
    tool.activateProfile(u"sam"_s);
    tool.setClips(QList<Clip>(tool.clips()) << makeClip(u"/new"_s, u"New"_s));
    QVERIFY(tool.save());

    QTRY_COMPARE(app.clips().size(), 5);
    QCOMPARE(app.clips().last().key, u"/new"_s);
    QVERIFY(changed.count() >= 1);
    // An edit of ours saved after the reload keeps the other writer's shortcut.
    QList<Clip> mine = app.clips();
    mine.first().name = u"Ours after theirs"_s;
    app.setClips(mine);
    QVERIFY(app.save());
    app.waitForSaves();
    const QList<Clip> onDisk = clipsOnDisk(profile(u"sam"_s) + u"/clips.json"_s);
    QCOMPARE(keysOf(onDisk), QStringList(startKeys) << u"/new"_s);
    QCOMPARE(onDisk.first().name, u"Ours after theirs"_s);

    // A collection hidden by a change of the settings alone, no profile file touched.
    m_defaults->watchForChanges();
    QSignalSpy hiddenChanged(&app, &DB::hiddenCollectionsChanged);
    QTest::qWait(20);
    Defaults(m_defaults->filePath())
        .setStringList(u"tavoHiddenCollections."_s + tavoProfileSlug(u"sam"_s), {u"Work"_s});
    QTRY_VERIFY(app.isCollectionHidden(u"work"_s));
    QCOMPARE(hiddenChanged.count(), 1);
}

void TestProfileStore::aSaveAnnouncesWhatItMergedIn()
{
    // No watcher here: the app learns of the other writer only when it saves itself.
    DB app(*m_defaults, root());
    app.activateProfile(u"sam"_s);
    Defaults toolDefaults(m_defaults->filePath());
    DB tool(toolDefaults, root());
    tool.activateProfile(u"sam"_s);
    QList<Clip> edited = tool.clips();
    edited.first().text = u"Edited by the tool"_s;
    tool.setClips(edited);
    QVERIFY(tool.save());

    QList<Clip> mine = app.clips();
    mine.last().name = u"Renamed in the app"_s;
    app.setClips(mine);
    QSignalSpy changed(&app, &DB::clipsChanged);
    QVERIFY(app.save());
    QCOMPARE(changed.count(), 1); // the same number of shortcuts, yet other content
    QCOMPARE(app.clips().first().text, u"Edited by the tool"_s);
    QCOMPARE(app.clips().last().name, u"Renamed in the app"_s);
}

void TestProfileStore::killedWriterNeverLeavesABrokenFile_data()
{
    QTest::addColumn<QStringList>("mode");
    QTest::newRow("saves written in place") << QStringList();
    QTest::newRow("a burst of edits saved in the background") << QStringList{u"background"_s};
}

void TestProfileStore::killedWriterNeverLeavesABrokenFile()
{
    QFETCH(QStringList, mode);
    const QString clipsPath = profile(u"crash"_s) + u"/clips.json"_s;
    qsizetype lastCount = 0;
    for (int round = 0; round < 12; ++round) {
        QProcess writer;
        writer.start(QStringLiteral(STORE_CRASH_WRITER), QStringList{root()} + mode);
        QVERIFY(writer.waitForStarted());
        QVERIFY(writer.waitForReadyRead(20000));
        QTest::qWait(QRandomGenerator::global()->bounded(5, 120));
        ::kill(static_cast<pid_t>(writer.processId()), SIGKILL);
        QVERIFY(writer.waitForFinished());

        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(readBytes(clipsPath), &error);
        QVERIFY2(error.error == QJsonParseError::NoError, qPrintable(error.errorString()));
        const std::optional<QList<Clip>> clips = clipsFromJson(document.array());
        QVERIFY(clips);
        QVERIFY(clips->size() >= lastCount);                   // nothing saved before is ever lost
        QCOMPARE((clips->size() - startKeys.size()) % 200, 0); // whole edits only
        lastCount = clips->size();
    }
    QVERIFY(lastCount > 0);
}

void TestProfileStore::quittingWritesThePendingSave()
{
    // The writer quits right after its last edit and ends without destroying its store.
    QProcess writer;
    writer.start(QStringLiteral(STORE_CRASH_WRITER), {root(), u"quit"_s, u"30"_s});
    QVERIFY(writer.waitForFinished(60'000));
    QCOMPARE(writer.exitCode(), 0);
    const QList<Clip> onDisk = clipsOnDisk(profile(u"crash"_s) + u"/clips.json"_s);
    QCOMPARE(onDisk.size(), startKeys.size() + 30 * 200);
    QCOMPARE(onDisk.last().key, u"/k29-199"_s);
}

void TestProfileStore::backgroundSavesCoalesceToTheLatestState_data()
{
    QTest::addColumn<QString>("list");       // clips or records
    QTest::addColumn<bool>("storeGoesAway"); // destroyed right after the burst
    QTest::newRow("shortcuts, settled in the event loop") << u"clips"_s << false;
    QTest::newRow("shortcuts in flight when the store goes away") << u"clips"_s << true;
    QTest::newRow("records, settled in the event loop") << u"records"_s << false;
    QTest::newRow("records in flight when the store goes away") << u"records"_s << true;
}

void TestProfileStore::backgroundSavesCoalesceToTheLatestState()
{
    QFETCH(QString, list);
    QFETCH(bool, storeGoesAway);
    constexpr int edits = 40;
    const QString file = list == u"clips"_s ? u"clips.json"_s : u"collection-records.json"_s;
    const QString path = profile(u"sam"_s) + u'/' + file;

    auto db = std::make_unique<DB>(*m_defaults, root());
    db->writeInBackground();
    db->activateProfile(u"sam"_s);
    QTRY_VERIFY(!db->savesPending());
    QSignalSpy finished(db.get(), &DB::saveFinished);
    // Edits as fast as a script makes them, the event loop never turning in between.
    for (int i = 0; i < edits; ++i) {
        if (list == u"clips"_s) {
            db->setClips(QList<Clip>(db->clips()) << makeClip(u"/e%1"_s.arg(i), u"Edit"_s));
            QVERIFY(db->save());
        } else {
            CollectionRecord record;
            record.id = u"R%1"_s.arg(i);
            record.collection = u"Customers"_s;
            record.name = u"Customer %1"_s.arg(i);
            db->setCollectionRecords(QList<CollectionRecord>(db->collectionRecords()) << record);
            QVERIFY(db->saveCollectionLibrary());
        }
    }
    if (storeGoesAway) {
        db.reset();
    } else {
        QVERIFY(db->savesPending());
        QTRY_VERIFY(!db->savesPending());
        int writes = 0;
        for (const QList<QVariant>& args : finished) {
            QVERIFY(args.at(1).toBool());
            writes += args.at(0).toString() == file ? 1 : 0;
        }
        QCOMPARE(writes, 2); // the first edit's, then one for all the rest
    }

    const QByteArray bytes = readBytes(path);
    if (list == u"clips"_s) {
        const QList<Clip> onDisk = clipsOnDisk(path);
        QCOMPARE(onDisk.size(), startKeys.size() + edits);
        QCOMPARE(onDisk.last().key, u"/e%1"_s.arg(edits - 1));
        if (db) {
            QCOMPARE(db->clips(), onDisk);
        }
    } else {
        const std::optional<QList<CollectionRecord>> onDisk = recordsFromJsonBytes(bytes);
        QVERIFY(onDisk);
        QCOMPARE(onDisk->size(), edits);
        QCOMPARE(onDisk->last().id, u"R%1"_s.arg(edits - 1));
    }
}

void TestProfileStore::anotherWriterDuringABackgroundSaveLosesNothing_data()
{
    // When tavoctl's change comes, relative to the application's save.
    QTest::addColumn<QString>("moment");
    QTest::addColumn<bool>("byUpdate"); // tavoctl changes through updateClips rather than save()
    QTest::newRow("before the save") << u"before"_s << false;
    QTest::newRow("while the save is on its way") << u"during"_s << false;
    QTest::newRow("while the save is on its way, by an update") << u"during"_s << true;
    QTest::newRow("after the write, before the application takes it in") << u"after"_s << false;
    QTest::newRow("after the write, by an update") << u"after"_s << true;
}

void TestProfileStore::anotherWriterDuringABackgroundSaveLosesNothing()
{
    QFETCH(QString, moment);
    QFETCH(bool, byUpdate);
    const QString clipsPath = profile(u"sam"_s) + u"/clips.json"_s;
    DB app(*m_defaults, root());
    app.writeInBackground();
    app.activateProfile(u"sam"_s);
    // Large enough that the write takes a while.
    QList<Clip> clips = app.clips();
    for (int i = 0; i < 5000; ++i) {
        clips << makeClip(u"/bulk%1"_s.arg(i), u"Bulk"_s);
    }
    app.setClips(clips);
    app.save();
    QTRY_VERIFY(!app.savesPending());
    QTest::qWait(20); // distinct modification times

    auto tool = [&] {
        Defaults toolDefaults(m_defaults->filePath());
        DB ctl(toolDefaults, root());
        ctl.activateProfile(u"sam"_s);
        if (byUpdate) {
            QVERIFY(ctl.updateClips([](QList<Clip>& list) { list << makeClip(u"/fromtool"_s, u"Tool"_s); }));
        } else {
            ctl.setClips(QList<Clip>(ctl.clips()) << makeClip(u"/fromtool"_s, u"Tool"_s));
            QVERIFY(ctl.save());
        }
    };
    if (moment == u"before"_s) {
        tool();
    }
    clips = app.clips();
    clips[0].name = u"First edit in the app"_s;
    app.setClips(clips);
    app.save();
    if (moment == u"during"_s) {
        tool();
    } else if (moment == u"after"_s) {
        QThread::msleep(300); // the writer is done; the event loop has not turned
        tool();
    }
    QTRY_VERIFY(!app.savesPending());
    QTest::qWait(20);
    clips = app.clips();
    clips[1].name = u"Second edit in the app"_s;
    app.setClips(clips);
    app.save();
    QTRY_VERIFY(!app.savesPending());

    const QList<Clip> onDisk = clipsOnDisk(clipsPath);
    QCOMPARE(onDisk.size(), startKeys.size() + 5000 + 1);
    QVERIFY(keysOf(onDisk).contains(u"/fromtool"_s));
    QCOMPARE(onDisk.at(0).name, u"First edit in the app"_s);
    QCOMPARE(onDisk.at(1).name, u"Second edit in the app"_s);
    QCOMPARE(app.clips(), onDisk);
}

void TestProfileStore::aSignInReadsWhileTheEventLoopTurns()
{
    QList<Clip> large;
    for (int i = 0; i < 30'000; ++i) {
        large << makeClip(u"/sam%1"_s.arg(i), u"Sam"_s);
    }
    writeClips(profile(u"sam"_s) + u"/clips.json"_s, large);
    writeClips(profile(u"kim"_s) + u"/clips.json"_s, {makeClip(u"/kim"_s, u"Kim"_s)});

    DB db(*m_defaults, root());
    db.writeInBackground();
    // Another sign-in comes while the first one's large file is read: the later one stands.
    bool turned = false;
    QTimer::singleShot(0, &db, [&] {
        turned = true;
        db.activateProfile(u"kim"_s);
    });
    db.activateProfile(u"sam"_s);
    QVERIFY(turned);
    QCOMPARE(db.dir(), profile(u"kim"_s));
    QCOMPARE(keysOf(db.clips()), QStringList{u"/kim"_s});
    QCOMPARE(db.collectionDefaultsKey(), u"tavoShortcutCollections."_s + tavoProfileSlug(u"kim"_s));
}

void TestProfileStore::updateClipsSeesAPendingSave()
{
    const QString clipsPath = profile(u"sam"_s) + u"/clips.json"_s;
    DB app(*m_defaults, root());
    app.writeInBackground();
    app.activateProfile(u"sam"_s);
    QList<Clip> clips = app.clips();
    clips[0].name = u"Saved"_s;
    app.setClips(clips);
    app.save(); // on its way
    clips[1].name = u"Not saved yet"_s;
    app.setClips(clips);

    // The change runs on the store's thread; the list in memory changes once, when it is taken in.
    auto given = std::make_shared<QList<Clip>>();
    QSignalSpy changed(&app, &DB::clipsChanged);
    QList<bool> outcomes;
    app.updateClips(
        [given](QList<Clip>& list) {
            *given = list;
            list.prepend(makeClip(u"/update"_s, u"Update"_s)); // as an import puts its shortcuts
        },
        this, [&](bool written) { outcomes << written; });
    QVERIFY(outcomes.isEmpty());
    clips[2].name = u"Edited meanwhile"_s; // an edit while the update is on its way stays
    app.setClips(clips);
    changed.clear();
    QTRY_COMPARE(outcomes, QList<bool>{true});
    QCOMPARE(changed.count(), 1);
    QCOMPARE(given->at(0).name, u"Saved"_s);
    QCOMPARE(given->at(1).name, u"Not saved yet"_s);
    const QStringList expected = QStringList{u"/update"_s} + startKeys;
    QCOMPARE(keysOf(app.clips()), expected);
    QCOMPARE(app.clips().at(3).name, u"Edited meanwhile"_s);
    QVERIFY(app.save());
    QTRY_VERIFY(!app.savesPending());
    const QList<Clip> onDisk = clipsOnDisk(clipsPath);
    QCOMPARE(keysOf(onDisk), expected);
    QCOMPARE(onDisk.at(1).name, u"Saved"_s);
    QCOMPARE(onDisk.at(2).name, u"Not saved yet"_s);
    QCOMPARE(onDisk.at(3).name, u"Edited meanwhile"_s);
    QCOMPARE(app.clips(), onDisk);
}

void TestProfileStore::updateClipsChangesTheFileAsItIsNow_data()
{
    QTest::addColumn<QString>("theirs");  // what another writer did after our last read
    QTest::addColumn<bool>("ourPending"); // whether we hold an unsaved edit of /time
    QTest::addColumn<bool>("ourChange");  // whether the change adds /ours at the start
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<int>("announced");

    QTest::newRow("their addition stays, ours goes first")
        << u"add"_s << false << true
        << QStringList{u"/ours"_s, u"/ty"_s, u"/date"_s, u"/time"_s, u"/intro"_s, u"/theirs"_s} << 1;
    QTest::newRow("their removal stays") << u"remove"_s << false << true
                                         << QStringList{u"/ours"_s, u"/date"_s, u"/time"_s, u"/intro"_s} << 1;
    QTest::newRow("their edit stays") << u"edit"_s << false << true
                                      << QStringList{u"/ours"_s, u"/ty"_s, u"/date"_s, u"/time"_s, u"/intro"_s} << 1;
    QTest::newRow("an unsaved edit of ours is kept with theirs")
        << u"add"_s << true << true
        << QStringList{u"/ours"_s, u"/ty"_s, u"/date"_s, u"/time"_s, u"/intro"_s, u"/theirs"_s} << 1;
    QTest::newRow("no change still takes theirs in")
        << u"add"_s << false << false << QStringList{u"/ty"_s, u"/date"_s, u"/time"_s, u"/intro"_s, u"/theirs"_s} << 1;
    QTest::newRow("no change on an unchanged file announces nothing")
        << QString() << false << false << QStringList{u"/ty"_s, u"/date"_s, u"/time"_s, u"/intro"_s} << 0;
}

void TestProfileStore::updateClipsChangesTheFileAsItIsNow()
{
    QFETCH(QString, theirs);
    QFETCH(bool, ourPending);
    QFETCH(bool, ourChange);
    QFETCH(QStringList, expected);
    QFETCH(int, announced);

    const QString clipsPath = profile(u"sam"_s) + u"/clips.json"_s;
    DB app(*m_defaults, root());
    app.activateProfile(u"sam"_s);
    QTest::qWait(20); // distinct modification times
    if (!theirs.isEmpty()) {
        Defaults toolDefaults(m_defaults->filePath());
        DB tool(toolDefaults, root());
        tool.activateProfile(u"sam"_s);
        QList<Clip> clips = tool.clips();
        if (theirs == u"add"_s) {
            clips << makeClip(u"/theirs"_s, u"Theirs"_s);
        } else if (theirs == u"remove"_s) {
            clips.removeFirst();
        } else {
            clips[1].name = u"Edited by the tool"_s;
        }
        tool.setClips(clips);
        QVERIFY(tool.save());
    }
    if (ourPending) {
        QList<Clip> clips = app.clips();
        clips[2].text = u"Unsaved in the app"_s;
        app.setClips(clips);
    }
    const QByteArray before = readBytes(clipsPath);

    QSignalSpy changed(&app, &DB::clipsChanged);
    QList<Clip> given;
    QVERIFY(app.updateClips([&](QList<Clip>& clips) {
        given = clips;
        if (ourChange) {
            clips.prepend(makeClip(u"/ours"_s, u"Ours"_s));
        }
    }));

    const QList<Clip> onDisk = clipsOnDisk(clipsPath);
    QCOMPARE(keysOf(onDisk), expected);
    QCOMPARE(app.clips(), onDisk);
    QCOMPARE(changed.count(), announced);
    if (theirs == u"edit"_s) {
        QCOMPARE(onDisk.at(2).name, u"Edited by the tool"_s);
        QCOMPARE(given.at(1).name, u"Edited by the tool"_s); // the change saw their edit
    }
    if (ourPending) {
        QCOMPARE(onDisk.at(3).text, u"Unsaved in the app"_s);
    }
    if (!ourChange && theirs.isEmpty()) {
        QCOMPARE(readBytes(clipsPath), before); // nothing to change, nothing written
    }
    QVERIFY(!QFileInfo::exists(clipsPath + u".lock"_s)); // the lock is let go

    // A later save builds on the updated list: nothing is merged back or lost.
    QVERIFY(app.save());
    QCOMPARE(keysOf(clipsOnDisk(clipsPath)), expected);
}

void TestProfileStore::updateClipsKeepsAnUnreadableFileAside()
{
    const QString clipsPath = profile(u"sam"_s) + u"/clips.json"_s;
    DB app(*m_defaults, root());
    app.activateProfile(u"sam"_s);
    writeBytes(clipsPath, "not json");
    QVERIFY(app.updateClips([](QList<Clip>& clips) { clips.append(makeClip(u"/ours"_s, u"Ours"_s)); }));
    QCOMPARE(keysOf(clipsOnDisk(clipsPath)), QStringList(startKeys) << u"/ours"_s);
    const QStringList aside = QDir(profile(u"sam"_s)).entryList({u"clips.json.unreadable-*"_s}, QDir::Files);
    QCOMPARE(aside.size(), 1);
    QCOMPARE(readBytes(profile(u"sam"_s) + u'/' + aside.first()), QByteArray("not json"));

    // A read-only store changes nothing, in memory or on disk.
    DB reader(*m_defaults, root(), DB::Access::ReadOnly);
    reader.activateProfile(u"sam"_s);
    const QByteArray before = readBytes(clipsPath);
    bool called = false;
    QVERIFY(!reader.updateClips([&](QList<Clip>& clips) {
        called = true;
        clips.clear();
    }));
    QVERIFY(!called);
    QCOMPARE(reader.clips().size(), 5);
    QCOMPARE(readBytes(clipsPath), before);
}

void TestProfileStore::updateClipsFromTwoProcessesLosesNothing()
{
    constexpr int perProcess = 100;
    {
        // The profile exists before the writers start, so neither of them sets it up.
        DB app(*m_defaults, root());
        app.activateProfile(u"sam"_s);
    }
    // Both start adding at one moment, well after either has opened the profile.
    const QString start = QString::number(QDateTime::currentMSecsSinceEpoch() + 1500);
    QList<QProcess*> writers;
    for (const QString& name : {u"a"_s, u"b"_s}) {
        auto* process = new QProcess(this);
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process->start(QCoreApplication::applicationFilePath(),
                       {u"update-clips"_s, m_dir->path(), name, QString::number(perProcess), start});
        writers << process;
    }
    for (QProcess* process : writers) {
        QVERIFY(process->waitForFinished(120'000));
        QCOMPARE(process->exitStatus(), QProcess::NormalExit);
        QCOMPARE(process->exitCode(), 0);
        delete process;
    }
    const QStringList keys = keysOf(clipsOnDisk(profile(u"sam"_s) + u"/clips.json"_s));
    QCOMPARE(keys.size(), startKeys.size() + 2 * perProcess);
    for (const QString& name : {u"a"_s, u"b"_s}) {
        for (int i = 0; i < perProcess; ++i) {
            QVERIFY2(keys.contains(u"/%1%2"_s.arg(name).arg(i)), qPrintable(name + QString::number(i)));
        }
    }
}

void TestProfileStore::copyIntoAttachments_data()
{
    QTest::addColumn<QString>("name"); // the source's file name; empty: no source at all
    QTest::addColumn<bool>("copied");
    QTest::addColumn<QString>("ending"); // how the copy's name ends

    QTest::newRow("a plain file") << u"notes.txt"_s << true << u"-notes.txt"_s;
    QTest::newRow("spaces and other scripts")
        << u"Résumé of Zoë – 東京 🎉.pdf"_s << true << u"-Résumé of Zoë – 東京 🎉.pdf"_s;
    QTest::newRow("a missing source") << QString() << false << QString();
    QTest::newRow("a name too long with the prefix keeps its extension")
        << QString(240, u'n') + u".png"_s << true << u"nnn.png"_s;
}

void TestProfileStore::copyIntoAttachments()
{
    QFETCH(QString, name);
    QFETCH(bool, copied);
    QFETCH(QString, ending);

    const QString sources = m_dir->filePath(u"sources"_s);
    QDir().mkpath(sources);
    const QString source = sources + u'/' + (name.isEmpty() ? u"gone.png"_s : name);
    const QByteArray content = "media bytes " + name.toUtf8();
    if (!name.isEmpty()) {
        writeBytes(source, content);
    }
    const QString attachments = profile(u"sam"_s) + u"/Attachments"_s; // not there yet

    const AttachmentCopy copy = tavo::copyIntoAttachments(source, attachments);
    QCOMPARE(copy.ok(), copied);
    if (!copied) {
        QVERIFY(copy.path.isEmpty());
        QVERIFY(copy.error.contains(source));
        QVERIFY(QDir(attachments).isEmpty());
        return;
    }
    QVERIFY(copy.error.isEmpty());
    const QFileInfo info(copy.path);
    QVERIFY(info.isAbsolute());
    QCOMPARE(QDir::cleanPath(info.absolutePath()), QDir::cleanPath(attachments));
    QVERIFY2(info.fileName().endsWith(ending), qPrintable(info.fileName()));
    QVERIFY(QUuid::fromString(info.fileName().left(36)).isNull() == false);
    QCOMPARE(info.fileName().at(36), u'-');
    QVERIFY(info.fileName().toUtf8().size() <= 255);
    QCOMPARE(readBytes(copy.path), content);
    QCOMPARE(readBytes(source), content); // the original stays
    QCOMPARE(QDir(attachments).entryList(QDir::Files | QDir::Hidden), QStringList{info.fileName()});
}

void TestProfileStore::copiesOfOneFileGetNamesOfTheirOwn()
{
    const QString source = m_dir->filePath(u"photo.jpg"_s);
    writeBytes(source, "jpeg");
    const QString attachments = m_dir->filePath(u"Attachments"_s);
    const AttachmentCopy first = tavo::copyIntoAttachments(source, attachments);
    const AttachmentCopy second = tavo::copyIntoAttachments(source, attachments);
    QVERIFY(first.ok() && second.ok());
    QVERIFY(first.path != second.path);
    QCOMPARE(readBytes(first.path), QByteArray("jpeg"));
    QCOMPARE(readBytes(second.path), QByteArray("jpeg"));

    // A folder is no attachment.
    const AttachmentCopy folder = tavo::copyIntoAttachments(m_dir->path(), attachments);
    QVERIFY(!folder.ok());
    QCOMPARE(QDir(attachments).entryList(QDir::Files).size(), 2);
}

int main(int argc, char* argv[])
{
    // A second process of this test: adds shortcuts one update at a time to sam's profile in the
    // given folder from the given moment on, exiting non-zero when an update fails.
    if (argc == 6 && qstrcmp(argv[1], "update-clips") == 0) {
        QCoreApplication app(argc, argv);
        const QString folder = QString::fromLocal8Bit(argv[2]);
        const QString name = QString::fromLocal8Bit(argv[3]);
        Defaults defaults(folder + u"/config/defaults.json"_s);
        DB db(defaults, folder + u"/Quill"_s);
        db.activateProfile(u"sam"_s);
        const qint64 wait = QByteArray(argv[5]).toLongLong() - QDateTime::currentMSecsSinceEpoch();
        QThread::msleep(static_cast<unsigned long>(qMax<qint64>(0, wait)));
        for (int i = 0; i < QByteArray(argv[4]).toInt(); ++i) {
            const bool updated =
                db.updateClips([&](QList<Clip>& clips) { clips.append(makeClip(u"/%1%2"_s.arg(name).arg(i), name)); });
            if (!updated) {
                return 1;
            }
        }
        return 0;
    }
    QCoreApplication app(argc, argv);
    TestProfileStore test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_profile_store.moc"
