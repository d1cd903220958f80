#include "picker/picker_rows.h"

#include "language/shortcut_record.h"
#include "picker/picker_row_delegate.h"
#include "picker/picker_thumbnails.h"
#include "shell/ui/design.h"
#include "store/collections.h"

namespace tavo {

PickerRows::PickerRows(QWidget* parent)
    : QListWidget(parent)
    , m_delegate(new PickerRowDelegate(this))
    , m_thumbnails(new PickerThumbnails(this))
{
    setItemDelegate(m_delegate);
    // Every row has the same two lines: the view lays out a thousand rows as fast as one.
    setUniformItemSizes(true);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setMouseTracking(true);
    viewport()->setAttribute(Qt::WA_Hover);
    connect(m_thumbnails, &PickerThumbnails::thumbnailMade, this, &PickerRows::showThumbnail);
}

void PickerRows::showClips(const QList<Clip>& results)
{
    if (results.size() < count()) {
        clear();
    }
    for (qsizetype row = count(); row < results.size(); ++row) {
        addItem(rowFor(results.at(row)));
    }
    // Laid out now rather than at the next turn of the event loop: whoever asks next whether the
    // last row is in sight (to load more) gets the answer for these rows.
    executeDelayedItemsLayout();
}

QListWidgetItem* PickerRows::rowFor(const Clip& clip)
{
    // A name that only repeats the key gives its place to the start of the text.
    const QString trigger = displayTrigger(clip.key);
    const QString bareName = clip.name.startsWith(u'/') || clip.name.startsWith(u'\\') ? clip.name.mid(1) : clip.name;
    const bool nameIsText = bareName.isEmpty() || u'\\' + bareName == trigger;
    const QString name = nameIsText ? clip.text.left(320).simplified().left(80) : clip.name;
    QString preview = pickerPreview(clip);
    if (nameIsText && preview.startsWith(name)) {
        preview = preview.mid(name.size()).trimmed(); // what the name did not show of the text
    }

    // Filled before it joins the list: one insertion, not one change per role.
    auto* item = new QListWidgetItem(name + QStringLiteral("   ") + trigger);
    item->setData(PickerNameRole, name);
    item->setData(PickerKeyRole, trigger);
    item->setData(PickerPreviewRole, preview);
    item->setData(Qt::DecorationRole, clip.isMathResult.value_or(false)
                                          ? design::icon(QStringLiteral("accessories-calculator"))
                                          : design::symbolIcon(collectionSymbol(clip.group)));
    item->setToolTip(clip.text.isEmpty() ? preview : clip.text.left(300));
    QStringList spoken{trigger};
    for (const QString& part : {name, preview}) {
        if (!part.isEmpty()) {
            spoken << part;
        }
    }
    item->setData(Qt::AccessibleTextRole, spoken.join(QStringLiteral(", ")));

    const auto image = std::find_if(clip.files.cbegin(), clip.files.cend(), &PickerThumbnails::isImage);
    if (image != clip.files.cend()) {
        item->setData(PickerImageRole, *image);
        const QPixmap thumbnail = m_thumbnails->thumbnail(*image, m_delegate->pictureSide(font()), devicePixelRatioF());
        if (!thumbnail.isNull()) {
            item->setData(PickerThumbnailRole, thumbnail);
        }
    }
    return item;
}

void PickerRows::showThumbnail(const QString& path, const QPixmap& thumbnail)
{
    for (int row = 0; row < count(); ++row) {
        QListWidgetItem* each = item(row);
        if (each->data(PickerImageRole).toString() == path) {
            each->setData(PickerThumbnailRole, thumbnail);
        }
    }
}

} // namespace tavo
