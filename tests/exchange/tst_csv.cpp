#include "exchange/csv.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QDir>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

QByteArray utf16(const QString& text, bool littleEndian)
{
    QByteArray bytes = littleEndian ? QByteArray("\xFF\xFE") : QByteArray("\xFE\xFF");
    for (const QChar c : text) {
        const char high = char(c.unicode() >> 8);
        const char low = char(c.unicode() & 0xFF);
        bytes.append(littleEndian ? low : high);
        bytes.append(littleEndian ? high : low);
    }
    return bytes;
}

CSVRows table(std::initializer_list<std::initializer_list<QStringView>> rows)
{
    CSVRows table;
    for (const auto& row : rows) {
        QStringList cells;
        for (const QStringView cell : row) {
            cells.append(cell.toString());
        }
        table.append(cells);
    }
    return table;
}

// "key|name|text|group|further groups", so a whole import compares as one list.
QStringList described(const QList<Clip>& clips)
{
    QStringList lines;
    for (const Clip& clip : clips) {
        lines.append(
            QStringList{clip.key, clip.name, clip.text, clip.group, clip.groups.value_or(QStringList()).join(u',')}
                .join(u'|'));
    }
    return lines;
}

// Answers GET /<name> from `files`, 404 otherwise, on 127.0.0.1.
class MediaServer : public QTcpServer
{
public:
    QHash<QByteArray, QByteArray> files;
    int requests = 0;

    MediaServer()
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    const QByteArray request = socket->property("request").toByteArray() + socket->readAll();
                    socket->setProperty("request", request);
                    if (!request.contains("\r\n\r\n")) {
                        return;
                    }
                    ++requests;
                    const QByteArray path = request.split(' ').value(1);
                    const bool found = files.contains(path);
                    const QByteArray body = files.value(path, "not found");
                    socket->write((found ? "HTTP/1.1 200 OK" : "HTTP/1.1 404 Not Found") +
                                  QByteArray("\r\nContent-Length: ") + QByteArray::number(body.size()) +
                                  "\r\nConnection: close\r\n\r\n" + body);
                    socket->disconnectFromHost();
                });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }

    QString url(const QString& path) const { return u"http://127.0.0.1:%1%2"_s.arg(serverPort()).arg(path); }
};

} // namespace

