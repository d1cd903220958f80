#include "backup_profiles.h"

#include "exchange/profile_backup.h"
#include "platform/zip/zip_reader.h"
#include "tavoctl/ctl_commands.h"

#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtTest>

#include <zip.h>

#include <sys/stat.h>

using namespace tavo;
using namespace backup_test;
using namespace Qt::StringLiterals;

namespace {

// An entry written with raw libzip, so a test can make the archives Tavo's writer never makes.
struct RawEntry
{
    QByteArray name;
    QByteArray data;
    quint32 unixMode = 0; // 0 keeps libzip's default
    bool encrypted = false;
};

bool writeRaw(const QString& path, const QList<RawEntry>& entries)
{
    zip_t* archive = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
    if (!archive) {
        return false;
    }
    for (const RawEntry& entry : entries) {
        zip_source_t* source = zip_source_buffer(archive, entry.data.constData(), entry.data.size(), 0);
        const zip_int64_t index = zip_file_add(archive, entry.name.constData(), source, ZIP_FL_ENC_RAW);
        bool ok = index >= 0;
        if (!ok) {
            zip_source_free(source);
        }
        if (ok && entry.unixMode != 0) {
            ok = zip_file_set_external_attributes(archive, zip_uint64_t(index), 0, ZIP_OPSYS_UNIX,
                                                  entry.unixMode << 16) == 0;
        }
        if (ok && entry.encrypted) {
            ok = zip_file_set_encryption(archive, zip_uint64_t(index), ZIP_EM_AES_256, "secret") == 0;
        }
        if (!ok) {
            zip_discard(archive);
            return false;
        }
    }
    return zip_close(archive) == 0; // the buffers are read here, while `entries` still holds them
}

// Rewrites the uncompressed size of the first entry in its local and central headers, as a zip
// bomb that lies about its size would.
bool underDeclareFirstSize(const QString& path, quint32 declared)
{
    QByteArray bytes = readFile(path);
    const qsizetype central = bytes.indexOf(QByteArray("PK\x01\x02", 4));
    if (!bytes.startsWith(QByteArray("PK\x03\x04", 4)) || central < 0) {
        return false;
    }
    for (const qsizetype at : {qsizetype(22), central + 24}) {
        for (int i = 0; i < 4; ++i) {
            bytes[at + i] = char((declared >> (8 * i)) & 0xff);
        }
    }
    return writeFile(path, bytes);
}

QByteArray oneClipJson(const QString& key, const QStringList& files = {})
{
    Clip clip;
    clip.key = key;
    clip.name = key;
    clip.text = u"from the backup"_s;
    clip.files = files;
    return clipsToJsonBytes({clip});
}

struct Run
{
    int status;
    QString out;
    QString err;
};

Run tavoctlInProcess(const QStringList& arguments)
{
    QString in;
    QString out;
    QString err;
    QTextStream inStream(&in);
    QTextStream outStream(&out);
    QTextStream errStream(&err);
    const int status = ctl::run(arguments, inStream, outStream, errStream);
    outStream.flush();
    errStream.flush();
    return {status, out, err};
}

Run tavoctlBinary(const QStringList& arguments)
{
    QProcess process;
    process.start(tavoctlCopy(QStringLiteral(TAVOCTL_PATH)), arguments);
    if (!process.waitForFinished(60'000)) {
        return {-1, {}, u"tavoctl did not finish"_s};
    }
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

void signIn(const QString& user)
{
    Defaults defaults;
    TavoAccountStore(defaults).accept(user);
}

// Ana's library: two shortcuts with media, her own collections, one hidden, a record with a file.
const QList<Shortcut> anaShortcuts{
    {u"/cat"_s, u"a cat"_s, {{u"cat.png"_s, "ana's cat"}, {u"purr.wav"_s, "purr"}}},
    {u"/hello"_s, u"hello there"_s, {}},
};
const QStringList anaCollections{u"Pets"_s, u"Personal"_s, u"Secret"_s};

void makeAna()
{
    Defaults defaults;
    fillProfile(defaults, u"ana"_s, anaShortcuts, anaCollections, {u"Secret"_s});
    DB db(defaults);
    db.activateProfile(u"ana"_s);
    CollectionRecord record;
    record.id = u"R1"_s;
    record.collection = u"Pets"_s;
    record.name = u"Tom"_s;
    record.alias = u"tom"_s;
    record.values = {{u"Details"_s, u"grey"_s}};
    record.files = {db.attachmentsDir() + u"/cat.png"_s};
    record.updatedAt = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
    db.setCollectionRecords({record});
    db.saveCollectionLibrary();
}

QString makeAnaBackup(const QString& target)
{
    makeAna();
    Defaults defaults;
    DB db(defaults, QString(), DB::Access::ReadOnly);
    db.activateProfile(u"ana"_s);
    const Result<QString> saved = makeProfileBackup({db.dir(), db.hiddenCollections(), target});
    return saved.ok() ? *saved : QString();
}

struct Opened
{
    Defaults defaults;
    DB db{defaults, QString(), DB::Access::ReadOnly};
    explicit Opened(const QString& identity) { db.activateProfile(identity); }
};

} // namespace

class TestProfileBackup : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void backupHoldsTheProfileFolder();
    void hostileBackups_data();
    void hostileBackups();
    void restoresIntoAnotherAccount();
    void attachmentConflicts_data();
    void attachmentConflicts();
    void keepsLastThreeBeforeRestore();
    void failedRestoreRemovesItsCopies();
    void worksOnAWorker_data();
    void worksOnAWorker();
    void tavoctlEndToEnd_data();
    void tavoctlEndToEnd();

private:
    QString temp(const QString& name) const { return QDir::tempPath() + u"/tests/"_s + name; }
};

void TestProfileBackup::init()
{
    wipeStore();
    QDir(QDir::tempPath() + u"/tests"_s).removeRecursively();
    QDir().mkpath(QDir::tempPath() + u"/tests"_s);
    QDir(QDir::homePath() + u"/Desktop"_s).removeRecursively();
    for (const QString& left : workFolders()) {
        QDir(QDir::tempPath() + u'/' + left).removeRecursively();
    }
}

void TestProfileBackup::backupHoldsTheProfileFolder()
{
    makeAna();
    const QString folder = profileFolder(u"ana"_s);
    // The store's bookkeeping stays out; a link would lead out of the profile.
    QVERIFY(writeFile(folder + u"/clips.json.lock"_s, "123"));
    QVERIFY(writeFile(folder + u"/clips.json.unreadable-20250101-000000-000"_s, "bad"));
    QVERIFY(writeFile(folder + u"/clips.before-restore-20250101-000000-000.json"_s, "[]"));
    QVERIFY(QFile::link(u"/etc/hostname"_s, folder + u"/Attachments/link.txt"_s));
    QVERIFY(writeFile(folder + u"/marketplace-listings.json"_s, "[]"));

    // Written into the profile folder itself, twice: the archive is never its own content.
    const QString target = folder + u"/inside.zip"_s;
    for (int round = 0; round < 2; ++round) {
        const Result<QString> saved = makeProfileBackup({folder, {u"Secret"_s}, target});
        QVERIFY2(saved.ok(), qPrintable(saved.ok() ? QString() : saved.error().description));
        QCOMPARE(*saved, target);
    }

    const auto reader = ZipReader::open(target);
    QVERIFY(reader.ok());
    QStringList names;
    for (const ZipEntry& entry : (*reader)->entries()) {
        names.append(entry.name + (entry.isFolder ? u"/"_s : QString()));
    }
    names.sort();
    const QString top = tavoProfileSlug(u"ana"_s);
    QStringList expected{u"/"_s,
                         u"/Attachments/"_s,
                         u"/Attachments/cat.png"_s,
                         u"/Attachments/purr.wav"_s,
                         u"/clips.json"_s,
                         u"/collection-definitions.json"_s,
                         u"/collection-records.json"_s,
                         u"/collections.json"_s,
                         u"/hidden-collections.json"_s,
                         u"/marketplace-listings.json"_s};
    for (QString& name : expected) {
        name.prepend(top);
    }
    QCOMPARE(names, expected);
    QCOMPARE(*(*reader)->read(top + u"/clips.json"_s, 1 << 20), readFile(folder + u"/clips.json"_s));
    QCOMPARE(*(*reader)->read(top + u"/Attachments/cat.png"_s, 1 << 20), QByteArray("ana's cat"));
    QCOMPARE(*(*reader)->read(top + u"/hidden-collections.json"_s, 1 << 20), QByteArray(R"(["Secret"])"));
}

void TestProfileBackup::hostileBackups_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("err"); // what standard error begins with
    QTest::addColumn<QString>("out");
    QTest::addColumn<int>("fault"); // why the archive itself was refused; 0 for the rest

