#include "platform/secret/libsecret_store.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/password_hash.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using namespace tavo;

namespace {

// The real keyring, with a count of how often it was asked.
class CountingSecretStore : public SecretStore
{
public:
    explicit CountingSecretStore(SecretStore& real)
        : m_real(real)
    {
    }

    std::atomic<int> lookups = 0;
    std::atomic<int> writes = 0;

    SecretLookup lookup(const QString& service, const QString& account) override
    {
        ++lookups;
        return m_real.lookup(service, account);
    }
    SecretWrite store(const QString& service, const QString& account, const QString& value) override
    {
        ++writes;
        return m_real.store(service, account, value);
    }
    SecretWrite remove(const QString& service, const QString& account) override
    {
        ++writes;
        return m_real.remove(service, account);
    }

private:
    SecretStore& m_real;
};

const QString noKeyringMessage = QStringLiteral("No system keyring is running (Secret Service).");
const QString lockedMessage = QStringLiteral("The system keyring is locked.");

QString userAccount(const QString& name)
{
    return QStringLiteral("tavo.local.user.") + name;
}

// What another program sees in the keyring: secret-tool runs as a process of its own.
std::optional<QString> keyringItemSeenByAnotherProcess(const QString& account)
{
    QProcess tool;
    tool.start(QStringLiteral("secret-tool"), {QStringLiteral("lookup"), QStringLiteral("service"), KeyStore::service,
                                               QStringLiteral("account"), account});
    if (!tool.waitForFinished(10000) || tool.exitStatus() != QProcess::NormalExit || tool.exitCode() != 0) {
        return std::nullopt;
    }
    return QString::fromUtf8(tool.readAllStandardOutput());
}

bool storeThroughAnotherProcess(const QString& account, const QString& value)
{
    QProcess tool;
    tool.start(QStringLiteral("secret-tool"),
               {QStringLiteral("store"), QStringLiteral("--label=made elsewhere"), QStringLiteral("service"),
                KeyStore::service, QStringLiteral("account"), account});
    tool.write(value.toUtf8());
    tool.closeWriteChannel();
    return tool.waitForFinished(10000) && tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
}

bool lockDefaultKeyring()
{
    QProcess tool;
    tool.start(QStringLiteral("dbus-send"),
               {QStringLiteral("--session"), QStringLiteral("--print-reply"),
                QStringLiteral("--dest=org.freedesktop.secrets"), QStringLiteral("/org/freedesktop/secrets"),
                QStringLiteral("org.freedesktop.Secret.Service.Lock"),
                QStringLiteral("array:objpath:/org/freedesktop/secrets/aliases/default")});
    return tool.waitForFinished(10000) && tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
}

QString storedText(const QString& password)
{
    StoredPassword stored;
    stored.salt = makePasswordSalt();
    stored.hash = derivePasswordHash(password, stored.salt).value_or(QByteArray());
    return formatStoredPassword(stored);
}

} // namespace

// Against the Secret Service that tests/with-keyring starts: nothing stands in for the keyring.
class TestAccounts : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void validUsername_data();
    void validUsername();
    void registrationProblem_data();
    void registrationProblem();
    void derivesKnownHashes_data();
    void derivesKnownHashes();
    void parsesStoredPasswords_data();
    void parsesStoredPasswords();
    void comparesInConstantTime_data();
    void comparesInConstantTime();

    void registerKeepsSaltedHashAndSignsIn();
    void registerRefusesExistingNameInAnyCase();
    void signInChecksThePassword();
    void signInRefusesMalformedItem_data();
    void signInRefusesMalformedItem();
    void signInFindsAccountMadeByAnotherProcess();
    void registerNeverOverwritesAccountMadeByAnotherProcess();
    void legacyEmailToMigrate_data();
    void legacyEmailToMigrate();
    void signOutKeepsUsernameAndStateSurvives();

    void keyStoreReadsMissingAccountOnce();
    void keyStoreSaveAfterMissedLoad();
    void keyStoreEmptyValueDeletes();
    void keyStoreLoadFreshSeesOtherProcesses();
    void keyStoreFromSeveralThreads();

    // Locks the keyring for good: keep it last.
    void lockedKeyringIsAnErrorNotAMiss();

