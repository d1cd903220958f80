#include "ai/text_client.h"
#include "fake_provider.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QTest>

#include <memory>

#include <sys/resource.h>

using namespace tavo;
using tavo::test::FakeProvider;

namespace {

const QString secretKey = QStringLiteral("sk-test-4242");

CollectionAIModelProfile profileFor(const QString& provider, const QString& model,
                                    std::optional<QString> baseURL = std::nullopt)
{
    CollectionAIModelProfile profile;
    profile.id = QStringLiteral("test");
    profile.name = provider;
    profile.provider = provider;
    profile.model = model;
    profile.keyAccount = QStringLiteral("test");
    profile.baseURL = std::move(baseURL);
    return profile;
}

struct Outcome
{
    bool called = false;
    std::optional<Result<QString>> result;
};

std::shared_ptr<Outcome> run(const CollectionAIModelProfile& profile, const QList<AIImageAttachment>& images,
                             QObject* context, const QString& prompt = QStringLiteral("Hello"))
{
    auto outcome = std::make_shared<Outcome>();
    generateText(profile, secretKey, prompt, images, 300, context, [outcome](Result<QString> result) {
        outcome->called = true;
        outcome->result = std::move(result);
    });
    return outcome;
}

// QVERIFY2 evaluates its message even when the check passes.
QByteArray failureText(const Result<QString>& result)
{
    return result.ok() ? QByteArray() : result.error().description.toUtf8();
}

QJsonObject json(const QByteArray& bytes)
{
    return QJsonDocument::fromJson(bytes).object();
}

const QByteArray pngBytes("\x89PNG\r\n\x1a\nfake", 12);
const QByteArray jpegBytes("\xff\xd8\xff\xe0jpeg", 8);

} // namespace

class TestTextClient : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void requests_data();
    void requests();
    void answers_data();
    void answers();
    void transportFailures_data();
    void transportFailures();
    void redirectIsNotFollowed();
    void hugeAnswerFails();
    void cancellation_data();
    void cancellation();
    void openAIBaseAddresses_data();
    void openAIBaseAddresses();

private:
    std::unique_ptr<FakeProvider> m_server;
};

