#pragma once

#include "language/tavo_error.h"
#include "store/profile_store.h"

#include <QString>
#include <QTextStream>

#include <functional>
#include <memory>

namespace tavo {
class Defaults;
class TavoAccountStore;
} // namespace tavo

namespace tavo::ctl {

inline const QString signInFirst = QStringLiteral("Sign in to Tavo first.");

// The application's view of the signed-in profile, as the main window activates it.
std::unique_ptr<DB> openProfile(Defaults& defaults, const TavoAccountStore& accounts, DB::Access access);

// Whether someone is signed in; when no one is, says so on `err`.
bool checkSignedIn(const TavoAccountStore& accounts, QTextStream& err);

// The signed-in profile's attachments folder, from a read-only view. A writable store writes its
// collection list back when it opens, so what comes in is read and checked against this folder
// first, and a refusal leaves every file as it was.
QString attachmentsFolder(Defaults& defaults, const TavoAccountStore& accounts);

// A step's message on standard output and exit status 0, or its error on `err` and 1.
int report(const Result<QString>& result, QTextStream& out, QTextStream& err);

// Tabs and line breaks made blanks, so one item stays one line of tab-separated output.
QString oneLine(QString text);

// What one change of the library did, or why it did nothing.
struct LibraryChange
{
    QString refusal;          // the sheet's message; nothing was changed
    QString done;             // the confirmation for standard output
    QString warning;          // said on standard error beside a change that went ahead
    bool clips = false;       // the shortcuts changed and must be saved
    bool library = false;     // definitions or records changed and must be saved
    bool nothingToDo = false; // the library is already as asked: `done` is said, nothing written

    static LibraryChange refused(QString message)
    {
        LibraryChange change;
        change.refusal = std::move(message);
        return change;
    }
};

// The signed-in user's profile for a command that only looks, or null after telling on `err`
// that no one is signed in. `user` gets the account's name.
std::unique_ptr<DB> openForReading(Defaults& defaults, QString& user, QTextStream& err);

// Changes the signed-in library. `edit` checks everything before it changes anything, and is
// run first on a read-only view, so a refusal leaves every file as it was, untouched. Then it runs
// on a writable view, whose saves take the store's locks and merge with what a running Tavo
// wrote meanwhile. Exit status 0, or 1 after a refusal or a failed save.
int changeLibrary(const std::function<LibraryChange(DB&)>& edit, QTextStream& out, QTextStream& err);

} // namespace tavo::ctl
