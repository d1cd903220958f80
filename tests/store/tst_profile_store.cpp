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
#include <QtTest>

#include <csignal>

using namespace tavo;

namespace {

Clip makeClip(const QString& key, const QString& name, const QString& group = QStringLiteral("Personal"))
{
    Clip clip;
    clip.key = key;
    clip.name = name;
    clip.text = name + QStringLiteral(" text");
    clip.group = group;
    return clip;
}

void writeJson(const QString& path, const QJsonDocument& document)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(document.toJson());
}

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
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
    for (const Clip& clip : clips) {
        keys.append(clip.key);
    }
    return keys;
}

} // namespace

class TestProfileStore : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void slug_data();
    void slug();
    void rootStoreStartsWithFourShortcuts();
    void rootStoreAddsMissingBuiltInCollections();
    void firstAccountClaimsRootStore();
    void secondAccountStartsEmpty();
    void existingProfileIsNeverMigratedOver_data();
    void existingProfileIsNeverMigratedOver();
    void emailProfileMovesIntoLocalAccount();
    void emailMigrationWithoutSourceEndsEmpty();
    void recordsDerivedFromRecordCollections();
    void badDefinitionsAndRecordsRebuilt();
    void unreadableClipsKeptAside();
    void lostSettingsDoNotHandTheRootToASecondAccount();
    void hiddenCollectionsFilterClips();
    void foundAnswersBatchesStylesAndText();
    void renameReachesEveryPlaceANameIsUsed();
    void readOnlyStoreWritesNothing();
    void twoProcessesKeepEachOthersChanges();
    void watcherFollowsAnotherWriter();
    void killedWriterNeverLeavesABrokenFile();

private:
    QString root() const { return m_dir->filePath(QStringLiteral("Quill")); }
    QString profile(const QString& name) const { return root() + QStringLiteral("/Profiles/") + tavoProfileSlug(name); }
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
};

void TestProfileStore::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(QStringLiteral("config/defaults.json")));
}

void TestProfileStore::slug_data()
{
    QTest::addColumn<QString>("identity");
    QTest::addColumn<QString>("slug");
    QTest::newRow("plain name") << "sam"
                                << "c2Ft";
    QTest::newRow("case and blanks ignored") << "  SaM\n"
                                             << "c2Ft";
    // Identities whose base64 holds "+", "/" or "=": none of them reaches a folder name.
    QTest::newRow("plus becomes hyphen") << "a?>"
                                         << "YT8-";
    QTest::newRow("slash becomes underscore and padding goes") << "??"
                                                               << "Pz8";
    QTest::newRow("e-mail") << "Sam@Example.com"
                            << "c2FtQGV4YW1wbGUuY29t";
    QTest::newRow("slash from high bytes") << "\xc3\xbf?"
                                           << "w78_";
}

void TestProfileStore::slug()
{
    QFETCH(QString, identity);
    QFETCH(QString, slug);
    QCOMPARE(tavoProfileSlug(identity), slug);
}

void TestProfileStore::rootStoreStartsWithFourShortcuts()
{
    DB db(*m_defaults, root());
    QCOMPARE(keysOf(db.clips()), (QStringList{QStringLiteral("/ty"), QStringLiteral("/date"), QStringLiteral("/time"),
                                              QStringLiteral("/intro")}));
    QCOMPARE(keysOf(clipsOnDisk(root() + QStringLiteral("/clips.json"))), keysOf(db.clips()));
    QCOMPARE(db.collections(), builtInCollections());
    QCOMPARE(m_defaults->stringList(QStringLiteral("tavoShortcutCollections")), std::optional(builtInCollections()));
    QCOMPARE(QJsonDocument::fromJson(readBytes(root() + QStringLiteral("/collections.json"))).array().size(), 16);
    QCOMPARE(db.collectionDefinitions().size(), 16);
    QVERIFY(QFile::exists(root() + QStringLiteral("/collection-records.json")));
    QVERIFY(!db.isProfileActive());

    // A second start reads the same shortcuts back, ids included.
    DB again(*m_defaults, root());
    QCOMPARE(again.clips(), db.clips());
}

