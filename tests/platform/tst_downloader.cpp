#include "exchange/media_name.h"
#include "platform/net/downloader.h"

#include <QDir>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QSslKey>
#include <QSslServer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <type_traits>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

// One scripted answer of the test server.
struct Response
{
    QByteArray head; // status line and headers
    QByteArray body;
    int chunkSize = 0; // 0: the body at once
    int chunkDelayMs = 0;
    bool hold = false; // keep the connection open after what was sent
};

// Just enough HTTP/1.1 on 127.0.0.1: one GET per connection, answered from `routes` by path.
// Over TLS when Base is QSslServer.
template<typename Base>
class HttpServer : public Base
{
public:
    QHash<QByteArray, Response> routes;
    QList<QByteArray> requests;

    HttpServer()
    {
        // A TLS server has a connection to offer only after its handshake.
        QObject::connect(this, &QTcpServer::pendingConnectionAvailable, this, [this] {
            while (QTcpSocket* socket = this->nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { serve(socket); });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }

    QByteArray base() const
    {
        return (std::is_same_v<Base, QSslServer> ? "https" : "http") + QByteArray("://127.0.0.1:") +
               QByteArray::number(this->serverPort());
    }

private:
    void serve(QTcpSocket* socket)
    {
        const QByteArray request = socket->property("request").toByteArray() + socket->readAll();
        socket->setProperty("request", request);
        if (!request.contains("\r\n\r\n") || socket->property("answered").toBool()) {
            return;
        }
        socket->setProperty("answered", true);
        requests.append(request);
        const QByteArray path = request.split(' ').value(1);
        const Response response =
            routes.value(path, Response{"HTTP/1.1 404 Not Found\r\nContent-Length: 9", "not found"});
        socket->write(response.head + "\r\nConnection: close\r\n\r\n");
        if (response.chunkSize <= 0) {
            socket->write(response.body);
            if (!response.hold) {
                socket->disconnectFromHost();
            }
            return;
        }
        auto* timer = new QTimer(socket);
        auto sent = std::make_shared<qsizetype>(0);
        QObject::connect(timer, &QTimer::timeout, socket, [socket, timer, sent, response] {
            socket->write(response.body.mid(*sent, response.chunkSize));
            *sent += response.chunkSize;
            if (*sent >= response.body.size()) {
                timer->stop();
                if (!response.hold) {
                    socket->disconnectFromHost();
                }
            }
        });
        timer->start(response.chunkDelayMs);
    }
};

using LocalHttpServer = HttpServer<QTcpServer>;

QStringList filesIn(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System);
}

} // namespace

class TestDownloader : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void download_data();
    void download();
    void noCookiesOrCredentials();
    void cancelRemovesThePartialFile();
    void httpsNeverFallsBackToHttp();
    void redirectRules_data();
    void redirectRules();
    void timeoutFromEnvironment_data();
    void timeoutFromEnvironment();

private:
    DownloadRequest request(const QByteArray& path, bool reduce) const;

    LocalHttpServer m_server;
    std::unique_ptr<QTemporaryDir> m_root;
    QString m_folder;
};

