#include "system/SecretServiceCredentialStore.h"

#include "core/CancellationError.h"
#include "system/KeychainStoreError.h"

#include <QAbstractEventDispatcher>
#include <QByteArrayView>
#include <QStringDecoder>
#include <QTimer>

#include <coroutine>
#include <functional>
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
using ResultPtr = std::unique_ptr<GAsyncResult, ObjectRelease>;
using ItemList = std::unique_ptr<GList, ItemListRelease>;
using AttributeTable = std::unique_ptr<GHashTable, HashTableRelease>;
using ValuePtr = std::unique_ptr<SecretValue, ValueRelease>;

// The service behind the connection is gone or never was: no session bus, nobody owning the
// secrets name, a daemon that restarted and no longer knows our session or objects.
struct ConnectionFailure {};
// The service took longer than the bound to answer.
struct TimedOut {};

// --- The keyring's unlock prompt ---------------------------------------------------------------
//
// libsecret shows every prompt (unlocking, and whatever else the service asks the user) through
// the prompt_async method of its service class. Our connection is of a subclass that counts the
// prompts open, so that a deadline can stand still while the user types a password.

int openPrompts = 0;
std::chrono::steady_clock::time_point lastPromptClosed;
using PromptAsync = decltype(SecretServiceClass::prompt_async);
PromptAsync basePromptAsync = nullptr;

struct PromptForward {
    GAsyncReadyCallback callback;
    gpointer userData;
};

void promptClosed(GObject* source, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<PromptForward> forward(static_cast<PromptForward*>(data));
    --openPrompts;
    lastPromptClosed = std::chrono::steady_clock::now();
    forward->callback(source, result, forward->userData);
}

void promptAsync(SecretService* service, SecretPrompt* prompt, const GVariantType* returnType,
                 GCancellable* cancellable, GAsyncReadyCallback callback, gpointer userData) {
    ++openPrompts;
    basePromptAsync(service, prompt, returnType, cancellable, promptClosed,
                    new PromptForward{callback, userData});
}

GType promptCountingServiceType() {
    static const GType type = g_type_register_static_simple(
        secret_service_get_type(), "VantrelPromptCountingService", sizeof(SecretServiceClass),
        [](gpointer typeClass, gpointer) {
            auto* serviceClass = static_cast<SecretServiceClass*>(typeClass);
            basePromptAsync = serviceClass->prompt_async;
            serviceClass->prompt_async = promptAsync;
        },
        sizeof(SecretService), nullptr, static_cast<GTypeFlags>(0));
    return type;
}

// --- Awaiting libsecret ------------------------------------------------------------------------

// Starts one asynchronous libsecret call and resumes the coroutine from its callback, which the
// GUI thread's GLib main context delivers. The result is handed on to the call's _finish.
class GAsyncCall {
public:
    using Start = std::function<void(GAsyncReadyCallback, gpointer)>;
    explicit GAsyncCall(Start start)
        : m_start(std::move(start)) {}

    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> waiter) {
        m_waiter = waiter;
        // Qt iterates GLib's main context itself unless it was built without GLib or told not
        // to use it (QT_NO_GLIB); then the context is turned by hand while the call runs.
        static const bool qtTurnsGLib =
            QAbstractEventDispatcher::instance()->inherits("QEventDispatcherGlib");
        if (!qtTurnsGLib) {
            m_pump = std::make_unique<QTimer>();
            QObject::connect(m_pump.get(), &QTimer::timeout, m_pump.get(),
                             [] { g_main_context_iteration(nullptr, FALSE); });
            m_pump->start(10);
        }
        m_start(&GAsyncCall::finished, this);
    }
    ResultPtr await_resume() noexcept { return std::move(m_result); }

private:
    static void finished(GObject*, GAsyncResult* result, gpointer data) {
        auto* call = static_cast<GAsyncCall*>(data);
        call->m_result.reset(static_cast<GAsyncResult*>(g_object_ref(result)));
        if (call->m_pump) {
            call->m_pump.release()->deleteLater();
        }
        call->m_waiter.resume();
    }

    Start m_start;
    std::coroutine_handle<> m_waiter;
    ResultPtr m_result;
    std::unique_ptr<QTimer> m_pump;
};

bool isConnectionFailure(const GError* error) {
    if (error->domain == G_DBUS_ERROR || error->domain == G_IO_ERROR) {
        return true;
    }
    return error->domain == SECRET_ERROR &&
           (error->code == SECRET_ERROR_PROTOCOL || error->code == SECRET_ERROR_NO_SUCH_OBJECT);
}

