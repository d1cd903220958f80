#include "store/profile_store.h"

#include "language/triggers.h"
#include "store/collection_rules.h"
#include "store/defaults.h"
#include "store/list_merge.h"
#include "store/restore_journal.h"
#include "store/store_files.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QJsonArray>
#include <QJsonValue>
#include <QLockFile>
#include <QLoggingCategory>
#include <QPointer>
#include <QStandardPaths>
#include <QTimer>

#include <utility>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcStore, "tavo.store", QtWarningMsg)

const QString& clipsFile = ProfileFiles::clips;
const QString& collectionsFile = ProfileFiles::collections;
const QString& definitionsFile = ProfileFiles::definitions;
const QString& recordsFile = ProfileFiles::records;
const QString profilesFolder = QStringLiteral("Profiles");
const QString& attachmentsFolder = ProfileFiles::attachments;

const QString rootCollectionsKey = QStringLiteral("tavoShortcutCollections");
const QString rootHiddenKey = QStringLiteral("tavoHiddenCollections");
const QString legacyClaimedKey = QStringLiteral("tavoLegacyDataClaimed");
const QString legacyProfileMovedKey = QStringLiteral("tavoLocalLegacyProfileMoved");

constexpr int lockTimeoutMs = 5000;

QList<Clip> startShortcuts()
{
    auto make = [](const char* key, const char* name, const QString& text, const char* group) {
        Clip clip;
        clip.key = QString::fromUtf8(key);
        clip.name = QString::fromUtf8(name);
        clip.text = text;
        clip.group = QString::fromUtf8(group);
        return clip;
    };
    return {
        make("/ty", "Warm thank you",
             QStringLiteral("Thanks so much for taking the time to help. I really appreciate it!"), "Personal"),
        make("/date", "Today's date", QStringLiteral("{{date}}"), "Live & dynamic"),
        make("/time", "Current time", QStringLiteral("{{time}}"), "Live & dynamic"),
        make("/intro", "Quick introduction", QStringLiteral("Hi, I’m Sam. Great to connect!"), "Work"),
    };
}

// Copies a file or a folder with its contents; an existing target is left alone.
void copyItem(const QString& source, const QString& target)
{
    const QFileInfo info(source);
    if (info.isSymLink()) {
        return; // a link into elsewhere is not the user's attachment
    }
    if (info.isDir()) {
        QDir().mkpath(target);
        const QFileInfoList entries =
            QDir(source).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
        for (const QFileInfo& entry : entries) {
            const QString to = target + u'/' + entry.fileName();
            if (!QFileInfo::exists(to)) {
                copyItem(entry.absoluteFilePath(), to);
            }
        }
        return;
    }
    QFile::copy(source, target);
}

// Copies every entry of `sourceAttachments` into `targetAttachments` under its own name, skipping
// names already there, and points the clips' files at the copies. Sources stay where they are.
void moveAttachments(QList<Clip>& clips, const QString& sourceAttachments, const QString& targetAttachments)
{
    QDir().mkpath(targetAttachments);
    const QDir source(sourceAttachments);
    if (source.exists()) {
        const QFileInfoList entries =
            source.entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
        for (const QFileInfo& entry : entries) {
            const QString target = targetAttachments + u'/' + entry.fileName();
            if (!QFileInfo::exists(target)) {
                copyItem(entry.absoluteFilePath(), target);
            }
        }
    }
    const QString sourceClean = QDir::cleanPath(sourceAttachments);
    for (Clip& clip : clips) {
        for (QString& path : clip.files) {
            const QFileInfo file(path);
            if (QDir::cleanPath(file.absolutePath()) == sourceClean) {
                path = targetAttachments + u'/' + file.fileName();
            }
        }
    }
}

QByteArray encodeList(const QList<Clip>& items)
{
    return clipsToJsonBytes(items);
}

QByteArray encodeList(const QList<CollectionDefinition>& items)
{
    return definitionsToJsonBytes(items);
}

QByteArray encodeList(const QList<CollectionRecord>& items)
{
    return recordsToJsonBytes(items);
}

template<typename T>
std::optional<QList<T>> decodeList(QByteArrayView json);
template<>
std::optional<QList<Clip>> decodeList(QByteArrayView json)
{
    return clipsFromJsonBytes(json);
}
template<>
std::optional<QList<CollectionDefinition>> decodeList(QByteArrayView json)
{
    return definitionsFromJsonBytes(json);
}
template<>
std::optional<QList<CollectionRecord>> decodeList(QByteArrayView json)
{
    return recordsFromJsonBytes(json);
}

// A missing, unreadable or undecodable file all read as nothing.
template<typename T>
std::optional<QList<T>> readList(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    // Mapped rather than read: a large library is decoded straight from the page cache, without
    // a second copy of the file in memory.
    if (file.size() > 0) {
        if (const uchar* mapped = file.map(0, file.size())) {
            std::optional<QList<T>> items =
                decodeList<T>(QByteArrayView(reinterpret_cast<const char*>(mapped), file.size()));
            file.unmap(const_cast<uchar*>(mapped));
            return items;
        }
    }
    return decodeList<T>(file.readAll());
}

// One save of one list: the list to write, and what this process last read or wrote of the file,
// to take in what another process wrote since.
template<typename T>
struct ListSave
{
    QString path;
    QList<T> ours;
    QList<T> base;
    std::optional<FileStamp> known; // none: never read or written by us
};

