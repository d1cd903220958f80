#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QString>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace tavo {

// The names in a profile folder, which backups carry as they are.
namespace ProfileFiles {
inline const QString clips = QStringLiteral("clips.json");
inline const QString collections = QStringLiteral("collections.json");
inline const QString definitions = QStringLiteral("collection-definitions.json");
inline const QString records = QStringLiteral("collection-records.json");
inline const QString attachments = QStringLiteral("Attachments");
} // namespace ProfileFiles

// The outcome of reading one of the store's JSON files.
enum class ReadStatus
{
    Ok,
    Missing,
    Unreadable
};

struct JsonRead
{
    ReadStatus status = ReadStatus::Missing;
    QJsonDocument document;
};

// Reads and parses a JSON file. A file that exists but cannot be read or parsed is Unreadable.
JsonRead readJsonFile(const QString& path);

// Writes `bytes` to `path` through a temporary file and a rename, so a crash leaves either the
// former file or the new one, never a mix. Creates the folder when needed.
bool writeFileAtomically(const QString& path, const QByteArray& bytes);
bool writeJsonAtomically(const QString& path, const QJsonDocument& document);

// Before the store writes over a file it could not read or decode, the file is kept beside it as
// "<name>.unreadable-<UTC time>" so the user's data can still be recovered by hand. Returns the
// path it was kept under.
std::optional<QString> keepAside(const QString& path);

// keepAside when the file exists and is not valid JSON.
std::optional<QString> keepUnreadableAside(const QString& path);

// What a file looked like: enough to tell that another process wrote it since.
struct FileStamp
{
    qint64 size = -1;
    qint64 modified = -1;
    bool exists() const { return size >= 0; }
    bool operator==(const FileStamp&) const = default;
};

// The stamp of `path` now; a missing file has the default stamp.
FileStamp stampOf(const QString& path);

// One thread that runs file jobs in the order they were posted, so that writes of one file never
// overtake each other and the thread that posts them never waits on the disk.
class BackgroundWriter
{
public:
    BackgroundWriter();
    ~BackgroundWriter(); // runs what was posted, then ends the thread
    BackgroundWriter(const BackgroundWriter&) = delete;
    BackgroundWriter& operator=(const BackgroundWriter&) = delete;

    void post(std::function<void()> job);
    // Returns once every job posted so far has run.
    void waitUntilIdle();

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_idle;
    std::deque<std::function<void()>> m_jobs;
    bool m_running = false; // a job is being run outside the lock
    bool m_stopping = false;
    std::thread m_thread;
};

} // namespace tavo
