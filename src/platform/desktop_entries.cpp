#include "platform/desktop_entries.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <optional>

namespace tavo {

namespace {

struct ParsedEntry
{
    QString name;
    QString type;
    bool hidden = false;
    bool noDisplay = false;
};

// Reads only the keys needed from the [Desktop Entry] group; localised names ("Name[de]") are
// not the entry's own name.
std::optional<ParsedEntry> parseEntry(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return std::nullopt;
    }
    ParsedEntry entry;
    bool inMainGroup = false;
    bool sawMainGroup = false;
    // A desktop entry is a few kilobytes; a huge file here is not one.
    while (!file.atEnd() && file.pos() < 1024 * 1024) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.isEmpty() || line.startsWith(u'#')) {
            continue;
        }
        if (line.startsWith(u'[')) {
            inMainGroup = line == QLatin1StringView("[Desktop Entry]");
            sawMainGroup = sawMainGroup || inMainGroup;
            continue;
        }
        if (!inMainGroup) {
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (equals <= 0) {
            continue;
        }
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        if (key == QLatin1StringView("Name")) {
            entry.name = value;
        } else if (key == QLatin1StringView("Type")) {
            entry.type = value;
        } else if (key == QLatin1StringView("Hidden")) {
            entry.hidden = value == QLatin1StringView("true");
        } else if (key == QLatin1StringView("NoDisplay")) {
            entry.noDisplay = value == QLatin1StringView("true");
        }
    }
    if (!sawMainGroup) {
        return std::nullopt;
    }
    return entry;
}

QStringList dataFolders()
{
    QStringList folders;
    const QString home = qEnvironmentVariable("XDG_DATA_HOME");
    folders.append(home.isEmpty() ? QDir::homePath() + QStringLiteral("/.local/share") : home);
    const QString dirs = qEnvironmentVariable("XDG_DATA_DIRS");
    const QStringList others = dirs.isEmpty()
                                   ? QStringList{QStringLiteral("/usr/local/share"), QStringLiteral("/usr/share")}
                                   : dirs.split(u':', Qt::SkipEmptyParts);
    folders.append(others);
    return folders;
}

} // namespace

QStringList desktopEntryFolders()
{
    QStringList folders;
    for (const QString& data : dataFolders()) {
        // Relative entries in the variables are invalid and ignored.
        if (QDir::isAbsolutePath(data)) {
            const QString folder = QDir::cleanPath(data + QStringLiteral("/applications"));
            if (!folders.contains(folder)) {
                folders.append(folder);
            }
        }
    }
    return folders;
}

QList<DesktopEntry> installedDesktopEntries()
{
    QList<DesktopEntry> entries;
    QSet<QString> seen;
    for (const QString& folder : desktopEntryFolders()) {
        QDirIterator it(folder, {QStringLiteral("*.desktop")}, QDir::Files, QDirIterator::Subdirectories);
        QStringList paths;
        while (it.hasNext()) {
            paths.append(it.next());
        }
        paths.sort();
        for (const QString& path : std::as_const(paths)) {
            QString id = QDir(folder).relativeFilePath(path);
            id.replace(u'/', u'-');
            if (seen.contains(id)) {
                continue;
            }
            // An id is decided by its first entry, even one that hides it.
            seen.insert(id);
            const std::optional<ParsedEntry> parsed = parseEntry(path);
            if (!parsed || parsed->hidden || parsed->type != QLatin1StringView("Application")) {
                continue;
            }
            entries.append(DesktopEntry{id, parsed->name, QFileInfo(path).absoluteFilePath(), parsed->noDisplay});
        }
    }
    return entries;
}

} // namespace tavo
