#include "platform/qt/qt_pasteboard.h"

#include <QAbstractNativeEventFilter>
#include <QClipboard>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QPointer>
#include <QTimer>

#include <functional>

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
// our data for it, right after the filter has seen it. Then follows that window's property the
// answer is written to: the requestor deletes it once it has read it, which is when the paste
// is in the target (GTK inserts the text asynchronously, after keys typed meanwhile).
class SelectionRequests : public QAbstractNativeEventFilter
{
public:
    quint64 requestor = 0;
    xcb_atom_t property = XCB_NONE;
    quint64 awaiting = 0; // the requestor whose reading is awaited
    xcb_atom_t awaitedProperty = XCB_NONE;
    std::function<void(quint64)> read;

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) override
    {
        if (eventType == "xcb_generic_event_t") {
            const auto* event = static_cast<const xcb_generic_event_t*>(message);
            const int type = event->response_type & 0x7f;
            if (type == XCB_SELECTION_REQUEST) {
                const auto* request = reinterpret_cast<const xcb_selection_request_event_t*>(event);
                requestor = request->requestor;
                property = request->property != XCB_NONE ? request->property : request->target;
            } else if (type == XCB_PROPERTY_NOTIFY && awaiting != 0) {
                const auto* change = reinterpret_cast<const xcb_property_notify_event_t*>(event);
                if (change->window == awaiting && change->atom == awaitedProperty &&
                    change->state == XCB_PROPERTY_DELETE && read) {
                    read(std::exchange(awaiting, 0));
                }
            }
        }
        return false;
    }
};

// A requestor that never deletes the property still lets the hold go, a moment later.
constexpr int ReadBoundMs = 100;

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
    auto* requests = static_cast<SelectionRequests*>(m_requests.get());
    const quint64 requestor = requests->requestor;
    auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || requestor == 0) {
        QMetaObject::invokeMethod(
            this, [this, requestor] { emit dataRequested(requestor); }, Qt::QueuedConnection);
        return;
    }
    // Asked before Qt writes the answer, so the deletion cannot come first.
    requests->awaiting = requestor;
    requests->awaitedProperty = requests->property;
    if (!requests->read) {
        requests->read = [this](quint64 window) {
            QMetaObject::invokeMethod(
                this, [this, window] { emit dataRequested(window); }, Qt::QueuedConnection);
        };
    }
    const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(x11->connection(), xcb_window_t(requestor), XCB_CW_EVENT_MASK, &mask);
    QTimer::singleShot(ReadBoundMs, this, [requests, requestor] {
        if (requests->awaiting == requestor) {
            requests->read(std::exchange(requests->awaiting, 0));
        }
    });
}

} // namespace tavo
