#include "platform/net/downloader.h"

#include <QDir>
#include <QEventLoop>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStringDecoder>
#include <QTimer>
#include <QUuid>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcDownload, "tavo.platform.net", QtWarningMsg)

constexpr qint64 readChunk = 256 * 1024;

bool isWebScheme(const QUrl& url)
{
    const QString scheme = url.scheme().toLower();
    return url.isValid() && !url.host().isEmpty() &&
           (scheme == QLatin1StringView("http") || scheme == QLatin1StringView("https"));
}

QString seconds(int ms)
{
    return QString::number(ms / 1000.0, 'g', 6);
}

// Header values come as bytes; most servers that send a raw non-ASCII name send UTF-8.
QString headerText(const QByteArray& bytes)
{
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = utf8(bytes);
    return utf8.hasError() ? QString::fromLatin1(bytes) : text;
}

bool isPlainFileName(const QString& name)
{
    return !name.isEmpty() && name != QLatin1StringView(".") && name != QLatin1StringView("..") &&
           !name.contains(u'/') && !name.contains(QChar(0)) && name.toUtf8().size() <= 255;
}

} // namespace

DownloadLimits DownloadLimits::standard()
{
    DownloadLimits limits;
    bool ok = false;
    const double configured = qEnvironmentVariable("TAVO_DOWNLOAD_TIMEOUT_SECONDS").trimmed().toDouble(&ok);
    if (ok && configured > 0 && configured < 24 * 3600) {
        limits.idleTimeoutMs = qMax(1, qRound(configured * 1000));
        limits.totalTimeoutMs = 2 * limits.idleTimeoutMs;
    }
    return limits;
}

std::optional<QUrl> followableRedirect(const QUrl& from, const QByteArray& location)
{
    if (location.trimmed().isEmpty()) {
        return std::nullopt;
    }
    QUrl next = from.resolved(QUrl::fromEncoded(location.trimmed()));
    next.setUserInfo(QString()); // a server cannot make us send credentials either
    if (!isWebScheme(next)) {
        return std::nullopt;
    }
    if (from.scheme().toLower() == QLatin1StringView("https") &&
        next.scheme().toLower() != QLatin1StringView("https")) {
        return std::nullopt;
    }
    return next;
}

QString contentDispositionFileName(const QByteArray& header)
{
    QString plain;
    QString extended;
    qsizetype i = header.indexOf(';');
    while (i >= 0 && i < header.size()) {
        ++i; // past ';'
        while (i < header.size() && (header[i] == ' ' || header[i] == '\t')) {
            ++i;
        }
        const qsizetype nameStart = i;
        while (i < header.size() && header[i] != '=' && header[i] != ';') {
            ++i;
        }
        const QByteArray name = header.mid(nameStart, i - nameStart).trimmed().toLower();
        if (i >= header.size() || header[i] == ';') {
            continue;
        }
        ++i; // past '='
        while (i < header.size() && (header[i] == ' ' || header[i] == '\t')) {
            ++i;
        }
        QByteArray value;
        if (i < header.size() && header[i] == '"') {
            ++i;
            while (i < header.size() && header[i] != '"') {
                if (header[i] == '\\' && i + 1 < header.size()) {
                    ++i;
                }
                value.append(header[i++]);
            }
            ++i; // past the closing quote
            while (i < header.size() && header[i] != ';') {
                ++i;
            }
        } else {
            const qsizetype end = header.indexOf(';', i);
            value = header.mid(i, end < 0 ? -1 : end - i).trimmed();
            i = end < 0 ? header.size() : end;
        }
        if (name == "filename") {
            plain = headerText(value);
        } else if (name == "filename*") {
            // charset'language'percent-encoded
            const QList<QByteArray> parts = value.split('\'');
            if (parts.size() == 3) {
                const QByteArray bytes = QByteArray::fromPercentEncoding(parts[2]);
                const QByteArray charset = parts[0].toLower();
                if (charset == "utf-8") {
                    extended = QString::fromUtf8(bytes);
                } else if (charset == "iso-8859-1") {
                    extended = QString::fromLatin1(bytes);
                }
            }
        }
    }
    return extended.isEmpty() ? plain : extended;
}

