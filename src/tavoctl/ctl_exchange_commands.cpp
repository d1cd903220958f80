#include "tavoctl/ctl_commands.h"
#include "tavoctl/ctl_options.h"
#include "tavoctl/ctl_profile.h"

#include "exchange/shortcut_share.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/scorecard.h"

#include <QDir>
#include <QLoggingCategory>

#include <algorithm>

namespace tavo::ctl {

namespace {

using Kind = CommandLine::Kind;

// The archive code logs why an archive failed; a command tells the user's text alone.
void quietArchiveLogs()
{
    QLoggingCategory::setFilterRules(QStringLiteral("tavo.platform.zip.warning=false"));
}

struct Selection
{
    QList<Clip> clips;
    QString title;
    QString refusal;
};

// The shortcuts a package of this command carries, and the title the share menu gives them.
Selection selectClips(const DB& db, const CommandLine& line)
{
    Selection selection;
    if (line.isSet(QStringLiteral("--collection"))) {
        const QString typed = line.value(QStringLiteral("--collection")).trimmed();
        if (typed.compare(ShareText::allCollections, Qt::CaseInsensitive) == 0) {
            selection.clips = db.clips();
            selection.title = ShareText::allShortcutsTitle;
            return selection;
        }
        const auto found = std::find_if(db.collections().cbegin(), db.collections().cend(), [&](const QString& name) {
            return name.compare(typed, Qt::CaseInsensitive) == 0;
        });
        if (found == db.collections().cend()) {
            selection.refusal = QStringLiteral("No collection is named ") + typed + u'.';
            return selection;
        }
        selection.title = *found;
        for (const Clip& clip : db.clips()) {
            if (clip.allGroups().contains(*found, Qt::CaseInsensitive)) {
                selection.clips.append(clip);
            }
        }
        return selection;
    }
    if (line.isSet(QStringLiteral("--key"))) {
        selection.title = ShareText::selectedShortcutsTitle;
        const QStringList keys = line.values(QStringLiteral("--key"));
        for (const QString& typed : keys) {
            const bool known = std::any_of(db.clips().cbegin(), db.clips().cend(),
                                           [&](const Clip& clip) { return triggerMatches(typed, clip.key); });
            if (!known) {
                selection.refusal =
                    QStringLiteral("No shortcut has the key ") + displayTrigger(normalizedTrigger(typed)) + u'.';
                return selection;
            }
        }
        // In the library's order, as a selection in the list would be.
        for (const Clip& clip : db.clips()) {
            if (std::any_of(keys.cbegin(), keys.cend(),
                            [&](const QString& typed) { return triggerMatches(typed, clip.key); })) {
                selection.clips.append(clip);
            }
        }
        return selection;
    }
    selection.clips = db.clips();
    selection.title = ShareText::allShortcutsTitle;
    return selection;
}

} // namespace

int exportPackage(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("export [--collection NAME | --key KEY...] [--title T] [--out FILE]"),
                     {{QStringLiteral("--collection"), Kind::Value},
                      {QStringLiteral("--key"), Kind::Repeatable},
                      {QStringLiteral("--title"), Kind::Value},
                      {QStringLiteral("--out"), Kind::Value}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    if (line.isSet(QStringLiteral("--collection")) && line.isSet(QStringLiteral("--key"))) {
        return line.usageError(QStringLiteral("Give either --collection or --key, not both."), err);
    }
    Defaults defaults;
    QString user;
    const std::unique_ptr<DB> db = openForReading(defaults, user, err);
    if (!db) {
        return 1;
    }
    Selection selection = selectClips(*db, line);
    if (!selection.refusal.isEmpty()) {
        err << selection.refusal << '\n';
        return 1;
    }
    if (selection.clips.isEmpty()) {
        err << ShareText::selectAtLeastOne << '\n';
        return 1;
    }
    const QString title =
        line.isSet(QStringLiteral("--title")) ? line.value(QStringLiteral("--title")) : selection.title;
    const QString target = line.isSet(QStringLiteral("--out"))
                               ? QDir::current().absoluteFilePath(line.value(QStringLiteral("--out")))
                               : QString();
    quietArchiveLogs();
    const Result<QString> archive = TavoShortcutShare::makeArchive(selection.clips, title, std::nullopt, target);
    if (!archive) {
        err << ShareText::prepareFailed(archive.error().description) << '\n';
        return 1;
    }
    recordMetric(defaults, user, Metric::sharePackages, selection.clips.size());
    out << *archive << '\n';
    return 0;
}

int importPackage(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("import FILE"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    TavoAccountStore accounts(defaults);
    if (!checkSignedIn(accounts, err)) {
        return 1;
    }
    const QString file = QDir::current().absoluteFilePath(line.positional().first());
    const QString attachments = attachmentsFolder(defaults, accounts);
    quietArchiveLogs();
    const Result<QList<Clip>> imported = TavoShortcutShare::importBundle(file, attachments);
    if (!imported) {
        err << ShareText::importFailed(imported.error().description) << '\n';
        return 1;
    }
    const std::unique_ptr<DB> db = openProfile(defaults, accounts, DB::Access::ReadWrite);
    if (const std::optional<TavoError> error = addImportedClips(*db, *imported)) {
        err << ShareText::importFailed(error->description) << '\n';
        return 1;
    }
    out << ShareText::imported(imported->size()) << '\n';
    return 0;
}

} // namespace tavo::ctl
