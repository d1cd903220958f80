#include "exchange/profile_backup.h"

#include "exchange/media_name.h"
#include "exchange/work_folder.h"
#include "language/json_stream.h"
#include "platform/user_folders.h"
#include "platform/zip/zip_reader.h"
#include "platform/zip/zip_writer.h"
#include "store/attachments.h"
#include "store/profile_store.h"
#include "store/restore_journal.h"
#include "store/store_files.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QLoggingCategory>
#include <QPointer>
#include <QStandardPaths>
#include <QThreadPool>

#include <algorithm>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcBackup, "tavo.exchange.backup", QtWarningMsg)

const QString& clipsFile = ProfileFiles::clips;
const QString& collectionsFile = ProfileFiles::collections;
const QString& definitionsFile = ProfileFiles::definitions;
const QString& recordsFile = ProfileFiles::records;
const QString hiddenFile = QStringLiteral("hidden-collections.json");
const QString& attachmentsFolder = ProfileFiles::attachments;
const QString beforeRestoreMark = QStringLiteral(".before-restore-");
constexpr int keptBeforeRestore = 3;

// `code` is the archive's ZipFault when the archive itself was refused, else 0.
TavoError failure(const QString& status, int code = 0)
{
    return TavoError{QStringLiteral("TavoBackup"), code, status};
}

// The store's own bookkeeping, which means nothing in another profile or on another machine.
bool isStoreBookkeeping(const QString& fileName)
{
    return fileName.endsWith(QLatin1StringView(".lock")) || fileName.contains(QLatin1StringView(".unreadable-")) ||
           fileName.contains(beforeRestoreMark) || isRestoreBookkeeping(fileName);
}

QByteArray stringListJson(const QStringList& texts)
{
    JsonWriter writer;
    writer.value(texts);
    return writer.take();
}

std::optional<QStringList> stringListFromJson(QByteArrayView json)
{
    JsonReader reader(json);
    std::optional<QStringList> texts = reader.readStringList();
    if (!texts || reader.failed() || !reader.atEnd()) {
        return std::nullopt;
    }
    return texts;
}

std::optional<QByteArray> readWhole(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    return file.readAll();
}

bool sameContent(const QString& a, const QString& b)
{
    QFile first(a);
    QFile second(b);
    if (first.size() != second.size() || !first.open(QIODevice::ReadOnly) || !second.open(QIODevice::ReadOnly)) {
        return false;
    }
    constexpr qint64 chunk = 256 * 1024;
    while (!first.atEnd()) {
        if (first.read(chunk) != second.read(chunk)) {
            return false;
        }
    }
    return second.atEnd();
}

bool occupied(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

// Moves a file of the work folder into Attachments under `target` (a copy when the two are on
// different disks). Never replaces anything already there.
bool placeFile(const QString& source, const QString& target)
{
    if (occupied(target)) {
        return false;
    }
    return QFile::rename(source, target) || QFile::copy(source, target);
}

// The files a restore may replace, kept as "<stem>.before-restore-<stamp>.json" beside them.
QString beforeRestorePath(const QString& folder, const QString& fileName, const QString& stamp)
{
    return folder + u'/' + QFileInfo(fileName).completeBaseName() + beforeRestoreMark + stamp + QStringLiteral(".json");
}

// One stamp for the whole set, later than every stamp already there, so the names sort in time.
QString freeBeforeRestoreStamp(const QString& folder, const QStringList& files)
{
    QDateTime moment = QDateTime::currentDateTimeUtc();
    for (;;) {
        const QString stamp = moment.toString(QStringLiteral("yyyyMMdd-HHmmss-zzz"));
        const bool free = std::none_of(files.cbegin(), files.cend(), [&](const QString& name) {
            return occupied(beforeRestorePath(folder, name, stamp));
        });
        if (free) {
            return stamp;
        }
        moment = moment.addMSecs(1);
    }
}

void pruneBeforeRestore(const QString& folder, const QString& fileName)
{
    QStringList kept =
        QDir(folder).entryList({QFileInfo(fileName).completeBaseName() + beforeRestoreMark + QStringLiteral("*.json")},
                               QDir::Files, QDir::Name);
    while (kept.size() > keptBeforeRestore) {
        QFile::remove(folder + u'/' + kept.takeFirst());
    }
}

bool keepBeforeRestore(const QString& folder, const QString& fileName, const QString& stamp)
{
    const QString current = folder + u'/' + fileName;
    if (!QFileInfo::exists(current)) {
        return true; // nothing to keep
    }
    if (!QFile::copy(current, beforeRestorePath(folder, fileName, stamp))) {
        return false;
    }
    pruneBeforeRestore(folder, fileName);
    return true;
}

// A path a backup names, as this profile will hold it: the restored file of that name, or nothing
// when the backup does not carry it (pointing at an unrelated file of this profile would be worse).
QStringList rewrittenFiles(const QStringList& files, const QHash<QString, QString>& placed)
{
    QStringList rewritten;
    for (const QString& path : files) {
        const QString name = reducedMediaName(path);
        if (!name.isEmpty() && placed.contains(name)) {
            rewritten.append(placed.value(name));
        }
    }
    return rewritten;
}

} // namespace

