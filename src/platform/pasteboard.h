#pragma once

#include <QMimeData>
#include <QObject>
#include <QString>

#include <memory>

namespace tavo {

// The system clipboard as the logic sees it. The X11 implementation sits on QClipboard;
// unit tests use a scripted fake.
class Pasteboard
{
public:
    virtual ~Pasteboard() = default;

    // The plain text on the clipboard, or an empty text when it holds none.
    virtual QString string() const = 0;

    // Replaces the clipboard's content; an empty `data` clears it.
    virtual void write(std::unique_ptr<QMimeData> data) = 0;
    // Puts what was last written into the selection that middle-click and Shift+Insert paste
    // from, for the targets that read it.
    virtual void copyToSelection() {}
};

} // namespace tavo
