#include "tavoctl/ctl_commands.h"
#include "tavoctl/ctl_options.h"
#include "tavoctl/ctl_profile.h"

#include "exchange/csv.h"
#include "store/accounts.h"
#include "store/defaults.h"

#include <QFile>

#include <cstdio>

namespace tavo::ctl {

namespace {

using Kind = CommandLine::Kind;

const QString csvUsage = QStringLiteral(R"(Usage: tavoctl csv import FILE|- [--collection NAME]... [--download-media]
       tavoctl csv export FILE
)");

int csvImport(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(
        QStringLiteral("csv import FILE|- [--collection NAME]... [--download-media]"),
        {{QStringLiteral("--collection"), Kind::Repeatable}, {QStringLiteral("--download-media"), Kind::Flag}}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    TavoAccountStore accounts(defaults);
    if (!checkSignedIn(accounts, err)) {
        return 1;
    }

    const QString source = line.positional().first();
    QFile file;
    const bool opened = source == QLatin1String("-") ? file.open(stdin, QIODevice::ReadOnly)
                                                     : (file.setFileName(source), file.open(QIODevice::ReadOnly));
    const QByteArray bytes = opened ? file.readAll() : QByteArray();
    if (!opened || file.error() != QFileDevice::NoError) {
        err << "Could not read " << (source == QLatin1String("-") ? QStringLiteral("standard input") : source) << ": "
            << file.errorString() << '\n';
        return 1;
    }
    const CSVRows rows = parseCSV(decodeCSVBytes(bytes));

    const std::unique_ptr<DB> db = openProfile(defaults, accounts, DB::Access::ReadWrite);
    const PreparedCSVImport prepared =
        prepareCSVImport(rows, line.isSet(QStringLiteral("--download-media")),
                         line.values(QStringLiteral("--collection")), db->collections(), db->attachmentsDir());
    for (const QString& failure : prepared.failures) {
        err << "Download failed: " << failure << '\n';
    }
    return report(applyCSVImport(*db, prepared), out, err);
}

int csvExport(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("csv export FILE"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    QString user;
    const std::unique_ptr<DB> db = openForReading(defaults, user, err);
    if (!db) {
        return 1;
    }
    return report(exportCSV(db->clips(), line.positional().first()), out, err);
}

} // namespace

int csv(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    return runAction(arguments, {{QStringLiteral("import"), csvImport}, {QStringLiteral("export"), csvExport}},
                     csvUsage, out, err);
}

} // namespace tavo::ctl
