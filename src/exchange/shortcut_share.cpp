#include "exchange/shortcut_share.h"

#include "exchange/key_conflicts.h"
#include "exchange/media_name.h"
#include "exchange/work_folder.h"
#include "platform/desktop_entries.h"
#include "platform/zip/zip_reader.h"
#include "platform/zip/zip_writer.h"
#include "store/attachments.h"
#include "store/profile_store.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QLoggingCategory>
#include <QPointer>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>
#include <QUuid>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcShare, "tavo.exchange.share", QtWarningMsg)

const QString collectionJson = QStringLiteral("collection.json");
const QString shortcutJson = QStringLiteral("shortcut.json");
const QString mediaFolder = QStringLiteral("Media");
// The JSON of even a very large library stays far below this; more is not a package.
constexpr qint64 maxJsonBytes = 256LL * 1024 * 1024;
// Media up to this size is read from the archive in memory; a larger file has the package
// unpacked to disk instead.
constexpr qint64 inMemoryMediaBytes = 16LL * 1024 * 1024;

TavoError shareError(int code, const QString& text)
{
    return TavoError{ShareText::domain, code, text};
}

TavoError prepareError()
{
    return shareError(1, ShareText::couldNotPrepare);
}

QString shortcutFolder(qsizetype number)
{
    return QStringLiteral("Shortcut-%1").arg(number, 3, 10, QLatin1Char('0'));
}

QString newUuidText()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

// The name a file gets inside Media: its number and its own name, as one safe name component.
QString packedMediaName(qsizetype number, const QString& path)
{
    QString name = QFileInfo(path).fileName();
    // A backslash is a separator to other tools, and the reader refuses it.
    name.replace(u'\\', u'_');
    return reducedMediaName(QStringLiteral("%1-").arg(number, 2, 10, QLatin1Char('0')) + name);
}

TavoSharedShortcut sharedFrom(const Clip& clip, QStringList media)
{
    TavoSharedShortcut shared;
    shared.key = clip.key;
    shared.name = clip.name;
    shared.text = clip.text;
    shared.group = clip.group;
    shared.media = std::move(media);
    shared.directMediaPaste = clip.directMediaPaste;
    shared.groups = clip.groups;
    shared.appBundleIdentifier = clip.appBundleIdentifier;
    shared.appPath = clip.appPath;
    shared.webURL = clip.webURL;
    shared.defaultMediaArticle = clip.defaultMediaArticle;
    return shared;
}

// The JSON entry of the wanted name nearest the top of the archive; nothing when there is none.
std::optional<QString> findJsonEntry(const ZipReader& reader, const QString& fileName)
{
    std::optional<QString> best;
    qsizetype bestDepth = 0;
    for (const ZipEntry& entry : reader.entries()) {
        if (entry.isFolder || !(entry.name == fileName || entry.name.endsWith(u'/' + fileName))) {
            continue;
        }
        const qsizetype depth = entry.name.count(u'/');
        if (!best || depth < bestDepth) {
            best = entry.name;
            bestDepth = depth;
        }
    }
    return best;
}

QString folderOf(const QString& entryName)
{
    const qsizetype slash = entryName.lastIndexOf(u'/');
    return slash < 0 ? QString() : entryName.left(slash);
}

// Installed applications' entry files, looked up once per import and only when a shortcut names one.
class InstalledApps
{
public:
    bool contains(const QString& path)
    {
        if (!QDir::isAbsolutePath(path)) {
            return false;
        }
        if (!m_paths) {
            m_paths.emplace();
            for (const DesktopEntry& entry : installedDesktopEntries()) {
                m_paths->insert(QFileInfo(entry.path).canonicalFilePath());
            }
        }
        const QString canonical = QFileInfo(path).canonicalFilePath();
        return !canonical.isEmpty() && m_paths->contains(canonical);
    }

private:
    std::optional<QSet<QString>> m_paths;
};

