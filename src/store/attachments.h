#pragma once

#include <QString>

namespace tavo {

// The outcome of copying a file into a profile's Attachments folder: the copy's absolute path,
// or why there is none.
struct AttachmentCopy
{
    QString path;
    QString error;

    bool ok() const { return !path.isEmpty(); }
};

// The name a file gets in Attachments: a new upper-case UUID, "-" and `fileName`, cut (before its
// extension) so the whole name stays within the 255 bytes a Linux file name may hold.
QString newAttachmentName(const QString& fileName);

// Copies the regular file `source` into `attachmentsDir` (made when missing) under a new
// attachment name, so the shortcut keeps its media when the original moves or goes. Every copy
// gets a name of its own; the source is never changed.
AttachmentCopy copyIntoAttachments(const QString& source, const QString& attachmentsDir);

} // namespace tavo
