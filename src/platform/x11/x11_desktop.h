#pragma once

#include "platform/desktop.h"

#include <QList>
#include <QPair>
#include <QSocketNotifier>
#include <QString>
#include <QTimer>

#include <memory>
#include <vector>

struct _XDisplay;

namespace tavo {

// The session's windows and synthetic keys on X11, on an X connection of its own that the main
// thread uses: EWMH for the active window and its activation (the input focus without a window
// manager), XTest for the keys.
class X11Desktop : public Desktop
{
public:
    X11Desktop();
    ~X11Desktop() override;

    X11Desktop(const X11Desktop&) = delete;
    X11Desktop& operator=(const X11Desktop&) = delete;

    QString unavailableReason() const override;

    DesktopWindow activeWindow() override;
    bool activate(const DesktopWindow& window, int timeoutMs) override;
    QString title(const DesktopWindow& window) override;

    void waitForModifiersReleased(int timeoutMs) override;
    void prepareToType(const DesktopWindow& window, int activationMs, int modifierMs) override;
    void sendBackspaces(int count) override;
    void sendEscape() override;
    void sendPaste(const DesktopWindow& target) override;
    bool pastesFromSelection(const DesktopWindow& target) const override;
    bool isWindowOf(const DesktopWindow& app, quint64 window) const override;
    void flush() override;

    bool openUrl(const QString& url) override;
    bool launchDesktopEntry(const QString& pathOrId, QString* error) override;

    // The chord that pastes in a window of this class, as xdotool writes it: "ctrl+v",
    // "ctrl+shift+v" in terminal emulators, "shift+Insert" in those that paste PRIMARY with it.
    static QString pasteChordFor(const QString& windowClass);
    // Whether that chord reads the PRIMARY selection rather than CLIPBOARD, so the text to paste
    // must be put there too.
    static bool pastesFromPrimary(const QString& windowClass);

private:
    unsigned long atom(const char* name);
    unsigned long serverTime();
    bool usesWindowManager();
    unsigned long inputFocus();
    bool focusInside(unsigned long window);
    unsigned long topLevelOf(unsigned long window);
    void tapKeysym(unsigned long keysym, const QList<unsigned long>& modifiers, int times);
    unsigned char keycodeFor(unsigned long keysym);
    void returnLentKeycodes();
    // Takes the events of this connection: a new key map is read again.
    void takeEvents();
    const std::vector<unsigned char>& modifierKeycodes();
    // Follows the focus of `window` and the modifiers through events, so that the way to the
    // paste need not ask the server.
    void follow(unsigned long window);
    void takeFocusEvent(int type, int mode, int detail, unsigned long window);

    _XDisplay* m_display = nullptr;
    QString m_problem;
    unsigned long m_timeWindow = 0;
    QList<QPair<unsigned long, unsigned char>> m_lentKeycodes; // keysyms the layout lacks
    QTimer m_returnLentKeycodes;
    std::vector<unsigned char> m_modifierKeycodes; // Shift, Ctrl, Alt, Super, AltGr; read once per mapping
    bool m_modifierKeycodesRead = false;
    int m_xkbEventBase = -1;
    unsigned m_modifiers = 0; // core modifiers down, from XKB's state events
    bool m_modifiersKnown = false;
    unsigned long m_followed = 0; // the window whose focus the events tell
    bool m_followedFocused = false;
    std::unique_ptr<QSocketNotifier> m_events; // read as they come, so none piles up at the server
};

} // namespace tavo
