#include "ai/add_model_sheet.h"

#include "language/shortcut_record.h"

#include <QUuid>

namespace tavo {

namespace {

const QString xaiProvider = QStringLiteral("xAI");
const QString compatibleProvider = QStringLiteral("OpenAI-compatible");

} // namespace

const QList<AddCollectionModelDraft::ProviderChoice>& AddCollectionModelDraft::providerChoices()
{
    static const QList<ProviderChoice> choices{
        {QStringLiteral("OpenAI"), QStringLiteral("OpenAI")},
        {QStringLiteral("Anthropic Claude"), QStringLiteral("Anthropic")},
        {QStringLiteral("Google Gemini"), QStringLiteral("Google Gemini")},
        {QStringLiteral("xAI Grok"), xaiProvider},
        {QStringLiteral("OpenAI-compatible provider"), compatibleProvider},
    };
    return choices;
}

QString AddCollectionModelDraft::suggestedModel(const QString& provider)
{
    if (provider == QLatin1StringView("Anthropic")) {
        return QStringLiteral("claude-sonnet-5-5");
    }
    if (provider == QLatin1StringView("Google Gemini")) {
        return QStringLiteral("gemini-3.8-flash");
    }
    if (provider == xaiProvider) {
        return QStringLiteral("grok-4.7");
    }
    return QStringLiteral("gpt-4.1-mini");
}

QString AddCollectionModelDraft::suggestedBaseURL(const QString& provider)
{
    return provider == xaiProvider ? QStringLiteral("https://api.x.ai/v1") : QString();
}

bool AddCollectionModelDraft::needsBaseURL(const QString& provider)
{
    return provider == xaiProvider || provider == compatibleProvider;
}

void AddCollectionModelDraft::chooseProvider(const QString& chosen)
{
    provider = chosen;
    modelID = suggestedModel(chosen);
    displayName = chosen + QLatin1StringView(" model");
    baseURL = suggestedBaseURL(chosen);
}

bool AddCollectionModelDraft::canSave() const
{
    if (modelID.trimmed().isEmpty() || key.trimmed().isEmpty()) {
        return false;
    }
    // Blank counts as empty: a base of spaces would be stored as none and send the key to
    // OpenAI's own host instead of the provider the user meant.
    return !needsBaseURL(provider) || !baseURL.trimmed().isEmpty();
}

CollectionAIModelProfile AddCollectionModelDraft::makeProfile() const
{
    CollectionAIModelProfile profile;
    profile.id = uuidText(QUuid::createUuid());
    const QString name = displayName.trimmed();
    profile.name = name.isEmpty() ? provider + QLatin1StringView(" model") : name;
    profile.provider = provider;
    profile.model = modelID.trimmed();
    // An account of its own, so removing this profile never erases a curated provider's key.
    profile.keyAccount = QLatin1StringView("tavo.collection.profile.") + profile.id;
    const QString base = baseURL.trimmed();
    if (!base.isEmpty()) {
        profile.baseURL = base;
    }
    return profile;
}

} // namespace tavo
