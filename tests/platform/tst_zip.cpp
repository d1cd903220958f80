#include "platform/zip/zip_reader.h"
#include "platform/zip/zip_writer.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <zip.h>

#include <sys/stat.h>

using namespace tavo;

namespace {

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
}

QByteArray readBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// An entry written with raw libzip, so tests can make archives the writer refuses to make.
struct RawEntry
{
    QByteArray name; // raw bytes, as stored
    QByteArray data;
    bool folder = false;
    quint32 unixMode = 0; // file type and permissions; 0 keeps libzip's default
    bool encrypted = false;
    int method = -1; // ZIP_CM_*; -1 keeps libzip's default
};

bool writeRaw(const QString& path, const QList<RawEntry>& entries)
{
    zip_t* archive = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
    if (!archive) {
        return false;
    }
    QList<QByteArray> kept;
    for (const RawEntry& entry : entries) {
        zip_int64_t index = -1;
        if (entry.folder) {
            index = zip_dir_add(archive, entry.name.constData(), ZIP_FL_ENC_RAW);
        } else {
            kept.append(entry.data);
            zip_source_t* source = zip_source_buffer(archive, kept.last().constData(), kept.last().size(), 0);
            index = zip_file_add(archive, entry.name.constData(), source, ZIP_FL_ENC_RAW);
            if (index < 0) {
                zip_source_free(source);
            }
        }
        if (index < 0) {
            zip_discard(archive);
            return false;
        }
        if (entry.unixMode != 0 && zip_file_set_external_attributes(archive, zip_uint64_t(index), 0, ZIP_OPSYS_UNIX,
                                                                    entry.unixMode << 16) < 0) {
            zip_discard(archive);
            return false;
        }
        if (entry.method >= 0 && zip_set_file_compression(archive, zip_uint64_t(index), entry.method, 0) < 0) {
            zip_discard(archive);
            return false;
        }
        if (entry.encrypted && zip_file_set_encryption(archive, zip_uint64_t(index), ZIP_EM_AES_256, "secret") < 0) {
            zip_discard(archive);
            return false;
        }
    }
    return zip_close(archive) == 0;
}

void putLittleEndian32(QByteArray& bytes, qsizetype at, quint32 value)
{
    for (int i = 0; i < 4; ++i) {
        bytes[at + i] = char((value >> (8 * i)) & 0xff);
    }
}

// Rewrites the uncompressed size of the only entry in both its local and its central header,
// as a zip bomb that lies about its size would.
bool underDeclareSize(const QString& path, quint32 declared)
{
    QByteArray bytes = readBytes(path);
    const qsizetype local = bytes.indexOf(QByteArray("PK\x03\x04", 4));
    const qsizetype central = bytes.indexOf(QByteArray("PK\x01\x02", 4));
    if (local != 0 || central < 0) {
        return false;
    }
    putLittleEndian32(bytes, local + 22, declared);
    putLittleEndian32(bytes, central + 24, declared);
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QStringList listing(const ZipReader& reader)
{
    QStringList names;
    for (const ZipEntry& entry : reader.entries()) {
        names.append(entry.name + (entry.isFolder ? QStringLiteral("/") : QString()));
    }
    return names;
}

int compressionOf(const QString& path, const QByteArray& name)
{
    zip_t* archive = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, nullptr);
    if (!archive) {
        return -1;
    }
    zip_stat_t stat;
    const int method = zip_stat(archive, name.constData(), 0, &stat) == 0 ? stat.comp_method : -1;
    zip_discard(archive);
    return method;
}

} // namespace

class TestZip : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void writeThenRead_data();
    void writeThenRead();
    void writerRefuses_data();
    void writerRefuses();
    void writerNeverLeavesHalfArchive_data();
    void writerNeverLeavesHalfArchive();
    void readerRefuses_data();
    void readerRefuses();
    void readCap_data();
    void readCap();
    void extraction_data();
    void extraction();
    void otherToolsAgree_data();
    void otherToolsAgree();

