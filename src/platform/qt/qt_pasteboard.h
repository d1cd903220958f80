#pragma once

#include "platform/pasteboard.h"

#include <QObject>

#include <memory>

class QAbstractNativeEventFilter;

namespace tavo {

// The X11 clipboard through QClipboard. What is written goes to CLIPBOARD; the PRIMARY selection
// only on request, for terminals that paste with Shift+Insert: taking each selection costs a
// round trip to the server on the way to the paste.
class QtPasteboard : public QObject, public Pasteboard
{
    Q_OBJECT

public:
    explicit QtPasteboard(QObject* parent = nullptr);
    ~QtPasteboard() override;

    QString string() const override;
    void write(std::unique_ptr<QMimeData> data) override;
    void copyToSelection() override;

signals:
    // Another program asked for what was written: maybe the paste has reached its target, maybe
    // a clipboard manager keeps a copy. `requestor` is the window that asked (0: unknown).
    // Queued, so it arrives after the selection request has been answered.
    void dataRequested(quint64 requestor);

private:
    friend class ServedMimeData;

    void noteRequest();

    mutable bool m_readingOwnContent = false;
    std::unique_ptr<QAbstractNativeEventFilter> m_requests; // who asks, seen before Qt answers
};

} // namespace tavo
