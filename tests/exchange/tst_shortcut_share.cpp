#include "exchange/shortcut_share.h"
#include "platform/zip/zip_reader.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

#include <zip.h>

#include <functional>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

QString home()
{
    return qEnvironmentVariable("HOME");
}

QString fixtures()
{
    return home() + u"/fixtures"_s;
}

QString attachments()
{
    return home() + u"/library/Attachments"_s;
}

QString canary()
{
    return home() + u"/canary"_s;
}

bool writeBytes(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every file below `root` with its content, so a test can tell that nothing there changed.
QMap<QString, QByteArray> snapshot(const QString& root)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files.insert(path, readBytes(path));
    }
    return files;
}

// What the temporary folder holds apart from packages made on purpose: work folders and partial
// archives left behind.
QStringList leftInTemp()
{
    QStringList left =
        QDir(QDir::tempPath()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    left.removeIf([](const QString& name) { return name.startsWith(u"Tavo-"_s) && name.endsWith(u".zip"_s); });
    return left;
}

QByteArray sharedJson(const QString& key, const QStringList& media, const QString& extra = {})
{
    QByteArray json = "{\"key\":\"" + key.toUtf8() + "\",\"name\":\"n\",\"text\":\"\",\"group\":\"Work\",\"media\":[";
    for (qsizetype i = 0; i < media.size(); ++i) {
        json += (i ? ",\"" : "\"") + media[i].toUtf8() + '"';
    }
    return json + "]" + extra.toUtf8() + "}";
}

QByteArray bundleJson(const QList<QByteArray>& shortcuts)
{
    QByteArray json = "{\"title\":\"T\",\"shortcuts\":[";
    for (qsizetype i = 0; i < shortcuts.size(); ++i) {
        json += (i ? "," : "") + shortcuts[i];
    }
    return json + "]}";
}

// An entry written with raw libzip, so tests can make archives Tavo would never write.
struct RawEntry
{
    QByteArray name; // raw bytes, as stored
    QByteArray data;
    bool folder = false;
};

bool writeRaw(const QString& path, const QList<RawEntry>& entries)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    zip_t* archive = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
    if (!archive) {
        return false;
    }
    for (const RawEntry& entry : entries) {
        zip_int64_t index = -1;
        if (entry.folder) {
            index = zip_dir_add(archive, entry.name.constData(), ZIP_FL_ENC_RAW);
        } else {
            // libzip copies nothing until the close, so the bytes must outlive this loop.
            void* copy = malloc(size_t(qMax<qsizetype>(1, entry.data.size())));
            memcpy(copy, entry.data.constData(), size_t(entry.data.size()));
            zip_source_t* source = zip_source_buffer(archive, copy, zip_uint64_t(entry.data.size()), 1);
            index = zip_file_add(archive, entry.name.constData(), source, ZIP_FL_ENC_RAW);
            if (index < 0) {
                zip_source_free(source);
            }
        }
        if (index < 0) {
            zip_discard(archive);
            return false;
        }
    }
    return zip_close(archive) == 0;
}

// The uncompressed size of the archive's first entry rewritten in its local and central header,
// as a zip bomb that lies about its size would.
bool underDeclareFirstSize(const QString& path, quint32 declared)
{
    QByteArray bytes = readBytes(path);
    const qsizetype local = bytes.indexOf(QByteArray("PK\x03\x04", 4));
    const qsizetype central = bytes.indexOf(QByteArray("PK\x01\x02", 4));
    if (local != 0 || central < 0) {
        return false;
    }
    for (int i = 0; i < 4; ++i) {
        bytes[local + 22 + i] = char((declared >> (8 * i)) & 0xff);
        bytes[central + 24 + i] = char((declared >> (8 * i)) & 0xff);
    }
    return writeBytes(path, bytes);
}

