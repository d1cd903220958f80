#pragma once

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QString>

namespace tavo {

// Where files made for the user go and where file dialogs start: the Desktop, or home on a
// desktop without one. Never created: a folder the user removed stays removed.
inline QString desktopFolder()
{
    const QString desktop = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    return !desktop.isEmpty() && QFileInfo(desktop).isDir() ? desktop : QDir::homePath();
}

} // namespace tavo
