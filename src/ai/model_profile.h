#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>

#include <optional>

namespace tavo {

class JsonReader;
class JsonWriter;

// One model at one provider, and the keyring account that holds its API key. The key itself
// never enters the profile, so the profile can be stored in the settings in clear.
struct CollectionAIModelProfile
{
    QString id; // curated ids are fixed words, user profiles a fresh UUID text
    QString name;
    QString provider; // as shown; the protocol is derived from it, see providerClass
    QString model;
    QString keyAccount;
    std::optional<QString> baseURL;      // absent: the provider's default
    std::optional<double> inputRateUSD;  // per 1,000,000 input tokens
    std::optional<double> outputRateUSD; // per 1,000,000 output tokens
    std::optional<QString> pricingNote;  // replaces the closing sentence of pricingHelp

    QString pricingHelp() const;
    // Nothing when a rate is absent.
    std::optional<double> estimateUSD(qint64 promptCharacters, qint64 assumedOutputTokens) const;

    bool operator==(const CollectionAIModelProfile&) const = default;
};

// The codec, on the project's streaming JSON reader and writer. Absent optionals are left out;
// a null reads as absent; any other wrong type, or a missing required key, fails the record.
void writeModelProfile(JsonWriter& writer, const CollectionAIModelProfile& profile);
std::optional<CollectionAIModelProfile> readModelProfile(JsonReader& reader);

// A whole library; one record that does not decode fails the list.
QByteArray modelProfilesToJsonBytes(const QList<CollectionAIModelProfile>& profiles);
std::optional<QList<CollectionAIModelProfile>> modelProfilesFromJsonBytes(QByteArrayView json);

// The wire protocol every consumer derives from the provider text, by substring.
enum class AIProviderClass
{
    Anthropic,
    Gemini,
    OpenAIResponses
};

AIProviderClass providerClass(const QString& provider);

// Image generation takes OpenAI and Gemini profiles, an "OpenAI-compatible" one included.
bool isImageModelProfile(const CollectionAIModelProfile& profile);
QList<CollectionAIModelProfile> imageModelProfiles(const QList<CollectionAIModelProfile>& profiles);
// Video generation takes the Gemini class alone.
bool isVideoModelProfile(const CollectionAIModelProfile& profile);

// The shortest text that reads back as the same double, with a ".0" on whole numbers ("2.0",
// "0.4", "1e-05"), independent of the user's locale.
QString shortestDecimalText(double value);

// "%.4f" with a point, whatever the locale.
QString formatEstimateUSD(double estimate);

// The builder panel's cost line for a prompt of `promptCharacters`, with 1,000 assumed output
// tokens.
QString costEstimateText(const CollectionAIModelProfile& profile, qint64 promptCharacters);
// The note beside that line, closing with the profile's pricing help.
QString costEstimateNote(const CollectionAIModelProfile& profile);

} // namespace tavo
