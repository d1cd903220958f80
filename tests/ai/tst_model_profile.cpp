#include "ai/model_profile.h"
#include "ai/model_profile_store.h"

#include <QLocale>
#include <QtTest>

#include <clocale>
#include <cstdio>

using namespace tavo;
using namespace Qt::StringLiterals;

using OptionalDouble = std::optional<double>;
Q_DECLARE_METATYPE(OptionalDouble)
Q_DECLARE_METATYPE(std::optional<QString>)
Q_DECLARE_METATYPE(tavo::AIProviderClass)
Q_DECLARE_METATYPE(tavo::CollectionAIModelProfile)

class TestModelProfile : public QObject
{
    Q_OBJECT

private slots:
    void jsonRoundTrip_data();
    void jsonRoundTrip();
    void absentFieldsAreLeftOut();
    void decode_data();
    void decode();
    void listFailsOnOneBadRecord();
    void shortestDecimal_data();
    void shortestDecimal();
    void pricingHelp_data();
    void pricingHelp();
    void estimateUSD_data();
    void estimateUSD();
    void costEstimateText_data();
    void costEstimateText();
    void costEstimateNoteEndsWithPricingHelp();
    void germanLocaleKeepsThePoint();
    void providerClass_data();
    void providerClass();
    void imageProfiles_data();
    void imageProfiles();
    void imageProfilesKeepLibraryOrder();
};

namespace {

CollectionAIModelProfile profile(std::optional<double> input, std::optional<double> output,
                                 std::optional<QString> note = std::nullopt)
{
    CollectionAIModelProfile p;
    p.id = u"p"_s;
    p.name = u"P"_s;
    p.provider = u"OpenAI"_s;
    p.model = u"m"_s;
    p.keyAccount = u"openai"_s;
    p.inputRateUSD = input;
    p.outputRateUSD = output;
    p.pricingNote = std::move(note);
    return p;
}

std::optional<CollectionAIModelProfile> decodeOne(const QByteArray& json)
{
    const auto list = modelProfilesFromJsonBytes(QByteArray("[" + json + "]"));
    return list && list->size() == 1 ? std::optional(list->first()) : std::nullopt;
}

} // namespace

void TestModelProfile::jsonRoundTrip_data()
{
    QTest::addColumn<CollectionAIModelProfile>("original");
    QTest::newRow("every field, a note and rates") << AIModelProfileStore::curated().at(0);
    QTest::newRow("a base URL") << AIModelProfileStore::curated().at(8);
    QTest::newRow("no optional field") << AIModelProfileStore::curated().at(3);
    CollectionAIModelProfile user = profile(0.1 + 0.2, 1e-7, u"Tarif \u00fcber \"Quote\"\n"_s);
    user.name = u"Mein Modell \u2013 \U0001F600"_s;
    QTest::newRow("text needing escapes and a rate with many digits") << user;
}

void TestModelProfile::jsonRoundTrip()
{
    QFETCH(CollectionAIModelProfile, original);
    const QByteArray json = modelProfilesToJsonBytes({original});
    const auto decoded = modelProfilesFromJsonBytes(json);
    QVERIFY(decoded);
    QCOMPARE(decoded->size(), 1);
    QVERIFY(decoded->first() == original);
}

void TestModelProfile::absentFieldsAreLeftOut()
{
    const QByteArray json = modelProfilesToJsonBytes({profile(std::nullopt, std::nullopt)});
    QCOMPARE(json, QByteArray(R"([{"id":"p","name":"P","provider":"OpenAI","model":"m","keyAccount":"openai"}])"));
}