template<typename T>
struct ListSaved
{
    bool written = false;
    bool merged = false; // another process had written the file; `list` holds both sides
    QList<T> list;       // what the file holds now, when written
    FileStamp stamp;
};

// Under the file's lock: merges in another writer's changes, then replaces the file atomically.
// Touches nothing but the file, so it runs on any thread.
template<typename T>
ListSaved<T> writeList(const ListSave<T>& save)
{
    ListSaved<T> saved;
    saved.list = save.ours;
    QDir().mkpath(QFileInfo(save.path).absolutePath());
    QLockFile lock(save.path + QStringLiteral(".lock"));
    const bool locked = lock.tryLock(lockTimeoutMs);

    const FileStamp onDisk = stampOf(save.path);
    if (onDisk.exists() && save.known != onDisk) {
        // Someone else wrote the file since we last saw it: keep their changes. A file we could
        // never read is kept aside before it is replaced.
        if (std::optional<QList<T>> theirs = readList<T>(save.path)) {
            saved.list = mergeById(save.base, save.ours, *theirs);
            saved.merged = true;
        } else if (!keepAside(save.path)) {
            // Neither readable nor copyable (another owner, no permission): replacing it could
            // lose what it holds.
            return saved;
        }
    }
    saved.written = writeFileAtomically(save.path, encodeList(saved.list));
    if (saved.written) {
        saved.stamp = stampOf(save.path);
    }
    if (locked) {
        lock.unlock();
    }
    return saved;
}

// A list as read from its file, with the file's stamp taken before the read: a change made while
// reading shows as a change on the next look.
template<typename T>
struct StampedList
{
    std::optional<QList<T>> list;
    FileStamp stamp;
};

template<typename T>
StampedList<T> readStamped(const QString& path)
{
    StampedList<T> read;
    read.stamp = stampOf(path);
    read.list = readList<T>(path);
    return read;
}

// What one change of the shortcuts under their lock wrote.
struct ClipsUpdated
{
    bool written = false;
    bool sameAsOurs = false; // the list written is the list this process began from
    QList<Clip> list;
    FileStamp stamp;
};

// Reads clips.json under its lock, merges in `ours` (this process's unsaved changes since `base`),
// applies `change` and writes the result when it differs. Touches nothing but the file, so it
// runs on any thread.
ClipsUpdated updateClipsFile(const QString& path, const QList<Clip>& base, const QList<Clip>& ours,
                             const std::function<void(QList<Clip>&)>& change)
{
    ClipsUpdated updated;
    QDir().mkpath(QFileInfo(path).absolutePath());
    QLockFile lock(path + QStringLiteral(".lock"));
    // Unlike a save, no write without the lock: the change is decided on what is read under it.
    if (!lock.tryLock(lockTimeoutMs)) {
        qCWarning(lcStore) << "could not lock" << path << "to change the shortcuts";
        return updated;
    }
    QList<Clip> read;
    bool readable = false;
    if (std::optional<QList<Clip>> onDisk = readList<Clip>(path)) {
        read = std::move(*onDisk);
        readable = true;
    } else if (QFileInfo::exists(path)) {
        if (!keepAside(path)) {
            return updated; // replacing a file that can be neither read nor copied could lose it
        }
        read = ours;
    } else {
        read = ours; // nothing written yet: the list in memory is all there is
    }
    // The file's order stands (an import puts shortcuts at its start); only unsaved changes of
    // ours need merging, which would move their additions to the end.
    updated.list = readable && ours != base ? mergeById(base, ours, read) : read;
    change(updated.list);
    if (!readable || updated.list != read) {
        if (!writeFileAtomically(path, encodeList(updated.list))) {
            return updated;
        }
    }
    updated.written = true;
    updated.stamp = stampOf(path);
    updated.sameAsOurs = updated.list == ours;
    return updated;
}

// What a profile replacement wrote: `committed` once the journal is down, from when on the
// replacement stands; `replacedAll` when every file was replaced too.
struct ProfileReplaced
{
    bool committed = false;
    bool replacedAll = false;
    QHash<QString, FileStamp> stamps;
};

ProfileReplaced replaceProfileFiles(const QString& folder, const DB::Replacement& replacement, RestoreJournal& journal)
{
    ProfileReplaced replaced;
    QDir().mkpath(folder);
    QLockFile lock(folder + u'/' + clipsFile + QStringLiteral(".lock"));
    if (!lock.tryLock(lockTimeoutMs)) {
        qCWarning(lcStore) << "could not lock" << folder << "to replace the profile";
        return replaced;
    }
    if (replacement.keepCurrent && !replacement.keepCurrent()) {
        return replaced;
    }
    QList<QPair<QString, QByteArray>> files{{clipsFile, encodeList(replacement.clips)}};
    if (replacement.collections) {
        files.append(
            {collectionsFile,
             QJsonDocument(QJsonArray::fromStringList(*replacement.collections)).toJson(QJsonDocument::Compact)});
    }
    if (replacement.definitions) {
        files.append({definitionsFile, encodeList(*replacement.definitions)});
    }
    if (replacement.records) {
        files.append({recordsFile, encodeList(*replacement.records)});
    }
    for (const auto& [name, bytes] : files) {
        journal.files.append(name);
        if (!stageRestoreFile(folder, name, bytes)) {
            endRestoreJournal(folder, journal);
            return replaced;
        }
    }
    if (!writeRestoreJournal(folder, journal)) {
        endRestoreJournal(folder, journal);
        return replaced;
    }
    replaced.committed = true;
    replaced.replacedAll = std::all_of(journal.files.cbegin(), journal.files.cend(),
                                       [&](const QString& name) { return replaceWithStaged(folder, name); });
    for (const QString& name : std::as_const(journal.files)) {
        replaced.stamps.insert(folder + u'/' + name, stampOf(folder + u'/' + name));
    }
    return replaced;
}

} // namespace

