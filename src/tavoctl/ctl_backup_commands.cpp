#include "tavoctl/ctl_commands.h"
#include "tavoctl/ctl_options.h"
#include "tavoctl/ctl_profile.h"

#include "exchange/profile_backup.h"
#include "store/accounts.h"
#include "store/defaults.h"

#include <QDir>
#include <QFileInfo>

namespace tavo::ctl {

namespace {

// Where `tavoctl backup FILE` writes: a folder gets the suggested name inside it, and a name
// without ".zip" gets it, as the save dialog does.
QString backupTarget(const QString& given)
{
    if (given.isEmpty()) {
        return defaultBackupPath();
    }
    const QFileInfo info(given);
    if (info.isDir()) {
        return QDir(info.absoluteFilePath()).filePath(suggestedBackupName());
    }
    QString path = info.absoluteFilePath();
    if (!path.endsWith(QLatin1StringView(".zip"), Qt::CaseInsensitive)) {
        path += QStringLiteral(".zip");
    }
    return path;
}

} // namespace

int backup(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("backup [FILE]"), {}, 0, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    QString user;
    const std::unique_ptr<DB> db = openForReading(defaults, user, err);
    if (!db) {
        return 1;
    }
    const Result<QString> saved =
        makeProfileBackup({db->dir(), db->hiddenCollections(), backupTarget(line.positional().value(0))});
    if (!saved.ok()) {
        err << saved.error().description << '\n';
        return 1;
    }
    out << backupSavedStatus(*saved) << '\n';
    return 0;
}

int restore(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("restore FILE"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    TavoAccountStore accounts(defaults);
    if (!checkSignedIn(accounts, err)) {
        return 1;
    }
    Result<PreparedRestore> prepared = prepareRestore(QFileInfo(line.positional().constFirst()).absoluteFilePath(),
                                                      attachmentsFolder(defaults, accounts));
    if (!prepared.ok()) {
        err << prepared.error().description << '\n';
        return 1;
    }
    const std::unique_ptr<DB> db = openProfile(defaults, accounts, DB::Access::ReadWrite);
    return report(commitRestore(*db, std::move(prepared).value()), out, err);
}

} // namespace tavo::ctl