Download::Download(QNetworkAccessManager& network, DownloadRequest request, QObject* parent)
    : QObject(parent)
    , m_network(network)
    , m_request(std::move(request))
    , m_idle(new QTimer(this))
    , m_total(new QTimer(this))
{
    m_idle->setSingleShot(true);
    m_total->setSingleShot(true);
    connect(m_idle, &QTimer::timeout, this, [this] {
        fail(QStringLiteral("No data arrived for %1 seconds.").arg(seconds(m_request.limits.idleTimeoutMs)));
    });
    connect(m_total, &QTimer::timeout, this, [this] {
        fail(QStringLiteral("The download took longer than %1 seconds.").arg(seconds(m_request.limits.totalTimeoutMs)));
    });
    QMetaObject::invokeMethod(this, &Download::begin, Qt::QueuedConnection);
}

Download::~Download()
{
    if (!m_finished) {
        detachReply();
        removePartial();
    }
}

void Download::cancel()
{
    if (m_finished) {
        return;
    }
    m_result.canceled = true;
    fail(QStringLiteral("Canceled."));
}

void Download::begin()
{
    if (m_finished) {
        return;
    }
    QUrl url = m_request.url;
    if (!isWebScheme(url)) {
        fail(QStringLiteral("Only http and https addresses can be downloaded."));
        return;
    }
    // Credentials in an address are never sent.
    url.setUserInfo(QString());
    m_idle->start(m_request.limits.idleTimeoutMs);
    m_total->start(m_request.limits.totalTimeoutMs);
    get(url);
}

void Download::get(const QUrl& url)
{
    m_url = url;
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    if (!m_request.userAgent.isEmpty()) {
        request.setHeader(QNetworkRequest::UserAgentHeader, m_request.userAgent);
    }
    m_reply = m_network.get(request);
    // Bounded memory: the rest waits in the socket until it is written out.
    m_reply->setReadBufferSize(readChunk * 4);
    connect(m_reply, &QNetworkReply::metaDataChanged, this, &Download::onHeaders);
    connect(m_reply, &QNetworkReply::readyRead, this, &Download::onData);
    connect(m_reply, &QNetworkReply::finished, this, &Download::onFinished);
}

void Download::onHeaders()
{
    if (!m_reply || m_partial.isOpen()) {
        return;
    }
    const QVariant statusAttribute = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!statusAttribute.isValid()) {
        return;
    }
    m_idle->start(m_request.limits.idleTimeoutMs);
    const int status = statusAttribute.toInt();
    if (status >= 300 && status < 400 && m_reply->hasRawHeader("Location")) {
        const QByteArray location = m_reply->rawHeader("Location");
        if (m_redirects >= m_request.limits.maxRedirects) {
            fail(QStringLiteral("Too many redirects."), status);
            return;
        }
        const std::optional<QUrl> next = followableRedirect(m_url, location);
        if (!next) {
            fail(QStringLiteral("The server redirected to an address that cannot be downloaded."), status);
            return;
        }
        ++m_redirects;
        detachReply();
        get(*next);
        return;
    }
    if (status < 200 || status > 299) {
        fail(QStringLiteral("The server answered %1.").arg(status), status);
        return;
    }
    m_result.status = status;
    const QVariant length = m_reply->header(QNetworkRequest::ContentLengthHeader);
    m_declared = length.isValid() ? length.toLongLong() : -1;
    if (m_declared > m_request.limits.maxBytes) {
        fail(QStringLiteral("The file is over the download limit."), status);
        return;
    }
    m_result.finalUrl = m_url;
    m_result.contentType =
        QString::fromLatin1(m_reply->rawHeader("Content-Type")).section(u';', 0, 0).trimmed().toLower();
    const QString suggested = contentDispositionFileName(m_reply->rawHeader("Content-Disposition"));
    m_result.serverName = suggested.isEmpty() ? m_url.fileName() : suggested;

    m_partial.setFileName(m_request.folder + QStringLiteral("/.tavo-download-") +
                          QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".part"));
    if (!m_partial.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        fail(QStringLiteral("Could not write the file: ") + m_partial.errorString(), status);
        return;
    }
}

