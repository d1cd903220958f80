#include "exchange/csv.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QDir>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

// "key|name|text|group|further groups|number of files"
QStringList described(const QList<Clip>& clips)
{
    QStringList lines;
    for (const Clip& clip : clips) {
        lines.append(QStringList{clip.key, clip.name, clip.text, clip.group,
                                 clip.groups.value_or(QStringList()).join(u','), QString::number(clip.files.size())}
                         .join(u'|'));
    }
    return lines;
}

QList<Clip> savedClips(const QString& user)
{
    Defaults defaults;
    DB db(defaults, QString(), DB::Access::ReadOnly);
    db.activateProfile(user);
    return db.clips();
}

// GET /<name> answered from `files`, 404 otherwise, on 127.0.0.1.
class MediaServer : public QTcpServer
{
public:
    QHash<QByteArray, QByteArray> files;

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
};

} // namespace

// tavoctl's csv import and export through the real binary, over a profile in the test's home.
class TestTavoctlCSV : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void commands_data();
    void commands();
    void roundTripBetweenAccounts();

private:
    struct Run
    {
        int status = -1;
        QString out;
        QString err;
    };
    // Runs without blocking the event loop, so the test's own server can answer the command.
    Run tavoctl(const QStringList& arguments, const QByteArray& input = {});
    QString expanded(QString text) const;

    MediaServer m_server;
};

