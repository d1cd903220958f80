#include "store/accounts.h"

#include "language/text_utils.h"

#include "store/defaults.h"
#include "store/key_store.h"
#include "store/password_hash.h"

#include <QLoggingCategory>
#include <QRegularExpression>
#include <QScopedValueRollback>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcAccounts, "tavo.store.accounts")

const QString usernameKey = QStringLiteral("tavoLocalUsername");
const QString signedInKey = QStringLiteral("tavoLocalSignedIn");
const QString currentEmailKey = QStringLiteral("tavoCurrentEmail");
const QString legacyProfileMovedKey = QStringLiteral("tavoLocalLegacyProfileMoved");

} // namespace

std::optional<QString> registrationProblem(bool isCreating, const QString& password, const QString& confirmPassword)
{
    if (!isCreating) {
        return std::nullopt;
    }
    if (characterCount(password) < minimumPasswordLength) {
        return AccountText::passwordTooShort;
    }
    if (password != confirmPassword) {
        return AccountText::passwordsDiffer;
    }
    return std::nullopt;
}

TavoAccountStore::TavoAccountStore(Defaults& defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_isAuthenticated(defaults.flag(signedInKey))
    , m_currentUsername(defaults.string(usernameKey).value_or(QString()))
{
}

void TavoAccountStore::followSignInsElsewhere()
{
    connect(&m_defaults, &Defaults::valuesChanged, this, [this] {
        if (m_writingSignIn) {
            return;
        }
        const bool signedIn = m_defaults.flag(signedInKey);
        const QString username = m_defaults.string(usernameKey).value_or(QString());
        if (signedIn == m_isAuthenticated && username == m_currentUsername) {
            return;
        }
        setCurrentUsername(username);
        m_isAuthenticated = signedIn;
        emit isAuthenticatedChanged(signedIn);
    });
}

QString TavoAccountStore::normalizedUsername(const QString& username)
{
    return username.trimmed().toLower();
}

bool TavoAccountStore::validUsername(const QString& username)
{
    static const QRegularExpression allowed(QStringLiteral("^[a-z0-9._-]+$"));
    const QString name = normalizedUsername(username);
    // The pattern admits ASCII only, so UTF-16 units and characters agree in the count.
    return name.size() >= 3 && name.size() <= 32 && allowed.match(name).hasMatch();
}

QString TavoAccountStore::keyStoreAccount(const QString& normalizedName)
{
    return QStringLiteral("tavo.local.user.") + normalizedName;
}

bool TavoAccountStore::registerAccount(const QString& username, const QString& password)
{
    const QString name = normalizedUsername(username);
    if (!validUsername(name)) {
        setMessage(AccountText::invalidUsername);
        return false;
    }
    const QString account = keyStoreAccount(name);

    // A keyring that cannot answer might hold the account: refuse rather than risk overwriting it.
    const auto existing = KeyStore::load(account);
    if (!existing) {
        setMessage(AccountText::couldNotSaveAccount);
        return false;
    }
    if (existing.value()) {
        setMessage(AccountText::usernameTaken);
        return false;
    }

    StoredPassword stored;
    stored.salt = makePasswordSalt();
    const auto hash = derivePasswordHash(password, stored.salt);
    if (!hash) {
        setMessage(AccountText::couldNotSecurePassword);
        return false;
    }
    stored.hash = *hash;

    // A miss remembered from earlier in this run proves nothing: another process may have made
    // the account since. Ask the keyring again right before writing.
    const auto current = KeyStore::loadFresh(account);
    if (!current) {
        setMessage(AccountText::couldNotSaveAccount);
        return false;
    }
    if (current.value()) {
        setMessage(AccountText::usernameTaken);
        return false;
    }

    if (const auto error = KeyStore::save(formatStoredPassword(stored), account)) {
        qCWarning(lcAccounts) << "could not store a new account:" << error->description;
        setMessage(AccountText::couldNotSaveAccount);
        return false;
    }

    takeLegacyEmail();
    accept(name);
    setMessage(AccountText::accountReady);
    return true;
}

bool TavoAccountStore::signIn(const QString& username, const QString& password)
{
    const QString name = normalizedUsername(username);
    const QString account = keyStoreAccount(name);

    // An account this run has only seen missing may have been made since by another process.
    const auto stored = KeyStore::knownMissing(account) ? KeyStore::loadFresh(account) : KeyStore::load(account);
    if (!stored) {
        // Not the wrong-password message: the user should know it is the keyring that failed.
        setMessage(stored.error().description);
        return false;
    }
    if (!stored.value()) {
        setMessage(AccountText::wrongCredentials);
        return false;
    }

    const auto parsed = parseStoredPassword(*stored.value());
    if (!parsed) {
        setMessage(AccountText::wrongCredentials);
        return false;
    }
    const auto hash = derivePasswordHash(password, parsed->salt);
    if (!hash || !constantTimeEquals(*hash, parsed->hash)) {
        setMessage(AccountText::wrongCredentials);
        return false;
    }

    takeLegacyEmail();
    accept(name);
    setMessage(AccountText::welcomeBack(name));
    return true;
}

void TavoAccountStore::accept(const QString& username)
{
    setCurrentUsername(username);
    {
        // This process's own writes: the follower of sign-ins elsewhere has nothing to follow.
        const QScopedValueRollback writing(m_writingSignIn, true);
        m_defaults.setString(usernameKey, username);
        m_defaults.setBoolean(signedInKey, true);
    }
    m_isAuthenticated = true;
    // Last of all: the shell activates the profile when this changes. It is announced on every
    // accept, so a sign-in to another account while signed in activates that account's profile.
    emit isAuthenticatedChanged(true);
}

void TavoAccountStore::signOut()
{
    if (m_isAuthenticated) {
        m_isAuthenticated = false;
        emit isAuthenticatedChanged(false);
    }
    m_defaults.setBoolean(signedInKey, false);
    setMessage(AccountText::signedOut);
}

void TavoAccountStore::setMessage(const QString& message)
{
    if (m_message == message) {
        return;
    }
    m_message = message;
    emit messageChanged(m_message);
}

void TavoAccountStore::setCurrentUsername(const QString& username)
{
    if (m_currentUsername == username) {
        return;
    }
    m_currentUsername = username;
    emit currentUsernameChanged(m_currentUsername);
}

void TavoAccountStore::takeLegacyEmail()
{
    std::optional<QString> email;
    if (!m_defaults.flag(legacyProfileMovedKey)) {
        email = m_defaults.string(currentEmailKey);
    }
    if (email == m_legacyEmailToMigrate) {
        return;
    }
    m_legacyEmailToMigrate = email;
    emit legacyEmailToMigrateChanged();
}

} // namespace tavo
