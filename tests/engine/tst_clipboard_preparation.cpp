#include "engine/clipboard_preparation.h"
#include "engine/rich_text.h"
#include "fakes/fake_pasteboard.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimeZone>
#include <QtTest>

#include <zip.h>

using namespace tavo;

Q_DECLARE_METATYPE(tavo::ShortcutTextStyle)

namespace {

const QString mediaNotice = QStringLiteral("Media copied to clipboard · choose Paste in the target app");
const QString portraitNotice =
    QStringLiteral("Could not download the default portrait. Check your internet connection and try again.");
const QString gnomeFiles = QStringLiteral("x-special/gnome-copied-files");

LiveTokenSources fixedSources()
{
    LiveTokenSources sources;
    sources.now = [] { return QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9), QTimeZone::utc()); };
    sources.locale = "en_US";
    return sources;
}

Clip textClip(const QString& key, const QString& text, const QStringList& files = {})
{
    Clip clip;
    clip.key = key;
    clip.text = text;
    clip.files = files;
    return clip;
}

QByteArray readBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

void writeImage(const QString& path, QSize size, QColor color)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QImage image(size, QImage::Format_RGB32);
    image.fill(color);
    QVERIFY(image.save(path));
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

bool near(QColor actual, QColor expected)
{
    return qAbs(actual.red() - expected.red()) < 40 && qAbs(actual.green() - expected.green()) < 40 &&
           qAbs(actual.blue() - expected.blue()) < 40;
}

// Braces balance, escaped ones aside, and close exactly at the end: a reader gets one group.
bool rtfGroupsBalance(const QByteArray& rtf)
{
    int depth = 0;
    for (qsizetype i = 0; i < rtf.size(); ++i) {
        if (rtf[i] == '\\') {
            ++i;
        } else if (rtf[i] == '{') {
            ++depth;
        } else if (rtf[i] == '}' && (--depth < 0 || (depth == 0 && i != rtf.size() - 1))) {
            return false;
        }
    }
    return depth == 0;
}

struct ZipEntry
{
    QString name;
    QByteArray data;
};

QList<ZipEntry> readZip(const QString& path)
{
    QList<ZipEntry> entries;
    int error = 0;
    zip_t* archive = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, &error);
    if (!archive) {
        return entries;
    }
    for (zip_int64_t i = 0; i < zip_get_num_entries(archive, 0); ++i) {
        zip_stat_t stat;
        zip_stat_index(archive, zip_uint64_t(i), 0, &stat);
        QByteArray data(qsizetype(stat.size), '\0');
        if (zip_file_t* file = zip_fopen_index(archive, zip_uint64_t(i), 0)) {
            zip_fread(file, data.data(), stat.size);
            zip_fclose(file);
        }
        entries.append({QString::fromUtf8(stat.name), data});
    }
    zip_close(archive);
    return entries;
}

// Just enough HTTP/1.1 for one GET per connection.
class LoopbackHttpServer : public QTcpServer
{
public:
    struct Response
    {
        int status = 200;
        QByteArray contentType;
        QByteArray body;
    };

    QHash<QString, Response> routes;
    QStringList requestedPaths;
    QList<QByteArray> userAgents;

    LoopbackHttpServer()
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { serve(socket); });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }

    QString base() const { return QStringLiteral("http://127.0.0.1:%1").arg(serverPort()); }

private:
    void serve(QTcpSocket* socket)
    {
        QByteArray request = socket->property("request").toByteArray() + socket->readAll();
        socket->setProperty("request", request);
        if (!request.contains("\r\n\r\n")) {
            return;
        }
        const QList<QByteArray> lines = request.left(request.indexOf("\r\n\r\n")).split('\n');
        const QString path = QString::fromLatin1(lines.first().split(' ').value(1));
        requestedPaths.append(path);
        for (const QByteArray& line : lines) {
            if (line.toLower().startsWith("user-agent:")) {
                userAgents.append(line.mid(11).trimmed());
            }
        }
        const Response response = routes.value(path, Response{404, "text/plain", "not found"});
        socket->write("HTTP/1.1 " + QByteArray::number(response.status) + " X\r\nContent-Type: " +
                      response.contentType + "\r\nContent-Length: " + QByteArray::number(response.body.size()) +
                      "\r\nConnection: close\r\n\r\n" + response.body);
        socket->disconnectFromHost();
    }
};

} // namespace