private:
    QString path(const QString& name) const { return m_dir->path() + u'/' + name; }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestZip::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

// Entries are "name=content" (bytes), "name<file" (from disk, content after '<'), or "name/" (a folder).
void TestZip::writeThenRead_data()
{
    QTest::addColumn<QStringList>("added");
    QTest::addColumn<QStringList>("expectedListing");

    QTest::newRow("bytes and a folder") << QStringList{u"Top/"_qs, u"Top/clips.json={\"a\":1}"_qs}
                                        << QStringList{u"Top/"_qs, u"Top/clips.json"_qs};
    QTest::newRow("a missing parent folder gets its own entry")
        << QStringList{u"Top/Media/a.txt=hello"_qs} << QStringList{u"Top/"_qs, u"Top/Media/"_qs, u"Top/Media/a.txt"_qs};
    QTest::newRow("files streamed from disk") << QStringList{u"one.txt<first file"_qs, u"two.bin<\x01\x02\x03"_qs}
                                              << QStringList{u"one.txt"_qs, u"two.bin"_qs};
    QTest::newRow("an empty file") << QStringList{u"empty.txt="_qs} << QStringList{u"empty.txt"_qs};
    QTest::newRow("a UTF-8 name") << QStringList{u"Café/naïve ✓.txt=ü"_qs}
                                  << QStringList{u"Café/"_qs, u"Café/naïve ✓.txt"_qs};
    QTest::newRow("a folder named twice is one folder")
        << QStringList{u"A/"_qs, u"A/"_qs, u"A/x=1"_qs} << QStringList{u"A/"_qs, u"A/x"_qs};
    QTest::newRow("no entries at all") << QStringList{} << QStringList{};
}

void TestZip::writeThenRead()
{
    QFETCH(QStringList, added);
    QFETCH(QStringList, expectedListing);

    const QString target = path(QStringLiteral("out.zip"));
    QHash<QString, QByteArray> contents;
    {
        ZipWriter writer(target);
        for (const QString& step : added) {
            std::optional<TavoError> error;
            if (step.contains(u'=')) {
                const QString name = step.section(u'=', 0, 0);
                contents[name] = step.section(u'=', 1).toUtf8();
                error = writer.addBytes(contents[name], name);
            } else if (step.contains(u'<')) {
                const QString name = step.section(u'<', 0, 0);
                contents[name] = step.section(u'<', 1).toUtf8();
                const QString source = path(QStringLiteral("sources/") + name);
                writeBytes(source, contents[name]);
                error = writer.addFile(source, name, ZipWriter::Compression::Store);
            } else {
                error = writer.addFolder(step);
            }
            QVERIFY2(!error, qPrintable(error ? error->description : QString()));
        }
        const std::optional<TavoError> committed = writer.commit();
        QVERIFY2(!committed, qPrintable(committed ? committed->description : QString()));
    }
    QVERIFY(QFileInfo::exists(target));
    QVERIFY(!QFileInfo::exists(path(QStringLiteral(".out.zip.part"))));

    const auto reader = ZipReader::open(target);
    QVERIFY2(reader.ok(), qPrintable(reader.ok() ? QString() : reader.error().description));
    QCOMPARE(listing(**reader), expectedListing);
    for (auto it = contents.cbegin(); it != contents.cend(); ++it) {
        const Result<QByteArray> bytes = (*reader)->read(it.key(), 1024);
        QVERIFY2(bytes.ok(), qPrintable(it.key()));
        QCOMPARE(*bytes, it.value());
        // Bytes are deflated, files from disk here stored, as JSON and media are.
        const bool fromDisk = added.contains(it.key() + u'<' + QString::fromUtf8(it.value()));
        QCOMPARE(compressionOf(target, it.key().toUtf8()), fromDisk ? ZIP_CM_STORE : ZIP_CM_DEFLATE);
    }
}