// Takes the media files a package names into Attachments, each under a new name. Small files are
// read straight from the archive, so an import creates no more files than it keeps; when one is
// too large to hold in memory, the whole package is unpacked into a private work folder first
// and its files are moved from there.
class MediaTaker
{
public:
    MediaTaker(const ZipReader& reader, const QString& attachmentsDir)
        : m_reader(reader)
        , m_attachments(attachmentsDir)
        , m_attachmentsExisted(QFileInfo::exists(attachmentsDir))
    {
        for (const ZipEntry& entry : reader.entries()) {
            if (!entry.isFolder) {
                m_files.insert(entry.name, entry.size);
            }
        }
    }

    // The size of the file entry `name`, exactly as named; nothing for folders and missing names.
    std::optional<qint64> sizeOf(const QString& name) const
    {
        const auto found = m_files.constFind(name);
        return found == m_files.cend() ? std::nullopt : std::optional(*found);
    }

    void setUnpackedRoot(const QString& root) { m_unpacked = root; }

    std::optional<QString> take(const QString& entryName)
    {
        const std::optional<qint64> size = sizeOf(entryName);
        if (!size || m_fault) {
            return std::nullopt;
        }
        const QString fileName = entryName.section(u'/', -1);
        if (m_unpacked.isEmpty()) {
            return write(fileName, *size, entryName);
        }
        const QString source = m_unpacked + u'/' + entryName;
        if (const auto moved = m_moved.constFind(source); moved != m_moved.cend()) {
            // Named twice: the second shortcut gets a copy of its own.
            const AttachmentCopy copy = copyIntoAttachments(*moved, m_attachments);
            return copy.ok() ? std::optional(copy.path) : std::nullopt;
        }
        const QFileInfo info(source);
        // Only a regular file: unpacking makes no links, and this holds even if it ever did.
        if (info.isSymLink() || !info.isFile() || !QDir().mkpath(m_attachments)) {
            return std::nullopt;
        }
        const QString target = newTarget(fileName);
        // Never replaces a file; across file systems Qt copies and removes the source.
        if (target.isEmpty() || !QFile::rename(source, target)) {
            qCWarning(lcShare) << "could not take a media file into the attachments folder";
            return std::nullopt;
        }
        m_moved.insert(source, target);
        m_written.append(target);
        return target;
    }

    // Why the archive turned out damaged while its media was read; the import is refused then.
    const std::optional<TavoError>& fault() const { return m_fault; }
    // Takes back every file this import wrote.
    void removeWritten()
    {
        for (const QString& path : std::as_const(m_written)) {
            QFile::remove(path);
        }
        m_written.clear();
        if (!m_attachmentsExisted) {
            QDir().rmdir(m_attachments); // only when empty
        }
    }

private:
    QString newTarget(const QString& fileName) const
    {
        for (int attempt = 0; attempt < 3; ++attempt) {
            const QString target = QDir(m_attachments).absoluteFilePath(newAttachmentName(fileName));
            if (!QFileInfo::exists(target)) {
                return target;
            }
        }
        return {};
    }

    std::optional<QString> write(const QString& fileName, qint64 size, const QString& entryName)
    {
        const Result<QByteArray> bytes = m_reader.read(entryName, size);
        if (!bytes) {
            // Bytes that differ from what the archive declared: the whole package is suspect.
            m_fault = bytes.error();
            return std::nullopt;
        }
        const QString target = QDir().mkpath(m_attachments) ? newTarget(fileName) : QString();
        if (target.isEmpty()) {
            return std::nullopt;
        }
        // Written aside and renamed, so a failed write leaves nothing behind.
        QSaveFile file(target);
        if (!file.open(QIODevice::WriteOnly) || file.write(*bytes) != bytes->size() || !file.commit()) {
            qCWarning(lcShare) << "could not write a media file into the attachments folder";
            return std::nullopt;
        }
        m_written.append(target);
        return target;
    }

