#include "tavoctl/ctl_profile.h"

#include "store/accounts.h"
#include "store/defaults.h"

namespace tavo::ctl {

std::unique_ptr<DB> openProfile(Defaults& defaults, const TavoAccountStore& accounts, DB::Access access)
{
    const QString user = accounts.currentUsername();
    // A profile that was never activated is set up (and may claim older data) the first time
    // anything opens it, reader or not.
    if (access == DB::Access::ReadOnly) {
        DB probe(defaults, QString(), DB::Access::ReadOnly);
        if (!probe.profileExists(user)) {
            access = DB::Access::ReadWrite;
        }
    }
    auto db = std::make_unique<DB>(defaults, QString(), access);
    db->activateProfile(user, accounts.legacyEmailToMigrate());
    return db;
}

bool checkSignedIn(const TavoAccountStore& accounts, QTextStream& err)
{
    if (!accounts.isAuthenticated()) {
        err << signInFirst << '\n';
        return false;
    }
    return true;
}

QString attachmentsFolder(Defaults& defaults, const TavoAccountStore& accounts)
{
    return openProfile(defaults, accounts, DB::Access::ReadOnly)->attachmentsDir();
}

int report(const Result<QString>& result, QTextStream& out, QTextStream& err)
{
    if (!result) {
        err << result.error().description << '\n';
        return 1;
    }
    out << *result << '\n';
    return 0;
}

QString oneLine(QString text)
{
    text.replace(u'\t', u' ').replace(u'\n', u' ').replace(u'\r', u' ');
    return text;
}

std::unique_ptr<DB> openForReading(Defaults& defaults, QString& user, QTextStream& err)
{
    TavoAccountStore accounts(defaults);
    if (!checkSignedIn(accounts, err)) {
        return nullptr;
    }
    user = accounts.currentUsername();
    return openProfile(defaults, accounts, DB::Access::ReadOnly);
}

int changeLibrary(const std::function<LibraryChange(DB&)>& edit, QTextStream& out, QTextStream& err)
{
    Defaults defaults;
    TavoAccountStore accounts(defaults);
    if (!checkSignedIn(accounts, err)) {
        return 1;
    }
    {
        // Opening a writable store writes its collection list back, so the decision comes first.
        const std::unique_ptr<DB> view = openProfile(defaults, accounts, DB::Access::ReadOnly);
        const LibraryChange trial = edit(*view);
        if (!trial.refusal.isEmpty()) {
            err << trial.refusal << '\n';
            return 1;
        }
        if (trial.nothingToDo) {
            out << trial.done << '\n';
            return 0;
        }
    }
    const std::unique_ptr<DB> db = openProfile(defaults, accounts, DB::Access::ReadWrite);
    // Decided again on what is on disk now: another process may have changed it in between.
    const LibraryChange change = edit(*db);
    if (!change.refusal.isEmpty()) {
        err << change.refusal << '\n';
        return 1;
    }
    if ((change.clips && !db->save()) || (change.library && !db->saveCollectionLibrary())) {
        err << "Could not save the changes in " << db->dir() << ".\n";
        return 1;
    }
    if (!change.warning.isEmpty()) {
        err << change.warning << '\n';
    }
    out << change.done << '\n';
    return 0;
}

} // namespace tavo::ctl
