#include "store/restore_journal.h"

#include "language/shortcut_record.h"
#include "store/collections.h"
#include "store/defaults.h"
#include "store/store_files.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QLockFile>
#include <QLoggingCategory>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcJournal, "tavo.store.journal", QtWarningMsg)

const QString stagedMark = QStringLiteral(".restoring");
const QString filesKey = QStringLiteral("files");
const QString settingsKey = QStringLiteral("settings");
constexpr int lockTimeoutMs = 5000;

QString journalPath(const QString& folder)
{
    return folder + u'/' + restoreJournalFile;
}

// Whether a staged file holds what its target must hold: the shortcut and library files decode
// as the store reads them, any other file is at least JSON.
bool stagedFileReadable(const QString& path, const QString& fileName)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray bytes = file.readAll();
    if (fileName == ProfileFiles::clips) {
        return clipsFromJsonBytes(bytes).has_value();
    }
    if (fileName == ProfileFiles::definitions) {
        return definitionsFromJsonBytes(bytes).has_value();
    }
    if (fileName == ProfileFiles::records) {
        return recordsFromJsonBytes(bytes).has_value();
    }
    QJsonParseError error;
    QJsonDocument::fromJson(bytes, &error);
    return error.error == QJsonParseError::NoError;
}

bool setAside(const QString& folder)
{
    const std::optional<QString> kept = keepAside(journalPath(folder));
    return kept && QFile::remove(journalPath(folder));
}

} // namespace

QString stagedRestoreName(const QString& fileName)
{
    return fileName + stagedMark;
}

bool isRestoreBookkeeping(const QString& fileName)
{
    return fileName.startsWith(restoreJournalFile) || fileName.endsWith(stagedMark) ||
           fileName.contains(stagedMark + u'.');
}

bool stageRestoreFile(const QString& folder, const QString& fileName, const QByteArray& bytes)
{
    return writeFileAtomically(folder + u'/' + stagedRestoreName(fileName), bytes);
}

bool writeRestoreJournal(const QString& folder, const RestoreJournal& journal)
{
    QJsonObject settings;
    for (const auto& [key, value] : journal.settings) {
        settings.insert(key, value);
    }
    const QJsonObject object{{filesKey, QJsonArray::fromStringList(journal.files)}, {settingsKey, settings}};
    return writeJsonAtomically(journalPath(folder), QJsonDocument(object));
}

std::optional<RestoreJournal> readRestoreJournal(const QString& folder)
{
    const JsonRead read = readJsonFile(journalPath(folder));
    if (read.status != ReadStatus::Ok || !read.document.isObject()) {
        return std::nullopt;
    }
    const QJsonObject object = read.document.object();
    if (!object.value(filesKey).isArray() || !object.value(settingsKey).isObject()) {
        return std::nullopt;
    }
    RestoreJournal journal;
    for (const QJsonValue& name : object.value(filesKey).toArray()) {
        // Only a plain name of this folder: a journal never points elsewhere.
        const QString file = name.toString();
        if (!name.isString() || file.isEmpty() || file.contains(u'/') || file.startsWith(u'.')) {
            return std::nullopt;
        }
        journal.files.append(file);
    }
    const QJsonObject settings = object.value(settingsKey).toObject();
    for (auto it = settings.begin(); it != settings.end(); ++it) {
        journal.settings.append({it.key(), it.value()});
    }
    return journal;
}

bool replaceWithStaged(const QString& folder, const QString& fileName)
{
    const QByteArray staged = QFile::encodeName(folder + u'/' + stagedRestoreName(fileName));
    const QByteArray link = QFile::encodeName(folder + u'/' + stagedRestoreName(fileName) + QStringLiteral(".link"));
    const QByteArray target = QFile::encodeName(folder + u'/' + fileName);
    // A second name for the staged file, renamed over the target: atomic, and the staged file
    // itself stays for a replacement done again.
    ::unlink(link.constData());
    if (::link(staged.constData(), link.constData()) != 0) {
        // A folder without hard links: a copy does the same, only slower.
        QFile::remove(QFile::decodeName(link));
        if (!QFile::copy(QFile::decodeName(staged), QFile::decodeName(link))) {
            return false;
        }
    }
    if (::rename(link.constData(), target.constData()) != 0) {
        ::unlink(link.constData());
        return false;
    }
    return true;
}

void endRestoreJournal(const QString& folder, const RestoreJournal& journal)
{
    // The journal first: staged files left behind by a kill now are only leftovers.
    QFile::remove(journalPath(folder));
    for (const QString& name : journal.files) {
        QFile::remove(folder + u'/' + stagedRestoreName(name));
    }
}

InterruptedRestore finishInterruptedRestore(const QString& folder, Defaults& defaults)
{
    if (!QFileInfo::exists(journalPath(folder))) {
        return InterruptedRestore::None;
    }
    // The restore that wrote the journal may still be running in another process.
    QLockFile lock(folder + u'/' + ProfileFiles::clips + QStringLiteral(".lock"));
    const bool locked = lock.tryLock(lockTimeoutMs);
    if (!QFileInfo::exists(journalPath(folder))) {
        return InterruptedRestore::None; // finished meanwhile
    }
    const std::optional<RestoreJournal> journal = readRestoreJournal(folder);
    const bool complete = journal && std::all_of(journal->files.cbegin(), journal->files.cend(), [&](const QString& n) {
                              return stagedFileReadable(folder + u'/' + stagedRestoreName(n), n);
                          });
    if (!complete) {
        qCWarning(lcJournal) << "an interrupted restore in" << folder << "cannot be finished; the current files stay";
        setAside(folder);
        return InterruptedRestore::KeptCurrent;
    }
    for (const QString& name : journal->files) {
        if (!replaceWithStaged(folder, name)) {
            qCWarning(lcJournal) << "could not finish replacing" << name << "in" << folder;
            return InterruptedRestore::KeptCurrent; // the journal stays, for the next open to try again
        }
    }
    if (!journal->settings.isEmpty()) {
        defaults.setValues(journal->settings);
    }
    endRestoreJournal(folder, *journal);
    if (locked) {
        lock.unlock();
    }
    qCInfo(lcJournal) << "finished an interrupted restore in" << folder;
    return InterruptedRestore::Finished;
}

} // namespace tavo