void TestZip::writerRefuses_data()
{
    QTest::addColumn<QStringList>("added");

    QTest::newRow("an absolute name") << QStringList{u"/etc/passwd=x"_qs};
    QTest::newRow("a parent component") << QStringList{u"../evil=x"_qs};
    QTest::newRow("a parent component inside") << QStringList{u"a/../../evil=x"_qs};
    QTest::newRow("a backslash") << QStringList{u"a\\b=x"_qs};
    QTest::newRow("an empty component") << QStringList{u"a//b=x"_qs};
    QTest::newRow("a dot component") << QStringList{u"./a=x"_qs};
    QTest::newRow("a drive letter") << QStringList{u"C:/a=x"_qs};
    QTest::newRow("an empty name") << QStringList{u"=x"_qs};
    QTest::newRow("the same name twice") << QStringList{u"a.txt=1"_qs, u"a.txt=2"_qs};
    QTest::newRow("names that differ only by case") << QStringList{u"Read.me=1"_qs, u"READ.ME=2"_qs};
    QTest::newRow("names that differ only by normalisation") << QStringList{u"caf\u00e9=1"_qs, u"cafe\u0301=2"_qs};
    QTest::newRow("a file used as a folder") << QStringList{u"a=1"_qs, u"a/b=2"_qs};
    QTest::newRow("a missing file on disk") << QStringList{u"gone.txt<"_qs};
    QTest::newRow("the archive itself") << QStringList{u"self<"_qs};
}

void TestZip::writerRefuses()
{
    QFETCH(QStringList, added);

    const QString target = path(QStringLiteral("out.zip"));
    ZipWriter writer(target);
    std::optional<TavoError> error;
    for (const QString& step : added) {
        if (step == QLatin1StringView("gone.txt<")) {
            error = writer.addFile(path(QStringLiteral("gone.txt")), QStringLiteral("gone.txt"));
        } else if (step == QLatin1StringView("self<")) {
            writeBytes(target, "old");
            error = writer.addFile(target, QStringLiteral("self.zip"));
        } else {
            error = writer.addBytes(step.section(u'=', 1).toUtf8(), step.section(u'=', 0, 0));
        }
    }
    QVERIFY(error);
    QCOMPARE(error->domain, QStringLiteral("TavoArchive"));
    QVERIFY(!error->description.isEmpty());
    // The first failure sticks: nothing is committed after it.
    QVERIFY(writer.commit());
    if (added.contains(u"self<"_qs)) {
        QCOMPARE(readBytes(target), QByteArray("old"));
    } else {
        QVERIFY(!QFileInfo::exists(target));
    }
    QVERIFY(!QFileInfo::exists(writer.partialPath()));
}

void TestZip::writerNeverLeavesHalfArchive_data()
{
    QTest::addColumn<QString>("ending");
    QTest::addColumn<bool>("targetExisted");
    QTest::addColumn<QByteArray>("expectedTarget"); // "old", "new" or empty for none

    QTest::newRow("dropped without commit") << u"drop"_qs << false << QByteArray();
    QTest::newRow("dropped without commit keeps the old archive") << u"drop"_qs << true << QByteArray("old");
    QTest::newRow("a failed entry keeps the old archive") << u"fail"_qs << true << QByteArray("old");
    QTest::newRow("a source removed before commit") << u"vanish"_qs << false << QByteArray();
    QTest::newRow("a commit replaces the old archive") << u"commit"_qs << true << QByteArray("new");
}

