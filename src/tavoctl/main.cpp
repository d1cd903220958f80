#include "tavoctl/ctl_commands.h"

#include <QCoreApplication>
#include <QGuiApplication>

#include <clocale>
#include <cstdio>
#include <memory>

int main(int argc, char* argv[])
{
    // Drawing a PDF takes fonts, and fonts take a GUI application: on the offscreen platform, so
    // tavoctl never needs a display. Every other command stays a plain core application.
    const bool draws = argc > 2 && qstrcmp(argv[1], "builder") == 0 && qstrcmp(argv[2], "render") == 0;
    if (draws) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    const std::unique_ptr<QCoreApplication> application =
        draws ? std::make_unique<QGuiApplication>(argc, argv) : std::make_unique<QCoreApplication>(argc, argv);
    QCoreApplication& app = *application;
    QCoreApplication::setApplicationName(QStringLiteral("tavoctl"));
    // Dates follow the user's locale; numbers of the calculator never do (they pin their own).
    std::setlocale(LC_ALL, "");

    QTextStream in(stdin);
    QTextStream out(stdout);
    QTextStream err(stderr);
    return tavo::ctl::run(app.arguments().mid(1), in, out, err);
}
