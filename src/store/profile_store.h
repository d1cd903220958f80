#pragma once

#include "language/shortcut_record.h"
#include "store/collections.h"
#include "store/store_files.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class QFileSystemWatcher;
class QTimer;

namespace tavo {

class Defaults;

// The base64 name of a profile's folder: the trimmed, lower-cased identity, with "/" and "+"
// made safe for file names and "=" dropped.
QString tavoProfileSlug(const QString& identity);

// Where an account's usage counter is kept in the settings: "tavo.stats.<profile slug>.<metric>".
QString metricStorageKey(const QString& identity, const QString& metric);

// The store of one local profile: its shortcuts, collection names, record library and hidden
// collections. It starts on the root data folder and moves into a profile on activation.
//
// Callers change `clips`, definitions or records and then call save() or
// saveCollectionLibrary(); collection names and the hidden list persist as they are set.
class DB : public QObject
{
    Q_OBJECT

public:
    enum class Access
    {
        ReadWrite,
        // For commands that only look: loads without writing anything back, so a reader never
        // competes with the application over the files.
        ReadOnly,
    };

    // `rootFolder` empty means $XDG_DATA_HOME/Quill.
    explicit DB(Defaults& defaults, const QString& rootFolder = {}, Access access = Access::ReadWrite,
                QObject* parent = nullptr);
    ~DB() override; // waits for the saves still being written

    // From now on save() and saveCollectionLibrary() return at once and the lists are encoded and
    // written on a thread of the store's own, from the lists as they were at the call, so the main
    // thread never waits on a large library. Saves asked for while one is being written coalesce
    // into one write of the latest lists. Quitting the application waits for the last write.
    // A merge with another process's changes shows when the write is done. No effect read-only.
    void writeInBackground();
    // Whether a save asked for is not yet on disk, or a reload of another process's change not
    // yet taken in.
    bool savesPending() const;
    // Blocks until every save asked for so far is on disk and its outcome taken in.
    void waitForSaves();

    static QString defaultRootFolder();
    QString rootFolder() const { return m_rootFolder; }
    QString dir() const { return m_dir; }
    QString attachmentsDir() const;
    QString collectionDefaultsKey() const { return m_collectionDefaultsKey; }
    QString hiddenDefaultsKey() const { return m_hiddenDefaultsKey; }
    Defaults& defaults() const { return m_defaults; }

    const QList<Clip>& clips() const { return m_clips; }
    void setClips(QList<Clip> clips);

    const QStringList& collections() const { return m_collections; }
    void setCollections(QStringList collections); // persists, an equal list too

    const QString& search() const { return m_search; }
    void setSearch(const QString& search);

    const QList<CollectionDefinition>& collectionDefinitions() const { return m_collectionDefinitions; }
    void setCollectionDefinitions(QList<CollectionDefinition> definitions);

    const QList<CollectionRecord>& collectionRecords() const { return m_collectionRecords; }
    void setCollectionRecords(QList<CollectionRecord> records);

    const QStringList& hiddenCollections() const { return m_hiddenCollections; }
    void setHiddenCollections(QStringList hidden); // persists, an equal list too

    bool isCollectionHidden(const QString& name) const;
    QStringList visibleCollections() const;
    QList<Clip> availableClips() const;
    QList<Clip> found() const;

    // True when written, or, writing in the background, when the write is on its way.
    bool save();

    using ClipsChange = std::function<void(QList<Clip>&)>;
    using Finished = std::function<void(bool written)>;
    // Changes the shortcuts as clips.json holds them now, with the file's lock held from the read
    // to the write, so no other process's change made meanwhile is lost: `change` gets the list on
    // disk (with this store's unsaved changes merged in) and edits it in place. Written only when
    // `change` changed something; clipsChanged is emitted once when the list in memory changes.
    // Writing in the background, the read, `change`, the encoding and the write all run on the
    // store's thread (so `change` may use only what it captured, never the store), and the new
    // list replaces the one in memory in one step on this thread, edits made meanwhile kept.
    // `done` runs on this thread once the list in memory is the new one, unless `context` is gone
    // by then; in place, before this returns.
    // Not written: a read-only store, the lock not taken in time, a file that can be neither read
    // nor kept aside, or a failed write. The list in memory then stays.
    void updateClips(ClipsChange change, QObject* context, Finished done);
    // The same, waiting for the outcome.
    bool updateClips(const ClipsChange& change);

    // A whole profile as a restore brings it: the shortcuts, and what the backup carried of the
    // rest. `keepCurrent` runs first under the shortcuts' lock (on the store's thread when writing
    // in the background) to keep copies of the files about to be replaced; false stops it all.
    struct Replacement
    {
        QList<Clip> clips;
        std::optional<QStringList> collections;
        std::optional<QStringList> hiddenCollections;
        std::optional<QList<CollectionDefinition>> definitions;
        std::optional<QList<CollectionRecord>> records;
        std::function<bool()> keepCurrent;
    };
    // Replaces the profile through a journal, so that a kill at any moment leaves it all old or
    // all new (the next open finishes it). Runs like updateClips: the file work on the store's
    // thread when writing in the background, the lists and settings taken in at once after.
    void replaceProfile(Replacement replacement, QObject* context, Finished done);
    bool saveCollectionLibrary();
    void loadCollectionLibrary();

