#include "tavoctl/ctl_commands.h"
#include "tavoctl/ctl_options.h"

#include "language/math_expression.h"

namespace tavo::ctl {

namespace {

const char* const usage = R"(Usage: tavoctl COMMAND [ARGUMENTS]

The command-line companion of Tavo, the text-expansion workstation.

Commands:
  calc EXPRESSION              Print the value of a calculator trigger, such as '\2+3*4'.
  account register NAME        Create a local account; the password is read from standard input.
  account signin NAME          Sign in; the password is read from standard input.
  account signout              Sign out.
  account status               Print the signed-in username, or "Signed out.".
  list [--collection NAME] [--json]
                               List the signed-in user's shortcuts.
  add KEY TEXT [--collection NAME] [--name NAME]
                               Save a text shortcut; says so when the key exists already.
  expand TRIGGER               Print what typing TRIGGER and a space would do, touching no window.
  collection list [--json]     List the collections: category, shortcuts, records, hidden.
  collection add NAME [--fields "A, B"] [--category C] [--description D]
                               Create a collection whose records have these fields.
  collection rename FROM TO    Rename a collection wherever it is named.
  collection hide|show NAME    Hide a collection from lists and typing, or show it again.
  collection remove NAME       Remove a collection of your own that holds nothing.
  record add COLLECTION --name N --alias A [--value FIELD=VALUE]...
                               Save a record, creating its collection when needed.
  record list [COLLECTION] [--json]
                               List the records.
  record remove COLLECTION ALIAS
                               Delete a record.
  duplicates                   Show repeated shortcuts and collections with identical contents.
  stats [--json]               Show the signed-in account's scorecard.
  export [--collection NAME | --key KEY...] [--title T] [--out FILE]
                               Make a shortcut package and print its path.
  import FILE                  Add the shortcuts of a package.
  backup [FILE]                Save the whole profile to a zip (default: on the Desktop).
  restore FILE                 Replace the shortcuts, collections and records by those of a
                               backup; media of yours is never overwritten.
  csv import FILE|- [--collection NAME]... [--download-media]
                               Add shortcuts from CSV rows.
  csv export FILE              Write every shortcut as CSV.
  ai list [--json]             List the AI model profiles.
  ai add|select|remove|key|generate ...
                               Manage model profiles and generate text; see 'tavoctl ai --help'.
  prompt expand [--json]       Expand shortcut mentions in the prompt read from standard input.
  builder list|show|render|new|set|unset ...
                               Builder apps; see 'tavoctl builder --help'.
  browser tabs|open|close|group|links|save|unsave|collections|import|private ...
                               The built-in browser's workspace; see 'tavoctl browser --help'.
  help                         Show this help.

Options take their value as the next argument or after "=", and "--" ends the options.
)";

int calc(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("calc EXPRESSION"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const QString& expression = line.positional().first();
    const std::optional<double> value = MathExpression::evaluate(expression);
    if (!value) {
        err << "Not a calculation Tavo can evaluate: " << expression << '\n';
        return 1;
    }
    out << MathExpression::formatted(*value) << '\n';
    return 0;
}

} // namespace

int run(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err)
{
    if (arguments.isEmpty()) {
        err << usage;
        return 2;
    }
    const QString command = arguments.first();
    const QStringList rest = arguments.mid(1);
    if (command == QLatin1String("help") || command == QLatin1String("--help") || command == QLatin1String("-h")) {
        out << usage;
        return 0;
    }
    using Plain = int (*)(const QStringList&, QTextStream&, QTextStream&);
    static const QList<std::pair<QLatin1String, Plain>> commands = {
        {QLatin1String("calc"), calc},
        {QLatin1String("list"), list},
        {QLatin1String("add"), add},
        {QLatin1String("expand"), expand},
        {QLatin1String("collection"), collection},
        {QLatin1String("record"), record},
        {QLatin1String("duplicates"), duplicates},
        {QLatin1String("stats"), stats},
        {QLatin1String("export"), exportPackage},
        {QLatin1String("import"), importPackage},
        {QLatin1String("backup"), backup},
        {QLatin1String("restore"), restore},
        {QLatin1String("csv"), csv},
        {QLatin1String("builder"), builder},
    };
    for (const auto& [name, command_] : commands) {
        if (command == name) {
            return command_(rest, out, err);
        }
    }
    // The commands that read a password or a key from standard input.
    if (command == QLatin1String("account")) {
        return account(rest, in, out, err);
    }
    if (command == QLatin1String("ai")) {
        return ai(rest, in, out, err);
    }
    if (command == QLatin1String("browser")) {
        return browser(rest, in, out, err);
    }
    if (command == QLatin1String("prompt")) {
        return prompt(rest, in, out, err);
    }
    err << "tavoctl: unknown command '" << command << "'\n" << usage;
    return 2;
}

} // namespace tavo::ctl