void TestDownloader::initTestCase()
{
    QVERIFY(m_server.listen(QHostAddress::LocalHost, 0));
    const QByteArray png = "\x89PNG-bytes";
    auto& routes = m_server.routes;
    routes.insert("/file", {"HTTP/1.1 200 OK\r\nContent-Type: image/PNG; charset=binary\r\nContent-Length: 10\r\n"
                            "Content-Disposition: attachment; filename=\"photo.png\"",
                            png});
    routes.insert("/extended", {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Disposition: attachment; "
                                "filename=\"fallback.txt\"; filename*=UTF-8''%E2%82%AC%20rates.txt",
                                "ok"});
    routes.insert("/media/clip%20one.mp4", {"HTTP/1.1 201 Created\r\nContent-Length: 2", "mp"});
    for (int hop = 1; hop <= 6; ++hop) {
        const QByteArray next = hop == 1 ? QByteArray("/file") : QByteArray("/hop") + QByteArray::number(hop - 1);
        // Relative and absolute locations alike.
        const QByteArray location = hop % 2 ? next : QByteArray(m_server.base() + next);
        routes.insert("/hop" + QByteArray::number(hop),
                      {"HTTP/1.1 302 Found\r\nLocation: " + location + "\r\nContent-Length: 0", {}});
    }
    routes.insert("/to-file", {"HTTP/1.1 301 Moved\r\nLocation: file:///etc/passwd\r\nContent-Length: 0", {}});
    routes.insert("/to-nowhere", {"HTTP/1.1 302 Found\r\nContent-Length: 0", {}});
    routes.insert("/huge", {"HTTP/1.1 200 OK\r\nContent-Length: 600000000", "only a start", 0, 0, true});
    routes.insert("/unsized", {"HTTP/1.1 200 OK", QByteArray(5000, 'x')});
    routes.insert("/stall", {"HTTP/1.1 200 OK\r\nContent-Length: 100", "first bits", 0, 0, true});
    routes.insert("/trickle", {"HTTP/1.1 200 OK\r\nContent-Length: 10", "0123456789", 1, 150});
    routes.insert(
        "/hostile",
        {"HTTP/1.1 200 OK\r\nContent-Length: 4\r\nContent-Disposition: attachment; filename=\"../../escape.sh\"",
         "evil"});
    routes.insert("/dots",
                  {"HTTP/1.1 200 OK\r\nContent-Length: 4\r\nContent-Disposition: inline; filename=..", "dots"});
}

void TestDownloader::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    m_folder = m_root->filePath(u"Attachments"_s);
    QVERIFY(QDir().mkpath(m_folder));
    m_server.requests.clear();
}

DownloadRequest TestDownloader::request(const QByteArray& path, bool reduce) const
{
    DownloadRequest request;
    request.url = QUrl::fromEncoded(m_server.base() + path);
    request.folder = m_folder;
    request.fileName = [reduce](const QString& serverName) {
        if (!reduce) {
            return serverName;
        }
        const QString reduced = reducedMediaName(serverName);
        return reduced.isEmpty() ? u"downloaded-media"_s : reduced;
    };
    request.userAgent = "Tavo-test";
    return request;
}

