#include "store/attachments.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

namespace tavo {

namespace {

constexpr qsizetype maxNameBytes = 255;

// Drops whole characters from the end of `text` until it fits in `bytes` of UTF-8.
QString cutToBytes(QString text, qsizetype bytes)
{
    while (!text.isEmpty() && text.toUtf8().size() > bytes) {
        text.chop(text.size() >= 2 && text.back().isLowSurrogate() ? 2 : 1);
    }
    return text;
}

} // namespace

QString newAttachmentName(const QString& fileName)
{
    const QString prefix = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper() + u'-';
    const qsizetype room = maxNameBytes - prefix.toUtf8().size();
    if (fileName.toUtf8().size() <= room) {
        return prefix + fileName;
    }
    // The extension tells what the media is, so the stem gives way first.
    const QFileInfo info(fileName);
    const QString suffix = info.suffix().isEmpty() ? QString() : u'.' + info.suffix();
    if (suffix.toUtf8().size() >= room) {
        return prefix + cutToBytes(fileName, room);
    }
    const QString stem = fileName.left(fileName.size() - suffix.size());
    return prefix + cutToBytes(stem, room - suffix.toUtf8().size()) + suffix;
}

AttachmentCopy copyIntoAttachments(const QString& source, const QString& attachmentsDir)
{
    const QFileInfo info(source);
    if (!info.exists()) {
        return {{}, QStringLiteral("%1 does not exist.").arg(source)};
    }
    if (!info.isFile()) {
        return {{}, QStringLiteral("%1 is not a file.").arg(source)};
    }
    if (!QDir().mkpath(attachmentsDir)) {
        return {{}, QStringLiteral("Could not create %1.").arg(attachmentsDir)};
    }
    const QDir folder(attachmentsDir);
    QString target = folder.absoluteFilePath(newAttachmentName(info.fileName()));
    while (QFileInfo::exists(target)) { // a UUID repeats practically never; never overwrite anyway
        target = folder.absoluteFilePath(newAttachmentName(info.fileName()));
    }
    // QFile::copy writes a temporary file and renames it, so a failed copy leaves nothing behind.
    QFile file(source);
    if (!file.copy(target)) {
        return {{}, QStringLiteral("Could not copy %1: %2").arg(source, file.errorString())};
    }
    return {target, {}};
}

} // namespace tavo