void TestModelProfile::decode_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("decodes");
    QTest::addColumn<OptionalDouble>("inputRate");
    QTest::addColumn<std::optional<QString>>("baseURL");

    auto record = [](const char* extra) {
        return QByteArray(R"({"id":"a","name":"A","provider":"xAI","model":"g","keyAccount":"xai")" +
                          QByteArray(extra) + "}");
    };
    QTest::newRow("required keys only") << record("") << true << OptionalDouble() << std::optional<QString>();
    QTest::newRow("null optionals read as absent")
        << record(R"(,"inputRateUSD":null,"baseURL":null)") << true << OptionalDouble() << std::optional<QString>();
    QTest::newRow("rates and base read") << record(R"(,"inputRateUSD":2,"baseURL":"https://h/v1")") << true
                                         << OptionalDouble(2.0) << std::optional<QString>(u"https://h/v1"_s);
    QTest::newRow("a key of a newer version is skipped")
        << record(R"(,"future":{"x":[1,2]})") << true << OptionalDouble() << std::optional<QString>();
    QTest::newRow("missing id fails") << QByteArray(R"({"name":"A","provider":"xAI","model":"g","keyAccount":"xai"})")
                                      << false << OptionalDouble() << std::optional<QString>();
    QTest::newRow("missing key account fails") << QByteArray(R"({"id":"a","name":"A","provider":"xAI","model":"g"})")
                                               << false << OptionalDouble() << std::optional<QString>();
    QTest::newRow("a number for the id fails")
        << QByteArray(R"({"id":1,"name":"A","provider":"xAI","model":"g","keyAccount":"xai"})") << false
        << OptionalDouble() << std::optional<QString>();
    QTest::newRow("a rate written as text fails")
        << record(R"(,"inputRateUSD":"2.0")") << false << OptionalDouble() << std::optional<QString>();
    QTest::newRow("a null required key fails")
        << QByteArray(R"({"id":"a","name":null,"provider":"xAI","model":"g","keyAccount":"xai"})") << false
        << OptionalDouble() << std::optional<QString>();
    QTest::newRow("an array is not a record")
        << QByteArray("[]") << false << OptionalDouble() << std::optional<QString>();
}

void TestModelProfile::decode()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, decodes);
    QFETCH(OptionalDouble, inputRate);
    QFETCH(std::optional<QString>, baseURL);
    const std::optional<CollectionAIModelProfile> decoded = decodeOne(json);
    QCOMPARE(decoded.has_value(), decodes);
    if (decoded) {
        QCOMPARE(decoded->inputRateUSD, inputRate);
        QCOMPARE(decoded->baseURL, baseURL);
        QCOMPARE(decoded->model, u"g"_s);
    }
}

void TestModelProfile::listFailsOnOneBadRecord()
{
    QByteArray json = modelProfilesToJsonBytes(AIModelProfileStore::curated());
    QVERIFY(modelProfilesFromJsonBytes(json));
    json.replace(R"("model":"grok-4.7")", R"("model":4.7)");
    QVERIFY(!modelProfilesFromJsonBytes(json));
    QVERIFY(!modelProfilesFromJsonBytes("[]x"));
    QVERIFY(!modelProfilesFromJsonBytes("{}"));
    QCOMPARE(modelProfilesFromJsonBytes("[]")->size(), 0);
}

void TestModelProfile::shortestDecimal_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("text");
    QTest::newRow("a whole number keeps .0") << 2.0 << u"2.0"_s;
    QTest::newRow("ten keeps .0") << 10.0 << u"10.0"_s;
    QTest::newRow("zero") << 0.0 << u"0.0"_s;
    QTest::newRow("a fraction as short as it reads") << 0.4 << u"0.4"_s;
    QTest::newRow("three decimals") << 0.075 << u"0.075"_s;
    QTest::newRow("every digit a sum needs") << 0.1 + 0.2 << u"0.30000000000000004"_s;
    QTest::newRow("tiny rates use an exponent") << 1e-5 << u"1e-05"_s;
    QTest::newRow("the smallest plain decimal") << 1e-4 << u"0.0001"_s;
    QTest::newRow("a large rate") << 150.0 << u"150.0"_s;
}

void TestModelProfile::shortestDecimal()
{
    QFETCH(double, value);
    QFETCH(QString, text);
    QCOMPARE(shortestDecimalText(value), text);
}

