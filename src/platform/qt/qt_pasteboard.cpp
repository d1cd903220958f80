#include "platform/qt/qt_pasteboard.h"

#include <QAbstractNativeEventFilter>
#include <QClipboard>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QPointer>

#include <xcb/xcb.h>

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

namespace {

// Remembers the window behind the latest selection request; Qt answers the request, and reads
// our data for it, right after the filter has seen it.
class SelectionRequests : public QAbstractNativeEventFilter
{
public:
    quint64 requestor = 0;

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) override
    {
        if (eventType == "xcb_generic_event_t") {
            const auto* event = static_cast<const xcb_generic_event_t*>(message);
            if ((event->response_type & 0x7f) == XCB_SELECTION_REQUEST) {
                requestor = reinterpret_cast<const xcb_selection_request_event_t*>(event)->requestor;
            }
        }
        return false;
    }
};

} // namespace

QtPasteboard::QtPasteboard(QObject* parent)
    : QObject(parent)
    , m_requests(std::make_unique<SelectionRequests>())
{
    QCoreApplication::instance()->installNativeEventFilter(m_requests.get());
}

QtPasteboard::~QtPasteboard()
{
    if (QCoreApplication* application = QCoreApplication::instance()) {
        application->removeNativeEventFilter(m_requests.get());
    }
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
    const quint64 requestor = static_cast<SelectionRequests*>(m_requests.get())->requestor;
    QMetaObject::invokeMethod(
        this, [this, requestor] { emit dataRequested(requestor); }, Qt::QueuedConnection);
}

} // namespace tavo