void TestZip::writerNeverLeavesHalfArchive()
{
    QFETCH(QString, ending);
    QFETCH(bool, targetExisted);
    QFETCH(QByteArray, expectedTarget);

    const QString target = path(QStringLiteral("backup.zip"));
    const QByteArray old = "not replaced";
    if (targetExisted) {
        writeBytes(target, old);
    }
    const QString source = path(QStringLiteral("media.bin"));
    writeBytes(source, QByteArray(100'000, 'm'));
    QString partial;
    {
        ZipWriter writer(target);
        partial = writer.partialPath();
        QVERIFY(!writer.addBytes("new", QStringLiteral("Top/clips.json")));
        QVERIFY(!writer.addFile(source, QStringLiteral("Top/media.bin"), ZipWriter::Compression::Store));
        QVERIFY(QFileInfo(partial).dir() == QFileInfo(target).dir());
        if (ending == QLatin1StringView("fail")) {
            QVERIFY(writer.addBytes("x", QStringLiteral("../x")));
        } else if (ending == QLatin1StringView("vanish")) {
            QVERIFY(QFile::remove(source));
            QVERIFY(writer.commit());
        } else if (ending == QLatin1StringView("commit")) {
            QVERIFY(!writer.commit());
        }
    }
    QVERIFY(!QFileInfo::exists(partial));
    QCOMPARE(QDir(m_dir->path()).entryList(QStringList{QStringLiteral("*.part*")}, QDir::Files | QDir::Hidden),
             QStringList());
    if (expectedTarget.isEmpty()) {
        QVERIFY(!QFileInfo::exists(target));
    } else if (expectedTarget == "old") {
        QCOMPARE(readBytes(target), old);
    } else {
        const auto reader = ZipReader::open(target);
        QVERIFY(reader.ok());
        QCOMPARE(*(*reader)->read(QStringLiteral("Top/clips.json"), 100), QByteArray("new"));
        QCOMPARE((*reader)->read(QStringLiteral("Top/media.bin"), 200'000)->size(), 100'000);
    }
}

void TestZip::readerRefuses_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("fault");
    QTest::addColumn<bool>("atOpen"); // refused on open, before anything is read

    const auto row = [](const char* name, const char* kind, ZipFault fault, bool atOpen = true) {
        QTest::newRow(name) << QString::fromLatin1(kind) << int(fault) << atOpen;
    };
    row("an entry that climbs out with ../", "parent", ZipFault::UnsafeName);
    row("an entry that climbs out from inside a folder", "nestedParent", ZipFault::UnsafeName);
    row("an absolute path", "absolute", ZipFault::UnsafeName);
    row("a backslash path that climbs out", "backslash", ZipFault::UnsafeName);
    row("a name that is not UTF-8", "latin1", ZipFault::UnsafeName);
    row("a symbolic link", "symlink", ZipFault::UnsupportedEntry);
    row("a named pipe", "fifo", ZipFault::UnsupportedEntry);
    row("an encrypted entry", "encrypted", ZipFault::UnsupportedEntry);
    row("a compression method other than stored or deflate", "bzip2", ZipFault::UnsupportedEntry);
    row("names that differ only by case", "caseDuplicate", ZipFault::Duplicate);
    row("names that differ only by normalisation", "nfdDuplicate", ZipFault::Duplicate);
    row("a folder named twice", "folderDuplicate", ZipFault::Duplicate);
    row("a file also used as a folder", "fileAsFolder", ZipFault::Duplicate);
    row("more entries than allowed", "manyEntries", ZipFault::TooManyEntries);
    row("a declared total over the cap", "declaredTotal", ZipFault::TooLarge);
    row("a large entry with an implausible ratio", "ratioBomb", ZipFault::TooLarge);
    row("a bomb whose header under-declares its size", "lyingBomb", ZipFault::TooLarge, false);
    row("a truncated archive", "truncated", ZipFault::NotAZip);
    row("a damaged entry", "damagedData", ZipFault::Corrupt, false);
    row("a file that is not a zip", "notZip", ZipFault::NotAZip);
    row("a missing file", "missing", ZipFault::Unreadable);
}

void TestZip::readerRefuses()
{
    QFETCH(QString, kind);
    QFETCH(int, fault);
    QFETCH(bool, atOpen);

    const QString archive = path(QStringLiteral("hostile.zip"));
    ZipLimits limits;
    limits.maxEntries = 5;
    limits.maxTotalBytes = 1024 * 1024;
    limits.ratioCheckedAbove = 64 * 1024;
    limits.diskReserveBytes = 0;
    const QByteArray zeros(512 * 1024, '\0');

    const auto raw = [&](const QList<RawEntry>& entries) { QVERIFY(writeRaw(archive, entries)); };
    if (kind == QLatin1StringView("parent")) {
        raw({{"../evil", "owned"}});
    } else if (kind == QLatin1StringView("nestedParent")) {
        raw({{"a/", {}, true}, {"a/../../evil", "owned"}});
    } else if (kind == QLatin1StringView("absolute")) {
        raw({{"/tmp/evil", "owned"}});
    } else if (kind == QLatin1StringView("backslash")) {
        raw({{"..\\evil", "owned"}});
    } else if (kind == QLatin1StringView("latin1")) {
        raw({{"caf\xe9.txt", "x"}});
    } else if (kind == QLatin1StringView("symlink")) {
        raw({{"link", "/etc/passwd", false, S_IFLNK | 0777}});
    } else if (kind == QLatin1StringView("fifo")) {
        raw({{"pipe", "", false, S_IFIFO | 0644}});
    } else if (kind == QLatin1StringView("encrypted")) {
        if (!writeRaw(archive, {{"secret.txt", "hidden", false, 0, true}})) {
            QSKIP("this libzip cannot write encrypted entries");
        }
    } else if (kind == QLatin1StringView("bzip2")) {
        if (!writeRaw(archive, {{"packed.txt", QByteArray(1000, 'b'), false, 0, false, ZIP_CM_BZIP2}})) {
            QSKIP("this libzip cannot write bzip2 entries");
        }
    } else if (kind == QLatin1StringView("caseDuplicate")) {
        raw({{"Notes.txt", "1"}, {"notes.TXT", "2"}});
    } else if (kind == QLatin1StringView("nfdDuplicate")) {
        raw({{"caf\xc3\xa9", "1"}, {"cafe\xcc\x81", "2"}});
    } else if (kind == QLatin1StringView("folderDuplicate")) {
        raw({{"a/", {}, true}, {"A/", {}, true}});
    } else if (kind == QLatin1StringView("fileAsFolder")) {
        raw({{"a", "1"}, {"a/b", "2"}});
    } else if (kind == QLatin1StringView("manyEntries")) {
        raw({{"1", "1"}, {"2", "2"}, {"3", "3"}, {"4", "4"}, {"5", "5"}, {"6", "6"}});
    } else if (kind == QLatin1StringView("declaredTotal")) {
        raw({{"a", QByteArray(600 * 1024, 'a')}, {"b", QByteArray(600 * 1024, 'b')}});
    } else if (kind == QLatin1StringView("ratioBomb")) {
        raw({{"zeros", zeros}});
    } else if (kind == QLatin1StringView("lyingBomb")) {
        // 8 MiB of zeros whose headers say 100 bytes: over every cap if read to the end.
        raw({{"bomb", QByteArray(8 * 1024 * 1024, '\0')}});
        QVERIFY(underDeclareSize(archive, 100));
    } else if (kind == QLatin1StringView("truncated")) {
        raw({{"a.txt", QByteArray(4096, 'a')}, {"b.txt", QByteArray(4096, 'b')}});
        QByteArray bytes = readBytes(archive);
        writeBytes(archive, bytes.left(bytes.size() / 2));
    } else if (kind == QLatin1StringView("damagedData")) {
        QByteArray text;
        for (int i = 0; i < 2000; ++i) {
            text += QByteArray::number(i) + ' ';
        }
        raw({{"text.txt", text}});
        QByteArray bytes = readBytes(archive);
        for (qsizetype at = 60; at < 200; ++at) {
            bytes[at] = char(bytes[at] ^ 0x5a);
        }
        writeBytes(archive, bytes);
    } else if (kind == QLatin1StringView("notZip")) {
        writeBytes(archive, "name,text\n/hi,hello\n");
    }

    const QString canary = path(QStringLiteral("canary.txt"));
    writeBytes(canary, "untouched");
    const QString target = path(QStringLiteral("unpacked"));

    const auto reader = ZipReader::open(archive, limits);
    if (atOpen) {
        QVERIFY(!reader.ok());
        QCOMPARE(reader.error().code, fault);
        QCOMPARE(reader.error().domain, QStringLiteral("TavoArchive"));
        QVERIFY(!reader.error().description.isEmpty());
    } else {
        QVERIFY2(reader.ok(), qPrintable(reader.ok() ? QString() : reader.error().description));
        const std::optional<TavoError> error = (*reader)->extractAll(target);
        QVERIFY(error);
        QCOMPARE(error->code, fault);
        const Result<QByteArray> bytes = (*reader)->read((*reader)->entries().first().name, 64 * 1024 * 1024);
        QVERIFY(!bytes.ok());
        QCOMPARE(bytes.error().code, fault);
    }
    QVERIFY(!QFileInfo::exists(target));
    QCOMPARE(readBytes(canary), QByteArray("untouched"));
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("evil"))));
    QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/evil")));
}