void TestTextClient::initTestCase()
{
    for (const char* name :
         {"http_proxy", "https_proxy", "HTTP_PROXY", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
        qunsetenv(name);
    }
}

void TestTextClient::init()
{
    m_server = std::make_unique<FakeProvider>();
    QVERIFY(m_server->isListening());
    m_server->trickleIntervalMs = 200;
    qputenv("TAVO_OPENAI_API_BASE", m_server->base().toUtf8());
    qputenv("TAVO_ANTHROPIC_API_BASE", m_server->base().toUtf8());
    qputenv("TAVO_GEMINI_API_BASE", (m_server->base() + u'/').toUtf8());
    qunsetenv("TAVO_AI_TIMEOUT_SECONDS");
}

void TestTextClient::requests_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("model");
    QTest::addColumn<QString>("baseSuffix"); // appended to the server's address; "-" means no baseURL
    QTest::addColumn<int>("imageCount");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("keyHeader");
    QTest::addColumn<QByteArray>("keyValue");
    QTest::addColumn<QByteArray>("expectedBody");

    const QByteArray png64 = pngBytes.toBase64();
    const QByteArray jpeg64 = jpegBytes.toBase64();

    QTest::newRow("openai-plain-input") << "OpenAI"
                                        << "gpt-5"
                                        << "-" << 0 << QByteArray("/v1/responses") << QByteArray("authorization")
                                        << QByteArray("Bearer sk-test-4242")
                                        << QByteArray(R"({"model":"gpt-5","input":"Hello","max_output_tokens":300})");
    QTest::newRow("openai-images-always-png-detail-high")
        << "OpenAI"
        << "gpt-5"
        << "-" << 2 << QByteArray("/v1/responses") << QByteArray("authorization") << QByteArray("Bearer sk-test-4242")
        << QByteArray(R"({"model":"gpt-5","max_output_tokens":300,"input":[{"role":"user","content":[)"
                      R"({"type":"input_text","text":"Hello"},)"
                      R"({"type":"input_image","image_url":"data:image/png;base64,)" +
                      png64 + R"(","detail":"high"},)" +
                      R"({"type":"input_image","image_url":"data:image/png;base64,)" + jpeg64 +
                      R"(","detail":"high"}]}]})");
    QTest::newRow("xai-base-with-v1-slash")
        << "xAI"
        << "grok-4"
        << "/v1/" << 0 << QByteArray("/v1/responses") << QByteArray("authorization")
        << QByteArray("Bearer sk-test-4242")
        << QByteArray(R"({"model":"grok-4","input":"Hello","max_output_tokens":300})");
    QTest::newRow("compatible-base-api-gets-v1")
        << "OpenAI-compatible"
        << "llama"
        << "/api" << 0 << QByteArray("/api/v1/responses") << QByteArray("authorization")
        << QByteArray("Bearer sk-test-4242")
        << QByteArray(R"({"model":"llama","input":"Hello","max_output_tokens":300})");
    QTest::newRow("anthropic-claude-messages")
        << "Anthropic Claude"
        << "claude-sonnet-4-5"
        << "-" << 2 << QByteArray("/v1/messages") << QByteArray("x-api-key") << QByteArray("sk-test-4242")
        << QByteArray(R"({"model":"claude-sonnet-4-5","max_tokens":300,"messages":[{"role":"user","content":[)"
                      R"({"type":"text","text":"Hello"},)"
                      R"({"type":"image","source":{"type":"base64","media_type":"image/png","data":")" +
                      png64 + R"("}},)" +
                      R"({"type":"image","source":{"type":"base64","media_type":"image/jpeg","data":")" + jpeg64 +
                      R"("}}]}]})");
    QTest::newRow("google-gemini-model-percent-encoded")
        << "Google Gemini"
        << "gemini 2.5?pro"
        << "-" << 1 << QByteArray("/v1beta/models/gemini%202.5%3Fpro:generateContent") << QByteArray("x-goog-api-key")
        << QByteArray("sk-test-4242")
        << QByteArray(R"({"contents":[{"role":"user","parts":[{"text":"Hello"},)"
                      R"({"inlineData":{"mimeType":"image/png","data":")" +
                      png64 + R"("}}]}],"generationConfig":{"maxOutputTokens":300}})");
    QTest::newRow("gemini-proxy-word") << "gemini-proxy"
                                       << "m"
                                       << "-" << 0 << QByteArray("/v1beta/models/m:generateContent")
                                       << QByteArray("x-goog-api-key") << QByteArray("sk-test-4242")
                                       << QByteArray(R"({"contents":[{"role":"user","parts":[{"text":"Hello"}]}],)"
                                                     R"("generationConfig":{"maxOutputTokens":300}})");
    QTest::newRow("upper-case-google-word") << "GOOGLE"
                                            << "m"
                                            << "-" << 0 << QByteArray("/v1beta/models/m:generateContent")
                                            << QByteArray("x-goog-api-key") << QByteArray("sk-test-4242")
                                            << QByteArray(R"({"contents":[{"role":"user","parts":[{"text":"Hello"}]}],)"
                                                          R"("generationConfig":{"maxOutputTokens":300}})");
}

void TestTextClient::requests()
{
    QFETCH(QString, provider);
    QFETCH(QString, model);
    QFETCH(QString, baseSuffix);
    QFETCH(int, imageCount);
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, keyHeader);
    QFETCH(QByteArray, keyValue);
    QFETCH(QByteArray, expectedBody);

    m_server->responseBody = R"({"output_text":"ok","content":[{"type":"text","text":"ok"}],)"
                             R"("candidates":[{"content":{"parts":[{"text":"ok"}]}}]})";
    const std::optional<QString> base =
        baseSuffix == u"-" ? std::nullopt : std::optional<QString>(m_server->base() + baseSuffix);
    QList<AIImageAttachment> images{{pngBytes, QStringLiteral("image/png")}, {jpegBytes, QStringLiteral("image/jpeg")}};
    images = images.mid(0, imageCount);

    QObject context;
    const auto outcome = run(profileFor(provider, model, base), images, &context);
    QTRY_VERIFY_WITH_TIMEOUT(outcome->called, 10000);
    QVERIFY2(outcome->result->ok(), failureText(*outcome->result).constData());
    QCOMPARE(outcome->result->value(), QStringLiteral("ok"));

    QCOMPARE(m_server->requests.size(), 1);
    const FakeProvider::Recorded& request = m_server->requests.first();
    QCOMPARE(request.method, QByteArray("POST"));
    QCOMPARE(request.path, path);
    QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
    QCOMPARE(request.headers.value(keyHeader), keyValue);
    // The key travels in its own header alone: never in the other providers' headers or the URL.
    for (const QByteArray& other :
         {QByteArray("authorization"), QByteArray("x-api-key"), QByteArray("x-goog-api-key")}) {
        if (other != keyHeader) {
            QVERIFY2(!request.headers.contains(other), other.constData());
        }
    }
    QVERIFY(!request.path.contains(secretKey.toUtf8()));
    QCOMPARE(request.headers.value("anthropic-version"),
             keyHeader == "x-api-key" ? QByteArray("2023-06-01") : QByteArray());
    QCOMPARE(json(request.body), json(expectedBody));
}