class TestCSV : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void parse_data();
    void parse();
    void parseReportsProgressAndStops();
    void import_data();
    void import();
    void importAppendsToTheListOnDisk();
    void exportText();
    void exportFile();
    void roundTrip();
    void importDownloadsMedia_data();
    void importDownloadsMedia();
    void cancelRemovesDownloads();
    void mediaFolderCannotBeMade();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestCSV::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestCSV::parse_data()
{
    QTest::addColumn<QByteArray>("bytes"); // a file's bytes
    QTest::addColumn<CSVRows>("rows");

    QTest::newRow("plain") << "a,b\nc,d"_ba << table({{u"a", u"b"}, {u"c", u"d"}});
    QTest::newRow("UTF-8 BOM goes") << "\xEF\xBB\xBFshortcut,caf\xC3\xA9"_ba << table({{u"shortcut", u"café"_s}});
    QTest::newRow("UTF-8 without BOM") << "\\hi,\xE2\x82\xAC 5"_ba << table({{u"\\hi", u"€ 5"_s}});
    QTest::newRow("CRLF gives no empty rows") << "a,b\r\nc,d\r\n"_ba << table({{u"a", u"b"}, {u"c", u"d"}});
    QTest::newRow("lone CR ends a row") << "a,b\rc,d\r"_ba << table({{u"a", u"b"}, {u"c", u"d"}});
    QTest::newRow("empty rows dropped") << "a\n\n,\r\n\"\",\"\"\nb"_ba << table({{u"a"}, {u"b"}});
    QTest::newRow("trailing empty cell kept") << "a,\n,b"_ba << table({{u"a", u""}, {u"", u"b"}});
    QTest::newRow("quoted comma and line break stay one cell")
        << "/a,\"x, y\nz\",n"_ba << table({{u"/a", u"x, y\nz", u"n"}});
    QTest::newRow("line breaks in quotes become line feeds") << "\"x\r\ny\rz\",b"_ba << table({{u"x\ny\nz", u"b"}});
    QTest::newRow("doubled quotes give one") << "\"say \"\"hi\"\"\",b"_ba << table({{u"say \"hi\"", u"b"}});
    QTest::newRow("quote mid-cell opens quotes") << "ab\"c,d\"e,f"_ba << table({{u"abc,de", u"f"}});
    QTest::newRow("open quote at the end") << "a,\"bc\nd"_ba << table({{u"a", u"bc\nd"}});
    QTest::newRow("tab when the first row has no comma")
        << "a\tb;c\n1\t2,3"_ba << table({{u"a", u"b;c"}, {u"1", u"2,3"}});
    QTest::newRow("semicolon when neither") << "a;b\n\"x;y\";z,w"_ba << table({{u"a", u"b"}, {u"x;y", u"z,w"}});
    QTest::newRow("a quoted comma does not choose") << "\"a,b\";c\n1;2"_ba << table({{u"a,b", u"c"}, {u"1", u"2"}});
    QTest::newRow("a comma after a quoted tab chooses") << "\"a\tb\",c\td"_ba << table({{u"a\tb", u"c\td"}});
    QTest::newRow("UTF-16 little-endian by BOM")
        << utf16(u"/é,\"x\r\ny\"\r\n/b,€"_s, true) << table({{u"/é"_s, u"x\ny"}, {u"/b", u"€"_s}});
    QTest::newRow("UTF-16 big-endian by BOM") << utf16(u"/k;v"_s, false) << table({{u"/k", u"v"}});
    QTest::newRow("Windows-1252 when not UTF-8")
        << "/caf\xE9,\x93quoted\x94 \x80\x81"_ba << table({{u"/café"_s, u"“quoted” €\u0081"_s}});
    QTest::newRow("nothing") << QByteArray() << table({});
}

void TestCSV::parse()
{
    QFETCH(QByteArray, bytes);
    QFETCH(CSVRows, rows);
    QCOMPARE(parseCSV(decodeCSVBytes(bytes)), rows);
}

