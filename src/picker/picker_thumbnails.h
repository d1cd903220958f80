#pragma once

#include <QCache>
#include <QObject>
#include <QPixmap>
#include <QSet>
#include <QThreadPool>

namespace tavo {

// Small pictures of the image files shortcuts paste, for the picker's rows. Files are read and
// scaled on threads of their own, so a row never waits for one: it shows without its picture and
// gets it when it is made. A picture is kept for the file as it was (path and modification time),
// so the next opening shows it at once and a changed file is made again.
class PickerThumbnails : public QObject
{
    Q_OBJECT

public:
    explicit PickerThumbnails(QObject* parent = nullptr);
    ~PickerThumbnails() override;

    // Whether a thumbnail can be made of `path`, by its file type.
    static bool isImage(const QString& path);

    // The thumbnail of `path` that fits a square of `side` by `side` at `devicePixelRatio`, if it
    // is made already. Otherwise a null pixmap, and it is made in the background:
    // `thumbnailMade` tells when.
    QPixmap thumbnail(const QString& path, int side, qreal devicePixelRatio);

signals:
    void thumbnailMade(const QString& path, const QPixmap& thumbnail);

private:
    void made(const QString& path, const QString& key, const QImage& image, qreal devicePixelRatio);

    QThreadPool m_pool;
    QCache<QString, QPixmap> m_made; // by path, modification time and size; costs in KiB
    QSet<QString> m_asked;           // being made now
    QSet<QString> m_unreadable;      // not worth a second try until the file changes
    int m_order = 0;
};

} // namespace tavo
