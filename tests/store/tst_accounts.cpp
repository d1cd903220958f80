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
const QString wrongCredentials = u"Username or password is incorrect."_s;
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
    void registrationProblem_data();
    void registrationProblem();
    void passwordHashing();
    void parsesStoredPasswords_data();
    void parsesStoredPasswords();

    void registerKeepsSaltedHashAndSignsIn();
    void namesIgnoreCaseAndFailuresReadAlike();
    void accountMadeByAnotherProcessAfterAMiss();
    void signOutKeepsUsernameAndStateSurvives();

    void keyStoreReadsMissingAccountOnceThenSaves();
    void keyStoreReplacesAndDeletesItemsMadeElsewhere();

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
    QTest::newRow("blanks around are trimmed") << u" \tabc\n"_s << true;
    QTest::newRow("capitals are folded") << u"Alice"_s << true;
    QTest::newRow("trimming comes before counting") << u"  ab  "_s << false;
    QTest::newRow("periods, underscores and hyphens") << u"a.b_c-d9"_s << true;
    QTest::newRow("a blank inside is refused") << u"al ice"_s << false;
    QTest::newRow("an exclamation mark is refused") << u"alice!"_s << false;
    QTest::newRow("letters beyond ASCII are refused") << u"j\u00FCrgen"_s << false;
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
    const QString tooShort = u"Use a password with at least 8 characters."_s;
    QTest::newRow("seven characters are too few") << true << u"1234567"_s << u"1234567"_s << tooShort;
    QTest::newRow("eight characters are enough") << true << u"12345678"_s << u"12345678"_s << QString();
    // Eight UTF-16 units, but seven characters: the accent combines with its letter.
    QTest::newRow("a combining accent is part of its letter")
        << true << u"123456e\u0301"_s << u"123456e\u0301"_s << tooShort;
    QTest::newRow("the confirmation must match")
        << true << u"12345678"_s << u"12345679"_s << u"The passwords do not match."_s;
    QTest::newRow("length is checked before the match") << true << u"short"_s << u"other"_s << tooShort;
    QTest::newRow("signing in checks neither") << false << u"short"_s << QString() << QString();
}

void TestAccounts::registrationProblem()
{
    QFETCH(bool, isCreating);
    QFETCH(QString, password);
    QFETCH(QString, confirm);
    QFETCH(QString, problem);
    QCOMPARE(tavo::registrationProblem(isCreating, password, confirm).value_or(QString()), problem);
}

void TestAccounts::passwordHashing()
{
    // A reference value from Python's hashlib.pbkdf2_hmac("sha256", ..., 210000, 32); the
    // password goes in as UTF-8.
    const auto hash =
        derivePasswordHash(u"p\u00E4ssw\u00F6rd\u2713"_s, QByteArray::fromHex("000102030405060708090a0b0c0d0e0f"));
    QVERIFY(hash);
    QCOMPARE(hash->toBase64(), QByteArray("5B3gkOYGsvvyrZbH0036oDGu1D7+KsQOOm1a06YSzx0="));

    QByteArray lastDiffers = *hash;
    lastDiffers[31] = char(lastDiffers[31] ^ 0x80);
    QVERIFY(constantTimeEquals(*hash, QByteArray(*hash)));
    QVERIFY(!constantTimeEquals(*hash, lastDiffers));
    QVERIFY(!constantTimeEquals(*hash, hash->left(31)));
    QVERIFY(!constantTimeEquals(QByteArray(), *hash));
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

void TestAccounts::registerKeepsSaltedHashAndSignsIn()
{
    Defaults defaults(defaultsPath());
    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.registerAccount(u"al"_s, u"correct horse"_s));
    QCOMPARE(accounts.message(), u"Use 3\u201332 letters, numbers, periods, underscores, or hyphens."_s);

    // The profile is activated on the change of isAuthenticated: by then everything else is set.
    QStringList events;
    connect(&accounts, &TavoAccountStore::currentUsernameChanged, this,
            [&](const QString& name) { events << u"username "_s + name; });
    connect(&accounts, &TavoAccountStore::isAuthenticatedChanged, this, [&](bool signedIn) {
        events << u"authenticated %1"_s.arg(signedIn);
        QCOMPARE(defaults.string(u"tavoLocalUsername"_s), std::optional(u"alice.example"_s));
        QVERIFY(defaults.flag(u"tavoLocalSignedIn"_s));
    });

    QVERIFY(accounts.registerAccount(u"  Alice.Example\n"_s, u"correct horse"_s));
    QCOMPARE(accounts.message(), u"Your local Tavo account is ready."_s);
    QCOMPARE(accounts.currentUsername(), u"alice.example"_s);
    QVERIFY(accounts.isAuthenticated());
    QCOMPARE(events, QStringList({u"username alice.example"_s, u"authenticated 1"_s}));
    QVERIFY(!accounts.legacyEmailToMigrate()); // there was no former e-mail sign-in

    // "<salt>.<hash>": 16 bytes are 24 base64 characters, 32 bytes 44.
    const auto item = keyringItemSeenByAnotherProcess(userAccount("alice.example"));
    QVERIFY(item);
    const QStringList parts = item->split(u'.');
    QCOMPARE(parts.size(), 2);
    QCOMPARE(parts.at(0).size(), 24);
    QCOMPARE(parts.at(1).size(), 44);
    const auto stored = parseStoredPassword(*item);
    QVERIFY(stored);
    QVERIFY(stored->salt != QByteArray(16, '\0'));
    QCOMPARE(derivePasswordHash(u"correct horse"_s, stored->salt), std::optional(stored->hash));
}

