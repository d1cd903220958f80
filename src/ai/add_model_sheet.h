#pragma once

#include "ai/model_profile.h"

#include <QList>
#include <QString>

namespace tavo {

// The rules of the "Add an AI model" sheet, apart from its widgets, so the screen and tavoctl
// add a model the same way.
struct AddCollectionModelDraft
{
    struct ProviderChoice
    {
        QString label;
        QString provider; // the stored value
    };

    // The sheet's provider picker, in its order.
    static const QList<ProviderChoice>& providerChoices();
    static QString suggestedModel(const QString& provider);
    static QString suggestedBaseURL(const QString& provider);
    // Whether the sheet shows, and requires, the base URL field.
    static bool needsBaseURL(const QString& provider);

    QString provider = QStringLiteral("OpenAI");
    QString displayName;
    QString modelID;
    QString key;
    QString baseURL;

    // As the sheet does when it appears and on each change of provider: the model, the name and
    // the base follow the provider.
    void chooseProvider(const QString& chosen);

    bool canSave() const;
    // The new profile, with its own fresh id and its own keyring account; call when `canSave`.
    CollectionAIModelProfile makeProfile() const;
};

} // namespace tavo
