#include "ai/model_profile_store.h"
#include "platform/secret_store.h"
#include "shell/api_configuration_page.h"
#include "store/defaults.h"
#include "store/key_store.h"

#include <QComboBox>
#include <QHash>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace Store = AIModelProfileStore;

namespace {

// A keyring in memory: the test reads exactly what the page wrote.
class MemorySecretStore : public SecretStore
{
public:
    QHash<QString, QString> items; // account -> value
    int writes = 0;

    SecretLookup lookup(const QString& service, const QString& account) override
    {
        if (service != KeyStore::service || !items.contains(account)) {
            return SecretLookup::notFound();
        }
        return SecretLookup::found(items.value(account));
    }
    SecretWrite store(const QString&, const QString& account, const QString& value) override
    {
        ++writes;
        items.insert(account, value);
        return SecretWrite::done();
    }
    SecretWrite remove(const QString&, const QString& account) override
    {
        ++writes;
        items.remove(account);
        return SecretWrite::done();
    }
};

} // namespace

// The "API configuration" page and its add-model sheet on a temporary settings file and a keyring
// in memory: what the user does through the widgets, read back from the settings and the keyring.
class TestApiConfiguration : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void addModelThroughTheSheet_data();
    void addModelThroughTheSheet();
    void selectingARowStoresTheSelection_data();
    void selectingARowStoresTheSelection();
    void typedKeyIsStoredAfterAPause_data();
    void typedKeyIsStoredAfterAPause();
    void clearingTheKeyErasesItForTheWholeAccount();
    void removalKeepsASharedKey_data();
    void removalKeepsASharedKey();
    void billingPageFollowsTheProvider_data();
    void billingPageFollowsTheProvider();

private:
    QListWidget* list() const { return m_page->findChild<QListWidget*>(u"modelList"_s); }
    QLineEdit* keyField() const { return m_page->findChild<QLineEdit*>(u"apiKey"_s); }
    int rowOf(const QString& id) const;
    void clickRow(const QString& id);

    MemorySecretStore m_keyring;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<ApiConfigurationPage> m_page;
};

void TestApiConfiguration::initTestCase()
{
    KeyStore::setBackend(&m_keyring);
}

void TestApiConfiguration::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(u"Tavo/defaults.json"_s));
    m_keyring.items.clear();
    m_keyring.writes = 0;
    KeyStore::resetForTesting();
    m_page = std::make_unique<ApiConfigurationPage>(*m_defaults);
    m_page->resize(900, 600);
    m_page->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_page.get()));
}

void TestApiConfiguration::cleanup()
{
    m_page.reset();
    m_defaults.reset();
    m_dir.reset();
}

int TestApiConfiguration::rowOf(const QString& id) const
{
    for (int row = 0; row < list()->count(); ++row) {
        if (list()->item(row)->data(Qt::UserRole).toString() == id) {
            return row;
        }
    }
    return -1;
}

void TestApiConfiguration::clickRow(const QString& id)
{
    const int row = rowOf(id);
    QVERIFY2(row >= 0, qPrintable(id));
    const QRect place = list()->visualItemRect(list()->item(row));
    QTest::mouseClick(list()->viewport(), Qt::LeftButton, {}, place.center());
}

void TestApiConfiguration::addModelThroughTheSheet_data()
{
    QTest::addColumn<QString>("providerLabel");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("model");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("base");
    QTest::addColumn<bool>("saves");
    QTest::addColumn<QString>("storedName");

    QTest::newRow("no key: refused") << u"OpenAI"_s << u"Mine"_s << QString() << QString() << QString() << false
                                     << QString();
    QTest::newRow("compatible without a base: refused")
        << u"OpenAI-compatible provider"_s << QString() << QString() << u"sk-1"_s << QString() << false << QString();
    QTest::newRow("blank model id: refused")
        << u"Anthropic Claude"_s << QString() << u"   "_s << u"sk-1"_s << QString() << false << QString();
    QTest::newRow("OpenAI with a key") << u"OpenAI"_s << u"  Work model "_s << QString() << u"sk-open"_s << QString()
                                       << true << u"Work model"_s;
    QTest::newRow("compatible with a base, name left empty")
        << u"OpenAI-compatible provider"_s << u""_s << u"llama-3"_s << u"sk-local"_s << u"http://127.0.0.1:8080/v1"_s
        << true << u"OpenAI-compatible model"_s;
}

