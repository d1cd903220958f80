#include "browser/web/browser_magnifier_lens.h"

#include "browser/browser_tabs.h"
#include "shell/ui/design.h"
#include "store/defaults.h"

#include <QEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace tavo {

namespace {
constexpr int snapshotIntervalMs = 550;
constexpr double dragDistance = 10;
} // namespace

MagnifierSettings MagnifierSettings::load(const Defaults& defaults)
{
    MagnifierSettings settings;
    settings.width = defaults.number(BrowserKeys::magnifierWidth).value_or(settings.width);
    settings.height = defaults.number(BrowserKeys::magnifierHeight).value_or(settings.height);
    settings.power = defaults.number(BrowserKeys::magnifierPower).value_or(settings.power);
    return settings.clamped();
}

void MagnifierSettings::store(Defaults& defaults) const
{
    defaults.setValues({{BrowserKeys::magnifierWidth, width},
                        {BrowserKeys::magnifierHeight, height},
                        {BrowserKeys::magnifierPower, power}});
}

MagnifierSettings MagnifierSettings::clamped() const
{
    return {std::clamp(width, 80.0, 190.0), std::clamp(height, 130.0, 330.0), std::clamp(power, 1.5, 4.0)};
}

QRect magnifierSourceRect(QSizeF canvas, QSize imageSize, QPointF center, double lensWidth, double lensHeight,
                          double power)
{
    if (canvas.width() <= 0 || canvas.height() <= 0 || imageSize.isEmpty() || power <= 0) {
        return {};
    }
    const double iw = imageSize.width();
    const double ih = imageSize.height();
    const double sx = iw / canvas.width();
    const double sy = ih / canvas.height();
    const double w = std::min(iw, sx * lensWidth / power);
    const double h = std::min(ih, sy * lensHeight / power);
    const double x = std::clamp(sx * center.x() - w * 0.5, 0.0, iw - w);
    const double y = std::clamp(sy * center.y() - h * 0.5, 0.0, ih - h);
    const int left = int(std::floor(x));
    const int top = int(std::floor(y));
    const int right = std::min(int(iw), int(std::ceil(x + w)));
    const int bottom = std::min(int(ih), int(std::ceil(y + h)));
    return QRect(QPoint(left, top), QPoint(right - 1, bottom - 1));
}

QPointF clampedLensCenter(QPointF center, QSizeF canvas, double lensWidth, double lensHeight)
{
    // A canvas narrower than the lens keeps the lens at its middle.
    const double x = std::clamp(center.x(), lensWidth / 2, std::max(lensWidth / 2, canvas.width() - lensWidth / 2));
    const double y = std::clamp(center.y(), lensHeight / 2, std::max(lensHeight / 2, canvas.height() - lensHeight / 2));
    return {x, y};
}

BrowserMagnifierLens::BrowserMagnifierLens(Defaults& defaults, CurrentPage currentPage, QWidget* canvas)
    : QWidget(canvas)
    , m_defaults(defaults)
    , m_currentPage(std::move(currentPage))
    , m_settings(MagnifierSettings::load(defaults))
{
    design::name(this, QStringLiteral("Drag the reel lens over the page"));
    setCursor(Qt::OpenHandCursor);
    canvas->installEventFilter(this);
    m_timer.setInterval(snapshotIntervalMs);
    connect(&m_timer, &QTimer::timeout, this, &BrowserMagnifierLens::tick);
    hide();
}

void BrowserMagnifierLens::setSettings(const MagnifierSettings& settings)
{
    m_settings = settings.clamped();
    m_settings.store(m_defaults);
    place();
    update();
}

void BrowserMagnifierLens::setWanted(bool wanted)
{
    m_wanted = wanted;
    follow();
}

void BrowserMagnifierLens::follow()
{
    const bool shown = m_wanted && m_currentPage() != nullptr;
    if (shown) {
        // A page shown later lies above the lens unless it rises again.
        raise();
    }
    if (shown == isVisible()) {
        return;
    }
    setVisible(shown);
    if (shown) {
        tick();
        m_timer.start();
    } else {
        m_timer.stop();
    }
}

void BrowserMagnifierLens::tick()
{
    const QSizeF canvas = parentWidget()->size();
    if (!m_positioned) {
        m_center = QPointF(canvas.width() * 0.52, canvas.height() * 0.48);
        m_positioned = true;
    }
    place();
    capture();
}

void BrowserMagnifierLens::capture()
{
    QWidget* page = m_currentPage();
    if (m_capturing || !page || page->width() <= 0 || page->height() <= 0) {
        return;
    }
    m_capturing = true;
    // The lens is drawn over the page, not into it: the page's own rendering is what it shows.
    const QImage image = page->grab().toImage();
    if (!image.isNull()) {
        m_snapshot = image;
        m_snapshotCanvas = page->size();
    }
    m_capturing = false;
    update();
}

void BrowserMagnifierLens::place()
{
    const QSizeF canvas = parentWidget()->size();
    m_center = clampedLensCenter(m_center, canvas, m_settings.width, m_settings.height);
    setGeometry(QRectF(m_center.x() - m_settings.width / 2, m_center.y() - m_settings.height / 2, m_settings.width,
                       m_settings.height)
                    .toAlignedRect());
}

