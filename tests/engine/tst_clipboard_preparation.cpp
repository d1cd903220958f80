#include "engine/clipboard_preparation.h"
#include "engine/rich_text.h"
#include "fakes/fake_pasteboard.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QNetworkAccessManager>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <zip.h>

using namespace tavo;

Q_DECLARE_METATYPE(tavo::ShortcutTextStyle)

namespace {

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
    QImage image(size, QImage::Format_RGB32);
    image.fill(color);
    QVERIFY(image.save(path));
}

bool near(QColor actual, QColor expected)
{
    return qAbs(actual.red() - expected.red()) < 40 && qAbs(actual.green() - expected.green()) < 40 &&
           qAbs(actual.blue() - expected.blue()) < 40;
}

// One outer group whose unescaped braces balance.
bool rtfGroupsBalance(const QByteArray& rtf)
{
    return rtf.startsWith('{') && rtf.endsWith('}') &&
           rtf.count('{') - rtf.count("\\{") == rtf.count('}') - rtf.count("\\}");
}

// Name and contents of each entry, in archive order.
QList<std::pair<QString, QByteArray>> readZip(const QString& path)
{
    QList<std::pair<QString, QByteArray>> entries;
    zip_t* archive = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, nullptr);
    if (!archive) {
        return entries;
    }
    for (zip_uint64_t i = 0; i < zip_uint64_t(zip_get_num_entries(archive, 0)); ++i) {
        zip_stat_t stat;
        zip_stat_index(archive, i, 0, &stat);
        QByteArray data(qsizetype(stat.size), '\0');
        if (zip_file_t* file = zip_fopen_index(archive, i, 0)) {
            zip_fread(file, data.data(), stat.size);
            zip_fclose(file);
        }
        entries.append({QString::fromUtf8(stat.name), data});
    }
    zip_close(archive);
    return entries;
}

// Just enough HTTP/1.1 for one GET per connection: path to content type and body.
class LoopbackHttpServer : public QTcpServer
{
public:
    QHash<QString, std::pair<QByteArray, QByteArray>> routes;
    QList<QByteArray> requests;

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
        const QByteArray request = socket->property("request").toByteArray() + socket->readAll();
        socket->setProperty("request", request);
        if (!request.contains("\r\n\r\n")) {
            return;
        }
        requests.append(request);
        const QString path = QString::fromLatin1(request.split(' ').value(1));
        const bool found = routes.contains(path);
        const auto [type, body] = routes.value(path, {"text/plain", "not found"});
        socket->write((found ? "HTTP/1.1 200 OK" : "HTTP/1.1 404 Not Found") + QByteArray("\r\nContent-Type: ") + type +
                      "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" +
                      body);
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
    void styledText();
    void tabularRowsEscapeAmpersandFirst();
    void media_data();
    void media();
    void batchJoinsAndFlattens_data();
    void batchJoinsAndFlattens();
    void aggregateImagesIntoContactSheet();
    void aggregateMixedFilesIntoZip();
    void download_data();
    void download();

private:
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

    QCOMPARE(prepareClipboard(pasteboard, request, {}), QStringLiteral("\\q copied"));
    QCOMPARE(pasteboard.written->text(), QStringLiteral("quote: old content"));

    // Without the token the clipboard is not asked at all: a read is a round trip to its owner.
    pasteboard.reads = 0;
    request.clip.text = QStringLiteral("no token");
    prepareClipboard(pasteboard, request, {});
    QCOMPARE(pasteboard.reads, 0);
    QCOMPARE(pasteboard.written->text(), QStringLiteral("no token"));
    QCOMPARE(pasteboard.written->formats(), QStringList{QStringLiteral("text/plain")});
}