// Runs the zip tool in `folder`.
bool zipTool(const QString& folder, const QStringList& arguments)
{
    QProcess process;
    process.setWorkingDirectory(folder);
    process.start(u"zip"_s, arguments);
    return process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

// A package folder tree in the fixtures made by other tools: one shortcut with one file.
QString packageTree()
{
    const QString top = fixtures() + u"/tree/Top"_s;
    writeBytes(top + u"/collection.json"_s, bundleJson({sharedJson(u"/fromzip"_s, {u"01-a.png"_s})}));
    writeBytes(top + u"/Shortcut-001/shortcut.json"_s, sharedJson(u"/fromzip"_s, {u"01-a.png"_s}));
    writeBytes(top + u"/Shortcut-001/Media/01-a.png"_s, "Z");
    return fixtures() + u"/tree"_s;
}

QStringList keysOf(const QList<Clip>& clips)
{
    QStringList keys;
    for (const Clip& clip : clips) {
        keys.append(clip.key);
    }
    return keys;
}

QStringList contentsOf(const QList<Clip>& clips)
{
    QStringList contents;
    for (const Clip& clip : clips) {
        for (const QString& file : clip.files) {
            contents.append(QString::fromUtf8(readBytes(file)));
        }
    }
    return contents;
}

using Build = std::function<bool(const QString& zipPath)>;

const QString notCollection = u"This file is not a valid Tavo collection package."_s;
const QString notShortcut = u"This file is not a valid Tavo shortcut package."_s;

} // namespace

Q_DECLARE_METATYPE(Build)

// Shortcut packages written, read back, and met in hostile forms.
class TestShortcutShare : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void hostilePackages_data();
    void hostilePackages();
    void roundTrip();
    void archiveFailure();
    void appPath_data();
    void appPath();
    void importIntoLibrary();
};

void TestShortcutShare::initTestCase()
{
    // Why a package was refused is told at the info level.
    QLoggingCategory::setFilterRules(u"tavo.exchange.share.info=true"_s);
    // Installed applications: one in the user's folder, one in a system folder that a hidden
    // entry of the same id in the user's folder removes.
    qputenv("XDG_DATA_DIRS", QFile::encodeName(home() + u"/system-data"_s));
    const QString user = qEnvironmentVariable("XDG_DATA_HOME") + u"/applications/"_s;
    const QString system = home() + u"/system-data/applications/"_s;
    QVERIFY(writeBytes(user + u"editor.desktop"_s, "[Desktop Entry]\nType=Application\nName=Editor\nExec=editor\n"));
    QVERIFY(writeBytes(system + u"viewer.desktop"_s, "[Desktop Entry]\nType=Application\nName=Viewer\nExec=viewer\n"));
    QVERIFY(writeBytes(system + u"removed.desktop"_s, "[Desktop Entry]\nType=Application\nName=Gone\nExec=gone\n"));
    QVERIFY(writeBytes(user + u"removed.desktop"_s, "[Desktop Entry]\nType=Application\nName=Gone\nHidden=true\n"));
    QVERIFY(writeBytes(system + u"link.desktop"_s, "[Desktop Entry]\nType=Link\nName=Site\nURL=https://x.test\n"));
}

void TestShortcutShare::init()
{
    QDir(fixtures()).removeRecursively();
    QDir(home() + u"/library"_s).removeRecursively();
    QDir(canary()).removeRecursively();
    QVERIFY(writeBytes(canary() + u"/secret.txt"_s, "canary"));
    for (const QString& name : leftInTemp()) {
        QVERIFY2(false, qPrintable(u"left in the temporary folder before the test: "_s + name));
    }
}