// One attempt's bound, and the GCancellable that carries it and the caller's cancellation into
// libsecret. Time spent with a prompt open does not count.
class Deadline {
public:
    Deadline(std::chrono::milliseconds bound, const CancellationToken& token)
        : m_cancellable(g_cancellable_new())
        , m_bound(bound)
        , m_token(token) {
        m_timer.setSingleShot(true);
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] { expire(); });
        m_timer.start(m_bound);
        token.onCancel(&m_timer, [this] { g_cancellable_cancel(m_cancellable); });
    }
    ~Deadline() { g_object_unref(m_cancellable); }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    GCancellable* cancellable() const { return m_cancellable; }

    // Runs a _finish call that reports failure through a GError. A locked item and a broken
    // connection are told apart; anything else becomes unexpectedStatus with the error's code.
    // The message is dropped: it may name the item.
    template <typename Finish>
    auto checked(Finish&& finish) const {
        GError* error = nullptr;
        auto result = finish(&error);
        if (error != nullptr) {
            fail(error);
        }
        return result;
    }

    [[noreturn]] void fail(GError* error) const {
        const bool locked = error->domain == SECRET_ERROR && error->code == SECRET_ERROR_IS_LOCKED;
        const bool connection = isConnectionFailure(error);
        const qint32 code = error->code;
        g_error_free(error);
        // Our own cancellation shows up as a failed call; what caused it is what counts.
        m_token.throwIfCancelled();
        if (m_timedOut) {
            throw TimedOut();
        }
        if (locked) {
            throw KeychainStoreError::locked();
        }
        if (connection) {
            throw ConnectionFailure();
        }
        throw KeychainStoreError::unexpectedStatus(code);
    }

private:
    void expire() {
        using namespace std::chrono;
        if (openPrompts > 0) {
            m_timer.start(m_bound);
            return;
        }
        const auto sincePrompt =
            duration_cast<milliseconds>(steady_clock::now() - lastPromptClosed);
        if (sincePrompt < m_bound) {
            m_timer.start(m_bound - sincePrompt);
            return;
        }
        m_timedOut = true;
        g_cancellable_cancel(m_cancellable);
    }

    GCancellable* m_cancellable;
    std::chrono::milliseconds m_bound;
    CancellationToken m_token;
    QTimer m_timer;
    bool m_timedOut = false;
};

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

// A connection that broke under us (the daemon restarted) is dropped and the operation run once
// more on a fresh one; a second failure means no service is there. A service that let the bound
// pass is not asked again: it would only make the user wait twice as long for the same answer.
//
// Both callables are the caller's named objects, held by reference across the suspensions: GCC 12
// destroys a lambda converted to a coroutine's by-value std::function parameter inside a co_await
// once too often, which freed the captured cancellation state under the running attempt.
template <typename T>
QCoro::Task<T> reconnectingOnce(const std::function<QCoro::Task<T>()>& attempt,
                                const std::function<void()>& disconnect) {
    for (int round = 0; round < 2; ++round) {
        bool timedOut = false;
        try {
            if constexpr (std::is_void_v<T>) {
                co_await attempt();
                co_return;
            } else {
                co_return co_await attempt();
            }
        } catch (const ConnectionFailure&) {
        } catch (const TimedOut&) {
            timedOut = true;
        }
        disconnect();
        if (timedOut) {
            break;
        }
    }
    throw KeychainStoreError::unreachable();
}

// The held connection, opened first when there is none. The reference returned is the caller's
// own, so that a reconnect by another operation cannot pull the service away under it.
QCoro::Task<ServicePtr> connected(SecretService*& held, const Deadline& deadline) {
    if (held == nullptr) {
        // Our own connection rather than libsecret's shared one: it is of the prompt-counting
        // class, and dropping it after a failure disturbs no one else.
        const ResultPtr opened = co_await GAsyncCall([&](GAsyncReadyCallback done, gpointer data) {
            secret_service_open(promptCountingServiceType(), nullptr, SECRET_SERVICE_OPEN_SESSION,
                                deadline.cancellable(), done, data);
        });
        SecretService* service = deadline.checked(
            [&](GError** error) { return secret_service_open_finish(opened.get(), error); });
        if (held != nullptr) {
            g_object_unref(held);
        }
        held = service;
    }
    co_return ServicePtr(static_cast<SecretService*>(g_object_ref(held)));
}

// Every item matching the attributes, in any collection. Locked collections are asked to unlock,
// which on a desktop shows the keyring's own prompt; items that stay locked are still listed.
QCoro::Task<ItemList> findItems(SecretService* service, GHashTable* attributes,
                                const Deadline& deadline) {
    const auto flags = static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK);
    const ResultPtr found = co_await GAsyncCall([&](GAsyncReadyCallback done, gpointer data) {
        secret_service_search(service, credentialSchema(), attributes, flags,
                              deadline.cancellable(), done, data);
    });
    co_return ItemList(deadline.checked(
        [&](GError** error) { return secret_service_search_finish(service, found.get(), error); }));
}

// The item's secret, fetched on its own rather than by the search: the search drops a failure
// to fetch, and a timeout or a session the service no longer knows would then pass for data
// that is not there.
QCoro::Task<ValuePtr> secretOf(SecretItem* item, const Deadline& deadline) {
    const ResultPtr loaded = co_await GAsyncCall([&](GAsyncReadyCallback done, gpointer data) {
        secret_item_load_secret(item, deadline.cancellable(), done, data);
    });
    deadline.checked(
        [&](GError** error) { return secret_item_load_secret_finish(item, loaded.get(), error); });
    co_return ValuePtr(secret_item_get_secret(item));
}

