#include "system/SecretServiceCredentialStore.h"

#include "system/KeychainStoreError.h"

#include <QByteArrayView>
#include <QStringDecoder>

#include <libsecret/secret.h>
#include <memory>

namespace {

// Items are matched on "service" and "account" alone, not on the schema name libsecret adds: an
// item another client stored under the same pair is the same credential and must be updated,
// not shadowed by a second one.
const SecretSchema* credentialSchema() {
    static const SecretSchema schema = {
        .name = "com.keldor.vantrel.Credential",
        .flags = SECRET_SCHEMA_DONT_MATCH_NAME,
        .attributes = {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                       {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                       {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
        .reserved = 0,
        .reserved1 = nullptr,
        .reserved2 = nullptr,
        .reserved3 = nullptr,
        .reserved4 = nullptr,
        .reserved5 = nullptr,
        .reserved6 = nullptr,
        .reserved7 = nullptr,
    };
    return &schema;
}

constexpr const char* itemLabel = "Vantrel API key";

struct ObjectRelease {
    void operator()(gpointer object) const { g_object_unref(object); }
};
struct ItemListRelease {
    void operator()(GList* items) const { g_list_free_full(items, g_object_unref); }
};
struct HashTableRelease {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
struct ValueRelease {
    void operator()(SecretValue* value) const { secret_value_unref(value); }
};

using ServicePtr = std::unique_ptr<SecretService, ObjectRelease>;
using ItemList = std::unique_ptr<GList, ItemListRelease>;
using AttributeTable = std::unique_ptr<GHashTable, HashTableRelease>;
using ValuePtr = std::unique_ptr<SecretValue, ValueRelease>;

// The service behind the connection is gone or never was: no session bus, nobody owning the
// secrets name, a daemon that restarted and no longer knows our session or objects.
struct ConnectionFailure {};

bool isConnectionFailure(const GError* error) {
    if (error->domain == G_DBUS_ERROR || error->domain == G_IO_ERROR) {
        return true;
    }
    return error->domain == SECRET_ERROR &&
           (error->code == SECRET_ERROR_PROTOCOL || error->code == SECRET_ERROR_NO_SUCH_OBJECT);
}

// Runs a libsecret call that reports failure through a GError. A locked item and a broken
// connection are told apart; anything else becomes unexpectedStatus with the error's code. The
// message is dropped: it may name the item.
template <typename Call>
auto checked(Call&& call) {
    GError* error = nullptr;
    auto result = call(&error);
    if (error != nullptr) {
        const bool locked = error->domain == SECRET_ERROR && error->code == SECRET_ERROR_IS_LOCKED;
        const bool connection = isConnectionFailure(error);
        const qint32 code = error->code;
        g_error_free(error);
        if (locked) {
            throw KeychainStoreError::locked();
        }
        if (connection) {
            throw ConnectionFailure();
        }
        throw KeychainStoreError::unexpectedStatus(code);
    }
    return result;
}

// libsecret hands out one cached connection for the whole process, and keeps handing it out after
// the service behind it has gone. A broken connection is therefore dropped and the operation run
// once more on a fresh one; a second failure means no service is there.
template <typename Operation>
auto reconnectingOnce(Operation&& operation) {
    try {
        return operation();
    } catch (const ConnectionFailure&) {
    }
    secret_service_disconnect();
    try {
        return operation();
    } catch (const ConnectionFailure&) {
        throw KeychainStoreError::unreachable();
    }
}

ServicePtr connectToService() {
    return ServicePtr(checked([](GError** error) {
        return secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, nullptr, error);
    }));
}

// Every item matching the attributes, in any collection. Locked collections are asked to unlock,
// which on a desktop shows the keyring's own prompt; items that stay locked are still listed.
ItemList findItems(SecretService* service, GHashTable* attributes, bool withSecrets) {
    int flags = SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK;
    if (withSecrets) {
        flags |= SECRET_SEARCH_LOAD_SECRETS;
    }
    return ItemList(checked([&](GError** error) {
        return secret_service_search_sync(service, credentialSchema(), attributes,
                                          static_cast<SecretSearchFlags>(flags), nullptr, error);
    }));
}

SecretItem* itemAt(const GList* node) {
    return static_cast<SecretItem*>(node->data);
}

// Changing or removing only the unlocked ones would leave an old key behind for the next load.
void requireAllUnlocked(const GList* items) {
    for (const GList* node = items; node != nullptr; node = node->next) {
        if (secret_item_get_locked(itemAt(node))) {
            throw KeychainStoreError::locked();
        }
    }
}

void deleteItem(SecretItem* item) {
    checked([&](GError** error) { return secret_item_delete_sync(item, nullptr, error); });
}

QString decodedKey(QByteArrayView bytes) {
    // A byte-order mark is part of what was stored and stays in the text.
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless |
                                                       QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(bytes);
    if (decoder.hasError()) {
        throw KeychainStoreError::invalidStoredData();
    }
    return text;
}

// The table borrows the store's attribute values; it must not outlive the store.
AttributeTable attributeTable(const QByteArray& service, const QByteArray& account) {
    AttributeTable table(g_hash_table_new(g_str_hash, g_str_equal));
    g_hash_table_insert(table.get(), const_cast<char*>("service"),
                        const_cast<char*>(service.constData()));
    g_hash_table_insert(table.get(), const_cast<char*>("account"),
                        const_cast<char*>(account.constData()));
    return table;
}

} // namespace

SecretServiceCredentialStore::SecretServiceCredentialStore(QString service, QString account)
    : m_service(service.toUtf8())
    , m_account(account.toUtf8()) {}
std::optional<QString> SecretServiceCredentialStore::loadAPIKey() {
    return reconnectingOnce([this] { return load(); });
}

std::optional<QString> SecretServiceCredentialStore::load() const {
    const ServicePtr service = connectToService();
    const AttributeTable attributes = attributeTable(m_service, m_account);
    const ItemList items = findItems(service.get(), attributes.get(), true);
    if (!items) {
        return std::nullopt;
    }
    for (const GList* node = items.get(); node != nullptr; node = node->next) {
        SecretItem* item = itemAt(node);
        if (secret_item_get_locked(item)) {
            continue;
        }
        const ValuePtr value(secret_item_get_secret(item));
        if (!value) {
            throw KeychainStoreError::invalidStoredData();
        }
        gsize length = 0;
        const gchar* bytes = secret_value_get(value.get(), &length);
        return decodedKey(QByteArrayView(bytes, static_cast<qsizetype>(length)));
    }
    throw KeychainStoreError::locked();
}

void SecretServiceCredentialStore::saveAPIKey(const QString& key) {
    const QString trimmed = key.trimmed();
    if (trimmed.isEmpty()) {
        throw KeychainStoreError::invalidCredential();
    }
    const QByteArray bytes = trimmed.toUtf8();
    const ValuePtr value(secret_value_new(bytes.constData(), bytes.size(), "text/plain"));
    reconnectingOnce([&] { save(value.get()); });
}

void SecretServiceCredentialStore::save(SecretValue* value) const {
    const ServicePtr service = connectToService();
    const AttributeTable attributes = attributeTable(m_service, m_account);
    const ItemList items = findItems(service.get(), attributes.get(), false);
    if (!items) {
        checked([&](GError** error) {
            return secret_service_store_sync(service.get(), credentialSchema(), attributes.get(),
                                             SECRET_COLLECTION_DEFAULT, itemLabel, value, nullptr,
                                             error);
        });
        return;
    }
    requireAllUnlocked(items.get());
    checked([&](GError** error) {
        return secret_item_set_secret_sync(itemAt(items.get()), value, nullptr, error);
    });
    // Any further match is a stale duplicate (left by another client or an older release) that
    // the next load could pick instead of the key just saved.
    for (const GList* node = items->next; node != nullptr; node = node->next) {
        deleteItem(itemAt(node));
    }
}

void SecretServiceCredentialStore::deleteAPIKey() {
    reconnectingOnce([this] { remove(); });
}

void SecretServiceCredentialStore::remove() const {
    const ServicePtr service = connectToService();
    const AttributeTable attributes = attributeTable(m_service, m_account);
    const ItemList items = findItems(service.get(), attributes.get(), false);
    requireAllUnlocked(items.get());
    for (const GList* node = items.get(); node != nullptr; node = node->next) {
        deleteItem(itemAt(node));
    }
}