void TestProfileStore::rootStoreAddsMissingBuiltInCollections()
{
    m_defaults->setStringList(QStringLiteral("tavoShortcutCollections"),
                              {QStringLiteral("Recipes"), QStringLiteral("work")});
    DB db(*m_defaults, root());
    QCOMPARE(db.collections().size(), 18); // "work" is not "Work": the comparison is exact
    QCOMPARE(db.collections().first(), QStringLiteral("Recipes"));
    QCOMPARE(db.collections().last(), QStringLiteral("Imported"));
}

void TestProfileStore::firstAccountClaimsRootStore()
{
    const QString rootAttachments = root() + QStringLiteral("/Attachments");
    writeBytes(rootAttachments + QStringLiteral("/logo.png"), "png");
    writeBytes(rootAttachments + QStringLiteral("/pack/inner.txt"), "inner");
    Clip withMedia = makeClip(QStringLiteral("/logo"), QStringLiteral("Logo"));
    withMedia.files = {rootAttachments + QStringLiteral("/logo.png"), QStringLiteral("/elsewhere/keep.png")};
    writeJson(root() + QStringLiteral("/clips.json"),
              QJsonDocument(clipsToJson({withMedia, makeClip(QStringLiteral("/hi"), QStringLiteral("Hi"))})));
    m_defaults->setStringList(QStringLiteral("tavoShortcutCollections"), {QStringLiteral("Recipes")});

    DB db(*m_defaults, root());
    db.activateProfile(QStringLiteral("Sam"));

    const QString attachments = profile(QStringLiteral("sam")) + QStringLiteral("/Attachments");
    QCOMPARE(db.dir(), profile(QStringLiteral("sam")));
    QCOMPARE(keysOf(db.clips()), (QStringList{QStringLiteral("/logo"), QStringLiteral("/hi")}));
    QCOMPARE(db.clips().first().files,
             (QStringList{attachments + QStringLiteral("/logo.png"), QStringLiteral("/elsewhere/keep.png")}));
    QCOMPARE(readBytes(attachments + QStringLiteral("/logo.png")), QByteArray("png"));
    QCOMPARE(readBytes(attachments + QStringLiteral("/pack/inner.txt")), QByteArray("inner"));
    QVERIFY(QFile::exists(rootAttachments + QStringLiteral("/logo.png"))); // the source stays
    QVERIFY(m_defaults->flag(QStringLiteral("tavoLegacyDataClaimed")));
    QCOMPARE(db.collectionDefaultsKey(),
             QStringLiteral("tavoShortcutCollections.") + tavoProfileSlug(QStringLiteral("sam")));
    // The root's list, which gained the built-ins when the root store started, was copied.
    QCOMPARE(db.collections(), QStringList{QStringLiteral("Recipes")} + builtInCollections());
    for (const char* name :
         {"clips.json", "collections.json", "collection-definitions.json", "collection-records.json"}) {
        QVERIFY2(QFile::exists(db.dir() + u'/' + QLatin1String(name)), name);
    }
    QCOMPARE(keysOf(clipsOnDisk(db.dir() + QStringLiteral("/clips.json"))), keysOf(db.clips()));
    // The root store itself is left as it was.
    QCOMPARE(clipsOnDisk(root() + QStringLiteral("/clips.json")).size(), 2);
}

void TestProfileStore::secondAccountStartsEmpty()
{
    DB db(*m_defaults, root());
    db.activateProfile(QStringLiteral("first"));
    QCOMPARE(db.clips().size(), 4); // the root's start shortcuts were claimed
    QSignalSpy clipsChanged(&db, &DB::clipsChanged);
    db.activateProfile(QStringLiteral("second"));
    QVERIFY(db.clips().isEmpty());
    QVERIFY(clipsChanged.count() >= 1);
    QCOMPARE(db.collections(), builtInCollections());
    QVERIFY(QFile::exists(profile(QStringLiteral("second")) + QStringLiteral("/clips.json")));

    // Back to the first: its own file is read, nothing is claimed again.
    db.activateProfile(QStringLiteral("FIRST "));
    QCOMPARE(db.clips().size(), 4);
}