void TestDownloader::download_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<qint64>("maxBytes");
    QTest::addColumn<int>("idleMs");
    QTest::addColumn<int>("totalMs");
    QTest::addColumn<bool>("reduce");
    QTest::addColumn<QString>("error"); // empty: the download succeeds
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("body");

    const qint64 standard = DownloadLimits().maxBytes;
    QTest::newRow("saved under the server's name") << QByteArray("/file") << standard << 5000 << 10000 << true
                                                   << QString() << u"photo.png"_s << QByteArray("\x89PNG-bytes");
    QTest::newRow("UTF-8 name wins over the plain one") << QByteArray("/extended") << standard << 5000 << 10000 << true
                                                        << QString() << u"€ rates.txt"_s << QByteArray("ok");
    QTest::newRow("any 2xx, named from the address") << QByteArray("/media/clip%20one.mp4") << standard << 5000 << 10000
                                                     << true << QString() << u"clip one.mp4"_s << QByteArray("mp");
    QTest::newRow("404") << QByteArray("/missing") << standard << 5000 << 10000 << true << u"The server answered 404."_s
                         << QString() << QByteArray();
    QTest::newRow("five redirects followed") << QByteArray("/hop5") << standard << 5000 << 10000 << true << QString()
                                             << u"photo.png"_s << QByteArray("\x89PNG-bytes");
    QTest::newRow("a sixth redirect refused") << QByteArray("/hop6") << standard << 5000 << 10000 << true
                                              << u"Too many redirects."_s << QString() << QByteArray();
    QTest::newRow("redirect to file: refused")
        << QByteArray("/to-file") << standard << 5000 << 10000 << true
        << u"The server redirected to an address that cannot be downloaded."_s << QString() << QByteArray();
    QTest::newRow("redirect without a place to go") << QByteArray("/to-nowhere") << standard << 5000 << 10000 << true
                                                    << u"The server answered 302."_s << QString() << QByteArray();
    // The server sends the start of the body and then waits: only a refusal at the headers
    // gives this text rather than the idle time-out's.
    QTest::newRow("huge Content-Length refused before the body")
        << QByteArray("/huge") << standard << 3000 << 6000 << true << u"The file is over the download limit."_s
        << QString() << QByteArray();
    QTest::newRow("declared length over a small limit")
        << QByteArray("/file") << qint64(9) << 5000 << 10000 << true << u"The file is over the download limit."_s
        << QString() << QByteArray();
    QTest::newRow("a longer body without a length cut off")
        << QByteArray("/unsized") << qint64(1000) << 5000 << 10000 << true << u"The file is over the download limit."_s
        << QString() << QByteArray();
    QTest::newRow("an unsized body within the limit") << QByteArray("/unsized") << qint64(5000) << 5000 << 10000 << true
                                                      << QString() << u"unsized"_s << QByteArray(5000, 'x');
    QTest::newRow("stall after part of the body") << QByteArray("/stall") << standard << 500 << 10000 << true
                                                  << u"No data arrived for 0.5 seconds."_s << QString() << QByteArray();
    QTest::newRow("trickle: each gap within the idle time")
        << QByteArray("/trickle") << standard << 1000 << 10000 << true << QString() << u"trickle"_s
        << QByteArray("0123456789");
    QTest::newRow("trickle past the whole deadline")
        << QByteArray("/trickle") << standard << 1000 << 700 << true << u"The download took longer than 0.7 seconds."_s
        << QString() << QByteArray();
    QTest::newRow("hostile name reduced to its last part") << QByteArray("/hostile") << standard << 5000 << 10000
                                                           << true << QString() << u"escape.sh"_s << QByteArray("evil");
    QTest::newRow("hostile name taken as it is: refused")
        << QByteArray("/hostile") << standard << 5000 << 10000 << false << u"The server's file name cannot be used."_s
        << QString() << QByteArray();
    QTest::newRow("a name of dots") << QByteArray("/dots") << standard << 5000 << 10000 << true << QString()
                                    << u"downloaded-media"_s << QByteArray("dots");
}

void TestDownloader::download()
{
    QFETCH(QByteArray, path);
    QFETCH(qint64, maxBytes);
    QFETCH(int, idleMs);
    QFETCH(int, totalMs);
    QFETCH(bool, reduce);
    QFETCH(QString, error);
    QFETCH(QString, name);
    QFETCH(QByteArray, body);

    DownloadRequest wanted = request(path, reduce);
    wanted.limits.maxBytes = maxBytes;
    wanted.limits.idleTimeoutMs = idleMs;
    wanted.limits.totalTimeoutMs = totalMs;
    QNetworkAccessManager network;
    qint64 lastProgress = -1;
    const DownloadResult result =
        downloadNow(network, wanted, [&](qint64 received, qint64) { lastProgress = received; });

    QCOMPARE(result.error, error);
    // Nothing lands beside the folder, whatever the server names.
    QCOMPARE(QDir(m_root->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
             QStringList{u"Attachments"_s});
    if (!error.isEmpty()) {
        QVERIFY(!result.ok());
        QCOMPARE(filesIn(m_folder), QStringList()); // the partial file is gone
        return;
    }
    QCOMPARE(result.path, m_folder + u'/' + name);
    QCOMPARE(filesIn(m_folder), QStringList{name});
    QFile file(result.path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), body);
    QCOMPARE(lastProgress, qint64(body.size()));
    QVERIFY(m_server.requests.value(0).contains("\r\nUser-Agent: Tavo-test\r\n"));
    if (path == "/file") {
        QCOMPARE(result.contentType, u"image/png"_s);
        QCOMPARE(result.status, 200);
    }
}

