#include "platform/zip/zip_writer.h"

#include "platform/zip/zip_entry_name.h"

#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>

#include <zip.h>

#include <cstdio>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcZipWriter, "tavo.platform.zip")

const QString zipDomain = QStringLiteral("TavoArchive");

TavoError archiveError(const QString& description)
{
    return TavoError{zipDomain, 0, description};
}

QString canonical(const QString& path)
{
    const QString resolved = QFileInfo(path).canonicalFilePath();
    return resolved.isEmpty() ? QFileInfo(path).absoluteFilePath() : resolved;
}

} // namespace

ZipWriter::ZipWriter(const QString& target)
    : m_target(QFileInfo(target).absoluteFilePath())
    , m_partial(QFileInfo(m_target).absolutePath() + QStringLiteral("/.") + QFileInfo(m_target).fileName() +
                QStringLiteral(".part"))
{
}

ZipWriter::~ZipWriter()
{
    if (!m_finished) {
        discard();
    }
}

std::optional<TavoError> ZipWriter::begin()
{
    if (m_error) {
        return m_error;
    }
    if (m_finished) {
        return m_error = archiveError(QStringLiteral("The archive is already finished."));
    }
    if (m_archive) {
        return std::nullopt;
    }
    int code = 0;
    m_archive = zip_open(QFile::encodeName(m_partial).constData(), ZIP_CREATE | ZIP_TRUNCATE, &code);
    if (!m_archive) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const QString reason = QString::fromUtf8(zip_error_strerror(&error));
        zip_error_fini(&error);
        m_error = archiveError(QStringLiteral("Could not create the archive %1: %2").arg(m_target, reason));
        m_finished = true;
        return m_error;
    }
    return std::nullopt;
}

std::optional<TavoError> ZipWriter::fail(const QString& what)
{
    const bool libzipFailed = m_archive && zip_error_code_zip(zip_get_error(m_archive)) != ZIP_ER_OK;
    const QString reason = libzipFailed ? QString::fromUtf8(zip_strerror(m_archive)) : QString();
    qCWarning(lcZipWriter) << "zip write failed:" << what << reason;
    TavoError error = archiveError(reason.isEmpty() ? what : what + QStringLiteral(": ") + reason);
    discard();
    m_error = error;
    return m_error;
}

std::optional<TavoError> ZipWriter::claimName(const QString& name, bool isFolder, QString* path)
{
    if (const std::optional<QString> fault = zipEntryNameFault(name)) {
        return fail(QStringLiteral("Cannot add \"%1\" to the archive: %2.").arg(name, *fault));
    }
    const std::optional<ZipEntryName> checked = checkedZipEntryName(name);
    *path = checked->path;
    if (isFolder && m_folders.contains(*path)) {
        return std::nullopt; // a folder named twice is one folder
    }
    const QString key = zipEntryKey(*path);
    if (m_keys.contains(key)) {
        return fail(
            QStringLiteral("Cannot add \"%1\" to the archive: an entry of that name is already in it.").arg(name));
    }
    if (const std::optional<TavoError> error = addParents(*path)) {
        return error;
    }
    m_keys.insert(key);
    return std::nullopt;
}

std::optional<TavoError> ZipWriter::addParents(const QString& path)
{
    qsizetype slash = path.indexOf(u'/');
    while (slash > 0) {
        const QString parent = path.left(slash);
        if (!m_folders.contains(parent)) {
            if (m_keys.contains(zipEntryKey(parent))) {
                return fail(
                    QStringLiteral("Cannot add \"%1\" to the archive: \"%2\" is a file in it.").arg(path, parent));
            }
            if (zip_dir_add(m_archive, parent.toUtf8().constData(), ZIP_FL_ENC_UTF_8) < 0) {
                return fail(QStringLiteral("Cannot add the folder \"%1\" to the archive").arg(parent));
            }
            m_folders.insert(parent);
            m_keys.insert(zipEntryKey(parent));
        }
        slash = path.indexOf(u'/', slash + 1);
    }
    return std::nullopt;
}

std::optional<TavoError> ZipWriter::setCompression(qint64 index, Compression compression)
{
    const zip_int32_t method = compression == Compression::Store ? ZIP_CM_STORE : ZIP_CM_DEFLATE;
    if (zip_set_file_compression(m_archive, zip_uint64_t(index), method, 0) < 0) {
        return fail(QStringLiteral("Cannot set the compression of an archive entry"));
    }
    return std::nullopt;
}

