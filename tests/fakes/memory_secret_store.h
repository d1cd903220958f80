#pragma once

#include "platform/secret_store.h"

#include <QHash>

namespace tavo::test {

// A keyring in memory: what a test stores is there, nothing else.
class MemorySecretStore : public SecretStore
{
public:
    QHash<QString, QString> items; // account -> value

    SecretLookup lookup(const QString&, const QString& account) override
    {
        return items.contains(account) ? SecretLookup::found(items.value(account)) : SecretLookup::notFound();
    }
    SecretWrite store(const QString&, const QString& account, const QString& value) override
    {
        items.insert(account, value);
        return SecretWrite::done();
    }
    SecretWrite remove(const QString&, const QString& account) override
    {
        items.remove(account);
        return SecretWrite::done();
    }
};

} // namespace tavo::test
