#include "platform/zip/zip_reader.h"

#include "platform/zip/zip_entry_name.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSet>
#include <QStorageInfo>
#include <QStringDecoder>

#include <zip.h>

#include <sys/stat.h>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcZipReader, "tavo.platform.zip")

constexpr qint64 chunkBytes = 64 * 1024;

TavoError refusal(ZipFault fault, const QString& description)
{
    return TavoError{QStringLiteral("TavoArchive"), int(fault), description};
}

TavoError unsafe(ZipFault fault, const QString& entry, const QString& reason)
{
    return refusal(fault, QStringLiteral("The archive is refused: %1 (\"%2\").").arg(reason, entry));
}

std::optional<QString> strictUtf8(const QByteArray& raw)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder(raw);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}

bool isMacResourceFork(const QString& path)
{
    return path == QLatin1StringView("__MACOSX") || path.startsWith(QLatin1StringView("__MACOSX/"));
}

} // namespace

ZipReader::ZipReader(zip* archive, const ZipLimits& limits)
    : m_archive(archive)
    , m_limits(limits)
{
}

ZipReader::~ZipReader()
{
    zip_discard(m_archive);
}

Result<std::shared_ptr<ZipReader>> ZipReader::open(const QString& path, const ZipLimits& limits)
{
    if (!QFileInfo(path).isFile()) {
        return refusal(ZipFault::Unreadable, QStringLiteral("The archive %1 cannot be read.").arg(path));
    }
    int code = 0;
    zip* archive = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &code);
    if (!archive) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const QString reason = QString::fromUtf8(zip_error_strerror(&error));
        zip_error_fini(&error);
        const ZipFault fault = code == ZIP_ER_NOZIP                         ? ZipFault::NotAZip
                               : code == ZIP_ER_OPEN || code == ZIP_ER_READ ? ZipFault::Unreadable
                                                                            : ZipFault::Corrupt;
        return refusal(fault, QStringLiteral("%1 is not a readable zip archive: %2.").arg(path, reason));
    }
    std::shared_ptr<ZipReader> reader(new ZipReader(archive, limits));
    if (const std::optional<TavoError> error = reader->check(path)) {
        return *error;
    }
    return reader;
}