void Download::onData()
{
    if (!m_reply) {
        return;
    }
    if (!m_partial.isOpen()) {
        onHeaders();
        if (!m_reply || !m_partial.isOpen()) {
            return;
        }
    }
    m_idle->start(m_request.limits.idleTimeoutMs);
    while (m_reply && m_reply->bytesAvailable() > 0) {
        const QByteArray chunk = m_reply->read(readChunk);
        m_received += chunk.size();
        if (m_received > m_request.limits.maxBytes) {
            fail(QStringLiteral("The file is over the download limit."), m_result.status);
            return;
        }
        if (m_partial.write(chunk) != chunk.size()) {
            fail(QStringLiteral("Could not write the file: ") + m_partial.errorString(), m_result.status);
            return;
        }
    }
    emit progressed(m_received, m_declared);
}

void Download::onFinished()
{
    QNetworkReply* reply = m_reply;
    if (!reply) {
        return;
    }
    // A short answer can finish before its headers were looked at: decide on them first.
    if (!m_partial.isOpen()) {
        onHeaders();
        if (m_finished || m_reply != reply) {
            return; // failed, or a redirect is under way
        }
    }
    if (reply->error() != QNetworkReply::NoError) {
        fail(reply->errorString(), reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt());
        return;
    }
    onData();
    if (m_finished) {
        return;
    }
    if (!m_partial.isOpen()) {
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        fail(QStringLiteral("The server answered %1.").arg(status), status);
        return;
    }
    detachReply();
    if (!m_partial.flush()) {
        fail(QStringLiteral("Could not write the file: ") + m_partial.errorString(), m_result.status);
        return;
    }
    m_partial.close();

    const QString name = m_request.fileName ? m_request.fileName(m_result.serverName) : QStringLiteral("download");
    if (!isPlainFileName(name)) {
        fail(QStringLiteral("The server's file name cannot be used."), m_result.status);
        return;
    }
    const QString target = m_request.folder + u'/' + name;
    // rename() never replaces an existing file.
    if (!m_partial.rename(target)) {
        fail(QStringLiteral("Could not write the file: ") + m_partial.errorString(), m_result.status);
        return;
    }
    m_idle->stop();
    m_total->stop();
    m_result.path = target;
    m_finished = true;
    emit finished();
}

void Download::fail(const QString& error, int status)
{
    if (m_finished) {
        return;
    }
    m_idle->stop();
    m_total->stop();
    detachReply();
    removePartial();
    m_result.error = error;
    if (status != 0) {
        m_result.status = status;
    }
    m_result.path.clear();
    m_finished = true;
    qCDebug(lcDownload) << "download failed:" << error;
    emit finished();
}

void Download::detachReply()
{
    if (!m_reply) {
        return;
    }
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    reply->disconnect(this);
    // Not at once: the reply may be inside one of its own signals, and aborting there makes it
    // report a second error.
    QMetaObject::invokeMethod(reply, &QNetworkReply::abort, Qt::QueuedConnection);
    reply->deleteLater();
}

void Download::removePartial()
{
    if (m_partial.fileName().isEmpty()) {
        return;
    }
    m_partial.close();
    m_partial.remove();
}

DownloadResult downloadNow(QNetworkAccessManager& network, const DownloadRequest& request,
                           const std::function<void(qint64, qint64)>& progress, const std::atomic_bool* canceled)
{
    Download download(network, request);
    QEventLoop loop;
    QObject::connect(&download, &Download::finished, &loop, &QEventLoop::quit);
    if (progress) {
        QObject::connect(&download, &Download::progressed, &loop, progress);
    }
    QTimer poll;
    if (canceled) {
        QObject::connect(&poll, &QTimer::timeout, &download, [&] {
            if (canceled->load()) {
                download.cancel();
            }
        });
        poll.start(50);
    }
    if (!download.isFinished()) {
        loop.exec();
    }
    return download.result();
}

} // namespace tavo
