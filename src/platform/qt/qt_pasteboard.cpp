#include "platform/qt/qt_pasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QPointer>

namespace tavo {

// What we put on the clipboard. X11 serves a selection from the owning process: every read by
// another program comes through retrieveData, which is how a paste shows itself.
class ServedMimeData : public QMimeData
{
public:
    ServedMimeData(const QMimeData& source, QtPasteboard* owner)
        : m_owner(owner)
    {
        for (const QString& format : source.formats()) {
            setData(format, source.data(format));
        }
    }

protected:
    QVariant retrieveData(const QString& mimeType, QMetaType type) const override
    {
        if (m_owner) {
            m_owner->noteRequest();
        }
        return QMimeData::retrieveData(mimeType, type);
    }

private:
    QPointer<QtPasteboard> m_owner;
};

QtPasteboard::QtPasteboard(QObject* parent)
    : QObject(parent)
{
}

QString QtPasteboard::string() const
{
    // While we own the clipboard this reads our own data, which is no paste.
    m_readingOwnContent = true;
    const QString text = QGuiApplication::clipboard()->text(QClipboard::Clipboard);
    m_readingOwnContent = false;
    return text;
}

void QtPasteboard::write(std::unique_ptr<QMimeData> data)
{
    QClipboard* clipboard = QGuiApplication::clipboard();
    if (!data || data->formats().isEmpty()) {
        clipboard->clear(QClipboard::Clipboard);
        return;
    }
    // QClipboard takes ownership of the copy it is given.
    clipboard->setMimeData(new ServedMimeData(*data, this), QClipboard::Clipboard);
}

void QtPasteboard::copyToSelection()
{
    QClipboard* clipboard = QGuiApplication::clipboard();
    if (!clipboard->supportsSelection()) {
        return;
    }
    m_readingOwnContent = true;
    const QMimeData* current = clipboard->mimeData(QClipboard::Clipboard);
    auto* copy = current ? new ServedMimeData(*current, this) : nullptr;
    m_readingOwnContent = false;
    if (copy) {
        clipboard->setMimeData(copy, QClipboard::Selection);
    } else {
        clipboard->clear(QClipboard::Selection);
    }
}

void QtPasteboard::noteRequest()
{
    if (m_readingOwnContent) {
        return;
    }
    QMetaObject::invokeMethod(this, &QtPasteboard::dataRequested, Qt::QueuedConnection);
}

} // namespace tavo