QString backupSavedStatus(const QString& fileName)
{
    return QStringLiteral("Backup saved to ") + fileName;
}

QString backupFailedStatus(const QString& text)
{
    return QStringLiteral("Backup failed: ") + text;
}

QString restoreFailedStatus(const QString& text)
{
    return QStringLiteral("Restore failed: ") + text;
}

QString restoredStatus(qsizetype shortcutCount)
{
    return QStringLiteral("Restored %1 shortcuts and media from backup.").arg(shortcutCount);
}

QString suggestedBackupName(const QDateTime& now)
{
    return QStringLiteral("Tavo-Backup-") + now.toString(QStringLiteral("yyyy-MM-dd-HHmmss")) + QStringLiteral(".zip");
}

QString defaultBackupPath()
{
    const QString folder = desktopFolder();
    const QString name = suggestedBackupName();
    QString path = folder + u'/' + name;
    for (int n = 2; occupied(path); ++n) {
        path = folder + u'/' + QFileInfo(name).completeBaseName() + u'-' + QString::number(n) + QStringLiteral(".zip");
    }
    return path;
}

Result<QString> makeProfileBackup(const BackupRequest& request)
{
    const QFileInfo folder(request.profileFolder);
    const auto failed = [](const QString& why) {
        qCWarning(lcBackup) << "backup failed:" << why;
        return failure(backupFailedStatus(archiveFailedText));
    };
    if (!folder.isDir()) {
        return failed(QStringLiteral("no profile folder at ") + request.profileFolder);
    }
    const QString top = folder.fileName();
    const QString root = folder.canonicalFilePath();
    ZipWriter writer(request.target);
    // Compared by their real paths: the profile is walked from its real path.
    const QString ownTarget = QFileInfo(request.target).canonicalFilePath();
    const QString ownPartial = QFileInfo(writer.partialPath()).canonicalFilePath();

    if (std::optional<TavoError> error = writer.addFolder(top)) {
        return failed(error->description);
    }
    QStringList paths;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        paths.append(it.next());
    }
    // The library first, then the media, in a stable order.
    std::sort(paths.begin(), paths.end(), [&](const QString& a, const QString& b) {
        const bool aTop = a.count(u'/') == root.count(u'/') + 1;
        const bool bTop = b.count(u'/') == root.count(u'/') + 1;
        return aTop != bTop ? aTop : a < b;
    });
    for (const QString& path : paths) {
        const QFileInfo info(path);
        const QString name = top + u'/' + QDir(root).relativeFilePath(path);
        const bool atTop = info.absolutePath() == root;
        const QString real = info.canonicalFilePath();
        if (info.isSymLink() || isStoreBookkeeping(info.fileName()) || real == ownTarget || real == ownPartial ||
            (atTop && info.fileName() == hiddenFile)) {
            continue; // links lead out of the profile; the target is never its own content
        }
        std::optional<TavoError> error;
        if (info.isDir()) {
            error = writer.addFolder(name);
        } else if (!info.isFile()) {
            continue;
        } else if (atTop && info.suffix() == QLatin1StringView("json")) {
            // Read now rather than at the end, so the library is one moment's state even while the
            // application keeps writing; a file replaced meanwhile is read as it is then.
            const std::optional<QByteArray> bytes = readWhole(path);
            if (!bytes) {
                continue;
            }
            error = writer.addBytes(*bytes, name);
        } else {
            error = writer.addFile(path, name, ZipWriter::Compression::Store);
        }
        if (error) {
            return failed(error->description);
        }
    }
    if (std::optional<TavoError> error =
            writer.addBytes(stringListJson(request.hiddenCollections), top + u'/' + hiddenFile)) {
        return failed(error->description);
    }
    if (std::optional<TavoError> error = writer.commit()) {
        return failed(error->description);
    }
    return request.target;
}