// What an activation reads of a profile folder; the heavy part of a sign-in.
struct DB::ProfileRead
{
    StampedList<Clip> clips;
    StampedList<CollectionDefinition> definitions;
    StampedList<CollectionRecord> records;
};

QString tavoProfileSlug(const QString& identity)
{
    QByteArray encoded = identity.trimmed().toLower().toUtf8().toBase64();
    encoded.replace('/', '_').replace('+', '-');
    encoded.replace("=", "");
    return QString::fromLatin1(encoded);
}

QString metricStorageKey(const QString& identity, const QString& metric)
{
    return QStringLiteral("tavo.stats.%1.%2").arg(tavoProfileSlug(identity), metric);
}

DB::DB(Defaults& defaults, const QString& rootFolder, Access access, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_rootFolder(rootFolder.isEmpty() ? defaultRootFolder() : rootFolder)
    , m_collectionDefaultsKey(rootCollectionsKey)
    , m_hiddenDefaultsKey(rootHiddenKey)
{
    m_readOnly = access == Access::ReadOnly;
    m_hiddenCollections = m_defaults.stringList(rootHiddenKey).value_or(QStringList());
    m_dir = m_rootFolder;

    QStringList names = m_defaults.stringList(rootCollectionsKey).value_or(builtInCollections());
    for (const QString& builtIn : builtInCollections()) {
        if (!names.contains(builtIn)) {
            names.append(builtIn);
        }
    }
    setCollections(names);

    if (!m_readOnly) {
        QDir().mkpath(m_dir);
        finishInterruptedRestore(m_dir, m_defaults);
    }
    bool readable = false;
    QList<Clip> clips = readClips(filePath(clipsFile), &readable);
    if (readable) {
        remember(filePath(clipsFile));
    }
    m_clips = clips;
    m_clipsBase = clips;
    if (m_clips.isEmpty()) {
        m_clips = startShortcuts();
        save();
    }
    loadCollectionLibrary();
}

DB::~DB()
{
    waitForSaves();
}

void DB::writeInBackground()
{
    if (m_readOnly || m_writer) {
        return;
    }
    m_writer = std::make_unique<BackgroundWriter>();
    // The application may end without destroying the store: the last write still lands.
    if (QCoreApplication* app = QCoreApplication::instance()) {
        connect(app, &QCoreApplication::aboutToQuit, this, &DB::waitForSaves);
    }
}

bool DB::savesPending() const
{
    // A save asked for during a write is only ever pending beside one in flight.
    return m_clipsSave.inFlight || m_definitionsSave.inFlight || m_recordsSave.inFlight || m_clipsUpdates > 0;
}

void DB::waitForSaves()
{
    if (!m_writer) {
        return;
    }
    while (savesPending()) {
        m_writer->waitUntilIdle();
        takeFinishedSaves();
    }
}

void DB::takeFinishedSaves()
{
    QList<std::function<void()>> finished;
    {
        std::lock_guard lock(m_finishedMutex);
        finished.swap(m_finished);
    }
    for (const std::function<void()>& takeIn : finished) {
        takeIn();
    }
}

template<typename T>
void DB::dropInBackground(QList<T>&& list)
{
    // Freeing a hundred thousand shortcuts takes milliseconds; the writer has the time.
    if (m_writer && !list.isEmpty()) {
        m_writer->post([gone = std::move(list)] {});
    }
    list = QList<T>();
}

template<typename T>
void DB::saveInBackground(const QString& name, QList<T> DB::*current, QList<T> DB::*base, void (DB::*changed)(),
                          SaveSlot DB::*slot)
{
    if ((this->*slot).inFlight) {
        (this->*slot).pending = true;
        return;
    }
    (this->*slot).inFlight = true;
    const QString path = filePath(name);
    // Copies of implicitly shared lists: the writer reads them while we go on changing ours.
    ListSave<T> save{path, this->*current, this->*base, std::nullopt};
    if (m_stamps.contains(path)) {
        save.known = m_stamps.value(path);
    }
    m_writer->post([this, name, save = std::move(save), current, base, changed, slot] {
        ListSaved<T> saved = writeList(save);
        auto takeIn = [this, name, path = save.path, sent = save.ours, saved = std::move(saved), current, base, changed,
                       slot] {
            (this->*slot).inFlight = false;
            if (path == filePath(name)) {
                QList<T>& now = this->*current;
                if (saved.merged) {
                    // Edits made while the write was on its way stay over what it took in.
                    QList<T> merged = now == sent ? saved.list : mergeById(sent, now, saved.list);
                    if (merged != now) {
                        dropInBackground(std::exchange(now, std::move(merged)));
                        (this->*changed)();
                    }
                }
                if (saved.written) {
                    dropInBackground(std::exchange(this->*base, saved.list));
                    m_stamps.insert(path, saved.stamp);
                }
                if (m_settle && stampOf(path) != m_stamps.value(path)) {
                    m_settle->start(); // another process wrote it after us: reload skipped it meanwhile
                }
            }
            if ((this->*slot).pending) {
                (this->*slot).pending = false;
                saveInBackground(name, current, base, changed, slot);
            }
            emit saveFinished(name, saved.written);
        };
        {
            std::lock_guard lock(m_finishedMutex);
            m_finished.append(std::move(takeIn));
        }
        QMetaObject::invokeMethod(this, &DB::takeFinishedSaves, Qt::QueuedConnection);
    });
}

QString DB::defaultRootFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Quill");
}

