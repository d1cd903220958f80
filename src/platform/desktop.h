#pragma once

#include <QString>
#include <QtGlobal>

namespace tavo {

// A top-level window of another application, the one the user types into.
struct DesktopWindow
{
    quint64 id = 0;
    QString windowClass;     // WM_CLASS class, lower-cased ("xterm", "libreoffice-calc"): the application's identity
    QString applicationName; // WM_CLASS instance or a readable name for notices
    qint64 pid = 0;

    bool isValid() const { return id != 0; }
    bool operator==(const DesktopWindow& other) const { return id == other.id; }
};

// The session's windows and synthetic keys: the front application, bringing it back, its title,
// and the keys that remove a typed trigger and paste. Used on the main thread.
class Desktop
{
public:
    virtual ~Desktop() = default;

    // Nothing (or why not) when the session gives no access to other applications' keys.
    virtual QString unavailableReason() const = 0;

    // The window that has the keyboard focus now, as a top-level window; invalid when none.
    virtual DesktopWindow activeWindow() = 0;
    // Gives `window` the focus unless it has it, waiting at most `timeoutMs` for the switch.
    // True once it has the focus.
    virtual bool activate(const DesktopWindow& window, int timeoutMs) = 0;
    virtual QString title(const DesktopWindow& window) = 0;

    // Waits (bounded) until the user has let go of Shift, Ctrl, Alt and Super, so they do not
    // change the keys sent next; modifiers still down after that are released.
    virtual void waitForModifiersReleased(int timeoutMs) = 0;
    // Both of the above before keys go to `window`. A desktop that can ask the two questions at
    // once does so: this is on the way from the ending key to the paste.
    virtual void prepareToType(const DesktopWindow& window, int activationMs, int modifierMs)
    {
        activate(window, activationMs);
        waitForModifiersReleased(modifierMs);
    }
    // The keys go out at once; flush() waits for the server to have them.
    virtual void sendBackspaces(int count) = 0;
    virtual void sendEscape() = 0;
    // The paste chord the target understands: Ctrl+V, or Ctrl+Shift+V / Shift+Insert in terminals.
    virtual void sendPaste(const DesktopWindow& target) = 0;
    // Whether that chord pastes the PRIMARY selection rather than the clipboard.
    virtual bool pastesFromSelection(const DesktopWindow& target) const = 0;
    // Whether `window` (one that asked for the clipboard, say) belongs to the program that shows
    // `app`: the target's paste, not a clipboard manager's copy.
    virtual bool isWindowOf(const DesktopWindow& app, quint64 window) const = 0;
    // Blocks until the X server has processed every key sent so far.
    virtual void flush() = 0;

    // Opens a URL or file with the desktop's handler (xdg-open); launches a desktop entry.
    virtual bool openUrl(const QString& url) = 0;
    virtual bool launchDesktopEntry(const QString& pathOrId, QString* error) = 0;
};

} // namespace tavo
