#include "tavoctl/ctl_commands.h"
#include "tavoctl/ctl_options.h"
#include "tavoctl/ctl_profile.h"

#include "ai/add_model_sheet.h"
#include "ai/model_profile_store.h"
#include "ai/prompt_expansion.h"
#include "ai/text_client.h"
#include "platform/secret/libsecret_store.h"
#include "store/defaults.h"
#include "store/key_store.h"

#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMimeDatabase>

#include <algorithm>

namespace tavo::ctl {

namespace {

using Kind = CommandLine::Kind;
namespace Store = AIModelProfileStore;

const QString aiUsage = QStringLiteral(R"(Usage: tavoctl ai list [--json]
       tavoctl ai add --provider P [--model M] [--name N] [--base URL]
       tavoctl ai select ID
       tavoctl ai remove ID
       tavoctl ai key ACCOUNT
       tavoctl ai generate [--profile ID] [--image FILE]... [--max-tokens N]

'add' and 'key' read the API key from standard input (empty: no key, or erase it);
'generate' reads the prompt from standard input and prints the model's answer.
Providers: OpenAI, Anthropic, Google Gemini, xAI, OpenAI-compatible.
)");

const QString promptUsage = QStringLiteral(R"(Usage: tavoctl prompt expand [--json]

Replaces the mentions of shortcuts, records and collections in the prompt read from standard
input, and prints the prompt and then the media files it refers to.
)");

// What the picker's rewrite and rephrase ask for, absent a --max-tokens.
constexpr int defaultMaxTokens = 4000;

// The application's keyring, for as long as one command runs.
class Keyring
{
public:
    Keyring() { KeyStore::setBackend(&m_store); }
    ~Keyring() { KeyStore::setBackend(nullptr); }
    Keyring(const Keyring&) = delete;
    Keyring& operator=(const Keyring&) = delete;

private:
    LibsecretStore m_store;
};

// A failure's description alone, on one line.
int fail(const QString& description, QTextStream& err)
{
    err << oneLine(description) << '\n';
    return 1;
}

// One line of standard input without its line break: a key never travels on the command line,
// where other users could read it from the process list.
QString readKey(QTextStream& in)
{
    QString line = in.readLine();
    if (line.endsWith(u'\r')) {
        line.chop(1);
    }
    return line;
}

const CollectionAIModelProfile* findProfile(const QList<CollectionAIModelProfile>& profiles, const QString& id)
{
    const auto found = std::find_if(profiles.cbegin(), profiles.cend(),
                                    [&id](const CollectionAIModelProfile& profile) { return profile.id == id; });
    return found == profiles.cend() ? nullptr : &*found;
}

QString noSuchProfile(const QString& id)
{
    return QStringLiteral("No model profile has the id ") + id + u'.';
}

int aiList(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("ai list [--json]"), {{QStringLiteral("--json"), Kind::Flag}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    Keyring keyring;
    const QList<CollectionAIModelProfile> profiles = Store::load(defaults);
    const QString selected = Store::selectedModel(profiles, Store::selectedProfileID(defaults)).id;
    QJsonArray all;
    QString table;
    QTextStream rows(&table);
    for (const CollectionAIModelProfile& profile : profiles) {
        const Result<std::optional<QString>> key = KeyStore::load(profile.keyAccount);
        if (!key) {
            return fail(key.error().description, err);
        }
        const bool hasKey = key.value() && !key.value()->isEmpty();
        const bool chosen = profile.id == selected;
        QJsonObject row{{QStringLiteral("id"), profile.id},
                        {QStringLiteral("name"), profile.name},
                        {QStringLiteral("provider"), profile.provider},
                        {QStringLiteral("model"), profile.model},
                        {QStringLiteral("keyAccount"), profile.keyAccount},
                        {QStringLiteral("hasKey"), hasKey},
                        {QStringLiteral("selected"), chosen}};
        if (profile.baseURL) {
            row.insert(QStringLiteral("baseURL"), *profile.baseURL);
        }
        all.append(row);
        rows << (chosen ? "* " : "  ") << profile.id << '\t' << oneLine(profile.name) << '\t'
             << oneLine(profile.provider) << '\t' << oneLine(profile.model) << '\t'
             << (hasKey ? "key stored" : "no key") << '\n';
    }
    rows.flush();
    if (line.isSet(QStringLiteral("--json"))) {
        out << QString::fromUtf8(QJsonDocument(all).toJson(QJsonDocument::Indented));
    } else {
        out << table;
    }
    return 0;
}

int aiAdd(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("ai add --provider P [--model M] [--name N] [--base URL]"),
                     {{QStringLiteral("--provider"), Kind::Value},
                      {QStringLiteral("--model"), Kind::Value},
                      {QStringLiteral("--name"), Kind::Value},
                      {QStringLiteral("--base"), Kind::Value}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    if (!line.isSet(QStringLiteral("--provider"))) {
        return line.usageError(QStringLiteral("Choose a provider with --provider."), err);
    }
    // The picker's label and the stored value both name a provider.
    const QString typed = line.value(QStringLiteral("--provider")).trimmed();
    QString provider;
    QStringList known;
    for (const AddCollectionModelDraft::ProviderChoice& choice : AddCollectionModelDraft::providerChoices()) {
        known << choice.provider;
        if (typed.compare(choice.label, Qt::CaseInsensitive) == 0 ||
            typed.compare(choice.provider, Qt::CaseInsensitive) == 0) {
            provider = choice.provider;
        }
    }
    if (provider.isEmpty()) {
        return fail(QStringLiteral("Choose one of these providers: ") + known.join(QStringLiteral(", ")) + u'.', err);
    }

    // The sheet's form: filled in for the provider, then what was typed.
    AddCollectionModelDraft draft;
    draft.chooseProvider(provider);
    if (line.isSet(QStringLiteral("--model"))) {
        draft.modelID = line.value(QStringLiteral("--model"));
    }
    if (line.isSet(QStringLiteral("--name"))) {
        draft.displayName = line.value(QStringLiteral("--name"));
    }
    if (line.isSet(QStringLiteral("--base"))) {
        if (!AddCollectionModelDraft::needsBaseURL(provider)) {
            return fail(QStringLiteral("An API base URL applies to xAI and OpenAI-compatible providers only."), err);
        }
        draft.baseURL = line.value(QStringLiteral("--base"));
    }
    if (draft.modelID.trimmed().isEmpty()) {
        return fail(QStringLiteral("Enter a model ID."), err);
    }
    if (AddCollectionModelDraft::needsBaseURL(provider) && draft.baseURL.trimmed().isEmpty()) {
        return fail(QStringLiteral("Enter the provider's API base URL with --base."), err);
    }
    const QString typedKey = readKey(in);
    draft.key = typedKey.trimmed().isEmpty() ? QString() : typedKey;

    Defaults defaults;
    Keyring keyring;
    QList<CollectionAIModelProfile> profiles = Store::load(defaults);
    const CollectionAIModelProfile profile = draft.makeProfile();
    const std::optional<TavoError> keyFailed = Store::addProfile(defaults, profiles, profile, draft.key);
    Store::selectProfile(defaults, profile);
    out << profile.id << '\n';
    if (keyFailed) {
        return fail(keyFailed->description, err);
    }
    return 0;
}

int aiSelect(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("ai select ID"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    const QList<CollectionAIModelProfile> profiles = Store::load(defaults);
    const CollectionAIModelProfile* profile = findProfile(profiles, line.positional().first());
    if (!profile) {
        return fail(noSuchProfile(line.positional().first()), err);
    }
    Store::selectProfile(defaults, *profile);
    out << "Selected " << profile->name << ".\n";
    return 0;
}

int aiRemove(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("ai remove ID"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    Keyring keyring;
    QList<CollectionAIModelProfile> profiles = Store::load(defaults);
    const CollectionAIModelProfile* profile = findProfile(profiles, line.positional().first());
    if (!profile) {
        return fail(noSuchProfile(line.positional().first()), err);
    }
    const QString name = profile->name;
    // The key goes with the last profile on its account.
    if (const std::optional<TavoError> failed = Store::removeProfile(defaults, profiles, profile->id)) {
        return fail(failed->description, err);
    }
    out << "Removed " << name << ".\n";
    return 0;
}

int aiKey(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("ai key ACCOUNT"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const QString account = line.positional().first();
    Defaults defaults;
    const QList<CollectionAIModelProfile> profiles = Store::load(defaults);
    // Only accounts of the library: a typing slip must not leave a stray key in the keyring.
    const bool known = std::any_of(profiles.cbegin(), profiles.cend(),
                                   [&account](const CollectionAIModelProfile& p) { return p.keyAccount == account; });
    if (!known) {
        return fail(QStringLiteral("No model profile uses the key account ") + account + u'.', err);
    }
    const QString typed = readKey(in);
    const QString key = typed.trimmed().isEmpty() ? QString() : typed;
    Keyring keyring;
    // An empty key erases the item, so every profile on the account loses it, as on the screen.
    if (const std::optional<TavoError> failed = KeyStore::save(key, account)) {
        return fail(failed->description, err);
    }
    out << (key.isEmpty() ? "Erased the key of " : "Saved the key of ") << account << ".\n";
    return 0;
}

int aiGenerate(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("ai generate [--profile ID] [--image FILE]... [--max-tokens N]"),
                     {{QStringLiteral("--profile"), Kind::Value},
                      {QStringLiteral("--image"), Kind::Repeatable},
                      {QStringLiteral("--max-tokens"), Kind::Value}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    int maxTokens = defaultMaxTokens;
    if (line.isSet(QStringLiteral("--max-tokens"))) {
        bool number = false;
        maxTokens = line.value(QStringLiteral("--max-tokens")).toInt(&number);
        if (!number || maxTokens <= 0) {
            return line.usageError(QStringLiteral("--max-tokens takes a positive whole number."), err);
        }
    }

    QList<AIImageAttachment> images;
    const QMimeDatabase mimeTypes;
    for (const QString& path : line.values(QStringLiteral("--image"))) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            return fail(QStringLiteral("Could not read ") + path + u'.', err);
        }
        const QByteArray bytes = file.readAll();
        // By content: a file's name may say PNG of a JPEG.
        const QString mimeType = mimeTypes.mimeTypeForData(bytes).name();
        if (!mimeType.startsWith(QLatin1StringView("image/"))) {
            return fail(path + QStringLiteral(" is not an image."), err);
        }
        images.append(AIImageAttachment{bytes, mimeType});
    }

    Defaults defaults;
    Keyring keyring;
    const QList<CollectionAIModelProfile> profiles = Store::load(defaults);
    CollectionAIModelProfile profile;
    if (line.isSet(QStringLiteral("--profile"))) {
        const CollectionAIModelProfile* chosen = findProfile(profiles, line.value(QStringLiteral("--profile")));
        if (!chosen) {
            return fail(noSuchProfile(line.value(QStringLiteral("--profile"))), err);
        }
        profile = *chosen;
    } else {
        profile = Store::selectedModel(profiles, Store::selectedProfileID(defaults));
    }
    const Result<std::optional<QString>> stored = KeyStore::load(profile.keyAccount);
    if (!stored) {
        return fail(stored.error().description, err);
    }
    const QString key = stored.value().value_or(QString());
    if (key.trimmed().isEmpty()) {
        return fail(QStringLiteral("Add an API key for ") + profile.name + QStringLiteral(" in API configuration."),
                    err);
    }

    const QString prompt = in.readAll();
    if (prompt.trimmed().isEmpty()) {
        return fail(QStringLiteral("Enter a prompt on standard input."), err);
    }

    QEventLoop loop;
    std::optional<Result<QString>> outcome;
    SharedAIClient::generate(profile, key, prompt, images, maxTokens, &loop, [&](Result<QString> result) {
        outcome = std::move(result);
        loop.quit();
    });
    loop.exec();
    if (!outcome->ok()) {
        return fail(outcome->error().description, err);
    }
    const QString text = outcome->value();
    if (text.trimmed().isEmpty()) {
        return fail(QStringLiteral("The model returned no text."), err);
    }
    out << text;
    if (!text.endsWith(u'\n')) {
        out << '\n';
    }
    return 0;
}

int promptExpand(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("prompt expand [--json]"), {{QStringLiteral("--json"), Kind::Flag}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    QString user;
    const std::unique_ptr<DB> db = openForReading(defaults, user, err);
    if (!db) {
        return 1;
    }
    const PromptShortcutExpansion expansion =
        expandPromptShortcutMentions(in.readAll(), db->clips(), db->collectionRecords());
    if (line.isSet(QStringLiteral("--json"))) {
        const QJsonObject result{{QStringLiteral("text"), expansion.text},
                                 {QStringLiteral("labels"), QJsonArray::fromStringList(expansion.labels)},
                                 {QStringLiteral("paths"), QJsonArray::fromStringList(expansion.paths)}};
        out << QString::fromUtf8(QJsonDocument(result).toJson(QJsonDocument::Indented));
        return 0;
    }
    out << expansion.text;
    if (!expansion.text.endsWith(u'\n')) {
        out << '\n';
    }
    for (const QString& path : expansion.paths) {
        out << path << '\n';
    }
    return 0;
}

} // namespace

int ai(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err)
{
    const auto withInput = [&in](int (*action)(const QStringList&, QTextStream&, QTextStream&, QTextStream&)) {
        return
            [&in, action](const QStringList& rest, QTextStream& o, QTextStream& e) { return action(rest, in, o, e); };
    };
    return runAction(arguments,
                     {{QStringLiteral("list"), aiList},
                      {QStringLiteral("add"), withInput(aiAdd)},
                      {QStringLiteral("select"), aiSelect},
                      {QStringLiteral("remove"), aiRemove},
                      {QStringLiteral("key"), withInput(aiKey)},
                      {QStringLiteral("generate"), withInput(aiGenerate)}},
                     aiUsage, out, err);
}

int prompt(const QStringList& arguments, QTextStream& in, QTextStream& out, QTextStream& err)
{
    return runAction(arguments,
                     {{QStringLiteral("expand"), [&in](const QStringList& rest, QTextStream& o,
                                                       QTextStream& e) { return promptExpand(rest, in, o, e); }}},
                     promptUsage, out, err);
}

} // namespace tavo::ctl
