#pragma once

#include "platform/pasteboard.h"

#include <QObject>

namespace tavo {

// The X11 clipboard through QClipboard. What is written goes to CLIPBOARD and, for terminals
// that paste with Shift+Insert, to the PRIMARY selection as well.
class QtPasteboard : public QObject, public Pasteboard
{
    Q_OBJECT

public:
    explicit QtPasteboard(QObject* parent = nullptr);

    QString string() const override;
    void write(std::unique_ptr<QMimeData> data) override;

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
