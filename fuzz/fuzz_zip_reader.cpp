#include "platform/zip/zip_reader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cstddef>
#include <cstdint>

// Whatever bytes a zip file holds, opening, listing, reading and extracting it never crash, and a
// refused or failed extraction leaves no folder behind.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QString archive =
        QDir::tempPath() + QStringLiteral("/tavo-fuzz-zip-") + QUuid::createUuid().toString(QUuid::WithoutBraces);
    {
        QFile file(archive);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            return 0;
        }
        file.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size));
    }
    tavo::ZipLimits limits;
    limits.maxEntries = 1000;
    limits.maxTotalBytes = 16 * 1024 * 1024;
    limits.ratioCheckedAbove = 1024 * 1024;
    limits.diskReserveBytes = 0;
    const tavo::Result<std::shared_ptr<tavo::ZipReader>> reader = tavo::ZipReader::open(archive, limits);
    if (reader) {
        for (const tavo::ZipEntry& entry : (*reader)->entries()) {
            if (!entry.isFolder) {
                (void)(*reader)->read(entry.name, 1024 * 1024);
            }
        }
        const QString folder = archive + QStringLiteral(".out");
        const std::optional<tavo::TavoError> failed = (*reader)->extractAll(folder);
        if (failed && QFileInfo::exists(folder)) {
            __builtin_trap();
        }
        QDir(folder).removeRecursively();
    }
    QFile::remove(archive);
    return 0;
}