class TestClipboardPreparation : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void clipboardIsReadBeforeWritten();
    void textFlavours_data();
    void textFlavours();
    void styledText_data();
    void styledText();
    void rtfEscapesAndStaysAscii();
    void tabularRowsEscapeAmpersandFirst();
    void media_data();
    void media();
    void severalMediaFiles();

    void batchJoinsAndFlattens_data();
    void batchJoinsAndFlattens();
    void batchKeepsTimestampLiteral();
    void batchTakesFirstTenFilesBeforeLookingAtThem();
    void batchWithOneMediaFilePastesItDirectly();

    void aggregateLeavesOneFile();
    void aggregateImagesIntoContactSheet();
    void aggregateMixedFilesIntoZip();
    void aggregateTakesTenExistingFiles();
    void aggregateFallsBackToTheFiles();

    void downloadsPortrait();
    void downloadFailures_data();
    void downloadFailures();

private:
    static std::pair<bool, QString> download(DB& db, const Clip& clip);
    QString path(const QString& name) const { return m_dir->filePath(name); }
    QString attachments() const { return m_dir->filePath(QStringLiteral("Attachments")); }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestClipboardPreparation::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestClipboardPreparation::clipboardIsReadBeforeWritten()
{
    test::FakePasteboard pasteboard;
    pasteboard.text = QStringLiteral("old content");
    ClipboardRequest request;
    request.clip = textClip(QStringLiteral("/q"), QStringLiteral("quote: {{clipboard}}"));

    QCOMPARE(prepareClipboard(pasteboard, request, fixedSources()), QStringLiteral("\\q copied"));
    QCOMPARE(pasteboard.written->text(), QStringLiteral("quote: old content"));

    // Without the token the clipboard is not asked at all: a read is a round trip to its owner.
    pasteboard.reads = 0;
    request.clip.text = QStringLiteral("no token");
    prepareClipboard(pasteboard, request, fixedSources());
    QCOMPARE(pasteboard.reads, 0);
    QCOMPARE(pasteboard.written->text(), QStringLiteral("no token"));
}

void TestClipboardPreparation::textFlavours_data()
{
    QTest::addColumn<ShortcutTextStyle>("style");
    QTest::addColumn<bool>("withRows");
    QTest::addColumn<QStringList>("formats");

    const QStringList styled = {QStringLiteral("text/html"), QStringLiteral("text/plain"), QStringLiteral("text/rtf")};
    QTest::newRow("plain text alone") << ShortcutTextStyle{} << false << QStringList{QStringLiteral("text/plain")};
    QTest::newRow("rows add a table") << ShortcutTextStyle{} << true
                                      << QStringList{QStringLiteral("text/html"), QStringLiteral("text/plain"),
                                                     QStringLiteral("text/tab-separated-values")};
    QTest::newRow("bold is styled") << ShortcutTextStyle{true, false, false, {}} << false << styled;
    QTest::newRow("a size alone is styled") << ShortcutTextStyle{false, false, false, 20.0} << false << styled;
    QTest::newRow("a style wins over rows") << ShortcutTextStyle{false, true, false, {}} << true << styled;
}

void TestClipboardPreparation::textFlavours()
{
    QFETCH(ShortcutTextStyle, style);
    QFETCH(bool, withRows);
    QFETCH(QStringList, formats);

    test::FakePasteboard pasteboard;
    ClipboardRequest request;
    request.clip = textClip(QStringLiteral("/t"), QStringLiteral("Hello"));
    request.style = style;
    if (withRows) {
        request.tabularRows = QStringList{QStringLiteral("Hello")};
    }
    prepareClipboard(pasteboard, request, fixedSources());

    QCOMPARE(sorted(pasteboard.written->formats()), formats);
    QCOMPARE(pasteboard.written->text(), QStringLiteral("Hello"));
}

