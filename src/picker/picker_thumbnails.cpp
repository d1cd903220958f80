#include "picker/picker_thumbnails.h"

#include <QImageReader>
#include <QThread>

#include <filesystem>

namespace tavo {

namespace {

constexpr int cacheKiB = 32 * 1024;

} // namespace

PickerThumbnails::PickerThumbnails(QObject* parent)
    : QObject(parent)
    , m_made(cacheKiB)
{
    // Half the cores at most: the other half keeps the window and the typing responsive.
    m_pool.setMaxThreadCount(qBound(1, QThread::idealThreadCount() / 2, 4));
    m_pool.setThreadPriority(QThread::LowPriority);
}

PickerThumbnails::~PickerThumbnails()
{
    // A running worker still posts its result to this object.
    m_pool.clear();
    m_pool.waitForDone();
}

bool PickerThumbnails::isImage(const QString& path)
{
    static const QSet<QString> suffixes{QStringLiteral("png"), QStringLiteral("jpg"),  QStringLiteral("jpeg"),
                                        QStringLiteral("gif"), QStringLiteral("webp"), QStringLiteral("bmp")};
    const qsizetype dot = path.lastIndexOf(u'.');
    return dot >= 0 && suffixes.contains(path.mid(dot + 1).toLower());
}

QPixmap PickerThumbnails::thumbnail(const QString& path, int side, qreal devicePixelRatio)
{
    std::error_code error;
    const auto modified = std::filesystem::last_write_time(std::filesystem::path(path.toStdString()), error);
    if (error || side <= 0) {
        return {};
    }
    const int pixels = qMax(1, qRound(side * devicePixelRatio));
    const QString key =
        path + u'\n' + QString::number(modified.time_since_epoch().count()) + u'\n' + QString::number(pixels);
    if (const QPixmap* made = m_made.object(key)) {
        return *made;
    }
    if (m_asked.contains(key) || m_unreadable.contains(key)) {
        return {};
    }
    m_asked.insert(key);
    m_pool.start(
        [this, path, key, pixels, devicePixelRatio] {
            QImageReader reader(path);
            reader.setAutoTransform(true);
            const QSize full = reader.size();
            if (full.isValid() && (full.width() > pixels || full.height() > pixels)) {
                // Decoded at the small size where the format allows (JPEG does), scaled at once
                // where it does not: never a full-size picture kept in memory.
                reader.setScaledSize(full.scaled(pixels, pixels, Qt::KeepAspectRatio).expandedTo(QSize(1, 1)));
            }
            QImage image = reader.read();
            if (!image.isNull() && (image.width() > pixels || image.height() > pixels)) {
                image = image.scaled(pixels, pixels, Qt::KeepAspectRatio, Qt::SmoothTransformation);
            }
            QMetaObject::invokeMethod(
                this, [this, path, key, image, devicePixelRatio] { made(path, key, image, devicePixelRatio); },
                Qt::QueuedConnection);
        },
        ++m_order); // the newest first: after fast typing, its row is the one in sight
    return {};
}

void PickerThumbnails::made(const QString& path, const QString& key, const QImage& image, qreal devicePixelRatio)
{
    m_asked.remove(key);
    if (image.isNull()) {
        m_unreadable.insert(key);
        return;
    }
    auto* pixmap = new QPixmap(QPixmap::fromImage(image));
    pixmap->setDevicePixelRatio(devicePixelRatio);
    const QPixmap thumbnail = *pixmap;
    m_made.insert(key, pixmap, qMax<qsizetype>(1, qsizetype(image.sizeInBytes()) / 1024));
    emit thumbnailMade(path, thumbnail);
}

} // namespace tavo