private:
    QString defaultsPath() const { return m_dir->filePath(QStringLiteral("defaults.json")); }

    LibsecretStore m_real;
    CountingSecretStore m_keyring{m_real};
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestAccounts::initTestCase()
{
    const SecretLookup probe = m_real.lookup(KeyStore::service, QStringLiteral("tavo.test.probe"));
    QVERIFY2(!probe.isFailed(), qPrintable(QStringLiteral("run this test through tests/with-keyring: ") + probe.error));
    KeyStore::setBackend(&m_keyring);
}

void TestAccounts::init()
{
    KeyStore::resetForTesting();
    m_keyring.lookups = 0;
    m_keyring.writes = 0;
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestAccounts::cleanup()
{
    m_dir.reset();
}

void TestAccounts::validUsername_data()
{
    QTest::addColumn<QString>("username");
    QTest::addColumn<bool>("valid");

    QTest::newRow("two characters are too few") << QStringLiteral("ab") << false;
    QTest::newRow("three characters are enough") << QStringLiteral("abc") << true;
    QTest::newRow("32 characters are allowed") << QString(32, QLatin1Char('a')) << true;
    QTest::newRow("33 characters are too many") << QString(33, QLatin1Char('a')) << false;
    QTest::newRow("blanks around are trimmed") << QStringLiteral(" \tabc\n") << true;
    QTest::newRow("trimming comes before counting") << QStringLiteral("  ab  ") << false;
    QTest::newRow("capitals are folded") << QStringLiteral("Alice") << true;
    QTest::newRow("periods, underscores and hyphens") << QStringLiteral("a.b_c-d9") << true;
    QTest::newRow("a blank inside is refused") << QStringLiteral("al ice") << false;
    QTest::newRow("an exclamation mark is refused") << QStringLiteral("alice!") << false;
    QTest::newRow("letters beyond ASCII are refused") << QStringLiteral(u"j\u00FCrgen") << false;
    QTest::newRow("empty") << QString() << false;
}

void TestAccounts::validUsername()
{
    QFETCH(QString, username);
    QFETCH(bool, valid);
    QCOMPARE(TavoAccountStore::validUsername(username), valid);
}

void TestAccounts::registrationProblem_data()
{
    QTest::addColumn<bool>("isCreating");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("confirm");
    QTest::addColumn<QString>("problem");

    const QString none;
    QTest::newRow("seven characters are too few")
        << true << QStringLiteral("1234567") << QStringLiteral("1234567") << AccountText::passwordTooShort;
    QTest::newRow("eight characters are enough")
        << true << QStringLiteral("12345678") << QStringLiteral("12345678") << none;
    // Eight UTF-16 units, but seven characters: the accent combines with its letter.
    QTest::newRow("a combining accent is part of its letter")
        << true << QStringLiteral(u"123456e\u0301") << QStringLiteral(u"123456e\u0301")
        << AccountText::passwordTooShort;
    QTest::newRow("an emoji is one character")
        << true << QStringLiteral(u"1234567\U0001F511") << QStringLiteral(u"1234567\U0001F511") << none;
    QTest::newRow("the confirmation must match")
        << true << QStringLiteral("12345678") << QStringLiteral("12345679") << AccountText::passwordsDiffer;
    QTest::newRow("length is checked before the match")
        << true << QStringLiteral("short") << QStringLiteral("other") << AccountText::passwordTooShort;
    QTest::newRow("signing in checks neither") << false << QStringLiteral("short") << QString() << none;
}

void TestAccounts::registrationProblem()
{
    QFETCH(bool, isCreating);
    QFETCH(QString, password);
    QFETCH(QString, confirm);
    QFETCH(QString, problem);
    QCOMPARE(tavo::registrationProblem(isCreating, password, confirm).value_or(QString()), problem);
}

void TestAccounts::derivesKnownHashes_data()
{
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("salt");
    QTest::addColumn<QByteArray>("hashBase64");

    // Reference values from Python's hashlib.pbkdf2_hmac("sha256", ..., 210000, 32).
    QTest::newRow("zero salt") << QStringLiteral("correct horse") << QByteArray(16, '\0')
                               << QByteArray("woRo2b34bR7fli4EqLyBzP9W5/xpGTF58FOC+mezQ3I=");
    QTest::newRow("password as UTF-8") << QStringLiteral(u"p\u00E4ssw\u00F6rd\u2713")
                                       << QByteArray::fromHex("000102030405060708090a0b0c0d0e0f")
                                       << QByteArray("5B3gkOYGsvvyrZbH0036oDGu1D7+KsQOOm1a06YSzx0=");
}

void TestAccounts::derivesKnownHashes()
{
    QFETCH(QString, password);
    QFETCH(QByteArray, salt);
    QFETCH(QByteArray, hashBase64);
    const auto hash = derivePasswordHash(password, salt);
    QVERIFY(hash);
    QCOMPARE(hash->toBase64(), hashBase64);
}

void TestAccounts::parsesStoredPasswords_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("valid");

    const QString salt = QString::fromLatin1(QByteArray(16, '\1').toBase64());
    const QString hash = QString::fromLatin1(QByteArray(32, '\2').toBase64());
    QTest::newRow("salt and hash") << salt + u'.' + hash << true;
    QTest::newRow("no full stop") << salt + hash << false;
    QTest::newRow("two full stops") << salt + u'.' + hash + u'.' << false;
    QTest::newRow("a doubled full stop") << salt + u".." + hash << false;
    QTest::newRow("a character outside base64") << salt + u'.' + hash.left(40) + u"!!!=" << false;
    QTest::newRow("a blank inside base64") << salt + u'.' + hash.left(20) + u' ' + hash.mid(21) << false;
    QTest::newRow("a letter beyond ASCII") << salt + u'.' + hash.left(43) + QChar(0x00E9) << false;
}