void TestTextClient::answers_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("domain");
    QTest::addColumn<int>("code"); // 0: success
    QTest::addColumn<QString>("expected");

    const QString ok;
    const QString ai = QStringLiteral("TavoAI");
    const QByteArray html = "<html><body>" + QByteArray(600, 'x') + "</body></html>";

    QTest::newRow("anthropic-text-after-tool-use")
        << "Anthropic" << 200
        << QByteArray(R"({"content":[{"type":"tool_use","text":"no"},{"type":"text","text":"one"},)"
                      R"({"type":"text","text":7},{"type":"text","text":"two"}]})")
        << ok << 0 << "one\ntwo";
    QTest::newRow("anthropic-missing-content-is-empty")
        << "Anthropic" << 200 << QByteArray(R"({"id":"x"})") << ok << 0 << "";
    QTest::newRow("gemini-first-candidate-parts")
        << "Google Gemini" << 200
        << QByteArray(R"({"candidates":[{"content":{"parts":[{"text":"a"},{"inlineData":{}},{"text":"b"}]}},)"
                      R"({"content":{"parts":[{"text":"second"}]}}]})")
        << ok << 0 << "a\nb";
    QTest::newRow("gemini-no-candidates-is-empty")
        << "Google Gemini" << 200 << QByteArray(R"({"candidates":[]})") << ok << 0 << "";
    QTest::newRow("gemini-missing-parts-is-empty")
        << "Gemini" << 200 << QByteArray(R"({"candidates":[{"content":{}}]})") << ok << 0 << "";
    QTest::newRow("openai-output-text-wins")
        << "OpenAI" << 200
        << QByteArray(R"({"output_text":"direct","output":[{"content":[{"type":"output_text","text":"other"}]}]})")
        << ok << 0 << "direct";
    QTest::newRow("openai-output-contents-joined")
        << "OpenAI" << 200
        << QByteArray(R"({"output":[{"type":"reasoning"},{"content":[{"text":"x"},{"text":"y"}]},)"
                      R"({"content":[{"text":"z"}]}]})")
        << ok << 0 << "x\ny\nz";
    QTest::newRow("top-level-array-unreadable")
        << "OpenAI" << 200 << QByteArray("[1,2]") << ai << 2 << "Could not read the model response.";
    QTest::newRow("bad-json-is-a-json-error") << "OpenAI" << 200 << QByteArray("{not json") << "TavoJSON" << 3840
                                              << "The data couldn't be read because it isn't in the correct format.";
    QTest::newRow("openai-429-error-message") << "OpenAI" << 429 << QByteArray(R"({"error":{"message":"Rate limit"}})")
                                              << ai << 429 << "OpenAI error: Rate limit";
    QTest::newRow("anthropic-error-object")
        << "Anthropic" << 401
        << QByteArray(R"({"type":"error","error":{"type":"authentication_error","message":"invalid x-api-key"}})") << ai
        << 401 << "Anthropic error: invalid x-api-key";
    QTest::newRow("gemini-error-with-provider-as-stored")
        << "Google Gemini" << 400
        << QByteArray(R"({"error":{"code":400,"message":"API key not valid","status":"INVALID_ARGUMENT"}})") << ai
        << 400 << "Google Gemini error: API key not valid";
    QTest::newRow("error-as-string") << "OpenAI" << 403 << QByteArray(R"({"error":"bad key"})") << ai << 403
                                     << "OpenAI error: bad key";
    QTest::newRow("error-message-not-string-gives-raw-body")
        << "OpenAI" << 400 << QByteArray(R"({"error":{"message":7}})") << ai << 400
        << R"(OpenAI error: {"error":{"message":7}})";
    QTest::newRow("html-500-cut-at-500-characters")
        << "xAI" << 500 << html << ai << 500
        << QString(QStringLiteral("xAI error: ") + QString::fromLatin1(html.left(500)));
    QTest::newRow("cut-never-splits-a-character")
        << "OpenAI" << 502 << (QByteArray(499, 'a') + "\xF0\x9F\x98\x80" + "tail") << ai << 502
        << QString(QStringLiteral("OpenAI error: ") + QString(499, u'a') + QString::fromUtf8("\xF0\x9F\x98\x80"));
    QTest::newRow("error-body-read-to-64-kib-only")
        << "OpenAI" << 500 << (QByteArray(70 * 1024, 'x') + R"({"error":"late"})") << ai << 500
        << QString(QStringLiteral("OpenAI error: ") + QString(500, u'x'));
    QTest::newRow("64-kib-cut-inside-a-character-still-decodes")
        << "OpenAI" << 500 << (QByteArray(aiMaxErrorBodyBytes - 1, 'a') + "\xC3\xA9" + QByteArray(100, 'b')) << ai
        << 500 << QString(QStringLiteral("OpenAI error: ") + QString(500, u'a'));
    QTest::newRow("not-utf8-gives-request-failed")
        << "OpenAI" << 500 << QByteArray("\xff\xfe\xfd") << ai << 500 << "OpenAI error: Request failed";
    QTest::newRow("empty-error-body") << "Anthropic" << 503 << QByteArray() << ai << 503 << "Anthropic error: ";
    QTest::newRow("message-quoting-the-key-hides-it")
        << "OpenAI" << 401 << QByteArray(R"({"error":{"message":"Incorrect API key provided: sk-test-4242."}})") << ai
        << 401 << "OpenAI error: Incorrect API key provided: ….";
    QTest::newRow("raw-body-quoting-the-key-hides-it")
        << "OpenAI" << 401 << QByteArray("bad key sk-test-4242 here") << ai << 401 << "OpenAI error: bad key … here";
}

