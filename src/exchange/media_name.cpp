#include "exchange/media_name.h"

namespace tavo {

QString reducedMediaName(const QString& named)
{
    QString name = named.mid(qMax(named.lastIndexOf(QLatin1Char('/')), named.lastIndexOf(QLatin1Char('\\'))) + 1);
    name = name.normalized(QString::NormalizationForm_C);
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String("..")) {
        return {};
    }
    while (name.toUtf8().size() > 255) {
        name.chop(name.size() >= 2 && name.at(name.size() - 1).isLowSurrogate() ? 2 : 1);
    }
    return name;
}

} // namespace tavo