void TestAccounts::parsesStoredPasswords()
{
    QFETCH(QString, text);
    QFETCH(bool, valid);
    const auto parsed = parseStoredPassword(text);
    QCOMPARE(parsed.has_value(), valid);
    if (valid) {
        QCOMPARE(parsed->salt, QByteArray(16, '\1'));
        QCOMPARE(parsed->hash, QByteArray(32, '\2'));
    }
}

void TestAccounts::comparesInConstantTime_data()
{
    QTest::addColumn<QByteArray>("a");
    QTest::addColumn<QByteArray>("b");
    QTest::addColumn<bool>("equal");

    const QByteArray hash = QByteArray::fromHex("c28468d9bdf86d1edf962e04a8bc81ccff56e7fc69193179f05382fa67b34372");
    QByteArray firstDiffers = hash;
    firstDiffers[0] = char(firstDiffers[0] ^ 1);
    QByteArray lastDiffers = hash;
    lastDiffers[31] = char(lastDiffers[31] ^ 0x80);
    QTest::newRow("same bytes") << hash << QByteArray(hash) << true;
    QTest::newRow("first byte differs") << hash << firstDiffers << false;
    QTest::newRow("last byte differs") << hash << lastDiffers << false;
    QTest::newRow("a prefix is not equal") << hash << hash.left(31) << false;
    QTest::newRow("empty against hash") << QByteArray() << hash << false;
    QTest::newRow("both empty") << QByteArray() << QByteArray() << true;
}

void TestAccounts::comparesInConstantTime()
{
    QFETCH(QByteArray, a);
    QFETCH(QByteArray, b);
    QFETCH(bool, equal);
    QCOMPARE(constantTimeEquals(a, b), equal);
}