void TestModelProfile::pricingHelp_data()
{
    QTest::addColumn<CollectionAIModelProfile>("p");
    QTest::addColumn<QString>("help");
    const QString varies = u"Provider pricing varies. Open the provider billing page for current rates."_s;
    QTest::newRow("whole rates written with .0, default closing")
        << profile(2.0, 8.0)
        << u"Approximate API rates: $2.0 per 1M input tokens and $8.0 per 1M output tokens. Rates can change; see "
           "provider pricing."_s;
    QTest::newRow("the note replaces the closing sentence")
        << AIModelProfileStore::starter()
        << u"Approximate API rates: $0.4 per 1M input tokens and $1.6 per 1M output tokens. Approximate public "
           "rates; media and tools may cost extra."_s;
    QTest::newRow("Gemini Flash's introductory rate")
        << AIModelProfileStore::curated().at(4)
        << u"Approximate API rates: $0.75 per 1M input tokens and $3.75 per 1M output tokens. Introductory rate "
           "through Dec 31, 2026; provider pricing may change."_s;
    QTest::newRow("no input rate") << profile(std::nullopt, 8.0) << varies;
    QTest::newRow("no output rate") << profile(2.0, std::nullopt, u"ignored"_s) << varies;
    QTest::newRow("no rates at all") << AIModelProfileStore::curated().at(2) << varies;
}

void TestModelProfile::pricingHelp()
{
    QFETCH(CollectionAIModelProfile, p);
    QFETCH(QString, help);
    QCOMPARE(p.pricingHelp(), help);
}

void TestModelProfile::estimateUSD_data()
{
    QTest::addColumn<CollectionAIModelProfile>("p");
    QTest::addColumn<qint64>("characters");
    QTest::addColumn<qint64>("outputTokens");
    QTest::addColumn<OptionalDouble>("expected");
    QTest::newRow("no characters count one input token")
        << profile(2.0, 8.0) << qint64(0) << qint64(0) << OptionalDouble(2.0 / 1e6);
    QTest::newRow("four characters are one token")
        << profile(2.0, 8.0) << qint64(4) << qint64(0) << OptionalDouble(2.0 / 1e6);
    QTest::newRow("a fifth character starts a second token")
        << profile(2.0, 8.0) << qint64(5) << qint64(0) << OptionalDouble(4.0 / 1e6);
    QTest::newRow("output tokens at the output rate")
        << profile(0.4, 1.6) << qint64(4000) << qint64(1000) << OptionalDouble(0.4 * 1000 / 1e6 + 1.6 * 1000 / 1e6);
    QTest::newRow("no input rate, no estimate")
        << profile(std::nullopt, 8.0) << qint64(100) << qint64(1000) << OptionalDouble();
    QTest::newRow("no output rate, no estimate")
        << profile(2.0, std::nullopt) << qint64(100) << qint64(1000) << OptionalDouble();
}

void TestModelProfile::estimateUSD()
{
    QFETCH(CollectionAIModelProfile, p);
    QFETCH(qint64, characters);
    QFETCH(qint64, outputTokens);
    QFETCH(OptionalDouble, expected);
    const OptionalDouble estimate = p.estimateUSD(characters, outputTokens);
    QCOMPARE(estimate.has_value(), expected.has_value());
    if (expected) {
        QCOMPARE(*estimate, *expected);
    }
}

