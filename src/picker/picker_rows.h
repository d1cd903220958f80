#pragma once

#include <QListWidget>

namespace tavo {

struct Clip;
class PickerRowDelegate;
class PickerThumbnails;

// The picker's result rows: each shows what its shortcut pastes (see PickerRowDelegate), with a
// thumbnail for a shortcut with an image. Thumbnails never hold a row back: a row shows its
// collection's icon until its picture is made, and then only that row is painted again.
class PickerRows : public QListWidget
{
    Q_OBJECT

public:
    explicit PickerRows(QWidget* parent = nullptr);

    // Shows `results`. The search only ever adds to its results until it starts over, so the
    // rows shown already stay and the new ones follow; a shorter list is a new search.
    void showClips(const QList<Clip>& results);

private:
    QListWidgetItem* rowFor(const Clip& clip);
    void showThumbnail(const QString& path, const QPixmap& thumbnail);

    PickerRowDelegate* m_delegate;
    PickerThumbnails* m_thumbnails;
};

} // namespace tavo
