#pragma once

#include "language/tavo_error.h"

#include <QByteArray>
#include <QList>
#include <QSet>
#include <QString>

#include <optional>

struct zip;

namespace tavo {

// Writes one zip archive. Entries are written under a hidden partial name beside the target and
// the archive is renamed into place only by a successful commit(), so an interrupted or failed
// write never leaves a half archive under the final name. Names are relative and '/'-separated
// (see zipEntryNameFault); a missing parent folder gets its own entry, as unzip tools expect.
// The first failure sticks: later calls return it and commit() discards the archive.
class ZipWriter
{
public:
    enum class Compression
    {
        Deflate,
        Store
    };

    explicit ZipWriter(const QString& target);
    ~ZipWriter(); // discards an archive that was not committed
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;

    QString target() const { return m_target; }
    QString partialPath() const { return m_partial; }

    std::optional<TavoError> addFolder(const QString& name);
    // The file is read when the archive is committed, streamed rather than held in memory.
    std::optional<TavoError> addFile(const QString& diskPath, const QString& name,
                                     Compression compression = Compression::Deflate);
    std::optional<TavoError> addBytes(const QByteArray& bytes, const QString& name,
                                      Compression compression = Compression::Deflate);

    std::optional<TavoError> commit();
    void discard();

private:
    std::optional<TavoError> begin();
    std::optional<TavoError> fail(const QString& what);
    std::optional<TavoError> claimName(const QString& name, bool isFolder, QString* path);
    std::optional<TavoError> addParents(const QString& path);
    std::optional<TavoError> setCompression(qint64 index, Compression compression);

    QString m_target;
    QString m_partial;
    zip* m_archive = nullptr;
    std::optional<TavoError> m_error;
    bool m_finished = false;
    QSet<QString> m_keys;        // entryKey of every entry, so the reader's duplicate rule never trips
    QSet<QString> m_folders;     // paths of folder entries added so far
    QList<QByteArray> m_buffers; // kept alive until the archive is written
};

} // namespace tavo