void TestClipboardPreparation::styledText_data()
{
    QTest::addColumn<ShortcutTextStyle>("style");
    QTest::addColumn<double>("points");

    QTest::newRow("bold at the system size") << ShortcutTextStyle{true, false, false, {}} << systemFontPointSize();
    QTest::newRow("italic underlined at 14.5") << ShortcutTextStyle{false, true, true, 14.5} << 14.5;
    QTest::newRow("all three at 30") << ShortcutTextStyle{true, true, true, 30.0} << 30.0;
}

void TestClipboardPreparation::styledText()
{
    QFETCH(ShortcutTextStyle, style);
    QFETCH(double, points);

    test::FakePasteboard pasteboard;
    ClipboardRequest request;
    request.clip = textClip(QStringLiteral("/sig"), QStringLiteral("Best,\nSam"));
    request.style = style;
    prepareClipboard(pasteboard, request, fixedSources());

    const QByteArray rtf = pasteboard.written->data(QStringLiteral("text/rtf"));
    QVERIFY(rtf.startsWith("{\\rtf1\\ansi"));
    QVERIFY(rtfGroupsBalance(rtf));
    QVERIFY(rtf.contains(QByteArray("{\\fonttbl{\\f0\\fswiss " + systemFontFamily().toUtf8() + ";}}")));
    QVERIFY(rtf.contains(QByteArray("\\fs" + QByteArray::number(qRound(points * 2)))));
    QCOMPARE(QRegularExpression(QStringLiteral(R"(\\b(?![a-z]))")).match(QString::fromLatin1(rtf)).hasMatch(),
             style.bold);
    QCOMPARE(QRegularExpression(QStringLiteral(R"(\\i(?![a-z]))")).match(QString::fromLatin1(rtf)).hasMatch(),
             style.italic);
    QCOMPARE(rtf.contains("\\ul"), style.underline);
    QVERIFY(rtf.contains("Best,\\par Sam}"));

    const QString html = pasteboard.written->html();
    QVERIFY(html.startsWith(QStringLiteral("<span style=\"")));
    QVERIFY(html.contains(QStringLiteral("font-size:") + QString::number(points, 'g', 6) + QStringLiteral("pt")));
    QCOMPARE(html.contains(QStringLiteral("font-weight:bold")), style.bold);
    QCOMPARE(html.contains(QStringLiteral("font-style:italic")), style.italic);
    QCOMPARE(html.contains(QStringLiteral("text-decoration:underline")), style.underline);
    QVERIFY(html.contains(QStringLiteral("Best,<br>Sam</span>")));
    QCOMPARE(pasteboard.written->text(), QStringLiteral("Best,\nSam"));
}

void TestClipboardPreparation::rtfEscapesAndStaysAscii()
{
    // Ä, the euro sign and an emoji (a surrogate pair, both halves above 0x7fff).
    const QString text = QStringLiteral("a\\b{c}\r\nÄ€😀\tz");
    const QByteArray rtf = styledRtf(text, ShortcutTextStyle{true, false, false, {}}, QStringLiteral("Sans"), 12);

    QVERIFY(rtf.contains("a\\\\b\\{c\\}\\par \\u196?\\u8364?\\u-10179?\\u-8704?\\tab z}"));
    QVERIFY(rtfGroupsBalance(rtf));
    for (const char byte : rtf) {
        QVERIFY(uchar(byte) < 0x80);
    }
}