void TestProfileStore::existingProfileIsNeverMigratedOver_data()
{
    QTest::addColumn<QByteArray>("profileClips");
    QTest::addColumn<int>("count");
    QTest::newRow("a profile with shortcuts")
        << QJsonDocument(clipsToJson({makeClip(QStringLiteral("/mine"), QStringLiteral("Mine"))})).toJson() << 1;
    QTest::newRow("an empty list counts as existing") << QByteArray("[]") << 0;
}

void TestProfileStore::existingProfileIsNeverMigratedOver()
{
    QFETCH(QByteArray, profileClips);
    QFETCH(int, count);
    writeBytes(profile(QStringLiteral("sam")) + QStringLiteral("/clips.json"), profileClips);
    writeJson(profile(QStringLiteral("old@example.com")) + QStringLiteral("/clips.json"),
              QJsonDocument(clipsToJson({makeClip(QStringLiteral("/old"), QStringLiteral("Old"))})));

    DB db(*m_defaults, root());
    db.activateProfile(QStringLiteral("sam"), QStringLiteral("old@example.com"));
    QCOMPARE(db.clips().size(), count);
    QVERIFY(!m_defaults->contains(QStringLiteral("tavoLocalLegacyProfileMoved")));
    QVERIFY(!m_defaults->contains(QStringLiteral("tavoLegacyDataClaimed")));
}

void TestProfileStore::emailProfileMovesIntoLocalAccount()
{
    const QString legacy = profile(QStringLiteral("old@example.com"));
    writeBytes(legacy + QStringLiteral("/Attachments/a.gif"), "gif");
    Clip clip = makeClip(QStringLiteral("/old"), QStringLiteral("Old"));
    clip.files = {legacy + QStringLiteral("/Attachments/a.gif")};
    writeJson(legacy + QStringLiteral("/clips.json"), QJsonDocument(clipsToJson({clip})));
    m_defaults->setStringList(QStringLiteral("tavoShortcutCollections.") +
                                  tavoProfileSlug(QStringLiteral("old@example.com")),
                              {QStringLiteral("Legacy")});

    DB db(*m_defaults, root());
    db.activateProfile(QStringLiteral("sam"), QStringLiteral("old@example.com"));
    QCOMPARE(keysOf(db.clips()), QStringList{QStringLiteral("/old")});
    QCOMPARE(db.clips().first().files,
             QStringList{profile(QStringLiteral("sam")) + QStringLiteral("/Attachments/a.gif")});
    QCOMPARE(db.collections(), QStringList{QStringLiteral("Legacy")});
    QVERIFY(m_defaults->flag(QStringLiteral("tavoLocalLegacyProfileMoved")));
    QVERIFY(!m_defaults->contains(QStringLiteral("tavoLegacyDataClaimed"))); // the root was not claimed
}

void TestProfileStore::emailMigrationWithoutSourceEndsEmpty()
{
    DB db(*m_defaults, root()); // the root holds its start shortcuts
    db.activateProfile(QStringLiteral("sam"), QStringLiteral("gone@example.com"));
    QVERIFY(db.clips().isEmpty());
    QVERIFY(!m_defaults->contains(QStringLiteral("tavoLocalLegacyProfileMoved")));
    QVERIFY(!m_defaults->contains(QStringLiteral("tavoLegacyDataClaimed")));
}

