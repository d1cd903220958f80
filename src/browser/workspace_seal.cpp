#include "browser/workspace_seal.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <limits>
#include <memory>

namespace tavo {

namespace {

struct CipherContextFree
{
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, CipherContextFree>;

const unsigned char* bytes(QByteArrayView view)
{
    return reinterpret_cast<const unsigned char*>(view.data());
}

unsigned char* bytes(QByteArray& array)
{
    return reinterpret_cast<unsigned char*>(array.data());
}

} // namespace

std::optional<QByteArray> makeWorkspaceKey()
{
    QByteArray key(workspaceKeyLength, '\0');
    if (RAND_bytes(bytes(key), workspaceKeyLength) != 1) {
        return std::nullopt;
    }
    return key;
}

std::optional<QByteArray> sealWorkspace(QByteArrayView plain, QByteArrayView key)
{
    if (key.size() != workspaceKeyLength || plain.size() > std::numeric_limits<int>::max() - 64) {
        return std::nullopt;
    }
    QByteArray combined(workspaceNonceLength + plain.size() + workspaceTagLength, '\0');
    unsigned char* nonce = bytes(combined);
    unsigned char* cipherText = nonce + workspaceNonceLength;
    if (RAND_bytes(nonce, workspaceNonceLength) != 1) {
        return std::nullopt;
    }
    const CipherContext context(EVP_CIPHER_CTX_new());
    int written = 0;
    int finalWritten = 0;
    if (!context || EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_IVLEN, workspaceNonceLength, nullptr) != 1 ||
        EVP_EncryptInit_ex(context.get(), nullptr, nullptr, bytes(key), nonce) != 1 ||
        EVP_EncryptUpdate(context.get(), cipherText, &written, bytes(plain), static_cast<int>(plain.size())) != 1 ||
        EVP_EncryptFinal_ex(context.get(), cipherText + written, &finalWritten) != 1 ||
        written + finalWritten != plain.size() ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, workspaceTagLength, cipherText + plain.size()) != 1) {
        return std::nullopt;
    }
    return combined;
}

std::optional<QByteArray> openWorkspace(QByteArrayView combined, QByteArrayView key)
{
    if (key.size() != workspaceKeyLength || combined.size() < workspaceNonceLength + workspaceTagLength ||
        combined.size() > std::numeric_limits<int>::max()) {
        return std::nullopt;
    }
    const qsizetype cipherLength = combined.size() - workspaceNonceLength - workspaceTagLength;
    const unsigned char* nonce = bytes(combined);
    const unsigned char* cipherText = nonce + workspaceNonceLength;
    QByteArray tag(combined.sliced(workspaceNonceLength + cipherLength).toByteArray());
    QByteArray plain(cipherLength, '\0');
    const CipherContext context(EVP_CIPHER_CTX_new());
    int written = 0;
    int finalWritten = 0;
    if (!context || EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_IVLEN, workspaceNonceLength, nullptr) != 1 ||
        EVP_DecryptInit_ex(context.get(), nullptr, nullptr, bytes(key), nonce) != 1 ||
        EVP_DecryptUpdate(context.get(), bytes(plain), &written, cipherText, static_cast<int>(cipherLength)) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, workspaceTagLength, tag.data()) != 1 ||
        EVP_DecryptFinal_ex(context.get(), bytes(plain) + written, &finalWritten) != 1) {
        // Whatever was decrypted before the tag check failed is wiped, not handed out.
        plain.fill('\0');
        return std::nullopt;
    }
    return plain;
}

} // namespace tavo