void TestAccounts::registerKeepsSaltedHashAndSignsIn()
{
    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.isAuthenticated());

    // The profile is activated on the change of isAuthenticated: by then everything else is set.
    QStringList events;
    connect(&accounts, &TavoAccountStore::currentUsernameChanged, this,
            [&](const QString& name) { events << QStringLiteral("username ") + name; });
    connect(&accounts, &TavoAccountStore::isAuthenticatedChanged, this, [&](bool signedIn) {
        events << QStringLiteral("authenticated %1").arg(signedIn);
        QCOMPARE(defaults.string(QStringLiteral("tavoLocalUsername")),
                 std::optional<QString>(QStringLiteral("alice.example")));
        QVERIFY(defaults.flag(QStringLiteral("tavoLocalSignedIn")));
    });

    QVERIFY(accounts.registerAccount(QStringLiteral("  Alice.Example\n"), QStringLiteral("correct horse")));
    QCOMPARE(accounts.message(), AccountText::accountReady);
    QCOMPARE(accounts.message(), QStringLiteral("Your local Tavo account is ready."));
    QCOMPARE(accounts.currentUsername(), QStringLiteral("alice.example"));
    QVERIFY(accounts.isAuthenticated());
    QCOMPARE(events, QStringList({QStringLiteral("username alice.example"), QStringLiteral("authenticated 1")}));

    const auto item = keyringItemSeenByAnotherProcess(userAccount(QStringLiteral("alice.example")));
    QVERIFY(item);
    QCOMPARE(item->count(u'.'), 1);
    const QStringList parts = item->split(u'.');
    QCOMPARE(parts.at(0).size(), 24);
    QCOMPARE(parts.at(1).size(), 44);
    const auto stored = parseStoredPassword(*item);
    QVERIFY(stored);
    QCOMPARE(stored->salt.size(), 16);
    QCOMPARE(stored->hash.size(), 32);
    QVERIFY(stored->salt != QByteArray(16, '\0'));
}

void TestAccounts::registerRefusesExistingNameInAnyCase()
{
    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(accounts.registerAccount(QStringLiteral("carol"), QStringLiteral("first password")));
    const auto before = keyringItemSeenByAnotherProcess(userAccount(QStringLiteral("carol")));
    accounts.signOut();

    QVERIFY(!accounts.registerAccount(QStringLiteral(" CAROL "), QStringLiteral("second password")));
    QCOMPARE(accounts.message(), QStringLiteral("That username already exists on this computer. Sign in instead."));
    QVERIFY(!accounts.isAuthenticated());
    QCOMPARE(keyringItemSeenByAnotherProcess(userAccount(QStringLiteral("carol"))), before);
}

void TestAccounts::signInChecksThePassword()
{
    Defaults defaults(defaultsPath());
    {
        TavoAccountStore first(defaults);
        QVERIFY(first.registerAccount(QStringLiteral("bob"), QStringLiteral("right password")));
        first.signOut();
    }
    KeyStore::resetForTesting(); // a new run of the program

    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.signIn(QStringLiteral("bob"), QStringLiteral("wrong password")));
    QCOMPARE(accounts.message(), QStringLiteral("Username or password is incorrect."));
    QVERIFY(!accounts.isAuthenticated());

    // An unknown name reads exactly like a wrong password.
    QVERIFY(!accounts.signIn(QStringLiteral("nobody"), QStringLiteral("right password")));
    QCOMPARE(accounts.message(), AccountText::wrongCredentials);

    QSignalSpy authenticated(&accounts, &TavoAccountStore::isAuthenticatedChanged);
    QVERIFY(accounts.signIn(QStringLiteral("  BOB "), QStringLiteral("right password")));
    QCOMPARE(accounts.message(), QStringLiteral("Welcome back, bob."));
    QCOMPARE(accounts.currentUsername(), QStringLiteral("bob"));
    QVERIFY(accounts.isAuthenticated());
    QCOMPARE(authenticated.count(), 1);
    QVERIFY(defaults.flag(QStringLiteral("tavoLocalSignedIn")));
}

