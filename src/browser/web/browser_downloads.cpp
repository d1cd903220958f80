#include "browser/web/browser_downloads.h"

#include "browser/browser_tabs.h"
#include "browser/web/download_names.h"

#include <QFileInfo>
#include <QUrl>
#include <QWebEngineDownloadRequest>

namespace tavo {

BrowserDownloads::BrowserDownloads(TavoBrowserTabs& state, QObject* parent)
    : QObject(parent)
    , m_state(state)
{
}

QString BrowserDownloads::downloadingText()
{
    return QStringLiteral("Downloading to Desktop…");
}

QString BrowserDownloads::finishedText(const QString& name)
{
    return QStringLiteral("Downloaded to Desktop · ") + name;
}

QString BrowserDownloads::failedText(const QString& reason)
{
    return QStringLiteral("Download failed · ") + reason;
}

void BrowserDownloads::begin(QWebEngineDownloadRequest* download)
{
    if (download->state() != QWebEngineDownloadRequest::DownloadRequested) {
        return;
    }
    const QString path = uniqueDownloadPath(downloadFolder(), downloadFileName(download->suggestedFileName()));
    const QFileInfo target(path);
    download->setDownloadDirectory(target.absolutePath());
    download->setDownloadFileName(target.fileName());
    connect(download, &QWebEngineDownloadRequest::stateChanged, this, [this, download] { follow(download); });
    download->accept();
    m_state.setDownloadStatus(downloadingText());
}

void BrowserDownloads::follow(QWebEngineDownloadRequest* download)
{
    switch (download->state()) {
    case QWebEngineDownloadRequest::DownloadCompleted: {
        const QString name = download->downloadFileName();
        const QString path = download->downloadDirectory() + u'/' + name;
        m_state.setDownloadStatus(finishedText(name.isEmpty() ? QStringLiteral("file") : name));
        m_state.setLastDownloadURL(QUrl::fromLocalFile(path).toString());
        break;
    }
    case QWebEngineDownloadRequest::DownloadInterrupted:
    case QWebEngineDownloadRequest::DownloadCancelled: {
        const QString reason = download->interruptReasonString();
        m_state.setDownloadStatus(failedText(reason.isEmpty() ? QStringLiteral("Cancelled") : reason));
        break;
    }
    default:
        break;
    }
}

} // namespace tavo
