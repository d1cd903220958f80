#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace tavo {

// Account passwords are kept only as a salted, slow hash: PBKDF2-HMAC-SHA256.
inline constexpr int passwordHashRounds = 210000;
inline constexpr int passwordHashLength = 32;
inline constexpr int passwordSaltLength = 16;

// Fresh random salt. Should the random source fail, the salt stays all zero bytes: the hash is
// still slow, only no longer unique to this account.
QByteArray makePasswordSalt();

// The derived bytes of the password's UTF-8 text, or nothing when the derivation fails. Takes
// 0.1 to 0.3 s on the calling thread.
std::optional<QByteArray> derivePasswordHash(const QString& password, const QByteArray& salt);

struct StoredPassword
{
    QByteArray salt;
    QByteArray hash;
};

// "<salt base64>.<hash base64>", the text kept in the keyring.
QString formatStoredPassword(const StoredPassword& stored);

// Nothing unless the text is exactly two parts around one full stop, each valid base64.
std::optional<StoredPassword> parseStoredPassword(const QString& text);

// Looks at every byte whatever it finds, so the time taken does not tell how much of a guess
// was right. Texts of different lengths are unequal.
bool constantTimeEquals(const QByteArray& a, const QByteArray& b);

} // namespace tavo
