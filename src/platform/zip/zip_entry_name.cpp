#include "platform/zip/zip_entry_name.h"

#include <QStringList>

namespace tavo {

std::optional<QString> zipEntryNameFault(const QString& raw)
{
    if (raw.isEmpty()) {
        return QStringLiteral("an entry has no name");
    }
    if (raw.contains(u'\\')) {
        return QStringLiteral("an entry name holds a backslash");
    }
    if (raw.startsWith(u'/') || (raw.size() >= 2 && raw[1] == u':' && raw[0].isLetter())) {
        return QStringLiteral("an entry name is absolute");
    }
    if (raw.contains(QChar(0))) {
        return QStringLiteral("an entry name holds a NUL character");
    }
    QString body = raw;
    if (body.endsWith(u'/')) {
        body.chop(1);
    }
    const QStringList components = body.split(u'/');
    for (const QString& component : components) {
        if (component.isEmpty()) {
            return QStringLiteral("an entry name has an empty component");
        }
        if (component == QLatin1StringView("..")) {
            return QStringLiteral("an entry name leaves its folder (\"..\")");
        }
        if (component == QLatin1StringView(".")) {
            return QStringLiteral("an entry name has a \".\" component");
        }
    }
    return std::nullopt;
}

std::optional<ZipEntryName> checkedZipEntryName(const QString& raw)
{
    if (zipEntryNameFault(raw)) {
        return std::nullopt;
    }
    ZipEntryName name{raw.normalized(QString::NormalizationForm_C), raw.endsWith(u'/')};
    if (name.isFolder) {
        name.path.chop(1);
    }
    return name;
}

QString zipEntryKey(const QString& path)
{
    return path.normalized(QString::NormalizationForm_C).toCaseFolded();
}

} // namespace tavo
