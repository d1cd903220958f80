#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QString>

#include <optional>

namespace tavo {

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

} // namespace tavo
