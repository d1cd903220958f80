#include "store/password_hash.h"

#include <QStringList>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

namespace tavo {

namespace {

std::optional<QByteArray> strictBase64(const QString& text)
{
    const auto decoded = QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::Base64Encoding |
                                                                             QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded) {
        return std::nullopt;
    }
    return decoded.decoded;
}

} // namespace

QByteArray makePasswordSalt()
{
    QByteArray salt(passwordSaltLength, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(salt.data()), passwordSaltLength) != 1) {
        salt.fill('\0');
    }
    return salt;
}

std::optional<QByteArray> derivePasswordHash(const QString& password, const QByteArray& salt)
{
    QByteArray utf8 = password.toUtf8();
    QByteArray hash(passwordHashLength, '\0');
    const int status = PKCS5_PBKDF2_HMAC(
        utf8.constData(), int(utf8.size()), reinterpret_cast<const unsigned char*>(salt.constData()), int(salt.size()),
        passwordHashRounds, EVP_sha256(), passwordHashLength, reinterpret_cast<unsigned char*>(hash.data()));
    OPENSSL_cleanse(utf8.data(), size_t(utf8.size()));
    if (status != 1) {
        return std::nullopt;
    }
    return hash;
}

QString formatStoredPassword(const StoredPassword& stored)
{
    return QString::fromLatin1(stored.salt.toBase64()) + QLatin1Char('.') + QString::fromLatin1(stored.hash.toBase64());
}

std::optional<StoredPassword> parseStoredPassword(const QString& text)
{
    const QStringList parts = text.split(QLatin1Char('.'));
    if (parts.size() != 2) {
        return std::nullopt;
    }
    // toLatin1 would turn a character beyond Latin-1 into "?", which base64 refuses anyway.
    const auto salt = strictBase64(parts.at(0));
    const auto hash = strictBase64(parts.at(1));
    if (!salt || !hash) {
        return std::nullopt;
    }
    return StoredPassword{*salt, *hash};
}

bool constantTimeEquals(const QByteArray& a, const QByteArray& b)
{
    if (a.size() != b.size()) {
        return false;
    }
    unsigned char difference = 0;
    for (qsizetype i = 0; i < a.size(); ++i) {
        difference |= static_cast<unsigned char>(a.at(i) ^ b.at(i));
    }
    return difference == 0;
}

} // namespace tavo
