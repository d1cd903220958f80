#include "ai/model_profile_store.h"
#include "platform/secret_store.h"
#include "store/defaults.h"
#include "store/key_store.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <memory>

using namespace tavo;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(tavo::CollectionAIModelProfile)

namespace Store = AIModelProfileStore;

namespace {

// A keyring in memory, with a switch that makes every change fail.
class MemorySecretStore : public SecretStore
{
public:
    QHash<QString, QString> items; // account -> value
    bool failWrites = false;

    SecretLookup lookup(const QString& service, const QString& account) override
    {
        if (service != KeyStore::service || !items.contains(account)) {
            return SecretLookup::notFound();
        }
        return SecretLookup::found(items.value(account));
    }
    SecretWrite store(const QString&, const QString& account, const QString& value) override
    {
        if (failWrites) {
            return SecretWrite::failed(u"The system keyring is locked."_s);
        }
        items.insert(account, value);
        return SecretWrite::done();
    }
    SecretWrite remove(const QString&, const QString& account) override
    {
        if (failWrites) {
            return SecretWrite::failed(u"The system keyring is locked."_s);
        }
        items.remove(account);
        return SecretWrite::done();
    }
};

CollectionAIModelProfile userProfile(const QString& id, const QString& model = u"my-model"_s)
{
    CollectionAIModelProfile p;
    p.id = id;
    p.name = u"Mine "_s + id;
    p.provider = u"OpenAI-compatible"_s;
    p.model = model;
    p.keyAccount = u"tavo.collection.profile."_s + id;
    p.baseURL = u"http://127.0.0.1:8080/v1"_s;
    p.inputRateUSD = 1.5;
    p.outputRateUSD = 3.0;
    p.pricingNote = u"Local."_s;
    return p;
}

QString libraryText(const QList<CollectionAIModelProfile>& profiles)
{
    return QString::fromUtf8(modelProfilesToJsonBytes(profiles));
}

QStringList idsOf(const QList<CollectionAIModelProfile>& profiles)
{
    QStringList ids;
    for (const CollectionAIModelProfile& p : profiles) {
        ids.append(p.id);
    }
    return ids;
}

QList<CollectionAIModelProfile> curatedWithout(const QStringList& ids)
{
    QList<CollectionAIModelProfile> rows = Store::curated();
    rows.removeIf([&](const CollectionAIModelProfile& p) { return ids.contains(p.id); });
    return rows;
}

} // namespace

class TestModelProfileStore : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void curatedTable();
    void firstRunGivesTheCuratedRows();
    void legacyLibraryMovesAndStays();
    void savedOrderIsKept_data();
    void savedOrderIsKept();
    void unreadableLibraryFallsThroughAndIsKept_data();
    void unreadableLibraryFallsThroughAndIsKept();
    void everyUnreadableLibraryIsKept();
    void unreadableLegacyGivesTheCuratedRows();
    void retiredModelsMoveOn_data();
    void retiredModelsMoveOn();
    void saveLeavesTheStoredValueOnAnEncoderFailure();
    void selectedProfile_data();
    void selectedProfile();
    void selectingWritesEveryKey();
    void addingStoresTheKey_data();
    void addingStoresTheKey();
    void removal_data();
    void removal();
    void removalReportsAKeyringFailure();

private:
    Defaults& defaults() { return *m_defaults; }

    MemorySecretStore m_keyring;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
};

void TestModelProfileStore::initTestCase()
{
    KeyStore::setBackend(&m_keyring);
}

void TestModelProfileStore::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(u"Tavo/defaults.json"_s));
    m_keyring.items.clear();
    m_keyring.failWrites = false;
    KeyStore::resetForTesting();
}

