#pragma once

// The tap's connection to the X server: opening it, checking the extensions the tap needs, and
// what keeps a refused grab or a crash from ending the session's typing.

#include <QString>

#include <optional>
#include <vector>

struct _XDisplay;

namespace tavo::x11tap {

struct DisplayFeatures
{
    int xiOpcode = 0;
    int xkbEventBase = 0;
};

// Opens the session's display, or says why there is none to open.
std::optional<QString> openDisplay(_XDisplay** display);
// Whether the display has XTEST, XKB and XInput 2, or what it lacks.
std::optional<QString> checkDisplay(_XDisplay* display, DisplayFeatures* features);

// Xlib's default handler ends the process on any error; this one counts refused grabs instead.
void installErrorHandler();
// The connection whose refused grabs are counted, or none.
void setTapDisplay(_XDisplay* display);
void forgetTapDisplay(_XDisplay* display);
// Serials of the tap's key grabs the server refused since the last call. Only the tap's thread
// reads its connection's errors, so only it touches the list.
std::vector<unsigned long>& refusedGrabs();

// A crash closes the tap's socket, so that the server drops its grabs at once.
void installCrashHandler();
void setTapSocket(int fd);

} // namespace tavo::x11tap