void TestAccounts::namesIgnoreCaseAndFailuresReadAlike()
{
    Defaults defaults(defaultsPath());
    {
        TavoAccountStore first(defaults);
        QVERIFY(first.registerAccount(u"carol"_s, u"right password"_s));
        first.signOut();
        const auto before = keyringItemSeenByAnotherProcess(userAccount("carol"));
        QVERIFY(!first.registerAccount(u" CAROL "_s, u"second password"_s));
        QCOMPARE(first.message(), u"That username already exists on this computer. Sign in instead."_s);
        QVERIFY(!first.isAuthenticated());
        QCOMPARE(keyringItemSeenByAnotherProcess(userAccount("carol")), before);
    }
    KeyStore::resetForTesting(); // a new run of the program

    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.signIn(u"carol"_s, u"wrong password"_s));
    QCOMPARE(accounts.message(), wrongCredentials);
    QVERIFY(!accounts.isAuthenticated());
    // An unknown name, or an item that is not "<salt>.<hash>" in base64, reads exactly like a
    // wrong password.
    QVERIFY(!accounts.signIn(u"nobody"_s, u"right password"_s));
    QCOMPARE(accounts.message(), wrongCredentials);
    QVERIFY(!KeyStore::save(u"!!!!.AAAA"_s, userAccount("mallory")));
    QVERIFY(!accounts.signIn(u"mallory"_s, u"right password"_s));
    QCOMPARE(accounts.message(), wrongCredentials);

    // The profile of a former e-mail sign-in is to be taken over.
    defaults.setString(u"tavoCurrentEmail"_s, u"sam@example.com"_s);
    QSignalSpy authenticated(&accounts, &TavoAccountStore::isAuthenticatedChanged);
    QSignalSpy legacyEmail(&accounts, &TavoAccountStore::legacyEmailToMigrateChanged);
    QVERIFY(accounts.signIn(u"  CAROL "_s, u"right password"_s));
    QCOMPARE(accounts.message(), u"Welcome back, carol."_s);
    QCOMPARE(accounts.currentUsername(), u"carol"_s);
    QCOMPARE(authenticated.count(), 1);
    QVERIFY(defaults.flag(u"tavoLocalSignedIn"_s));
    QCOMPARE(accounts.legacyEmailToMigrate(), std::optional(u"sam@example.com"_s));
    QCOMPARE(legacyEmail.count(), 1);
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
    QCOMPARE(accounts.message(), u"Welcome back, dave."_s);
    // Registering a name made elsewhere never writes over it.
    QVERIFY(!accounts.registerAccount(u"erin"_s, u"my password"_s));
    QCOMPARE(accounts.message(), AccountText::usernameTaken);
    QCOMPARE(keyringItemSeenByAnotherProcess(userAccount("erin")), std::optional(item));
}

