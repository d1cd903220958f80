#include "e2e_support.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPlainTextEdit>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

using e2e::words;
using e2e::xdotool;

namespace {

const QString answer = QStringLiteral("Could you send it, please?");

QString toneRequest(const QString& tone, const QString& text)
{
    return QStringLiteral("Rewrite the clipboard text in a ") + tone +
           QStringLiteral(" tone. Preserve meaning, names, dates, amounts, links, and factual details. Do not add "
                          "commentary or invent information. Return only the rewritten text.\n\n") +
           text;
}

// A provider that answers only when the test says so, to type while a rewrite is on its way.
class HeldProvider : public QObject
{
public:
    QTcpServer server;
    QPointer<QTcpSocket> waiting;
    QByteArray request;

    HeldProvider()
    {
        server.listen(QHostAddress::LocalHost);
        connect(&server, &QTcpServer::newConnection, this, [this] {
            QTcpSocket* socket = server.nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
                request += socket->readAll();
                const qsizetype headerEnd = request.indexOf("\r\n\r\n");
                const qsizetype lengthAt = request.toLower().indexOf("content-length:");
                if (headerEnd < 0 || lengthAt < 0) {
                    return;
                }
                const qsizetype lineEnd = request.indexOf("\r\n", lengthAt);
                const int length = request.mid(lengthAt + 15, lineEnd - lengthAt - 15).trimmed().toInt();
                if (request.size() >= headerEnd + 4 + length) {
                    waiting = socket;
                }
            });
        });
    }

    void answerWith(const QString& text)
    {
        const QByteArray body = QJsonDocument(QJsonObject{{QStringLiteral("output_text"), text}}).toJson();
        waiting->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
                       QByteArray::number(body.size()) + "\r\n\r\n" + body);
        waiting->flush();
    }
};

} // namespace

// Inline commands as a person types them into another program: the clipboard rewritten in a
// tone through a provider on loopback, and the prompt editor that takes the keyboard after \p.
class TestInlineCommandsEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void aToneRewriteReplacesTheCommand();
    void anEmptyClipboardSendsNothing();
    void thePromptEditorTakesTheKeyboard();
    void theRewriteFaceOwnsTheKeysUntilReturn();
    void textTypedDuringARewriteIsNeverDeleted();
    // Last: the image face keeps the keyboard until it is closed by a click.
    void theImageFaceTakesTheTypedPrompt();

private:
    static int tavoctl(const QStringList& arguments, const QByteArray& input = {});
    static void type(const QString& text);
    QList<QJsonObject> recordedRequests() const;
    QString typedText() const { return m_editor->toPlainText(); }

    e2e::TavoRun m_tavoRun;
    QByteArray& m_tavoLog = m_tavoRun.log;
    QProcess m_provider;
    QString m_recordFile;
    std::unique_ptr<QPlainTextEdit> m_editor;
};

int TestInlineCommandsEndToEnd::tavoctl(const QStringList& arguments, const QByteArray& input)
{
    QProcess process;
    process.start(QStringLiteral(TAVOCTL_PATH), arguments);
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(30000);
    return process.exitCode();
}

void TestInlineCommandsEndToEnd::type(const QString& text)
{
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("12"), text});
}

QList<QJsonObject> TestInlineCommandsEndToEnd::recordedRequests() const
{
    QList<QJsonObject> requests;
    QFile file(m_recordFile);
    if (file.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : file.readAll().split('\n')) {
            if (!line.trimmed().isEmpty()) {
                requests << QJsonDocument::fromJson(line).object();
            }
        }
    }
    return requests;
}

void TestInlineCommandsEndToEnd::initTestCase()
{
    QCOMPARE(tavoctl({QStringLiteral("account"), QStringLiteral("register"), QStringLiteral("sam")}, "correct horse\n"),
             0);
    QCOMPARE(tavoctl({QStringLiteral("add"), QStringLiteral("thx"), QStringLiteral("Thank you!"),
                      QStringLiteral("--collection"), QStringLiteral("Personal")}),
             0);
    // The key of the starting model, in the session's keyring.
    QCOMPARE(tavoctl({QStringLiteral("ai"), QStringLiteral("key"), QStringLiteral("openai")}, "sk-e2e\n"), 0);

    m_recordFile = QDir::home().filePath(QStringLiteral("provider-requests.jsonl"));
    m_provider.start(QStringLiteral(FAKE_PROVIDER_PATH),
                     {QStringLiteral("--answer"), answer, QStringLiteral("--record"), m_recordFile});
    QVERIFY(m_provider.waitForReadyRead(10000));
    const QByteArray port = m_provider.readLine().trimmed();
    QVERIFY(port.toInt() > 0);

    m_editor = e2e::targetWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_editor.get()));

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TAVO_OPENAI_API_BASE"), QStringLiteral("http://127.0.0.1:") + QString::fromLatin1(port));
    for (const QString& proxy :
         {QStringLiteral("http_proxy"), QStringLiteral("https_proxy"), QStringLiteral("HTTP_PROXY"),
          QStringLiteral("HTTPS_PROXY"), QStringLiteral("all_proxy"), QStringLiteral("ALL_PROXY")}) {
        env.remove(proxy);
    }
    m_tavoRun.start(env);
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.contains("keyboard tap running"), 15000);
}

void TestInlineCommandsEndToEnd::cleanupTestCase()
{
    m_tavoRun.stop();
    m_provider.kill();
    m_provider.waitForFinished(5000);
}

void TestInlineCommandsEndToEnd::init()
{
    m_editor->clear();
    m_editor->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_editor.get()));
}

