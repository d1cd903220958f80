// glib names a field "signals", which Qt's headers define away: glib comes first.
#include <libsecret/secret.h>

#include "platform/secret/libsecret_store.h"

#include <QByteArray>
#include <QLoggingCategory>
#include <QStringDecoder>

#include <memory>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcSecret, "tavo.platform.secret")

const QString notRunningMessage = QStringLiteral("No system keyring is running (Secret Service).");
const QString lockedMessage = QStringLiteral("The system keyring is locked.");

// Items match on "service" and "account" alone, whatever schema name wrote them, so an item
// made by another tool (secret-tool, Seahorse) with the same attributes is the same item.
const SecretSchema* schema()
{
    static const SecretSchema s = [] {
        SecretSchema made{};
        made.name = "com.quill.mac.KeyStore";
        made.flags = SECRET_SCHEMA_DONT_MATCH_NAME;
        made.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        made.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return made;
    }();
    return &s;
}

struct ItemListDeleter
{
    void operator()(GList* items) const { g_list_free_full(items, g_object_unref); }
};
using ItemList = std::unique_ptr<GList, ItemListDeleter>;

struct HashTableDeleter
{
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
using Attributes = std::unique_ptr<GHashTable, HashTableDeleter>;

SecretItem* itemOf(GList* node)
{
    return static_cast<SecretItem*>(node->data);
}

QString describe(const GError* error)
{
    if (error->domain == G_DBUS_ERROR &&
        (error->code == G_DBUS_ERROR_SERVICE_UNKNOWN || error->code == G_DBUS_ERROR_NAME_HAS_NO_OWNER ||
         error->code == G_DBUS_ERROR_SPAWN_EXEC_FAILED || error->code == G_DBUS_ERROR_SPAWN_FAILED ||
         error->code == G_DBUS_ERROR_SPAWN_CHILD_EXITED)) {
        return notRunningMessage;
    }
    if (error->domain == SECRET_ERROR && error->code == SECRET_ERROR_IS_LOCKED) {
        return lockedMessage;
    }
    return QStringLiteral("The system keyring reported an error: %1").arg(QString::fromUtf8(error->message));
}

// The session bus's Secret Service. Failing here means there is no bus or nothing answers on
// it, whatever the details, so the message says just that.
SecretService* openService(QString* problem)
{
    GError* error = nullptr;
    SecretService* service = secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, nullptr, &error);
    if (!service) {
        qCWarning(lcSecret) << "Secret Service unavailable:" << (error ? error->message : "no reason given");
        g_clear_error(&error);
        *problem = notRunningMessage;
    }
    return service;
}

Attributes attributesFor(const QString& service, const QString& account)
{
    const QByteArray serviceUtf8 = service.toUtf8();
    const QByteArray accountUtf8 = account.toUtf8();
    return Attributes(secret_attributes_build(schema(), "service", serviceUtf8.constData(), "account",
                                              accountUtf8.constData(), nullptr));
}

// Every item with these attributes, unlocked where the desktop lets us. A collection that stays
// locked is reported, never read as "no such item".
ItemList search(SecretService* service, GHashTable* attributes, int extraFlags, QString* problem)
{
    GError* error = nullptr;
    const auto flags = static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK | extraFlags);
    ItemList items(secret_service_search_sync(service, schema(), attributes, flags, nullptr, &error));
    if (error) {
        qCWarning(lcSecret) << "keyring search failed:" << error->message;
        *problem = describe(error);
        g_clear_error(&error);
        return {};
    }
    for (GList* node = items.get(); node; node = node->next) {
        if (secret_item_get_locked(itemOf(node))) {
            *problem = lockedMessage;
            return {};
        }
    }
    return items;
}

struct ServiceDeleter
{
    void operator()(SecretService* service) const { g_object_unref(service); }
};

// One account's items in an open Secret Service; on failure `problem` says why.
struct AccountItems
{
    std::unique_ptr<SecretService, ServiceDeleter> service;
    Attributes attributes;
    ItemList items;
};

AccountItems findAccount(const QString& service, const QString& account, int extraFlags, QString* problem)
{
    AccountItems found;
    found.service.reset(openService(problem));
    if (found.service) {
        found.attributes = attributesFor(service, account);
        found.items = search(found.service.get(), found.attributes.get(), extraFlags, problem);
    }
    return found;
}

} // namespace

SecretLookup LibsecretStore::lookup(const QString& service, const QString& account)
{
    QString problem;
    const AccountItems found = findAccount(service, account, SECRET_SEARCH_LOAD_SECRETS, &problem);
    if (!problem.isEmpty()) {
        return SecretLookup::failed(problem);
    }
    const ItemList& items = found.items;
    if (!items) {
        return SecretLookup::notFound();
    }

    g_autoptr(SecretValue) secret = secret_item_get_secret(itemOf(items.get()));
    if (!secret) {
        return SecretLookup::failed(
            QStringLiteral("The system keyring did not hand out the secret of an unlocked item."));
    }
    gsize length = 0;
    const gchar* data = secret_value_get(secret, &length);
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(QByteArrayView(data, qsizetype(length)));
    if (decoder.hasError()) {
        // Reported rather than taken for a miss, so nobody writes over an item they cannot read.
        return SecretLookup::failed(QStringLiteral("The system keyring holds an item here that is not text."));
    }
    return SecretLookup::found(text);
}

SecretWrite LibsecretStore::store(const QString& service, const QString& account, const QString& value)
{
    QString problem;
    const AccountItems found = findAccount(service, account, 0, &problem);
    if (!problem.isEmpty()) {
        return SecretWrite::failed(problem);
    }
    const ItemList& items = found.items;

    const QByteArray utf8 = value.toUtf8();
    g_autoptr(SecretValue) secret = secret_value_new(utf8.constData(), utf8.size(), "text/plain");
    GError* error = nullptr;
    if (items) {
        // Another tool may have left twins; they all get the new value so no reader sees an old one.
        for (GList* node = items.get(); node && !error; node = node->next) {
            secret_item_set_secret_sync(itemOf(node), secret, nullptr, &error);
        }
    } else {
        const QByteArray label = (QStringLiteral("Tavo: ") + account).toUtf8();
        secret_service_store_sync(found.service.get(), schema(), found.attributes.get(), SECRET_COLLECTION_DEFAULT,
                                  label.constData(), secret, nullptr, &error);
    }
    if (error) {
        qCWarning(lcSecret) << "keyring write failed:" << error->message;
        problem = describe(error);
        g_clear_error(&error);
        return SecretWrite::failed(problem);
    }
    return SecretWrite::done();
}

SecretWrite LibsecretStore::remove(const QString& service, const QString& account)
{
    QString problem;
    const AccountItems found = findAccount(service, account, 0, &problem);
    if (!problem.isEmpty()) {
        return SecretWrite::failed(problem);
    }
    const ItemList& items = found.items;
    GError* error = nullptr;
    for (GList* node = items.get(); node && !error; node = node->next) {
        secret_item_delete_sync(itemOf(node), nullptr, &error);
    }
    if (error) {
        qCWarning(lcSecret) << "keyring delete failed:" << error->message;
        problem = describe(error);
        g_clear_error(&error);
        return SecretWrite::failed(problem);
    }
    return SecretWrite::done();
}

} // namespace tavo
