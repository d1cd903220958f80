#include "shell/tavo_application.h"

#include <QApplication>

#include <clocale>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("tavo"));
    QApplication::setApplicationDisplayName(QStringLiteral("Tavo"));
    QApplication::setQuitOnLastWindowClosed(false); // it keeps serving the clipboard from the tray
    std::setlocale(LC_ALL, "");

    tavo::TavoApplication tavoApp;
    if (!tavoApp.start()) {
        return tavoApp.exitCode();
    }
    return QApplication::exec();
}
