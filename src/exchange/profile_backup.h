#pragma once

#include "language/shortcut_record.h"
#include "language/tavo_error.h"
#include "store/collections.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class QObject;

namespace tavo {

class DB;

// A backup is a zip whose top entry is the profile folder: clips.json, collections.json, the
// record library, Attachments/ and whatever else the folder holds, without the store's own lock,
// unreadable and before-restore files. The hidden-collection list, which the settings keep,
// travels beside clips.json as hidden-collections.json. A restore brings all of it back.

inline const QString creatingBackupStatus = QStringLiteral("Creating your backup…");
inline const QString archiveFailedText = QStringLiteral("Tavo could not create the archive.");
inline const QString notValidBackupText = QStringLiteral("This file is not a valid Tavo backup.");
QString backupSavedStatus(const QString& fileName);
QString backupFailedStatus(const QString& text);
QString restoreFailedStatus(const QString& text);
QString restoredStatus(qsizetype shortcutCount);

// "Tavo-Backup-<local date and time>.zip".
QString suggestedBackupName(const QDateTime& now = QDateTime::currentDateTime());
// The suggested name in the default folder, numbered when a file of that name is there already.
QString defaultBackupPath();

// What a backup is made from; plain values, so a worker thread can make it.
struct BackupRequest
{
    QString profileFolder;
    QStringList hiddenCollections;
    QString target;
};

// Writes the backup; the archive appears under `target` only when complete. Gives the target's
// path, or a failure whose description is the status to show ("Backup failed: …").
Result<QString> makeProfileBackup(const BackupRequest& request);

// Everything a backup will change, read, checked and decoded, with its media already copied
// into the profile's Attachments under names that harm no file there. Made on a worker; nothing
// refers to the copies until commitRestore.
struct PreparedRestore
{
    QList<Clip> clips;
    std::optional<QStringList> collections;
    std::optional<QStringList> hiddenCollections;
    std::optional<QList<CollectionDefinition>> definitions;
    std::optional<QList<CollectionRecord>> records;
    QStringList copiedFiles; // new files in Attachments, removed again if the restore fails
};

// Reads the backup at `archive` into a private work folder (always removed), refuses it at the
// first fault, and copies its media into `attachmentsDir`. The failure's description is the
// status to show, its code the ZipFault of a refused archive (0 for other failures). Touches
// nothing else of the profile.
Result<PreparedRestore> prepareRestore(const QString& archive, const QString& attachmentsDir);

using RestoreDone = std::function<void(const Result<QString>&)>;

// Keeps the current files aside as "<name>.before-restore-<stamp>.json" (the last three of each),
// then replaces the shortcuts, the collection names, the hidden list and the record library
// through the store's journal: a kill at any moment leaves the profile all old or all new. Called
// on the store's thread; the file work runs where the store writes. A failure before anything is
// replaced removes the copied media. `done` gets the status to show, on the store's thread,
// unless `context` is gone by then.
void commitRestore(DB& db, PreparedRestore prepared, QObject* context, const RestoreDone& done);
// The same, waiting for the outcome.
Result<QString> commitRestore(DB& db, PreparedRestore prepared);

// Removes the media a prepared restore copied, for a restore that will not be committed.
void discardRestore(const PreparedRestore& prepared);

// The backup of `db`'s profile made on a thread of the global pool; `done` gets the status to
// show ("Backup saved to <file name>" or "Backup failed: …") on `db`'s thread.
void makeProfileBackupInBackground(DB& db, const QString& target,
                                   const std::function<void(const Result<QString>&)>& done);

// The whole restore with its file work on a thread of the global pool and the commit back on
// `db`'s thread; `done` gets the status there.
void restoreProfileBackupInBackground(DB& db, const QString& archive,
                                      const std::function<void(const Result<QString>&)>& done);

} // namespace tavo