void TestShortcutShare::hostilePackages_data()
{
    QTest::addColumn<Build>("build");
    QTest::addColumn<QString>("error");  // empty: the package imports
    QTest::addColumn<QString>("reason"); // what the log tells of a refusal
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QStringList>("contents");

    const QByteArray oneShortcut = bundleJson({sharedJson(u"/one"_s, {u"01-a.png"_s})});

    QTest::newRow("not a zip") << Build([](const QString& path) { return writeBytes(path, "just some text"); })
                               << notCollection << u"not a readable zip archive"_s << QStringList() << QStringList();
    QTest::newRow("no JSON file") << Build([](const QString& path) {
        return writeRaw(path, {{"Top/readme.txt", "hello"}, {"Top/Shortcut-001/Media/01-a.png", "A"}});
    }) << notCollection << u"neither collection.json nor shortcut.json"_s
                                  << QStringList() << QStringList();
    QTest::newRow("absolute name") << Build([=](const QString& path) {
        return writeRaw(path, {{"/Top/collection.json", oneShortcut}});
    }) << notCollection << u"absolute"_s
                                   << QStringList() << QStringList();
    QTest::newRow("dot-dot name") << Build([=](const QString& path) {
        return writeRaw(path, {{"Top/collection.json", oneShortcut}, {"Top/../../../canary/secret.txt", "owned"}});
    }) << notCollection << u"leaves its folder"_s
                                  << QStringList() << QStringList();
    QTest::newRow("backslash name") << Build([=](const QString& path) {
        return writeRaw(path, {{"Top/collection.json", oneShortcut}, {"Top\\..\\..\\canary\\secret.txt", "owned"}});
    }) << notCollection << u"backslash"_s
                                    << QStringList() << QStringList();
    QTest::newRow("two names for one file") << Build([=](const QString& path) {
        return writeRaw(path, {{"Top/collection.json", oneShortcut}, {"Top/COLLECTION.json", "{}"}});
    }) << notCollection << u"same name"_s << QStringList()
                                            << QStringList();
    QTest::newRow("link stored by zip -y") << Build([](const QString& path) {
        const QString tree = packageTree();
        QFile::remove(tree + u"/Top/Shortcut-001/Media/01-a.png"_s);
        return QFile::link(canary() + u"/secret.txt"_s, tree + u"/Top/Shortcut-001/Media/01-a.png"_s) &&
               zipTool(tree, {u"-q"_s, u"-r"_s, u"-y"_s, path, u"Top"_s});
    }) << notCollection << u"symbolic link"_s
                                           << QStringList() << QStringList();
    QTest::newRow("encrypted by zip -P") << Build([](const QString& path) {
        return zipTool(packageTree(), {u"-q"_s, u"-r"_s, u"-P"_s, u"secret"_s, path, u"Top"_s});
    }) << notCollection << u"encrypted"_s << QStringList()
                                         << QStringList();
    QTest::newRow("size under-declared") << Build([=](const QString& path) {
        return writeRaw(path, {{"collection.json", oneShortcut + QByteArray(4096, ' ')}}) &&
               underDeclareFirstSize(path, 40);
    }) << notCollection << u"more than its header says"_s
                                         << QStringList() << QStringList();
    QTest::newRow("damaged media data") << Build([](const QString& path) {
        const QByteArray name = "Top/Shortcut-002/Media/01-b.png";
        if (!writeRaw(path, {{name, QByteArray(4000, 'x')},
                             {"Top/Shortcut-001/Media/01-a.png", "A"},
                             {"Top/collection.json", bundleJson({sharedJson(u"/one"_s, {u"01-a.png"_s}),
                                                                 sharedJson(u"/two"_s, {u"01-b.png"_s})})}})) {
            return false;
        }
        // A byte of the first entry's packed data flipped: its checksum no longer holds.
        QByteArray bytes = readBytes(path);
        const qsizetype data = 30 + name.size() + (quint8(bytes[28]) | quint8(bytes[29]) << 8);
        bytes[data + 3] = char(bytes[data + 3] ^ 0x55);
        return writeBytes(path, bytes);
    }) << notCollection << u"01-b.png"_s << QStringList()
                                        << QStringList();
    QTest::newRow("bundle that does not decode") << Build([](const QString& path) {
        return writeRaw(path, {{"Top/collection.json", "{\"title\":3,\"shortcuts\":[]}"}});
    }) << notCollection << u"collection.json does not decode"_s
                                                 << QStringList() << QStringList();
    QTest::newRow("bundle with a shortcut missing its media list") << Build([](const QString& path) {
        return writeRaw(path, {{"Top/collection.json",
                                "{\"title\":\"T\",\"shortcuts\":[{\"key\":\"/a\",\"name\":\"a\",\"text\":\"\","
                                "\"group\":\"Work\"}]}"}});
    }) << notCollection << u"collection.json does not decode"_s << QStringList()
                                                                   << QStringList();
    QTest::newRow("single form that does not decode") << Build([](const QString& path) {
        return writeRaw(path, {{"Top/shortcut.json", "[]"}});
    }) << notShortcut << u"shortcut.json does not decode"_s
                                                      << QStringList() << QStringList();
    QTest::newRow("only resource forks") << Build([=](const QString& path) {
        return writeRaw(path, {{"__MACOSX/Top/collection.json", oneShortcut}});
    }) << notCollection << u"neither collection.json nor shortcut.json"_s
                                         << QStringList() << QStringList();

    QTest::newRow("media names reduced to their own Media folder") << Build([](const QString& path) {
        const QByteArray bundle =
            bundleJson({sharedJson(u"/one"_s, {u"../../../canary/secret.txt"_s, u"x/y/01-a.png"_s, u"./01-a.png"_s,
                                               u".."_s, u""_s, u"."_s, u"..\\\\Shortcut-002\\\\Media\\\\01-b.png"_s,
                                               u"folder"_s, u"missing.png"_s}),
                        sharedJson(u"/two"_s, {u"01-b.png"_s})});
        return writeRaw(path, {{"Top/collection.json", bundle},
                               {"Top/Shortcut-001/Media/01-a.png", "A"},
                               {"Top/Shortcut-001/Media/folder/", {}, true},
                               {"Top/Shortcut-002/Media/01-b.png", "B"},
                               {"Top/secret.txt", "not media"}});
    }) << QString() << QString() << QStringList{u"/one"_s, u"/two"_s}
                                                                   << QStringList{u"A"_s, u"A"_s, u"B"_s};
    QTest::newRow("large media unpacked first") << Build([](const QString& path) {
        const QByteArray bundle =
            bundleJson({sharedJson(u"/big"_s, {u"01-big.bin"_s, u"02-a.png"_s, u"again/02-a.png"_s})});
        return writeRaw(path, {{"Top/collection.json", bundle},
                               {"Top/Shortcut-001/Media/01-big.bin", QByteArray(17 * 1024 * 1024, 'L')},
                               {"Top/Shortcut-001/Media/02-a.png", "A"}});
    }) << QString() << QString() << QStringList{u"/big"_s}
                                                << QStringList{QString(17 * 1024 * 1024, u'L'), u"A"_s, u"A"_s};
    QTest::newRow("resource forks skipped") << Build([](const QString& path) {
        return writeRaw(path, {{"__MACOSX/collection.json", bundleJson({sharedJson(u"/evil"_s, {})})},
                               {"__MACOSX/Top/._collection.json", "\x00\x05\x16\x07"},
                               {"Top/collection.json", bundleJson({sharedJson(u"/real"_s, {u"01-a.png"_s})})},
                               {"Top/Shortcut-001/Media/01-a.png", "R"}});
    }) << QString() << QString() << QStringList{u"/real"_s}
                                            << QStringList{u"R"_s};
    QTest::newRow("decomposed file name") << Build([](const QString& path) {
        return writeRaw(path, {{"Top/collection.json", bundleJson({sharedJson(u"/cafe"_s, {u"01-Caf\u00e9.png"_s})})},
                               {"Top/Shortcut-001/Media/01-Cafe\xcc\x81.png", "N"}});
    }) << QString() << QString() << QStringList{u"/cafe"_s}
                                          << QStringList{u"N"_s};
    QTest::newRow("decomposed media name") << Build([](const QString& path) {
        return writeRaw(path, {{"Top/collection.json", bundleJson({sharedJson(u"/cafe"_s, {u"01-Cafe\u0301.png"_s})})},
                               {"Top/Shortcut-001/Media/01-Caf\xc3\xa9.png", "C"}});
    }) << QString() << QString() << QStringList{u"/cafe"_s}
                                           << QStringList{u"C"_s};
    QTest::newRow("single form") << Build([](const QString& path) {
        return writeRaw(path,
                        {{"Solo/shortcut.json", sharedJson(u"solo"_s, {u"01-a.png"_s})}, {"Solo/Media/01-a.png", "S"}});
    }) << QString() << QString() << QStringList{u"/solo"_s}
                                 << QStringList{u"S"_s};
    QTest::newRow("made by zip -r") << Build([](const QString& path) {
        return zipTool(packageTree(), {u"-q"_s, u"-r"_s, path, u"Top"_s});
    }) << QString() << QString() << QStringList{u"/fromzip"_s}
                                    << QStringList{u"Z"_s};
}

