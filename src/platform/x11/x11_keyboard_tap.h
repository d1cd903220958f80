#pragma once

#include "platform/keyboard_tap.h"

#include <QString>

#include <memory>
#include <optional>

struct _XDisplay;

namespace tavo {

// The keyboard tap of an X11 session. It runs on a thread of its own with its own X connection:
// synchronous passive grabs on the few keys that can start or end a trigger, XInput2 raw events
// to follow every other key without grabbing it, and an active keyboard grab while the picker
// owns the keyboard. A grabbed press is answered with a replay (pass) or by ending the grab
// (swallow); keys typed while an expansion is pasted are held by extra grabs and typed again
// with XTest once the expansion is in.
class X11KeyboardTap : public KeyboardTap
{
public:
    X11KeyboardTap();
    ~X11KeyboardTap() override;

    X11KeyboardTap(const X11KeyboardTap&) = delete;
    X11KeyboardTap& operator=(const X11KeyboardTap&) = delete;

    std::optional<QString> start(Decide decide) override;
    void stop() override;
    bool isRunning() const override;
    void setMode(TapMode mode, quint64 version) override;
    void releaseHeldKeys(quint64 keyId, bool replayEndingKey) override;
    bool claimHold(quint64 keyId) override;

    // Why this session gives no access to the keyboard of other applications (a Wayland session,
    // no display, an X server without XTEST, XKB or XInput 2), or nothing when it does.
    static std::optional<QString> sessionProblem();

private:
    class Worker;
    std::unique_ptr<Worker> m_worker;
};

// Lets a connection die without ending the process (Xlib's default when the server goes away).
void keepRunningWhenLost(_XDisplay* display);

} // namespace tavo