    const QString notValid = u"This file is not a valid Tavo backup.\n"_s;
    const auto refused = [&](const char* name, const char* kind, ZipFault fault) {
        QTest::newRow(name) << QString::fromLatin1(kind) << 1 << notValid << QString() << int(fault);
    };
    refused("an absolute name", "absolute", ZipFault::UnsafeName);
    refused("a name that climbs out with ..", "parent", ZipFault::UnsafeName);
    refused("a symbolic link among the media", "link", ZipFault::UnsupportedEntry);
    refused("an encrypted clips.json", "encrypted", ZipFault::UnsupportedEntry);
    refused("media whose header under-declares its size", "lying", ZipFault::TooLarge);
    refused("a link stored by zip -y", "zipLink", ZipFault::UnsupportedEntry);
    refused("a file encrypted by zip -P", "zipPassword", ZipFault::UnsupportedEntry);
    refused("a file that is not a zip", "notZip", ZipFault::NotAZip);
    refused("a shortcut package has no clips.json", "package", ZipFault(0));
    QTest::newRow("a clips.json that is not a list of shortcuts")
        << u"badClips"_s << 1 << u"Restore failed: The shortcuts in the backup cannot be read.\n"_s << QString() << 0;
    QTest::newRow("a missing file") << u"missing"_s << 1 << u"Restore failed: The archive "_s << QString()
                                    << int(ZipFault::Unreadable);
    QTest::newRow("a backup made by zip -r is accepted")
        << u"zipTool"_s << 0 << QString() << u"Restored 1 shortcuts and media from backup.\n"_s << 0;
    QTest::newRow("a clips.json nested in folders is accepted")
        << u"nested"_s << 0 << QString() << u"Restored 1 shortcuts and media from backup.\n"_s << 0;
}

