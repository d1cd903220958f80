#include "picker/picker_row_delegate.h"

#include "language/shortcut_record.h"
#include "shell/ui/design.h"

#include <QApplication>
#include <QFontMetrics>
#include <QIcon>
#include <QPainter>
#include <QPixmap>
#include <QtMath>

namespace tavo {

namespace {

// More than the widest row shows; the row elides the rest.
constexpr qsizetype previewLength = 240;

QString mediaCount(qsizetype count)
{
    return count == 1 ? QStringLiteral("1 media file") : QStringLiteral("%1 media files").arg(count);
}

} // namespace

QString pickerPreview(const Clip& clip)
{
    if (clip.webURL && !clip.webURL->trimmed().isEmpty()) {
        return clip.webURL->trimmed().left(previewLength);
    }
    // Cut before simplifying: a text of a megabyte costs no more than a short one.
    const QString text = clip.text.left(previewLength * 4).simplified().left(previewLength);
    if (clip.files.isEmpty()) {
        if (text.isEmpty() && clip.appPath) {
            return *clip.appPath;
        }
        return text;
    }
    return text.isEmpty() ? mediaCount(clip.files.size())
                          : text + QStringLiteral(" · ") + mediaCount(clip.files.size());
}

const PickerRowDelegate::Fonts& PickerRowDelegate::fontsFor(const QFont& body) const
{
    if (m_fonts.nameLine == 0 || body != m_fonts.body) {
        m_fonts.body = body;
        m_fonts.fixed = design::fixedFont(body);
        const QFontMetrics bodyMetrics(body);
        const QFontMetrics fixedMetrics(m_fonts.fixed);
        const int ascent = qMax(bodyMetrics.ascent(), fixedMetrics.ascent());
        m_fonts.baseline = ascent;
        m_fonts.nameLine = ascent + qMax(bodyMetrics.descent(), fixedMetrics.descent()) + 1;
        m_fonts.previewLine = bodyMetrics.height();
    }
    return m_fonts;
}

int PickerRowDelegate::pictureSide(const QFont& font) const
{
    const Fonts& fonts = fontsFor(font);
    return fonts.nameLine + fonts.previewLine;
}

QSize PickerRowDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    Q_UNUSED(index)
    const int side = pictureSide(option.font);
    // Narrow on purpose: the row takes the view's width, and elides to it.
    return {side * 4, side + design::step(option.widget)};
}

void PickerRowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const QWidget* widget = option.widget;
    const QStyle* style = widget ? widget->style() : QApplication::style();
    const bool selected = option.state.testFlag(QStyle::State_Selected);

    // The style draws the selection; the hover is ours, so it looks the same under every style.
    QStyleOptionViewItem background = option;
    background.state.setFlag(QStyle::State_MouseOver, false);
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &background, painter, widget);
    if (option.state.testFlag(QStyle::State_MouseOver) && !selected) {
        QColor hover = option.palette.color(QPalette::Highlight);
        hover.setAlphaF(0.18f);
        painter->fillRect(option.rect, hover);
    }

    const Fonts& fonts = fontsFor(option.font);
    const int side = fonts.nameLine + fonts.previewLine;
    const int gap = design::step(widget);
    const QRect content = option.rect.adjusted(gap, 0, -gap, 0);
    QRect picture(0, 0, side, side);
    picture.moveCenter(QPoint(content.left() + side / 2, content.center().y()));

    painter->save();
    const QPixmap thumbnail = index.data(PickerThumbnailRole).value<QPixmap>();
    if (!thumbnail.isNull()) {
        QSize size = thumbnail.deviceIndependentSize().toSize();
        if (size.width() > side || size.height() > side) {
            size.scale(picture.size(), Qt::KeepAspectRatio); // made for another scale or font
        }
        QRect target(QPoint(0, 0), size);
        target.moveCenter(picture.center());
        painter->setRenderHint(QPainter::SmoothPixmapTransform);
        painter->drawPixmap(target, thumbnail);
    } else {
        const QIcon icon = index.data(Qt::DecorationRole).value<QIcon>();
        QRect iconRect(0, 0, side * 2 / 3, side * 2 / 3);
        iconRect.moveCenter(picture.center());
        icon.paint(painter, iconRect, Qt::AlignCenter, selected ? QIcon::Selected : QIcon::Normal);
    }

    const QColor primary = option.palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    const QColor secondary = selected ? primary : design::secondaryText(option.palette);
    const int left = picture.right() + 1 + gap;
    const int width = content.right() + 1 - left;
    const int top = option.rect.top() + (option.rect.height() - side) / 2;
    const int baseline = top + fonts.baseline;
    if (width > 0) {
        // The key keeps its place whole unless it would take more than half the line.
        const QFontMetrics fixedMetrics(fonts.fixed);
        const QString key = index.data(PickerKeyRole).toString();
        // Rounded up: the elision measures in fractions of a pixel, and a key cut by a rounding
        // would lose half its letters to the ellipsis.
        const int keyWidth = qMin(qCeil(QFontMetricsF(fonts.fixed).horizontalAdvance(key)), width / 2);
        painter->setFont(fonts.fixed);
        painter->setPen(secondary);
        painter->drawText(QPoint(left + width - keyWidth, baseline),
                          fixedMetrics.elidedText(key, Qt::ElideMiddle, keyWidth));

        const QFontMetrics bodyMetrics(fonts.body);
        const int nameWidth = width - keyWidth - (keyWidth > 0 ? gap : 0);
        painter->setFont(fonts.body);
        painter->setPen(primary);
        painter->drawText(QPoint(left, baseline),
                          bodyMetrics.elidedText(index.data(PickerNameRole).toString(), Qt::ElideRight, nameWidth));

        painter->setPen(secondary);
        painter->drawText(QPoint(left, top + fonts.nameLine + bodyMetrics.ascent()),
                          bodyMetrics.elidedText(index.data(PickerPreviewRole).toString(), Qt::ElideRight, width));
    }
    painter->restore();
}

} // namespace tavo