Result<PreparedRestore> prepareRestore(const QString& archive, const QString& attachmentsDir)
{
    const Result<std::shared_ptr<ZipReader>> opened = ZipReader::open(archive);
    if (!opened.ok()) {
        const auto fault = ZipFault(opened.error().code);
        if (fault == ZipFault::Unreadable || fault == ZipFault::NoSpace) {
            return failure(restoreFailedStatus(opened.error().description), opened.error().code);
        }
        qCInfo(lcBackup) << "backup refused:" << opened.error().description;
        return failure(notValidBackupText, opened.error().code);
    }
    const ZipReader& reader = **opened;

    // The shallowest clips.json marks the profile folder, wherever the archive nests it.
    std::optional<QString> clipsEntry;
    for (const ZipEntry& entry : reader.entries()) {
        if (entry.isFolder || entry.name.section(u'/', -1) != clipsFile) {
            continue;
        }
        if (!clipsEntry || entry.name.count(u'/') < clipsEntry->count(u'/')) {
            clipsEntry = entry.name;
        }
    }
    if (!clipsEntry) {
        return failure(notValidBackupText);
    }

    const WorkFolder work(QStringLiteral("TavoRestore"));
    if (!work.isValid()) {
        return failure(restoreFailedStatus(QStringLiteral("Tavo could not make a work folder.")));
    }
    const QString extracted = work.path() + QStringLiteral("/backup");
    if (const std::optional<TavoError> error = reader.extractAll(extracted)) {
        const auto fault = ZipFault(error->code);
        if (fault == ZipFault::NoSpace || fault == ZipFault::WriteFailed) {
            return failure(restoreFailedStatus(error->description), error->code);
        }
        qCInfo(lcBackup) << "backup refused:" << error->description;
        return failure(notValidBackupText, error->code);
    }
    const QString root = QFileInfo(extracted + u'/' + *clipsEntry).absolutePath();

    PreparedRestore prepared;
    const std::optional<QByteArray> clipsBytes = readWhole(root + u'/' + clipsFile);
    std::optional<QList<Clip>> clips = clipsBytes ? clipsFromJsonBytes(*clipsBytes) : std::nullopt;
    if (!clips) {
        return failure(restoreFailedStatus(QStringLiteral("The shortcuts in the backup cannot be read.")));
    }
    prepared.clips = std::move(*clips);
    // The rest of the library comes back when the backup carries it in a form that decodes.
    if (const std::optional<QByteArray> bytes = readWhole(root + u'/' + collectionsFile)) {
        prepared.collections = stringListFromJson(*bytes);
    }
    if (const std::optional<QByteArray> bytes = readWhole(root + u'/' + hiddenFile)) {
        prepared.hiddenCollections = stringListFromJson(*bytes);
    }
    if (const std::optional<QByteArray> bytes = readWhole(root + u'/' + definitionsFile)) {
        prepared.definitions = definitionsFromJsonBytes(*bytes);
    }
    if (const std::optional<QByteArray> bytes = readWhole(root + u'/' + recordsFile)) {
        prepared.records = recordsFromJsonBytes(*bytes);
    }

    // The media: a name the profile does not hold comes in as it is, one it holds with the same
    // content is shared, and one it holds with other content comes in under a new name.
    QHash<QString, QString> placed; // name in the backup -> path in this profile
    const QFileInfoList media =
        QDir(root + u'/' + attachmentsFolder).entryInfoList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name);
    if (!media.isEmpty() && !QDir().mkpath(attachmentsDir)) {
        return failure(restoreFailedStatus(QStringLiteral("Tavo could not create %1.").arg(attachmentsDir)));
    }
    const QDir attachments(attachmentsDir);
    for (const QFileInfo& file : media) {
        const QString name = reducedMediaName(file.fileName());
        if (name.isEmpty() || !file.isFile()) {
            continue;
        }
        QString target = attachments.absoluteFilePath(name);
        if (occupied(target) && QFileInfo(target).isFile() && sameContent(file.filePath(), target)) {
            placed.insert(name, target);
            continue;
        }
        bool done = placeFile(file.filePath(), target);
        for (int attempt = 0; !done && attempt < 3; ++attempt) {
            target = attachments.absoluteFilePath(newAttachmentName(name));
            done = placeFile(file.filePath(), target);
        }
        if (!done) {
            discardRestore(prepared);
            return failure(
                restoreFailedStatus(QStringLiteral("Tavo could not copy %1 into %2.").arg(name, attachmentsDir)));
        }
        prepared.copiedFiles.append(target);
        placed.insert(name, target);
    }

    for (Clip& clip : prepared.clips) {
        clip.files = rewrittenFiles(clip.files, placed);
    }
    if (prepared.records) {
        for (CollectionRecord& record : *prepared.records) {
            record.files = rewrittenFiles(record.files, placed);
        }
    }
    return prepared;
}