void BrowserMagnifierLens::paintEvent(QPaintEvent* event)
{
    Q_UNUSED(event);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF frame = QRectF(rect()).adjusted(1, 1, -1, -1);
    QPainterPath shape;
    shape.addRoundedRect(frame, 12, 12);
    painter.fillPath(shape, palette().base());
    if (!m_snapshot.isNull()) {
        const QRect source = magnifierSourceRect(m_snapshotCanvas, m_snapshot.size(), m_center, m_settings.width,
                                                 m_settings.height, m_settings.power);
        painter.save();
        painter.setClipPath(shape);
        painter.drawImage(frame, m_snapshot, source);
        painter.restore();
    }
    painter.setPen(QPen(palette().highlight(), 3));
    painter.drawPath(shape);

    const QString label = QStringLiteral("DRAG LENS · %1×").arg(m_settings.power, 0, 'f', 1);
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.8);
    small.setBold(true);
    painter.setFont(small);
    const QRectF badge =
        QRectF(0, 0, painter.fontMetrics().horizontalAdvance(label) + 12, painter.fontMetrics().height() + 4)
            .translated(frame.center().x(), frame.bottom() - painter.fontMetrics().height() - 10)
            .translated(-(painter.fontMetrics().horizontalAdvance(label) + 12) / 2.0, 0);
    QPainterPath pill;
    pill.addRoundedRect(badge, badge.height() / 2, badge.height() / 2);
    painter.fillPath(pill, palette().highlight());
    painter.setPen(palette().highlightedText().color());
    painter.drawText(badge, Qt::AlignCenter, label);
}

void BrowserMagnifierLens::mousePressEvent(QMouseEvent* event)
{
    m_pressAt = event->globalPosition();
    m_pressCenter = m_center;
    m_dragging = false;
}

void BrowserMagnifierLens::mouseMoveEvent(QMouseEvent* event)
{
    const QPointF moved = event->globalPosition() - m_pressAt;
    if (!m_dragging && std::hypot(moved.x(), moved.y()) < dragDistance) {
        return;
    }
    m_dragging = true;
    setCursor(Qt::ClosedHandCursor);
    m_center = m_pressCenter + moved;
    place();
    update();
}

void BrowserMagnifierLens::mouseReleaseEvent(QMouseEvent* event)
{
    Q_UNUSED(event);
    m_dragging = false;
    setCursor(Qt::OpenHandCursor);
}

bool BrowserMagnifierLens::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == parentWidget() && event->type() == QEvent::Resize && m_positioned) {
        place();
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace tavo

#include <QCheckBox>
#include <QGridLayout>
#include <QLabel>
#include <QSlider>
#include <QVBoxLayout>

namespace tavo {

namespace {

// A slider over a range of decimals in fixed steps, with its value shown beside it.
void addSetting(QGridLayout* grid, int row, const QString& label, double minimum, double maximum, double step,
                int decimals, double value, const std::function<void(double)>& changed)
{
    auto* name = new QLabel(label);
    auto* slider = new QSlider(Qt::Horizontal);
    auto* shown = new QLabel;
    design::name(slider, label);
    slider->setRange(0, int(std::lround((maximum - minimum) / step)));
    slider->setValue(int(std::lround((value - minimum) / step)));
    const auto valueAt = [minimum, step](int position) { return minimum + position * step; };
    shown->setText(QString::number(value, 'f', decimals));
    shown->setMinimumWidth(shown->fontMetrics().horizontalAdvance(QStringLiteral("000.0")));
    QObject::connect(slider, &QSlider::valueChanged, shown, [shown, valueAt, decimals, changed](int position) {
        shown->setText(QString::number(valueAt(position), 'f', decimals));
        changed(valueAt(position));
    });
    grid->addWidget(name, row, 0);
    grid->addWidget(slider, row, 1);
    grid->addWidget(shown, row, 2);
}

} // namespace

QWidget* makeMagnifierControls(BrowserMagnifierLens* lens, QWidget* parent)
{
    auto* panel = new QWidget(parent);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* toggle = new QCheckBox(QStringLiteral("Show movable magnifier"), panel);
    design::name(toggle, QStringLiteral("Show movable magnifier"));
    QObject::connect(toggle, &QCheckBox::toggled, lens, &BrowserMagnifierLens::setWanted);
    layout->addWidget(toggle);
    auto* heading = new QLabel(QStringLiteral("Magnifying lens size · vertical reel"), panel);
    heading->setFont(design::sectionHeaderFont(heading->font()));
    layout->addWidget(heading);
    auto* grid = new QGridLayout;
    const MagnifierSettings start = lens->settings();
    addSetting(grid, 0, QStringLiteral("Width"), 80, 190, 5, 0, start.width, [lens](double value) {
        MagnifierSettings settings = lens->settings();
        settings.width = value;
        lens->setSettings(settings);
    });
    addSetting(grid, 1, QStringLiteral("Height"), 130, 330, 10, 0, start.height, [lens](double value) {
        MagnifierSettings settings = lens->settings();
        settings.height = value;
        lens->setSettings(settings);
    });
    addSetting(grid, 2, QStringLiteral("Magnification"), 1.5, 4.0, 0.1, 1, start.power, [lens](double value) {
        MagnifierSettings settings = lens->settings();
        settings.power = value;
        lens->setSettings(settings);
    });
    layout->addLayout(grid);
    auto* help = new QLabel(QStringLiteral("Drag the reel lens over the page"), panel);
    QPalette quiet = help->palette();
    quiet.setColor(QPalette::WindowText, design::secondaryText(quiet));
    help->setPalette(quiet);
    layout->addWidget(help);
    return panel;
}

} // namespace tavo
