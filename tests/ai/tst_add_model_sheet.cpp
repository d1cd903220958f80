#include "ai/add_model_sheet.h"
#include "language/shortcut_record.h"

#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

using OptionalText = std::optional<QString>;
Q_DECLARE_METATYPE(OptionalText)

class TestAddModelSheet : public QObject
{
    Q_OBJECT

private slots:
    void providerChoices();
    void choosingAProviderFillsTheFields_data();
    void choosingAProviderFillsTheFields();
    void canSave_data();
    void canSave();
    void makeProfile_data();
    void makeProfile();
    void everyProfileGetsItsOwnAccount();
};

void TestAddModelSheet::providerChoices()
{
    QStringList labels;
    QStringList providers;
    for (const AddCollectionModelDraft::ProviderChoice& choice : AddCollectionModelDraft::providerChoices()) {
        labels.append(choice.label);
        providers.append(choice.provider);
    }
    QCOMPARE(labels, QStringList({u"OpenAI"_s, u"Anthropic Claude"_s, u"Google Gemini"_s, u"xAI Grok"_s,
                                  u"OpenAI-compatible provider"_s}));
    QCOMPARE(providers,
             QStringList({u"OpenAI"_s, u"Anthropic"_s, u"Google Gemini"_s, u"xAI"_s, u"OpenAI-compatible"_s}));
    QCOMPARE(AddCollectionModelDraft().provider, u"OpenAI"_s);
}

void TestAddModelSheet::choosingAProviderFillsTheFields_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("model");
    QTest::addColumn<QString>("baseURL");
    QTest::addColumn<bool>("baseShown");
    QTest::newRow("OpenAI") << u"OpenAI"_s << u"gpt-4.1-mini"_s << QString() << false;
    QTest::newRow("Anthropic suggests Sonnet") << u"Anthropic"_s << u"claude-sonnet-5-5"_s << QString() << false;
    QTest::newRow("Gemini suggests Flash") << u"Google Gemini"_s << u"gemini-3.8-flash"_s << QString() << false;
    QTest::newRow("xAI suggests Grok and its base") << u"xAI"_s << u"grok-4.7"_s << u"https://api.x.ai/v1"_s << true;
    QTest::newRow("a compatible provider starts with an empty base")
        << u"OpenAI-compatible"_s << u"gpt-4.1-mini"_s << QString() << true;
}

void TestAddModelSheet::choosingAProviderFillsTheFields()
{
    QFETCH(QString, provider);
    QFETCH(QString, model);
    QFETCH(QString, baseURL);
    QFETCH(bool, baseShown);
    AddCollectionModelDraft draft;
    draft.modelID = u"typed-before"_s;
    draft.displayName = u"Typed before"_s;
    draft.baseURL = u"http://typed.before"_s;
    draft.key = u"sk-kept"_s;
    draft.chooseProvider(provider);
    QCOMPARE(draft.provider, provider);
    QCOMPARE(draft.modelID, model);
    QCOMPARE(draft.displayName, provider + u" model"_s);
    QCOMPARE(draft.baseURL, baseURL);
    QCOMPARE(draft.key, u"sk-kept"_s);
    QCOMPARE(AddCollectionModelDraft::needsBaseURL(provider), baseShown);
}

void TestAddModelSheet::canSave_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("modelID");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("baseURL");
    QTest::addColumn<bool>("savable");
    QTest::newRow("OpenAI with a model and a key") << u"OpenAI"_s << u"gpt-4.1"_s << u"sk"_s << QString() << true;
    QTest::newRow("a model id of spaces") << u"OpenAI"_s << u"  "_s << u"sk"_s << QString() << false;
    QTest::newRow("no key") << u"Anthropic"_s << u"claude"_s << QString() << QString() << false;
    QTest::newRow("a key of spaces") << u"Anthropic"_s << u"claude"_s << u" \t"_s << QString() << false;
    QTest::newRow("xAI with its base") << u"xAI"_s << u"grok-4.7"_s << u"xk"_s << u"https://api.x.ai/v1"_s << true;
    QTest::newRow("xAI with the base cleared") << u"xAI"_s << u"grok-4.7"_s << u"xk"_s << QString() << false;
    QTest::newRow("a compatible provider without a base")
        << u"OpenAI-compatible"_s << u"llama"_s << u"k"_s << QString() << false;
    QTest::newRow("a compatible provider with a blank base")
        << u"OpenAI-compatible"_s << u"llama"_s << u"k"_s << u"   "_s << false;
    QTest::newRow("a compatible provider with a base")
        << u"OpenAI-compatible"_s << u"llama"_s << u"k"_s << u"http://localhost:8080/v1"_s << true;
}

