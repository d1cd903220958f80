#include "store/store_files.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace tavo {

JsonRead readJsonFile(const QString& path)
{
    QFile file(path);
    if (!file.exists()) {
        return {ReadStatus::Missing, {}};
    }
    if (!file.open(QIODevice::ReadOnly)) {
        return {ReadStatus::Unreadable, {}};
    }
    QJsonParseError error;
    QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError) {
        return {ReadStatus::Unreadable, {}};
    }
    return {ReadStatus::Ok, std::move(document)};
}

bool writeFileAtomically(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

bool writeJsonAtomically(const QString& path, const QJsonDocument& document)
{
    return writeFileAtomically(path, document.toJson(QJsonDocument::Compact));
}

std::optional<QString> keepUnreadableAside(const QString& path)
{
    if (readJsonFile(path).status != ReadStatus::Unreadable) {
        return std::nullopt;
    }
    return keepAside(path);
}

std::optional<QString> keepAside(const QString& path)
{
    if (!QFileInfo::exists(path)) {
        return std::nullopt;
    }
    const QString stamp = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz"));
    QString aside = path + QStringLiteral(".unreadable-") + stamp;
    for (int n = 2; QFileInfo::exists(aside); ++n) {
        aside = path + QStringLiteral(".unreadable-") + stamp + u'-' + QString::number(n);
    }
    // A copy rather than a rename: the original stays in place until the atomic write replaces it.
    if (!QFile::copy(path, aside)) {
        return std::nullopt;
    }
    return aside;
}

FileStamp stampOf(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        return {};
    }
    return {info.size(), info.lastModified().toMSecsSinceEpoch()};
}

BackgroundWriter::BackgroundWriter()
    : m_thread([this] { run(); })
{
}

BackgroundWriter::~BackgroundWriter()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void BackgroundWriter::post(std::function<void()> job)
{
    {
        std::lock_guard lock(m_mutex);
        m_jobs.push_back(std::move(job));
    }
    m_wake.notify_one();
}

void BackgroundWriter::waitUntilIdle()
{
    std::unique_lock lock(m_mutex);
    m_idle.wait(lock, [this] { return m_jobs.empty() && !m_running; });
}

void BackgroundWriter::run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
        if (m_jobs.empty()) {
            return; // stopping, and nothing left unwritten
        }
        std::function<void()> job = std::move(m_jobs.front());
        m_jobs.pop_front();
        m_running = true;
        lock.unlock();
        job();
        job = nullptr; // what the job held goes with it, outside the lock
        lock.lock();
        m_running = false;
        if (m_jobs.empty()) {
            m_idle.notify_all();
        }
    }
}

} // namespace tavo
