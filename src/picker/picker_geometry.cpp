#include "picker/picker_geometry.h"

#include <QtMath>

#include <algorithm>

namespace tavo {

QSizeF pickerPopupSize(const QSizeF& visible, double areaPercent, double aspect)
{
    const double share = qBound(0.08, areaPercent, 0.25);
    const double area = qMax(1.0, visible.width() * visible.height() * share);
    const double width = qMin(qMin(qSqrt(area * aspect), visible.width()), visible.height() * aspect);
    const double height = qMin(width / aspect, visible.height());
    return {width, height};
}

QList<int> pickerAreaPercents(double storedShare)
{
    QList<int> percents{8, 10, 12, 15, 18, 22, 25};
    const int stored = qRound(qBound(0.08, storedShare, 0.25) * 100);
    if (!percents.contains(stored)) {
        percents.append(stored);
        std::sort(percents.begin(), percents.end());
    }
    return percents;
}

QPointF pickerOrigin(const QRectF& frame, const QSizeF& size, const std::optional<QPointF>& stored)
{
    if (stored) {
        // qBound would assert on a frame narrower than the popup; the frame's edge wins then.
        const double x = qMax(frame.left(), qMin(stored->x(), frame.right() - size.width()));
        const double y = qMax(frame.top(), qMin(stored->y(), frame.bottom() - size.height()));
        return {x, y};
    }
    return {frame.center().x() - size.width() / 2, frame.top() + 20};
}

} // namespace tavo
