#include "exchange/work_folder.h"

#include <QDir>
#include <QFile>
#include <QUuid>

namespace tavo {

WorkFolder::WorkFolder(const QString& prefix)
{
    const QString path =
        QDir(QDir::tempPath())
            .filePath(prefix + QLatin1Char('-') + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
    // Only the user may look inside: archives carry the user's shortcuts.
    if (QDir().mkpath(path) && QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner)) {
        m_path = path;
    }
}

WorkFolder::~WorkFolder()
{
    if (!m_path.isEmpty()) {
        QDir(m_path).removeRecursively();
    }
}

} // namespace tavo