void TestTextClient::answers()
{
    QFETCH(QString, provider);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, domain);
    QFETCH(int, code);
    QFETCH(QString, expected);

    m_server->status = status;
    m_server->responseBody = body;
    QObject context;
    const auto outcome = run(profileFor(provider, QStringLiteral("m")), {}, &context);
    QTRY_VERIFY_WITH_TIMEOUT(outcome->called, 10000);
    const Result<QString>& result = *outcome->result;
    if (code == 0) {
        QVERIFY2(result.ok(), failureText(result).constData());
        QCOMPARE(result.value(), expected);
    } else {
        QVERIFY(!result.ok());
        QCOMPARE(result.error().domain, domain);
        QCOMPARE(result.error().code, code);
        QCOMPARE(result.error().description, expected);
    }
}

void TestTextClient::transportFailures_data()
{
    QTest::addColumn<QString>("scenario");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("description");

    QTest::newRow("refused-connection") << "refused" << int(NetworkErrorCannotConnect)
                                        << "Could not connect to the server.";
    QTest::newRow("dropped-connection") << "dropped" << int(NetworkErrorConnectionLost)
                                        << "The network connection was lost.";
    QTest::newRow("dropped-in-the-middle-of-the-body")
        << "midbody" << int(NetworkErrorConnectionLost) << "The network connection was lost.";
    QTest::newRow("silent-server-hits-deadline") << "silent" << int(NetworkErrorTimedOut) << "The request timed out.";
    QTest::newRow("trickling-server-hits-whole-request-deadline")
        << "trickle" << int(NetworkErrorTimedOut) << "The request timed out.";
    QTest::newRow("base-url-without-host-is-bad-url")
        << "badurl" << int(NetworkErrorBadURL) << "The model's address is not a valid URL.";
}

void TestTextClient::transportFailures()
{
    QFETCH(QString, scenario);
    QFETCH(int, code);
    QFETCH(QString, description);

    CollectionAIModelProfile profile = profileFor(QStringLiteral("OpenAI"), QStringLiteral("m"));
    if (scenario == u"refused") {
        const QString base = m_server->base();
        m_server.reset(); // nothing listens on that port any more
        profile.baseURL = base;
    } else if (scenario == u"dropped") {
        m_server->fault = FakeProvider::Fault::CloseAtOnce;
    } else if (scenario == u"midbody") {
        m_server->fault = FakeProvider::Fault::CloseMidBody;
        m_server->responseBody = R"({"output_text":"never whole"})";
    } else if (scenario == u"silent" || scenario == u"trickle") {
        m_server->fault = scenario == u"silent" ? FakeProvider::Fault::Silent : FakeProvider::Fault::Trickle;
        qputenv("TAVO_AI_TIMEOUT_SECONDS", "1");
    } else {
        profile.baseURL = QStringLiteral("not a host");
    }

    QObject context;
    const auto outcome = run(profile, {}, &context);
    QVERIFY(!outcome->called); // never inside the call
    QTRY_VERIFY_WITH_TIMEOUT(outcome->called, 10000);
    QVERIFY(!outcome->result->ok());
    QCOMPARE(outcome->result->error().domain, QStringLiteral("TavoNetwork"));
    QCOMPARE(outcome->result->error().code, code);
    QCOMPARE(outcome->result->error().description, description);
    QVERIFY(!outcome->result->error().description.contains(u"127.0.0.1"));
}

