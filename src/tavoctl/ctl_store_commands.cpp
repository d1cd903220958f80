#include "tavoctl/ctl_commands.h"

#include "platform/secret/libsecret_store.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"

#include <QJsonDocument>

namespace tavo::ctl {

namespace {

const QString signInFirst = QStringLiteral("Sign in to Tavo first.");

// The options of a command: "--flag" alone, or "--option VALUE". Anything else is positional.
struct Options
{
    QStringList positional;
    QHash<QString, QString> values;
    QSet<QString> flags;
    QString problem;
};

Options parseOptions(const QStringList& arguments, const QStringList& valueOptions, const QStringList& flagOptions)
{
    Options options;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        if (valueOptions.contains(argument)) {
            if (i + 1 >= arguments.size()) {
                options.problem = argument + QStringLiteral(" needs a value.");
                return options;
            }
            options.values.insert(argument, arguments[++i]);
        } else if (flagOptions.contains(argument)) {
            options.flags.insert(argument);
        } else if (argument.startsWith(QLatin1String("--"))) {
            options.problem = QStringLiteral("Unknown option ") + argument + u'.';
            return options;
        } else {
            options.positional.append(argument);
        }
    }
    return options;
}

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

// The application's view of the signed-in profile, as the main window activates it.
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

QString oneLine(QString text)
{
    text.replace(u'\t', u' ').replace(u'\n', u' ').replace(u'\r', u' ');
    return text;
}

} // namespace

int account(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err)
{
    const QString usage = QStringLiteral("Usage: tavoctl account register|signin NAME, or account signout|status\n");
    if (arguments.isEmpty()) {
        err << usage;
        return 2;
    }
    Defaults defaults;
    LibsecretStore keyring;
    KeyStore::setBackend(&keyring);
    TavoAccountStore accounts(defaults);
    const QString action = arguments.first();

    if (action == QLatin1String("status") && arguments.size() == 1) {
        out << (accounts.isAuthenticated() ? accounts.currentUsername() : AccountText::signedOut) << '\n';
        return 0;
    }
    if (action == QLatin1String("signout") && arguments.size() == 1) {
        accounts.signOut();
        out << accounts.message() << '\n';
        return 0;
    }
    const bool creating = action == QLatin1String("register");
    if ((!creating && action != QLatin1String("signin")) || arguments.size() != 2) {
        err << usage;
        return 2;
    }

    const QString password = readPassword(in);
    if (const std::optional<QString> problem = registrationProblem(creating, password, password)) {
        err << *problem << '\n';
        return 1;
    }
    const bool accepted =
        creating ? accounts.registerAccount(arguments[1], password) : accounts.signIn(arguments[1], password);
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
    const Options options = parseOptions(arguments, {QStringLiteral("--collection")}, {QStringLiteral("--json")});
    if (!options.problem.isEmpty() || !options.positional.isEmpty()) {
        err << (options.problem.isEmpty() ? QString() : options.problem + u'\n')
            << "Usage: tavoctl list [--collection NAME] [--json]\n";
        return 2;
    }
    Defaults defaults;
    TavoAccountStore accounts(defaults);
    if (!accounts.isAuthenticated()) {
        err << signInFirst << '\n';
        return 1;
    }
    const std::unique_ptr<DB> db = openProfile(defaults, accounts, DB::Access::ReadOnly);

    QList<Clip> clips;
    const QString collection = options.values.value(QStringLiteral("--collection"));
    for (const Clip& clip : db->clips()) {
        if (collection.isEmpty() || clip.allGroups().contains(collection, Qt::CaseInsensitive)) {
            clips.append(clip);
        }
    }
    if (options.flags.contains(QStringLiteral("--json"))) {
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
    const Options options = parseOptions(arguments, {QStringLiteral("--collection"), QStringLiteral("--name")}, {});
    if (!options.problem.isEmpty() || options.positional.size() != 2) {
        err << (options.problem.isEmpty() ? QString() : options.problem + u'\n')
            << "Usage: tavoctl add KEY TEXT [--collection NAME] [--name NAME]\n";
        return 2;
    }
    const QString typedKey = options.positional[0];
    if (normalizedTrigger(typedKey) == QLatin1String("/")) {
        err << "Enter a shortcut key.\n";
        return 1;
    }
    Defaults defaults;
    TavoAccountStore accounts(defaults);
    if (!accounts.isAuthenticated()) {
        err << signInFirst << '\n';
        return 1;
    }
    const std::unique_ptr<DB> db = openProfile(defaults, accounts, DB::Access::ReadWrite);

    // The shortcut editor's saving rules.
    const QString chosen = options.values.value(QStringLiteral("--collection")).trimmed();
    Clip clip;
    clip.group = chosen.isEmpty() ? QStringLiteral("Imported") : chosen;
    clip.key = collectionTrigger(typedKey, clip.group);
    const QString name = options.values.value(QStringLiteral("--name")).trimmed();
    clip.name = name.isEmpty() ? clip.key : name;
    clip.text = options.positional[1];

    if (!db->collections().contains(clip.group, Qt::CaseInsensitive)) {
        db->setCollections(QStringList(db->collections()) << clip.group);
    }
    db->setClips(QList<Clip>(db->clips()) << clip);
    if (!db->save()) {
        err << "Could not save the shortcut in " << db->dir() << ".\n";
        return 1;
    }
    out << "Saved " << displayTrigger(clip.key) << ".\n";
    return 0;
}

} // namespace tavo::ctl
