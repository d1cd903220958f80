#include "browser/browser_tabs.h"
#include "platform/secret/libsecret_store.h"
#include "store/defaults.h"
#include "store/key_store.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTest>

#include <atomic>
#include <memory>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

// The real keyring, counting how often it is asked.
class CountingSecretStore : public SecretStore
{
public:
    std::atomic<int> calls = 0;

    SecretLookup lookup(const QString& service, const QString& account) override
    {
        ++calls;
        return m_real.lookup(service, account);
    }
    SecretWrite store(const QString& service, const QString& account, const QString& value) override
    {
        ++calls;
        return m_real.store(service, account, value);
    }
    SecretWrite remove(const QString& service, const QString& account) override
    {
        ++calls;
        return m_real.remove(service, account);
    }

private:
    LibsecretStore m_real;
};

const QString passcode = u"482917"_s;

const QStringList normalKeys = {BrowserKeys::tabs,         BrowserKeys::collections,
                                BrowserKeys::tabGroups,    BrowserKeys::collapsedGroups,
                                BrowserKeys::splitEnabled, BrowserKeys::splitSecondary};

QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList urls(const QList<TavoSavedSite>& saved)
{
    QStringList list;
    for (const TavoSavedSite& site : saved) {
        list.append(site.url);
    }
    return list;
}

} // namespace

// Private Mode against a real Secret Service on the test's own bus, and incognito beside it.
class TestBrowserPrivate : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void gateRefusesBeforeAskingTheKeyring_data();
    void gateRefusesBeforeAskingTheKeyring();
    void privateWorkspaceIsSealedAndApart();
    void wrongPasscodeTouchesNothing_data();
    void wrongPasscodeTouchesNothing();
    void damagedArchiveOpensEmpty_data();
    void damagedArchiveOpensEmpty();
    void unlockFromIncognitoSuspendsTheNormalWorkspace();
    void withoutAKeyNothingIsWritten();
    void passcodeIsInNoFile();

private:
    QMap<QString, QJsonValue> normalValues() const;
    void setUpPasscode();

    CountingSecretStore m_keyring;
    std::unique_ptr<Defaults> m_defaults;
};

void TestBrowserPrivate::initTestCase()
{
    KeyStore::setBackend(&m_keyring);
}

void TestBrowserPrivate::init()
{
    m_defaults.reset();
    QFile::remove(Defaults::defaultFilePath());
    KeyStore::save(QString(), BrowserKeys::privatePinAccount);
    KeyStore::save(QString(), BrowserKeys::privateKeyAccount);
    KeyStore::resetForTesting();
    m_defaults = std::make_unique<Defaults>();
}

QMap<QString, QJsonValue> TestBrowserPrivate::normalValues() const
{
    Defaults reread;
    QMap<QString, QJsonValue> values;
    for (const QString& key : normalKeys) {
        values.insert(key, reread.value(key));
    }
    return values;
}

void TestBrowserPrivate::setUpPasscode()
{
    TavoBrowserTabs tabs(*m_defaults);
    QCOMPARE(BrowserPrivateGate::submit(tabs, passcode, passcode, false), std::nullopt);
    tabs.lockPrivateMode();
}

void TestBrowserPrivate::gateRefusesBeforeAskingTheKeyring_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("confirmation");
    QTest::addColumn<QString>("message");
    QTest::newRow("five digits") << u"12345"_s << u"12345"_s << BrowserPrivateGate::enterAllDigits;
    QTest::newRow("seven digits") << u"1234567"_s << u"1234567"_s << BrowserPrivateGate::enterAllDigits;
    QTest::newRow("confirmation differs") << u"123456"_s << u"123457"_s << BrowserPrivateGate::passcodesDoNotMatch;
}

void TestBrowserPrivate::gateRefusesBeforeAskingTheKeyring()
{
    QFETCH(QString, typed);
    QFETCH(QString, confirmation);
    TavoBrowserTabs tabs(*m_defaults);
    const int before = m_keyring.calls;
    QTEST(BrowserPrivateGate::submit(tabs, typed, confirmation, false).value_or(QString()), "message");
    QCOMPARE(int(m_keyring.calls), before);
    QVERIFY(!tabs.isPrivateMode());
    QVERIFY(!tabs.hasPrivatePasscode());
    // The fields themselves keep number characters only, six at most.
    QCOMPARE(BrowserPrivateGate::fieldText(u"1a2 3-4567890"_s), u"123456"_s);
}

