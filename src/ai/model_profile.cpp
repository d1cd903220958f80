#include "ai/model_profile.h"

#include "language/json_stream.h"

#include <QLocale>

#include <cmath>

namespace tavo {

namespace {

// The length of a run the builder panel assumes when it prices a prompt.
constexpr qint64 assumedOutputTokensForPanel = 1000;

// Beyond this a double is no longer a whole number exactly, and the shortest form turns to an
// exponent, as the profile texts written elsewhere do.
constexpr double largestPlainDecimal = 9007199254740992.0; // 2^53
constexpr double smallestPlainDecimal = 1e-4;

} // namespace

QString CollectionAIModelProfile::pricingHelp() const
{
    if (!inputRateUSD || !outputRateUSD) {
        return QStringLiteral("Provider pricing varies. Open the provider billing page for current rates.");
    }
    const QString note = pricingNote.value_or(QStringLiteral("Rates can change; see provider pricing."));
    return QStringLiteral("Approximate API rates: $%1 per 1M input tokens and $%2 per 1M output tokens. %3")
        .arg(shortestDecimalText(*inputRateUSD), shortestDecimalText(*outputRateUSD), note);
}

std::optional<double> CollectionAIModelProfile::estimateUSD(qint64 promptCharacters, qint64 assumedOutputTokens) const
{
    if (!inputRateUSD || !outputRateUSD) {
        return std::nullopt;
    }
    // About four characters a token, and a request always costs at least one.
    const qint64 inputTokens = qMax<qint64>(1, (promptCharacters + 3) / 4);
    return *inputRateUSD * double(inputTokens) / 1'000'000.0 +
           *outputRateUSD * double(assumedOutputTokens) / 1'000'000.0;
}

void writeModelProfile(JsonWriter& writer, const CollectionAIModelProfile& profile)
{
    writer.beginObject();
    writer.key(QLatin1StringView("id"));
    writer.value(profile.id);
    writer.key(QLatin1StringView("name"));
    writer.value(profile.name);
    writer.key(QLatin1StringView("provider"));
    writer.value(profile.provider);
    writer.key(QLatin1StringView("model"));
    writer.value(profile.model);
    writer.key(QLatin1StringView("keyAccount"));
    writer.value(profile.keyAccount);
    if (profile.baseURL) {
        writer.key(QLatin1StringView("baseURL"));
        writer.value(*profile.baseURL);
    }
    if (profile.inputRateUSD) {
        writer.key(QLatin1StringView("inputRateUSD"));
        writer.value(*profile.inputRateUSD);
    }
    if (profile.outputRateUSD) {
        writer.key(QLatin1StringView("outputRateUSD"));
        writer.value(*profile.outputRateUSD);
    }
    if (profile.pricingNote) {
        writer.key(QLatin1StringView("pricingNote"));
        writer.value(*profile.pricingNote);
    }
    writer.endObject();
}

std::optional<CollectionAIModelProfile> readModelProfile(JsonReader& reader)
{
    if (!reader.beginObject()) {
        return std::nullopt;
    }
    CollectionAIModelProfile profile;
    enum Required : unsigned
    {
        Id = 1,
        Name = 2,
        Provider = 4,
        Model = 8,
        KeyAccount = 16,
        All = 31
    };
    unsigned found = 0;
    auto required = [&](QString& field, Required bit) {
        std::optional<QString> value = reader.readString();
        if (!value) {
            return false;
        }
        field = std::move(*value);
        found |= bit;
        return true;
    };
    auto text = [&] { return reader.readString(); };
    auto number = [&] { return reader.readNumber(); };

    while (const std::optional<QByteArrayView> key = reader.nextKey()) {
        bool ok = true;
        if (*key == "id") {
            ok = required(profile.id, Id);
        } else if (*key == "name") {
            ok = required(profile.name, Name);
        } else if (*key == "provider") {
            ok = required(profile.provider, Provider);
        } else if (*key == "model") {
            ok = required(profile.model, Model);
        } else if (*key == "keyAccount") {
            ok = required(profile.keyAccount, KeyAccount);
        } else if (*key == "baseURL") {
            ok = readOptional(reader, profile.baseURL, text);
        } else if (*key == "inputRateUSD") {
            ok = readOptional(reader, profile.inputRateUSD, number);
        } else if (*key == "outputRateUSD") {
            ok = readOptional(reader, profile.outputRateUSD, number);
        } else if (*key == "pricingNote") {
            ok = readOptional(reader, profile.pricingNote, text);
        } else {
            ok = reader.skipValue(); // a key of a newer version
        }
        if (!ok) {
            reader.fail();
            return std::nullopt;
        }
    }
    if (reader.failed() || found != All) {
        return std::nullopt;
    }
    return profile;
}

QByteArray modelProfilesToJsonBytes(const QList<CollectionAIModelProfile>& profiles)
{
    JsonWriter writer(profiles.size() * 200);
    writer.beginArray();
    for (const CollectionAIModelProfile& profile : profiles) {
        writeModelProfile(writer, profile);
    }
    writer.endArray();
    return writer.take();
}

std::optional<QList<CollectionAIModelProfile>> modelProfilesFromJsonBytes(QByteArrayView json)
{
    return readJsonArray<CollectionAIModelProfile>(json, [](JsonReader& reader) { return readModelProfile(reader); });
}

AIProviderClass providerClass(const QString& provider)
{
    const QString lower = provider.toLower();
    if (lower.contains(QLatin1StringView("anthropic"))) {
        return AIProviderClass::Anthropic;
    }
    if (lower.contains(QLatin1StringView("gemini")) || lower.contains(QLatin1StringView("google"))) {
        return AIProviderClass::Gemini;
    }
    return AIProviderClass::OpenAIResponses;
}

bool isImageModelProfile(const CollectionAIModelProfile& profile)
{
    const QString lower = profile.provider.toLower();
    return lower.contains(QLatin1StringView("openai")) || lower.contains(QLatin1StringView("google")) ||
           lower.contains(QLatin1StringView("gemini"));
}

QList<CollectionAIModelProfile> imageModelProfiles(const QList<CollectionAIModelProfile>& profiles)
{
    QList<CollectionAIModelProfile> result;
    for (const CollectionAIModelProfile& profile : profiles) {
        if (isImageModelProfile(profile)) {
            result.append(profile);
        }
    }
    return result;
}

bool isVideoModelProfile(const CollectionAIModelProfile& profile)
{
    return providerClass(profile.provider) == AIProviderClass::Gemini;
}

QString shortestDecimalText(double value)
{
    if (std::isnan(value)) {
        return QStringLiteral("nan");
    }
    if (std::isinf(value)) {
        return value > 0 ? QStringLiteral("inf") : QStringLiteral("-inf");
    }
    // QString::number always writes the C locale's point, never the user's comma.
    const double magnitude = std::abs(value);
    if (magnitude != 0 && (magnitude < smallestPlainDecimal || magnitude > largestPlainDecimal)) {
        return QString::number(value, 'e', QLocale::FloatingPointShortest);
    }
    QString text = QString::number(value, 'f', QLocale::FloatingPointShortest);
    if (!text.contains(QLatin1Char('.'))) {
        text += QLatin1StringView(".0");
    }
    return text;
}

QString formatEstimateUSD(double estimate)
{
    // Not snprintf: that writes the decimal mark of LC_NUMERIC, a comma for a German user.
    return QString::number(estimate, 'f', 4);
}

QString costEstimateText(const CollectionAIModelProfile& profile, qint64 promptCharacters)
{
    const std::optional<double> estimate = profile.estimateUSD(promptCharacters, assumedOutputTokensForPanel);
    if (!estimate) {
        return QStringLiteral("Cost depends on this provider\u2019s rates");
    }
    return QStringLiteral("Approx. API cost ~ $") + formatEstimateUSD(*estimate);
}

QString costEstimateNote(const CollectionAIModelProfile& profile)
{
    return QStringLiteral("Rough estimate from prompt length plus 1,000 assumed output tokens. Actual input/output, "
                          "images, tools, caching, and provider rates change the final charge. ") +
           profile.pricingHelp();
}

} // namespace tavo
