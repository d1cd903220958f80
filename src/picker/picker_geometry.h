#pragma once

#include <QList>
#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <QString>

#include <optional>

namespace tavo {

inline constexpr double pickerAspect = 1.55; // the popup is 1.55 times as wide as it is high
inline constexpr double defaultPickerAreaPercent = 0.22;
inline constexpr double defaultPickerTransparency = 0.1;
inline constexpr int maximumPickerTransparencyPercent = 60; // beyond it the rows are hard to read
// Settings of the popup, shared by the popup's own controls and the window's Settings.
inline const QString pickerAreaKey = QStringLiteral("tavoPickerAreaPercent");
inline const QString pickerTransparencyKey = QStringLiteral("tavoPickerTransparency");

// The shares of the screen offered for the popup, in percent, with `storedShare` among them when
// it was set to another value elsewhere.
QList<int> pickerAreaPercents(double storedShare);

// The popup's size for a visible screen area: a share of that area (0.08 to 0.25), never wider
// or taller than the screen.
QSizeF pickerPopupSize(const QSizeF& visible, double areaPercent, double aspect = pickerAspect);

// Where the popup's top-left corner goes in `frame`: a stored place, pulled back inside the frame,
// or centred with its top 20 points below the frame's top.
QPointF pickerOrigin(const QRectF& frame, const QSizeF& size, const std::optional<QPointF>& stored);

} // namespace tavo