void TestProfileStore::recordsDerivedFromRecordCollections()
{
    Clip customer = makeClip(QStringLiteral("/") + QString(45, u'a') + QStringLiteral(".web"), QStringLiteral("Acme"),
                             QStringLiteral("Work"));
    customer.groups = QStringList{QStringLiteral("CUSTOMERS"), QStringLiteral("Vendors")};
    customer.files = {QStringLiteral("/x/acme.pdf")};
    writeJson(root() + QStringLiteral("/clips.json"),
              QJsonDocument(clipsToJson({customer, makeClip(QStringLiteral("/hi"), QStringLiteral("Hi"))})));

    DB db(*m_defaults, root());
    db.activateProfile(QStringLiteral("sam"));
    const QList<CollectionRecord>& records = db.collectionRecords();
    QCOMPARE(records.size(), 2);
    QCOMPARE(records[0].collection, QStringLiteral("CUSTOMERS"));
    QCOMPARE(records[1].collection, QStringLiteral("Vendors"));
    QCOMPARE(records[0].alias, QString(40, u'a'));
    QCOMPARE(records[0].values.value(QStringLiteral("Content")), QStringLiteral("Acme text"));
    QCOMPARE(records[0].files, customer.files);
    QCOMPARE(records[0].name, QStringLiteral("Acme"));
}

void TestProfileStore::badDefinitionsAndRecordsRebuilt()
{
    writeBytes(root() + QStringLiteral("/collection-definitions.json"), "[{\"id\": \"x\"}]");
    writeBytes(root() + QStringLiteral("/collection-records.json"), "not json");
    DB db(*m_defaults, root());
    QCOMPARE(db.collectionDefinitions().size(), 16);
    QCOMPARE(db.collectionDefinitions().first().name, QStringLiteral("Applications"));
    QCOMPARE(QDir(root()).entryList({QStringLiteral("collection-*.unreadable-*")}).size(), 2);

    // A collection without a definition gets one on the next load.
    db.setCollections(QStringList(db.collections()) << QStringLiteral("Recipes"));
    db.loadCollectionLibrary();
    QCOMPARE(db.collectionDefinitions().size(), 17);
    QCOMPARE(db.collectionDefinitions().last().name, QStringLiteral("Recipes"));
}

void TestProfileStore::unreadableClipsKeptAside()
{
    Clip clip = makeClip(QStringLiteral("/mine"), QStringLiteral("Mine"));
    QJsonObject broken = clip.toJson();
    broken.remove(QStringLiteral("text"));
    const QByteArray bytes = QJsonDocument(QJsonArray{clip.toJson(), broken}).toJson();
    writeBytes(profile(QStringLiteral("sam")) + QStringLiteral("/clips.json"), bytes);
    m_defaults->setBoolean(QStringLiteral("tavoLegacyDataClaimed"), true);

    DB db(*m_defaults, root());
    db.activateProfile(QStringLiteral("sam"));
    QVERIFY(db.clips().isEmpty());
    const QStringList aside =
        QDir(profile(QStringLiteral("sam"))).entryList({QStringLiteral("clips.json.unreadable-*")}, QDir::Files);
    QCOMPARE(aside.size(), 1);
    QCOMPARE(readBytes(profile(QStringLiteral("sam")) + u'/' + aside.first()), bytes);
    QCOMPARE(readBytes(profile(QStringLiteral("sam")) + QStringLiteral("/clips.json")), QByteArray("[]"));
}

void TestProfileStore::lostSettingsDoNotHandTheRootToASecondAccount()
{
    {
        DB db(*m_defaults, root());
        db.activateProfile(QStringLiteral("first"));
        QCOMPARE(db.clips().size(), 4);
    }
    writeBytes(m_defaults->filePath(), "{broken");
    Defaults lost(m_defaults->filePath());
    DB db(lost, root());
    db.activateProfile(QStringLiteral("second"));
    QVERIFY(db.clips().isEmpty());
}

void TestProfileStore::hiddenCollectionsFilterClips()
{
    DB db(*m_defaults, root());
    Clip both = makeClip(QStringLiteral("/both"), QStringLiteral("Both"), QStringLiteral("Work"));
    both.groups = QStringList{QStringLiteral("Writing")};
    db.setClips({makeClip(QStringLiteral("/w"), QStringLiteral("W"), QStringLiteral("Work")), both,
                 makeClip(QStringLiteral("/p"), QStringLiteral("P"), QStringLiteral("Personal"))});
    db.setHiddenCollections({QStringLiteral("WORK")});
    QVERIFY(db.isCollectionHidden(QStringLiteral("work")));
    QVERIFY(!db.visibleCollections().contains(QStringLiteral("Work")));
    QCOMPARE(db.visibleCollections().size(), 15);
    QCOMPARE(keysOf(db.availableClips()), (QStringList{QStringLiteral("/both"), QStringLiteral("/p")}));
    QCOMPARE(m_defaults->stringList(QStringLiteral("tavoHiddenCollections")),
             std::optional(QStringList{QStringLiteral("WORK")}));
}

