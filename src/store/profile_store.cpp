#include "store/profile_store.h"

#include "language/triggers.h"
#include "store/collection_rules.h"
#include "store/defaults.h"
#include "store/list_merge.h"
#include "store/store_files.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QJsonArray>
#include <QLockFile>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QTimer>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcStore, "tavo.store", QtWarningMsg)

const QString clipsFile = QStringLiteral("clips.json");
const QString collectionsFile = QStringLiteral("collections.json");
const QString definitionsFile = QStringLiteral("collection-definitions.json");
const QString recordsFile = QStringLiteral("collection-records.json");
const QString profilesFolder = QStringLiteral("Profiles");
const QString attachmentsFolder = QStringLiteral("Attachments");

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

} // namespace

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

DB::FileStamp DB::stampOf(const QString& path) const
{
    const QFileInfo info(path);
    if (!info.exists()) {
        return {};
    }
    return {info.size(), info.lastModified().toMSecsSinceEpoch()};
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
    QDir().mkpath(m_dir);
    QLockFile lock(path + QStringLiteral(".lock"));
    const bool locked = lock.tryLock(lockTimeoutMs);

    const FileStamp onDisk = stampOf(path);
    if (onDisk != FileStamp() && (!m_stamps.contains(path) || m_stamps.value(path) != onDisk)) {
        // Someone else wrote the file since we last saw it: keep their changes. A file we could
        // never read is kept aside before it is replaced.
        if (std::optional<QList<T>> theirs = readList<T>(path)) {
            current = mergeById(base, current, *theirs);
            if (merged) {
                *merged = true;
            }
        } else if (!keepAside(path)) {
            // Neither readable nor copyable (another owner, no permission): replacing it could
            // lose what it holds.
            if (locked) {
                lock.unlock();
            }
            return false;
        }
    }
    const bool written = writeFileAtomically(path, encodeList(current));
    if (written) {
        base = current;
        remember(path);
    }
    if (locked) {
        lock.unlock();
    }
    return written;
}

bool DB::save()
{
    // Changes of another process merged in show at once: the list, the picker, the tap.
    bool merged = false;
    const bool written = saveList(clipsFile, m_clips, m_clipsBase, &merged);
    if (merged) {
        emit clipsChanged();
    }
    return written;
}

bool DB::updateClips(const std::function<void(QList<Clip>&)>& change)
{
    if (m_readOnly) {
        return false;
    }
    const QString path = filePath(clipsFile);
    QDir().mkpath(m_dir);
    QLockFile lock(path + QStringLiteral(".lock"));
    // Unlike save(), no write without the lock: the change is decided on what is read under it.
    if (!lock.tryLock(lockTimeoutMs)) {
        qCWarning(lcStore) << "could not lock" << path << "to change the shortcuts";
        return false;
    }

    QList<Clip> read;
    bool readable = false;
    if (std::optional<QList<Clip>> onDisk = readList<Clip>(path)) {
        read = std::move(*onDisk);
        readable = true;
    } else if (QFileInfo::exists(path)) {
        if (!keepAside(path)) {
            return false; // replacing a file that can be neither read nor copied could lose it
        }
        read = m_clips;
    } else {
        read = m_clips; // nothing written yet: the list in memory is all there is
    }
    // The file's order stands (an import puts shortcuts at its start); only unsaved changes of
    // ours need merging, which would move their additions to the end.
    QList<Clip> updated = readable && m_clips != m_clipsBase ? mergeById(m_clipsBase, m_clips, read) : read;
    change(updated);

    if (!readable || updated != read) {
        if (!writeFileAtomically(path, encodeList(updated))) {
            return false;
        }
    }
    remember(path);
    lock.unlock();

    m_clipsBase = updated;
    if (updated != m_clips) {
        m_clips = std::move(updated);
        emit clipsChanged();
    }
    return true;
}

bool DB::saveCollectionLibrary()
{
    if (m_readOnly) {
        return false;
    }
    QDir().mkpath(m_dir);
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
    bool rebuilt = false;
    const QDateTime now = QDateTime::currentDateTimeUtc();

    if (std::optional<QList<CollectionDefinition>> definitions =
            readList<CollectionDefinition>(filePath(definitionsFile))) {
        m_collectionDefinitions = std::move(*definitions);
        remember(filePath(definitionsFile));
    } else {
        m_collectionDefinitions.clear();
        for (const QString& name : m_collections) {
            m_collectionDefinitions.append(CollectionDefinition::emptyFor(name, now));
        }
        rebuilt = true;
    }
    m_definitionsBase = m_collectionDefinitions;

    if (std::optional<QList<CollectionRecord>> records = readList<CollectionRecord>(filePath(recordsFile))) {
        m_collectionRecords = std::move(*records);
        remember(filePath(recordsFile));
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
    const QString slug = tavoProfileSlug(identity);
    const QString folder = profileFolder(slug);
    if (!m_readOnly) {
        QDir().mkpath(folder);
    }

    const QString profileClips = folder + u'/' + clipsFile;
    std::optional<QList<Clip>> existing = readList<Clip>(profileClips);
    const bool fromOwnFile = existing.has_value();
    QList<Clip> result;
    if (existing) {
        result = std::move(*existing);
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

    if (fromOwnFile) {
        m_clipsBase = result;
        remember(profileClips);
        setClips(std::move(result));
    } else {
        m_clipsBase.clear();
        m_clips = std::move(result);
        save();
        emit clipsChanged();
    }
    loadCollectionLibrary();
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

void DB::reloadFromDisk()
{
    const QString clipsPath = filePath(clipsFile);
    if (m_stamps.value(clipsPath) != stampOf(clipsPath)) {
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
    if (m_stamps.value(definitionsPath) != stampOf(definitionsPath)) {
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
    if (m_stamps.value(recordsPath) != stampOf(recordsPath)) {
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
    auto* settle = new QTimer(this);
    settle->setSingleShot(true);
    settle->setInterval(150);
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, settle, qOverload<>(&QTimer::start));
    connect(settle, &QTimer::timeout, this, &DB::reloadFromDisk);
    // The collection names and the hidden set live in the settings: a change there alone (another
    // process hiding a collection) reaches the library too.
    connect(&m_defaults, &Defaults::valuesChanged, this, &DB::takeCollectionSettings);
}

} // namespace tavo
