#pragma once

#include "platform/secret_store.h"

namespace tavo {

// The freedesktop Secret Service (GNOME Keyring, KWallet, KeePassXC) through libsecret. Items
// carry the attributes "service" and "account"; new ones go to the default collection. Calls
// are synchronous; a locked collection asks the desktop to unlock it, and stays an error when
// that is refused.
class LibsecretStore : public SecretStore
{
public:
    SecretLookup lookup(const QString& service, const QString& account) override;
    SecretWrite store(const QString& service, const QString& account, const QString& value) override;
    SecretWrite remove(const QString& service, const QString& account) override;
};

} // namespace tavo