void TestShortcutShare::hostilePackages()
{
    QFETCH(Build, build);
    QFETCH(QString, error);
    QFETCH(QString, reason);
    QFETCH(QStringList, keys);
    QFETCH(QStringList, contents);

    const QString package = fixtures() + u"/package.zip"_s;
    QVERIFY(build(package));
    const QMap<QString, QByteArray> canaryBefore = snapshot(canary());
    if (!reason.isEmpty()) {
        // Refused for this reason, not for another on the way.
        QTest::ignoreMessage(QtInfoMsg,
                             QRegularExpression(u"^package refused: .*"_s + QRegularExpression::escape(reason)));
    }

    const Result<QList<Clip>> imported = TavoShortcutShare::importBundle(package, attachments());

    QCOMPARE(snapshot(canary()), canaryBefore);
    QCOMPARE(leftInTemp(), QStringList());
    if (!error.isEmpty()) {
        QVERIFY(!imported);
        QCOMPARE(imported.error().domain, u"TavoShare"_s);
        QCOMPARE(imported.error().description, error);
        QVERIFY2(!QFileInfo::exists(attachments()), "a refused package wrote into the attachments folder");
        return;
    }
    QVERIFY2(imported, qPrintable(imported ? QString() : imported.error().description));
    QCOMPARE(keysOf(*imported), keys);
    QCOMPARE(contentsOf(*imported), contents);
    for (const Clip& clip : *imported) {
        for (const QString& file : clip.files) {
            QCOMPARE(QFileInfo(file).absolutePath(), attachments());
        }
    }
    // Every attachment written is one that a shortcut names.
    QCOMPARE(snapshot(attachments()).size(), contents.size());
}