void TestZip::readCap_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<qint64>("cap");
    QTest::addColumn<int>("fault"); // 0 when the read succeeds

    QTest::newRow("a file within the cap") << u"Top/data.json"_qs << qint64(10) << 0;
    QTest::newRow("a file exactly at the cap") << u"Top/data.json"_qs << qint64(7) << 0;
    QTest::newRow("a file over the cap") << u"Top/data.json"_qs << qint64(6) << int(ZipFault::TooLarge);
    QTest::newRow("a name in another case finds the file") << u"top/DATA.json"_qs << qint64(10) << 0;
    QTest::newRow("a folder is not a file") << u"Top"_qs << qint64(10) << int(ZipFault::NoSuchEntry);
    QTest::newRow("an absent name") << u"Top/other.json"_qs << qint64(10) << int(ZipFault::NoSuchEntry);
    QTest::newRow("resource forks are left out")
        << u"__MACOSX/Top/._data.json"_qs << qint64(10) << int(ZipFault::NoSuchEntry);
}

void TestZip::readCap()
{
    QFETCH(QString, name);
    QFETCH(qint64, cap);
    QFETCH(int, fault);

    const QString archive = path(QStringLiteral("package.zip"));
    QVERIFY(writeRaw(archive, {{"Top/", {}, true},
                               {"Top/data.json", "{\"a\":1}"},
                               {"__MACOSX/", {}, true},
                               {"__MACOSX/Top/", {}, true},
                               {"__MACOSX/Top/._data.json", "fork"}}));
    const auto reader = ZipReader::open(archive);
    QVERIFY(reader.ok());
    QCOMPARE(listing(**reader), (QStringList{u"Top/"_qs, u"Top/data.json"_qs}));
    const Result<QByteArray> bytes = (*reader)->read(name, cap);
    if (fault == 0) {
        QVERIFY(bytes.ok());
        QCOMPARE(*bytes, QByteArray("{\"a\":1}"));
    } else {
        QVERIFY(!bytes.ok());
        QCOMPARE(bytes.error().code, fault);
    }
}

