#pragma once

#include "language/tavo_error.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

struct zip;

namespace tavo {

// Why an archive was refused, in TavoError::code, so callers can word their own message.
enum class ZipFault
{
    Unreadable = 1,   // the file cannot be opened at all
    NotAZip,          // not an archive, or truncated past its directory
    Corrupt,          // inconsistent headers, bad data or a bad checksum
    UnsafeName,       // absolute, "..", backslash, empty or "." component, not UTF-8
    UnsupportedEntry, // a link, device or pipe; encrypted; a method other than stored or deflate
    Duplicate,        // two names that are the same file on disk (case, normalisation, file and folder)
    TooManyEntries,
    TooLarge,    // over a size cap, an implausible ratio, or more bytes than declared
    NoSpace,     // the disk would be left with less than the reserve
    WriteFailed, // the extraction folder could not be written
    NoSuchEntry,
};

// The caps a hostile archive meets. Defaults suit packages and backups; tests lower them.
struct ZipLimits
{
    qint64 maxEntries = 500'000;
    qint64 maxTotalBytes = 16LL * 1024 * 1024 * 1024;
    // An entry larger than this may unpack to at most maxRatio times its packed size.
    qint64 ratioCheckedAbove = 64LL * 1024 * 1024;
    qint64 maxRatio = 100;
    // Extraction leaves at least this much free on the disk.
    qint64 diskReserveBytes = 1024LL * 1024 * 1024;
};

struct ZipEntry
{
    QString name; // relative, '/'-separated, NFC, without a trailing '/'
    qint64 size = 0;
    qint64 compressedSize = 0;
    bool isFolder = false;
};

// Reads a zip archive that may have been made to do harm. open() checks every entry before
// anything is read: one fault refuses the whole archive. Reading counts the bytes again, so a
// header that under-declares a size (a zip bomb) stops at the declared size, not at the end of
// the data. Entries under "__MACOSX/" (resource forks from the other desktop) are left out.
class ZipReader
{
public:
    static Result<std::shared_ptr<ZipReader>> open(const QString& path, const ZipLimits& limits = {});
    ~ZipReader();
    ZipReader(const ZipReader&) = delete;
    ZipReader& operator=(const ZipReader&) = delete;

    const QList<ZipEntry>& entries() const { return m_entries; }

    // One file's bytes; refused when it holds more than maxBytes.
    Result<QByteArray> read(const QString& name, qint64 maxBytes) const;

    // Unpacks every entry into `folder`, which must not exist yet: it is created private (0700),
    // stored permissions are ignored, and on any failure it is removed again.
    std::optional<TavoError> extractAll(const QString& folder) const;

private:
    ZipReader(zip* archive, const ZipLimits& limits);
    std::optional<TavoError> check(const QString& path);
    template<typename Sink>
    std::optional<TavoError> stream(qsizetype row, qint64 cap, Sink&& sink) const;

    zip* m_archive;
    ZipLimits m_limits;
    QList<ZipEntry> m_entries;
    QList<quint64> m_indices;         // libzip's index of each entry
    QHash<QString, qsizetype> m_rows; // zipEntryKey -> row
};

} // namespace tavo
