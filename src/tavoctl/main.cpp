#include "tavoctl/ctl_commands.h"

#include <QCoreApplication>

#include <clocale>
#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tavoctl"));
    // Dates follow the user's locale; numbers of the calculator never do (they pin their own).
    std::setlocale(LC_ALL, "");

    QTextStream in(stdin);
    QTextStream out(stdout);
    QTextStream err(stderr);
    return tavo::ctl::run(app.arguments().mid(1), in, out, err);
}
