#include "platform/secret/libsecret_store.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/password_hash.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <memory>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

// The real keyring, with a count of how often it was read.
class CountingSecretStore : public SecretStore
{
public:
    explicit CountingSecretStore(SecretStore& real)
        : m_real(real)
    {
    }

    std::atomic<int> lookups = 0;

    SecretLookup lookup(const QString& service, const QString& account) override
    {
        ++lookups;
        return m_real.lookup(service, account);
    }
    SecretWrite store(const QString& service, const QString& account, const QString& value) override
    {
        return m_real.store(service, account, value);
    }
    SecretWrite remove(const QString& service, const QString& account) override
    {
        return m_real.remove(service, account);
    }

private:
    SecretStore& m_real;
};

const QString noKeyringMessage = u"No system keyring is running (Secret Service)."_s;
const QString lockedMessage = u"The system keyring is locked."_s;
const QString couldNotSave = u"Could not save your account securely in the system keyring."_s;

QString userAccount(const char* name)
{
    return u"tavo.local.user."_s + QString::fromUtf8(name);
}

// Runs a tool as a process of its own; its output, or nothing when it fails.
std::optional<QString> runTool(const QString& program, const QStringList& arguments, const QString& input = {})
{
    QProcess tool;
    tool.start(program, arguments);
    tool.write(input.toUtf8());
    tool.closeWriteChannel();
    if (!tool.waitForFinished(10000) || tool.exitStatus() != QProcess::NormalExit || tool.exitCode() != 0) {
        return std::nullopt;
    }
    return QString::fromUtf8(tool.readAllStandardOutput());
}

// What another program sees in the keyring.
std::optional<QString> keyringItemSeenByAnotherProcess(const QString& account)
{
    return runTool(u"secret-tool"_s, {u"lookup"_s, u"service"_s, KeyStore::service, u"account"_s, account});
}

bool storeThroughAnotherProcess(const QString& account, const QString& value)
{
    return runTool(u"secret-tool"_s,
                   {u"store"_s, u"--label=made elsewhere"_s, u"service"_s, KeyStore::service, u"account"_s, account},
                   value)
        .has_value();
}

} // namespace

// Against the Secret Service that tests/with-keyring starts: nothing stands in for the keyring.
class TestAccounts : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void validUsername_data();
    void validUsername();
    void passwordRulesAndHashing();

    void registerKeepsSaltedHashAndSignOutKeepsUsername();
    void namesIgnoreCaseAndFailuresReadAlike();
    void accountMadeByAnotherProcessAfterAMiss();
    void keyStoreReadsMissingAccountOnceThenSavesAndDeletes();

    // Locks the keyring for good: keep it last.
    void lockedKeyringIsAnErrorNotAMiss();

private:
    QString defaultsPath() const { return m_dir->filePath(u"defaults.json"_s); }

    LibsecretStore m_real;
    CountingSecretStore m_keyring{m_real};
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestAccounts::initTestCase()
{
    const SecretLookup probe = m_real.lookup(KeyStore::service, u"tavo.test.probe"_s);
    QVERIFY2(!probe.isFailed(), qPrintable(u"run this test through tests/with-keyring: "_s + probe.error));
    KeyStore::setBackend(&m_keyring);
}

