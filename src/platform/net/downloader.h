#pragma once

#include <QByteArray>
#include <QFile>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <atomic>
#include <functional>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;

namespace tavo {

// What one download may take. The standard limits suit media; tests and callers with smaller
// needs lower them.
struct DownloadLimits
{
    qint64 maxBytes = 524'288'000;
    int idleTimeoutMs = 60'000;   // without a byte arriving
    int totalTimeoutMs = 120'000; // for the whole download, redirects included
    int maxRedirects = 5;

    // The standard limits; TAVO_DOWNLOAD_TIMEOUT_SECONDS=N makes the time-outs N and 2N seconds.
    static DownloadLimits standard();
};

struct DownloadRequest
{
    QUrl url;
    // Where the file is written: it is streamed into a hidden partial file there and renamed when
    // complete, so the folder never shows a half file.
    QString folder;
    // The finished file's name in `folder`, given the name the server suggested (Content-Disposition,
    // else the address's last part; may be empty or hostile). Anything but one plain file name
    // fails the download. Without it, the file is named "download".
    std::function<QString(const QString& serverName)> fileName;
    QByteArray userAgent;
    DownloadLimits limits = DownloadLimits::standard();
};

struct DownloadResult
{
    QString path;        // the finished file; empty on failure
    QString serverName;  // as the server gave it, before any reduction
    QString contentType; // lower case, without parameters
    QUrl finalUrl;
    int status = 0;
    QString error; // why there is no file, ready to show
    bool canceled = false;

    bool ok() const { return !path.isEmpty(); }
};

// One GET streamed to a file. Redirects are followed by hand: at most `maxRedirects`, to http or
// https only and never from https to http, so no header or secret reaches another scheme. No
// cookies are sent or kept and no credentials are given. Only a 2xx answer is saved; a declared
// length over the limit is refused before the body, a body that grows past it is cut off. On
// failure or cancel the partial file is removed. Lives in the thread of `network`.
class Download : public QObject
{
    Q_OBJECT

public:
    // Starts from the event loop, so signals connected right after construction are all seen.
    Download(QNetworkAccessManager& network, DownloadRequest request, QObject* parent = nullptr);
    ~Download() override;

    void cancel();
    bool isFinished() const { return m_finished; }
    const DownloadResult& result() const { return m_result; }

signals:
    // `total` is the declared length, or -1.
    void progressed(qint64 received, qint64 total);
    void finished();

private:
    void begin();
    void get(const QUrl& url);
    void onHeaders();
    void onData();
    void onFinished();
    void fail(const QString& error, int status = 0);
    void detachReply();
    void removePartial();

    QNetworkAccessManager& m_network;
    DownloadRequest m_request;
    DownloadResult m_result;
    QPointer<QNetworkReply> m_reply;
    QTimer* m_idle;
    QTimer* m_total;
    QFile m_partial;
    QUrl m_url;
    int m_redirects = 0;
    qint64 m_received = 0;
    qint64 m_declared = -1;
    bool m_finished = false;
};

// Runs one download to its end in the calling thread (a worker's, or a command's), with a local
// event loop. `canceled` is polled while it runs.
DownloadResult downloadNow(QNetworkAccessManager& network, const DownloadRequest& request,
                           const std::function<void(qint64 received, qint64 total)>& progress = {},
                           const std::atomic_bool* canceled = nullptr);

// The address a redirect from `from` to `location` leads to, when it may be followed: http or
// https only, and never from https down to http.
std::optional<QUrl> followableRedirect(const QUrl& from, const QByteArray& location);

// The file name a Content-Disposition header suggests (filename*, else filename), or empty.
QString contentDispositionFileName(const QByteArray& header);

} // namespace tavo