    const ZipReader& m_reader;
    QString m_attachments;
    bool m_attachmentsExisted;
    QHash<QString, qint64> m_files; // file entries by their exact name
    QString m_unpacked;             // the work folder's copy of the package, when there is one
    QHash<QString, QString> m_moved;
    QStringList m_written;
    std::optional<TavoError> m_fault;
};

// The entry names of a shortcut's media: only the last component of each name counts, so a name
// cannot reach outside the shortcut's own Media folder.
QStringList mediaEntries(const TavoSharedShortcut& shared, const QString& mediaDir)
{
    QStringList entries;
    for (const QString& named : shared.media) {
        const QString name = reducedMediaName(named);
        if (!name.isEmpty()) {
            entries.append(mediaDir.isEmpty() ? name : mediaDir + u'/' + name);
        }
    }
    return entries;
}

Clip importedClip(const TavoSharedShortcut& shared, const QStringList& media, MediaTaker& taker, InstalledApps& apps)
{
    Clip clip;
    clip.key = normalizedTrigger(shared.key);
    clip.name = shared.name;
    clip.text = shared.text;
    clip.group = shared.group.trimmed().isEmpty() ? QStringLiteral("Imported") : shared.group;
    for (const QString& entry : media) {
        if (std::optional<QString> path = taker.take(entry)) {
            clip.files.append(*path);
        }
    }
    clip.directMediaPaste = shared.directMediaPaste;
    if (!clip.directMediaPaste && clip.text.isEmpty() && !clip.files.isEmpty()) {
        clip.directMediaPaste = true;
    }
    if (shared.groups) {
        QStringList groups;
        for (const QString& group : *shared.groups) {
            if (!group.trimmed().isEmpty()) {
                groups.append(group);
            }
        }
        clip.groups = groups;
    }
    clip.appBundleIdentifier = shared.appBundleIdentifier;
    if (shared.appPath && apps.contains(*shared.appPath)) {
        clip.appPath = shared.appPath;
    }
    clip.webURL = shared.webURL;
    clip.defaultMediaArticle = shared.defaultMediaArticle;
    return clip;
}

enum class Form
{
    Collection,
    Single,
};

Result<QList<Clip>> importPackage(const QString& file, const QString& attachmentsDir, bool collectionAllowed)
{
    const TavoError notCollection = shareError(3, ShareText::notCollectionPackage);
    const TavoError notSingle = shareError(3, ShareText::notShortcutPackage);
    const TavoError& refused = collectionAllowed ? notCollection : notSingle;

    const Result<std::shared_ptr<ZipReader>> opened = ZipReader::open(file);
    if (!opened) {
        qCInfo(lcShare) << "package refused:" << opened.error().description;
        return refused;
    }
    const ZipReader& reader = **opened;

    Form form = Form::Single;
    std::optional<QString> jsonEntry;
    if (collectionAllowed) {
        jsonEntry = findJsonEntry(reader, collectionJson);
        form = Form::Collection;
    }
    if (!jsonEntry) {
        jsonEntry = findJsonEntry(reader, shortcutJson);
        form = Form::Single;
    }
    if (!jsonEntry) {
        qCInfo(lcShare) << "package refused: it holds neither collection.json nor shortcut.json";
        return refused;
    }
    const TavoError& invalid = form == Form::Collection ? notCollection : notSingle;
    const Result<QByteArray> json = reader.read(*jsonEntry, maxJsonBytes);
    if (!json) {
        qCInfo(lcShare) << "package refused:" << json.error().description;
        return invalid;
    }
    QList<TavoSharedShortcut> shortcuts;
    if (form == Form::Collection) {
        std::optional<TavoSharedShortcutBundle> bundle = TavoSharedShortcutBundle::fromJsonBytes(*json);
        if (!bundle) {
            qCInfo(lcShare) << "package refused: its collection.json does not decode";
            return invalid;
        }
        shortcuts = std::move(bundle->shortcuts);
    } else {
        std::optional<TavoSharedShortcut> shortcut = TavoSharedShortcut::fromJsonBytes(*json);
        if (!shortcut) {
            qCInfo(lcShare) << "package refused: its shortcut.json does not decode";
            return invalid;
        }
        shortcuts.append(std::move(*shortcut));
    }

    const QString base = folderOf(*jsonEntry);
    auto inBase = [&](const QString& path) { return base.isEmpty() ? path : base + u'/' + path; };
    MediaTaker taker(reader, attachmentsDir);
    QList<QStringList> media;
    media.reserve(shortcuts.size());
    bool large = false;
    for (qsizetype i = 0; i < shortcuts.size(); ++i) {
        const QString mediaDir =
            form == Form::Collection ? inBase(shortcutFolder(i + 1) + u'/' + mediaFolder) : inBase(mediaFolder);
        media.append(mediaEntries(shortcuts[i], mediaDir));
        for (const QString& entry : std::as_const(media.last())) {
            large = large || taker.sizeOf(entry).value_or(0) > inMemoryMediaBytes;
        }
    }

    // Everything is checked; only now is anything written.
    std::optional<WorkFolder> work;
    if (large) {
        work.emplace(form == Form::Collection ? QStringLiteral("TavoImportCollection") : QStringLiteral("TavoImport"));
        const QString unpacked = work->path() + QStringLiteral("/package");
        if (!work->isValid()) {
            return invalid;
        }
        if (const std::optional<TavoError> error = reader.extractAll(unpacked)) {
            qCInfo(lcShare) << "package not unpacked:" << error->description;
            return invalid;
        }
        taker.setUnpackedRoot(unpacked);
    }
    InstalledApps apps;
    QList<Clip> clips;
    clips.reserve(shortcuts.size());
    for (qsizetype i = 0; i < shortcuts.size(); ++i) {
        clips.append(importedClip(shortcuts[i], media[i], taker, apps));
        if (taker.fault()) {
            qCInfo(lcShare) << "package refused:" << taker.fault()->description;
            taker.removeWritten();
            return invalid;
        }
    }
    return clips;
}

} // namespace

