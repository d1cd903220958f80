#pragma once

#include <QPointF>
#include <QRectF>
#include <QSizeF>

#include <optional>

namespace tavo {

inline constexpr double pickerAspect = 1.55; // the popup is 1.55 times as wide as it is high
inline constexpr double defaultPickerAreaPercent = 0.22;

// The popup's size for a visible screen area: a share of that area (0.08 to 0.25), never wider
// or taller than the screen.
QSizeF pickerPopupSize(const QSizeF& visible, double areaPercent, double aspect = pickerAspect);

// Where the popup's top-left corner goes in `frame`: a stored place, pulled back inside the frame,
// or centred with its top 20 points below the frame's top.
QPointF pickerOrigin(const QRectF& frame, const QSizeF& size, const std::optional<QPointF>& stored);

} // namespace tavo