std::optional<TavoError> ZipReader::check(const QString& path)
{
    const zip_int64_t count = zip_get_num_entries(m_archive, 0);
    if (count < 0) {
        return refusal(ZipFault::Corrupt, QStringLiteral("%1 is not a readable zip archive.").arg(path));
    }
    if (count > m_limits.maxEntries) {
        return refusal(ZipFault::TooManyEntries, QStringLiteral("The archive is refused: it holds %1 entries, more "
                                                                "than %2.")
                                                     .arg(count)
                                                     .arg(m_limits.maxEntries));
    }
    qint64 total = 0;
    QSet<QString> fileKeys;
    for (zip_uint64_t index = 0; index < zip_uint64_t(count); ++index) {
        const char* rawName = zip_get_name(m_archive, index, ZIP_FL_ENC_RAW);
        if (!rawName) {
            return refusal(ZipFault::Corrupt, QStringLiteral("The archive is refused: an entry name cannot be read."));
        }
        const std::optional<QString> name = strictUtf8(QByteArray(rawName));
        if (!name) {
            return unsafe(ZipFault::UnsafeName, QString::fromLatin1(rawName), QStringLiteral("a name is not UTF-8"));
        }
        if (const std::optional<QString> fault = zipEntryNameFault(*name)) {
            return unsafe(ZipFault::UnsafeName, *name, *fault);
        }
        const ZipEntryName checked = *checkedZipEntryName(*name);

        zip_stat_t stat;
        zip_stat_init(&stat);
        if (zip_stat_index(m_archive, index, 0, &stat) < 0) {
            return unsafe(ZipFault::Corrupt, *name, QStringLiteral("its header cannot be read"));
        }
        const zip_uint64_t needed = ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD;
        if ((stat.valid & needed) != needed) {
            return unsafe(ZipFault::Corrupt, *name, QStringLiteral("its header is incomplete"));
        }
        if ((stat.valid & ZIP_STAT_ENCRYPTION_METHOD) && stat.encryption_method != ZIP_EM_NONE) {
            return unsafe(ZipFault::UnsupportedEntry, *name, QStringLiteral("an entry is encrypted"));
        }
        if (stat.comp_method != ZIP_CM_STORE && stat.comp_method != ZIP_CM_DEFLATE) {
            return unsafe(ZipFault::UnsupportedEntry, *name,
                          QStringLiteral("an entry uses an unsupported compression"));
        }
        zip_uint8_t system = 0;
        zip_uint32_t attributes = 0;
        if (zip_file_get_external_attributes(m_archive, index, 0, &system, &attributes) < 0) {
            return unsafe(ZipFault::Corrupt, *name, QStringLiteral("its attributes cannot be read"));
        }
        if (system == ZIP_OPSYS_UNIX) {
            const mode_t type = mode_t(attributes >> 16) & S_IFMT;
            if (type == S_IFLNK) {
                return unsafe(ZipFault::UnsupportedEntry, *name, QStringLiteral("an entry is a symbolic link"));
            }
            if (type != 0 && type != S_IFREG && type != S_IFDIR) {
                return unsafe(ZipFault::UnsupportedEntry, *name,
                              QStringLiteral("an entry is neither a file nor a folder"));
            }
        }
        if (checked.isFolder && stat.size != 0) {
            return unsafe(ZipFault::Corrupt, *name, QStringLiteral("a folder entry holds data"));
        }
        const qint64 size = qint64(qMin<zip_uint64_t>(stat.size, zip_uint64_t(m_limits.maxTotalBytes) + 1));
        const qint64 packed = qint64(qMin<zip_uint64_t>(stat.comp_size, zip_uint64_t(m_limits.maxTotalBytes) + 1));
        if (size > m_limits.ratioCheckedAbove && size / qMax<qint64>(packed, 1) > m_limits.maxRatio) {
            return unsafe(ZipFault::TooLarge, *name,
                          QStringLiteral("an entry unpacks to far more than its packed size"));
        }
        total += size;
        if (total > m_limits.maxTotalBytes) {
            return refusal(ZipFault::TooLarge,
                           QStringLiteral("The archive is refused: it unpacks to more than %1 bytes.")
                               .arg(m_limits.maxTotalBytes));
        }

        const QString key = zipEntryKey(checked.path);
        if (m_rows.contains(key)) {
            // The same folder named twice is refused too: a name must mean one thing.
            return unsafe(ZipFault::Duplicate, *name, QStringLiteral("two entries have the same name"));
        }
        m_rows.insert(key, m_entries.size());
        if (!checked.isFolder) {
            fileKeys.insert(key);
        }
        m_entries.append(ZipEntry{checked.path, size, packed, checked.isFolder});
        m_indices.append(index);
    }
    // A file may not also be a folder that other entries sit in.
    for (const ZipEntry& entry : std::as_const(m_entries)) {
        for (qsizetype slash = entry.name.indexOf(u'/'); slash > 0; slash = entry.name.indexOf(u'/', slash + 1)) {
            if (fileKeys.contains(zipEntryKey(entry.name.left(slash)))) {
                return unsafe(ZipFault::Duplicate, entry.name, QStringLiteral("a file is also used as a folder"));
            }
        }
    }
    // Resource forks are checked like every entry, then left out.
    for (qsizetype row = m_entries.size() - 1; row >= 0; --row) {
        if (isMacResourceFork(m_entries[row].name)) {
            m_entries.removeAt(row);
            m_indices.removeAt(row);
        }
    }
    m_rows.clear();
    for (qsizetype row = 0; row < m_entries.size(); ++row) {
        m_rows.insert(zipEntryKey(m_entries[row].name), row);
    }
    return std::nullopt;
}