void TestShortcutShare::roundTrip()
{
    const QString one = fixtures() + u"/one/photo.png"_s;
    const QString two = fixtures() + u"/two/photo.png"_s;
    const QString gone = fixtures() + u"/gone.png"_s;
    QVERIFY(writeBytes(one, "first photo"));
    QVERIFY(writeBytes(two, "second photo"));
    QVERIFY(writeBytes(gone, "deleted"));
    QVERIFY(QFile::remove(gone));

    Clip pictures;
    pictures.key = u"/pics.media"_s;
    pictures.name = u"Pictures"_s;
    pictures.group = u"Media files"_s;
    pictures.groups.emplace(QStringList{u"Work"_s});
    pictures.files = {one, gone, two};
    pictures.webURL = u"https://example.test/a"_s;
    pictures.defaultMediaArticle = u"Ada Lovelace"_s;
    Clip hello;
    hello.key = u"/hello"_s;
    hello.name = u"Hello"_s;
    hello.text = u"Hello there {date}"_s;
    hello.files = {one};
    Clip quiet;
    quiet.key = u"/quiet"_s;
    quiet.name = u"Quiet"_s;
    quiet.files = {two};
    quiet.directMediaPaste = false;
    quiet.appBundleIdentifier = u"org.example.App.desktop"_s;
    Clip plain;
    plain.key = u"/plain"_s;
    plain.name = u"Plain"_s;
    const QList<Clip> clips{pictures, hello, quiet, plain};

    const Result<QString> made = TavoShortcutShare::makeArchive(clips, u"My Title: 1/2"_s, 99.5);
    QVERIFY2(made, qPrintable(made ? QString() : made.error().description));
    QCOMPARE(QFileInfo(*made).absolutePath(), QDir(QDir::tempPath()).absolutePath());
    QVERIFY2(QRegularExpression(u"^Tavo-My-Title-1-2-[0-9A-Za-z]{4,12}\\.zip$"_s)
                 .match(QFileInfo(*made).fileName())
                 .hasMatch(),
             qPrintable(*made));
    QCOMPARE(leftInTemp(), QStringList());

    // Other tools read it, and it holds the layout other installations expect.
    QProcess unzip;
    unzip.start(u"unzip"_s, {u"-tq"_s, *made});
    QVERIFY(unzip.waitForFinished(30000));
    QCOMPARE(unzip.exitCode(), 0);
    QProcess zipinfo;
    zipinfo.start(u"zipinfo"_s, {u"-1"_s, *made});
    QVERIFY(zipinfo.waitForFinished(30000));
    QCOMPARE(zipinfo.exitCode(), 0);
    const QStringList listing = QString::fromUtf8(zipinfo.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    const QString top = listing.value(0);
    QVERIFY2(QRegularExpression(u"^TavoCollectionShare-[0-9A-F-]{36}/$"_s).match(top).hasMatch(), qPrintable(top));
    QStringList inside;
    for (const QString& entry : listing) {
        QVERIFY2(entry.startsWith(top), qPrintable(entry));
        inside.append(entry.mid(top.size()));
    }
    inside.sort();
    QCOMPARE(inside,
             (QStringList{u""_s, u"Shortcut-001/"_s, u"Shortcut-001/Media/"_s, u"Shortcut-001/Media/01-photo.png"_s,
                          u"Shortcut-001/Media/02-photo.png"_s, u"Shortcut-001/shortcut.json"_s, u"Shortcut-002/"_s,
                          u"Shortcut-002/Media/"_s, u"Shortcut-002/Media/01-photo.png"_s,
                          u"Shortcut-002/shortcut.json"_s, u"Shortcut-003/"_s, u"Shortcut-003/Media/"_s,
                          u"Shortcut-003/Media/01-photo.png"_s, u"Shortcut-003/shortcut.json"_s, u"Shortcut-004/"_s,
                          u"Shortcut-004/Media/"_s, u"Shortcut-004/shortcut.json"_s, u"collection.json"_s}));
    const Result<std::shared_ptr<ZipReader>> reader = ZipReader::open(*made);
    QVERIFY(reader);
    const Result<QByteArray> bundleBytes = (*reader)->read(top + u"collection.json"_s, 1 << 20);
    QVERIFY(bundleBytes);
    const std::optional<TavoSharedShortcutBundle> bundle = TavoSharedShortcutBundle::fromJsonBytes(*bundleBytes);
    QVERIFY(bundle);
    QCOMPARE(bundle->title, u"My Title: 1/2"_s);
    QCOMPARE(bundle->priceINR, std::optional(99.5));
    QCOMPARE(bundle->shortcuts.value(0).media, (QStringList{u"01-photo.png"_s, u"02-photo.png"_s}));
    const Result<QByteArray> single = (*reader)->read(top + u"Shortcut-003/shortcut.json"_s, 1 << 20);
    QVERIFY(single);
    QCOMPARE(TavoSharedShortcut::fromJsonBytes(*single), std::optional(bundle->shortcuts.value(2)));

    const Result<QList<Clip>> imported = TavoShortcutShare::importBundle(*made, attachments());
    QVERIFY2(imported, qPrintable(imported ? QString() : imported.error().description));
    QCOMPARE(leftInTemp(), QStringList());
    QCOMPARE(imported->size(), clips.size());
    for (qsizetype i = 0; i < clips.size(); ++i) {
        const Clip& back = imported->at(i);
        const Clip& sent = clips[i];
        QVERIFY(back.id != sent.id);
        QCOMPARE(back.key, sent.key);
        QCOMPARE(back.name, sent.name);
        QCOMPARE(back.text, sent.text);
        QCOMPARE(back.group, sent.group);
        QCOMPARE(back.groups, sent.groups);
        QCOMPARE(back.webURL, sent.webURL);
        QCOMPARE(back.defaultMediaArticle, sent.defaultMediaArticle);
        QCOMPARE(back.appBundleIdentifier, sent.appBundleIdentifier);
    }
    // The deleted file is left out; the two photos of one name both arrive, in their order.
    QCOMPARE(contentsOf({imported->at(0)}), (QStringList{u"first photo"_s, u"second photo"_s}));
    QVERIFY(imported->at(0).files[0].endsWith(u"-01-photo.png"_s));
    QCOMPARE(contentsOf({imported->at(1)}), QStringList{u"first photo"_s});
    // Media without text pastes the media, unless the record says otherwise.
    QCOMPARE(imported->at(0).directMediaPaste, std::optional(true));
    QCOMPARE(imported->at(1).directMediaPaste, std::nullopt);
    QCOMPARE(imported->at(2).directMediaPaste, std::optional(false));
    QCOMPARE(imported->at(3).directMediaPaste, std::nullopt);
    QCOMPARE(readBytes(one), QByteArray("first photo"));
}

void TestShortcutShare::archiveFailure()
{
    Clip clip;
    clip.key = u"/a"_s;
    clip.name = u"a"_s;
    const Result<QString> made =
        TavoShortcutShare::makeArchive({clip}, u"T"_s, std::nullopt, fixtures() + u"/no-such-folder/p.zip"_s);
    QVERIFY(!made);
    QCOMPARE(made.error().domain, u"TavoShare"_s);
    QCOMPARE(made.error().description, u"Tavo could not prepare the collection package."_s);
    QVERIFY(!QFileInfo::exists(fixtures() + u"/no-such-folder"_s));
    QCOMPARE(leftInTemp(), QStringList());
}

void TestShortcutShare::appPath_data()
{
    QTest::addColumn<QString>("appPath");
    QTest::addColumn<bool>("kept");

    const QString user = qEnvironmentVariable("XDG_DATA_HOME") + u"/applications/"_s;
    const QString system = home() + u"/system-data/applications/"_s;
    QTest::newRow("entry in the user's folder") << user + u"editor.desktop"_s << true;
    QTest::newRow("entry in a system folder") << system + u"viewer.desktop"_s << true;
    QTest::newRow("the same entry through ..") << system + u"../applications/viewer.desktop"_s << true;
    QTest::newRow("entry hidden by the user's folder") << system + u"removed.desktop"_s << false;
    QTest::newRow("a link entry is no application") << system + u"link.desktop"_s << false;
    QTest::newRow("a program, not an entry") << u"/bin/sh"_s << false;
    QTest::newRow("relative path") << u"applications/editor.desktop"_s << false;
    QTest::newRow("missing entry") << user + u"nothing.desktop"_s << false;
}

void TestShortcutShare::appPath()
{
    QFETCH(QString, appPath);
    QFETCH(bool, kept);

    const QString package = fixtures() + u"/app.zip"_s;
    const QString extra = u",\"appPath\":\""_s + appPath + u"\",\"appBundleIdentifier\":\"editor.desktop\""_s;
    QVERIFY(writeRaw(package, {{"Top/collection.json", bundleJson({sharedJson(u"/app"_s, {}, extra)})}}));
    const Result<QList<Clip>> imported = TavoShortcutShare::importBundle(package, attachments());
    QVERIFY(imported);
    QCOMPARE(imported->size(), 1);
    QCOMPARE(imported->at(0).appPath, kept ? std::optional(appPath) : std::nullopt);
    QCOMPARE(imported->at(0).appBundleIdentifier, std::optional(u"editor.desktop"_s));
}

void TestShortcutShare::importIntoLibrary()
{
    Defaults defaults;
    TavoAccountStore(defaults).accept(u"sam"_s);
    DB db(defaults);
    db.activateProfile(u"sam"_s);
    QVERIFY(!db.collections().contains(u"Fresh"_s, Qt::CaseInsensitive));

    Clip zoom;
    zoom.key = u"/zoom.web"_s;
    zoom.name = u"Zoom"_s;
    zoom.group = u"Websites & URLs"_s;
    Clip hello;
    hello.key = u"/Hello"_s;
    hello.name = u"Hello"_s;
    hello.text = u"Hi"_s;
    QVERIFY(db.updateClips([&](QList<Clip>& clips) { clips = {zoom, hello}; }));

    Clip sentHello = hello;
    sentHello.key = u"/hello"_s;
    sentHello.group = u"personal"_s;
    sentHello.groups = QStringList{u"ZETA"_s, u"zeta"_s};
    Clip fresh;
    fresh.key = u"/new"_s;
    fresh.name = u"New"_s;
    fresh.group = u"Fresh"_s;
    const Result<QString> made = TavoShortcutShare::makeArchive({zoom, sentHello, fresh}, u"Mine"_s);
    QVERIFY(made);

    const QStringList before = db.collections();
    for (const QStringList& expected : {QStringList{u"/zoom-1.web"_s, u"/hello-1"_s, u"/new"_s},
                                        QStringList{u"/zoom-2.web"_s, u"/hello-2"_s, u"/new-1"_s}}) {
        const Result<QList<Clip>> imported = TavoShortcutShare::importBundle(*made, db.attachmentsDir());
        QVERIFY(imported);
        QCOMPARE(addImportedClips(db, *imported), std::nullopt);
        QCOMPARE(keysOf(db.clips().mid(0, 3)), expected);
    }
    QCOMPARE(keysOf(db.clips()), (QStringList{u"/zoom-2.web"_s, u"/hello-2"_s, u"/new-1"_s, u"/zoom-1.web"_s,
                                              u"/hello-1"_s, u"/new"_s, u"/zoom.web"_s, u"/Hello"_s}));
    // Nothing already there was changed.
    QCOMPARE(db.clips().at(6), zoom);
    QCOMPARE(db.clips().at(7), hello);
    // A group takes the spelling of the collection it names; new ones join once.
    QCOMPARE(db.clips().at(1).group, u"Personal"_s);
    QCOMPARE(db.clips().at(1).groups, (std::optional<QStringList>{{u"ZETA"_s, u"ZETA"_s}}));
    QCOMPARE(db.collections(), before + QStringList({u"ZETA"_s, u"Fresh"_s}));

    // What the next start reads.
    DB saved(defaults, QString(), DB::Access::ReadOnly);
    saved.activateProfile(u"sam"_s);
    QCOMPARE(saved.clips(), db.clips());
    QCOMPARE(saved.collections(), db.collections());
    QFile::remove(*made);
}

QTEST_GUILESS_MAIN(TestShortcutShare)
#include "tst_shortcut_share.moc"
