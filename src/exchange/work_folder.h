#pragma once

#include <QString>

namespace tavo {

// A private folder "<prefix>-<UUID>" in the temporary folder for one archive's work, removed with
// everything in it when this goes out of scope, on every path.
class WorkFolder
{
public:
    explicit WorkFolder(const QString& prefix);
    ~WorkFolder();
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    // Empty when the folder could not be made.
    const QString& path() const { return m_path; }
    bool isValid() const { return !m_path.isEmpty(); }

private:
    QString m_path;
};

} // namespace tavo
