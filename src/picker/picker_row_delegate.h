#pragma once

#include <QFont>
#include <QStyledItemDelegate>

namespace tavo {

struct Clip;

// What a picker row holds besides its display text (the name, then the key), its collection's
// icon (Qt::DecorationRole) and what a screen reader says (Qt::AccessibleTextRole).
enum PickerRowRole
{
    PickerNameRole = Qt::UserRole + 1,
    PickerKeyRole,       // as typed: `\ty`
    PickerPreviewRole,   // see pickerPreview()
    PickerImageRole,     // the image file the thumbnail is made of; empty without one
    PickerThumbnailRole, // QPixmap, once made
};

// One line of what `clip` pastes: its text with live tokens as they are typed, a website's
// address, or how many media files it has. Long enough for the widest row; rows elide the rest.
QString pickerPreview(const Clip& clip);

// Paints a picker row in two lines: the name, with the key in the fixed-width font and the
// secondary colour at the right; below, the preview in the secondary colour. At the left, the
// thumbnail when there is one, else the collection's icon. Everything follows the row's width
// and the view's font, so the row reads the same at any size and scale.
class PickerRowDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    // The side of the square that a row's picture takes, in the view's coordinates.
    int pictureSide(const QFont& font) const;

private:
    struct Fonts
    {
        QFont body;
        QFont fixed;
        int nameLine = 0; // the name and the key share it
        int previewLine = 0;
        int baseline = 0; // of the name line, from its top
    };
    const Fonts& fontsFor(const QFont& body) const;

    mutable Fonts m_fonts;
};

} // namespace tavo