QString DB::attachmentsDir() const
{
    return m_dir + u'/' + attachmentsFolder;
}

QString DB::filePath(const QString& name) const
{
    return m_dir + u'/' + name;
}

QString DB::profileFolder(const QString& slug) const
{
    return m_rootFolder + u'/' + profilesFolder + u'/' + slug;
}

void DB::remember(const QString& path)
{
    m_stamps.insert(path, stampOf(path));
}

QList<Clip> DB::readClips(const QString& path, bool* readable) const
{
    std::optional<QList<Clip>> clips = readList<Clip>(path);
    if (readable) {
        *readable = clips.has_value();
    }
    return clips.value_or(QList<Clip>());
}

void DB::setClips(QList<Clip> clips)
{
    m_clips = std::move(clips);
    emit clipsChanged();
}

void DB::setCollections(QStringList collections)
{
    m_collections = std::move(collections);
    writeCollectionList();
    emit collectionsChanged();
}

void DB::writeCollectionList()
{
    if (m_readOnly) {
        return;
    }
    m_defaults.setStringList(m_collectionDefaultsKey, m_collections);
    const QString path = filePath(collectionsFile);
    if (QFileInfo::exists(path) && !readJsonFile(path).document.isArray() && !keepAside(path)) {
        return; // a file that can be neither read nor copied aside is not replaced
    }
    writeJsonAtomically(path, QJsonDocument(QJsonArray::fromStringList(m_collections)));
}

void DB::setSearch(const QString& search)
{
    if (m_search == search) {
        return;
    }
    m_search = search;
    emit searchChanged();
}

void DB::setCollectionDefinitions(QList<CollectionDefinition> definitions)
{
    m_collectionDefinitions = std::move(definitions);
    emit collectionDefinitionsChanged();
}

void DB::setCollectionRecords(QList<CollectionRecord> records)
{
    m_collectionRecords = std::move(records);
    emit collectionRecordsChanged();
}

void DB::setHiddenCollections(QStringList hidden)
{
    m_hiddenCollections = std::move(hidden);
    if (!m_readOnly) {
        m_defaults.setStringList(m_hiddenDefaultsKey, m_hiddenCollections);
    }
    emit hiddenCollectionsChanged();
}

bool DB::isCollectionHidden(const QString& name) const
{
    return m_hiddenCollections.contains(name, Qt::CaseInsensitive);
}

QStringList DB::visibleCollections() const
{
    QStringList visible;
    for (const QString& name : m_collections) {
        if (!isCollectionHidden(name)) {
            visible.append(name);
        }
    }
    return visible;
}

QList<Clip> DB::availableClips() const
{
    if (m_hiddenCollections.isEmpty()) {
        return m_clips;
    }
    return filterShortcutClips(m_clips, m_hiddenCollections, QString(), allCollectionsName, allCollectionsName, false);
}

QList<Clip> DB::found() const
{
    if (m_search.isEmpty()) {
        return {}; // an empty text matches nothing
    }
    return filterShortcutClips(m_clips, m_hiddenCollections, m_search, allCollectionsName, allCollectionsName, false);
}

template<typename T>
bool DB::saveList(const QString& name, QList<T>& current, QList<T>& base, bool* merged)
{
    if (m_readOnly) {
        return false;
    }
    const QString path = filePath(name);
    ListSave<T> save{path, current, base, std::nullopt};
    if (m_stamps.contains(path)) {
        save.known = m_stamps.value(path);
    }
    ListSaved<T> saved = writeList(save);
    if (saved.merged) {
        current = saved.list;
        if (merged) {
            *merged = true;
        }
    }
    if (saved.written) {
        base = current;
        m_stamps.insert(path, saved.stamp);
    }
    return saved.written;
}

bool DB::save()
{
    if (m_readOnly) {
        return false;
    }
    if (m_writer) {
        saveInBackground(clipsFile, &DB::m_clips, &DB::m_clipsBase, &DB::clipsChanged, &DB::m_clipsSave);
        return true;
    }
    // Changes of another process merged in show at once: the list, the picker, the tap.
    bool merged = false;
    const bool written = saveList(clipsFile, m_clips, m_clipsBase, &merged);
    if (merged) {
        emit clipsChanged();
    }
    return written;
}

void DB::runStoreJob(std::function<std::function<void()>()> job)
{
    if (!m_writer) {
        job()();
        return;
    }
    m_writer->post([this, job = std::move(job)] {
        std::function<void()> takeIn = job();
        {
            std::lock_guard lock(m_finishedMutex);
            m_finished.append(std::move(takeIn));
        }
        QMetaObject::invokeMethod(this, &DB::takeFinishedSaves, Qt::QueuedConnection);
    });
}

namespace {

// `done` unless its context went away meanwhile.
DB::Finished guarded(QObject* context, DB::Finished done)
{
    return [context = QPointer<QObject>(context), hasContext = context != nullptr, done = std::move(done)](bool ok) {
        if (done && (!hasContext || context)) {
            done(ok);
        }
    };
}

} // namespace