void TestDownloader::noCookiesOrCredentials()
{
    m_server.routes.insert("/cookie", {"HTTP/1.1 302 Found\r\nSet-Cookie: session=abc; Path=/\r\nLocation: /after\r\n"
                                       "Content-Length: 0",
                                       {}});
    m_server.routes.insert("/after", {"HTTP/1.1 200 OK\r\nSet-Cookie: other=def; Path=/\r\nContent-Length: 1", "a"});
    QNetworkAccessManager network;
    DownloadRequest first = request("/cookie", true);
    first.url.setUserInfo(u"user:secret"_s);
    QVERIFY(downloadNow(network, first).ok());
    DownloadRequest second = request("/after", true);
    second.fileName = [](const QString&) { return u"second"_s; };
    QVERIFY(downloadNow(network, second).ok());

    QCOMPARE(m_server.requests.size(), 3);
    for (const QByteArray& sent : std::as_const(m_server.requests)) {
        const QByteArray lower = sent.toLower();
        QVERIFY2(!lower.contains("\r\ncookie:"), sent.constData());
        QVERIFY2(!lower.contains("\r\nauthorization:"), sent.constData());
        QVERIFY2(!lower.contains("secret"), sent.constData());
    }
}

void TestDownloader::cancelRemovesThePartialFile()
{
    QNetworkAccessManager network;
    Download download(network, request("/stall", true));
    QSignalSpy finished(&download, &Download::finished);
    QTRY_COMPARE(filesIn(m_folder).size(), 1); // the partial file with the first bits
    QVERIFY(filesIn(m_folder).first().endsWith(u".part"_s));
    download.cancel();
    QCOMPARE(finished.size(), 1);
    QVERIFY(download.result().canceled);
    QVERIFY(!download.result().ok());
    QCOMPARE(filesIn(m_folder), QStringList());
}

// A real TLS server of the test, trusted through the process's default configuration: a redirect
// from it to https is followed, one to plain http is refused before any request is made there.
void TestDownloader::httpsNeverFallsBackToHttp()
{
    const QString key = m_root->filePath(u"key.pem"_s);
    const QString certificate = m_root->filePath(u"cert.pem"_s);
    QProcess openssl;
    openssl.start(u"openssl"_s,
                  {u"req"_s, u"-x509"_s, u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s, u"ec_paramgen_curve:prime256v1"_s,
                   u"-nodes"_s, u"-days"_s, u"1"_s, u"-subj"_s, u"/CN=127.0.0.1"_s, u"-addext"_s,
                   u"subjectAltName=IP:127.0.0.1"_s, u"-keyout"_s, key, u"-out"_s, certificate});
    QVERIFY2(openssl.waitForFinished(30000) && openssl.exitCode() == 0, openssl.readAllStandardError().constData());
    QFile keyFile(key);
    QFile certificateFile(certificate);
    QVERIFY(keyFile.open(QIODevice::ReadOnly) && certificateFile.open(QIODevice::ReadOnly));
    const QSslCertificate serverCertificate(&certificateFile, QSsl::Pem);

    HttpServer<QSslServer> secure;
    QSslConfiguration serverSide = QSslConfiguration::defaultConfiguration();
    serverSide.setLocalCertificate(serverCertificate);
    serverSide.setPrivateKey(QSslKey(&keyFile, QSsl::Ec));
    serverSide.setPeerVerifyMode(QSslSocket::VerifyNone);
    secure.setSslConfiguration(serverSide);
    QVERIFY(secure.listen(QHostAddress::LocalHost, 0));
    QSslConfiguration clientSide = QSslConfiguration::defaultConfiguration();
    clientSide.addCaCertificate(serverCertificate);
    QSslConfiguration::setDefaultConfiguration(clientSide);

    secure.routes.insert("/up", {"HTTP/1.1 302 Found\r\nLocation: /ok\r\nContent-Length: 0", {}});
    secure.routes.insert("/ok", {"HTTP/1.1 200 OK\r\nContent-Length: 6", "secret"});
    secure.routes.insert("/down",
                         {"HTTP/1.1 302 Found\r\nLocation: " + m_server.base() + "/file\r\nContent-Length: 0", {}});

    QNetworkAccessManager network;
    DownloadRequest up = request("/up", true);
    up.limits.idleTimeoutMs = 5000;
    up.url = QUrl::fromEncoded(secure.base() + "/up");
    const DownloadResult followed = downloadNow(network, up);
    QCOMPARE(followed.error, QString());
    QCOMPARE(followed.finalUrl.toEncoded(), secure.base() + "/ok");

    DownloadRequest down = request("/down", true);
    down.limits.idleTimeoutMs = 5000;
    down.url = QUrl::fromEncoded(secure.base() + "/down");
    const DownloadResult refused = downloadNow(network, down);
    QCOMPARE(refused.error, u"The server redirected to an address that cannot be downloaded."_s);
    QCOMPARE(m_server.requests.size(), 0);
    QCOMPARE(filesIn(m_folder), QStringList{u"ok"_s});
}

