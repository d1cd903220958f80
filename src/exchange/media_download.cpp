#include "exchange/media_download.h"

#include "exchange/media_name.h"
#include "store/attachments.h"

namespace tavo {

DownloadRequest mediaDownloadRequest(const QUrl& url, const QString& attachmentsDir, const DownloadLimits& limits)
{
    DownloadRequest request;
    request.url = url;
    request.folder = attachmentsDir;
    request.fileName = [](const QString& serverName) {
        const QString reduced = reducedMediaName(serverName);
        return newAttachmentName(reduced.isEmpty() ? QStringLiteral("downloaded-media") : reduced);
    };
    request.limits = limits;
    return request;
}

} // namespace tavo
