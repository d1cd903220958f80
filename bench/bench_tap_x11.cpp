#include "platform/x11/x11_keyboard_tap.h"

#include <benchmark/benchmark.h>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <chrono>
#include <cstdlib>
#include <thread>

using tavo::KeyEvent;
using tavo::KeyVerdict;
using tavo::TapDecision;
using tavo::TapMode;
using tavo::X11KeyboardTap;

namespace {

// The latency a key gets from the tap: from the XTest press to the KeyPress in a focused window.
// A backslash is grabbed while idle and answered by the tap (a pass, replayed); a letter is not
// grabbed and is the floor. While a trigger that would paste is typed (armed), letters are
// grabbed in the focused window too: what typing on after a complete trigger costs.
// Needs an X server: run under tests/with-xvfb.
class FocusedWindow
{
public:
    FocusedWindow()
        : m_display(XOpenDisplay(nullptr))
        , m_sender(XOpenDisplay(nullptr))
    {
        if (!m_display || !m_sender)
            return;
        // Left alone by a window manager, so that it takes the focus at once.
        XSetWindowAttributes attributes = {};
        attributes.override_redirect = True;
        attributes.event_mask = KeyPressMask | ExposureMask;
        m_window = XCreateWindow(m_display, DefaultRootWindow(m_display), 0, 0, 200, 100, 0, CopyFromParent,
                                 InputOutput, CopyFromParent, CWOverrideRedirect | CWEventMask, &attributes);
        XMapWindow(m_display, m_window);
        XEvent event;
        do {
            XNextEvent(m_display, &event);
        } while (event.type != Expose);
        XSetInputFocus(m_display, m_window, RevertToParent, CurrentTime);
        XSync(m_display, False);
    }
    ~FocusedWindow()
    {
        if (m_display)
            XCloseDisplay(m_display);
        if (m_sender)
            XCloseDisplay(m_sender);
    }
    bool isOpen() const { return m_display && m_sender; }

    // Presses and releases `keysym`; returns the seconds until the window has the press.
    double pressAndWait(KeySym keysym)
    {
        const ::KeyCode code = XKeysymToKeycode(m_sender, keysym);
        const auto start = std::chrono::steady_clock::now();
        XTestFakeKeyEvent(m_sender, code, True, 0);
        XTestFakeKeyEvent(m_sender, code, False, 0);
        XFlush(m_sender);
        XEvent event;
        do {
            XNextEvent(m_display, &event);
        } while (event.type != KeyPress);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

private:
    Display* m_display = nullptr;
    Display* m_sender = nullptr;
    Window m_window = 0;
};

void measure(benchmark::State& state, KeySym keysym, TapMode mode = TapMode::Idle)
{
    if (!getenv("DISPLAY")) {
        state.SkipWithError("no DISPLAY: run under tests/with-xvfb");
        return;
    }
    // First: an armed tap grabs in the window that has the focus.
    FocusedWindow window;
    if (!window.isOpen()) {
        state.SkipWithError("cannot open the display");
        return;
    }
    X11KeyboardTap tap;
    // Every key passes and the tap stays in its mode: only the answer of the grab is measured.
    if (tap.start([mode](const KeyEvent&) { return TapDecision{KeyVerdict::Pass, mode}; })) {
        state.SkipWithError("the keyboard tap cannot run here");
        return;
    }
    tap.setMode(mode, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // the grabs of the mode are in place
    for (auto _ : state) {
        state.SetIterationTime(window.pressAndWait(keysym));
    }
    tap.stop();
}

void grabbedKeyPasses(benchmark::State& state)
{
    measure(state, XK_backslash);
}

void ungrabbedLetter(benchmark::State& state)
{
    measure(state, XK_a);
}

void letterWhileArmed(benchmark::State& state)
{
    measure(state, XK_a, TapMode::Armed);
}

} // namespace

BENCHMARK(grabbedKeyPasses)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(500);
BENCHMARK(ungrabbedLetter)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(500);
BENCHMARK(letterWhileArmed)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(500);
