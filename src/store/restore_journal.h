#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

#include <optional>

namespace tavo {

class Defaults;

// A profile replaced as a whole (a restore) goes through a journal, so that a kill at any moment
// leaves it all old or all new:
//   1. every new file is staged beside its target as "<name>.restoring" (stageRestoreFile);
//   2. the journal naming them, with the settings that go with them, is written
//      (writeRestoreJournal): from here on the replacement is decided;
//   3. each target is replaced by its staged file (replaceWithStaged), then the settings are set;
//   4. the journal goes, then the staged files (endRestoreJournal).
// A journal found when the profile is opened means a replacement cut short: finishInterruptedRestore
// completes it.
struct RestoreJournal
{
    QStringList files;                          // names in the profile folder, each staged beside it
    QList<QPair<QString, QJsonValue>> settings; // settings keys and their new values
};

inline const QString restoreJournalFile = QStringLiteral("restore-journal.json");
QString stagedRestoreName(const QString& fileName);
// The journal and the staged files are the store's bookkeeping, never a user's data.
bool isRestoreBookkeeping(const QString& fileName);

bool stageRestoreFile(const QString& folder, const QString& fileName, const QByteArray& bytes);
bool writeRestoreJournal(const QString& folder, const RestoreJournal& journal);
std::optional<RestoreJournal> readRestoreJournal(const QString& folder);
// Replaces `fileName` by its staged copy in one rename; the staged file stays until the journal
// is gone, so replacing again after a kill gives the same file.
bool replaceWithStaged(const QString& folder, const QString& fileName);
void endRestoreJournal(const QString& folder, const RestoreJournal& journal);

enum class InterruptedRestore
{
    None,        // no journal: nothing was cut short
    Finished,    // the replacement was completed
    KeptCurrent, // not finished: a staged file was missing or unreadable (the journal is set aside), or
                 // a file could not be replaced (the journal stays for the next open)
};

// Completes a replacement a kill cut short, under the shortcuts' lock. A journal that cannot be
// read, or one whose staged files are missing or do not decode, changes nothing: it is kept aside
// as "restore-journal.json.unreadable-<time>".
InterruptedRestore finishInterruptedRestore(const QString& folder, Defaults& defaults);

} // namespace tavo
