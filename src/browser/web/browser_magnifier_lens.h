#pragma once

#include <QImage>
#include <QPointF>
#include <QRect>
#include <QSizeF>
#include <QTimer>
#include <QWidget>

#include <functional>

namespace tavo {

class Defaults;

// The lens's settings, stored as numbers, and their ranges.
struct MagnifierSettings
{
    double width = 115;
    double height = 190;
    double power = 2.5;

    static MagnifierSettings load(const Defaults& defaults);
    void store(Defaults& defaults) const;
    // Each value within its range.
    MagnifierSettings clamped() const;
};

// The part of a snapshot of `imageSize` pixels, taken of a canvas of `canvas` points, that a lens
// of `lensWidth` × `lensHeight` points at `power` shows around `center`: never outside the image,
// rounded outward to whole pixels.
QRect magnifierSourceRect(QSizeF canvas, QSize imageSize, QPointF center, double lensWidth, double lensHeight,
                          double power);
// The lens's centre kept so that the whole lens stays on the canvas.
QPointF clampedLensCenter(QPointF center, QSizeF canvas, double lensWidth, double lensHeight);

// A movable lens over the page that magnifies a snapshot of it, taken every 0.55 s (at most one
// at a time), not the live page. Its parent is the canvas.
class BrowserMagnifierLens : public QWidget
{
    Q_OBJECT

public:
    using CurrentPage = std::function<QWidget*()>;
    BrowserMagnifierLens(Defaults& defaults, CurrentPage currentPage, QWidget* canvas);

    void setSettings(const MagnifierSettings& settings);
    const MagnifierSettings& settings() const { return m_settings; }
    QPointF center() const { return m_center; }
    const QImage& snapshot() const { return m_snapshot; }

    // Shown while the switch is on and the current tab shows a page.
    void setWanted(bool wanted);
    void follow();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void tick();
    void capture();
    void place();

    Defaults& m_defaults;
    CurrentPage m_currentPage;
    MagnifierSettings m_settings;
    QImage m_snapshot;
    QSizeF m_snapshotCanvas;
    QPointF m_center;
    bool m_positioned = false;
    bool m_capturing = false;
    bool m_wanted = false;
    QPointF m_pressAt;
    QPointF m_pressCenter;
    bool m_dragging = false;
    QTimer m_timer;
};

} // namespace tavo

namespace tavo {

// The lens's controls for the zoom popover: the switch "Show movable magnifier" and the size and
// power under "Magnifying lens size · vertical reel".
QWidget* makeMagnifierControls(BrowserMagnifierLens* lens, QWidget* parent = nullptr);

} // namespace tavo
