#include "e2e_support.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPlainTextEdit>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

// A website shortcut typed into another program's window, as a person does it: the trigger goes
// from that window, and the page opens in a tab of Tavo's own browser, in front.
class TestWebsiteShortcutEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void aWebsiteShortcutOpensInTavoBrowser();

private:
    // What tavoctl printed, or nothing when it failed.
    static std::optional<QByteArray> tavoctl(const QStringList& arguments, const QByteArray& input = {});
    // The stored tab whose address is the loopback page, as tavoctl sees it.
    QJsonObject pageTab() const;

    QTcpServer m_server;
    int m_requests = 0;
    QString m_pageURL;
    e2e::TavoRun m_tavoRun;
    std::unique_ptr<QPlainTextEdit> m_editor;
};

std::optional<QByteArray> TestWebsiteShortcutEndToEnd::tavoctl(const QStringList& arguments, const QByteArray& input)
{
    QProcess process;
    process.start(QStringLiteral(TAVOCTL_PATH), arguments);
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(30000);
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        return std::nullopt;
    }
    return process.readAllStandardOutput();
}

QJsonObject TestWebsiteShortcutEndToEnd::pageTab() const
{
    const std::optional<QByteArray> out =
        tavoctl({QStringLiteral("browser"), QStringLiteral("tabs"), QStringLiteral("--json")});
    const QJsonObject state = QJsonDocument::fromJson(out.value_or(QByteArray())).object();
    for (const QJsonValue tab : state.value(QStringLiteral("tabs")).toArray()) {
        if (tab[QStringLiteral("url")].toString().startsWith(m_pageURL)) {
            return tab.toObject();
        }
    }
    return {};
}

void TestWebsiteShortcutEndToEnd::initTestCase()
{
    // One page on loopback, whatever is asked for.
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                if (!socket->readAll().contains("\r\n\r\n")) {
                    return; // the rest of the request comes later; browsers send it in one piece
                }
                ++m_requests;
                const QByteArray body = "<html><head><title>Loopback page</title></head><body>Hi</body></html>";
                socket->write("HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
                              QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
                socket->disconnectFromHost();
            });
        }
    });
    QVERIFY(m_server.listen(QHostAddress::LocalHost, 0));
    m_pageURL = QStringLiteral("http://127.0.0.1:%1/").arg(m_server.serverPort());

    QVERIFY(tavoctl({QStringLiteral("account"), QStringLiteral("register"), QStringLiteral("sam")}, "correct horse\n"));
    {
        // A website shortcut as the editor saves one.
        tavo::Defaults defaults;
        tavo::DB db(defaults);
        db.activateProfile(QStringLiteral("sam"));
        tavo::Clip site;
        site.key = QStringLiteral("/site");
        site.name = QStringLiteral("Loopback");
        site.group = QStringLiteral("Websites & URLs");
        site.webURL = m_pageURL + QStringLiteral("docs");
        db.setClips(QList<tavo::Clip>(db.clips()) << site);
        QVERIFY(db.save());
    }

    m_editor = e2e::targetWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_editor.get()));
    m_tavoRun.start();
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoRun.log.contains("keyboard tap running"), 15000);
}

void TestWebsiteShortcutEndToEnd::cleanupTestCase()
{
    m_tavoRun.stop();
}

void TestWebsiteShortcutEndToEnd::aWebsiteShortcutOpensInTavoBrowser()
{
    QVERIFY(pageTab().isEmpty());
    e2e::xdotool(
        {QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("12"), QStringLiteral("Go \\site ")});

    // The trigger and its ending key are gone from the target, and Tavo says where the page went.
    QTRY_COMPARE_WITH_TIMEOUT(m_editor->toPlainText(), QStringLiteral("Go "), 5000);
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoRun.log.contains("notice: Opened Loopback in Tavo Browser"), 5000);
    QVERIFY(m_tavoRun.log.contains("section: Browser"));

    // The new tab loaded the page from loopback, and the page's title reached the tab.
    QTRY_VERIFY_WITH_TIMEOUT(m_requests > 0, 30000);
    QTRY_COMPARE_WITH_TIMEOUT(pageTab().value(QStringLiteral("title")).toString(), QStringLiteral("Loopback page"),
                              30000);
    QCOMPARE(pageTab().value(QStringLiteral("url")).toString(), m_pageURL + QStringLiteral("docs"));
    QCOMPARE(m_editor->toPlainText(), QStringLiteral("Go "));

    // Tavo stands in front, also once its window has been made anew for the page.
    const auto activeTitle = [] {
        QProcess active;
        active.start(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow"), QStringLiteral("getwindowname")});
        active.waitForFinished(5000);
        return active.readAllStandardOutput().trimmed();
    };
    QTRY_COMPARE_WITH_TIMEOUT(activeTitle(), QByteArray("Tavo"), 5000);
}

QTEST_MAIN(TestWebsiteShortcutEndToEnd)
#include "tst_website_shortcut_e2e.moc"