void TestAccounts::init()
{
    KeyStore::resetForTesting();
    m_keyring.lookups = 0;
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestAccounts::validUsername_data()
{
    QTest::addColumn<QString>("username");
    QTest::addColumn<bool>("valid");
    QTest::newRow("two characters are too few") << u"ab"_s << false;
    QTest::newRow("three characters are enough") << u"abc"_s << true;
    QTest::newRow("32 characters are allowed") << QString(32, u'a') << true;
    QTest::newRow("33 characters are too many") << QString(33, u'a') << false;
    QTest::newRow("trimming comes before counting") << u"  ab  "_s << false;
    QTest::newRow("periods, underscores and hyphens") << u"a.b_c-d9"_s << true;
    QTest::newRow("a blank inside is refused") << u"al ice"_s << false;
    QTest::newRow("letters beyond ASCII are refused") << u"j\u00FCrgen"_s << false;
}

void TestAccounts::validUsername()
{
    QFETCH(QString, username);
    QFETCH(bool, valid);
    QCOMPARE(TavoAccountStore::validUsername(username), valid);
}

void TestAccounts::passwordRulesAndHashing()
{
    const QString tooShort = u"Use a password with at least 8 characters."_s;
    // Eight UTF-16 units, but seven characters: the accent combines with its letter.
    QCOMPARE(registrationProblem(true, u"123456e\u0301"_s, u"123456e\u0301"_s), std::optional(tooShort));
    QCOMPARE(registrationProblem(true, u"12345678"_s, u"12345679"_s), std::optional(u"The passwords do not match."_s));
    QCOMPARE(registrationProblem(false, u"short"_s, QString()), std::nullopt); // signing in checks neither

    // A reference value from Python's hashlib.pbkdf2_hmac("sha256", ..., 210000, 32); the password goes in as UTF-8.
    const auto hash =
        derivePasswordHash(u"p\u00E4ssw\u00F6rd\u2713"_s, QByteArray::fromHex("000102030405060708090a0b0c0d0e0f"));
    QCOMPARE(hash.value_or(QByteArray()).toBase64(), QByteArray("5B3gkOYGsvvyrZbH0036oDGu1D7+KsQOOm1a06YSzx0="));
}

void TestAccounts::registerKeepsSaltedHashAndSignOutKeepsUsername()
{
    // The sign-in state and name a new run of the program starts from.
    const auto afterRestart = [this] {
        Defaults again(defaultsPath());
        const TavoAccountStore accounts(again);
        return std::pair(accounts.isAuthenticated(), accounts.currentUsername());
    };
    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.registerAccount(u"al"_s, u"correct horse"_s));
    QCOMPARE(accounts.message(), u"Use 3\u201332 letters, numbers, periods, underscores, or hyphens."_s);

    // The profile is activated on the change of isAuthenticated: by then everything else is set,
    // and it is announced once, though the application also follows sign-ins elsewhere.
    accounts.followSignInsElsewhere();
    int authenticatedChanges = 0;
    const QMetaObject::Connection watch = connect(&accounts, &TavoAccountStore::isAuthenticatedChanged, this, [&] {
        ++authenticatedChanges;
        QCOMPARE(accounts.currentUsername(), u"alice.example"_s);
        QCOMPARE(defaults.string(u"tavoLocalUsername"_s), std::optional(u"alice.example"_s));
        QVERIFY(defaults.flag(u"tavoLocalSignedIn"_s));
    });
    QVERIFY(accounts.registerAccount(u"  Alice.Example\n"_s, u"correct horse"_s));
    QVERIFY(accounts.isAuthenticated());
    QCOMPARE(authenticatedChanges, 1);

    // "<salt>.<hash>": 16 bytes are 24 base64 characters, 32 bytes 44.
    const QString item = keyringItemSeenByAnotherProcess(userAccount("alice.example")).value_or(QString());
    QCOMPARE(item.indexOf(u'.'), 24);
    QCOMPARE(item.size(), 24 + 1 + 44);
    const auto stored = parseStoredPassword(item);
    QVERIFY(stored && stored->salt != QByteArray(16, '\0'));
    QCOMPARE(derivePasswordHash(u"correct horse"_s, stored->salt), std::optional(stored->hash));

    QCOMPARE(afterRestart(), std::pair(true, u"alice.example"_s));
    disconnect(watch);
    accounts.signOut();
    QVERIFY(!accounts.isAuthenticated());
    QCOMPARE(accounts.message(), u"Signed out."_s);
    QCOMPARE(afterRestart(), std::pair(false, u"alice.example"_s));
}

void TestAccounts::namesIgnoreCaseAndFailuresReadAlike()
{
    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(accounts.registerAccount(u"carol"_s, u"right password"_s));
    accounts.signOut();
    QVERIFY(!accounts.registerAccount(u" CAROL "_s, u"second password"_s));
    QCOMPARE(accounts.message(), AccountText::usernameTaken);
    KeyStore::resetForTesting(); // a new run of the program

    // An unknown name, or an item that is not "<salt>.<hash>" in base64, reads exactly like a wrong password.
    QVERIFY(!KeyStore::save(u"!!!!.AAAA"_s, userAccount("mallory")));
    for (const auto& name : {u"carol"_s, u"nobody"_s, u"mallory"_s}) {
        QVERIFY(!accounts.signIn(name, name == u"carol"_s ? u"wrong password"_s : u"right password"_s));
        QCOMPARE(accounts.message(), u"Username or password is incorrect."_s);
        QVERIFY(!accounts.isAuthenticated());
    }
    QVERIFY(accounts.signIn(u"  CAROL "_s, u"right password"_s));
    QCOMPARE(accounts.message(), u"Welcome back, carol."_s);
    QCOMPARE(accounts.currentUsername(), u"carol"_s);
}

void TestAccounts::accountMadeByAnotherProcessAfterAMiss()
{
    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.signIn(u"dave"_s, u"dave's password"_s));
    QVERIFY(!accounts.signIn(u"erin"_s, u"erin's password"_s));
    QVERIFY(KeyStore::knownMissing(userAccount("dave")) && KeyStore::knownMissing(userAccount("erin")));

    // tavoctl registers both accounts while this process runs.
    StoredPassword theirs{makePasswordSalt(), {}};
    theirs.hash = derivePasswordHash(u"dave's password"_s, theirs.salt).value_or(QByteArray());
    const QString item = formatStoredPassword(theirs);
    QVERIFY(storeThroughAnotherProcess(userAccount("dave"), item));
    QVERIFY(storeThroughAnotherProcess(userAccount("erin"), item));

    QVERIFY(accounts.signIn(u"dave"_s, u"dave's password"_s));
    // Registering a name made elsewhere never writes over it.
    QVERIFY(!accounts.registerAccount(u"erin"_s, u"my password"_s));
    QCOMPARE(accounts.message(), AccountText::usernameTaken);
    QCOMPARE(keyringItemSeenByAnotherProcess(userAccount("erin")), std::optional(item));
}