void TestAccounts::signOutKeepsUsernameAndStateSurvives()
{
    // The sign-in state and name a new run of the program starts from.
    const auto afterRestart = [this] {
        Defaults again(defaultsPath());
        const TavoAccountStore accounts(again);
        return std::pair(accounts.isAuthenticated(), accounts.currentUsername());
    };
    Defaults defaults(defaultsPath());
    defaults.setString(u"tavoCurrentEmail"_s, u"sam@example.com"_s);
    defaults.setBoolean(u"tavoLocalLegacyProfileMoved"_s, true);
    TavoAccountStore accounts(defaults);
    QVERIFY(accounts.registerAccount(u"henry"_s, u"henry's password"_s));
    QVERIFY(!accounts.legacyEmailToMigrate()); // the former profile has moved already
    QCOMPARE(afterRestart(), std::pair(true, u"henry"_s));

    QSignalSpy authenticated(&accounts, &TavoAccountStore::isAuthenticatedChanged);
    accounts.signOut();
    QVERIFY(!accounts.isAuthenticated());
    QCOMPARE(authenticated.count(), 1);
    QCOMPARE(accounts.message(), u"Signed out."_s);
    QCOMPARE(afterRestart(), std::pair(false, u"henry"_s));
}

void TestAccounts::keyStoreReadsMissingAccountOnceThenSaves()
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
    QCOMPARE(keyringItemSeenByAnotherProcess(account), std::optional(u"second value"_s));
}

void TestAccounts::keyStoreReplacesAndDeletesItemsMadeElsewhere()
{
    const QString account = u"tavo.test.shared"_s;
    QVERIFY(storeThroughAnotherProcess(account, u"from tavoctl"_s));
    QVERIFY(!KeyStore::save(u"from tavo"_s, account));
    QCOMPARE(keyringItemSeenByAnotherProcess(account), std::optional(u"from tavo"_s)); // replaced, not doubled
    QVERIFY(!KeyStore::save(QString(), account));
    QCOMPARE(keyringItemSeenByAnotherProcess(account), std::nullopt);
    QCOMPARE(KeyStore::load(account).value(), std::nullopt);
    QVERIFY(!KeyStore::save(QString(), account)); // deleting what is not there succeeds
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
        const auto loaded = KeyStore::load(account);
        QVERIFY(!loaded);
        QCOMPARE(loaded.error().description, lockedMessage);
    }
    QCOMPARE(m_keyring.lookups.load(), 2); // an error is never remembered
    QVERIFY(!KeyStore::knownMissing(account));
    QCOMPARE(KeyStore::save(u"other"_s, account).value_or(TavoError()).description, lockedMessage);

    // The account may exist: register refuses instead of writing over it.
    QVERIFY(!accounts.registerAccount(u"grace"_s, u"a new password"_s));
    QCOMPARE(accounts.message(), couldNotSave);
    // Not the wrong-password message: the keyring is what failed.
    QVERIFY(!accounts.signIn(u"grace"_s, u"grace's password"_s));
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
    void keyStoreReportsTheMissingKeyring(); // first: it counts the keyring's reads from the start
    void accountsReportTheMissingKeyring();

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

void TestAccountsWithoutKeyring::keyStoreReportsTheMissingKeyring()
{
    const QString account = u"tavo.test.anything"_s;
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto loaded = KeyStore::load(account);
        QVERIFY(!loaded);
        QCOMPARE(loaded.error().description, noKeyringMessage);
        QCOMPARE(loaded.error().domain, KeyStore::errorDomain);
    }
    QCOMPARE(m_keyring.lookups.load(), 2);
    QVERIFY(!KeyStore::knownMissing(account));
    QCOMPARE(KeyStore::save(u"secret"_s, account).value_or(TavoError()).description, noKeyringMessage);
    QCOMPARE(KeyStore::save(QString(), account).value_or(TavoError()).description, noKeyringMessage);

    // Without any keyring set, too, every call fails.
    KeyStore::setBackend(nullptr);
    const bool loaded = KeyStore::load(account).ok();
    const bool saved = !KeyStore::save(u"secret"_s, account);
    KeyStore::setBackend(&m_keyring);
    QVERIFY(!loaded && !saved);
    QCOMPARE(m_keyring.lookups.load(), 2);
}

void TestAccountsWithoutKeyring::accountsReportTheMissingKeyring()
{
    Defaults defaults(m_dir.filePath(u"defaults.json"_s));
    TavoAccountStore accounts(defaults);
    QVERIFY(!accounts.registerAccount(u"ivy"_s, u"ivy's password"_s));
    QCOMPARE(accounts.message(), couldNotSave);
    QVERIFY(!defaults.contains(u"tavoLocalUsername"_s));
    QVERIFY(!defaults.contains(u"tavoLocalSignedIn"_s));
    QVERIFY(!accounts.signIn(u"ivy"_s, u"ivy's password"_s));
    QCOMPARE(accounts.message(), noKeyringMessage);
    QVERIFY(!accounts.isAuthenticated());
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