std::optional<TavoError> ZipWriter::addFolder(const QString& name)
{
    if (const std::optional<TavoError> error = begin()) {
        return error;
    }
    QString path;
    if (const std::optional<TavoError> error = claimName(name, true, &path)) {
        return error;
    }
    if (m_folders.contains(path)) {
        return std::nullopt;
    }
    if (zip_dir_add(m_archive, path.toUtf8().constData(), ZIP_FL_ENC_UTF_8) < 0) {
        return fail(QStringLiteral("Cannot add the folder \"%1\" to the archive").arg(path));
    }
    m_folders.insert(path);
    return std::nullopt;
}

std::optional<TavoError> ZipWriter::addFile(const QString& diskPath, const QString& name, Compression compression)
{
    if (const std::optional<TavoError> error = begin()) {
        return error;
    }
    const QFileInfo info(diskPath);
    if (!info.isFile()) {
        return fail(QStringLiteral("Cannot add \"%1\" to the archive: it is not a readable file.").arg(diskPath));
    }
    // Zipping the archive into itself would never end well.
    const QString source = canonical(diskPath);
    if (source == canonical(m_target) || source == canonical(m_partial)) {
        return fail(QStringLiteral("Cannot add the archive %1 to itself.").arg(m_target));
    }
    if (name.endsWith(u'/')) {
        return fail(QStringLiteral("Cannot add \"%1\" to the archive: a file name cannot end with \"/\".").arg(name));
    }
    QString path;
    if (const std::optional<TavoError> error = claimName(name, false, &path)) {
        return error;
    }
    zip_source_t* zipSource = zip_source_file(m_archive, QFile::encodeName(diskPath).constData(), 0, -1);
    if (!zipSource) {
        return fail(QStringLiteral("Cannot read \"%1\" for the archive").arg(diskPath));
    }
    const zip_int64_t index = zip_file_add(m_archive, path.toUtf8().constData(), zipSource, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
        zip_source_free(zipSource);
        return fail(QStringLiteral("Cannot add \"%1\" to the archive").arg(path));
    }
    return setCompression(index, compression);
}

std::optional<TavoError> ZipWriter::addBytes(const QByteArray& bytes, const QString& name, Compression compression)
{
    if (const std::optional<TavoError> error = begin()) {
        return error;
    }
    if (name.endsWith(u'/')) {
        return fail(QStringLiteral("Cannot add \"%1\" to the archive: a file name cannot end with \"/\".").arg(name));
    }
    QString path;
    if (const std::optional<TavoError> error = claimName(name, false, &path)) {
        return error;
    }
    m_buffers.append(bytes);
    const QByteArray& kept = m_buffers.last();
    zip_source_t* zipSource = zip_source_buffer(m_archive, kept.constData(), zip_uint64_t(kept.size()), 0);
    if (!zipSource) {
        return fail(QStringLiteral("Cannot add \"%1\" to the archive").arg(path));
    }
    const zip_int64_t index = zip_file_add(m_archive, path.toUtf8().constData(), zipSource, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
        zip_source_free(zipSource);
        return fail(QStringLiteral("Cannot add \"%1\" to the archive").arg(path));
    }
    return setCompression(index, compression);
}

std::optional<TavoError> ZipWriter::commit()
{
    if (const std::optional<TavoError> error = begin()) {
        return error;
    }
    if (zip_close(m_archive) < 0) {
        return fail(QStringLiteral("Could not write the archive %1").arg(m_target));
    }
    m_archive = nullptr;
    m_buffers.clear();
    // libzip writes nothing for an archive without entries; an empty archive is still a file.
    if (!QFileInfo::exists(m_partial)) {
        QFile empty(m_partial);
        static const char endOfCentralDirectory[22] = {'P', 'K', 5, 6};
        if (!empty.open(QIODevice::WriteOnly) || empty.write(endOfCentralDirectory, 22) != 22) {
            return fail(QStringLiteral("Could not write the archive %1").arg(m_target));
        }
    }
    // POSIX rename replaces an existing target in one step, so readers see the old or the new.
    if (std::rename(QFile::encodeName(m_partial).constData(), QFile::encodeName(m_target).constData()) != 0) {
        return fail(QStringLiteral("Could not move the archive into place at %1").arg(m_target));
    }
    m_finished = true;
    return std::nullopt;
}

void ZipWriter::discard()
{
    if (m_archive) {
        zip_discard(m_archive);
        m_archive = nullptr;
    }
    m_buffers.clear();
    QFile::remove(m_partial);
    m_finished = true;
}

} // namespace tavo