void TestClipboardPreparation::tabularRowsEscapeAmpersandFirst()
{
    test::FakePasteboard pasteboard;
    ClipboardRequest request;
    request.clip = textClip(QStringLiteral("/rows"), QString());
    request.textOverride = QStringLiteral("Tom & <b>Jerry</b>\n\"q\" 'a' &lt;");
    request.tabularRows = QStringList{QStringLiteral("Tom & <b>Jerry</b>"), QStringLiteral("\"q\" 'a' &lt;")};
    prepareClipboard(pasteboard, request, fixedSources());

    QCOMPARE(pasteboard.written->html(),
             QStringLiteral("<table><tr><td>Tom &amp; &lt;b&gt;Jerry&lt;/b&gt;</td></tr>"
                            "<tr><td>&quot;q&quot; &#39;a&#39; &amp;lt;</td></tr></table>"));
    QCOMPARE(pasteboard.written->data(QStringLiteral("text/tab-separated-values")), request.textOverride->toUtf8());
    QCOMPARE(pasteboard.written->text(), *request.textOverride);
}

void TestClipboardPreparation::media_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("content"); // "png", "jpg", "bytes", "folder" or "" for none
    QTest::addColumn<bool>("mediaAsFiles");
    QTest::addColumn<QString>("imageType"); // empty: expected as a file URL

    QTest::newRow("png as image data") << "photo.png"
                                       << "png" << false << "image/png";
    QTest::newRow("upper-case JPG as image data") << "photo.JPG"
                                                  << "jpg" << false << "image/jpeg";
    QTest::newRow("png asked for as a file") << "photo.png"
                                             << "png" << true << "";
    QTest::newRow("pdf as a file") << "paper.pdf"
                                   << "bytes" << false << "";
    QTest::newRow("missing image as a file") << "gone.png"
                                             << "" << false << "";
    QTest::newRow("unreadable image as a file") << "album.png"
                                                << "folder" << false << "";
}

void TestClipboardPreparation::media()
{
    QFETCH(QString, fileName);
    QFETCH(QString, content);
    QFETCH(bool, mediaAsFiles);
    QFETCH(QString, imageType);

    const QString file = path(fileName);
    if (content == QLatin1StringView("png") || content == QLatin1StringView("jpg")) {
        writeImage(file, QSize(8, 8), Qt::red);
    } else if (content == QLatin1StringView("bytes")) {
        writeBytes(file, "%PDF-1.4\n");
    } else if (content == QLatin1StringView("folder")) {
        QVERIFY(QDir().mkpath(file));
    }
    test::FakePasteboard pasteboard;
    ClipboardRequest request;
    request.clip = textClip(QStringLiteral("/m"), QString(), {file});
    request.includeText = false;
    request.includeMedia = true;
    request.mediaAsFiles = mediaAsFiles;
    QCOMPARE(prepareClipboard(pasteboard, request, fixedSources()), mediaNotice);

    const QMimeData& data = *pasteboard.written;
    if (!imageType.isEmpty()) {
        QCOMPARE(data.formats(), QStringList{imageType});
        QCOMPARE(data.data(imageType), readBytes(file));
    } else {
        const QUrl url = QUrl::fromLocalFile(file);
        QCOMPARE(sorted(data.formats()), QStringList({QStringLiteral("text/uri-list"), gnomeFiles}));
        QCOMPARE(data.urls(), QList<QUrl>{url});
        QCOMPARE(data.data(gnomeFiles), "copy\n" + url.toEncoded());
    }
}

void TestClipboardPreparation::severalMediaFiles()
{
    const QString first = path(QStringLiteral("a.png"));
    const QString second = path(QStringLiteral("b.bmp"));
    const QString pdf = path(QStringLiteral("c.pdf"));
    writeImage(first, QSize(4, 4), Qt::red);
    writeImage(second, QSize(4, 4), Qt::blue);
    writeBytes(pdf, "%PDF-1.4\n");

    test::FakePasteboard pasteboard;
    ClipboardRequest request;
    request.clip = textClip(QStringLiteral("/m"), QStringLiteral("caption"), {first, second, pdf});
    request.includeMedia = true;
    prepareClipboard(pasteboard, request, fixedSources());

    const QMimeData& data = *pasteboard.written;
    QCOMPARE(data.text(), QStringLiteral("caption"));
    QCOMPARE(data.data(QStringLiteral("image/png")), readBytes(first));
    QVERIFY(!data.hasFormat(QStringLiteral("image/bmp")));
    QCOMPARE(data.urls(), QList<QUrl>({QUrl::fromLocalFile(second), QUrl::fromLocalFile(pdf)}));
    QCOMPARE(data.data(gnomeFiles),
             "copy\n" + QUrl::fromLocalFile(second).toEncoded() + '\n' + QUrl::fromLocalFile(pdf).toEncoded());
}

