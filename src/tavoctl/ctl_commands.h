#pragma once

#include <QStringList>
#include <QTextStream>

namespace tavo::ctl {

// Runs one tavoctl command line (without the program name) and returns the exit status.
// Output and errors go to the given streams, and a password is read from `in`, so the commands
// can be driven in-process.
int run(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err);

// The commands over the signed-in user's profile and the local accounts; each reads its
// arguments through one CommandLine (ctl_options.h).
int account(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err);
int list(const QStringList& arguments, QTextStream& out, QTextStream& err);
int add(const QStringList& arguments, QTextStream& out, QTextStream& err);
int expand(const QStringList& arguments, QTextStream& out, QTextStream& err);
int collection(const QStringList& arguments, QTextStream& out, QTextStream& err);
int record(const QStringList& arguments, QTextStream& out, QTextStream& err);
int duplicates(const QStringList& arguments, QTextStream& out, QTextStream& err);
int stats(const QStringList& arguments, QTextStream& out, QTextStream& err);

} // namespace tavo::ctl