void TestInlineCommandsEndToEnd::aToneRewriteReplacesTheCommand()
{
    QGuiApplication::clipboard()->setText(QStringLiteral("can u send it"));
    const qsizetype before = recordedRequests().size();
    type(QStringLiteral("Dear Bob, \\paste.f "));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Dear Bob, ") + answer + u' ', 5000);
    const QList<QJsonObject> requests = recordedRequests();
    QCOMPARE(requests.size(), before + 1);
    const QJsonObject body = QJsonDocument::fromJson(requests.last().value(u"body").toString().toUtf8()).object();
    QCOMPARE(body.value(u"input").toString(), toneRequest(QStringLiteral("Friendly"), QStringLiteral("can u send it")));
    QCOMPARE(body.value(u"max_output_tokens").toInt(), 4000);
}

void TestInlineCommandsEndToEnd::anEmptyClipboardSendsNothing()
{
    QGuiApplication::clipboard()->clear();
    const qsizetype before = recordedRequests().size();
    const qsizetype logFrom = m_tavoLog.size();
    type(QStringLiteral("\\paste.w "));
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.indexOf("Copy text first, then type \\paste.Warm and Space.", logFrom) >= 0,
                             5000);
    QTest::qWait(200);
    QCOMPARE(recordedRequests().size(), before);
    QCOMPARE(typedText(), QStringLiteral("\\paste.w")); // nothing to paste: the command stays
}

void TestInlineCommandsEndToEnd::thePromptEditorTakesTheKeyboard()
{
    const qsizetype logFrom = m_tavoLog.size();
    type(QStringLiteral("Hi \\p "));
    // The command leaves the target first, then the panel's editor takes the keyboard.
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Hi "), 5000);
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.indexOf("a picker field has the keyboard", logFrom) >= 0, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(!m_editor->isActiveWindow(), 5000);

    // A mention and a space typed there stay text: no trigger starts in the panel's own editor.
    type(QStringLiteral("say /thx to them"));
    QTest::qWait(300);
    QCOMPARE(typedText(), QStringLiteral("Hi "));
    // "Expand shortcuts" from the keyboard: the mention becomes what the shortcut holds.
    xdotool(words({"key", "ctrl+e"}));
    QTest::qWait(200);
    xdotool(words({"key", "ctrl+Return"}));
    const QString pasted = QStringLiteral("Hi say /thx:\nThank you! to them ");
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), pasted, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(m_editor->isActiveWindow(), 5000);

    // The keyboard is the target's again: triggers expand there as before.
    type(QStringLiteral("\\thx "));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), pasted + QStringLiteral("Thank you! "), 5000);
}

void TestInlineCommandsEndToEnd::theRewriteFaceOwnsTheKeysUntilReturn()
{
    QGuiApplication::clipboard()->setText(QStringLiteral("see you soon"));
    const qsizetype logFrom = m_tavoLog.size();
    type(QStringLiteral("Re: \\paste "));
    // The command goes; what is typed next belongs to the face, not to the target.
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Re: "), 5000);
    type(QStringLiteral("xyz"));
    QTest::qWait(300);
    QCOMPARE(typedText(), QStringLiteral("Re: "));
    // Return pastes the face's text, without removing anything a second time.
    xdotool(words({"key", "Return"}));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Re: see you soon "), 5000);
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.indexOf("Pasted into", logFrom) >= 0, 2000);
}

void TestInlineCommandsEndToEnd::textTypedDuringARewriteIsNeverDeleted()
{
    // A model of the user's own behind a provider that answers when told.
    HeldProvider held;
    QVERIFY(held.server.isListening());
    QCOMPARE(tavoctl({QStringLiteral("ai"), QStringLiteral("add"), QStringLiteral("--provider"),
                      QStringLiteral("OpenAI-compatible"), QStringLiteral("--model"), QStringLiteral("held"),
                      QStringLiteral("--base"), QStringLiteral("http://127.0.0.1:%1").arg(held.server.serverPort())},
                     "sk-held\n"),
             0);
    const auto restore = qScopeGuard([] {
        tavoctl({QStringLiteral("ai"), QStringLiteral("select"), QStringLiteral("openai-default")});
    });
    QTest::qWait(300); // the running Tavo reads the settings anew

    QGuiApplication::clipboard()->setText(QStringLiteral("can u send it"));
    type(QStringLiteral("Dear Ann, \\paste.f "));
    QTRY_VERIFY_WITH_TIMEOUT(held.waiting, 5000);
    QVERIFY(held.request.contains("can u send it"));
    type(QStringLiteral("more"));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Dear Ann, \\paste.fmore"), 5000);

    held.answerWith(answer);
    // The rewrite waits on the clipboard; not a character of what was typed goes.
    QTRY_COMPARE_WITH_TIMEOUT(QGuiApplication::clipboard()->text(), answer + u' ', 5000);
    QTest::qWait(300);
    QCOMPARE(typedText(), QStringLiteral("Dear Ann, \\paste.fmore"));
}

void TestInlineCommandsEndToEnd::theImageFaceTakesTheTypedPrompt()
{
    type(QStringLiteral("Pic: \\img "));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Pic: "), 5000);
    // The prompt is typed into the face: neither the keys nor Escape reach the target.
    type(QStringLiteral("a cat"));
    xdotool(words({"key", "Escape"}));
    QTest::qWait(300);
    QCOMPARE(typedText(), QStringLiteral("Pic: "));
}

QTEST_MAIN(TestInlineCommandsEndToEnd)
#include "tst_inline_commands_e2e.moc"