template<typename Sink>
std::optional<TavoError> ZipReader::stream(qsizetype row, qint64 cap, Sink&& sink) const
{
    const ZipEntry& entry = m_entries[row];
    zip_file_t* file = zip_fopen_index(m_archive, m_indices[row], 0);
    if (!file) {
        return unsafe(ZipFault::Corrupt, entry.name,
                      QStringLiteral("an entry cannot be opened: ") + QString::fromUtf8(zip_strerror(m_archive)));
    }
    QByteArray chunk(chunkBytes, Qt::Uninitialized);
    qint64 total = 0;
    std::optional<TavoError> error;
    for (;;) {
        const zip_int64_t got = zip_fread(file, chunk.data(), zip_uint64_t(chunk.size()));
        if (got < 0) {
            error = unsafe(ZipFault::Corrupt, entry.name,
                           QStringLiteral("an entry's data is damaged: ") + QString::fromUtf8(zip_file_strerror(file)));
            break;
        }
        if (got == 0) {
            break;
        }
        total += got;
        // Counted again as read: a header that under-declares the size stops here.
        if (total > entry.size) {
            error = unsafe(ZipFault::TooLarge, entry.name, QStringLiteral("an entry holds more than its header says"));
            break;
        }
        if (total > cap) {
            error = unsafe(ZipFault::TooLarge, entry.name, QStringLiteral("an entry is larger than allowed"));
            break;
        }
        if (!sink(chunk.constData(), qint64(got))) {
            error = unsafe(ZipFault::WriteFailed, entry.name, QStringLiteral("an entry cannot be written"));
            break;
        }
    }
    zip_fclose(file);
    if (!error && total != entry.size) {
        error = unsafe(ZipFault::Corrupt, entry.name, QStringLiteral("an entry holds less than its header says"));
    }
    if (error) {
        qCWarning(lcZipReader) << "zip entry refused:" << error->description;
    }
    return error;
}

Result<QByteArray> ZipReader::read(const QString& name, qint64 maxBytes) const
{
    const auto found = m_rows.constFind(zipEntryKey(name));
    if (found == m_rows.cend() || m_entries[*found].isFolder) {
        return refusal(ZipFault::NoSuchEntry, QStringLiteral("The archive has no file \"%1\".").arg(name));
    }
    const ZipEntry& entry = m_entries[*found];
    if (entry.size > maxBytes) {
        return unsafe(ZipFault::TooLarge, entry.name, QStringLiteral("an entry is larger than allowed"));
    }
    QByteArray bytes;
    bytes.reserve(entry.size);
    const std::optional<TavoError> error = stream(*found, maxBytes, [&](const char* data, qint64 size) {
        bytes.append(data, size);
        return true;
    });
    if (error) {
        return *error;
    }
    return bytes;
}

std::optional<TavoError> ZipReader::extractAll(const QString& folder) const
{
    const QString root = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    if (QFileInfo::exists(root) || QFileInfo(root).isSymLink()) {
        return refusal(ZipFault::WriteFailed, QStringLiteral("Cannot unpack into %1: it already exists.").arg(root));
    }
    qint64 total = 0;
    for (const ZipEntry& entry : m_entries) {
        total += entry.size;
    }
    if (!QDir().mkpath(root)) {
        return refusal(ZipFault::WriteFailed, QStringLiteral("Cannot create the folder %1.").arg(root));
    }
    QFile::setPermissions(root, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QStorageInfo storage(root);
    if (storage.isValid() && storage.bytesAvailable() - m_limits.diskReserveBytes < total) {
        QDir(root).removeRecursively();
        return refusal(ZipFault::NoSpace, QStringLiteral("There is not enough free disk space to unpack the archive."));
    }

    const auto failed = [&](TavoError error) -> std::optional<TavoError> {
        QDir(root).removeRecursively();
        return error;
    };
    for (qsizetype row = 0; row < m_entries.size(); ++row) {
        const ZipEntry& entry = m_entries[row];
        const QString target = QDir::cleanPath(root + u'/' + entry.name);
        // The names were checked at open; this holds even if that check is ever loosened.
        if (!target.startsWith(root + u'/')) {
            return failed(unsafe(ZipFault::UnsafeName, entry.name, QStringLiteral("an entry leaves the folder")));
        }
        if (entry.isFolder) {
            if (!QDir().mkpath(target)) {
                return failed(unsafe(ZipFault::WriteFailed, entry.name, QStringLiteral("a folder cannot be created")));
            }
            continue;
        }
        if (!QDir().mkpath(QFileInfo(target).absolutePath())) {
            return failed(unsafe(ZipFault::WriteFailed, entry.name, QStringLiteral("a folder cannot be created")));
        }
        QFile file(target);
        // NewOnly never follows or replaces what is already there.
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
            return failed(unsafe(ZipFault::WriteFailed, entry.name, QStringLiteral("a file cannot be created")));
        }
        const std::optional<TavoError> error = stream(
            row, m_limits.maxTotalBytes, [&](const char* data, qint64 size) { return file.write(data, size) == size; });
        file.close();
        if (error) {
            return failed(*error);
        }
        if (file.error() != QFileDevice::NoError) {
            return failed(unsafe(ZipFault::WriteFailed, entry.name, QStringLiteral("a file cannot be written")));
        }
    }
    return std::nullopt;
}

} // namespace tavo