void TestModelProfileStore::curatedTable()
{
    const QList<CollectionAIModelProfile>& rows = Store::curated();
    QCOMPARE(idsOf(rows), QStringList({u"openai-default"_s, u"openai-gpt41"_s, u"openai-gpt61sol"_s,
                                       u"openai-gpt61terra"_s, u"google-gemini-flash"_s, u"google-gemini-pro"_s,
                                       u"anthropic-sonnet"_s, u"anthropic-opus"_s, u"xai-grok"_s}));
    QVERIFY(Store::starter() == rows.first());
    QCOMPARE(Store::starter().name, u"GPT-4.1 Mini"_s);
    QCOMPARE(Store::starter().model, u"gpt-4.1-mini"_s);
    QCOMPARE(rows.at(5).model, u"gemini-3.1-pro-preview"_s);
    QCOMPARE(rows.at(6).keyAccount, u"anthropic"_s);
    QVERIFY(rows.at(8).baseURL && rows.at(8).baseURL->endsWith(u"/v1"_s));
    for (int i = 0; i < 8; ++i) {
        QVERIFY2(!rows.at(i).baseURL, qPrintable(rows.at(i).id));
    }
}

void TestModelProfileStore::firstRunGivesTheCuratedRows()
{
    const QList<CollectionAIModelProfile> profiles = Store::load(defaults());
    QVERIFY(profiles == Store::curated());
    QCOMPARE(defaults().string(Store::profilesKey), libraryText(Store::curated()));
    QVERIFY(!defaults().contains(Store::unreadableProfilesKey));
    // Another process reading the file sees the same library.
    Defaults again(defaults().filePath());
    QVERIFY(Store::load(again) == Store::curated());
}

void TestModelProfileStore::legacyLibraryMovesAndStays()
{
    CollectionAIModelProfile renamed = Store::curated().at(1);
    renamed.name = u"My GPT-4.1"_s;
    const QList<CollectionAIModelProfile> legacy{userProfile(u"u1"_s), renamed};
    const QString legacyText = libraryText(legacy);
    defaults().setString(Store::legacyProfilesKey, legacyText);

    const QList<CollectionAIModelProfile> profiles = Store::load(defaults());
    QCOMPARE(profiles.size(), 10);
    QVERIFY(profiles.mid(0, 2) == legacy);
    QVERIFY(profiles.mid(2) == curatedWithout({u"openai-gpt41"_s}));
    QCOMPARE(defaults().string(Store::profilesKey), libraryText(profiles));
    QCOMPARE(defaults().string(Store::legacyProfilesKey), legacyText);

    // From now on the current key is read, and the legacy key no longer matters.
    defaults().setString(Store::legacyProfilesKey, libraryText({userProfile(u"other"_s)}));
    QVERIFY(Store::load(defaults()) == profiles);
}

void TestModelProfileStore::savedOrderIsKept_data()
{
    QTest::addColumn<QList<CollectionAIModelProfile>>("stored");
    QTest::addColumn<QStringList>("expectedIds");
    const QList<CollectionAIModelProfile>& c = Store::curated();
    QTest::newRow("curated rows missing from a saved library come behind it")
        << QList<CollectionAIModelProfile>{userProfile(u"u1"_s), c.at(8), c.at(0)}
        << QStringList({u"u1"_s, u"xai-grok"_s, u"openai-default"_s, u"openai-gpt41"_s, u"openai-gpt61sol"_s,
                        u"openai-gpt61terra"_s, u"google-gemini-flash"_s, u"google-gemini-pro"_s, u"anthropic-sonnet"_s,
                        u"anthropic-opus"_s});
    QTest::newRow("an empty saved library gets every curated row") << QList<CollectionAIModelProfile>() << idsOf(c);
    QTest::newRow("a removed curated row comes back at the end")
        << curatedWithout({u"openai-gpt41"_s})
        << idsOf(curatedWithout({u"openai-gpt41"_s})) + QStringList{u"openai-gpt41"_s};
}

void TestModelProfileStore::savedOrderIsKept()
{
    QFETCH(QList<CollectionAIModelProfile>, stored);
    QFETCH(QStringList, expectedIds);
    Store::save(defaults(), stored);
    const QList<CollectionAIModelProfile> profiles = Store::load(defaults());
    QCOMPARE(idsOf(profiles), expectedIds);
    QVERIFY(profiles.mid(0, stored.size()) == stored);
    QCOMPARE(defaults().string(Store::profilesKey), libraryText(profiles));
}

