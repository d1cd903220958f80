#pragma once

#include "platform/desktop.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QTimer>

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

    _XDisplay* m_display = nullptr;
    QString m_problem;
    unsigned long m_timeWindow = 0;
    QList<QPair<unsigned long, unsigned char>> m_lentKeycodes; // keysyms the layout lacks
    QTimer m_returnLentKeycodes;
};

} // namespace tavo