void TestProfileBackup::hostileBackups()
{
    QFETCH(QString, kind);
    QFETCH(int, status);
    QFETCH(QString, err);
    QFETCH(QString, out);
    QFETCH(int, fault);

    Defaults defaults;
    fillProfile(defaults, u"sam"_s, {{u"/mine"_s, u"kept"_s, {{u"cat.png"_s, "sam's cat"}}}}, {u"Work"_s}, {});
    signIn(u"sam"_s);

    const QString archive = temp(u"backup.zip"_s);
    const QByteArray clips = oneClipJson(u"/theirs"_s, {u"/home/x/Attachments/cat.png"_s, u"/etc/passwd"_s});
    const auto raw = [&](const QList<RawEntry>& entries) { QVERIFY(writeRaw(archive, entries)); };
    if (kind == u"absolute"_s) {
        raw({{"/P/clips.json", clips}});
    } else if (kind == u"parent"_s) {
        raw({{"P/../../clips.json", clips}});
    } else if (kind == u"link"_s) {
        raw({{"P/clips.json", clips}, {"P/Attachments/cat.png", "/etc/passwd", S_IFLNK | 0777}});
    } else if (kind == u"encrypted"_s) {
        if (!writeRaw(archive, {{"P/clips.json", clips, 0, true}})) {
            QSKIP("this libzip cannot write encrypted entries");
        }
    } else if (kind == u"lying"_s) {
        raw({{"P/Attachments/cat.png", QByteArray(8 * 1024 * 1024, '\0')}, {"P/clips.json", clips}});
        QVERIFY(underDeclareFirstSize(archive, 100));
    } else if (kind == u"package"_s) {
        raw({{"TavoCollectionShare-1/collection.json", R"({"title":"T","shortcuts":[]})"},
             {"TavoCollectionShare-1/Shortcut-001/shortcut.json", R"({"key":"/a","name":"a","text":"","group":"",
              "media":[]})"}});
    } else if (kind == u"notZip"_s) {
        QVERIFY(writeFile(archive, "key,text\n/a,b\n"));
    } else if (kind == u"badClips"_s) {
        raw({{"P/clips.json", R"({"key":"/a"})"}, {"P/Attachments/new.png", "new"}});
    } else if (kind.startsWith(u"zip"_s)) {
        const QString zip = QStandardPaths::findExecutable(u"zip"_s);
        if (zip.isEmpty()) {
            QSKIP("zip is installed by scripts/setup-deps");
        }
        const QString source = temp(u"P"_s);
        QVERIFY(writeFile(source + u"/clips.json"_s, clips));
        QVERIFY(writeFile(source + u"/Attachments/cat.png"_s, "their cat"));
        if (kind == u"zipLink"_s) {
            QVERIFY(QFile::link(u"/etc/passwd"_s, source + u"/Attachments/passwd"_s));
        }
        QStringList arguments{u"-q"_s, u"-r"_s};
        arguments << (kind == u"zipLink"_s       ? QStringList{u"-y"_s}
                      : kind == u"zipPassword"_s ? QStringList{u"-P"_s, u"secret"_s}
                                                 : QStringList{})
                  << archive << u"P"_s;
        QProcess process;
        process.setWorkingDirectory(temp(QString()));
        process.start(zip, arguments);
        QVERIFY(process.waitForFinished(30'000));
        QCOMPARE(process.exitCode(), 0);
    } else if (kind == u"nested"_s) {
        raw({{"Outer/Inner/P/clips.json", clips}, {"Outer/Inner/P/Attachments/cat.png", "their cat"}});
    }

    const QHash<QString, QByteArray> before = storeFiles();
    if (status != 0) {
        const Result<PreparedRestore> prepared = prepareRestore(archive, profileFolder(u"sam"_s) + u"/Attachments"_s);
        QVERIFY(!prepared.ok());
        QCOMPARE(prepared.error().code, fault);
    }
    const Run run = tavoctlInProcess({u"restore"_s, archive});
    QCOMPARE(run.status, status);
    QVERIFY2(run.err.startsWith(err), qPrintable(run.err));
    QCOMPARE(run.out, out);
    QCOMPARE(workFolders(), QStringList());
    if (status != 0) {
        QCOMPARE(storeFiles(), before);
        return;
    }
    // The nested backup came in: its cat beside Sam's, under a name of its own.
    const Opened sam(u"sam"_s);
    QCOMPARE(sam.db.clips().size(), 1);
    QCOMPARE(sam.db.clips().first().key, u"/theirs"_s);
    QCOMPARE(sam.db.clips().first().files.size(), 1);
    QCOMPARE(readFile(sam.db.clips().first().files.first()), QByteArray("their cat"));
    QCOMPARE(readFile(profileFolder(u"sam"_s) + u"/Attachments/cat.png"_s), QByteArray("sam's cat"));
}

void TestProfileBackup::restoresIntoAnotherAccount()
{
    const QString archive = makeAnaBackup(temp(u"ana.zip"_s));
    QVERIFY(!archive.isEmpty());

    Defaults defaults;
    fillProfile(defaults, u"sam"_s, {{u"/mine"_s, u"sam's"_s, {{u"notes.txt"_s, "sam's notes"}}}}, {u"Work"_s},
                {u"Work"_s});
    DB db(defaults);
    db.activateProfile(u"sam"_s);

    Result<PreparedRestore> prepared = prepareRestore(archive, db.attachmentsDir());
    QVERIFY2(prepared.ok(), qPrintable(prepared.ok() ? QString() : prepared.error().description));
    QCOMPARE(workFolders(), QStringList());
    // Nothing names the copies yet: the shortcuts are still Sam's.
    QCOMPARE(Opened(u"sam"_s).db.clips().first().key, u"/mine"_s);
    const Result<QString> restored = commitRestore(db, std::move(prepared).value());
    QVERIFY(restored.ok());
    QCOMPARE(*restored, u"Restored 2 shortcuts and media from backup."_s);

    // What the files say now, read afresh.
    const Opened sam(u"sam"_s);
    const Opened ana(u"ana"_s);
    QCOMPARE(sam.db.clips().size(), ana.db.clips().size());
    const QString samAttachments = sam.db.attachmentsDir() + u'/';
    for (qsizetype i = 0; i < ana.db.clips().size(); ++i) {
        const Clip& mine = sam.db.clips().at(i);
        const Clip& theirs = ana.db.clips().at(i);
        QCOMPARE(mine.id, theirs.id);
        QCOMPARE(mine.key, theirs.key);
        QCOMPARE(mine.text, theirs.text);
        QCOMPARE(mine.files.size(), theirs.files.size());
        for (qsizetype f = 0; f < mine.files.size(); ++f) {
            QCOMPARE(mine.files.at(f), samAttachments + QFileInfo(theirs.files.at(f)).fileName());
            QCOMPARE(readFile(mine.files.at(f)), readFile(theirs.files.at(f)));
        }
    }
    QCOMPARE(sam.db.collections(), anaCollections);
    QCOMPARE(defaults.stringList(u"tavoShortcutCollections."_s + tavoProfileSlug(u"sam"_s)), anaCollections);
    QCOMPARE(sam.db.hiddenCollections(), QStringList{u"Secret"_s});
    QCOMPARE(sam.db.collectionRecords().size(), 1);
    QCOMPARE(sam.db.collectionRecords().first().files, QStringList{samAttachments + u"cat.png"_s});
    QCOMPARE(sam.db.collectionDefinitions(), ana.db.collectionDefinitions());
    // Sam's own media stays where it was; Ana's profile is untouched by the restore.
    QCOMPARE(readFile(samAttachments + u"notes.txt"_s), QByteArray("sam's notes"));
    QCOMPARE(ana.db.clips().first().files.first(), ana.db.attachmentsDir() + u"/cat.png"_s);
}

void TestProfileBackup::attachmentConflicts_data()
{
    QTest::addColumn<QByteArray>("existing"); // what Sam's Attachments holds as cat.png; empty: nothing
    QTest::addColumn<bool>("sameName");       // the restored shortcut names cat.png itself
    QTest::addColumn<int>("copies");          // files the restore adds to Attachments

    QTest::newRow("a free name comes in as it is") << QByteArray() << true << 2;
    QTest::newRow("the same content is shared") << QByteArray("ana's cat") << true << 1;
    QTest::newRow("other content is kept and the backup's file renamed") << QByteArray("sam's cat") << false << 2;
}

void TestProfileBackup::attachmentConflicts()
{
    QFETCH(QByteArray, existing);
    QFETCH(bool, sameName);
    QFETCH(int, copies);

    const QString archive = makeAnaBackup(temp(u"ana.zip"_s));
    QVERIFY(!archive.isEmpty());
    Defaults defaults;
    QList<Shortcut> mine{{u"/mine"_s, u"sam's"_s, {}}};
    if (!existing.isEmpty()) {
        mine.first().media.append({u"cat.png"_s, existing});
    }
    fillProfile(defaults, u"sam"_s, mine, {u"Work"_s}, {});
    DB db(defaults);
    db.activateProfile(u"sam"_s);
    const QDir attachments(db.attachmentsDir());
    const QStringList before = attachments.entryList(QDir::Files);

    Result<PreparedRestore> prepared = prepareRestore(archive, db.attachmentsDir());
    QVERIFY(prepared.ok());
    QCOMPARE(prepared->copiedFiles.size(), copies);
    QVERIFY(commitRestore(db, std::move(prepared).value()).ok());

    QCOMPARE(attachments.entryList(QDir::Files).size(), before.size() + copies);
    const QString catPath = Opened(u"sam"_s).db.clips().first().files.first();
    QCOMPARE(readFile(catPath), QByteArray("ana's cat"));
    QCOMPARE(QFileInfo(catPath).fileName() == u"cat.png"_s, sameName);
    if (!sameName) {
        QVERIFY(QFileInfo(catPath).fileName().endsWith(u"-cat.png"_s));
    }
    if (!existing.isEmpty()) {
        QCOMPARE(readFile(attachments.filePath(u"cat.png"_s)), existing);
    }
}

void TestProfileBackup::keepsLastThreeBeforeRestore()
{
    const QString archive = makeAnaBackup(temp(u"ana.zip"_s));
    QVERIFY(!archive.isEmpty());
    Defaults defaults;
    fillProfile(defaults, u"sam"_s, {{u"/mine"_s, u"sam's"_s, {}}}, {u"Work"_s}, {});
    const QString folder = profileFolder(u"sam"_s);
    DB db(defaults);
    db.activateProfile(u"sam"_s);

    QList<QByteArray> replacedClips;
    QList<QByteArray> replacedCollections;
    for (int round = 0; round < 5; ++round) {
        // Each round restores over a different library, so each kept copy is told apart.
        QVERIFY(db.updateClips([&](QList<Clip>& clips) { clips.first().text = QString::number(round); }));
        db.setCollections({u"Round "_s + QString::number(round)});
        replacedClips.append(readFile(folder + u"/clips.json"_s));
        replacedCollections.append(readFile(folder + u"/collections.json"_s));
        Result<PreparedRestore> prepared = prepareRestore(archive, db.attachmentsDir());
        QVERIFY(prepared.ok());
        QVERIFY(commitRestore(db, std::move(prepared).value()).ok());
    }
    const auto kept = [&](const QString& stem) {
        QList<QByteArray> contents;
        const QStringList names = QDir(folder).entryList({stem + u".before-restore-*.json"_s}, QDir::Files, QDir::Name);
        for (const QString& name : names) {
            contents.append(readFile(folder + u'/' + name));
        }
        return contents;
    };
    QCOMPARE(kept(u"clips"_s), replacedClips.mid(2));
    QCOMPARE(kept(u"collections"_s), replacedCollections.mid(2));
    QCOMPARE(kept(u"collection-records"_s).size(), 3);
}

void TestProfileBackup::failedRestoreRemovesItsCopies()
{
    const QString archive = makeAnaBackup(temp(u"ana.zip"_s));
    QVERIFY(!archive.isEmpty());
    Defaults defaults;
    fillProfile(defaults, u"sam"_s, {{u"/mine"_s, u"sam's"_s, {{u"cat.png"_s, "sam's cat"}}}}, {u"Work"_s}, {});
    const QString clipsPath = profileFolder(u"sam"_s) + u"/clips.json"_s;
    const QByteArray clipsBefore = readFile(clipsPath);
    // A store that may not write: the shortcuts cannot be committed.
    DB db(defaults, QString(), DB::Access::ReadOnly);
    db.activateProfile(u"sam"_s);
    const QStringList before = QDir(db.attachmentsDir()).entryList(QDir::Files);

    Result<PreparedRestore> prepared = prepareRestore(archive, db.attachmentsDir());
    QVERIFY(prepared.ok());
    const QStringList copied = prepared->copiedFiles;
    QCOMPARE(copied.size(), 2);
    for (const QString& path : copied) {
        QVERIFY(QFileInfo::exists(path));
    }
    const Result<QString> restored = commitRestore(db, std::move(prepared).value());
    QVERIFY(!restored.ok());
    QCOMPARE(restored.error().description,
             u"Restore failed: The shortcuts could not be written in "_s + db.dir() + u"."_s);
    QCOMPARE(QDir(db.attachmentsDir()).entryList(QDir::Files), before);
    QCOMPARE(readFile(clipsPath), clipsBefore);
}

void TestProfileBackup::worksOnAWorker_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("status");

    QTest::newRow("backup") << u"backup"_s << u"Backup saved to sam.zip"_s;
    QTest::newRow("restore") << u"restore"_s << u"Restored 2 shortcuts and media from backup."_s;
}

void TestProfileBackup::worksOnAWorker()
{
    QFETCH(QString, action);
    QFETCH(QString, status);

    const QString archive = makeAnaBackup(temp(u"ana.zip"_s));
    QVERIFY(!archive.isEmpty());
    Defaults defaults;
    fillProfile(defaults, u"sam"_s, {{u"/mine"_s, u"sam's"_s, {}}}, {u"Work"_s}, {});
    DB db(defaults);
    db.activateProfile(u"sam"_s);
    QSignalSpy changed(&db, &DB::clipsChanged);

    std::optional<QString> told;
    QThread* doneOn = nullptr;
    const auto done = [&](const Result<QString>& result) {
        told = result.ok() ? *result : result.error().description;
        doneOn = QThread::currentThread();
    };
    if (action == u"backup"_s) {
        makeProfileBackupInBackground(db, temp(u"sam.zip"_s), done);
    } else {
        restoreProfileBackupInBackground(db, archive, done);
    }
    QVERIFY(!told); // the file work has only begun; the outcome comes back through the event loop
    QTRY_VERIFY(told.has_value());
    QCOMPARE(*told, status);
    QCOMPARE(doneOn, db.thread());
    if (action == u"backup"_s) {
        QCOMPARE(changed.count(), 0);
        QVERIFY(ZipReader::open(temp(u"sam.zip"_s)).ok());
    } else {
        QCOMPARE(changed.count(), 1);
        QCOMPARE(db.clips().first().key, u"/cat"_s);
        QCOMPARE(db.collections(), anaCollections);
    }
}

void TestProfileBackup::tavoctlEndToEnd_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QStringList>("arguments"); // "%home" and "%ana" stand for paths
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out"); // a regular expression over the whole output
    QTest::addColumn<QString>("err");

    const QString stamp = u"Tavo-Backup-\\d{4}-\\d\\d-\\d\\d-\\d{6}\\.zip"_s;
    QTest::newRow("backup without an account")
        << u"signedOut"_s << QStringList{u"backup"_s} << 1 << QString() << u"Sign in to Tavo first.\n"_s;
    QTest::newRow("restore without an account")
        << u"signedOut"_s << QStringList{u"restore"_s, u"%ana"_s} << 1 << QString() << u"Sign in to Tavo first.\n"_s;
    QTest::newRow("backup to home when there is no Desktop")
        << u""_s << QStringList{u"backup"_s} << 0 << (u"Backup saved to %home/"_s + stamp + u"\n"_s) << QString();
    QTest::newRow("backup to the Desktop") << u"desktop"_s << QStringList{u"backup"_s} << 0
                                           << (u"Backup saved to %home/Desktop/"_s + stamp + u"\n"_s) << QString();
    QTest::newRow("backup to a file, .zip added") << u""_s << QStringList{u"backup"_s, u"%home/mine"_s} << 0
                                                  << u"Backup saved to %home/mine\\.zip\n"_s << QString();
    QTest::newRow("restore a backup") << u""_s << QStringList{u"restore"_s, u"%ana"_s} << 0
                                      << u"Restored 2 shortcuts and media from backup\\.\n"_s << QString();
    QTest::newRow("restore a file that is not a backup")
        << u""_s << QStringList{u"restore"_s, u"%home/notes.txt"_s} << 1 << QString()
        << u"This file is not a valid Tavo backup.\n"_s;
}

void TestProfileBackup::tavoctlEndToEnd()
{
    QFETCH(QString, setup);
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, err);

    const QString home = QDir::homePath();
    const QString ana = makeAnaBackup(temp(u"ana.zip"_s));
    QVERIFY(!ana.isEmpty());
    Defaults defaults;
    fillProfile(defaults, u"sam"_s, {{u"/mine"_s, u"sam's"_s, {{u"cat.png"_s, "sam's cat"}}}}, {u"Work"_s}, {});
    signIn(u"sam"_s);
    if (setup == u"signedOut"_s) {
        Defaults signedIn;
        TavoAccountStore(signedIn).signOut();
    } else if (setup == u"desktop"_s) {
        QVERIFY(QDir().mkpath(home + u"/Desktop"_s));
    }
    QVERIFY(writeFile(home + u"/notes.txt"_s, "not a zip"));
    for (QString& argument : arguments) {
        argument.replace(u"%home"_s, home).replace(u"%ana"_s, ana);
    }

    const Run run = tavoctlBinary(arguments);
    QCOMPARE(run.err, err);
    QCOMPARE(run.status, status);
    const QRegularExpression expected(
        QRegularExpression::anchoredPattern(QString(out).replace(u"%home"_s, QRegularExpression::escape(home))));
    QVERIFY2(expected.match(run.out).hasMatch(), qPrintable(run.out));
    if (status != 0) {
        return;
    }

    if (arguments.first() == u"backup"_s) {
        const QString saved = run.out.mid(QStringLiteral("Backup saved to ").size()).trimmed();
        const auto reader = ZipReader::open(saved);
        QVERIFY(reader.ok());
        const QString top = tavoProfileSlug(u"sam"_s);
        QCOMPARE(*(*reader)->read(top + u"/Attachments/cat.png"_s, 1024), QByteArray("sam's cat"));
        QCOMPARE(*(*reader)->read(top + u"/clips.json"_s, 1 << 20),
                 readFile(profileFolder(u"sam"_s) + u"/clips.json"_s));
        const QString unzip = QStandardPaths::findExecutable(u"unzip"_s);
        if (!unzip.isEmpty()) {
            QProcess check;
            check.start(unzip, {u"-tqq"_s, saved});
            QVERIFY(check.waitForFinished(30'000));
            QCOMPARE(check.exitCode(), 0);
        }
        // What tavoctl saved restores again into the same account, unchanged.
        const QList<Clip> clips = Opened(u"sam"_s).db.clips();
        QCOMPARE(tavoctlBinary({u"restore"_s, saved}).out, u"Restored 1 shortcuts and media from backup.\n"_s);
        QCOMPARE(Opened(u"sam"_s).db.clips(), clips);
    } else {
        const Opened sam(u"sam"_s);
        QCOMPARE(sam.db.clips().size(), 2);
        QCOMPARE(sam.db.clips().first().key, u"/cat"_s);
        QCOMPARE(sam.db.collections(), anaCollections);
    }
}

QTEST_GUILESS_MAIN(TestProfileBackup)
#include "tst_profile_backup.moc"
