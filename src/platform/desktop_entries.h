#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace tavo {

// An installed application as its XDG desktop entry describes it.
struct DesktopEntry
{
    QString id;   // the desktop-file id: the path below "applications/" with "/" made "-"
    QString name; // Name= of the [Desktop Entry] group
    QString path; // the entry's absolute file path
    bool noDisplay = false;
};

// The "applications" folders in the order that decides which entry of an id counts:
// $XDG_DATA_HOME (else ~/.local/share), then each of $XDG_DATA_DIRS (else /usr/local/share and
// /usr/share).
QStringList desktopEntryFolders();

// Every installed application entry (Type=Application), one per id, the first folder winning.
// Entries marked Hidden=true count as removed and are left out.
QList<DesktopEntry> installedDesktopEntries();

} // namespace tavo
