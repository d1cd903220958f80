#pragma once

#include <QObject>
#include <QString>

#include <optional>

namespace tavo {

class Defaults;

// Texts of the accounts and of the registration screen.
namespace AccountText {

inline const QString invalidUsername =
    QStringLiteral(u"Use 3\u201332 letters, numbers, periods, underscores, or hyphens.");
inline const QString usernameTaken = QStringLiteral("That username already exists on this computer. Sign in instead.");
inline const QString couldNotSecurePassword = QStringLiteral("Could not secure this password in the system keyring.");
inline const QString couldNotSaveAccount =
    QStringLiteral("Could not save your account securely in the system keyring.");
inline const QString accountReady = QStringLiteral("Your local Tavo account is ready.");
inline const QString wrongCredentials = QStringLiteral("Username or password is incorrect.");
inline const QString signedOut = QStringLiteral("Signed out.");
inline QString welcomeBack(const QString& username)
{
    return QStringLiteral("Welcome back, %1.").arg(username);
}

inline const QString createAccountMode = QStringLiteral("Create account");
inline const QString signInMode = QStringLiteral("Sign in");
inline const QString passwordTooShort = QStringLiteral("Use a password with at least 8 characters.");
inline const QString passwordsDiffer = QStringLiteral("The passwords do not match.");
inline const QString passwordPlaceholder = QStringLiteral("Password (minimum 8 characters)");
inline const QString noConnectionNote =
    QStringLiteral("No email, phone, or internet connection is needed to create this local account.");
inline const QString separateLibraryNote =
    QStringLiteral("Your username and password unlock a separate local shortcut library on this computer.");
inline const QString storageNote =
    QStringLiteral("Passwords are stored as a salted, slow hash in the system keyring. Shortcuts and attached media "
                   "stay on this computer in a profile named for your username.");

} // namespace AccountText

inline constexpr int minimumPasswordLength = 8;

// The registration screen's own checks, made before it asks the account store: the problem to
// show, or nothing. Only creating an account checks them; length counts characters as a reader
// sees them, so an accented letter made of two code points is one.
std::optional<QString> registrationProblem(bool isCreating, const QString& password, const QString& confirmPassword);

// Local accounts: no server, an account exists only on this machine and is the salted hash of
// its password in the system keyring. The username names the user's profile. Used on the main
// thread.
class TavoAccountStore : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isAuthenticated READ isAuthenticated NOTIFY isAuthenticatedChanged)
    Q_PROPERTY(QString currentUsername READ currentUsername NOTIFY currentUsernameChanged)
    Q_PROPERTY(QString message READ message NOTIFY messageChanged)
    Q_PROPERTY(std::optional<QString> legacyEmailToMigrate READ legacyEmailToMigrate NOTIFY legacyEmailToMigrateChanged)

public:
    // Starts from the sign-in state kept in `defaults`, which must outlive this store.
    explicit TavoAccountStore(Defaults& defaults, QObject* parent = nullptr);

    bool isAuthenticated() const { return m_isAuthenticated; }
    QString currentUsername() const { return m_currentUsername; }
    QString message() const { return m_message; }
    // The e-mail identity of the former sign-in, whose profile the new account should take over.
    std::optional<QString> legacyEmailToMigrate() const { return m_legacyEmailToMigrate; }

    // Trimmed and lower-cased, as every name is compared.
    static QString normalizedUsername(const QString& username);
    static bool validUsername(const QString& username);
    static QString keyStoreAccount(const QString& normalizedName);

    // Both derive the password hash on the calling thread, which takes 0.1 to 0.3 s.
    bool registerAccount(const QString& username, const QString& password);

    // Takes over sign-ins and sign-outs that another process (tavoctl) writes to the settings.
    void followSignInsElsewhere();
    bool signIn(const QString& username, const QString& password);

    void accept(const QString& username);
    void signOut();

signals:
    void isAuthenticatedChanged(bool isAuthenticated);
    void currentUsernameChanged(const QString& currentUsername);
    void messageChanged(const QString& message);
    void legacyEmailToMigrateChanged();

private:
    void setMessage(const QString& message);
    void setCurrentUsername(const QString& username);
    void takeLegacyEmail();

    Defaults& m_defaults;
    bool m_isAuthenticated = false;
    bool m_writingSignIn = false;
    QString m_currentUsername;
    QString m_message;
    std::optional<QString> m_legacyEmailToMigrate;
};

} // namespace tavo