void TestAddModelSheet::canSave()
{
    QFETCH(QString, provider);
    QFETCH(QString, modelID);
    QFETCH(QString, key);
    QFETCH(QString, baseURL);
    QFETCH(bool, savable);
    AddCollectionModelDraft draft;
    draft.provider = provider;
    draft.modelID = modelID;
    draft.key = key;
    draft.baseURL = baseURL;
    QCOMPARE(draft.canSave(), savable);
}

void TestAddModelSheet::makeProfile_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("displayName");
    QTest::addColumn<QString>("modelID");
    QTest::addColumn<QString>("baseURL");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("model");
    QTest::addColumn<OptionalText>("storedBase");
    QTest::newRow("trimmed fields") << u"xAI"_s << u"  My Grok "_s << u" grok-4.7 "_s << u" https://api.x.ai/v1 "_s
                                    << u"My Grok"_s << u"grok-4.7"_s << OptionalText(u"https://api.x.ai/v1"_s);
    QTest::newRow("an empty name becomes the provider's")
        << u"Anthropic"_s << u"   "_s << u"claude-opus-5-5"_s << QString() << u"Anthropic model"_s
        << u"claude-opus-5-5"_s << OptionalText();
    QTest::newRow("an empty base is absent")
        << u"OpenAI"_s << u"Mini"_s << u"gpt-4.1-mini"_s << u"  "_s << u"Mini"_s << u"gpt-4.1-mini"_s << OptionalText();
}

void TestAddModelSheet::makeProfile()
{
    QFETCH(QString, provider);
    QFETCH(QString, displayName);
    QFETCH(QString, modelID);
    QFETCH(QString, baseURL);
    QFETCH(QString, name);
    QFETCH(QString, model);
    QFETCH(OptionalText, storedBase);
    AddCollectionModelDraft draft;
    draft.provider = provider;
    draft.displayName = displayName;
    draft.modelID = modelID;
    draft.baseURL = baseURL;
    draft.key = u" sk-typed "_s;

    const CollectionAIModelProfile profile = draft.makeProfile();
    QVERIFY(parseUuid(profile.id));
    QCOMPARE(profile.id, profile.id.toUpper());
    QCOMPARE(profile.name, name);
    QCOMPARE(profile.provider, provider);
    QCOMPARE(profile.model, model);
    QCOMPARE(profile.keyAccount, u"tavo.collection.profile."_s + profile.id);
    QCOMPARE(profile.baseURL, storedBase);
    // A model added by hand has no rates, so it always shows the rate-less help.
    QVERIFY(!profile.inputRateUSD && !profile.outputRateUSD && !profile.pricingNote);
    QCOMPARE(profile.pricingHelp(), u"Provider pricing varies. Open the provider billing page for current rates."_s);
}

void TestAddModelSheet::everyProfileGetsItsOwnAccount()
{
    AddCollectionModelDraft draft;
    draft.chooseProvider(u"xAI"_s);
    draft.key = u"xk"_s;
    QVERIFY(draft.canSave());
    const CollectionAIModelProfile first = draft.makeProfile();
    const CollectionAIModelProfile second = draft.makeProfile();
    QVERIFY(first.id != second.id);
    QVERIFY(first.keyAccount != second.keyAccount);
    QVERIFY(first.keyAccount != u"xai"_s);
    // Its typed base is served by the Responses protocol, as every non-Anthropic, non-Gemini one.
    QCOMPARE(providerClass(first.provider), AIProviderClass::OpenAIResponses);
}

QTEST_GUILESS_MAIN(TestAddModelSheet)
#include "tst_add_model_sheet.moc"