void TestAccounts::signInRefusesMalformedItem_data()
{
    QTest::addColumn<QString>("stored");

    QTest::newRow("no full stop") << QStringLiteral("AAAAAAAAAAAAAAAAAAAAAA==");
    QTest::newRow("three parts") << QStringLiteral("AAAA.AAAA.AAAA");
    QTest::newRow("salt not base64") << QStringLiteral("!!!!.AAAA");
    QTest::newRow("hash not base64") << QStringLiteral("AAAA.@@@@");
}

void TestAccounts::signInRefusesMalformedItem()
{
    QFETCH(QString, stored);
    QVERIFY(!KeyStore::save(stored, userAccount(QStringLiteral("mallory"))));

    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.signIn(QStringLiteral("mallory"), QStringLiteral("any password")));
    QCOMPARE(accounts.message(), AccountText::wrongCredentials);
    QVERIFY(!accounts.isAuthenticated());
}

void TestAccounts::signInFindsAccountMadeByAnotherProcess()
{
    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.signIn(QStringLiteral("dave"), QStringLiteral("dave's password")));
    QVERIFY(KeyStore::knownMissing(userAccount(QStringLiteral("dave"))));

    // tavoctl registers the account while this process runs.
    QVERIFY(
        storeThroughAnotherProcess(userAccount(QStringLiteral("dave")), storedText(QStringLiteral("dave's password"))));

    QVERIFY(accounts.signIn(QStringLiteral("dave"), QStringLiteral("dave's password")));
    QCOMPARE(accounts.message(), QStringLiteral("Welcome back, dave."));
}

void TestAccounts::registerNeverOverwritesAccountMadeByAnotherProcess()
{
    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.signIn(QStringLiteral("erin"), QStringLiteral("not yet")));
    QVERIFY(KeyStore::knownMissing(userAccount(QStringLiteral("erin"))));

    const QString theirs = QStringLiteral("c2FsdHNhbHRzYWx0c2FsdA==.aGFzaGhhc2hoYXNoaGFzaGhhc2hoYXNoaGFzaGhhc2g=");
    QVERIFY(storeThroughAnotherProcess(userAccount(QStringLiteral("erin")), theirs));

    QVERIFY(!accounts.registerAccount(QStringLiteral("erin"), QStringLiteral("my password")));
    QCOMPARE(accounts.message(), AccountText::usernameTaken);
    QVERIFY(!accounts.isAuthenticated());
    QCOMPARE(keyringItemSeenByAnotherProcess(userAccount(QStringLiteral("erin"))), std::optional<QString>(theirs));
}

void TestAccounts::legacyEmailToMigrate_data()
{
    QTest::addColumn<QString>("username");
    QTest::addColumn<std::optional<QString>>("email");
    QTest::addColumn<std::optional<bool>>("profileMoved");
    QTest::addColumn<std::optional<QString>>("expected");

    const auto email = std::optional<QString>(QStringLiteral("sam@example.com"));
    QTest::newRow("a former e-mail sign-in is taken over")
        << QStringLiteral("legacy.one") << email << std::optional<bool>() << email;
    QTest::newRow("not once the old profile moved")
        << QStringLiteral("legacy.two") << email << std::optional<bool>(true) << std::optional<QString>();
    QTest::newRow("nothing without a former sign-in") << QStringLiteral("legacy.three") << std::optional<QString>()
                                                      << std::optional<bool>(false) << std::optional<QString>();
}

