#pragma once

#include "ai/model_profile.h"
#include "language/tavo_error.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>
#include <utility>

class QNetworkReply;
class QTimer;

namespace tavo {

// Error domains of the text client. Provider answers carry the HTTP status (or -1) as code;
// transport failures carry the classic URL error codes below.
inline constexpr QLatin1StringView aiErrorDomain{"TavoAI"};
inline constexpr QLatin1StringView networkErrorDomain{"TavoNetwork"};
inline constexpr QLatin1StringView jsonErrorDomain{"TavoJSON"};

enum NetworkErrorCode : int
{
    NetworkErrorUnknown = -1,
    NetworkErrorBadURL = -1000,
    NetworkErrorTimedOut = -1001,
    NetworkErrorCannotFindHost = -1003,
    NetworkErrorCannotConnect = -1004,
    NetworkErrorConnectionLost = -1005,
    NetworkErrorSecureConnectionFailed = -1200,
};

// One attachment, sent in order after the prompt.
struct AIImageAttachment
{
    QByteArray bytes;
    QString mimeType;
};

// What goes on the wire for one generation; built apart from the transport so the protocol
// rules can be checked without a server.
struct AITextHttpRequest
{
    QUrl url;
    QList<std::pair<QByteArray, QByteArray>> headers; // Content-Type included
    QByteArray body;
};

// The whole-request deadline; TAVO_AI_TIMEOUT_SECONDS can only shorten it.
inline constexpr int aiRequestTimeoutSeconds = 180;
// A success body beyond this fails as unreadable; of an error body only this much is read.
inline constexpr qsizetype aiMaxAnswerBytes = 8 * 1024 * 1024;
inline constexpr qsizetype aiMaxErrorBodyBytes = 64 * 1024;

// The request for `profile`'s protocol, or nothing when the address can't be built (a bad base
// URL or host override).
std::optional<AITextHttpRequest> buildTextRequest(const CollectionAIModelProfile& profile, const QString& key,
                                                  const QString& prompt, const QList<AIImageAttachment>& images,
                                                  int maxTokens);

// Response handling for an HTTP answer (`status` -1: the answer wasn't HTTP). `truncated` says the
// body was cut at aiMaxErrorBodyBytes. `key` is hidden from any message quoted back.
Result<QString> textFromResponse(const QString& provider, int status, const QByteArray& body, const QString& key,
                                 bool truncated = false);

// One generation in flight. Deleting it, or the context it was started with, cancels it and the
// completion never runs; after the completion it deletes itself.
class AITextRequest : public QObject
{
    Q_OBJECT

public:
    using Completion = std::function<void(Result<QString>)>;

    ~AITextRequest() override;

    // Stops the request; the completion never runs.
    void cancel();

private:
    friend AITextRequest* generateText(const CollectionAIModelProfile&, const QString&, const QString&,
                                       const QList<AIImageAttachment>&, int, QObject*, Completion);

    AITextRequest(QObject* context, QString provider, QString key, Completion done);
    void start(const AITextHttpRequest& request);
    void onReadyRead();
    void onFinished();
    void finish(Result<QString> result);
    void stopReply();

    QString m_provider;
    QString m_key;
    Completion m_done;
    QPointer<QNetworkReply> m_reply;
    QTimer* m_deadline = nullptr;
    QByteArray m_body;
    int m_status = -1;
    bool m_truncated = false;
    bool m_finished = false;
};

// Sends one prompt (and images) to the profile's provider and delivers the model's text, or a
// TavoError whose description is ready to show, to `done` on the calling thread's event loop,
// never before this returns. Call it from the main thread; `context` must live on it too.
AITextRequest* generateText(const CollectionAIModelProfile& profile, const QString& key, const QString& prompt,
                            const QList<AIImageAttachment>& images, int maxTokens, QObject* context,
                            AITextRequest::Completion done);

namespace SharedAIClient {
inline AITextRequest* generate(const CollectionAIModelProfile& profile, const QString& key, const QString& prompt,
                               const QList<AIImageAttachment>& images, int maxTokens, QObject* context,
                               AITextRequest::Completion done)
{
    return generateText(profile, key, prompt, images, maxTokens, context, std::move(done));
}
} // namespace SharedAIClient

} // namespace tavo
