#include "platform/x11/x11_tap_session.h"

#include "platform/x11/x11_keyboard_tap.h"
#include "platform/x11/x11_tap_common.h"

#include <QByteArray>

#include <array>
#include <atomic>
#include <csignal>
#include <mutex>

#include <sys/socket.h>
#include <unistd.h>

// X11 last: its macros (None, KeyPress, Bool, Status) clash with Qt's names.
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/Xproto.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>

namespace tavo {

Q_LOGGING_CATEGORY(lcTap, "tavo.platform.x11")

void keepRunningWhenLost(Display* display)
{
    // Xlib ends the process when a connection breaks, from whichever thread notices. Returning
    // instead leaves the connection dead: its calls fail at once and its thread winds down.
    XSetIOErrorExitHandler(
        display, [](Display*, void*) { qCWarning(lcTap) << "the connection to the X server was lost"; }, nullptr);
}

namespace x11tap {

namespace {

std::atomic<Display*> g_tapDisplay{nullptr};
std::vector<unsigned long> g_refusedGrabs;

// A refused grab (another client holds that combination) or a request on a window that just
// vanished is normal here.
int tolerateXError(Display* display, XErrorEvent* error)
{
    if (error->request_code == X_GrabKey && error->error_code == BadAccess) {
        qCDebug(lcTap) << "a key grab was refused: another client holds it";
        if (display == g_tapDisplay.load())
            g_refusedGrabs.push_back(error->serial);
    } else {
        qCDebug(lcTap) << "X error" << int(error->error_code) << "on request" << int(error->request_code);
    }
    return 0;
}

// shutdown() is safe in a signal handler.
std::atomic<int> g_tapSocket{-1};
constexpr std::array<int, 5> CrashSignals = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
std::array<struct sigaction, CrashSignals.size()> g_previousActions{};

void releaseGrabsOnCrash(int signal)
{
    const int fd = g_tapSocket.exchange(-1);
    if (fd >= 0)
        ::shutdown(fd, SHUT_RDWR);
    for (std::size_t i = 0; i < CrashSignals.size(); ++i) {
        if (CrashSignals[i] == signal)
            sigaction(signal, &g_previousActions[i], nullptr);
    }
    raise(signal);
}

std::optional<QString> waylandProblem()
{
    if (qEnvironmentVariable("XDG_SESSION_TYPE") == QLatin1String("wayland") ||
        !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        return QStringLiteral("This is a Wayland session. Tavo can follow typed keys only in an X11 session "
                              "for now; log in with an X11 (Xorg) session to use triggers.");
    }
    return std::nullopt;
}

} // namespace

void wake(int fd)
{
    const quint64 one = 1;
    [[maybe_unused]] const auto written = ::write(fd, &one, sizeof one);
}

std::optional<QString> openDisplay(Display** display)
{
    if (auto problem = waylandProblem())
        return problem;
    const QByteArray name = qgetenv("DISPLAY");
    if (name.isEmpty())
        return QStringLiteral("There is no X11 display (DISPLAY is not set).");
    *display = XOpenDisplay(nullptr);
    if (!*display)
        return QStringLiteral("Cannot open the X11 display \"%1\".").arg(QString::fromLocal8Bit(name));
    keepRunningWhenLost(*display);
    return std::nullopt;
}

std::optional<QString> checkDisplay(Display* display, DisplayFeatures* features)
{
    int event = 0, error = 0, major = 0, minor = 0;
    if (!XTestQueryExtension(display, &event, &error, &major, &minor))
        return QStringLiteral("The X server has no XTEST extension, which Tavo needs to send keys.");

    int opcode = 0;
    major = XkbMajorVersion;
    minor = XkbMinorVersion;
    if (!XkbQueryExtension(display, &opcode, &features->xkbEventBase, &error, &major, &minor))
        return QStringLiteral("The X server has no XKB extension, which Tavo needs to read the keyboard layout.");

    if (!XQueryExtension(display, "XInputExtension", &features->xiOpcode, &event, &error))
        return QStringLiteral("The X server has no XInput 2 extension, which Tavo needs to follow typed keys.");
    major = 2;
    minor = 2;
    if (XIQueryVersion(display, &major, &minor) != Success || major < 2)
        return QStringLiteral("The X server has no XInput 2 extension, which Tavo needs to follow typed keys.");
    return std::nullopt;
}

void installErrorHandler()
{
    static std::once_flag once;
    std::call_once(once, [] { XSetErrorHandler(tolerateXError); });
}

void setTapDisplay(Display* display)
{
    g_tapDisplay.store(display);
}

void forgetTapDisplay(Display* display)
{
    Display* expected = display;
    g_tapDisplay.compare_exchange_strong(expected, nullptr);
}

std::vector<unsigned long>& refusedGrabs()
{
    return g_refusedGrabs;
}

void installCrashHandler()
{
    static std::once_flag once;
    std::call_once(once, [] {
        for (std::size_t i = 0; i < CrashSignals.size(); ++i) {
            struct sigaction action = {};
            action.sa_handler = releaseGrabsOnCrash;
            sigemptyset(&action.sa_mask);
            action.sa_flags = SA_RESETHAND;
            sigaction(CrashSignals[i], &action, &g_previousActions[i]);
        }
    });
}

void setTapSocket(int fd)
{
    g_tapSocket.store(fd);
}

} // namespace x11tap
} // namespace tavo
