#include "store/key_store.h"

#include "platform/secret_store.h"

#include <QHash>
#include <QLoggingCategory>
#include <QMutex>
#include <QSet>

namespace tavo::KeyStore {

namespace {

Q_LOGGING_CATEGORY(lcKeyStore, "tavo.store.keystore")

struct State
{
    QMutex lock;
    SecretStore* backend = nullptr;
    QHash<QString, QString> cache;
    QSet<QString> checked;
    // Saves per account, so that a read racing a save cannot put the older value back.
    QHash<QString, quint64> saves;
};

State& state()
{
    static State s;
    return s;
}

TavoError keyringError(const QString& description)
{
    return TavoError{errorDomain, 0, description};
}

TavoError noBackend()
{
    return keyringError(QStringLiteral("No system keyring is set up for Tavo."));
}

Result<std::optional<QString>> readKeyring(const QString& account)
{
    State& s = state();
    SecretStore* backend = nullptr;
    quint64 savesBefore = 0;
    {
        QMutexLocker locker(&s.lock);
        backend = s.backend;
        savesBefore = s.saves.value(account);
    }
    if (!backend) {
        return noBackend();
    }

    const SecretLookup found = backend->lookup(service, account);
    if (found.isFailed()) {
        qCWarning(lcKeyStore) << "keyring read failed for" << account;
        return keyringError(found.error);
    }

    QMutexLocker locker(&s.lock);
    if (s.saves.value(account) != savesBefore) {
        // A save finished while the keyring was read; what it remembered is newer.
        return s.cache.contains(account) ? std::optional<QString>(s.cache.value(account)) : std::nullopt;
    }
    if (found.isFound()) {
        s.cache.insert(account, found.value);
    } else {
        s.cache.remove(account);
    }
    s.checked.insert(account);
    return found.isFound() ? std::optional<QString>(found.value) : std::nullopt;
}

} // namespace

void setBackend(SecretStore* backend)
{
    State& s = state();
    QMutexLocker locker(&s.lock);
    s.backend = backend;
}

Result<std::optional<QString>> load(const QString& account)
{
    State& s = state();
    {
        QMutexLocker locker(&s.lock);
        if (s.checked.contains(account)) {
            const auto it = s.cache.constFind(account);
            return it == s.cache.constEnd() ? std::nullopt : std::optional<QString>(*it);
        }
    }
    return readKeyring(account);
}

Result<std::optional<QString>> loadFresh(const QString& account)
{
    return readKeyring(account);
}

bool knownMissing(const QString& account)
{
    State& s = state();
    QMutexLocker locker(&s.lock);
    return s.checked.contains(account) && !s.cache.contains(account);
}

std::optional<TavoError> save(const QString& value, const QString& account)
{
    State& s = state();
    SecretStore* backend = nullptr;
    {
        QMutexLocker locker(&s.lock);
        backend = s.backend;
    }
    if (!backend) {
        return noBackend();
    }

    const SecretWrite written =
        value.isEmpty() ? backend->remove(service, account) : backend->store(service, account, value);
    if (!written.ok) {
        qCWarning(lcKeyStore) << "keyring write failed for" << account;
        return keyringError(written.error);
    }

    QMutexLocker locker(&s.lock);
    if (value.isEmpty()) {
        s.cache.remove(account);
    } else {
        s.cache.insert(account, value);
    }
    s.checked.insert(account);
    ++s.saves[account];
    return std::nullopt;
}

void resetForTesting()
{
    State& s = state();
    QMutexLocker locker(&s.lock);
    s.cache.clear();
    s.checked.clear();
    s.saves.clear();
}

} // namespace tavo::KeyStore