void TestAccounts::legacyEmailToMigrate()
{
    QFETCH(QString, username);
    QFETCH(std::optional<QString>, email);
    QFETCH(std::optional<bool>, profileMoved);
    QFETCH(std::optional<QString>, expected);

    Defaults defaults(defaultsPath());
    if (email) {
        defaults.setString(QStringLiteral("tavoCurrentEmail"), *email);
    }
    if (profileMoved) {
        defaults.setBoolean(QStringLiteral("tavoLocalLegacyProfileMoved"), *profileMoved);
    }
    TavoAccountStore accounts(defaults);
    QSignalSpy changed(&accounts, &TavoAccountStore::legacyEmailToMigrateChanged);
    QVERIFY(accounts.registerAccount(username, QStringLiteral("legacy password")));
    QCOMPARE(accounts.legacyEmailToMigrate(), expected);
    QCOMPARE(changed.count(), expected ? 1 : 0);
}

void TestAccounts::signOutKeepsUsernameAndStateSurvives()
{
    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(accounts.registerAccount(QStringLiteral("henry"), QStringLiteral("henry's password")));

    {
        Defaults again(defaultsPath());
        TavoAccountStore afterRestart(again);
        QVERIFY(afterRestart.isAuthenticated());
        QCOMPARE(afterRestart.currentUsername(), QStringLiteral("henry"));
        QVERIFY(afterRestart.message().isEmpty());
    }

    QSignalSpy authenticated(&accounts, &TavoAccountStore::isAuthenticatedChanged);
    accounts.signOut();
    QVERIFY(!accounts.isAuthenticated());
    QCOMPARE(authenticated.count(), 1);
    QCOMPARE(accounts.message(), QStringLiteral("Signed out."));
    QCOMPARE(accounts.currentUsername(), QStringLiteral("henry"));
    QCOMPARE(defaults.string(QStringLiteral("tavoLocalUsername")), std::optional<QString>(QStringLiteral("henry")));
    QCOMPARE(defaults.boolean(QStringLiteral("tavoLocalSignedIn")), std::optional<bool>(false));

    Defaults again(defaultsPath());
    TavoAccountStore afterRestart(again);
    QVERIFY(!afterRestart.isAuthenticated());
    QCOMPARE(afterRestart.currentUsername(), QStringLiteral("henry"));
}

void TestAccounts::keyStoreReadsMissingAccountOnce()
{
    const QString account = QStringLiteral("tavo.test.never-made");
    QCOMPARE(KeyStore::load(account).value(), std::nullopt);
    QCOMPARE(KeyStore::load(account).value(), std::nullopt);
    QCOMPARE(m_keyring.lookups.load(), 1);
    QVERIFY(KeyStore::knownMissing(account));
}

void TestAccounts::keyStoreSaveAfterMissedLoad()
{
    const QString account = QStringLiteral("tavo.test.api-key");
    QCOMPARE(KeyStore::load(account).value(), std::nullopt);

    QVERIFY(!KeyStore::save(QStringLiteral("first value"), account));
    QCOMPARE(KeyStore::load(account).value(), std::optional<QString>(QStringLiteral("first value")));
    QVERIFY(!KeyStore::save(QStringLiteral("second value"), account));
    QCOMPARE(KeyStore::load(account).value(), std::optional<QString>(QStringLiteral("second value")));
    QCOMPARE(m_keyring.lookups.load(), 1);

    QCOMPARE(keyringItemSeenByAnotherProcess(account), std::optional<QString>(QStringLiteral("second value")));
    QCOMPARE(KeyStore::loadFresh(account).value(), std::optional<QString>(QStringLiteral("second value")));
}

void TestAccounts::keyStoreEmptyValueDeletes()
{
    const QString account = QStringLiteral("tavo.test.deleted");
    QVERIFY(!KeyStore::save(QStringLiteral("value"), account));
    QVERIFY(keyringItemSeenByAnotherProcess(account));

    QVERIFY(!KeyStore::save(QString(), account));
    QCOMPARE(KeyStore::load(account).value(), std::nullopt);
    QCOMPARE(m_keyring.lookups.load(), 0);
    QCOMPARE(keyringItemSeenByAnotherProcess(account), std::nullopt);
    QCOMPARE(KeyStore::loadFresh(account).value(), std::nullopt);

    // Deleting what is not there succeeds.
    QVERIFY(!KeyStore::save(QString(), account));
}