QString ShareText::preparing(qsizetype count)
{
    return QStringLiteral("Preparing %1 shortcut(s) with attached media\u2026").arg(count);
}

QString ShareText::prepareFailed(const QString& text)
{
    return QStringLiteral("Could not prepare sharing package: ") + text;
}

QString ShareText::imported(qsizetype count)
{
    return QStringLiteral("Imported %1 shortcut(s) with their attached media.").arg(count);
}

QString ShareText::importFailed(const QString& text)
{
    return QStringLiteral("Could not import shortcut package: ") + text;
}

QString TavoShortcutShare::archiveFileName(const QString& title)
{
    static const QRegularExpression unsafe(QStringLiteral("[^A-Za-z0-9_-]+"));
    QString sanitised = title;
    sanitised.replace(unsafe, QStringLiteral("-"));
    return QStringLiteral("Tavo-") + sanitised + u'-' + newUuidText().left(8) + QStringLiteral(".zip");
}

Result<QString> TavoShortcutShare::makeArchive(const QList<Clip>& clips, const QString& title,
                                               std::optional<double> priceINR, const QString& target)
{
    const QString path = QFileInfo(target.isEmpty() ? QDir(QDir::tempPath()).filePath(archiveFileName(title)) : target)
                             .absoluteFilePath();
    const QString targetCanonical = QFileInfo(path).canonicalFilePath();
    ZipWriter writer(path);
    const QString top = QStringLiteral("TavoCollectionShare-") + newUuidText();
    auto failed = [&](const std::optional<TavoError>& error) {
        if (error) {
            qCInfo(lcShare) << "package not written:" << error->description;
        }
        return error.has_value();
    };
    if (failed(writer.addFolder(top))) {
        return prepareError();
    }

    TavoSharedShortcutBundle bundle;
    bundle.title = title;
    bundle.priceINR = priceINR;
    bundle.shortcuts.reserve(clips.size());
    for (qsizetype i = 0; i < clips.size(); ++i) {
        const Clip& clip = clips[i];
        const QString folder = top + u'/' + shortcutFolder(i + 1);
        if (failed(writer.addFolder(folder)) || failed(writer.addFolder(folder + u'/' + mediaFolder))) {
            return prepareError();
        }
        QStringList media;
        for (const QString& file : clip.files) {
            const QFileInfo info(file);
            if (!info.isFile()) {
                continue; // a deleted file is left out
            }
            // Never pack the archive being written into itself.
            if (!targetCanonical.isEmpty() && info.canonicalFilePath() == targetCanonical) {
                return prepareError();
            }
            const QString name = packedMediaName(media.size() + 1, file);
            // Media is mostly compressed already: stored, it costs no time to pack or unpack.
            if (failed(writer.addFile(info.absoluteFilePath(), folder + u'/' + mediaFolder + u'/' + name,
                                      ZipWriter::Compression::Store))) {
                return prepareError();
            }
            media.append(name);
        }
        TavoSharedShortcut shared = sharedFrom(clip, std::move(media));
        if (failed(writer.addBytes(shared.toJsonBytes(), folder + u'/' + shortcutJson))) {
            return prepareError();
        }
        bundle.shortcuts.append(std::move(shared));
    }
    if (failed(writer.addBytes(bundle.toJsonBytes(), top + u'/' + collectionJson)) || failed(writer.commit())) {
        return prepareError();
    }
    return path;
}