void TestClipboardPreparation::batchJoinsAndFlattens_data()
{
    QTest::addColumn<QString>("separator");
    QTest::addColumn<QString>("joined");
    QTest::addColumn<QString>("notice");

    QTest::newRow("spaces") << " "
                            << "one two a b c d last"
                            << "Pasted 4 text shortcuts with spaces and 0 media item(s)";
    QTest::newRow("lines") << "\n"
                           << "one two\na b c d\nlast"
                           << "Pasted 4 text shortcuts on separate lines and 0 media item(s)";
}

void TestClipboardPreparation::batchJoinsAndFlattens()
{
    QFETCH(QString, separator);
    QFETCH(QString, joined);
    QFETCH(QString, notice);

    const QList<Clip> clips = {
        textClip(QStringLiteral("/a1"), QStringLiteral("one\r\ntwo")),
        textClip(QStringLiteral("/a2"), QStringLiteral(" a\tb\rc\nd ")),
        textClip(QStringLiteral("/a3"), QStringLiteral(" \r\n\t ")), // empty once flattened: dropped
        textClip(QStringLiteral("/a4"), QStringLiteral("last")),
    };
    test::FakePasteboard pasteboard;
    QCOMPARE(prepareBatchClipboard(pasteboard, clips, separator, attachments(), fixedSources()), notice);

    const QMimeData& data = *pasteboard.written;
    QCOMPARE(data.text(), joined);
    if (separator.contains(u'\n')) {
        QCOMPARE(data.html(), QStringLiteral("<table><tr><td>one two</td></tr><tr><td>a b c d</td></tr>"
                                             "<tr><td>last</td></tr></table>"));
        QCOMPARE(data.data(QStringLiteral("text/tab-separated-values")), joined.toUtf8());
    } else {
        QCOMPARE(data.formats(), QStringList{QStringLiteral("text/plain")});
    }
}

void TestClipboardPreparation::batchKeepsTimestampLiteral()
{
    test::FakePasteboard pasteboard;
    pasteboard.text = QStringLiteral("old");
    const QList<Clip> clips = {textClip(QStringLiteral("/t"), QStringLiteral("at {{timestamp}} {{clipboard}}"))};
    prepareBatchClipboard(pasteboard, clips, QStringLiteral(" "), attachments(), fixedSources());

    QCOMPARE(pasteboard.written->text(), QStringLiteral("at {{timestamp}} old"));
}

void TestClipboardPreparation::batchTakesFirstTenFilesBeforeLookingAtThem()
{
    QStringList missing;
    for (int i = 0; i < 10; ++i) {
        missing.append(path(QStringLiteral("missing%1.pdf").arg(i)));
    }
    const QString existing = path(QStringLiteral("real.png"));
    writeImage(existing, QSize(4, 4), Qt::red);
    const QList<Clip> clips = {textClip(QStringLiteral("/a"), QStringLiteral("x"), missing),
                               textClip(QStringLiteral("/b"), QStringLiteral("y"), {existing})};

    test::FakePasteboard pasteboard;
    QCOMPARE(prepareBatchClipboard(pasteboard, clips, QStringLiteral(" "), attachments(), fixedSources()),
             QStringLiteral("Pasted 2 text shortcuts with spaces and 0 media item(s)"));
    QCOMPARE(pasteboard.written->formats(), QStringList{QStringLiteral("text/plain")});
}

