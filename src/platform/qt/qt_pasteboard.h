#pragma once

#include "platform/pasteboard.h"

#include <QObject>

namespace tavo {

// The X11 clipboard through QClipboard. What is written goes to CLIPBOARD; the PRIMARY selection
// only on request, for terminals that paste with Shift+Insert: taking each selection costs a
// round trip to the server on the way to the paste.
class QtPasteboard : public QObject, public Pasteboard
{
    Q_OBJECT

public:
    explicit QtPasteboard(QObject* parent = nullptr);

    QString string() const override;
    void write(std::unique_ptr<QMimeData> data) override;
    void copyToSelection() override;

signals:
    // Another program asked for what was written: the paste has reached its target. Queued, so
    // it arrives after the selection request has been answered.
    void dataRequested();

private:
    friend class ServedMimeData;

    void noteRequest();

    mutable bool m_readingOwnContent = false;
};

} // namespace tavo