void TestBrowserPrivate::privateWorkspaceIsSealedAndApart()
{
    TavoBrowserTabs tabs(*m_defaults);
    tabs.newTab(u"https://normal/"_s);
    const QString normalTab = tabs.selectedID();
    tabs.flush();
    const QMap<QString, QJsonValue> before = normalValues();
    const QList<TavoBrowserTab> tabsBefore = tabs.tabs();

    QVERIFY(tabs.unlockPrivateMode(passcode, passcode));
    QVERIFY(tabs.isPrivateMode());
    QCOMPARE(tabs.tabs(), QList<TavoBrowserTab>{TavoBrowserTab::home()});
    QCOMPARE(tabs.address(), homeURL);
    tabs.newTab(u"https://private.example/"_s);
    tabs.saveCurrent(u"P"_s, u"https://private.example/"_s, {u"tag"_s}, u"note"_s, u"Secret stash"_s);
    tabs.toggleIncognito(); // no way from Private Mode into incognito
    QVERIFY(!tabs.isIncognito());
    tabs.flush();
    QCOMPARE(normalValues(), before);

    tabs.lockPrivateMode();
    QVERIFY(!tabs.isPrivateMode());
    QCOMPARE(tabs.tabs(), tabsBefore);
    QCOMPARE(tabs.selectedID(), normalTab);
    QCOMPARE(tabs.address(), u"https://normal/"_s);
    tabs.flush();
    QCOMPARE(normalValues(), before);
    const QByteArray file = fileBytes(Defaults::defaultFilePath());
    QVERIFY(!file.contains("private.example"));
    QVERIFY(!file.contains("Secret stash"));
    QVERIFY(m_defaults->bytes(BrowserKeys::privateWorkspace).has_value());

    // A restart shows the normal workspace; the next unlock the private one.
    Defaults reread;
    TavoBrowserTabs again(reread);
    QVERIFY(!urls(again.saved()).contains(u"https://private.example/"_s));
    KeyStore::resetForTesting();
    QVERIFY(again.unlockPrivateMode(passcode, std::nullopt));
    QVERIFY(urls(again.saved()).contains(u"https://private.example/"_s));
    QCOMPARE(again.tabs().last().url, u"https://private.example/"_s);
    again.lockPrivateMode();
    QVERIFY(!urls(again.saved()).contains(u"https://private.example/"_s));
}

void TestBrowserPrivate::wrongPasscodeTouchesNothing_data()
{
    QTest::addColumn<QString>("typed");
    QTest::newRow("other digits") << u"482918"_s;
    QTest::newRow("letters") << u"48291a"_s;
    QTest::newRow("the right one twice over") << (passcode + passcode);
}

void TestBrowserPrivate::wrongPasscodeTouchesNothing()
{
    QFETCH(QString, typed);
    setUpPasscode();
    TavoBrowserTabs tabs(*m_defaults);
    tabs.newTab(u"https://n/"_s);
    tabs.flush();
    const QByteArray before = fileBytes(Defaults::defaultFilePath());
    const QString pin = *KeyStore::loadFresh(BrowserKeys::privatePinAccount).value();
    QVERIFY(!tabs.unlockPrivateMode(typed, typed));
    QCOMPARE(BrowserPrivateGate::submit(tabs, typed, QString(), true),
             std::optional<QString>(typed.size() == 6 ? BrowserPrivateGate::didNotUnlock
                                                      : BrowserPrivateGate::enterAllDigits));
    QVERIFY(!tabs.isPrivateMode());
    QCOMPARE(tabs.tabs().last().url, u"https://n/"_s);
    tabs.flush();
    QCOMPARE(fileBytes(Defaults::defaultFilePath()), before);
    QCOMPARE(*KeyStore::loadFresh(BrowserKeys::privatePinAccount).value(), pin);
}

void TestBrowserPrivate::damagedArchiveOpensEmpty_data()
{
    QTest::addColumn<bool>("wrongKey");
    QTest::newRow("flipped bytes") << false;
    QTest::newRow("key item of the wrong form") << true;
}