void TestModelProfileStore::unreadableLibraryFallsThroughAndIsKept_data()
{
    QTest::addColumn<QJsonValue>("unreadable");
    QTest::newRow("text that is not JSON") << QJsonValue(u"[{\"id\":"_s);
    QTest::newRow("an object instead of an array") << QJsonValue(u"{\"id\":\"a\"}"_s);
    QTest::newRow("a record without its model")
        << QJsonValue(u"[{\"id\":\"a\",\"name\":\"A\",\"provider\":\"OpenAI\",\"keyAccount\":\"k\"}]"_s);
    QTest::newRow("a rate written as text")
        << QJsonValue(libraryText({userProfile(u"u1"_s)}).replace(u"1.5"_s, u"\"1.5\""_s));
    QTest::newRow("an array value rather than JSON text") << QJsonValue(QJsonArray{1, 2});
    QTest::newRow("a number") << QJsonValue(7);
}

void TestModelProfileStore::unreadableLibraryFallsThroughAndIsKept()
{
    QFETCH(QJsonValue, unreadable);
    defaults().setValue(Store::profilesKey, unreadable);
    defaults().setString(Store::legacyProfilesKey, libraryText({userProfile(u"legacy"_s)}));

    const QList<CollectionAIModelProfile> profiles = Store::load(defaults());
    QCOMPARE(profiles.size(), 10);
    QVERIFY(profiles.first() == userProfile(u"legacy"_s));
    QCOMPARE(defaults().string(Store::profilesKey), libraryText(profiles));
    Defaults fromDisk(defaults().filePath());
    QCOMPARE(fromDisk.value(Store::unreadableProfilesKey), unreadable);
}

void TestModelProfileStore::everyUnreadableLibraryIsKept()
{
    const QString first = u"[oops"_s;
    const QString second = u"[still oops"_s;
    defaults().setString(Store::profilesKey, first);
    Store::load(defaults());
    defaults().setString(Store::profilesKey, first);
    Store::load(defaults()); // the same text again is not kept twice
    defaults().setString(Store::profilesKey, second);
    Store::load(defaults());

    QCOMPARE(defaults().string(Store::unreadableProfilesKey), first);
    QCOMPARE(defaults().string(Store::unreadableProfilesKey + u"2"_s), second);
    QVERIFY(!defaults().contains(Store::unreadableProfilesKey + u"3"_s));
    QCOMPARE(defaults().string(Store::profilesKey), libraryText(Store::curated()));
}

void TestModelProfileStore::unreadableLegacyGivesTheCuratedRows()
{
    defaults().setString(Store::legacyProfilesKey, u"not json"_s);
    QVERIFY(Store::load(defaults()) == Store::curated());
    QCOMPARE(defaults().string(Store::legacyProfilesKey), u"not json"_s); // never written
    QVERIFY(!defaults().contains(Store::unreadableProfilesKey));          // nothing was written over
}

void TestModelProfileStore::retiredModelsMoveOn_data()
{
    QTest::addColumn<CollectionAIModelProfile>("stored");
    QTest::addColumn<QString>("model");
    QTest::addColumn<QString>("name");

    CollectionAIModelProfile sonnet = Store::curated().at(6);
    sonnet.model = u"claude-3-7-sonnet-latest"_s;
    sonnet.name = u"Claude 3.7 Sonnet"_s;
    QTest::newRow("the curated Sonnet on a retired model")
        << sonnet << u"claude-sonnet-5-5"_s << u"Claude Sonnet 5.5"_s;
    QTest::newRow("a user profile on a retired Sonnet of a dated id")
        << userProfile(u"u1"_s, u"claude-3-7-sonnet-20250219"_s) << u"claude-sonnet-5-5"_s << u"Claude Sonnet 5.5"_s;
    QTest::newRow("Gemini 2.0 Flash") << userProfile(u"u2"_s, u"gemini-2.0-flash"_s) << u"gemini-3.8-flash"_s
                                      << u"Gemini 3.8 Flash"_s;
    QTest::newRow("Gemini 2.0 Flash Lite")
        << userProfile(u"u3"_s, u"gemini-2.0-flash-lite"_s) << u"gemini-3.8-flash"_s << u"Gemini 3.8 Flash"_s;
    QTest::newRow("a current model is left alone")
        << userProfile(u"u4"_s, u"gemini-2.5-flash"_s) << u"gemini-2.5-flash"_s << u"Mine u4"_s;
}

