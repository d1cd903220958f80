#pragma once

#include "platform/net/downloader.h"

#include <QString>
#include <QUrl>

namespace tavo {

// A download of a media file from outside into a profile's Attachments: named as the server
// suggests, reduced to one safe file name ("downloaded-media" when nothing is left) and made
// unique like every attachment.
DownloadRequest mediaDownloadRequest(const QUrl& url, const QString& attachmentsDir,
                                     const DownloadLimits& limits = DownloadLimits::standard());

} // namespace tavo