void TestApiConfiguration::addModelThroughTheSheet()
{
    QFETCH(QString, providerLabel);
    QFETCH(QString, name);
    QFETCH(QString, model);
    QFETCH(QString, key);
    QFETCH(QString, base);
    QFETCH(bool, saves);
    QFETCH(QString, storedName);

    const qsizetype before = m_page->profiles().size();
    m_page->findChild<QPushButton*>(u"addModel"_s)->click();
    auto* sheet = m_page->findChild<AddCollectionModelSheet*>();
    QVERIFY(sheet);
    QTRY_VERIFY(sheet->isVisible());
    auto* provider = sheet->findChild<QComboBox*>(u"modelProvider"_s);
    provider->setCurrentIndex(provider->findText(providerLabel));
    QCOMPARE(provider->currentText(), providerLabel);
    auto* nameField = sheet->findChild<QLineEdit*>(u"modelName"_s);
    nameField->clear();
    QTest::keyClicks(nameField, name);
    auto* modelField = sheet->findChild<QLineEdit*>(u"modelID"_s);
    if (!model.isNull()) { // otherwise the provider's suggestion stays
        modelField->clear();
        QTest::keyClicks(modelField, model);
    }
    QTest::keyClicks(sheet->findChild<QLineEdit*>(u"modelKey"_s), key);
    auto* baseField = sheet->findChild<QLineEdit*>(u"modelBaseURL"_s);
    QCOMPARE(baseField->isVisible(), providerLabel.startsWith(u"OpenAI-compatible"_s));
    if (baseField->isVisible()) {
        QTest::keyClicks(baseField, base);
    }

    auto* save = sheet->findChild<QPushButton*>(u"saveModel"_s);
    QCOMPARE(save->isEnabled(), saves);
    // Return in a field is the same as the button, and must obey the same rule.
    QTest::keyClick(modelField, Qt::Key_Return);
    if (!saves) {
        QVERIFY(sheet->isVisible());
        QCOMPARE(m_page->profiles().size(), before);
        QVERIFY(m_keyring.items.isEmpty());
        sheet->reject();
        return;
    }
    QCOMPARE(m_page->profiles().size(), before + 1);
    const CollectionAIModelProfile added = m_page->profiles().last();
    QCOMPARE(added.name, storedName);
    QCOMPARE(added.keyAccount, u"tavo.collection.profile."_s + added.id);
    QCOMPARE(added.baseURL.value_or(QString()), base);
    QCOMPARE(m_keyring.items.value(added.keyAccount), key);
    QCOMPARE(m_page->status(), u"Saved %1. It is now available in both builders."_s.arg(storedName));
    QCOMPARE(list()->count(), before + 1);
    // It is in the stored library, not only on the screen.
    QCOMPARE(Store::load(*m_defaults).last(), added);
}

void TestApiConfiguration::selectingARowStoresTheSelection_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("model");
    QTest::addColumn<QString>("account");
    QTest::newRow("Gemini") << u"google-gemini-flash"_s << u"gemini-3.8-flash"_s << u"google"_s;
    QTest::newRow("Claude") << u"anthropic-opus"_s << u"claude-opus-5-5"_s << u"anthropic"_s;
    QTest::newRow("Grok") << u"xai-grok"_s << u"grok-4.7"_s << u"xai"_s;
}

void TestApiConfiguration::selectingARowStoresTheSelection()
{
    QFETCH(QString, id);
    QFETCH(QString, model);
    QFETCH(QString, account);
    QVERIFY(!KeyStore::save(u"key-of-"_s + account, account));
    QCOMPARE(m_page->selectedID(), u"openai-default"_s);
    QVERIFY(
        list()->item(rowOf(u"openai-default"_s))->data(Qt::AccessibleTextRole).toString().endsWith(u", selected"_s));

    clickRow(id);
    QCOMPARE(m_defaults->string(Store::selectedProfileKey).value_or(QString()), id);
    QCOMPARE(m_defaults->string(Store::legacySelectedProfileKey).value_or(QString()), id);
    QCOMPARE(m_defaults->string(Store::collectionModelKey).value_or(QString()), model);
    QCOMPARE(list()->currentRow(), rowOf(id));
    QVERIFY(list()->item(rowOf(id))->data(Qt::AccessibleTextRole).toString().endsWith(u", selected"_s));
    QVERIFY(!list()->item(rowOf(u"openai-default"_s))->data(Qt::AccessibleTextRole).toString().endsWith(u"selected"_s));
    QCOMPARE(keyField()->text(), u"key-of-"_s + account);
    QCOMPARE(keyField()->echoMode(), QLineEdit::Password);
}

void TestApiConfiguration::typedKeyIsStoredAfterAPause_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("account");
    QTest::addColumn<QString>("key");
    QTest::newRow("OpenAI") << u"openai-gpt41"_s << u"openai"_s << u"sk-proj-abc123"_s;
    QTest::newRow("Anthropic") << u"anthropic-sonnet"_s << u"anthropic"_s << u"sk-ant-xyz"_s;
}