void TestCSV::parseReportsProgressAndStops()
{
    QString text;
    for (int i = 0; i < 50'000; ++i) {
        text += u"/k%1,text %1\n"_s.arg(i);
    }
    QList<qsizetype> seen;
    const CSVRows all = parseCSV(text, [&](qsizetype done, qsizetype total) {
        seen.append(done);
        return total == text.size();
    });
    QCOMPARE(all.size(), 50'000);
    QVERIFY(seen.size() > 2);
    QVERIFY(std::is_sorted(seen.cbegin(), seen.cend()));
    QCOMPARE(seen.last(), text.size());

    const CSVRows stopped = parseCSV(text, [](qsizetype, qsizetype) { return false; });
    QVERIFY(stopped.isEmpty());
}

void TestCSV::import_data()
{
    QTest::addColumn<QString>("csv");
    QTest::addColumn<QStringList>("defaultGroups");
    QTest::addColumn<QStringList>("clips");
    QTest::addColumn<QStringList>("added"); // collections added after the built-in ones

    QTest::newRow("header Trigger skipped, /trigger kept")
        << u"Trigger,Expansion\n/trigger,x"_s << QStringList() << QStringList{u"/trigger|/trigger|x|Imported|"_s}
        << QStringList();
    QTest::newRow("export header skipped") << (csvHeader + u"\n\\hi,Hello, Greeting "_s) << QStringList()
                                           << QStringList{u"/hi|Greeting|Hello|Imported|"_s} << QStringList();
    QTest::newRow("default groups in the collections' order")
        << u"/a,x"_s << QStringList{u"work"_s, u"Personal"_s} << QStringList{u"/a|/a|x|Personal|Work"_s}
        << QStringList();
    QTest::newRow("an unknown default group is added")
        << u"/a,x"_s << QStringList{u"Clients"_s, u"Work"_s} << QStringList{u"/a|/a|x|Work|Clients"_s}
        << QStringList{u"Clients"_s};
    QTest::newRow("collection cell over defaults, matched in any case")
        << u"/b,y,,work; SALES ; sales;"_s << QStringList{u"Personal"_s} << QStringList{u"/b|/b|y|Work|SALES"_s}
        << QStringList{u"SALES"_s};
    QTest::newRow("suffix of the first group")
        << u"/zoom.app,z,,websites & urls;Work"_s << QStringList()
        << QStringList{u"/zoom.web|/zoom.web|z|Websites & URLs|Work"_s} << QStringList();
    QTest::newRow("blank first cell skipped")
        << u"  ,x\n/c,y"_s << QStringList() << QStringList{u"/c|/c|y|Imported|"_s} << QStringList();
    QTest::newRow("missing cells are empty")
        << u"d"_s << QStringList() << QStringList{u"/d|/d||Imported|"_s} << QStringList();
    QTest::newRow("a new group keeps its first spelling")
        << u"/e,1,,Clients\n/f,2,,CLIENTS"_s << QStringList()
        << QStringList{u"/e|/e|1|Clients|"_s, u"/f|/f|2|Clients|"_s} << QStringList{u"Clients"_s};
    QTest::newRow("keys not made unique")
        << u"/g,1\n/G,2"_s << QStringList() << QStringList{u"/g|/g|1|Imported|"_s, u"/G|/G|2|Imported|"_s}
        << QStringList();
    QTest::newRow("media ignored without the switch") << u"/h,t,,,http://127.0.0.1:9/a.png"_s << QStringList()
                                                      << QStringList{u"/h|/h|t|Imported|"_s} << QStringList();
}

void TestCSV::import()
{
    QFETCH(QString, csv);
    QFETCH(QStringList, defaultGroups);
    QFETCH(QStringList, clips);
    QFETCH(QStringList, added);

    Defaults defaults(path(u"defaults.json"_s));
    DB db(defaults, path(u"store"_s));
    const QList<Clip> before = db.clips();
    const Result<QString> report = importRowsAndDownload(db, parseCSV(csv), false, defaultGroups);
    QVERIFY2(report.ok(), qPrintable(report.ok() ? QString() : report.error().description));
    QCOMPARE(*report, u"Imported %1 shortcuts · 0 media downloaded"_s.arg(clips.size()));
    QCOMPARE(db.clips().mid(0, before.size()), before);
    QCOMPARE(described(db.clips().mid(before.size())), clips);
    QCOMPARE(db.collections(), builtInCollections() + added);
    QVERIFY(QDir(db.attachmentsDir()).isEmpty());
}

void TestCSV::importAppendsToTheListOnDisk()
{
    Defaults defaults(path(u"defaults.json"_s));
    DB db(defaults, path(u"store"_s));
    Clip mine;
    mine.key = u"/mine"_s;
    mine.name = u"mine"_s;
    db.setClips({mine});
    QVERIFY(db.save());
    // Another process adds a shortcut meanwhile; the import goes after it, and both stay.
    {
        DB other(defaults, path(u"store"_s));
        Clip theirs;
        theirs.key = u"/theirs"_s;
        theirs.name = u"theirs"_s;
        QVERIFY(other.updateClips([&](QList<Clip>& clips) { clips.append(theirs); }));
    }
    const Result<QString> report = importRowsAndDownload(db, parseCSV(u"/new,x"_s), false, {});
    QVERIFY(report.ok());
    const QStringList expected{u"/mine|mine||Personal|"_s, u"/theirs|theirs||Personal|"_s, u"/new|/new|x|Imported|"_s};
    QCOMPARE(described(db.clips()), expected);
    QCOMPARE(described(DB(defaults, path(u"store"_s)).clips()), expected);
}

void TestCSV::exportText()
{
    Clip web;
    web.key = u"/zoom.web"_s;
    web.name = u"Zoom, the call"_s;
    web.text = u"line one\r\nsaid \"hi\""_s;
    web.group = u"Websites & URLs"_s;
    web.groups = QStringList{u"Work"_s, u"work"_s, u"Sales"_s};
    web.files = {u"/m/a.png"_s, u"/m/b c.png"_s};
    Clip plain;
    plain.key = u"/cr"_s;
    plain.name = u"cr"_s;
    plain.text = u"a\rb"_s;
    QCOMPARE(exportCSVText({web, plain}), u"shortcut,expansion,name,collection,media URLs\n"
                                          "/zoom.web,\"line one\r\nsaid \"\"hi\"\"\",\"Zoom, the call\",Websites & "
                                          "URLs; Work; Sales,/m/a.png; /m/b c.png\n"
                                          "/cr,\"a\rb\",cr,Personal,"_s);
    QCOMPARE(exportCSVText({}), csvHeader);
}

void TestCSV::exportFile()
{
    Clip clip;
    clip.key = u"/é"_s;
    clip.name = u"e"_s;
    const Result<QString> done = exportCSV({clip, clip}, path(u"Tavo-Shortcuts.csv"_s));
    QVERIFY(done.ok());
    QCOMPARE(*done, u"Exported 2 shortcuts to Tavo-Shortcuts.csv"_s);
    QFile file(path(u"Tavo-Shortcuts.csv"_s));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), exportCSVText({clip, clip}).toUtf8()); // UTF-8, no BOM

    const Result<QString> failed = exportCSV({clip}, path(u"missing/folder/out.csv"_s));
    QVERIFY(!failed.ok());
    QVERIFY2(failed.error().description.startsWith(u"Export failed: "_s), qPrintable(failed.error().description));
    QVERIFY(failed.error().description.size() > u"Export failed: "_s.size());
}

