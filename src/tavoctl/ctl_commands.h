#pragma once

#include <QStringList>
#include <QTextStream>

namespace tavo::ctl {

// Runs one tavoctl command line (without the program name) and returns the exit status.
// Output and errors go to the given streams, so the commands can be driven in-process.
int run(const QStringList& arguments, QTextStream& out, QTextStream& err);

} // namespace tavo::ctl