TestTavoctlCSV::Run TestTavoctlCSV::tavoctl(const QStringList& arguments, const QByteArray& input)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"TAVO_DOWNLOAD_TIMEOUT_SECONDS"_s, u"5"_s);
    process.setProcessEnvironment(environment);
    QSignalSpy finished(&process, &QProcess::finished);
    process.start(QStringLiteral(TAVOCTL_PATH), arguments);
    if (!process.waitForStarted()) {
        return {};
    }
    process.write(input);
    process.closeWriteChannel();
    if (!finished.wait(60'000)) {
        process.kill();
        return {};
    }
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

QString TestTavoctlCSV::expanded(QString text) const
{
    return text.replace(u"{home}"_s, QDir::homePath())
        .replace(u"{server}"_s, u"http://127.0.0.1:%1"_s.arg(m_server.serverPort()));
}

void TestTavoctlCSV::initTestCase()
{
    QVERIFY(m_server.listen(QHostAddress::LocalHost, 0));
    m_server.files.insert("/logo.png", "PNG");
}

void TestTavoctlCSV::init()
{
    QDir(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/Tavo"_s).removeRecursively();
    QDir(qEnvironmentVariable("XDG_DATA_HOME") + u"/Quill"_s).removeRecursively();
    Defaults defaults;
    TavoAccountStore(defaults).accept(u"sam"_s);
    DB(defaults).activateProfile(u"sam"_s);
}

void TestTavoctlCSV::commands_data()
{
    QTest::addColumn<QStringList>("arguments"); // {home} and {server} are filled in
    QTest::addColumn<QByteArray>("input");      // standard input, and the file {home}/in.csv
    QTest::addColumn<bool>("signedIn");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");
    QTest::addColumn<QStringList>("added"); // shortcuts after the ones sam had

    QTest::newRow("import a file") << QStringList{u"csv"_s, u"import"_s, u"{home}/in.csv"_s}
                                   << "shortcut,expansion\n/a,x\n/b,y,Bee,clients"_ba << true << 0
                                   << u"Imported 2 shortcuts · 0 media downloaded\n"_s << QString()
                                   << QStringList{u"/a|/a|x|Imported||0"_s, u"/b|Bee|y|clients||0"_s};
    QTest::newRow("import standard input into the given collections, each counted")
        << QStringList{u"csv"_s, u"import"_s, u"-"_s, u"--collection"_s, u"work"_s, u"--collection=Personal"_s}
        << "/c,z\n/d,w,,Sales"_ba << true << 0 << u"Imported 2 shortcuts · 0 media downloaded\n"_s << QString()
        << QStringList{u"/c|/c|z|Personal|Work|0"_s, u"/d|/d|w|Sales||0"_s};
    QTest::newRow("Windows-1252 from standard input")
        << QStringList{u"csv"_s, u"import"_s, u"-"_s} << "/caf\xE9;cr\xE8me"_ba << true << 0
        << u"Imported 1 shortcuts · 0 media downloaded\n"_s << QString()
        << QStringList{u"/café|/café|crème|Imported||0"_s};
    QTest::newRow("media downloaded, one failure told")
        << QStringList{u"csv"_s, u"import"_s, u"-"_s, u"--download-media"_s}
        << "/logo,x,,,{server}/logo.png;{server}/gone.png"_ba << true << 0
        << u"Imported 1 shortcuts · 1 media downloaded · 1 download(s) failed\n"_s
        << u"Download failed: {server}/gone.png: The server answered 404.\n"_s
        << QStringList{u"/logo|/logo|x|Imported||1"_s};
    QTest::newRow("media left alone without the switch")
        << QStringList{u"csv"_s, u"import"_s, u"-"_s} << "/logo,x,,,{server}/logo.png"_ba << true << 0
        << u"Imported 1 shortcuts · 0 media downloaded\n"_s << QString() << QStringList{u"/logo|/logo|x|Imported||0"_s};
    QTest::newRow("a file that is not there")
        << QStringList{u"csv"_s, u"import"_s, u"{home}/none.csv"_s} << QByteArray() << true << 1 << QString()
        << u"Could not read {home}/none.csv: No such file or directory\n"_s << QStringList();
    QTest::newRow("import signed out") << QStringList{u"csv"_s, u"import"_s, u"-"_s} << "/a,b"_ba << false << 1
                                       << QString() << u"Sign in to Tavo first.\n"_s << QStringList();
    QTest::newRow("export signed out") << QStringList{u"csv"_s, u"export"_s, u"{home}/out.csv"_s} << QByteArray()
                                       << false << 1 << QString() << u"Sign in to Tavo first.\n"_s << QStringList();
    QTest::newRow("export every shortcut")
        << QStringList{u"csv"_s, u"export"_s, u"{home}/out.csv"_s} << QByteArray() << true << 0
        << u"Exported {count} shortcuts to out.csv\n"_s << QString() << QStringList();
    QTest::newRow("export into a missing folder")
        << QStringList{u"csv"_s, u"export"_s, u"{home}/no/such/out.csv"_s} << QByteArray() << true << 1 << QString()
        << u"Export failed: "_s << QStringList();
    QTest::newRow("an unknown action") << QStringList{u"csv"_s, u"merge"_s} << QByteArray() << true << 2 << QString()
                                       << u"Usage: tavoctl csv import"_s << QStringList();
}

void TestTavoctlCSV::commands()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, input);
    QFETCH(bool, signedIn);
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, err);
    QFETCH(QStringList, added);

    if (!signedIn) {
        Defaults defaults;
        TavoAccountStore(defaults).signOut();
    }
    input = expanded(QString::fromLatin1(input)).toLatin1();
    QFile file(QDir::home().filePath(u"in.csv"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(input);
    file.close();
    const QList<Clip> before = savedClips(u"sam"_s);

    for (QString& argument : arguments) {
        argument = expanded(argument);
    }
    const Run run = tavoctl(arguments, input);
    QCOMPARE(run.status, status);
    QCOMPARE(run.out, expanded(out).replace(u"{count}"_s, QString::number(before.size())));
    if (err.endsWith(u'\n')) {
        QCOMPARE(run.err, expanded(err));
    } else {
        QVERIFY2(run.err.startsWith(expanded(err)), qPrintable(run.err));
    }

    const QList<Clip> after = savedClips(u"sam"_s);
    QCOMPARE(after.mid(0, before.size()), before);
    QCOMPARE(described(after.mid(before.size())), added);
    const QString attachments = qEnvironmentVariable("XDG_DATA_HOME") + u"/Quill"_s;
    for (const Clip& clip : after.mid(before.size())) {
        for (const QString& path : clip.files) {
            QVERIFY2(path.startsWith(attachments), qPrintable(path));
            QFile media(path);
            QVERIFY(media.open(QIODevice::ReadOnly));
            QCOMPARE(media.readAll(), QByteArray("PNG"));
        }
    }
    if (arguments.contains(u"export"_s) && status == 0) {
        QFile exported(arguments.last());
        QVERIFY(exported.open(QIODevice::ReadOnly));
        QCOMPARE(exported.readAll(), exportCSVText(after).toUtf8());
    }
}

void TestTavoctlCSV::roundTripBetweenAccounts()
{
    const QString path = QDir::home().filePath(u"Tavo-Shortcuts.csv"_s);
    QCOMPARE(tavoctl({u"csv"_s, u"import"_s, u"-"_s},
                     "/zoom.web,\"open, then\r\n\"\"join\"\"\",Zoom,Websites & URLs; Work\n/hi,Hello,,Clients")
                 .status,
             0);
    const QList<Clip> sams = savedClips(u"sam"_s);
    const Run exported = tavoctl({u"csv"_s, u"export"_s, path});
    QCOMPARE(exported.err, QString());
    QCOMPARE(exported.out, u"Exported %1 shortcuts to Tavo-Shortcuts.csv\n"_s.arg(sams.size()));

    {
        Defaults defaults;
        TavoAccountStore(defaults).accept(u"kim"_s);
        DB db(defaults);
        db.activateProfile(u"kim"_s);
        db.setClips({});
        QVERIFY(db.save());
    }
    const Run imported = tavoctl({u"csv"_s, u"import"_s, path});
    QCOMPARE(imported.err, QString());
    QCOMPARE(imported.out, u"Imported %1 shortcuts · 0 media downloaded\n"_s.arg(sams.size()));
    QList<Clip> expected = sams;
    for (Clip& clip : expected) {
        clip.text.replace(u"\r\n"_s, u"\n"_s).replace(u'\r', u'\n');
        clip.files.clear(); // paths are not addresses: nothing to download
    }
    QCOMPARE(described(savedClips(u"kim"_s)), described(expected));
}

QTEST_GUILESS_MAIN(TestTavoctlCSV)
#include "tst_tavoctl_csv.moc"