void TestZip::extraction_data()
{
    QTest::addColumn<bool>("targetExists");
    QTest::addColumn<int>("fault");

    QTest::newRow("into a fresh folder") << false << 0;
    QTest::newRow("never into an existing folder") << true << int(ZipFault::WriteFailed);
}

void TestZip::extraction()
{
    QFETCH(bool, targetExists);
    QFETCH(int, fault);

    const QString archive = path(QStringLiteral("package.zip"));
    {
        ZipWriter writer(archive);
        QVERIFY(!writer.addBytes("{}", QStringLiteral("Pack/clips.json")));
        QVERIFY(!writer.addBytes(QByteArray(300'000, 'p'), QStringLiteral("Pack/Media/photo.png"),
                                 ZipWriter::Compression::Store));
        QVERIFY(!writer.addFolder(QStringLiteral("Pack/Empty")));
        QVERIFY(!writer.commit());
    }
    const QString target = path(QStringLiteral("work"));
    if (targetExists) {
        writeBytes(target + QStringLiteral("/mine.txt"), "mine");
    }
    const auto reader = ZipReader::open(archive);
    QVERIFY(reader.ok());
    const std::optional<TavoError> error = (*reader)->extractAll(target);
    if (fault != 0) {
        QVERIFY(error);
        QCOMPARE(error->code, fault);
        QCOMPARE(QDir(target).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{u"mine.txt"_qs});
        return;
    }
    QVERIFY2(!error, qPrintable(error ? error->description : QString()));
    QCOMPARE(readBytes(target + QStringLiteral("/Pack/clips.json")), QByteArray("{}"));
    QCOMPARE(readBytes(target + QStringLiteral("/Pack/Media/photo.png")), QByteArray(300'000, 'p'));
    QVERIFY(QFileInfo(target + QStringLiteral("/Pack/Empty")).isDir());
    // Private to the user, whatever the archive stored.
    QCOMPARE(QFileInfo(target).permissions() & (QFile::ReadGroup | QFile::ReadOther | QFile::ExeOther),
             QFile::Permissions());
}

void TestZip::otherToolsAgree_data()
{
    QTest::addColumn<QString>("direction");

    QTest::newRow("unzip tests what the writer made") << u"written"_qs;
    QTest::newRow("the reader takes what zip -r made") << u"read"_qs;
}

void TestZip::otherToolsAgree()
{
    QFETCH(QString, direction);

    const QString tool =
        QStandardPaths::findExecutable(direction == QLatin1StringView("written") ? u"unzip"_qs : u"zip"_qs);
    if (tool.isEmpty()) {
        QSKIP("zip and unzip are installed by scripts/setup-deps");
    }
    const QString archive = path(QStringLiteral("tools.zip"));
    QProcess process;
    process.setWorkingDirectory(m_dir->path());
    if (direction == QLatin1StringView("written")) {
        ZipWriter writer(archive);
        QVERIFY(!writer.addBytes("{\"k\":1}", QStringLiteral("Top/clips.json")));
        QVERIFY(!writer.addBytes(QByteArray(70'000, 'z'), QStringLiteral("Top/Media/z.bin"),
                                 ZipWriter::Compression::Store));
        QVERIFY(!writer.commit());
        process.start(tool, {QStringLiteral("-t"), archive});
        QVERIFY(process.waitForFinished(30'000));
        QCOMPARE(process.exitCode(), 0);
        return;
    }
    writeBytes(path(QStringLiteral("Src/clips.json")), "[]");
    writeBytes(path(QStringLiteral("Src/Media/a.png")), QByteArray(5000, 'a'));
    process.start(tool, {QStringLiteral("-q"), QStringLiteral("-r"), archive, QStringLiteral("Src")});
    QVERIFY(process.waitForFinished(30'000));
    QCOMPARE(process.exitCode(), 0);
    const auto reader = ZipReader::open(archive);
    QVERIFY2(reader.ok(), qPrintable(reader.ok() ? QString() : reader.error().description));
    QVERIFY(!(*reader)->extractAll(path(QStringLiteral("out"))));
    QCOMPARE(readBytes(path(QStringLiteral("out/Src/Media/a.png"))), QByteArray(5000, 'a'));
    QCOMPARE(readBytes(path(QStringLiteral("out/Src/clips.json"))), QByteArray("[]"));
}

QTEST_GUILESS_MAIN(TestZip)
#include "tst_zip.moc"