Result<QList<Clip>> TavoShortcutShare::importBundle(const QString& file, const QString& attachmentsDir)
{
    return importPackage(file, attachmentsDir, true);
}

Result<QList<Clip>> TavoShortcutShare::importArchive(const QString& file, const QString& attachmentsDir)
{
    return importPackage(file, attachmentsDir, false);
}

void addImportedClips(DB& db, QList<Clip> clips, QObject* context,
                      const std::function<void(const std::optional<TavoError>&)>& done)
{
    // The change runs on the store's thread: it works on the collections as they are now, and
    // the names it adds join the list as it is when the change is taken in.
    struct Names
    {
        QStringList known;
        QStringList added;
    };
    auto names = std::make_shared<Names>();
    names->known = db.collections();
    const QString folder = db.dir();
    QPointer<DB> store(&db);
    auto change = [names, clips = std::move(clips)](QList<Clip>& library) {
        names->added.clear();
        QHash<QString, QString> spelling; // case-folded name -> the collection's own spelling
        for (const QString& name : std::as_const(names->known)) {
            spelling.insert(name.toCaseFolded(), name);
        }
        auto known = [&](const QString& group) {
            const QString folded = group.toCaseFolded();
            if (const auto found = spelling.constFind(folded); found != spelling.cend()) {
                return *found;
            }
            spelling.insert(folded, group);
            names->added.append(group);
            return group;
        };
        TakenKeys taken(library);
        QList<Clip> added = clips;
        for (Clip& clip : added) {
            clip.group = known(clip.group);
            if (clip.groups) {
                for (QString& group : *clip.groups) {
                    group = known(group);
                }
            }
            clip.key = freeKey(clip.key, clip.group, taken);
            taken.insert(clip.key);
        }
        library = added + library;
    };
    db.updateClips(change, context, [names, store, folder, done](bool written) {
        if (!written) {
            done(shareError(2, QStringLiteral("Could not save the changes in %1.").arg(folder)));
            return;
        }
        if (store && !names->added.isEmpty()) {
            QStringList collections = store->collections();
            for (const QString& name : std::as_const(names->added)) {
                if (!collections.contains(name, Qt::CaseInsensitive)) {
                    collections.append(name);
                }
            }
            if (collections != store->collections()) {
                store->setCollections(collections);
            }
        }
        done(std::nullopt);
    });
}

std::optional<TavoError> addImportedClips(DB& db, QList<Clip> clips)
{
    std::optional<TavoError> error;
    addImportedClips(db, std::move(clips), nullptr,
                     [&error](const std::optional<TavoError>& failed) { error = failed; });
    db.waitForSaves();
    return error;
}

} // namespace tavo