QCoro::Task<void> deleteItem(SecretItem* item, const Deadline& deadline) {
    const ResultPtr deleted = co_await GAsyncCall([&](GAsyncReadyCallback done, gpointer data) {
        secret_item_delete(item, deadline.cancellable(), done, data);
    });
    deadline.checked(
        [&](GError** error) { return secret_item_delete_finish(item, deleted.get(), error); });
}

} // namespace

SecretServiceCredentialStore::SecretServiceCredentialStore(QString service, QString account,
                                                           std::chrono::milliseconds bound)
    : m_service(service.toUtf8())
    , m_account(account.toUtf8())
    , m_bound(bound) {}

SecretServiceCredentialStore::~SecretServiceCredentialStore() {
    disconnect();
}

void SecretServiceCredentialStore::disconnect() {
    if (m_connection != nullptr) {
        g_object_unref(m_connection);
        m_connection = nullptr;
    }
}

QCoro::Task<std::optional<QString>>
SecretServiceCredentialStore::loadAPIKey(CancellationToken token) {
    const std::function<QCoro::Task<std::optional<QString>>()> attempt = [this, token] {
        return load(token);
    };
    co_return co_await reconnectingOnce(attempt, m_disconnect);
}

QCoro::Task<std::optional<QString>> SecretServiceCredentialStore::load(CancellationToken token) {
    const Deadline deadline(m_bound, token);
    const ServicePtr service = co_await connected(m_connection, deadline);
    const AttributeTable attributes = attributeTable(m_service, m_account);
    const ItemList items = co_await findItems(service.get(), attributes.get(), deadline);
    if (!items) {
        co_return std::nullopt;
    }
    for (const GList* node = items.get(); node != nullptr; node = node->next) {
        SecretItem* item = itemAt(node);
        if (secret_item_get_locked(item)) {
            continue;
        }
        const ValuePtr value = co_await secretOf(item, deadline);
        if (!value) {
            throw KeychainStoreError::invalidStoredData();
        }
        gsize length = 0;
        const gchar* bytes = secret_value_get(value.get(), &length);
        co_return decodedKey(QByteArrayView(bytes, static_cast<qsizetype>(length)));
    }
    throw KeychainStoreError::locked();
}

QCoro::Task<void> SecretServiceCredentialStore::saveAPIKey(QString key, CancellationToken token) {
    const QString trimmed = key.trimmed();
    if (trimmed.isEmpty()) {
        throw KeychainStoreError::invalidCredential();
    }
    const QByteArray bytes = trimmed.toUtf8();
    const ValuePtr value(secret_value_new(bytes.constData(), bytes.size(), "text/plain"));
    SecretValue* shared = value.get();
    const std::function<QCoro::Task<void>()> attempt = [this, shared, token] {
        return save(shared, token);
    };
    co_await reconnectingOnce(attempt, m_disconnect);
}

QCoro::Task<void> SecretServiceCredentialStore::save(SecretValue* value, CancellationToken token) {
    const Deadline deadline(m_bound, token);
    const ServicePtr service = co_await connected(m_connection, deadline);
    const AttributeTable attributes = attributeTable(m_service, m_account);
    const ItemList items = co_await findItems(service.get(), attributes.get(), deadline);
    if (!items) {
        const ResultPtr stored = co_await GAsyncCall([&](GAsyncReadyCallback done, gpointer data) {
            secret_service_store(service.get(), credentialSchema(), attributes.get(),
                                 SECRET_COLLECTION_DEFAULT, itemLabel, value,
                                 deadline.cancellable(), done, data);
        });
        deadline.checked([&](GError** error) {
            return secret_service_store_finish(service.get(), stored.get(), error);
        });
        co_return;
    }
    requireAllUnlocked(items.get());
    SecretItem* first = itemAt(items.get());
    const ResultPtr set = co_await GAsyncCall([&](GAsyncReadyCallback done, gpointer data) {
        secret_item_set_secret(first, value, deadline.cancellable(), done, data);
    });
    deadline.checked(
        [&](GError** error) { return secret_item_set_secret_finish(first, set.get(), error); });
    // Any further match is a stale duplicate (left by another client or an older release) that
    // the next load could pick instead of the key just saved.
    for (const GList* node = items->next; node != nullptr; node = node->next) {
        co_await deleteItem(itemAt(node), deadline);
    }
}

QCoro::Task<void> SecretServiceCredentialStore::deleteAPIKey(CancellationToken token) {
    const std::function<QCoro::Task<void>()> attempt = [this, token] { return remove(token); };
    co_await reconnectingOnce(attempt, m_disconnect);
}

QCoro::Task<void> SecretServiceCredentialStore::remove(CancellationToken token) {
    const Deadline deadline(m_bound, token);
    const ServicePtr service = co_await connected(m_connection, deadline);
    const AttributeTable attributes = attributeTable(m_service, m_account);
    const ItemList items = co_await findItems(service.get(), attributes.get(), deadline);
    requireAllUnlocked(items.get());
    for (const GList* node = items.get(); node != nullptr; node = node->next) {
        co_await deleteItem(itemAt(node), deadline);
    }
}
