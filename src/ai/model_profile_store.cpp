#include "ai/model_profile_store.h"

#include "store/defaults.h"
#include "store/key_store.h"

#include <QJsonValue>
#include <QLoggingCategory>

#include <algorithm>
#include <cmath>

namespace tavo {

Q_LOGGING_CATEGORY(lcAIProfiles, "tavo.ai.profiles", QtWarningMsg)

namespace AIModelProfileStore {

namespace {

const QString xaiBaseURL = QStringLiteral("https://api.x.ai/v1");

CollectionAIModelProfile curatedRow(const char* id, const char* name, const char* provider, const char* model,
                                    const char* keyAccount, std::optional<double> input = std::nullopt,
                                    std::optional<double> output = std::nullopt,
                                    std::optional<QString> note = std::nullopt,
                                    std::optional<QString> baseURL = std::nullopt)
{
    CollectionAIModelProfile profile;
    profile.id = QString::fromLatin1(id);
    profile.name = QString::fromLatin1(name);
    profile.provider = QString::fromLatin1(provider);
    profile.model = QString::fromLatin1(model);
    profile.keyAccount = QString::fromLatin1(keyAccount);
    profile.baseURL = std::move(baseURL);
    profile.inputRateUSD = input;
    profile.outputRateUSD = output;
    profile.pricingNote = std::move(note);
    return profile;
}

// A stored library is JSON text under its key; anything else counts as not decoding.
std::optional<QList<CollectionAIModelProfile>> decodeStored(const QJsonValue& value)
{
    if (!value.isString()) {
        return std::nullopt;
    }
    return modelProfilesFromJsonBytes(value.toString().toUtf8());
}

// `load` is about to write over a library it cannot read: copy it where a person, or a later
// version that reads it, can still find it.
void keepUnreadableAside(Defaults& defaults)
{
    const QJsonValue value = defaults.value(profilesKey);
    if (value.isUndefined() || value.isNull() || (value.isString() && value.toString().isEmpty())) {
        return; // nothing there to lose
    }
    QString asideKey = unreadableProfilesKey;
    for (int number = 2; defaults.contains(asideKey); ++number) {
        if (defaults.value(asideKey) == value) {
            return; // kept on an earlier load
        }
        asideKey = unreadableProfilesKey + QString::number(number);
    }
    defaults.setValue(asideKey, value);
    qCWarning(lcAIProfiles) << "The stored model library does not decode; it was kept under" << asideKey;
}

bool encodable(const CollectionAIModelProfile& profile)
{
    // JSON has no NaN or infinity; the writer would put a null that reads back as "no rate".
    auto finite = [](const std::optional<double>& rate) { return !rate || std::isfinite(*rate); };
    return finite(profile.inputRateUSD) && finite(profile.outputRateUSD);
}

} // namespace

const CollectionAIModelProfile& starter()
{
    return curated().first();
}

const QList<CollectionAIModelProfile>& curated()
{
    static const QList<CollectionAIModelProfile> rows{
        curatedRow("openai-default", "GPT-4.1 Mini", "OpenAI", "gpt-4.1-mini", "openai", 0.4, 1.6,
                   QStringLiteral("Approximate public rates; media and tools may cost extra.")),
        curatedRow("openai-gpt41", "GPT-4.1", "OpenAI", "gpt-4.1", "openai", 2.0, 8.0),
        curatedRow("openai-gpt61sol", "GPT-6.1 Sol", "OpenAI", "gpt-6.1-sol", "openai"),
        curatedRow("openai-gpt61terra", "GPT-6.1 Terra", "OpenAI", "gpt-6.1-terra", "openai"),
        curatedRow("google-gemini-flash", "Gemini 3.8 Flash", "Google Gemini", "gemini-3.8-flash", "google", 0.75, 3.75,
                   QStringLiteral("Introductory rate through Dec 31, 2026; provider pricing may change.")),
        curatedRow("google-gemini-pro", "Gemini 3.1 Pro", "Google Gemini", "gemini-3.1-pro-preview", "google"),
        curatedRow("anthropic-sonnet", "Claude Sonnet 5.5", "Anthropic", "claude-sonnet-5-5", "anthropic", 2.0, 10.0),
        curatedRow("anthropic-opus", "Claude Opus 5.5", "Anthropic", "claude-opus-5-5", "anthropic"),
        curatedRow("xai-grok", "Grok 4.7", "xAI", "grok-4.7", "xai", 2.0, 6.0, std::nullopt, xaiBaseURL),
    };
    return rows;
}

bool migrateRetiredModel(CollectionAIModelProfile& profile)
{
    // Only the model and its name move on; rates, note, account and id stay the user's.
    if (profile.model == QLatin1StringView("claude-3-7-sonnet-latest") ||
        profile.model == QLatin1StringView("claude-3-7-sonnet-20250219")) {
        profile.model = QStringLiteral("claude-sonnet-5-5");
        profile.name = QStringLiteral("Claude Sonnet 5.5");
        return true;
    }
    if (profile.model == QLatin1StringView("gemini-2.0-flash") ||
        profile.model == QLatin1StringView("gemini-2.0-flash-lite")) {
        profile.model = QStringLiteral("gemini-3.8-flash");
        profile.name = QStringLiteral("Gemini 3.8 Flash");
        return true;
    }
    return false;
}

QList<CollectionAIModelProfile> load(Defaults& defaults)
{
    std::optional<QList<CollectionAIModelProfile>> stored = decodeStored(defaults.value(profilesKey));
    if (!stored) {
        keepUnreadableAside(defaults);
        stored = decodeStored(defaults.value(legacyProfilesKey));
    }
    QList<CollectionAIModelProfile> profiles = std::move(stored).value_or(QList<CollectionAIModelProfile>());

    // Appended, never merged in, so saved profiles stay ahead of rows added by later versions.
    for (const CollectionAIModelProfile& row : curated()) {
        const bool present = std::any_of(profiles.cbegin(), profiles.cend(),
                                         [&](const CollectionAIModelProfile& p) { return p.id == row.id; });
        if (!present) {
            profiles.append(row);
        }
    }
    for (CollectionAIModelProfile& profile : profiles) {
        migrateRetiredModel(profile);
    }
    // Unconditionally, so a library read from the legacy key lives under the current one from now.
    save(defaults, profiles);
    if (profiles.isEmpty()) {
        return {starter()};
    }
    return profiles;
}

void save(Defaults& defaults, const QList<CollectionAIModelProfile>& profiles)
{
    if (!std::all_of(profiles.cbegin(), profiles.cend(), encodable)) {
        qCWarning(lcAIProfiles) << "A model profile has a rate that cannot be stored; the library was not saved";
        return;
    }
    defaults.setString(profilesKey, QString::fromUtf8(modelProfilesToJsonBytes(profiles)));
}

QString selectedProfileID(const Defaults& defaults)
{
    if (std::optional<QString> id = defaults.string(selectedProfileKey)) {
        return *id;
    }
    if (std::optional<QString> id = defaults.string(legacySelectedProfileKey)) {
        return *id;
    }
    return starter().id;
}

CollectionAIModelProfile selectedModel(const QList<CollectionAIModelProfile>& profiles, const QString& selectedID)
{
    for (const CollectionAIModelProfile& profile : profiles) {
        if (profile.id == selectedID) {
            return profile;
        }
    }
    return profiles.isEmpty() ? starter() : profiles.first();
}

void selectProfile(Defaults& defaults, const CollectionAIModelProfile& profile)
{
    defaults.setString(selectedProfileKey, profile.id);
    defaults.setString(legacySelectedProfileKey, profile.id);
    defaults.setString(collectionModelKey, profile.model);
}

std::optional<TavoError> addProfile(Defaults& defaults, QList<CollectionAIModelProfile>& profiles,
                                    const CollectionAIModelProfile& profile, const QString& key)
{
    profiles.append(profile);
    save(defaults, profiles);
    if (key.isEmpty()) {
        return std::nullopt;
    }
    return KeyStore::save(key, profile.keyAccount);
}

std::optional<TavoError> removeProfile(Defaults& defaults, QList<CollectionAIModelProfile>& profiles, const QString& id)
{
    const auto removed =
        std::find_if(profiles.cbegin(), profiles.cend(), [&](const CollectionAIModelProfile& p) { return p.id == id; });
    if (removed == profiles.cend()) {
        return std::nullopt;
    }
    const QString account = removed->keyAccount;
    profiles.removeIf([&](const CollectionAIModelProfile& p) { return p.id == id; });
    save(defaults, profiles);
    // Curated profiles of one provider share an account: its key stays while one of them remains.
    const bool shared = std::any_of(profiles.cbegin(), profiles.cend(),
                                    [&](const CollectionAIModelProfile& p) { return p.keyAccount == account; });
    if (shared) {
        return std::nullopt;
    }
    return KeyStore::save(QString(), account);
}

} // namespace AIModelProfileStore

} // namespace tavo