void TestCSV::roundTrip()
{
    QList<Clip> clips;
    const QStringList texts{u"plain"_s,     u"comma, and \"quotes\""_s, u"two\nlines"_s, u"cr\ronly"_s, u""_s,
                            u"  spaced  "_s};
    const QList<QStringList> groups{
        {u"Work"_s}, {u"Websites & URLs"_s, u"Work"_s}, {u"Clients"_s}, {u"Media files"_s, u"Sales; Europe"_s}};
    for (int i = 0; i < 12; ++i) {
        Clip clip;
        const QStringList all = groups[i % groups.size()];
        clip.key = collectionTrigger(u"/key%1"_s.arg(i), all.first());
        clip.name = i % 3 ? u"Name %1"_s.arg(i) : clip.key;
        clip.text = texts[i % texts.size()];
        clip.group = all.first();
        if (all.size() > 1) {
            clip.groups = all.mid(1);
        }
        clips.append(clip);
    }
    QStringList known = builtInCollections();
    known.append(u"Clients"_s);
    const PreparedCSVImport back =
        prepareCSVImport(parseCSV(decodeCSVBytes(exportCSVText(clips).toUtf8())), false, {}, known, path(u"A"_s));
    QCOMPARE(back.error, QString());
    QList<Clip> expected = clips;
    for (Clip& clip : expected) {
        // A collection named with ";" comes back as two: the cell is split there.
        if (clip.groups == QStringList{u"Sales; Europe"_s}) {
            clip.groups = QStringList{u"Sales"_s, u"Europe"_s};
        }
        // Line breaks inside quotes come back as line feeds.
        clip.text.replace(u"\r\n"_s, u"\n"_s).replace(u'\r', u'\n');
    }
    QCOMPARE(described(back.clips), described(expected));
}

