#pragma once

#include <QString>

#include <utility>

namespace tavo {

// What a keyring look-up found. A missing item and a keyring that could not answer are told
// apart: callers may create an item on a miss, never on an error.
struct SecretLookup
{
    enum class Outcome
    {
        Found,
        NotFound,
        Failed
    };

    Outcome outcome = Outcome::NotFound;
    QString value; // when found
    QString error; // when failed: ready to show

    static SecretLookup found(QString value) { return {Outcome::Found, std::move(value), {}}; }
    static SecretLookup notFound() { return {}; }
    static SecretLookup failed(QString error) { return {Outcome::Failed, {}, std::move(error)}; }

    bool isFound() const { return outcome == Outcome::Found; }
    bool isFailed() const { return outcome == Outcome::Failed; }
};

// The outcome of a change to the keyring.
struct SecretWrite
{
    bool ok = true;
    QString error; // when not ok: ready to show

    static SecretWrite done() { return {}; }
    static SecretWrite failed(QString error) { return {false, std::move(error)}; }
};

// Small secret texts in the desktop's keyring, one item per service and account. An
// implementation never falls back to keeping a secret in clear text: it fails instead.
class SecretStore
{
public:
    virtual ~SecretStore() = default;

    virtual SecretLookup lookup(const QString& service, const QString& account) = 0;

    // Creates the item or replaces its value.
    virtual SecretWrite store(const QString& service, const QString& account, const QString& value) = 0;

    // Succeeds when the item is gone afterwards, also when it was not there.
    virtual SecretWrite remove(const QString& service, const QString& account) = 0;
};

} // namespace tavo
