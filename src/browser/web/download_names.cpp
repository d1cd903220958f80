#include "browser/web/download_names.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace tavo {

namespace {

constexpr qsizetype maximumNameBytes = 255;

// The longest prefix of `text` that fits `bytes` bytes of UTF-8, never splitting a character.
QString cutToBytes(const QString& text, qsizetype bytes)
{
    qsizetype used = 0;
    qsizetype end = 0;
    while (end < text.size()) {
        const bool pair = text.at(end).isHighSurrogate() && end + 1 < text.size() && text.at(end + 1).isLowSurrogate();
        const qsizetype units = pair ? 2 : 1;
        const qsizetype size = text.mid(end, units).toUtf8().size();
        if (used + size > bytes) {
            break;
        }
        used += size;
        end += units;
    }
    return text.left(end);
}

bool taken(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

} // namespace

QString downloadFileName(const QString& suggested)
{
    QString name = suggested.section(u'/', -1);
    name.removeIf([](QChar c) { return c.isNull() || c.category() == QChar::Other_Control; });
    name = cutToBytes(name, maximumNameBytes);
    if (name.isEmpty() || name == QStringLiteral(".") || name == QStringLiteral("..")) {
        return QStringLiteral("download");
    }
    return name;
}

QString uniqueDownloadPath(const QString& folder, const QString& name)
{
    const QDir dir(folder);
    QString candidate = name;
    for (int n = 2; taken(dir.filePath(candidate)); ++n) {
        // A leading point starts a hidden name, not an extension.
        const qsizetype point = candidate.lastIndexOf(u'.');
        const bool hasExtension = point > 0;
        const QString stem = hasExtension ? candidate.left(point) : candidate;
        const QString ending = QStringLiteral(" (%1)").arg(n) + (hasExtension ? candidate.mid(point) : QString());
        candidate = cutToBytes(stem, maximumNameBytes - ending.toUtf8().size()) + ending;
    }
    return dir.filePath(candidate);
}

QString downloadFolder()
{
    const QString desktop = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    if (!desktop.isEmpty() && QFileInfo(desktop).isDir()) {
        return desktop;
    }
    return QDir::homePath();
}

} // namespace tavo
