#pragma once

#include "language/tavo_error.h"

#include <QString>

#include <optional>

namespace tavo {

class SecretStore;

// Small secret texts (account password hashes, provider API keys) in the system keyring, under
// the service "com.quill.mac". Each account is read from the keyring at most once per run, a
// miss included; later loads answer from memory. Safe to call from any thread: the shared maps
// are guarded, and no lock is held while the keyring is asked.
//
// A keyring that fails is reported and never remembered, so the next call asks again. Another
// process (tavoctl, a second Tavo) may add an item after this one remembered a miss: whoever
// means to create an item asks again with `loadFresh` first.
namespace KeyStore {

inline const QString service = QStringLiteral("com.quill.mac");
inline const QString errorDomain = QStringLiteral("TavoKeyStore");

// The keyring in use, set once at start; the store does not own it. Without one, every call
// fails.
void setBackend(SecretStore* backend);

// The value, nothing for a missing item, or the keyring's error.
Result<std::optional<QString>> load(const QString& account);

// Asks the keyring whatever was remembered, and remembers its answer.
Result<std::optional<QString>> loadFresh(const QString& account);

// Whether this run already found the account missing; the keyring is not asked.
bool knownMissing(const QString& account);

// Creates or replaces the item; an empty value deletes it (a missing item counts as deleted).
// Nothing on success, else the keyring's error.
std::optional<TavoError> save(const QString& value, const QString& account);

// Forgets everything remembered, as a new run of the program would; the backend stays.
void resetForTesting();

} // namespace KeyStore

} // namespace tavo