void TestModelProfileStore::retiredModelsMoveOn()
{
    QFETCH(CollectionAIModelProfile, stored);
    QFETCH(QString, model);
    QFETCH(QString, name);
    Store::save(defaults(), {stored});

    const QList<CollectionAIModelProfile> profiles = Store::load(defaults());
    CollectionAIModelProfile expected = stored;
    expected.model = model;
    expected.name = name;
    QVERIFY(profiles.first() == expected); // id, account, rates and note unchanged
    const auto saved = modelProfilesFromJsonBytes(defaults().string(Store::profilesKey).value_or(QString()).toUtf8());
    QVERIFY(saved);
    QVERIFY(saved->first() == expected);
}

void TestModelProfileStore::saveLeavesTheStoredValueOnAnEncoderFailure()
{
    const QList<CollectionAIModelProfile> good{userProfile(u"u1"_s)};
    Store::save(defaults(), good);
    const QString before = defaults().string(Store::profilesKey).value_or(QString());
    QCOMPARE(before, libraryText(good));

    CollectionAIModelProfile bad = userProfile(u"u2"_s);
    bad.outputRateUSD = std::nan("");
    Store::save(defaults(), {bad});
    QCOMPARE(defaults().string(Store::profilesKey), before);
    bad.outputRateUSD = 3.0;
    bad.inputRateUSD = INFINITY;
    Store::save(defaults(), {bad});
    QCOMPARE(defaults().string(Store::profilesKey), before);
}

void TestModelProfileStore::selectedProfile_data()
{
    QTest::addColumn<QString>("selected"); // empty: absent
    QTest::addColumn<QString>("legacySelected");
    QTest::addColumn<QList<CollectionAIModelProfile>>("library");
    QTest::addColumn<QString>("expectedId");
    const QList<CollectionAIModelProfile> withUser = QList{userProfile(u"u1"_s)} + Store::curated();
    QTest::newRow("nothing stored gives the starter") << QString() << QString() << withUser << u"openai-default"_s;
    QTest::newRow("the selected id") << u"xai-grok"_s << QString() << withUser << u"xai-grok"_s;
    QTest::newRow("the collection builder's id as a fallback") << QString() << u"u1"_s << withUser << u"u1"_s;
    QTest::newRow("the selected id wins over the fallback")
        << u"anthropic-opus"_s << u"u1"_s << withUser << u"anthropic-opus"_s;
    QTest::newRow("an id no longer there falls back to the first of the library")
        << u"removed"_s << QString() << withUser << u"u1"_s;
    QTest::newRow("an empty library gives the starter")
        << u"removed"_s << QString() << QList<CollectionAIModelProfile>() << u"openai-default"_s;
}

void TestModelProfileStore::selectedProfile()
{
    QFETCH(QString, selected);
    QFETCH(QString, legacySelected);
    QFETCH(QList<CollectionAIModelProfile>, library);
    QFETCH(QString, expectedId);
    if (!selected.isEmpty()) {
        defaults().setString(Store::selectedProfileKey, selected);
    }
    if (!legacySelected.isEmpty()) {
        defaults().setString(Store::legacySelectedProfileKey, legacySelected);
    }
    QCOMPARE(Store::selectedModel(library, Store::selectedProfileID(defaults())).id, expectedId);
}

void TestModelProfileStore::selectingWritesEveryKey()
{
    defaults().setString(Store::selectedProfileKey, u"openai-default"_s);
    const CollectionAIModelProfile grok = Store::curated().at(8);
    Store::selectProfile(defaults(), grok);
    Defaults fromDisk(defaults().filePath());
    QCOMPARE(fromDisk.string(Store::selectedProfileKey), grok.id);
    QCOMPARE(fromDisk.string(Store::legacySelectedProfileKey), grok.id);
    QCOMPARE(fromDisk.string(Store::collectionModelKey), u"grok-4.7"_s);
    QCOMPARE(Store::selectedModel(Store::load(fromDisk), Store::selectedProfileID(fromDisk)), grok);
}