// Bold and underlined at 14.5 points; a style wins over tabular rows. The text holds a
// backslash and braces, Ä, the euro sign and an emoji (a surrogate pair, both halves above 0x7fff).
void TestClipboardPreparation::styledText()
{
    ClipboardRequest request;
    request.clip = textClip(QStringLiteral("/sig"), QStringLiteral("a\\b{c}\r\nÄ€😀\tz"));
    request.style = ShortcutTextStyle{true, false, true, 14.5};
    request.tabularRows = QStringList{QStringLiteral("Best,"), QStringLiteral("Sam")};
    test::FakePasteboard pasteboard;
    prepareClipboard(pasteboard, request, {});
    QVERIFY(!pasteboard.written->hasFormat(QStringLiteral("text/tab-separated-values")));

    const QByteArray rtf = pasteboard.written->data(QStringLiteral("text/rtf"));
    QVERIFY(rtf.startsWith("{\\rtf1\\ansi"));
    QVERIFY(rtfGroupsBalance(rtf));
    QVERIFY(rtf.contains(QByteArray("{\\fonttbl{\\f0\\fswiss " + systemFontFamily().toUtf8() + ";}}")));
    QVERIFY(rtf.contains("\\fs29"));
    QVERIFY(QString::fromLatin1(rtf).contains(QRegularExpression(QStringLiteral(R"(\\b(?![a-z]))"))));
    QVERIFY(rtf.contains("\\ul"));
    QVERIFY(rtf.endsWith("a\\\\b\\{c\\}\\par \\u196?\\u8364?\\u-10179?\\u-8704?\\tab z}"));
    QVERIFY(std::all_of(rtf.begin(), rtf.end(), [](char byte) { return uchar(byte) < 0x80; }));

    const QString html = pasteboard.written->html();
    QVERIFY(html.contains(QStringLiteral("font-size:14.5pt")));
    QVERIFY(html.contains(QStringLiteral("font-weight:bold")));
    QVERIFY(!html.contains(QStringLiteral("font-style:italic")));
    QVERIFY(html.contains(QStringLiteral("text-decoration:underline")));
    QVERIFY(html.endsWith(QStringLiteral("a\\b{c}<br>Ä€😀\tz</span>")));
    QCOMPARE(pasteboard.written->text(), request.clip.text);
}

void TestClipboardPreparation::tabularRowsEscapeAmpersandFirst()
{
    ClipboardRequest request;
    request.clip = textClip(QStringLiteral("/rows"), QString());
    request.textOverride = QStringLiteral("Tom & <b>Jerry</b>\n\"q\" 'a' &lt;");
    request.tabularRows = QStringList{QStringLiteral("Tom & <b>Jerry</b>"), QStringLiteral("\"q\" 'a' &lt;")};
    test::FakePasteboard pasteboard;
    prepareClipboard(pasteboard, request, {});

    QCOMPARE(pasteboard.written->html(),
             QStringLiteral("<table><tr><td>Tom &amp; &lt;b&gt;Jerry&lt;/b&gt;</td></tr>"
                            "<tr><td>&quot;q&quot; &#39;a&#39; &amp;lt;</td></tr></table>"));
    QCOMPARE(pasteboard.written->data(QStringLiteral("text/tab-separated-values")), request.textOverride->toUtf8());
    QCOMPARE(pasteboard.written->text(), *request.textOverride);
}

void TestClipboardPreparation::media_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<bool>("mediaAsFiles");
    QTest::addColumn<QString>("imageType"); // empty: expected as a file URL

    QTest::newRow("upper-case JPG as image data")
        << QStringLiteral("photo.JPG") << false << QStringLiteral("image/jpeg");
    QTest::newRow("png asked for as a file") << QStringLiteral("photo.png") << true << QString();
    QTest::newRow("pdf as a file") << QStringLiteral("paper.pdf") << false << QString();
}