void TestModelProfile::costEstimateText_data()
{
    QTest::addColumn<CollectionAIModelProfile>("p");
    QTest::addColumn<qint64>("characters");
    QTest::addColumn<QString>("text");
    QTest::newRow("four decimals with trailing zeros")
        << AIModelProfileStore::starter() << qint64(4000) << u"Approx. API cost ~ $0.0020"_s;
    QTest::newRow("rounded to four decimals") << profile(2.0, 10.0) << qint64(0) << u"Approx. API cost ~ $0.0100"_s;
    QTest::newRow("rounds half up at the fourth decimal")
        << profile(1.0, 0.0) << qint64(4 * 150'000) << u"Approx. API cost ~ $0.1500"_s;
    QTest::newRow("no rate, no number") << AIModelProfileStore::curated().at(7) << qint64(4000)
                                        << u"Cost depends on this provider\u2019s rates"_s;
}

void TestModelProfile::costEstimateText()
{
    QFETCH(CollectionAIModelProfile, p);
    QFETCH(qint64, characters);
    QFETCH(QString, text);
    QCOMPARE(tavo::costEstimateText(p, characters), text);
}

void TestModelProfile::costEstimateNoteEndsWithPricingHelp()
{
    const CollectionAIModelProfile p = AIModelProfileStore::curated().at(1);
    QCOMPARE(costEstimateNote(p),
             u"Rough estimate from prompt length plus 1,000 assumed output tokens. Actual input/output, images, "
             "tools, caching, and provider rates change the final charge. "_s +
                 p.pricingHelp());
}

void TestModelProfile::germanLocaleKeepsThePoint()
{
    const QLocale previous;
    const std::string previousC = std::setlocale(LC_ALL, nullptr);
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    const bool cLocale = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;

    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.4f", 0.5);
    if (cLocale) {
        QCOMPARE(QByteArray(buffer), QByteArray("0,5000")); // the locale is really in force
    }
    QCOMPARE(QLocale().toString(0.5, 'f', 4), u"0,5000"_s);

    QCOMPARE(formatEstimateUSD(0.0123456), u"0.0123"_s);
    QCOMPARE(tavo::costEstimateText(AIModelProfileStore::starter(), 4000), u"Approx. API cost ~ $0.0020"_s);
    QCOMPARE(shortestDecimalText(0.75), u"0.75"_s);
    QVERIFY(AIModelProfileStore::starter().pricingHelp().startsWith(u"Approximate API rates: $0.4 per 1M"_s));
    const auto decoded = decodeOne(R"({"id":"a","name":"A","provider":"x","model":"m","keyAccount":"k",)"
                                   R"("inputRateUSD":0.75})");
    QVERIFY(decoded);
    QCOMPARE(decoded->inputRateUSD, OptionalDouble(0.75));

    std::setlocale(LC_ALL, previousC.c_str());
    QLocale::setDefault(previous);
}

void TestModelProfile::providerClass_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<AIProviderClass>("expected");
    QTest::newRow("Anthropic") << u"Anthropic"_s << AIProviderClass::Anthropic;
    QTest::newRow("case does not matter") << u"ANTHROPIC proxy"_s << AIProviderClass::Anthropic;
    QTest::newRow("Google Gemini") << u"Google Gemini"_s << AIProviderClass::Gemini;
    QTest::newRow("gemini alone") << u"my gemini"_s << AIProviderClass::Gemini;
    QTest::newRow("google alone") << u"Google"_s << AIProviderClass::Gemini;
    QTest::newRow("anthropic is tested first") << u"Anthropic on Google"_s << AIProviderClass::Anthropic;
    QTest::newRow("OpenAI") << u"OpenAI"_s << AIProviderClass::OpenAIResponses;
    QTest::newRow("xAI speaks the Responses protocol") << u"xAI"_s << AIProviderClass::OpenAIResponses;
    QTest::newRow("OpenAI-compatible") << u"OpenAI-compatible"_s << AIProviderClass::OpenAIResponses;
    QTest::newRow("anything else") << QString() << AIProviderClass::OpenAIResponses;
}

void TestModelProfile::providerClass()
{
    QFETCH(QString, provider);
    QFETCH(AIProviderClass, expected);
    QCOMPARE(tavo::providerClass(provider), expected);
}

void TestModelProfile::imageProfiles_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<bool>("image");
    QTest::addColumn<bool>("video");
    QTest::newRow("OpenAI makes images") << u"OpenAI"_s << true << false;
    QTest::newRow("an OpenAI-compatible profile counts") << u"OpenAI-compatible"_s << true << false;
    QTest::newRow("xAI does not") << u"xAI"_s << false << false;
    QTest::newRow("Gemini makes images and video") << u"Google Gemini"_s << true << true;
    QTest::newRow("Anthropic makes neither") << u"Anthropic"_s << false << false;
}

void TestModelProfile::imageProfiles()
{
    QFETCH(QString, provider);
    QFETCH(bool, image);
    QFETCH(bool, video);
    CollectionAIModelProfile p = profile(std::nullopt, std::nullopt);
    p.provider = provider;
    QCOMPARE(isImageModelProfile(p), image);
    QCOMPARE(isVideoModelProfile(p), video);
}

void TestModelProfile::imageProfilesKeepLibraryOrder()
{
    QStringList ids;
    for (const CollectionAIModelProfile& p : imageModelProfiles(AIModelProfileStore::curated())) {
        ids.append(p.id);
    }
    QCOMPARE(ids, QStringList({u"openai-default"_s, u"openai-gpt41"_s, u"openai-gpt61sol"_s, u"openai-gpt61terra"_s,
                               u"google-gemini-flash"_s, u"google-gemini-pro"_s}));
}

QTEST_GUILESS_MAIN(TestModelProfile)
#include "tst_model_profile.moc"