void TestClipboardPreparation::batchWithOneMediaFilePastesItDirectly()
{
    const QString image = path(QStringLiteral("one.png"));
    writeImage(image, QSize(4, 4), Qt::red);
    const QList<Clip> clips = {textClip(QStringLiteral("/a"), QStringLiteral("hello")),
                               textClip(QStringLiteral("/b"), QString(), {image, path(QStringLiteral("gone.pdf"))})};

    test::FakePasteboard pasteboard;
    QCOMPARE(prepareBatchClipboard(pasteboard, clips, batchLineSeparator, attachments(), fixedSources()),
             QStringLiteral("Pasted 2 text shortcuts on separate lines and 1 media item(s)"));
    QCOMPARE(pasteboard.written->text(), QStringLiteral("hello"));
    QCOMPARE(pasteboard.written->data(QStringLiteral("image/png")), readBytes(image));
    QVERIFY(!QDir(attachments()).exists());
}

void TestClipboardPreparation::aggregateLeavesOneFile()
{
    const QString pdf = path(QStringLiteral("b.pdf"));
    writeBytes(pdf, "%PDF-1.4\n");
    QCOMPARE(aggregateBatchMedia({}, attachments()), QStringList());
    QCOMPARE(aggregateBatchMedia({path(QStringLiteral("gone.png")), pdf}, attachments()), QStringList{pdf});
    QVERIFY(!QDir(attachments()).exists());
}

void TestClipboardPreparation::aggregateImagesIntoContactSheet()
{
    // Four images, the second one broken: it leaves its cell empty and the green one starts the
    // second row.
    const QString red = path(QStringLiteral("red wide.png"));
    const QString broken = path(QStringLiteral("broken.png"));
    const QString blue = path(QStringLiteral("blue tall.jpg"));
    const QString green = path(QStringLiteral("green.bmp"));
    writeImage(red, QSize(100, 50), Qt::red);
    writeBytes(broken, "not an image");
    writeImage(blue, QSize(60, 120), Qt::blue);
    writeImage(green, QSize(40, 40), Qt::green);

    const QStringList result = aggregateBatchMedia({red, broken, blue, green}, attachments());
    QCOMPARE(result.size(), 1);
    QVERIFY(QRegularExpression(QStringLiteral("^Tavo-Batch-[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}"
                                              "\\.png$"))
                .match(QFileInfo(result.first()).fileName())
                .hasMatch());
    QCOMPARE(QFileInfo(result.first()).absolutePath(), attachments());

    const QImage sheet(result.first());
    QCOMPARE(sheet.size(), QSize(1020, 560));
    // The box of a cell is 300 × 198, 20 in from its left and 48 up from its bottom: y 34..232
    // in the first row. Red 100 × 50 fills its width (x 20..320, y 58..208).
    QVERIFY(near(sheet.pixelColor(170, 133), Qt::red));
    QVERIFY(near(sheet.pixelColor(170, 50), Qt::white));
    QVERIFY(near(sheet.pixelColor(510, 133), Qt::white));
    // Blue 60 × 120 fills the box's height, centred: x 800.5..899.5.
    QVERIFY(near(sheet.pixelColor(830, 133), Qt::blue));
    QVERIFY(near(sheet.pixelColor(760, 133), Qt::white));
    // Green 40 × 40 becomes 198 × 198 at x 71..269 in the second row (y 314..512).
    QVERIFY(near(sheet.pixelColor(170, 413), Qt::green));
    QVERIFY(near(sheet.pixelColor(50, 413), Qt::white));

    // Labels sit above the bottom 14 pixels of an image's cell, none under the broken one.
    const auto hasInk = [&](QRect area) {
        for (int y = area.top(); y <= area.bottom(); ++y) {
            for (int x = area.left(); x <= area.right(); ++x) {
                if (sheet.pixelColor(x, y).lightness() < 200) {
                    return true;
                }
            }
        }
        return false;
    };
    QVERIFY(hasInk(QRect(16, 240, 300, 26)));
    QVERIFY(!hasInk(QRect(16, 266, 300, 14)));
    QVERIFY(!hasInk(QRect(356, 240, 300, 26)));
}