void TestAccounts::keyStoreLoadFreshSeesOtherProcesses()
{
    const QString account = QStringLiteral("tavo.test.shared");
    QCOMPARE(KeyStore::load(account).value(), std::nullopt);
    QVERIFY(storeThroughAnotherProcess(account, QStringLiteral("from tavoctl")));

    QCOMPARE(KeyStore::load(account).value(), std::nullopt); // remembered for the run
    QCOMPARE(KeyStore::loadFresh(account).value(), std::optional<QString>(QStringLiteral("from tavoctl")));
    QCOMPARE(KeyStore::load(account).value(), std::optional<QString>(QStringLiteral("from tavoctl")));
    QCOMPARE(m_keyring.lookups.load(), 2);

    // The item made elsewhere is replaced, not doubled.
    QVERIFY(!KeyStore::save(QStringLiteral("from tavo"), account));
    QCOMPARE(keyringItemSeenByAnotherProcess(account), std::optional<QString>(QStringLiteral("from tavo")));
    QVERIFY(!KeyStore::save(QString(), account));
    QCOMPARE(keyringItemSeenByAnotherProcess(account), std::nullopt);
}

void TestAccounts::keyStoreFromSeveralThreads()
{
    const QString shared = QStringLiteral("tavo.test.threads.shared");
    QVERIFY(!KeyStore::save(QStringLiteral("shared value"), shared));
    KeyStore::resetForTesting();
    m_keyring.lookups = 0;

    constexpr int threadCount = 4;
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([t, &shared, &failures] {
            const QString own = QStringLiteral("tavo.test.threads.%1").arg(t);
            const QString value = QStringLiteral("value %1").arg(t);
            const bool ok = KeyStore::load(own).value() == std::nullopt && !KeyStore::save(value, own) &&
                            KeyStore::load(own).value() == std::optional<QString>(value) &&
                            KeyStore::loadFresh(own).value() == std::optional<QString>(value) &&
                            KeyStore::load(shared).value() == std::optional<QString>(QStringLiteral("shared value"));
            if (!ok) {
                ++failures;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    QCOMPARE(failures.load(), 0);
    // Each thread read its own account twice (the miss, then loadFresh); the shared one was read
    // by at least one thread and at most by all of them at once.
    QVERIFY(m_keyring.lookups >= 2 * threadCount + 1);
    QVERIFY(m_keyring.lookups <= 3 * threadCount);
}

void TestAccounts::lockedKeyringIsAnErrorNotAMiss()
{
    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(accounts.registerAccount(QStringLiteral("grace"), QStringLiteral("grace's password")));
    accounts.signOut();
    const QString account = QStringLiteral("tavo.test.locked");
    QVERIFY(!KeyStore::save(QStringLiteral("value"), account));

    QVERIFY(lockDefaultKeyring());
    KeyStore::resetForTesting();
    m_keyring.lookups = 0;

    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto loaded = KeyStore::load(account);
        QVERIFY(!loaded);
        QCOMPARE(loaded.error().description, lockedMessage);
    }
    QCOMPARE(m_keyring.lookups.load(), 2); // an error is never remembered
    QVERIFY(!KeyStore::knownMissing(account));
    QCOMPARE(KeyStore::save(QStringLiteral("other"), account).value_or(TavoError()).description, lockedMessage);

    // The account may exist: register refuses instead of writing over it.
    QVERIFY(!accounts.registerAccount(QStringLiteral("grace"), QStringLiteral("a new password")));
    QCOMPARE(accounts.message(), QStringLiteral("Could not save your account securely in the system keyring."));

    // A new name finds no item, but the locked keyring refuses to store one.
    QVERIFY(!accounts.registerAccount(QStringLiteral("frank"), QStringLiteral("frank's password")));
    QCOMPARE(accounts.message(), AccountText::couldNotSaveAccount);

    QVERIFY(!accounts.signIn(QStringLiteral("grace"), QStringLiteral("grace's password")));
    QCOMPARE(accounts.message(), lockedMessage);
    QVERIFY(!accounts.isAuthenticated());
}

// Where no Secret Service answers (a second run of this program, on a bus address that leads
// nowhere): every operation says so, nothing is remembered and nothing is stored elsewhere.
class TestAccountsWithoutKeyring : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void keyStoreReportsTheMissingKeyring();
    void registerRefusesWithoutKeyring();
    void signInSaysTheKeyringIsMissing();
    void noBackendIsAnError();

private:
    LibsecretStore m_real;
    CountingSecretStore m_keyring{m_real};
    QTemporaryDir m_dir;
};

void TestAccountsWithoutKeyring::initTestCase()
{
    QVERIFY(m_dir.isValid());
    KeyStore::setBackend(&m_keyring);
}

void TestAccountsWithoutKeyring::init()
{
    KeyStore::resetForTesting();
    m_keyring.lookups = 0;
}

void TestAccountsWithoutKeyring::keyStoreReportsTheMissingKeyring()
{
    const QString account = QStringLiteral("tavo.test.anything");
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto loaded = KeyStore::load(account);
        QVERIFY(!loaded);
        QCOMPARE(loaded.error().description, noKeyringMessage);
        QCOMPARE(loaded.error().domain, KeyStore::errorDomain);
    }
    QCOMPARE(m_keyring.lookups.load(), 2);
    QVERIFY(!KeyStore::knownMissing(account));
    QVERIFY(!KeyStore::loadFresh(account));

    QCOMPARE(KeyStore::save(QStringLiteral("secret"), account).value_or(TavoError()).description, noKeyringMessage);
    QCOMPARE(KeyStore::save(QString(), account).value_or(TavoError()).description, noKeyringMessage);
    QVERIFY(!KeyStore::load(account));
}

