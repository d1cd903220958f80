#pragma once

#include "language/shortcut_record.h"

#include <QList>
#include <QString>
#include <QUuid>

namespace tavo {

// One media file on its way to becoming a shortcut, as the bulk media sheet lets the user review
// it. `mediaPath` is the file as it will be attached (already in the profile's Attachments).
struct BulkMediaDraft
{
    QUuid id = QUuid::createUuid();
    QString mediaPath;
    QString shortcut;
    QString name;

    bool operator==(const BulkMediaDraft&) const = default;
};

namespace BulkMediaText {
inline const QString keyLimit =
    QStringLiteral("Review and edit each item before saving. Shortcut keys are limited to 20 characters, including /.");
inline const QString noCollection =
    QStringLiteral("No collection selected? Each shortcut will be saved in Imported only.");
// "Created <n> media shortcuts in <group>. Type each shortcut to paste its file."
QString created(qsizetype count, const QString& group);
} // namespace BulkMediaText

// The key a file proposes: "/" and its name without the extension, lower case, each run of other
// characters than a-z, 0-9, "_" and "-" made one "-", at most 20 characters in all ("/media" when
// nothing is left).
QString bulkMediaDraftKey(const QString& fileName);

// The draft of one file: its proposed key and its name without the extension.
BulkMediaDraft bulkMediaDraft(const QString& mediaPath);

struct BulkMediaSave
{
    QList<Clip> clips; // the new shortcuts, in the drafts' order
    QString status;
};

// The shortcuts the drafts become in `group` ("Imported" when blank), each with its one file
// pasted as media: the key takes the collection's suffix, stays within 20 characters, and gets a
// number where `existing` or an earlier draft already uses it. Changes nothing itself: the caller
// adds the clips to the library and saves.
BulkMediaSave saveBulkMedia(const QList<BulkMediaDraft>& drafts, const QString& group, const QList<Clip>& existing);

} // namespace tavo