void TestClipboardPreparation::aggregateMixedFilesIntoZip()
{
    const QString image = path(QStringLiteral("a.png"));
    const QString pdf = path(QStringLiteral("nested/report.pdf"));
    const QString samePdfName = path(QStringLiteral("other/report.pdf"));
    writeImage(image, QSize(4, 4), Qt::red);
    writeBytes(pdf, "%PDF-1.4 first\n");
    writeBytes(samePdfName, "%PDF-1.4 second\n");

    const QStringList result = aggregateBatchMedia({image, pdf, samePdfName}, attachments());
    QCOMPARE(result.size(), 1);
    const QString top = QFileInfo(result.first()).completeBaseName();
    QVERIFY(top.startsWith(QStringLiteral("Tavo-Batch-")));
    QCOMPARE(result.first(), attachments() + u'/' + top + QStringLiteral(".zip"));
    QCOMPARE(QDir(attachments()).entryList(QDir::Files | QDir::Hidden), QStringList{top + QStringLiteral(".zip")});

    const QList<ZipEntry> entries = readZip(result.first());
    QCOMPARE(entries.size(), 4);
    QCOMPARE(entries[0].name, top + u'/');
    QCOMPARE(entries[1].name, top + QStringLiteral("/a.png"));
    QCOMPARE(entries[1].data, readBytes(image));
    QCOMPARE(entries[2].name, top + QStringLiteral("/report.pdf"));
    QCOMPARE(entries[2].data, readBytes(pdf));
    QCOMPARE(entries[3].name, top + QStringLiteral("/report 2.pdf"));
    QCOMPARE(entries[3].data, readBytes(samePdfName));
}

void TestClipboardPreparation::aggregateTakesTenExistingFiles()
{
    QStringList paths = {path(QStringLiteral("missing.pdf"))};
    for (int i = 0; i < 11; ++i) {
        paths.append(path(QStringLiteral("file%1.pdf").arg(i)));
        writeBytes(paths.last(), QByteArray::number(i));
    }
    const QStringList result = aggregateBatchMedia(paths, attachments());
    QCOMPARE(result.size(), 1);

    QStringList names;
    for (const ZipEntry& entry : readZip(result.first())) {
        names.append(entry.name.section(u'/', 1));
    }
    QStringList expected = {QString()};
    for (int i = 0; i < 10; ++i) {
        expected.append(QStringLiteral("file%1.pdf").arg(i));
    }
    QCOMPARE(names, expected);
}

void TestClipboardPreparation::aggregateFallsBackToTheFiles()
{
    const QString first = path(QStringLiteral("a.pdf"));
    const QString second = path(QStringLiteral("b.png"));
    writeBytes(first, "%PDF-1.4\n");
    writeImage(second, QSize(4, 4), Qt::red);
    const QString blocked = path(QStringLiteral("file-not-folder"));
    writeBytes(blocked, "x");

    QCOMPARE(aggregateBatchMedia({first, second}, blocked + QStringLiteral("/Attachments")),
             QStringList({first, second}));
}

std::pair<bool, QString> TestClipboardPreparation::download(DB& db, const Clip& clip)
{
    QNetworkAccessManager network;
    std::optional<std::pair<bool, QString>> outcome;
    downloadDefaultMedia(db, clip, network, [&](bool ok, const QString& notice) { outcome = std::pair(ok, notice); });
    [&] { QTRY_VERIFY_WITH_TIMEOUT(outcome.has_value(), 15000); }();
    qunsetenv("TAVO_WIKIPEDIA_URL");
    return outcome.value_or(std::pair(false, QStringLiteral("no answer")));
}