void TestClipboardPreparation::media()
{
    QFETCH(QString, fileName);
    QFETCH(bool, mediaAsFiles);
    QFETCH(QString, imageType);

    const QString file = path(fileName);
    if (fileName.endsWith(QStringLiteral(".pdf"))) {
        writeBytes(file, "%PDF-1.4\n");
    } else {
        writeImage(file, QSize(8, 8), Qt::red);
    }
    ClipboardRequest request;
    request.clip = textClip(QStringLiteral("/m"), QString(), {file});
    request.includeText = false;
    request.includeMedia = true;
    request.mediaAsFiles = mediaAsFiles;
    test::FakePasteboard pasteboard;
    QCOMPARE(prepareClipboard(pasteboard, request, {}),
             QStringLiteral("Media copied to clipboard · choose Paste in the target app"));

    const QMimeData& data = *pasteboard.written;
    if (!imageType.isEmpty()) {
        QCOMPARE(data.formats(), QStringList{imageType});
        QCOMPARE(data.data(imageType), readBytes(file));
    } else {
        const QUrl url = QUrl::fromLocalFile(file);
        QCOMPARE(data.urls(), QList<QUrl>{url});
        QCOMPARE(data.data(QStringLiteral("x-special/gnome-copied-files")), "copy\n" + url.toEncoded());
        QCOMPARE(data.formats().size(), 2);
    }
}

void TestClipboardPreparation::batchJoinsAndFlattens_data()
{
    QTest::addColumn<QString>("separator");
    QTest::addColumn<QString>("joined");
    QTest::addColumn<QString>("notice");

    QTest::newRow("spaces") << QStringLiteral(" ") << QStringLiteral("one two a b c d {{timestamp}} old")
                            << QStringLiteral("Pasted 4 text shortcuts with spaces and 0 media item(s)");
    QTest::newRow("lines") << QStringLiteral("\n") << QStringLiteral("one two\na b c d\n{{timestamp}} old")
                           << QStringLiteral("Pasted 4 text shortcuts on separate lines and 0 media item(s)");
}

void TestClipboardPreparation::batchJoinsAndFlattens()
{
    QFETCH(QString, separator);
    QFETCH(QString, joined);
    QFETCH(QString, notice);

    // Ten missing files use up the cap, so the real image after them is never looked at.
    QStringList missing;
    for (int i = 0; i < 10; ++i) {
        missing.append(path(QStringLiteral("missing%1.pdf").arg(i)));
    }
    const QString existing = path(QStringLiteral("real.png"));
    writeImage(existing, QSize(4, 4), Qt::red);
    const QList<Clip> clips = {
        textClip(QStringLiteral("/a1"), QStringLiteral("one\r\ntwo"), missing),
        textClip(QStringLiteral("/a2"), QStringLiteral(" a\tb\rc\nd ")),
        textClip(QStringLiteral("/a3"), QStringLiteral(" \r\n\t ")), // empty once flattened: dropped
        textClip(QStringLiteral("/a4"), QStringLiteral("{{timestamp}} {{clipboard}}"), {existing}),
    };
    test::FakePasteboard pasteboard;
    pasteboard.text = QStringLiteral("old");
    QCOMPARE(prepareBatchClipboard(pasteboard, clips, separator, attachments(), {}), notice);

    const QMimeData& data = *pasteboard.written;
    QCOMPARE(data.text(), joined);
    QVERIFY(data.urls().isEmpty());
    if (separator == QStringLiteral("\n")) {
        QCOMPARE(data.html(), QStringLiteral("<table><tr><td>one two</td></tr><tr><td>a b c d</td></tr>"
                                             "<tr><td>{{timestamp}} old</td></tr></table>"));
    } else {
        QCOMPARE(data.formats(), QStringList{QStringLiteral("text/plain")});
    }
}