void TestTextClient::redirectIsNotFollowed()
{
    FakeProvider elsewhere;
    QVERIFY(elsewhere.isListening());
    m_server->status = 307;
    m_server->extraHeaders = "Location: " + elsewhere.base().toUtf8() + "/v1/responses\r\n";
    m_server->responseBody = "moved";

    QObject context;
    const auto outcome = run(profileFor(QStringLiteral("OpenAI"), QStringLiteral("m")), {}, &context);
    QTRY_VERIFY_WITH_TIMEOUT(outcome->called, 10000);
    QVERIFY(!outcome->result->ok());
    QCOMPARE(outcome->result->error().code, 307);
    QCOMPARE(outcome->result->error().description, QStringLiteral("OpenAI error: moved"));
    QTest::qWait(200);
    QVERIFY(elsewhere.requests.isEmpty());
}

void TestTextClient::hugeAnswerFails()
{
    m_server->fault = FakeProvider::Fault::HugeBody; // 100 MiB, streamed
    const auto peakKiB = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;
    };
    const long peakBefore = peakKiB();
    QObject context;
    const auto outcome = run(profileFor(QStringLiteral("OpenAI"), QStringLiteral("m")), {}, &context);
    QTRY_VERIFY_WITH_TIMEOUT(outcome->called, 20000);
    QVERIFY(!outcome->result->ok());
    QCOMPARE(outcome->result->error().code, 2);
    QCOMPARE(outcome->result->error().description, QStringLiteral("Could not read the model response."));
    // The answer is given up at its cap, not held whole.
    QVERIFY2(peakKiB() - peakBefore < 48 * 1024, qPrintable(QString::number(peakKiB() - peakBefore)));
}

void TestTextClient::cancellation_data()
{
    QTest::addColumn<bool>("destroyContext");
    QTest::newRow("destroyed-context-drops-the-answer") << true;
    QTest::newRow("cancel-drops-the-answer") << false;
}

void TestTextClient::cancellation()
{
    QFETCH(bool, destroyContext);
    m_server->fault = FakeProvider::Fault::Trickle;
    auto context = std::make_unique<QObject>();
    auto outcome = std::make_shared<Outcome>();
    QPointer<AITextRequest> request =
        generateText(profileFor(QStringLiteral("Anthropic"), QStringLiteral("m")), secretKey, QStringLiteral("p"), {},
                     10, context.get(), [outcome](Result<QString>) { outcome->called = true; });
    QTRY_COMPARE_WITH_TIMEOUT(m_server->requests.size(), 1, 10000);
    if (destroyContext) {
        context.reset();
    } else {
        request->cancel();
    }
    QTRY_VERIFY(request.isNull());
    QTest::qWait(300);
    QVERIFY(!outcome->called);
}

void TestTextClient::openAIBaseAddresses_data()
{
    QTest::addColumn<QString>("base");
    QTest::addColumn<QString>("url");

    QTest::newRow("v1-with-slash") << "https://host/v1/"
                                   << "https://host/v1/responses";
    QTest::newRow("v1") << "https://host/v1"
                        << "https://host/v1/responses";
    QTest::newRow("bare-host") << "https://host"
                               << "https://host/v1/responses";
    QTest::newRow("api-path") << "https://host/api"
                              << "https://host/api/v1/responses";
    QTest::newRow("absent-uses-override-host") << ""
                                               << "http://127.0.0.1:9/v1/responses";
}

void TestTextClient::openAIBaseAddresses()
{
    QFETCH(QString, base);
    QFETCH(QString, url);

    qputenv("TAVO_OPENAI_API_BASE", "http://127.0.0.1:9/");
    const CollectionAIModelProfile profile = profileFor(QStringLiteral("OpenAI"), QStringLiteral("m"),
                                                        base.isEmpty() ? std::nullopt : std::optional<QString>(base));
    const std::optional<AITextHttpRequest> request = buildTextRequest(profile, secretKey, QStringLiteral("p"), {}, 10);
    QVERIFY(request);
    QCOMPARE(request->url.toString(), url);
}

QTEST_GUILESS_MAIN(TestTextClient)
#include "tst_text_client.moc"