void TestProfileStore::foundAnswersBatchesStylesAndText()
{
    DB db(*m_defaults, root());
    db.setClips({makeClip(QStringLiteral("/a1"), QStringLiteral("Alpha")),
                 makeClip(QStringLiteral("/a2"), QStringLiteral("Beta")),
                 makeClip(QStringLiteral("/sig"), QStringLiteral("Signature"))});
    db.setSearch(QStringLiteral("a2&1"));
    QCOMPARE(keysOf(db.found()), (QStringList{QStringLiteral("/a2"), QStringLiteral("/a1")}));
    db.setSearch(QStringLiteral("SIG-b"));
    QCOMPARE(keysOf(db.found()), QStringList{QStringLiteral("/sig")});
    db.setSearch(QStringLiteral("beta text"));
    QCOMPARE(keysOf(db.found()), QStringList{QStringLiteral("/a2")});
    db.setSearch(QStringLiteral("-b")); // all style, no text: matches nothing
    QVERIFY(db.found().isEmpty());
}

void TestProfileStore::renameReachesEveryPlaceANameIsUsed()
{
    DB db(*m_defaults, root());
    db.activateProfile(QStringLiteral("sam"));
    Clip clip = makeClip(QStringLiteral("/acme"), QStringLiteral("Acme"), QStringLiteral("Work"));
    clip.groups = QStringList{QStringLiteral("customers")};
    db.setClips({clip});
    db.save();
    db.setCollectionRecords({recordFromClip(clip, QStringLiteral("Customers"))});
    db.saveCollectionLibrary();
    db.setHiddenCollections({QStringLiteral("CUSTOMERS")});
    m_defaults->setString(QStringLiteral("tavoBuilderCollections.Invoice app"), QStringLiteral("Work,customers"));
    m_defaults->setString(QStringLiteral("tavoBuilderPrefix.Invoice app"), QStringLiteral("customers"));

    db.renameCollection(QStringLiteral("Customers"), QStringLiteral("  Clients "));

    QVERIFY(db.collections().contains(QStringLiteral("Clients")));
    QVERIFY(!db.collections().contains(QStringLiteral("Customers"), Qt::CaseInsensitive));
    QCOMPARE(db.clips().first().allGroups(), (QStringList{QStringLiteral("Work"), QStringLiteral("Clients")}));
    QCOMPARE(clipsOnDisk(db.dir() + QStringLiteral("/clips.json")).first().groups, db.clips().first().groups);
    QCOMPARE(db.collectionRecords().first().collection, QStringLiteral("Clients"));
    QVERIFY(std::any_of(db.collectionDefinitions().cbegin(), db.collectionDefinitions().cend(),
                        [](const CollectionDefinition& d) { return d.name == QLatin1String("Clients"); }));
    QCOMPARE(db.hiddenCollections(), QStringList{QStringLiteral("Clients")});
    QCOMPARE(m_defaults->string(QStringLiteral("tavoBuilderCollections.Invoice app")),
             std::optional<QString>(QStringLiteral("Work, Clients")));
    QCOMPARE(m_defaults->string(QStringLiteral("tavoBuilderPrefix.Invoice app")),
             std::optional<QString>(QStringLiteral("customers")));

    db.renameCollection(QStringLiteral("Clients"), QStringLiteral("   "));
    QVERIFY(db.collections().contains(QStringLiteral("Clients")));
}

