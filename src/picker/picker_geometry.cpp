#include "picker/picker_geometry.h"

#include <QtMath>

namespace tavo {

QSizeF pickerPopupSize(const QSizeF& visible, double areaPercent, double aspect)
{
    const double share = qBound(0.08, areaPercent, 0.25);
    const double area = qMax(1.0, visible.width() * visible.height() * share);
    const double width = qMin(qMin(qSqrt(area * aspect), visible.width()), visible.height() * aspect);
    const double height = qMin(width / aspect, visible.height());
    return {width, height};
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