void TestAccountsWithoutKeyring::registerRefusesWithoutKeyring()
{
    Defaults defaults(m_dir.filePath(QStringLiteral("register.json")));
    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.registerAccount(QStringLiteral("ivy"), QStringLiteral("ivy's password")));
    QCOMPARE(accounts.message(), QStringLiteral("Could not save your account securely in the system keyring."));
    QVERIFY(!accounts.isAuthenticated());
    QVERIFY(!defaults.contains(QStringLiteral("tavoLocalUsername")));
    QVERIFY(!defaults.contains(QStringLiteral("tavoLocalSignedIn")));
}

void TestAccountsWithoutKeyring::signInSaysTheKeyringIsMissing()
{
    Defaults defaults(m_dir.filePath(QStringLiteral("sign-in.json")));
    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.signIn(QStringLiteral("ivy"), QStringLiteral("ivy's password")));
    QCOMPARE(accounts.message(), noKeyringMessage);
    QVERIFY(!accounts.isAuthenticated());
}

void TestAccountsWithoutKeyring::noBackendIsAnError()
{
    KeyStore::setBackend(nullptr);
    const auto loaded = KeyStore::load(QStringLiteral("tavo.test.anything"));
    const auto saved = KeyStore::save(QStringLiteral("secret"), QStringLiteral("tavo.test.anything"));
    KeyStore::setBackend(&m_keyring);
    QVERIFY(!loaded);
    QVERIFY(saved);
    QCOMPARE(m_keyring.lookups.load(), 0);
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsSet("TAVO_TEST_WITHOUT_KEYRING")) {
        TestAccountsWithoutKeyring test;
        return QTest::qExec(&test, argc, argv);
    }
    TestAccounts test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_accounts.moc"
