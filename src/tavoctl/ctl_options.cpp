#include "tavoctl/ctl_options.h"

namespace tavo::ctl {

CommandLine::CommandLine(QString usage, QList<Option> options, qsizetype minimum, qsizetype maximum)
    : m_usage(std::move(usage))
    , m_options(std::move(options))
    , m_minimum(minimum)
    , m_maximum(maximum)
{
}

const CommandLine::Option* CommandLine::find(const QString& name) const
{
    for (const Option& option : m_options) {
        if (option.name == name) {
            return &option;
        }
    }
    return nullptr;
}

int CommandLine::usageError(const QString& problem, QTextStream& err) const
{
    if (!problem.isEmpty()) {
        err << problem << '\n';
    }
    err << "Usage: tavoctl " << m_usage << '\n';
    return 2;
}

std::optional<int> CommandLine::parse(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    m_positional.clear();
    m_given.clear();
    bool optionsEnded = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        // A lone "-" and "-2^2" are arguments; only "--" starts an option.
        if (optionsEnded || !argument.startsWith(QLatin1String("--"))) {
            m_positional.append(argument);
            continue;
        }
        if (argument == QLatin1String("--")) {
            optionsEnded = true;
            continue;
        }
        if (argument == QLatin1String("--help")) {
            out << "Usage: tavoctl " << m_usage << '\n';
            return 0;
        }
        const qsizetype equals = argument.indexOf(u'=');
        const QString name = equals < 0 ? argument : argument.left(equals);
        const Option* option = find(name);
        if (!option) {
            return usageError(QStringLiteral("Unknown option ") + name + u'.', err);
        }
        if (option->kind == Kind::Flag) {
            if (equals >= 0) {
                return usageError(name + QStringLiteral(" takes no value."), err);
            }
            m_given.insert(name, {});
            continue;
        }
        QString value;
        if (equals >= 0) {
            value = argument.mid(equals + 1);
        } else if (i + 1 < arguments.size()) {
            value = arguments[++i];
        } else {
            return usageError(name + QStringLiteral(" needs a value."), err);
        }
        if (option->kind == Kind::Value && m_given.contains(name)) {
            return usageError(name + QStringLiteral(" is given more than once."), err);
        }
        m_given[name].append(value);
    }
    if (m_positional.size() < m_minimum) {
        return usageError(QStringLiteral("Missing arguments."), err);
    }
    if (m_positional.size() > m_maximum) {
        return usageError(QStringLiteral("Unexpected argument ") + m_positional[m_maximum] + u'.', err);
    }
    return std::nullopt;
}

int runAction(const QStringList& arguments, const QList<std::pair<QString, Action>>& actions, const QString& usage,
              QTextStream& out, QTextStream& err)
{
    const QString action = arguments.value(0);
    for (const auto& [name, run] : actions) {
        if (action == name) {
            return run(arguments.mid(1), out, err);
        }
    }
    if (action == QLatin1String("--help")) {
        out << usage;
        return 0;
    }
    err << usage;
    return 2;
}

} // namespace tavo::ctl