void discardRestore(const PreparedRestore& prepared)
{
    for (const QString& path : prepared.copiedFiles) {
        QFile::remove(path);
    }
}

void commitRestore(DB& db, PreparedRestore prepared, QObject* context, const RestoreDone& done)
{
    const QString folder = db.dir();
    QStringList replaced{clipsFile};
    if (prepared.collections) {
        replaced.append(collectionsFile);
    }
    if (prepared.definitions) {
        replaced.append(definitionsFile);
    }
    if (prepared.records) {
        replaced.append(recordsFile);
    }
    const qsizetype count = prepared.clips.size();
    const QStringList copiedFiles = prepared.copiedFiles;
    auto notKept = std::make_shared<QString>(); // the file that could not be kept, if any

    DB::Replacement replacement;
    replacement.clips = std::move(prepared.clips);
    replacement.collections = std::move(prepared.collections);
    replacement.hiddenCollections = std::move(prepared.hiddenCollections);
    replacement.definitions = std::move(prepared.definitions);
    replacement.records = std::move(prepared.records);
    // Under the store's lock, so the copies are exactly the files being replaced.
    replacement.keepCurrent = [folder, replaced, notKept] {
        const QString stamp = freeBeforeRestoreStamp(folder, replaced);
        for (const QString& name : replaced) {
            if (!keepBeforeRestore(folder, name, stamp)) {
                *notKept = name;
                return false;
            }
        }
        return true;
    };
    // The store's journal makes the replacement: before it the profile is all old, after it all
    // new, the shortcuts with every file they name in place.
    db.replaceProfile(
        std::move(replacement), nullptr,
        [folder, count, copiedFiles, notKept, context = QPointer<QObject>(context), hasContext = context != nullptr,
         done](bool written) {
            if (!written) {
                for (const QString& path : copiedFiles) {
                    QFile::remove(path);
                }
            }
            if (hasContext && !context) {
                return;
            }
            if (written) {
                done(restoredStatus(count));
            } else if (!notKept->isEmpty()) {
                done(failure(restoreFailedStatus(QStringLiteral("Tavo could not keep a copy of %1.").arg(*notKept))));
            } else {
                done(failure(
                    restoreFailedStatus(QStringLiteral("The shortcuts could not be written in %1.").arg(folder))));
            }
        });
}

Result<QString> commitRestore(DB& db, PreparedRestore prepared)
{
    std::optional<Result<QString>> outcome;
    commitRestore(db, std::move(prepared), nullptr, [&outcome](const Result<QString>& status) { outcome = status; });
    db.waitForSaves();
    return outcome.value_or(Result<QString>(failure(restoreFailedStatus(QStringLiteral("Tavo was closing.")))));
}

void makeProfileBackupInBackground(DB& db, const QString& target,
                                   const std::function<void(const Result<QString>&)>& done)
{
    QPointer<DB> store(&db);
    db.waitForSaves(); // the archive is made from the files, which then hold every change
    const BackupRequest request{db.dir(), db.hiddenCollections(), target};
    QThreadPool::globalInstance()->start([store, request, done] {
        const Result<QString> saved = makeProfileBackup(request);
        if (QObject* context = store.data()) {
            QMetaObject::invokeMethod(
                context,
                [saved, done] {
                    done(saved.ok() ? Result<QString>(backupSavedStatus(QFileInfo(*saved).fileName())) : saved);
                },
                Qt::QueuedConnection);
        }
    });
}

void restoreProfileBackupInBackground(DB& db, const QString& archive,
                                      const std::function<void(const Result<QString>&)>& done)
{
    QPointer<DB> store(&db);
    const QString attachmentsDir = db.attachmentsDir();
    QThreadPool::globalInstance()->start([store, archive, attachmentsDir, done] {
        Result<PreparedRestore> prepared = prepareRestore(archive, attachmentsDir);
        QObject* context = store.data();
        if (!context) {
            if (prepared.ok()) {
                discardRestore(*prepared);
            }
            return;
        }
        QMetaObject::invokeMethod(
            context,
            [store, prepared = std::move(prepared), done]() mutable {
                if (!prepared.ok()) {
                    done(Result<QString>(prepared.error()));
                    return;
                }
                if (!store) {
                    discardRestore(*prepared);
                    return;
                }
                commitRestore(*store, std::move(prepared).value(), store, done);
            },
            Qt::QueuedConnection);
    });
}

} // namespace tavo
