#include "shell/tavo_application.h"

#include <QApplication>
#include <QSocketNotifier>

#include <array>
#include <clocale>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int g_signalSocket = -1;

// A session ending or a Ctrl+C quits through the event loop, so the keyboard tap gives back
// its grabs and any key it holds, and nothing is cut off half-written.
void quitOnTerminationSignals(QApplication& app)
{
    std::array<int, 2> sockets{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
        return;
    }
    g_signalSocket = sockets[0];
    auto* notifier = new QSocketNotifier(sockets[1], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [notifier] {
        notifier->setEnabled(false);
        QApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = [](int) {
        const char byte = 1;
        [[maybe_unused]] const auto written = ::write(g_signalSocket, &byte, 1);
    };
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
}

} // namespace

int main(int argc, char* argv[])
{
    // The Browser section's web engine shares its GL contexts with the windows; it must be said
    // before the application exists.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    // Chromium's sandbox cannot start for root and would abort the whole process the first time
    // a page shows; a root session (containers, test machines) runs the web engine without it.
    if (::geteuid() == 0 && !qEnvironmentVariableIsSet("QTWEBENGINE_DISABLE_SANDBOX")) {
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("tavo"));
    QApplication::setApplicationDisplayName(QStringLiteral("Tavo"));
    QApplication::setQuitOnLastWindowClosed(false); // it keeps serving the clipboard from the tray
    std::setlocale(LC_ALL, "");
    quitOnTerminationSignals(app);

    tavo::TavoApplication tavoApp;
    if (!tavoApp.start()) {
        return tavoApp.exitCode();
    }
    return QApplication::exec();
}