void TestClipboardPreparation::aggregateImagesIntoContactSheet()
{
    // The second image is broken: it leaves its cell empty and the green one starts the second row.
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
    QVERIFY(result.first().startsWith(attachments() + QStringLiteral("/Tavo-Batch-")));

    const QImage sheet(result.first());
    QCOMPARE(sheet.size(), QSize(1020, 560));
    // A cell's box is 300 × 198, 20 in from its left and 48 up from its bottom: y 34..232 in the
    // first row. Red 100 × 50 fills its width; blue 60 × 120 its height, centred at x 800.5..899.5.
    QVERIFY(near(sheet.pixelColor(170, 133), Qt::red));
    QVERIFY(near(sheet.pixelColor(170, 50), Qt::white));
    QVERIFY(near(sheet.pixelColor(510, 133), Qt::white));
    QVERIFY(near(sheet.pixelColor(830, 133), Qt::blue));
    // Green 40 × 40 becomes 198 × 198 at x 71..269 in the second row (y 314..512).
    QVERIFY(near(sheet.pixelColor(170, 413), Qt::green));
    QVERIFY(near(sheet.pixelColor(50, 413), Qt::white));
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

    const QList<std::pair<QString, QByteArray>> expected = {
        {top + u'/', QByteArray()},
        {top + QStringLiteral("/a.png"), readBytes(image)},
        {top + QStringLiteral("/report.pdf"), readBytes(pdf)},
        {top + QStringLiteral("/report 2.pdf"), readBytes(samePdfName)}};
    QCOMPARE(readZip(result.first()), expected);
}

void TestClipboardPreparation::download_data()
{
    QTest::addColumn<QByteArray>("imageType");

    QTest::newRow("portrait saved") << QByteArray("image/png");
    QTest::newRow("picture is a web page") << QByteArray("text/html");
}

void TestClipboardPreparation::download()
{
    QFETCH(QByteArray, imageType);
    const bool ok = imageType == "image/png";

    LoopbackHttpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    qputenv("TAVO_WIKIPEDIA_URL", server.base().toUtf8() + '/');
    writeImage(path(QStringLiteral("portrait.png")), QSize(16, 16), Qt::magenta);
    const QByteArray png = readBytes(path(QStringLiteral("portrait.png")));
    const QByteArray summary = R"({"title":"Ada","thumbnail":{"source":")" + server.base().toUtf8() + R"(/ada.png"}})";
    server.routes.insert(QStringLiteral("/api/rest_v1/page/summary/Ada_Lovelace_%28mathematician%29"),
                         {"application/json", summary});
    server.routes.insert(QStringLiteral("/ada.png"), {imageType, png});

    Defaults defaults(path(QStringLiteral("defaults.json")));
    DB db(defaults, path(QStringLiteral("store")));
    Clip seed = textClip(QStringLiteral("/ada.media"), QString());
    seed.defaultMediaArticle = QStringLiteral("Ada Lovelace (mathematician)");
    db.setClips({textClip(QStringLiteral("/other"), QStringLiteral("x")), seed});
    QVERIFY(db.save());

    QNetworkAccessManager network;
    std::optional<std::pair<bool, QString>> outcome;
    downloadDefaultMedia(db, seed, network,
                         [&](bool done, const QString& notice) { outcome = std::pair(done, notice); });
    QTRY_VERIFY_WITH_TIMEOUT(outcome.has_value(), 15000);
    qunsetenv("TAVO_WIKIPEDIA_URL");

    QVERIFY(db.clips()[0].files.isEmpty());
    if (!ok) {
        QVERIFY(!outcome->first);
        QVERIFY(outcome->second.startsWith(QStringLiteral("Could not download the default portrait.")));
        QVERIFY(db.clips()[1].files.isEmpty());
        QVERIFY(QDir(db.attachmentsDir()).isEmpty());
        return;
    }
    QCOMPARE(*outcome, std::pair(true, QString()));
    QVERIFY(server.requests.value(0).toLower().contains("\r\nuser-agent: tavo/"));
    const QString saved = db.attachmentsDir() + QStringLiteral("/ada_lovelace_-mathematician-.png");
    QCOMPARE(readBytes(saved), png);
    QCOMPARE(db.clips()[1].files, QStringList{saved});
    QCOMPARE(DB(defaults, path(QStringLiteral("store"))).clips()[1].files, QStringList{saved});
}

QTEST_MAIN(TestClipboardPreparation)
#include "tst_clipboard_preparation.moc"
