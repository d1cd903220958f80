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

// Shortcut packages, profile backups and CSV.
int exportPackage(const QStringList& arguments, QTextStream& out, QTextStream& err);
int importPackage(const QStringList& arguments, QTextStream& out, QTextStream& err);
int backup(const QStringList& arguments, QTextStream& out, QTextStream& err);
int restore(const QStringList& arguments, QTextStream& out, QTextStream& err);
int csv(const QStringList& arguments, QTextStream& out, QTextStream& err);

// Model profiles, text generation and prompt expansion; a key or a prompt is read from `in`.
int ai(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err);
int prompt(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err);

// Builder apps and the built-in browser's workspace.
int builder(const QStringList& arguments, QTextStream& out, QTextStream& err);
// A passcode is read from `in`.
int browser(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err);

} // namespace tavo::ctl