void TestAccounts::keyStoreReadsMissingAccountOnceThenSavesAndDeletes()
{
    const QString account = u"tavo.test.api-key"_s;
    QCOMPARE(KeyStore::load(account).value(), std::nullopt);
    QCOMPARE(KeyStore::load(account).value(), std::nullopt);
    QCOMPARE(m_keyring.lookups.load(), 1);
    QVERIFY(KeyStore::knownMissing(account));

    // A save after the missed load is what the next loads give, still without asking the keyring.
    QVERIFY(!KeyStore::save(u"first value"_s, account));
    QCOMPARE(KeyStore::load(account).value(), std::optional(u"first value"_s));
    QVERIFY(!KeyStore::save(u"second value"_s, account));
    QCOMPARE(KeyStore::load(account).value(), std::optional(u"second value"_s));
    QCOMPARE(m_keyring.lookups.load(), 1);
    QCOMPARE(keyringItemSeenByAnotherProcess(account), std::optional(u"second value"_s)); // replaced, not doubled

    // An empty value deletes; deleting what is not there succeeds.
    QVERIFY(!KeyStore::save(QString(), account));
    QCOMPARE(keyringItemSeenByAnotherProcess(account), std::nullopt);
    QCOMPARE(KeyStore::load(account).value(), std::nullopt);
    QVERIFY(!KeyStore::save(QString(), account));
}

void TestAccounts::lockedKeyringIsAnErrorNotAMiss()
{
    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(accounts.registerAccount(u"grace"_s, u"grace's password"_s));
    accounts.signOut();
    const QString account = u"tavo.test.locked"_s;
    QVERIFY(!KeyStore::save(u"value"_s, account));

    QVERIFY(runTool(u"dbus-send"_s, {u"--session"_s, u"--print-reply"_s, u"--dest=org.freedesktop.secrets"_s,
                                     u"/org/freedesktop/secrets"_s, u"org.freedesktop.Secret.Service.Lock"_s,
                                     u"array:objpath:/org/freedesktop/secrets/aliases/default"_s}));
    KeyStore::resetForTesting();
    m_keyring.lookups = 0;
    for (int attempt = 0; attempt < 2; ++attempt) {
        QCOMPARE(KeyStore::load(account).error().description, lockedMessage);
    }
    QCOMPARE(m_keyring.lookups.load(), 2); // an error is never remembered
    QVERIFY(!KeyStore::knownMissing(account));
    QCOMPARE(KeyStore::save(u"other"_s, account).value_or(TavoError()).description, lockedMessage);

    // The account may exist: register refuses instead of writing over it, and sign-in names the keyring.
    QVERIFY(!accounts.registerAccount(u"grace"_s, u"a new password"_s));
    QCOMPARE(accounts.message(), couldNotSave);
    QVERIFY(!accounts.signIn(u"grace"_s, u"grace's password"_s));
    QCOMPARE(accounts.message(), lockedMessage);
}

// Where no Secret Service answers (a second run of this program, on a bus address that leads
// nowhere): every operation says so, nothing is remembered and nothing is stored elsewhere.
class TestAccountsWithoutKeyring : public QObject
{
    Q_OBJECT

private slots:
    void everyOperationReportsTheMissingKeyring();
};

void TestAccountsWithoutKeyring::everyOperationReportsTheMissingKeyring()
{
    LibsecretStore real;
    CountingSecretStore keyring(real);
    KeyStore::setBackend(&keyring);
    const QString account = u"tavo.test.anything"_s;
    for (int attempt = 0; attempt < 2; ++attempt) {
        QCOMPARE(KeyStore::load(account).error().description, noKeyringMessage);
    }
    QCOMPARE(keyring.lookups.load(), 2);
    QVERIFY(!KeyStore::knownMissing(account));
    QCOMPARE(KeyStore::save(u"secret"_s, account).value_or(TavoError()).description, noKeyringMessage);
    QCOMPARE(KeyStore::save(QString(), account).value_or(TavoError()).description, noKeyringMessage);

    QTemporaryDir dir;
    Defaults defaults(dir.filePath(u"defaults.json"_s));
    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.registerAccount(u"ivy"_s, u"ivy's password"_s));
    QCOMPARE(accounts.message(), couldNotSave);
    QVERIFY(!defaults.contains(u"tavoLocalUsername"_s) && !defaults.contains(u"tavoLocalSignedIn"_s));
    QVERIFY(!accounts.signIn(u"ivy"_s, u"ivy's password"_s));
    QCOMPARE(accounts.message(), noKeyringMessage);
    KeyStore::setBackend(nullptr);
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