bool DB::takeInClips(const QList<Clip>& sent, const QList<Clip>& written, bool sameAsSent, const FileStamp& stamp)
{
    const QString path = filePath(clipsFile);
    dropInBackground(std::exchange(m_clipsBase, written));
    m_stamps.insert(path, stamp);
    if (m_settle && stampOf(path) != stamp) {
        m_settle->start(); // another process wrote it after us: reload skipped it meanwhile
    }
    // The lists are shared while nothing changed meanwhile, which makes the comparison free.
    if (m_clips == sent) {
        if (sameAsSent) {
            return false;
        }
        dropInBackground(std::exchange(m_clips, written));
        return true;
    }
    // Edits made while the file was being changed come in over the file's order, so an import
    // stays at the start of the list.
    QList<Clip> merged = mergeById(sent, written, m_clips);
    if (merged == m_clips) {
        return false;
    }
    dropInBackground(std::exchange(m_clips, std::move(merged)));
    return true;
}

void DB::updateClips(ClipsChange change, QObject* context, Finished done)
{
    const Finished finish = guarded(context, std::move(done));
    if (m_readOnly) {
        finish(false);
        return;
    }
    ++m_clipsUpdates;
    const QString path = filePath(clipsFile);
    runStoreJob([this, path, base = m_clipsBase, ours = m_clips, change = std::move(change), finish] {
        ClipsUpdated updated = updateClipsFile(path, base, ours, change);
        return [this, path, ours, updated = std::move(updated), finish] {
            --m_clipsUpdates;
            if (updated.written && path == filePath(clipsFile) &&
                takeInClips(ours, updated.list, updated.sameAsOurs, updated.stamp)) {
                emit clipsChanged();
            }
            finish(updated.written);
        };
    });
}

bool DB::updateClips(const ClipsChange& change)
{
    std::optional<bool> outcome;
    updateClips(change, nullptr, [&outcome](bool written) { outcome = written; });
    while (!outcome && m_writer) {
        m_writer->waitUntilIdle();
        takeFinishedSaves();
    }
    return outcome.value_or(false);
}

void DB::replaceProfile(Replacement replacement, QObject* context, Finished done)
{
    const Finished finish = guarded(context, std::move(done));
    if (m_readOnly) {
        finish(false);
        return;
    }
    RestoreJournal journal;
    if (replacement.collections) {
        journal.settings.append({m_collectionDefaultsKey, QJsonArray::fromStringList(*replacement.collections)});
    }
    if (replacement.hiddenCollections) {
        journal.settings.append({m_hiddenDefaultsKey, QJsonArray::fromStringList(*replacement.hiddenCollections)});
    }
    ++m_clipsUpdates;
    auto shared = std::make_shared<Replacement>(std::move(replacement));
    runStoreJob([this, folder = m_dir, ours = m_clips, shared, journal, finish]() mutable {
        const ProfileReplaced replaced = replaceProfileFiles(folder, *shared, journal);
        shared->keepCurrent = nullptr;
        return [this, folder, ours, shared, journal, replaced, finish] {
            --m_clipsUpdates;
            if (!replaced.committed || folder != m_dir) {
                // Another profile's journal is finished when that profile is opened again.
                finish(replaced.committed);
                return;
            }
            for (auto it = replaced.stamps.cbegin(); it != replaced.stamps.cend(); ++it) {
                m_stamps.insert(it.key(), it.value());
            }
            // Everything in memory changes first and is announced after, so whatever rebuilds on
            // one signal (the tap's snapshot) never sees half of the old profile with the new.
            const Replacement& with = *shared;
            const bool newCollections = with.collections && *with.collections != m_collections;
            if (newCollections) {
                m_collections = *with.collections;
            }
            const bool newHidden = with.hiddenCollections && *with.hiddenCollections != m_hiddenCollections;
            if (newHidden) {
                m_hiddenCollections = *with.hiddenCollections;
            }
            const bool newClips = takeInClips(ours, with.clips, false, replaced.stamps.value(filePath(clipsFile)));
            if (with.definitions) {
                m_definitionsBase = *with.definitions;
                dropInBackground(std::exchange(m_collectionDefinitions, *with.definitions));
            }
            if (with.records) {
                m_recordsBase = *with.records;
                dropInBackground(std::exchange(m_collectionRecords, *with.records));
            }
            if (!journal.settings.isEmpty()) {
                m_defaults.setValues(journal.settings);
            }
            if (replaced.replacedAll) {
                endRestoreJournal(folder, journal);
            } // else the journal stays and the next open replaces what is left
            if (newCollections) {
                emit collectionsChanged();
            }
            if (newHidden) {
                emit hiddenCollectionsChanged();
            }
            if (newClips) {
                emit clipsChanged();
            }
            if (with.definitions) {
                emit collectionDefinitionsChanged();
            }
            if (with.records) {
                emit collectionRecordsChanged();
            }
            finish(true);
        };
    });
}

