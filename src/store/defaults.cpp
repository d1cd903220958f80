#include "store/defaults.h"

#include "store/store_files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLockFile>
#include <QStandardPaths>

#include <sys/stat.h>

namespace tavo {

namespace {

const QString bytesTag = QStringLiteral("$bytes");

// Long enough for a slow disk, short enough that a crashed writer's lock never blocks a user.
constexpr int lockTimeoutMs = 5000;

QString lockPathFor(const QString& filePath)
{
    return filePath + QStringLiteral(".lock");
}

} // namespace

Defaults::Defaults(const QString& filePath, QObject* parent)
    : QObject(parent)
    , m_filePath(filePath)
{
    m_values = readFile();
}

Defaults::~Defaults() = default;

QString Defaults::defaultFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/Tavo/defaults.json");
}

Defaults::FileIdentity Defaults::identityOf(const QString& path)
{
    struct stat info
    {
    };
    if (::stat(QFile::encodeName(path).constData(), &info) != 0) {
        return {};
    }
    return {qint64(info.st_dev), qint64(info.st_ino), qint64(info.st_size),
            qint64(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec};
}

QJsonObject Defaults::readFile()
{
    // Taken before the read: a write landing meanwhile shows as a change on the next look.
    const FileIdentity identity = identityOf(m_filePath);
    const JsonRead read = readJsonFile(m_filePath);
    if (read.status == ReadStatus::Ok && read.document.isObject()) {
        m_known = identity;
        return read.document.object();
    }
    m_known = {};
    if (read.status != ReadStatus::Missing) {
        m_lostUnreadableFile = true;
    }
    return {};
}

bool Defaults::contains(const QString& key) const
{
    return m_values.contains(key);
}

QJsonValue Defaults::value(const QString& key) const
{
    return m_values.value(key);
}

QStringList Defaults::keys() const
{
    return m_values.keys();
}

std::optional<QString> Defaults::string(const QString& key) const
{
    const QJsonValue v = m_values.value(key);
    return v.isString() ? std::optional<QString>(v.toString()) : std::nullopt;
}

std::optional<bool> Defaults::boolean(const QString& key) const
{
    const QJsonValue v = m_values.value(key);
    return v.isBool() ? std::optional<bool>(v.toBool()) : std::nullopt;
}

std::optional<double> Defaults::number(const QString& key) const
{
    const QJsonValue v = m_values.value(key);
    return v.isDouble() ? std::optional<double>(v.toDouble()) : std::nullopt;
}

std::optional<QStringList> Defaults::stringList(const QString& key) const
{
    const QJsonValue v = m_values.value(key);
    if (!v.isArray()) {
        return std::nullopt;
    }
    QStringList list;
    for (const QJsonValue& item : v.toArray()) {
        if (!item.isString()) {
            return std::nullopt;
        }
        list.append(item.toString());
    }
    return list;
}

std::optional<QByteArray> Defaults::bytes(const QString& key) const
{
    const QJsonValue v = m_values.value(key);
    if (!v.isObject()) {
        return std::nullopt;
    }
    const QJsonObject object = v.toObject();
    const QJsonValue encoded = object.value(bytesTag);
    if (object.size() != 1 || !encoded.isString()) {
        return std::nullopt;
    }
    auto decoded =
        QByteArray::fromBase64Encoding(encoded.toString().toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    return decoded ? std::optional<QByteArray>(*decoded) : std::nullopt;
}

QJsonValue Defaults::bytesValue(const QByteArray& bytes)
{
    return QJsonObject{{bytesTag, QString::fromLatin1(bytes.toBase64())}};
}

void Defaults::setValues(const QList<QPair<QString, QJsonValue>>& values)
{
    updateAll([&](QJsonObject& all) {
        for (const auto& [key, value] : values) {
            if (value.isUndefined()) {
                all.remove(key);
            } else {
                all.insert(key, value);
            }
        }
    });
}

void Defaults::setValue(const QString& key, const QJsonValue& value)
{
    if (value.isUndefined()) {
        remove(key);
        return;
    }
    write(key, value);
}

void Defaults::setStringList(const QString& key, const QStringList& value)
{
    write(key, QJsonArray::fromStringList(value));
}

void Defaults::remove(const QString& key)
{
    write(key, std::nullopt);
}

void Defaults::write(const QString& key, const std::optional<QJsonValue>& value)
{
    update(key, [&](const QJsonValue&) { return value; });
}

double Defaults::addToNumber(const QString& key, double amount)
{
    return update(key,
                  [&](const QJsonValue& current) -> std::optional<QJsonValue> {
                      return QJsonValue(current.toDouble(0) + amount);
                  })
        .toDouble();
}

QJsonValue Defaults::update(const QString& key,
                            const std::function<std::optional<QJsonValue>(const QJsonValue&)>& change)
{
    std::optional<QJsonValue> value;
    updateAll([&](QJsonObject& all) {
        value = change(all.value(key));
        if (value) {
            all.insert(key, *value);
        } else {
            all.remove(key);
        }
    });
    return value.value_or(QJsonValue());
}

void Defaults::updateAll(const std::function<void(QJsonObject&)>& change)
{
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    QLockFile lock(lockPathFor(m_filePath));
    lock.setStaleLockTime(lockTimeoutMs * 2);
    const bool locked = lock.tryLock(lockTimeoutMs);

    // Merge into what is on disk now, so keys another process wrote since our last read survive.
    // Parsing the file is most of a write's time: a file that is still the one we last read or
    // wrote is skipped, as it holds exactly our values.
    const FileIdentity onDisk = identityOf(m_filePath);
    if (onDisk.inode < 0 || onDisk != m_known) {
        const JsonRead read = readJsonFile(m_filePath);
        if (read.status == ReadStatus::Ok && read.document.isObject()) {
            m_values = read.document.object();
        } else if (read.status == ReadStatus::Unreadable) {
            m_lostUnreadableFile = true;
            keepUnreadableAside(m_filePath);
        }
    }
    change(m_values);
    // Only a file written whole under the lock is known; otherwise the next write reads again.
    const bool written = writeJsonAtomically(m_filePath, QJsonDocument(m_values));
    m_known = written && locked ? identityOf(m_filePath) : FileIdentity();
    if (locked) {
        lock.unlock();
    }
    emit valuesChanged();
}

void Defaults::reload()
{
    const FileIdentity identity = identityOf(m_filePath);
    if (identity.inode >= 0 && identity == m_known) {
        return; // our own write, or nothing new
    }
    const JsonRead read = readJsonFile(m_filePath);
    if (read.status == ReadStatus::Unreadable) {
        // Keep what we know; the file is set aside when we next write.
        m_lostUnreadableFile = true;
        m_known = {};
        return;
    }
    m_known = read.status == ReadStatus::Ok ? identity : FileIdentity();
    QJsonObject values = read.status == ReadStatus::Ok ? read.document.object() : QJsonObject();
    if (values != m_values) {
        m_values = std::move(values);
        emit valuesChanged();
    }
}

void Defaults::watchForChanges()
{
    if (m_watcher) {
        return;
    }
    const QString folder = QFileInfo(m_filePath).absolutePath();
    QDir().mkpath(folder);
    m_watcher = new QFileSystemWatcher(this);
    // The folder, not the file: an atomic write replaces the file by rename, which ends a file watch.
    m_watcher->addPath(folder);
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, this, &Defaults::reload);
}

} // namespace tavo
