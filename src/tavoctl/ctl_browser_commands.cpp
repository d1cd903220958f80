#include "tavoctl/ctl_commands.h"
#include "tavoctl/ctl_options.h"
#include "tavoctl/ctl_profile.h"

#include "browser/browser_tabs.h"
#include "platform/secret/libsecret_store.h"
#include "store/defaults.h"
#include "store/key_store.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace tavo::ctl {

namespace {

using Kind = CommandLine::Kind;

const QString browserUsage = QStringLiteral(R"(Usage: tavoctl browser tabs [--json]
       tavoctl browser open URL
       tavoctl browser close ID
       tavoctl browser group ID NAME|--none
       tavoctl browser links [--collection NAME] [--search TEXT] [--json]
       tavoctl browser save URL [--title T] [--tags "a, b"] [--note N] [--collection C]
       tavoctl browser unsave ID
       tavoctl browser collections [--json]
       tavoctl browser import FILE
       tavoctl browser private setup|status

The browser's workspace is the desktop user's, shared by every Tavo profile; a running Tavo
follows the changes. With --private, a command works on the passcode-locked private workspace:
the passcode is read from standard input first, and the workspace is locked again afterwards.
"private setup" reads the new passcode and its confirmation from standard input, one a line.
)");

const QString privateFlag = QStringLiteral("--private");

QString readLine(QTextStream& in)
{
    QString line = in.readLine();
    if (line.endsWith(u'\r')) {
        line.chop(1);
    }
    return line;
}

QString indented(const QByteArray& json)
{
    return QString::fromUtf8(QJsonDocument::fromJson(json).toJson(QJsonDocument::Indented));
}

QString indented(const QJsonObject& object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented));
}

bool hasTab(const TavoBrowserTabs& tabs, const QString& id)
{
    return std::any_of(tabs.tabs().cbegin(), tabs.tabs().cend(),
                       [&id](const TavoBrowserTab& tab) { return tab.id == id; });
}

// One command's run on the workspace: the normal one, or the private one between an unlock with
// the passcode from `in` and the lock. Every change is written before this returns.
class Workspace
{
public:
    Workspace(bool privateMode, QTextStream& in, QTextStream& err)
        : m_privateMode(privateMode)
        , m_in(in)
        , m_err(err)
    {
        KeyStore::setBackend(&m_keyring);
    }
    ~Workspace() { KeyStore::setBackend(nullptr); }

    int run(const std::function<int(TavoBrowserTabs&)>& body)
    {
        TavoBrowserTabs tabs(m_defaults);
        if (m_privateMode) {
            const QString passcode = readLine(m_in);
            if (!tabs.hasPrivatePasscode()) {
                m_err << "Private Mode has no passcode yet; set one up with 'tavoctl browser private setup'.\n";
                return 1;
            }
            if (const std::optional<QString> problem = BrowserPrivateGate::submit(tabs, passcode, QString(), true)) {
                m_err << *problem << '\n';
                return 1;
            }
        }
        int status = body(tabs);
        tabs.flush();
        if (m_privateMode) {
            tabs.setBrowserMessage(std::nullopt);
            tabs.lockPrivateMode();
            tabs.flush();
            if (tabs.browserMessage() == privateSaveFailedMessage) {
                m_err << privateSaveFailedMessage << '\n';
                status = 1;
            }
        }
        return status;
    }

private:
    bool m_privateMode;
    QTextStream& m_in;
    QTextStream& m_err;
    LibsecretStore m_keyring;
    Defaults m_defaults;
};