bool DB::saveCollectionLibrary()
{
    if (m_readOnly) {
        return false;
    }
    QDir().mkpath(m_dir);
    if (m_writer) {
        saveInBackground(definitionsFile, &DB::m_collectionDefinitions, &DB::m_definitionsBase,
                         &DB::collectionDefinitionsChanged, &DB::m_definitionsSave);
        saveInBackground(recordsFile, &DB::m_collectionRecords, &DB::m_recordsBase, &DB::collectionRecordsChanged,
                         &DB::m_recordsSave);
        return true;
    }
    bool definitionsMerged = false;
    bool recordsMerged = false;
    const bool definitions = saveList(definitionsFile, m_collectionDefinitions, m_definitionsBase, &definitionsMerged);
    const bool records = saveList(recordsFile, m_collectionRecords, m_recordsBase, &recordsMerged);
    if (definitionsMerged) {
        emit collectionDefinitionsChanged();
    }
    if (recordsMerged) {
        emit collectionRecordsChanged();
    }
    return definitions && records;
}

void DB::loadCollectionLibrary()
{
    ProfileRead read;
    read.definitions = readStamped<CollectionDefinition>(filePath(definitionsFile));
    read.records = readStamped<CollectionRecord>(filePath(recordsFile));
    takeCollectionLibrary(read);
}

void DB::takeCollectionLibrary(ProfileRead& read)
{
    bool rebuilt = false;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    dropInBackground(std::move(m_definitionsBase));
    dropInBackground(std::move(m_recordsBase));

    if (read.definitions.list) {
        dropInBackground(std::exchange(m_collectionDefinitions, std::move(*read.definitions.list)));
        m_stamps.insert(filePath(definitionsFile), read.definitions.stamp);
    } else {
        m_collectionDefinitions.clear();
        for (const QString& name : m_collections) {
            m_collectionDefinitions.append(CollectionDefinition::emptyFor(name, now));
        }
        rebuilt = true;
    }
    m_definitionsBase = m_collectionDefinitions;

    if (read.records.list) {
        dropInBackground(std::exchange(m_collectionRecords, std::move(*read.records.list)));
        m_stamps.insert(filePath(recordsFile), read.records.stamp);
    } else {
        m_collectionRecords.clear();
        for (const Clip& clip : m_clips) {
            for (const QString& group : clip.allGroups()) {
                if (isRecordLikeCollection(group)) {
                    m_collectionRecords.append(recordFromClip(clip, group, now));
                }
            }
        }
        rebuilt = true;
    }
    m_recordsBase = m_collectionRecords;

    for (const QString& name : m_collections) {
        const bool defined =
            std::any_of(m_collectionDefinitions.cbegin(), m_collectionDefinitions.cend(),
                        [&](const CollectionDefinition& d) { return d.name.compare(name, Qt::CaseInsensitive) == 0; });
        if (!defined) {
            m_collectionDefinitions.append(CollectionDefinition::emptyFor(name, now));
            rebuilt = true;
        }
    }

    // A clean read is already what the files say; only what was rebuilt needs writing.
    if (rebuilt) {
        saveCollectionLibrary();
    }
    emit collectionDefinitionsChanged();
    emit collectionRecordsChanged();
}

bool DB::profileExists(const QString& identity) const
{
    return readList<Clip>(profileFolder(tavoProfileSlug(identity)) + u'/' + clipsFile).has_value();
}

bool DB::rootClaimedAlready(const QString& ownSlug) const
{
    if (m_defaults.flag(legacyClaimedKey)) {
        return true;
    }
    if (!m_defaults.lostUnreadableFile()) {
        return false;
    }
    // The settings were unreadable and set aside, so the flag may be lost with them: a profile
    // that already holds shortcuts means an account claimed the root store before.
    const QFileInfoList profiles =
        QDir(m_rootFolder + u'/' + profilesFolder).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot);
    return std::any_of(profiles.cbegin(), profiles.cend(), [&](const QFileInfo& folder) {
        return folder.fileName() != ownSlug && QFileInfo::exists(folder.filePath() + u'/' + clipsFile);
    });
}

std::optional<QList<Clip>> DB::migrateEmailProfile(const QString& profileFolder, const QString& legacyEmail,
                                                   const QString& slug)
{
    const QString legacySlug = tavoProfileSlug(legacyEmail);
    const QString sourceFolder = this->profileFolder(legacySlug);
    std::optional<QList<Clip>> clips = readList<Clip>(sourceFolder + u'/' + clipsFile);
    if (!clips) {
        return std::nullopt;
    }
    moveAttachments(*clips, sourceFolder + u'/' + attachmentsFolder, profileFolder + u'/' + attachmentsFolder);
    const QString legacyKey = rootCollectionsKey + u'.' + legacySlug;
    if (const std::optional<QStringList> names = m_defaults.stringList(legacyKey)) {
        m_defaults.setStringList(rootCollectionsKey + u'.' + slug, *names);
    }
    m_defaults.setBoolean(legacyProfileMovedKey, true);
    return clips;
}

QList<Clip> DB::claimRootStore(const QString& profileFolder, const QString& slug)
{
    QList<Clip> clips = readClips(m_rootFolder + u'/' + clipsFile);
    moveAttachments(clips, m_rootFolder + u'/' + attachmentsFolder, profileFolder + u'/' + attachmentsFolder);
    m_defaults.setStringList(rootCollectionsKey + u'.' + slug,
                             m_defaults.stringList(rootCollectionsKey).value_or(builtInCollections()));
    m_defaults.setBoolean(legacyClaimedKey, true);
    return clips;
}

