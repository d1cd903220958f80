#include "tavoctl/ctl_commands.h"
#include "tavoctl/ctl_options.h"
#include "tavoctl/ctl_profile.h"

#include "platform/secret/libsecret_store.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"

#include <QJsonDocument>

namespace tavo::ctl {

namespace {

using Kind = CommandLine::Kind;

// One line of standard input, without its line break; never an argument, which other users
// could read from the process list.
QString readPassword(QTextStream& in)
{
    QString line = in.readLine();
    if (line.endsWith(u'\r')) {
        line.chop(1);
    }
    return line;
}

// The collections of the shortcuts that `key` would repeat, each once, in the order met.
QStringList collectionsRepeating(const QList<Clip>& clips, const QString& key)
{
    const QString repeated = duplicateShortcutKey(key);
    QStringList collections;
    for (const Clip& clip : clips) {
        if (duplicateShortcutKey(clip.key) != repeated) {
            continue;
        }
        for (const QString& group : clip.allGroups()) {
            if (!group.isEmpty() && !collections.contains(group, Qt::CaseInsensitive)) {
                collections.append(group);
            }
        }
    }
    return collections;
}

} // namespace

int account(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("account register|signin NAME, or account signout|status"), {}, 1, 2);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const QStringList& words = line.positional();
    const QString action = words.first();
    Defaults defaults;
    LibsecretStore keyring;
    KeyStore::setBackend(&keyring);
    TavoAccountStore accounts(defaults);

    if (action == QLatin1String("status") && words.size() == 1) {
        out << (accounts.isAuthenticated() ? accounts.currentUsername() : AccountText::signedOut) << '\n';
        return 0;
    }
    if (action == QLatin1String("signout") && words.size() == 1) {
        accounts.signOut();
        out << accounts.message() << '\n';
        return 0;
    }
    const bool creating = action == QLatin1String("register");
    if ((!creating && action != QLatin1String("signin")) || words.size() != 2) {
        return line.usageError({}, err);
    }

    const QString password = readPassword(in);
    if (const std::optional<QString> problem = registrationProblem(creating, password, password)) {
        err << *problem << '\n';
        return 1;
    }
    const bool accepted = creating ? accounts.registerAccount(words[1], password) : accounts.signIn(words[1], password);
    if (!accepted) {
        err << accounts.message() << '\n';
        return 1;
    }
    // Signing in activates the profile, as the application does when it sees the sign-in.
    openProfile(defaults, accounts, DB::Access::ReadWrite);
    out << accounts.message() << '\n';
    return 0;
}

int list(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("list [--collection NAME] [--json]"),
                     {{QStringLiteral("--collection"), Kind::Value}, {QStringLiteral("--json"), Kind::Flag}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    QString user;
    const std::unique_ptr<DB> db = openForReading(defaults, user, err);
    if (!db) {
        return 1;
    }

    QList<Clip> clips;
    const QString collection = line.value(QStringLiteral("--collection"));
    for (const Clip& clip : db->clips()) {
        if (collection.isEmpty() || clip.allGroups().contains(collection, Qt::CaseInsensitive)) {
            clips.append(clip);
        }
    }
    if (line.isSet(QStringLiteral("--json"))) {
        out << QString::fromUtf8(QJsonDocument(clipsToJson(clips)).toJson(QJsonDocument::Indented));
        return 0;
    }
    for (const Clip& clip : clips) {
        out << oneLine(displayTrigger(clip.key)) << '\t' << oneLine(clip.name) << '\t'
            << oneLine(clip.allGroups().join(QStringLiteral(", "))) << '\n';
    }
    return 0;
}

int add(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("add KEY TEXT [--collection NAME] [--name NAME]"),
                     {{QStringLiteral("--collection"), Kind::Value}, {QStringLiteral("--name"), Kind::Value}}, 2, 2);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const QString typedKey = line.positional()[0];
    if (normalizedTrigger(typedKey) == QLatin1String("/")) {
        err << "Enter a shortcut key.\n";
        return 1;
    }

    // The shortcut editor's saving rules.
    const QString chosen = line.value(QStringLiteral("--collection")).trimmed();
    Clip clip;
    clip.group = chosen.isEmpty() ? QStringLiteral("Imported") : chosen;
    clip.key = collectionTrigger(typedKey, clip.group);
    const QString name = line.value(QStringLiteral("--name")).trimmed();
    clip.name = name.isEmpty() ? clip.key : name;
    clip.text = line.positional()[1];

    return changeLibrary(
        [&](DB& db) {
            LibraryChange change;
            // A second shortcut of a key is allowed, but should not come as a surprise.
            const QStringList repeated = collectionsRepeating(db.clips(), clip.key);
            if (!repeated.isEmpty()) {
                change.warning = displayTrigger(clip.key) + QStringLiteral(" exists already in ") +
                                 repeated.join(QStringLiteral(", ")) + QStringLiteral("; added another.");
            }
            if (!db.collections().contains(clip.group, Qt::CaseInsensitive)) {
                db.setCollections(QStringList(db.collections()) << clip.group);
            }
            db.setClips(QList<Clip>(db.clips()) << clip);
            change.clips = true;
            change.done = QStringLiteral("Saved ") + displayTrigger(clip.key) + u'.';
            return change;
        },
        out, err);
}

} // namespace tavo::ctl
