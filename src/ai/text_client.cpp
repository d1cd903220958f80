#include "ai/text_client.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStringDecoder>
#include <QTextBoundaryFinder>
#include <QThread>
#include <QTimer>

namespace tavo {

namespace {

const QString requestFailed = QStringLiteral("Request failed");
const QString unreadableResponse = QStringLiteral("Could not read the model response.");

TavoError networkError(int code, const QString& description)
{
    return TavoError{QString(networkErrorDomain), code, description};
}

TavoError badURLError()
{
    return networkError(NetworkErrorBadURL, QStringLiteral("The model's address is not a valid URL."));
}

// A host override is a scheme, host and optional port; anything else is ignored as unset.
QString hostFor(const char* variable, const QString& publicHost)
{
    QString configured = qEnvironmentVariable(variable).trimmed();
    while (configured.endsWith(u'/')) {
        configured.chop(1);
    }
    return configured.isEmpty() ? publicHost : configured;
}

QString trimSlashes(QString text)
{
    qsizetype start = 0;
    while (start < text.size() && text.at(start) == u'/') {
        ++start;
    }
    qsizetype end = text.size();
    while (end > start && text.at(end - 1) == u'/') {
        --end;
    }
    return text.mid(start, end - start);
}

std::optional<QUrl> checkedUrl(const QString& text)
{
    const QUrl url(text, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() || (scheme != u"https" && scheme != u"http")) {
        return std::nullopt;
    }
    return url;
}

QString base64(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

QByteArray anthropicBody(const QString& model, const QString& prompt, const QList<AIImageAttachment>& images,
                         int maxTokens)
{
    QJsonArray content{QJsonObject{{QStringLiteral("type"), QStringLiteral("text")}, {QStringLiteral("text"), prompt}}};
    for (const AIImageAttachment& image : images) {
        content.append(
            QJsonObject{{QStringLiteral("type"), QStringLiteral("image")},
                        {QStringLiteral("source"), QJsonObject{{QStringLiteral("type"), QStringLiteral("base64")},
                                                               {QStringLiteral("media_type"), image.mimeType},
                                                               {QStringLiteral("data"), base64(image.bytes)}}}});
    }
    const QJsonObject body{
        {QStringLiteral("model"), model},
        {QStringLiteral("max_tokens"), maxTokens},
        {QStringLiteral("messages"), QJsonArray{QJsonObject{{QStringLiteral("role"), QStringLiteral("user")},
                                                            {QStringLiteral("content"), content}}}}};
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

QByteArray geminiBody(const QString& prompt, const QList<AIImageAttachment>& images, int maxTokens)
{
    QJsonArray parts{QJsonObject{{QStringLiteral("text"), prompt}}};
    for (const AIImageAttachment& image : images) {
        parts.append(
            QJsonObject{{QStringLiteral("inlineData"), QJsonObject{{QStringLiteral("mimeType"), image.mimeType},
                                                                   {QStringLiteral("data"), base64(image.bytes)}}}});
    }
    const QJsonObject body{
        {QStringLiteral("contents"),
         QJsonArray{QJsonObject{{QStringLiteral("role"), QStringLiteral("user")}, {QStringLiteral("parts"), parts}}}},
        {QStringLiteral("generationConfig"), QJsonObject{{QStringLiteral("maxOutputTokens"), maxTokens}}}};
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

QByteArray openAIBody(const QString& model, const QString& prompt, const QList<AIImageAttachment>& images,
                      int maxTokens)
{
    QJsonObject body{{QStringLiteral("model"), model}, {QStringLiteral("max_output_tokens"), maxTokens}};
    if (images.isEmpty()) {
        body.insert(QStringLiteral("input"), prompt);
    } else {
        QJsonArray content{
            QJsonObject{{QStringLiteral("type"), QStringLiteral("input_text")}, {QStringLiteral("text"), prompt}}};
        for (const AIImageAttachment& image : images) {
            // The provider is told PNG whatever the pair says; it sniffs the bytes itself.
            content.append(QJsonObject{
                {QStringLiteral("type"), QStringLiteral("input_image")},
                {QStringLiteral("image_url"), QString(QStringLiteral("data:image/png;base64,") + base64(image.bytes))},
                {QStringLiteral("detail"), QStringLiteral("high")}});
        }
        body.insert(QStringLiteral("input"), QJsonArray{QJsonObject{{QStringLiteral("role"), QStringLiteral("user")},
                                                                    {QStringLiteral("content"), content}}});
    }
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

// The strings among `text` of the given objects, one per line.
QString joinTexts(const QJsonArray& items, const QString& requiredType = QString())
{
    QStringList texts;
    for (const QJsonValue& item : items) {
        const QJsonObject object = item.toObject();
        if (!requiredType.isEmpty() && object.value(QStringLiteral("type")).toString() != requiredType) {
            continue;
        }
        const QJsonValue text = object.value(QStringLiteral("text"));
        if (text.isString()) {
            texts.append(text.toString());
        }
    }
    return texts.join(u'\n');
}

QString extractText(AIProviderClass protocol, const QJsonObject& top)
{
    switch (protocol) {
    case AIProviderClass::Anthropic:
        return joinTexts(top.value(QStringLiteral("content")).toArray(), QStringLiteral("text"));
    case AIProviderClass::Gemini: {
        const QJsonArray candidates = top.value(QStringLiteral("candidates")).toArray();
        if (candidates.isEmpty()) {
            return QString();
        }
        const QJsonObject content = candidates.first().toObject().value(QStringLiteral("content")).toObject();
        return joinTexts(content.value(QStringLiteral("parts")).toArray());
    }
    case AIProviderClass::OpenAIResponses: {
        const QJsonValue outputText = top.value(QStringLiteral("output_text"));
        if (outputText.isString()) {
            return outputText.toString();
        }
        QJsonArray content;
        for (const QJsonValue& item : top.value(QStringLiteral("output")).toArray()) {
            for (const QJsonValue& block : item.toObject().value(QStringLiteral("content")).toArray()) {
                content.append(block);
            }
        }
        return joinTexts(content);
    }
    }
    return QString();
}

// A body cut at a byte limit may end inside a UTF-8 sequence; drop that tail so the rest still
// decodes.
QByteArray withoutPartialSequence(const QByteArray& bytes)
{
    qsizetype lead = bytes.size();
    int continuation = 0;
    while (lead > 0 && continuation < 3 && (uchar(bytes.at(lead - 1)) & 0xC0) == 0x80) {
        --lead;
        ++continuation;
    }
    if (lead == 0) {
        return bytes;
    }
    const uchar first = uchar(bytes.at(lead - 1));
    const int expected = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : first >= 0xC0 ? 1 : 0;
    return expected > continuation ? bytes.left(lead - 1) : bytes;
}

std::optional<QString> strictUtf8(const QByteArray& bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}

// The first `count` user-perceived characters, so an emoji or an accent is never split.
QString firstCharacters(const QString& text, int count)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int seen = 0;
    while (seen < count && finder.toNextBoundary() >= 0) {
        ++seen;
    }
    return seen < count || finder.position() < 0 ? text : text.left(finder.position());
}

QString hideKey(QString text, const QString& key)
{
    if (!key.isEmpty()) {
        text.replace(key, QStringLiteral("…"));
    }
    return text;
}

QString errorMessage(const QByteArray& body, const QString& key, bool truncated)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error == QJsonParseError::NoError && document.isObject()) {
        const QJsonValue error = document.object().value(QStringLiteral("error"));
        const QJsonValue message = error.toObject().value(QStringLiteral("message"));
        if (error.isObject() && message.isString()) {
            return hideKey(message.toString(), key);
        }
        if (error.isString()) {
            return hideKey(error.toString(), key);
        }
    }
    const std::optional<QString> text = strictUtf8(truncated ? withoutPartialSequence(body) : body);
    if (!text) {
        return requestFailed;
    }
    // Hidden before the cut, so a key straddling the 500th character can't leak half of itself.
    return firstCharacters(hideKey(*text, key), 500);
}

QNetworkAccessManager* sharedNetwork()
{
    // One manager for the whole program, like a shared session: it pools connections per host.
    static QPointer<QNetworkAccessManager> manager;
    if (!manager) {
        manager = new QNetworkAccessManager(QCoreApplication::instance());
        manager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    }
    return manager;
}

int deadlineMilliseconds()
{
    bool ok = false;
    const int configured = qEnvironmentVariableIntValue("TAVO_AI_TIMEOUT_SECONDS", &ok);
    const int seconds = ok && configured > 0 ? std::min(configured, aiRequestTimeoutSeconds) : aiRequestTimeoutSeconds;
    return seconds * 1000;
}

TavoError transportError(QNetworkReply::NetworkError error)
{
    // Plain sentences: errorString() names the URL, and the URL is the user's gateway.
    switch (error) {
    case QNetworkReply::ConnectionRefusedError:
        return networkError(NetworkErrorCannotConnect, QStringLiteral("Could not connect to the server."));
    case QNetworkReply::HostNotFoundError:
        return networkError(NetworkErrorCannotFindHost,
                            QStringLiteral("A server with the specified hostname could not be found."));
    case QNetworkReply::TimeoutError:
        return networkError(NetworkErrorTimedOut, QStringLiteral("The request timed out."));
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
        return networkError(NetworkErrorConnectionLost, QStringLiteral("The network connection was lost."));
    case QNetworkReply::SslHandshakeFailedError:
        return networkError(NetworkErrorSecureConnectionFailed,
                            QStringLiteral("A secure connection to the server could not be made."));
    default:
        return networkError(NetworkErrorUnknown, QStringLiteral("The request could not be completed."));
    }
}

bool isTransportError(QNetworkReply::NetworkError error)
{
    // Qt numbers connection and proxy failures below 200; above that it mirrors an HTTP status.
    return error != QNetworkReply::NoError && int(error) < 200;
}

} // namespace

std::optional<AITextHttpRequest> buildTextRequest(const CollectionAIModelProfile& profile, const QString& key,
                                                  const QString& prompt, const QList<AIImageAttachment>& images,
                                                  int maxTokens)
{
    AITextHttpRequest request;
    QString address;
    switch (providerClass(profile.provider)) {
    case AIProviderClass::Anthropic:
        address = hostFor("TAVO_ANTHROPIC_API_BASE", QStringLiteral("https://api.anthropic.com")) +
                  QStringLiteral("/v1/messages");
        request.headers = {{"x-api-key", key.toUtf8()}, {"anthropic-version", "2023-06-01"}};
        request.body = anthropicBody(profile.model, prompt, images, maxTokens);
        break;
    case AIProviderClass::Gemini:
        // The path-allowed set: '/' and the sub-delimiters stay, a space or '?' does not.
        address = hostFor("TAVO_GEMINI_API_BASE", QStringLiteral("https://generativelanguage.googleapis.com")) +
                  QStringLiteral("/v1beta/models/") +
                  QString::fromLatin1(QUrl::toPercentEncoding(profile.model, "!$&'()*+,/:;=@")) +
                  QStringLiteral(":generateContent");
        request.headers = {{"x-goog-api-key", key.toUtf8()}};
        request.body = geminiBody(prompt, images, maxTokens);
        break;
    case AIProviderClass::OpenAIResponses: {
        const QString configured = profile.baseURL.value_or(QString()).trimmed();
        const QString base = trimSlashes(
            configured.isEmpty()
                ? hostFor("TAVO_OPENAI_API_BASE", QStringLiteral("https://api.openai.com")) + QStringLiteral("/v1")
                : configured);
        address = base + (base.endsWith(QLatin1StringView("/v1")) ? QStringLiteral("/responses")
                                                                  : QStringLiteral("/v1/responses"));
        request.headers = {{"Authorization", "Bearer " + key.toUtf8()}};
        request.body = openAIBody(profile.model, prompt, images, maxTokens);
        break;
    }
    }
    const std::optional<QUrl> url = checkedUrl(address);
    if (!url) {
        return std::nullopt;
    }
    request.url = *url;
    request.headers.append(std::pair<QByteArray, QByteArray>("Content-Type", "application/json"));
    return request;
}

Result<QString> textFromResponse(const QString& provider, int status, const QByteArray& body, const QString& key,
                                 bool truncated)
{
    if (status < 200 || status > 299) {
        return TavoError{QString(aiErrorDomain), status,
                         provider + QStringLiteral(" error: ") + errorMessage(body, key, truncated)};
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        return TavoError{QString(jsonErrorDomain), 3840,
                         QStringLiteral("The data couldn't be read because it isn't in the correct format.")};
    }
    if (!document.isObject()) {
        return TavoError{QString(aiErrorDomain), 2, unreadableResponse};
    }
    return extractText(providerClass(provider), document.object());
}

AITextRequest::AITextRequest(QObject* context, QString provider, QString key, Completion done)
    : QObject(context)
    , m_provider(std::move(provider))
    , m_key(std::move(key))
    , m_done(std::move(done))
{
}

AITextRequest::~AITextRequest()
{
    stopReply();
}

void AITextRequest::cancel()
{
    m_finished = true;
    stopReply();
    deleteLater();
}

void AITextRequest::stopReply()
{
    if (m_reply) {
        QNetworkReply* reply = m_reply;
        m_reply = nullptr;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
}

void AITextRequest::start(const AITextHttpRequest& request)
{
    QNetworkRequest networkRequest(request.url);
    networkRequest.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    for (const auto& [name, value] : request.headers) {
        networkRequest.setRawHeader(name, value);
    }
    QNetworkReply* reply = sharedNetwork()->post(networkRequest, request.body);
    m_reply = reply;
    // Bounded buffering: the answer is drained as it arrives and capped by onReadyRead.
    reply->setReadBufferSize(256 * 1024);
    connect(reply, &QNetworkReply::readyRead, this, &AITextRequest::onReadyRead);
    connect(reply, &QNetworkReply::finished, this, &AITextRequest::onFinished);

    // A deadline for the whole exchange: a transfer time-out restarts with every byte.
    m_deadline = new QTimer(this);
    m_deadline->setSingleShot(true);
    connect(m_deadline, &QTimer::timeout, this, [this] {
        stopReply();
        finish(networkError(NetworkErrorTimedOut, QStringLiteral("The request timed out.")));
    });
    m_deadline->start(deadlineMilliseconds());
}

void AITextRequest::onReadyRead()
{
    if (!m_reply || m_finished) {
        return;
    }
    const QVariant statusAttribute = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (statusAttribute.isValid()) {
        m_status = statusAttribute.toInt();
    }
    const bool success = m_status >= 200 && m_status <= 299;
    const qsizetype limit = success ? aiMaxAnswerBytes : aiMaxErrorBodyBytes;
    m_body += m_reply->read(limit + 1 - m_body.size());
    if (m_body.size() <= limit) {
        return;
    }
    stopReply();
    if (success) {
        finish(TavoError{QString(aiErrorDomain), 2, unreadableResponse});
        return;
    }
    m_body.truncate(aiMaxErrorBodyBytes);
    m_truncated = true;
    finish(textFromResponse(m_provider, m_status, m_body, m_key, m_truncated));
}

void AITextRequest::onFinished()
{
    if (!m_reply || m_finished) {
        return;
    }
    onReadyRead();
    if (m_finished) {
        return;
    }
    const QNetworkReply::NetworkError error = m_reply->error();
    const QVariant statusAttribute = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    reply->deleteLater();
    if (isTransportError(error)) {
        finish(transportError(error));
        return;
    }
    const int status = statusAttribute.isValid() ? statusAttribute.toInt() : -1;
    finish(textFromResponse(m_provider, status, m_body, m_key, m_truncated));
}

void AITextRequest::finish(Result<QString> result)
{
    if (m_finished) {
        return;
    }
    m_finished = true;
    if (m_deadline) {
        m_deadline->stop();
    }
    deleteLater();
    if (m_done) {
        Completion done = std::move(m_done);
        done(std::move(result));
    }
}

AITextRequest* generateText(const CollectionAIModelProfile& profile, const QString& key, const QString& prompt,
                            const QList<AIImageAttachment>& images, int maxTokens, QObject* context,
                            AITextRequest::Completion done)
{
    Q_ASSERT(context && context->thread() == QThread::currentThread());
    auto* request = new AITextRequest(context, profile.provider, key, std::move(done));
    const std::optional<AITextHttpRequest> built = buildTextRequest(profile, key, prompt, images, maxTokens);
    if (!built) {
        // Still asynchronous, so a caller never sees its completion run inside the call.
        QTimer::singleShot(0, request, [request] { request->finish(badURLError()); });
        return request;
    }
    request->start(*built);
    return request;
}

} // namespace tavo
