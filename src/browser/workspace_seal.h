#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

namespace tavo {

// AES-256-GCM as the private workspace is kept: nonce (12 bytes) ‖ ciphertext ‖ tag (16 bytes).
inline constexpr int workspaceKeyLength = 32;
inline constexpr int workspaceNonceLength = 12;
inline constexpr int workspaceTagLength = 16;

// Seals `plain` under a fresh random nonce; nothing when the key is not 32 bytes or the random
// source or the cipher fails.
std::optional<QByteArray> sealWorkspace(QByteArrayView plain, QByteArrayView key);

// The plain bytes, or nothing when the key is not 32 bytes, the box is too short, or the tag does
// not match: never a partly opened result.
std::optional<QByteArray> openWorkspace(QByteArrayView combined, QByteArrayView key);

// 32 bytes from the system's random source, or nothing when it fails.
std::optional<QByteArray> makeWorkspaceKey();

} // namespace tavo