void TestModelProfileStore::addingStoresTheKey_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("stored");
    QTest::newRow("a typed key is stored as typed") << u" sk-typed "_s << true;
    QTest::newRow("an empty key stores nothing") << QString() << false;
}

void TestModelProfileStore::addingStoresTheKey()
{
    QFETCH(QString, key);
    QFETCH(bool, stored);
    QList<CollectionAIModelProfile> profiles = Store::load(defaults());
    const CollectionAIModelProfile added = userProfile(u"new"_s);
    QVERIFY(!Store::addProfile(defaults(), profiles, added, key));
    QVERIFY(profiles.last() == added);
    QVERIFY(Store::load(defaults()).last() == added);
    QCOMPARE(m_keyring.items.contains(added.keyAccount), stored);
    if (stored) {
        QCOMPARE(m_keyring.items.value(added.keyAccount), key);
    }
}

void TestModelProfileStore::removal_data()
{
    QTest::addColumn<QStringList>("removeIds");
    QTest::addColumn<QStringList>("keysLeft");
    // Every row starts with keys for openai, anthropic and the user profile u1.
    QTest::newRow("removing one OpenAI row keeps the shared key")
        << QStringList{u"openai-gpt41"_s} << QStringList{u"anthropic"_s, u"openai"_s, u"tavo.collection.profile.u1"_s};
    QTest::newRow("removing a user profile erases its own key")
        << QStringList{u"u1"_s} << QStringList{u"anthropic"_s, u"openai"_s};
    QTest::newRow("removing the last profile of an account erases its key")
        << QStringList{u"anthropic-sonnet"_s, u"anthropic-opus"_s}
        << QStringList{u"openai"_s, u"tavo.collection.profile.u1"_s};
    QTest::newRow("an unknown id changes nothing")
        << QStringList{u"nobody"_s} << QStringList{u"anthropic"_s, u"openai"_s, u"tavo.collection.profile.u1"_s};
}

void TestModelProfileStore::removal()
{
    QFETCH(QStringList, removeIds);
    QFETCH(QStringList, keysLeft);
    Store::save(defaults(), {userProfile(u"u1"_s)});
    QList<CollectionAIModelProfile> profiles = Store::load(defaults());
    for (const QString& account : {u"openai"_s, u"anthropic"_s, u"tavo.collection.profile.u1"_s}) {
        QVERIFY(!KeyStore::save(u"sk-"_s + account, account));
    }

    for (const QString& id : removeIds) {
        QVERIFY(!Store::removeProfile(defaults(), profiles, id));
    }
    for (const QString& id : removeIds) {
        QVERIFY(!idsOf(profiles).contains(id));
    }
    QCOMPARE(defaults().string(Store::profilesKey), libraryText(profiles));
    QStringList accounts = m_keyring.items.keys();
    accounts.sort();
    QCOMPARE(accounts, keysLeft);

    // Curated rows come back at the next load; a user profile does not.
    const QStringList reloaded = idsOf(Store::load(defaults()));
    for (const QString& id : removeIds) {
        const bool curatedId = idsOf(Store::curated()).contains(id);
        QCOMPARE(reloaded.contains(id), curatedId);
    }
}

void TestModelProfileStore::removalReportsAKeyringFailure()
{
    QList<CollectionAIModelProfile> profiles{userProfile(u"u1"_s)};
    QVERIFY(!KeyStore::save(u"sk-1"_s, u"tavo.collection.profile.u1"_s));
    m_keyring.failWrites = true;
    const std::optional<TavoError> error = Store::removeProfile(defaults(), profiles, u"u1"_s);
    QVERIFY(error);
    QVERIFY(error->description.contains(u"locked"_s));
    QVERIFY(profiles.isEmpty());
    QCOMPARE(defaults().string(Store::profilesKey), u"[]"_s); // the library changed all the same
}

QTEST_GUILESS_MAIN(TestModelProfileStore)
#include "tst_model_profile_store.moc"