void TestApiConfiguration::typedKeyIsStoredAfterAPause()
{
    QFETCH(QString, id);
    QFETCH(QString, account);
    QFETCH(QString, key);
    clickRow(id);
    const int writesBefore = m_keyring.writes;
    QTest::keyClicks(keyField(), key);
    // Typing itself never waits on the keyring: nothing is written per keystroke.
    QCOMPARE(m_keyring.writes, writesBefore);
    QTRY_COMPARE(m_keyring.items.value(account), key);
    QCOMPARE(m_keyring.writes, writesBefore + 1);
    QCOMPARE(KeyStore::load(account).value(), std::optional<QString>(key));
}

void TestApiConfiguration::clearingTheKeyErasesItForTheWholeAccount()
{
    QVERIFY(!KeyStore::save(u"sk-shared"_s, u"openai"_s));
    QVERIFY(!KeyStore::save(u"sk-google"_s, u"google"_s));
    m_page->reload();
    clickRow(u"openai-gpt41"_s);
    QCOMPARE(keyField()->text(), u"sk-shared"_s);
    keyField()->selectAll();
    QTest::keyClick(keyField(), Qt::Key_Backspace);
    QTRY_VERIFY(!m_keyring.items.contains(u"openai"_s));
    QCOMPARE(m_keyring.items.value(u"google"_s), u"sk-google"_s); // another account keeps its key
    // Every profile on that account has lost it.
    for (const QString& sibling : {u"openai-default"_s, u"openai-gpt61sol"_s, u"openai-gpt61terra"_s}) {
        clickRow(sibling);
        QCOMPARE(keyField()->text(), QString());
    }
    clickRow(u"google-gemini-pro"_s);
    QCOMPARE(keyField()->text(), u"sk-google"_s);
}

void TestApiConfiguration::removalKeepsASharedKey_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("account");
    QTest::addColumn<bool>("keyKept");
    QTest::newRow("GPT-4.1 shares the OpenAI key") << u"openai-gpt41"_s << u"openai"_s << true;
    QTest::newRow("Grok is alone on its account") << u"xai-grok"_s << u"xai"_s << false;
    QTest::newRow("a model added by hand") << u"user"_s << QString() << false;
}

void TestApiConfiguration::removalKeepsASharedKey()
{
    QFETCH(QString, id);
    QFETCH(QString, account);
    QFETCH(bool, keyKept);
    if (id == u"user"_s) {
        AddCollectionModelDraft draft;
        draft.chooseProvider(u"Anthropic"_s);
        draft.key = u"sk-own"_s;
        const CollectionAIModelProfile profile = draft.makeProfile();
        m_page->addProfile(profile, draft.key);
        id = profile.id;
        account = profile.keyAccount;
    } else {
        QVERIFY(!KeyStore::save(u"sk-"_s + account, account));
    }
    QVERIFY(m_keyring.items.contains(account));
    const int row = rowOf(id);
    QVERIFY(row >= 0);
    const QString name = m_page->profiles().at(row).name;
    const qsizetype before = m_page->profiles().size();

    clickRow(id);
    m_page->findChild<QPushButton*>(u"removeModel"_s)->click();
    QCOMPARE(m_page->profiles().size(), before - 1);
    QCOMPARE(rowOf(id), -1);
    QCOMPARE(m_page->status(), u"Removed %1."_s.arg(name));
    QCOMPARE(m_keyring.items.contains(account), keyKept);
    QVERIFY(m_page->selectedID() != id);
    QCOMPARE(list()->currentRow(), rowOf(m_page->selectedID()));
}

void TestApiConfiguration::billingPageFollowsTheProvider_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("host");
    QTest::newRow("Anthropic") << u"Anthropic"_s << u"console.anthropic.com"_s;
    QTest::newRow("Gemini") << u"Google Gemini"_s << u"aistudio.google.com"_s;
    QTest::newRow("xAI") << u"xAI"_s << u"console.x.ai"_s;
    QTest::newRow("Grok by name") << u"My Grok"_s << u"console.x.ai"_s;
    QTest::newRow("SeaArt") << u"SeaArt"_s << u"www.seaart.ai"_s;
    QTest::newRow("anything else") << u"OpenAI-compatible"_s << u"platform.openai.com"_s;
    QTest::newRow("Anthropic wins over Google") << u"Anthropic via Google"_s << u"console.anthropic.com"_s;
}

void TestApiConfiguration::billingPageFollowsTheProvider()
{
    QFETCH(QString, provider);
    QFETCH(QString, host);
    const QUrl page = billingPage(provider);
    QCOMPARE(page.scheme(), u"https"_s);
    QCOMPARE(page.host(), host);
}

QTEST_MAIN(TestApiConfiguration)
#include "tst_api_configuration.moc"