int tabsAction(const QStringList& arguments, bool privateMode, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("browser tabs [--json]"), {{QStringLiteral("--json"), Kind::Flag}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    return Workspace(privateMode, in, err).run([&](TavoBrowserTabs& tabs) {
        if (line.isSet(QStringLiteral("--json"))) {
            QJsonArray list;
            for (const TavoBrowserTab& tab : tabs.tabs()) {
                list.append(QJsonObject{{QStringLiteral("id"), tab.id},
                                        {QStringLiteral("title"), tab.title},
                                        {QStringLiteral("url"), tab.url}});
            }
            QJsonObject groups;
            for (auto it = tabs.tabGroups().cbegin(); it != tabs.tabGroups().cend(); ++it) {
                groups.insert(it.key(), it.value());
            }
            QStringList collapsed(tabs.collapsedTabGroups().cbegin(), tabs.collapsedTabGroups().cend());
            collapsed.sort();
            out << indented(QJsonObject{{QStringLiteral("tabs"), list},
                                        {QStringLiteral("selectedID"), tabs.selectedID()},
                                        {QStringLiteral("tabGroups"), groups},
                                        {QStringLiteral("collapsedTabGroups"), QJsonArray::fromStringList(collapsed)},
                                        {QStringLiteral("splitEnabled"), tabs.splitEnabled()},
                                        {QStringLiteral("secondaryID"), tabs.secondaryID()}});
            return 0;
        }
        for (const TavoBrowserTab& tab : tabs.tabs()) {
            out << tab.id << '\t' << oneLine(tab.title) << '\t' << oneLine(tab.url) << '\t'
                << oneLine(tabs.tabGroups().value(tab.id)) << '\n';
        }
        return 0;
    });
}

int openAction(const QStringList& arguments, bool privateMode, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("browser open URL"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const QString typed = line.positional().first();
    // Decided before the tab is made, so a refused address leaves no empty tab behind.
    if (!TavoBrowserTabs::navigableAddress(typed)) {
        err << "Tavo opens only http and https addresses: " << typed << '\n';
        return 1;
    }
    return Workspace(privateMode, in, err).run([&](TavoBrowserTabs& tabs) {
        tabs.newTab();
        tabs.setAddress(typed);
        tabs.navigate();
        out << tabs.selectedID() << '\t' << tabs.address() << '\n';
        return 0;
    });
}

int closeAction(const QStringList& arguments, bool privateMode, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("browser close ID"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const QString id = line.positional().first();
    return Workspace(privateMode, in, err).run([&](TavoBrowserTabs& tabs) {
        if (id == homeTabID) {
            err << "The Home tab cannot be closed.\n";
            return 1;
        }
        if (!hasTab(tabs, id)) {
            err << "No tab has the id " << id << ".\n";
            return 1;
        }
        tabs.close(id);
        return 0;
    });
}

int groupAction(const QStringList& arguments, bool privateMode, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("browser group ID NAME|--none"), {{QStringLiteral("--none"), Kind::Flag}}, 1, 2);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const bool none = line.isSet(QStringLiteral("--none"));
    const QStringList& words = line.positional();
    if (none != (words.size() == 1)) {
        return line.usageError(QStringLiteral("Give a group name or --none."), err);
    }
    const QString name = none ? QString() : words[1].trimmed();
    if (!none && name.isEmpty()) {
        return line.usageError(QStringLiteral("The group name is empty."), err);
    }
    return Workspace(privateMode, in, err).run([&](TavoBrowserTabs& tabs) {
        if (!hasTab(tabs, words[0])) {
            err << "No tab has the id " << words[0] << ".\n";
            return 1;
        }
        tabs.assignGroup(words[0], none ? std::nullopt : std::optional<QString>(name));
        return 0;
    });
}

int linksAction(const QStringList& arguments, bool privateMode, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("browser links [--collection NAME] [--search TEXT] [--json]"),
                     {{QStringLiteral("--collection"), Kind::Value},
                      {QStringLiteral("--search"), Kind::Value},
                      {QStringLiteral("--json"), Kind::Flag}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    return Workspace(privateMode, in, err).run([&](TavoBrowserTabs& tabs) {
        QList<TavoSavedSite> visible;
        for (const TavoSavedSite& site : tabs.saved()) {
            if (TavoBrowserTabs::savedSiteVisible(site, line.value(QStringLiteral("--collection")),
                                                  line.value(QStringLiteral("--search")))) {
                visible.append(site);
            }
        }
        if (line.isSet(QStringLiteral("--json"))) {
            out << indented(savedSitesToJson(visible));
            return 0;
        }
        for (const TavoSavedSite& site : visible) {
            out << oneLine(site.id) << '\t' << oneLine(site.title) << '\t' << oneLine(site.url) << '\t'
                << oneLine(site.collection) << '\t' << oneLine(site.tags.join(QStringLiteral(", "))) << '\n';
        }
        return 0;
    });
}

int saveAction(const QStringList& arguments, bool privateMode, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("browser save URL [--title T] [--tags \"a, b\"] [--note N] [--collection C]"),
                     {{QStringLiteral("--title"), Kind::Value},
                      {QStringLiteral("--tags"), Kind::Value},
                      {QStringLiteral("--note"), Kind::Value},
                      {QStringLiteral("--collection"), Kind::Value}},
                     1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    return Workspace(privateMode, in, err).run([&](TavoBrowserTabs& tabs) {
        // As the bookmark editor opens with nothing loaded: "Saved page" stands for a blank name.
        const std::optional<QString> id =
            tabs.saveBookmark(line.positional().first(), line.value(QStringLiteral("--title")),
                              QStringLiteral("Saved page"), line.value(QStringLiteral("--tags")),
                              line.value(QStringLiteral("--note")), line.value(QStringLiteral("--collection")));
        if (!id) {
            err << "Not an address Tavo can save: " << line.positional().first() << '\n';
            return 1;
        }
        out << *id << '\n';
        return 0;
    });
}

int unsaveAction(const QStringList& arguments, bool privateMode, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("browser unsave ID"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const QString id = line.positional().first();
    return Workspace(privateMode, in, err).run([&](TavoBrowserTabs& tabs) {
        if (id == homeTabID) {
            err << "The built-in home link cannot be removed.\n";
            return 1;
        }
        if (std::none_of(tabs.saved().cbegin(), tabs.saved().cend(),
                         [&id](const TavoSavedSite& site) { return site.id == id; })) {
            err << "No saved link has the id " << id << ".\n";
            return 1;
        }
        tabs.removeBookmark(id);
        return 0;
    });
}

int collectionsAction(const QStringList& arguments, bool privateMode, QTextStream& in, QTextStream& out,
                      QTextStream& err)
{
    CommandLine line(QStringLiteral("browser collections [--json]"), {{QStringLiteral("--json"), Kind::Flag}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    return Workspace(privateMode, in, err).run([&](TavoBrowserTabs& tabs) {
        if (line.isSet(QStringLiteral("--json"))) {
            out << indented(browserCollectionsToJson(tabs.collections()));
            return 0;
        }
        for (const TavoBrowserCollection& collection : tabs.collections()) {
            out << collection.id << '\t' << oneLine(collection.title) << '\t'
                << collection.createdDate().toString(Qt::ISODate) << '\n';
        }
        return 0;
    });
}

int importAction(const QStringList& arguments, bool privateMode, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("browser import FILE"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    return Workspace(privateMode, in, err).run([&](TavoBrowserTabs& tabs) {
        const qsizetype imported = tabs.importChromeFile(line.positional().first());
        (imported > 0 ? out : err) << tabs.browserMessage().value_or(QString()) << '\n';
        return imported > 0 ? 0 : 1;
    });
}

int privateAction(const QStringList& arguments, bool privateMode, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("browser private setup|status"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const QString what = line.positional().first();
    if (privateMode || (what != QLatin1StringView("setup") && what != QLatin1StringView("status"))) {
        return line.usageError({}, err);
    }
    return Workspace(false, in, err).run([&](TavoBrowserTabs& tabs) {
        const bool hasPasscode = tabs.hasPrivatePasscode();
        if (what == QLatin1StringView("status")) {
            out << (hasPasscode ? "Private Mode is set up.\n" : "Private Mode is not set up.\n");
            return 0;
        }
        if (hasPasscode) {
            err << "Private Mode already has a passcode; Tavo offers no way to change it.\n";
            return 1;
        }
        const QString passcode = readLine(in);
        const QString confirmation = readLine(in);
        // The gate's fields hold digits only; here a line with anything else is refused outright.
        if (!BrowserPrivateGate::isWellFormed(passcode)) {
            err << BrowserPrivateGate::enterAllDigits << '\n';
            return 1;
        }
        if (const std::optional<QString> problem =
                BrowserPrivateGate::submit(tabs, passcode, confirmation, hasPasscode)) {
            err << *problem << '\n';
            return 1;
        }
        tabs.setBrowserMessage(std::nullopt);
        tabs.lockPrivateMode();
        tabs.flush();
        if (tabs.browserMessage() == privateSaveFailedMessage) {
            err << privateSaveFailedMessage << '\n';
            return 1;
        }
        out << "Private Mode is set up.\n";
        return 0;
    });
}

} // namespace

int browser(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err)
{
    // --private may stand anywhere before a closing "--".
    QStringList rest;
    bool privateMode = false;
    bool optionsEnded = false;
    for (const QString& argument : arguments) {
        if (!optionsEnded && argument == privateFlag) {
            privateMode = true;
            continue;
        }
        optionsEnded = optionsEnded || argument == QLatin1StringView("--");
        rest.append(argument);
    }
    using Handler = int (*)(const QStringList&, bool, QTextStream&, QTextStream&, QTextStream&);
    const QList<std::pair<QString, Handler>> handlers = {
        {QStringLiteral("tabs"), tabsAction},     {QStringLiteral("open"), openAction},
        {QStringLiteral("close"), closeAction},   {QStringLiteral("group"), groupAction},
        {QStringLiteral("links"), linksAction},   {QStringLiteral("save"), saveAction},
        {QStringLiteral("unsave"), unsaveAction}, {QStringLiteral("collections"), collectionsAction},
        {QStringLiteral("import"), importAction}, {QStringLiteral("private"), privateAction},
    };
    QList<std::pair<QString, Action>> actions;
    for (const auto& [name, handler] : handlers) {
        actions.append({name, [handler, privateMode, &in](const QStringList& words, QTextStream& o, QTextStream& e) {
                            return handler(words, privateMode, in, o, e);
                        }});
    }
    return runAction(rest, actions, browserUsage, out, err);
}

} // namespace tavo::ctl