void TestProfileStore::readOnlyStoreWritesNothing()
{
    {
        DB db(*m_defaults, root());
        db.activateProfile(QStringLiteral("sam"));
    }
    const QString clipsPath = profile(QStringLiteral("sam")) + QStringLiteral("/clips.json");
    const QDateTime before = QFileInfo(clipsPath).lastModified();
    const QByteArray settings = readBytes(m_defaults->filePath());
    QTest::qWait(20);

    Defaults defaults(m_defaults->filePath());
    DB reader(defaults, root(), DB::Access::ReadOnly);
    reader.activateProfile(QStringLiteral("sam"));
    QCOMPARE(reader.clips().size(), 4);
    QCOMPARE(QFileInfo(clipsPath).lastModified(), before);
    QCOMPARE(readBytes(m_defaults->filePath()), settings);
    QVERIFY(!reader.save());
}

void TestProfileStore::twoProcessesKeepEachOthersChanges()
{
    DB app(*m_defaults, root());
    app.activateProfile(QStringLiteral("sam"));
    QTest::qWait(20); // distinct modification times

    {
        Defaults toolDefaults(m_defaults->filePath());
        DB tool(toolDefaults, root());
        tool.activateProfile(QStringLiteral("sam"));
        QList<Clip> clips = tool.clips();
        clips.append(makeClip(QStringLiteral("/fromtool"), QStringLiteral("From tool")));
        tool.setClips(clips);
        QVERIFY(tool.save());
    }

    // The application never re-read the file; its edit and save keep the tool's addition.
    QList<Clip> clips = app.clips();
    clips[0].name = QStringLiteral("Edited in the app");
    clips.removeAt(3);
    app.setClips(clips);
    QVERIFY(app.save());

    const QList<Clip> onDisk = clipsOnDisk(profile(QStringLiteral("sam")) + QStringLiteral("/clips.json"));
    QCOMPARE(keysOf(onDisk), (QStringList{QStringLiteral("/ty"), QStringLiteral("/date"), QStringLiteral("/time"),
                                          QStringLiteral("/fromtool")}));
    QCOMPARE(onDisk.first().name, QStringLiteral("Edited in the app"));
    QCOMPARE(keysOf(app.clips()), keysOf(onDisk));
}

void TestProfileStore::watcherFollowsAnotherWriter()
{
    DB app(*m_defaults, root());
    app.activateProfile(QStringLiteral("sam"));
    app.watchForChanges();
    QSignalSpy changed(&app, &DB::clipsChanged);
    QTest::qWait(20);

    Defaults toolDefaults(m_defaults->filePath());
    DB tool(toolDefaults, root());
    tool.activateProfile(QStringLiteral("sam"));
    tool.setClips(QList<Clip>(tool.clips()) << makeClip(QStringLiteral("/new"), QStringLiteral("New")));
    QVERIFY(tool.save());

    QTRY_COMPARE(app.clips().size(), 5);
    QCOMPARE(app.clips().last().key, QStringLiteral("/new"));
    QVERIFY(changed.count() >= 1);
}

void TestProfileStore::killedWriterNeverLeavesABrokenFile()
{
    const QString clipsPath = root() + QStringLiteral("/Profiles/") + tavoProfileSlug(QStringLiteral("crash")) +
                              QStringLiteral("/clips.json");
    qsizetype lastCount = 0;
    for (int round = 0; round < 12; ++round) {
        QProcess writer;
        writer.start(QStringLiteral(STORE_CRASH_WRITER), {root()});
        QVERIFY(writer.waitForStarted());
        QVERIFY(writer.waitForReadyRead(20000));
        QTest::qWait(QRandomGenerator::global()->bounded(5, 120));
        ::kill(static_cast<pid_t>(writer.processId()), SIGKILL);
        QVERIFY(writer.waitForFinished());

        const QByteArray bytes = readBytes(clipsPath);
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
        QVERIFY2(error.error == QJsonParseError::NoError, qPrintable(error.errorString()));
        const std::optional<QList<Clip>> clips = clipsFromJson(document.array());
        QVERIFY(clips);
        QVERIFY(clips->size() >= lastCount); // nothing saved before is ever lost
        lastCount = clips->size();
    }
    QVERIFY(lastCount > 0);
}

QTEST_GUILESS_MAIN(TestProfileStore)
#include "tst_profile_store.moc"