void DB::activateProfile(const QString& identity, const std::optional<QString>& legacyEmail)
{
    // What is still being written belongs to the folder being left.
    waitForSaves();
    const QString slug = tavoProfileSlug(identity);
    const QString folder = profileFolder(slug);
    if (!m_readOnly) {
        QDir().mkpath(folder);
        // A restore cut short is finished before anything reads the profile.
        finishInterruptedRestore(folder, m_defaults);
    }

    const QString profileClips = folder + u'/' + clipsFile;
    std::optional<ProfileRead> readNow = readProfile(folder);
    if (!readNow) {
        return; // a later sign-in took over while this one read, or the store went away
    }
    ProfileRead& read = *readNow;
    const bool fromOwnFile = read.clips.list.has_value();
    QList<Clip> result;
    if (fromOwnFile) {
        result = std::move(*read.clips.list);
    } else if (m_readOnly) {
        // Looking never migrates: an unclaimed profile simply has no shortcuts yet.
    } else if (legacyEmail && !m_defaults.flag(legacyProfileMovedKey)) {
        result = migrateEmailProfile(folder, *legacyEmail, slug).value_or(QList<Clip>());
    } else if (!rootClaimedAlready(slug)) {
        result = claimRootStore(folder, slug);
    }

    m_dir = folder;
    m_collectionDefaultsKey = rootCollectionsKey + u'.' + slug;
    m_hiddenDefaultsKey = rootHiddenKey + u'.' + slug;
    m_profileActive = true;
    m_stamps.clear();
    if (m_watcher) {
        const QStringList watched = m_watcher->directories();
        if (!watched.isEmpty()) {
            m_watcher->removePaths(watched);
        }
        m_watcher->addPath(m_dir);
    }

    m_hiddenCollections = m_defaults.stringList(m_hiddenDefaultsKey).value_or(QStringList());
    emit hiddenCollectionsChanged();
    setCollections(m_defaults.stringList(m_collectionDefaultsKey).value_or(builtInCollections()));

    dropInBackground(std::move(m_clipsBase));
    if (fromOwnFile) {
        m_clipsBase = result;
        m_stamps.insert(profileClips, read.clips.stamp);
        dropInBackground(std::exchange(m_clips, std::move(result)));
        emit clipsChanged();
    } else {
        m_clipsBase.clear();
        dropInBackground(std::exchange(m_clips, std::move(result)));
        save();
        emit clipsChanged();
    }
    takeCollectionLibrary(read);
}