void TestClipboardPreparation::downloadsPortrait()
{
    LoopbackHttpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    qputenv("TAVO_WIKIPEDIA_URL", server.base().toUtf8() + '/');
    QImage portrait(16, 16, QImage::Format_RGB32);
    portrait.fill(Qt::magenta);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    portrait.save(&buffer, "PNG");
    QJsonObject thumbnail;
    thumbnail.insert(QStringLiteral("source"), QString(server.base() + QStringLiteral("/thumb/320px-Ada.png")));
    QJsonObject summary;
    summary.insert(QStringLiteral("title"), QStringLiteral("Ada Lovelace (mathematician)"));
    summary.insert(QStringLiteral("thumbnail"), thumbnail);
    server.routes.insert(QStringLiteral("/api/rest_v1/page/summary/Ada_Lovelace_%28mathematician%29"),
                         {200, "application/json", QJsonDocument(summary).toJson()});
    server.routes.insert(QStringLiteral("/thumb/320px-Ada.png"), {200, "image/png", png});

    Defaults defaults(path(QStringLiteral("defaults.json")));
    DB db(defaults, path(QStringLiteral("store")));
    Clip seed = textClip(QStringLiteral("/ada.media"), QString());
    seed.defaultMediaArticle = QStringLiteral("Ada Lovelace (mathematician)");
    db.setClips({textClip(QStringLiteral("/other"), QStringLiteral("x")), seed});
    QVERIFY(db.save());

    QCOMPARE(download(db, seed), std::pair(true, QString()));
    QCOMPARE(server.requestedPaths.size(), 2);
    QVERIFY(server.userAgents.value(0).startsWith("Tavo/"));
    const QString saved = db.attachmentsDir() + QStringLiteral("/ada_lovelace_-mathematician-.png");
    QCOMPARE(readBytes(saved), png);
    QCOMPARE(db.clips()[1].files, QStringList{saved});
    QVERIFY(db.clips()[0].files.isEmpty());

    DB reread(defaults, path(QStringLiteral("store")));
    QCOMPARE(reread.clips()[1].files, QStringList{saved});
}

void TestClipboardPreparation::downloadFailures_data()
{
    QTest::addColumn<int>("summaryStatus");
    QTest::addColumn<QByteArray>("summaryBody");
    QTest::addColumn<QByteArray>("imageType");

    const QByteArray withImage = R"({"originalimage":{"source":"/img/ada.jpg"}})";
    QTest::newRow("no such article") << 404 << QByteArray() << QByteArray("image/jpeg");
    QTest::newRow("article without a picture") << 200 << QByteArray(R"({"title":"Ada"})") << QByteArray("image/jpeg");
    QTest::newRow("summary moved") << 301 << withImage << QByteArray("image/jpeg");
    QTest::newRow("picture is a web page") << 200 << withImage << QByteArray("text/html");
    QTest::newRow("picture missing") << 200 << withImage << QByteArray();
}

void TestClipboardPreparation::downloadFailures()
{
    QFETCH(int, summaryStatus);
    QFETCH(QByteArray, summaryBody);
    QFETCH(QByteArray, imageType);

    LoopbackHttpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    qputenv("TAVO_WIKIPEDIA_URL", server.base().toUtf8());
    server.routes.insert(QStringLiteral("/api/rest_v1/page/summary/Ada"),
                         {summaryStatus, "application/json", summaryBody});
    if (!imageType.isEmpty()) {
        server.routes.insert(QStringLiteral("/img/ada.jpg"), {200, imageType, "\xff\xd8\xff\xe0 bytes"});
    }

    Defaults defaults(path(QStringLiteral("defaults.json")));
    DB db(defaults, path(QStringLiteral("store")));
    Clip seed = textClip(QStringLiteral("/ada.media"), QString());
    seed.defaultMediaArticle = QStringLiteral("Ada");
    db.setClips({seed});

    QCOMPARE(download(db, seed), std::pair(false, portraitNotice));
    QVERIFY(db.clips()[0].files.isEmpty());
    QVERIFY(QDir(db.attachmentsDir()).isEmpty());
}

QTEST_MAIN(TestClipboardPreparation)
#include "tst_clipboard_preparation.moc"