void TestDownloader::redirectRules_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<QString>("to"); // empty: refused

    QTest::newRow("relative path") << u"http://a.test/x/y"_s << QByteArray("z") << u"http://a.test/x/z"_s;
    QTest::newRow("http to https") << u"http://a.test/"_s << QByteArray("https://b.test/f") << u"https://b.test/f"_s;
    QTest::newRow("https to https") << u"https://a.test/"_s << QByteArray("https://b.test/f") << u"https://b.test/f"_s;
    QTest::newRow("https to http refused") << u"https://a.test/"_s << QByteArray("http://b.test/f") << QString();
    QTest::newRow("scheme-relative keeps https")
        << u"https://a.test/"_s << QByteArray("//b.test/f") << u"https://b.test/f"_s;
    QTest::newRow("credentials dropped") << u"http://a.test/"_s << QByteArray("http://user:pw@b.test/f")
                                         << u"http://b.test/f"_s;
    QTest::newRow("file refused") << u"http://a.test/"_s << QByteArray("file:///etc/passwd") << QString();
    QTest::newRow("ftp refused") << u"http://a.test/"_s << QByteArray("ftp://b.test/f") << QString();
    QTest::newRow("data refused") << u"http://a.test/"_s << QByteArray("data:text/plain,hi") << QString();
    QTest::newRow("empty refused") << u"http://a.test/"_s << QByteArray("  ") << QString();
    QTest::newRow("no host refused") << u"http://a.test/"_s << QByteArray("http:///x") << QString();
}

void TestDownloader::redirectRules()
{
    QFETCH(QString, from);
    QFETCH(QByteArray, location);
    QFETCH(QString, to);
    const std::optional<QUrl> next = followableRedirect(QUrl(from), location);
    QCOMPARE(next.has_value(), !to.isEmpty());
    if (next) {
        QCOMPARE(next->toString(), to);
    }
}

void TestDownloader::timeoutFromEnvironment_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<int>("idleMs");
    QTest::addColumn<int>("totalMs");

    QTest::newRow("unset") << QByteArray() << 60000 << 120000;
    QTest::newRow("three seconds") << QByteArray("3") << 3000 << 6000;
    QTest::newRow("not a number") << QByteArray("soon") << 60000 << 120000;
    QTest::newRow("zero") << QByteArray("0") << 60000 << 120000;
}

void TestDownloader::timeoutFromEnvironment()
{
    QFETCH(QByteArray, value);
    QFETCH(int, idleMs);
    QFETCH(int, totalMs);
    if (value.isEmpty()) {
        qunsetenv("TAVO_DOWNLOAD_TIMEOUT_SECONDS");
    } else {
        qputenv("TAVO_DOWNLOAD_TIMEOUT_SECONDS", value);
    }
    const DownloadLimits limits = DownloadLimits::standard();
    qunsetenv("TAVO_DOWNLOAD_TIMEOUT_SECONDS");
    QCOMPARE(limits.idleTimeoutMs, idleMs);
    QCOMPARE(limits.totalTimeoutMs, totalMs);
    QCOMPARE(limits.maxBytes, qint64(524'288'000));
}

QTEST_GUILESS_MAIN(TestDownloader)
#include "tst_downloader.moc"