std::optional<DB::ProfileRead> DB::readProfile(const QString& folder)
{
    auto readAll = [folder] {
        ProfileRead read;
        read.clips = readStamped<Clip>(folder + u'/' + clipsFile);
        read.definitions = readStamped<CollectionDefinition>(folder + u'/' + definitionsFile);
        read.records = readStamped<CollectionRecord>(folder + u'/' + recordsFile);
        return read;
    };
    if (!m_writer) {
        return readAll();
    }
    // Decoding a large library takes a while: the writer's thread reads, while this one goes on
    // serving timers and other processes (the clipboard, the tap). Input waits, so the user
    // cannot act on the profile being left meanwhile.
    auto read = std::make_shared<ProfileRead>();
    QEventLoop loop;
    m_writer->post([read, readAll, &loop] {
        *read = readAll();
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    const QPointer<DB> alive(this);
    const int activation = ++m_activation;
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    if (!alive || activation != m_activation) {
        return std::nullopt;
    }
    m_writer->waitUntilIdle(); // the application's exit ends every loop early
    waitForSaves();            // saves asked for meanwhile still belong to the folder being left
    return std::move(*read);
}

void DB::renameCollection(const QString& from, const QString& rawTo)
{
    const QString to = rawTo.trimmed();
    if (to.isEmpty()) {
        return;
    }
    QStringList names = m_collections;
    renameCollectionInNames(names, from, to);
    setCollections(names);

    if (renameCollectionInClips(m_clips, from, to)) {
        emit clipsChanged();
    }
    save();

    renameCollectionInLibrary(m_collectionDefinitions, m_collectionRecords, from, to);
    emit collectionDefinitionsChanged();
    emit collectionRecordsChanged();
    saveCollectionLibrary();

    QStringList hidden = m_hiddenCollections;
    if (renameCollectionInNames(hidden, from, to)) {
        setHiddenCollections(hidden);
    }

    if (!m_readOnly) {
        for (const QString& key : m_defaults.keys()) {
            if (!isBuilderCollectionsKey(key)) {
                continue;
            }
            if (const std::optional<QString> value = m_defaults.string(key)) {
                m_defaults.setString(key, renamedBuilderCollections(*value, from, to));
            }
        }
    }
}

template<typename T>
void DB::reloadInBackground(const QString& name, QList<T> DB::*current, QList<T> DB::*base, void (DB::*changed)(),
                            SaveSlot DB::*slot)
{
    const QString path = filePath(name);
    const bool updating = name == clipsFile && m_clipsUpdates > 0; // looked at again when taken in
    if ((this->*slot).inFlight || updating || m_stamps.value(path) == stampOf(path)) {
        return;
    }
    // Saves asked for meanwhile wait, so that they build on what the file holds now.
    (this->*slot).inFlight = true;
    if (name == clipsFile) {
        qCInfo(lcStore) << "the shortcuts changed on disk; reading them";
    }
    m_writer->post([this, name, path, baseThen = this->*base, oursThen = this->*current, current, base, changed, slot] {
        QElapsedTimer timer;
        timer.start();
        StampedList<T> theirs = readStamped<T>(path);
        QList<T> merged;
        if (theirs.list) {
            // Unsaved changes of ours stay; theirs come in.
            merged = mergeById(baseThen, oursThen, *theirs.list);
        }
        auto takeIn = [this, name, path, oursThen, theirs = std::move(theirs), merged = std::move(merged), current,
                       base, changed, slot, readMs = timer.elapsed()] {
            (this->*slot).inFlight = false;
            if (name == clipsFile && theirs.list) {
                qCInfo(lcStore) << "shortcuts read:" << theirs.list->size() << "in" << readMs
                                << "ms, off the main thread";
            }
            if (path == filePath(name) && theirs.list) {
                QList<T>& now = this->*current;
                QList<T> next = now == oursThen ? merged : mergeById(oursThen, now, merged);
                dropInBackground(std::exchange(this->*base, *theirs.list));
                m_stamps.insert(path, theirs.stamp);
                if (next != now) {
                    dropInBackground(std::exchange(now, std::move(next)));
                    (this->*changed)();
                }
                if (m_settle && stampOf(path) != m_stamps.value(path)) {
                    m_settle->start(); // written again while we read
                }
            }
            if ((this->*slot).pending) {
                (this->*slot).pending = false;
                saveInBackground(name, current, base, changed, slot);
            }
        };
        {
            std::lock_guard lock(m_finishedMutex);
            m_finished.append(std::move(takeIn));
        }
        QMetaObject::invokeMethod(this, &DB::takeFinishedSaves, Qt::QueuedConnection);
    });
}

void DB::reloadFromDisk()
{
    if (m_writer) {
        // Reading and merging a large file is the writer's work too.
        reloadInBackground(clipsFile, &DB::m_clips, &DB::m_clipsBase, &DB::clipsChanged, &DB::m_clipsSave);
        reloadInBackground(definitionsFile, &DB::m_collectionDefinitions, &DB::m_definitionsBase,
                           &DB::collectionDefinitionsChanged, &DB::m_definitionsSave);
        reloadInBackground(recordsFile, &DB::m_collectionRecords, &DB::m_recordsBase, &DB::collectionRecordsChanged,
                           &DB::m_recordsSave);
        m_defaults.reload();
        takeCollectionSettings();
        return;
    }
    // A file with a write of ours on its way is looked at again when that write is taken in.
    const QString clipsPath = filePath(clipsFile);
    if (!m_clipsSave.inFlight && m_stamps.value(clipsPath) != stampOf(clipsPath)) {
        qCInfo(lcStore) << "the shortcuts changed on disk; reading them";
        QElapsedTimer timer;
        timer.start();
        if (std::optional<QList<Clip>> clips = readList<Clip>(clipsPath)) {
            // Unsaved changes of ours stay; theirs come in.
            QList<Clip> merged = mergeById(m_clipsBase, m_clips, *clips);
            m_clipsBase = *clips;
            remember(clipsPath);
            if (merged != m_clips) {
                setClips(std::move(merged));
            }
            qCInfo(lcStore) << "shortcuts read:" << m_clips.size() << "in" << timer.elapsed() << "ms";
        }
    }
    const QString definitionsPath = filePath(definitionsFile);
    if (!m_definitionsSave.inFlight && m_stamps.value(definitionsPath) != stampOf(definitionsPath)) {
        if (auto definitions = readList<CollectionDefinition>(definitionsPath)) {
            QList<CollectionDefinition> merged = mergeById(m_definitionsBase, m_collectionDefinitions, *definitions);
            m_definitionsBase = *definitions;
            remember(definitionsPath);
            if (merged != m_collectionDefinitions) {
                setCollectionDefinitions(std::move(merged));
            }
        }
    }
    const QString recordsPath = filePath(recordsFile);
    if (!m_recordsSave.inFlight && m_stamps.value(recordsPath) != stampOf(recordsPath)) {
        if (auto records = readList<CollectionRecord>(recordsPath)) {
            QList<CollectionRecord> merged = mergeById(m_recordsBase, m_collectionRecords, *records);
            m_recordsBase = *records;
            remember(recordsPath);
            if (merged != m_collectionRecords) {
                setCollectionRecords(std::move(merged));
            }
        }
    }
    m_defaults.reload();
    takeCollectionSettings();
}

void DB::takeCollectionSettings()
{
    const QStringList names = m_defaults.stringList(m_collectionDefaultsKey).value_or(m_collections);
    if (names != m_collections) {
        m_collections = names;
        emit collectionsChanged();
    }
    const QStringList hidden = m_defaults.stringList(m_hiddenDefaultsKey).value_or(QStringList());
    if (hidden != m_hiddenCollections) {
        m_hiddenCollections = hidden;
        emit hiddenCollectionsChanged();
    }
}

void DB::watchForChanges()
{
    if (m_watcher) {
        return;
    }
    m_watcher = new QFileSystemWatcher(this);
    // The folder, not the files: an atomic write replaces a file by rename, which ends a file watch.
    m_watcher->addPath(m_dir);
    m_settle = new QTimer(this);
    m_settle->setSingleShot(true);
    m_settle->setInterval(150);
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, m_settle, qOverload<>(&QTimer::start));
    connect(m_settle, &QTimer::timeout, this, &DB::reloadFromDisk);
    // The collection names and the hidden set live in the settings: a change there alone (another
    // process hiding a collection) reaches the library too.
    connect(&m_defaults, &Defaults::valuesChanged, this, &DB::takeCollectionSettings);
}

} // namespace tavo
