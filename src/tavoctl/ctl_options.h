#pragma once

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTextStream>

#include <functional>
#include <optional>
#include <utility>

namespace tavo::ctl {

// The command line of one tavoctl command: the options it accepts and what was given. Every
// command reads its arguments through this one parser, so flags, values, repeated options,
// "--name=value" and a closing "--" behave the same everywhere.
class CommandLine
{
public:
    enum class Kind
    {
        Flag,       // --json
        Value,      // --name N, at most once
        Repeatable, // --value A=1 --value B=2: each one counts
    };
    struct Option
    {
        QString name; // with its dashes
        Kind kind;
    };

    // `usage` is the synopsis after "tavoctl ", shown with every problem; the command takes
    // `minimum` to `maximum` positional arguments.
    CommandLine(QString usage, QList<Option> options, qsizetype minimum = 0, qsizetype maximum = 0);

    // Reads `arguments`. Nothing when the command may run; otherwise its exit status: 2 after
    // telling an unknown option, a missing value or a wrong number of arguments on `err` with
    // the usage, 0 after showing the usage on `out` for "--help".
    std::optional<int> parse(const QStringList& arguments, QTextStream& out, QTextStream& err);

    // A problem the command itself finds in its arguments: told with the usage; gives status 2.
    int usageError(const QString& problem, QTextStream& err) const;

    const QStringList& positional() const { return m_positional; }
    bool isSet(const QString& name) const { return m_given.contains(name); }
    // The option's value, empty when it was not given.
    QString value(const QString& name) const { return m_given.value(name).value(0); }
    // Every value of a repeatable option, in the order given.
    QStringList values(const QString& name) const { return m_given.value(name); }

private:
    const Option* find(const QString& name) const;

    QString m_usage;
    QList<Option> m_options;
    qsizetype m_minimum;
    qsizetype m_maximum;
    QStringList m_positional;
    QHash<QString, QStringList> m_given;
};

// A command made of actions ("collection add", "record list"): runs the action named by the
// first argument with the rest; "--help" shows `usage`, anything else is told with it (status 2).
using Action = std::function<int(const QStringList& arguments, QTextStream& out, QTextStream& err)>;
int runAction(const QStringList& arguments, const QList<std::pair<QString, Action>>& actions, const QString& usage,
              QTextStream& out, QTextStream& err);

} // namespace tavo::ctl