    void activateProfile(const QString& identity, const std::optional<QString>& legacyEmail = std::nullopt);

    // Renames a collection everywhere it is named: the list, shortcuts, definitions, records, the
    // hidden list and builder settings. A blank new name changes nothing. The sheet's checks
    // (validateCollectionRename) come first.
    void renameCollection(const QString& from, const QString& to);
    bool isProfileActive() const { return m_profileActive; }

    // Whether the profile folder already holds shortcuts, so activating it migrates nothing.
    bool profileExists(const QString& identity) const;

    // Reads the profile's files again after another process changed them; emits only what changed.
    // Writing in the background, the files are read and merged there too, and taken in later.
    void reloadFromDisk();
    // Follows changes other processes make to the current folder.
    void watchForChanges();

signals:
    void clipsChanged();
    void collectionsChanged();
    void searchChanged();
    void collectionDefinitionsChanged();
    void collectionRecordsChanged();
    void hiddenCollectionsChanged();
    // A background write of `fileName` (clips.json, ...) ended; `written` false when it failed.
    void saveFinished(const QString& fileName, bool written);

private:
    // One file's background work: at most one write or reload on its way, and whether a save was
    // asked for meanwhile, which then writes the lists as they are when that work is taken in.
    struct SaveSlot
    {
        bool inFlight = false;
        bool pending = false;
    };

    QString filePath(const QString& name) const;
    QString profileFolder(const QString& slug) const;
    void writeCollectionList();
    // Takes the collection names and the hidden set as the settings hold them now.
    void takeCollectionSettings();
    bool rootClaimedAlready(const QString& ownSlug) const;
    std::optional<QList<Clip>> migrateEmailProfile(const QString& profileFolder, const QString& legacyEmail,
                                                   const QString& slug);
    QList<Clip> claimRootStore(const QString& profileFolder, const QString& slug);
    QList<Clip> readClips(const QString& path, bool* readable = nullptr) const;
    template<typename T>
    bool saveList(const QString& name, QList<T>& current, QList<T>& base, bool* merged = nullptr);
    template<typename T>
    void saveInBackground(const QString& name, QList<T> DB::*current, QList<T> DB::*base, void (DB::*changed)(),
                          SaveSlot DB::*slot);
    template<typename T>
    void reloadInBackground(const QString& name, QList<T> DB::*current, QList<T> DB::*base, void (DB::*changed)(),
                            SaveSlot DB::*slot);
    void takeFinishedSaves();
    // Runs `job` on the store's thread, or here when writing in place; `takeIn` then runs here.
    void runStoreJob(std::function<std::function<void()>()> job);
    // The shortcuts a change on the store's thread wrote, in place of `sent` (the list it began
    // from); whether the list in memory changed. Announcing it is the caller's.
    bool takeInClips(const QList<Clip>& sent, const QList<Clip>& written, bool sameAsSent, const FileStamp& stamp);
    template<typename T>
    void dropInBackground(QList<T>&& list);
    struct ProfileRead;
    // Nothing when a later activation began while this one read, or the store went away.
    std::optional<ProfileRead> readProfile(const QString& folder);
    void takeCollectionLibrary(ProfileRead& read);
    void remember(const QString& path);

    bool m_readOnly = false;
    QHash<QString, FileStamp> m_stamps; // what each file looked like when we last read or wrote it
    QList<Clip> m_clipsBase;            // the lists as last read or written, for merging
    QList<CollectionDefinition> m_definitionsBase;
    QList<CollectionRecord> m_recordsBase;
    QFileSystemWatcher* m_watcher = nullptr;
    QTimer* m_settle = nullptr; // a reload after changes on disk settle

    std::unique_ptr<BackgroundWriter> m_writer;
    SaveSlot m_clipsSave;
    SaveSlot m_definitionsSave;
    SaveSlot m_recordsSave;
    int m_clipsUpdates = 0; // updates and replacements of the shortcuts on their way
    int m_activation = 0;   // counts sign-ins that read in the background
    std::mutex m_finishedMutex;
    QList<std::function<void()>> m_finished; // outcomes of background writes, taken in on our thread

    Defaults& m_defaults;
    QString m_rootFolder;
    QString m_dir;
    QString m_collectionDefaultsKey;
    QString m_hiddenDefaultsKey;
    bool m_profileActive = false;

    QList<Clip> m_clips;
    QStringList m_collections;
    QString m_search;
    QList<CollectionDefinition> m_collectionDefinitions;
    QList<CollectionRecord> m_collectionRecords;
    QStringList m_hiddenCollections;
};

} // namespace tavo