void TestBrowserPrivate::damagedArchiveOpensEmpty()
{
    QFETCH(bool, wrongKey);
    {
        TavoBrowserTabs tabs(*m_defaults);
        QVERIFY(tabs.unlockPrivateMode(passcode, passcode));
        tabs.saveCurrent(u"P"_s, u"https://p/"_s, {}, {}, u"Stash"_s);
        tabs.lockPrivateMode();
    }
    const QByteArray sealed = *m_defaults->bytes(BrowserKeys::privateWorkspace);
    auto opensEmpty = [this] {
        Defaults reread;
        TavoBrowserTabs tabs(reread);
        return tabs.unlockPrivateMode(passcode, std::nullopt) &&
               urls(tabs.saved()) == QStringList{builtInHomeLinkURL} &&
               tabs.tabs() == QList<TavoBrowserTab>{TavoBrowserTab::home()} && tabs.collections().size() == 1 &&
               !tabs.browserMessage();
    };
    if (wrongKey) {
        QVERIFY(!KeyStore::save(u"c2hvcnQ="_s, BrowserKeys::privateKeyAccount));
        QVERIFY(opensEmpty());
        return;
    }
    // Every byte is checked at the cipher's level (tst_browser_records); through the whole unlock,
    // which costs a slow passcode hash each, the nonce, the first and last ciphertext bytes, the
    // tag and every 16th byte between.
    QList<qsizetype> positions = {0, 11, 12, sealed.size() - 17, sealed.size() - 16, sealed.size() - 1};
    for (qsizetype at = 16; at < sealed.size(); at += 16) {
        positions.append(at);
    }
    for (const qsizetype at : std::as_const(positions)) {
        QByteArray damaged = sealed;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x01);
        m_defaults->setBytes(BrowserKeys::privateWorkspace, damaged);
        QVERIFY2(opensEmpty(), qPrintable(u"byte %1"_s.arg(at)));
    }
    m_defaults->setBytes(BrowserKeys::privateWorkspace, sealed);
    Defaults reread;
    TavoBrowserTabs tabs(reread);
    QVERIFY(tabs.unlockPrivateMode(passcode, std::nullopt));
    QVERIFY(urls(tabs.saved()).contains(u"https://p/"_s)); // undamaged, it opens whole
}

void TestBrowserPrivate::unlockFromIncognitoSuspendsTheNormalWorkspace()
{
    TavoBrowserTabs tabs(*m_defaults);
    tabs.newTab(u"https://normal/"_s);
    tabs.flush();
    const QMap<QString, QJsonValue> before = normalValues();
    const QList<TavoBrowserTab> normalTabs = tabs.tabs();
    tabs.toggleIncognito();
    tabs.newTab(u"https://incognito/"_s);
    QVERIFY(tabs.unlockPrivateMode(passcode, passcode));
    QVERIFY(!tabs.isIncognito());
    QVERIFY(tabs.isPrivateMode());
    tabs.lockPrivateMode();
    QCOMPARE(tabs.tabs(), normalTabs);
    tabs.flush();
    QCOMPARE(normalValues(), before);
}

void TestBrowserPrivate::withoutAKeyNothingIsWritten()
{
    TavoBrowserTabs tabs(*m_defaults);
    QVERIFY(tabs.unlockPrivateMode(passcode, passcode));
    tabs.flush();
    const QByteArray before = fileBytes(Defaults::defaultFilePath());
    QVERIFY(!KeyStore::save(QString(), BrowserKeys::privateKeyAccount));
    tabs.saveCurrent(u"P"_s, u"https://p/"_s, {}, {}, u"Stash"_s);
    tabs.flush();
    QCOMPARE(tabs.browserMessage(), std::optional<QString>(privateSaveFailedMessage));
    QCOMPARE(fileBytes(Defaults::defaultFilePath()), before);
    tabs.dismissStatus();
    tabs.newTab(u"https://q/"_s);
    tabs.flush();
    QCOMPARE(tabs.browserMessage(), std::optional<QString>(privateSaveFailedMessage)); // said again for a new change
    QCOMPARE(fileBytes(Defaults::defaultFilePath()), before);
}

void TestBrowserPrivate::passcodeIsInNoFile()
{
    setUpPasscode();
    {
        TavoBrowserTabs tabs(*m_defaults);
        QVERIFY(tabs.unlockPrivateMode(passcode, std::nullopt));
        tabs.saveCurrent(u"P"_s, u"https://p/"_s, {}, {}, u"Stash"_s);
        tabs.lockPrivateMode();
    }
    QDirIterator files(QDir::homePath(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    int looked = 0;
    while (files.hasNext()) {
        const QString path = files.next();
        ++looked;
        const QByteArray data = fileBytes(path);
        QVERIFY2(!data.contains(passcode.toLatin1()), qPrintable(path));
        QVERIFY2(!data.contains(passcode.toUtf8().toBase64()), qPrintable(path));
    }
    QVERIFY(looked >= 2); // the settings and the keyring at least
}

QTEST_GUILESS_MAIN(TestBrowserPrivate)
#include "tst_browser_private.moc"