void TestCSV::importDownloadsMedia_data()
{
    QTest::addColumn<bool>("download");
    QTest::addColumn<QString>("report");
    QTest::addColumn<int>("requests");

    QTest::newRow("downloaded, one failed")
        << true << u"Imported 2 shortcuts · 2 media downloaded · 1 download(s) failed"_s << 3;
    QTest::newRow("switch off: nothing fetched") << false << u"Imported 2 shortcuts · 0 media downloaded"_s << 0;
}

void TestCSV::importDownloadsMedia()
{
    QFETCH(bool, download);
    QFETCH(QString, report);
    QFETCH(int, requests);

    MediaServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost, 0));
    server.files.insert("/pics/a.png", "PNG-A");
    server.files.insert("/b", "B");
    const QString csv = u"/one,t,,,\"%1; ftp://127.0.0.1/x.png\n%2 ; not a url\"\n/two,u,,,%3"_s.arg(
        server.url(u"/pics/a.png"_s), server.url(u"/missing.png"_s), server.url(u"/b"_s));

    Defaults defaults(path(u"defaults.json"_s));
    DB db(defaults, path(u"store"_s));
    db.setClips({});
    QVERIFY(db.save());
    const Result<QString> done = importRowsAndDownload(db, parseCSV(csv), download, {});
    QVERIFY(done.ok());
    QCOMPARE(*done, report);
    QCOMPARE(server.requests, requests);
    const QStringList stored = QDir(db.attachmentsDir()).entryList(QDir::Files | QDir::Hidden);
    QCOMPARE(db.clips().size(), 2);
    if (!download) {
        QVERIFY(stored.isEmpty());
        QVERIFY(db.clips()[0].files.isEmpty());
        return;
    }
    QCOMPARE(stored.size(), 2);
    const QStringList first = db.clips()[0].files;
    const QStringList second = db.clips()[1].files;
    QCOMPARE(first.size(), 1);
    QCOMPARE(second.size(), 1);
    // A unique prefix before the server's name, or "downloaded-media" when the address has none.
    QVERIFY2(QRegularExpression(u"^[0-9A-F-]{36}-a\\.png$"_s).match(QFileInfo(first[0]).fileName()).hasMatch(),
             qPrintable(first[0]));
    QVERIFY2(QRegularExpression(u"^[0-9A-F-]{36}-b$"_s).match(QFileInfo(second[0]).fileName()).hasMatch(),
             qPrintable(second[0]));
    QCOMPARE(QFileInfo(first[0]).absolutePath(), db.attachmentsDir());
    QFile file(first[0]);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("PNG-A"));
}

void TestCSV::cancelRemovesDownloads()
{
    MediaServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost, 0));
    server.files.insert("/a.png", "A");
    const QString csv = u"/one,t,,,%1\n/two,u,,,%1"_s.arg(server.url(u"/a.png"_s));
    std::atomic_bool canceled = false;
    CSVImportControl control;
    control.canceled = &canceled;
    control.progress = [&](int done, int) {
        if (done == 1) {
            canceled = true; // after the first row's download
        }
    };
    const QString attachments = path(u"Attachments"_s);
    const PreparedCSVImport prepared =
        prepareCSVImport(parseCSV(csv), true, {}, builtInCollections(), attachments, control);
    QCOMPARE(server.requests, 1);
    QVERIFY(prepared.canceled);
    QVERIFY(prepared.clips.isEmpty());
    QVERIFY(prepared.downloadedFiles.isEmpty());
    QCOMPARE(QDir(attachments).entryList(QDir::Files | QDir::Hidden), QStringList());
}

void TestCSV::mediaFolderCannotBeMade()
{
    QFile blocker(path(u"store"_s));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    const PreparedCSVImport prepared =
        prepareCSVImport(parseCSV(u"/a,b"_s), false, {}, builtInCollections(), path(u"store/Attachments"_s));
    QCOMPARE(prepared.error, u"Could not create the media folder: Not a directory"_s);
    QVERIFY(prepared.clips.isEmpty());
}

QTEST_GUILESS_MAIN(TestCSV)
#include "tst_csv.moc"
