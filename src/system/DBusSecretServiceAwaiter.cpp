#include "system/DBusSecretServiceAwaiter.h"

#include <QCoroDBus>
#include <QCoroSignal>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QElapsedTimer>

namespace {

const QString secretsName = QStringLiteral("org.freedesktop.secrets");
// The bus daemon answers at once; this only keeps a wedged bus from holding start-up.
constexpr int busCallTimeoutMs = 5000;

// The bus's answer to one of its own methods, or an invalid variant when it gave none in time.
QCoro::Task<QVariant> askBus(QDBusConnection bus, QString method, QVariantList arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), method);
    call.setArguments(arguments);
    const QDBusMessage reply = co_await bus.asyncCall(call, busCallTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        co_return QVariant();
    }
    co_return reply.arguments().constFirst();
}

} // namespace

DBusSecretServiceAwaiter::DBusSecretServiceAwaiter(QDBusConnection bus,
                                                   std::chrono::milliseconds limit)
    : m_bus(std::move(bus))
    , m_limit(limit) {}

QCoro::Task<void> DBusSecretServiceAwaiter::awaitSecretService() {
    if (!m_bus.isConnected()) {
        co_return; // without a bus no wait helps; the store says so in words
    }
    QElapsedTimer elapsed;
    elapsed.start();
    // Watching starts before asking, so that an owner arriving in between is not missed.
    QDBusServiceWatcher watcher(secretsName, m_bus, QDBusServiceWatcher::WatchForRegistration);
    bool appeared = false;
    QObject::connect(&watcher, &QDBusServiceWatcher::serviceRegistered, &watcher,
                     [&appeared] { appeared = true; });

    // A bus that does not answer is not waited for either: the store will say what is wrong.
    QVariantList name;
    name.append(secretsName);
    const QVariant owned = co_await askBus(m_bus, QStringLiteral("NameHasOwner"), name);
    if (owned.typeId() != QMetaType::Bool || owned.toBool()) {
        co_return;
    }
    const QVariant activatable =
        co_await askBus(m_bus, QStringLiteral("ListActivatableNames"), QVariantList());
    if (!activatable.isValid() || activatable.toStringList().contains(secretsName)) {
        co_return;
    }
    const auto remaining = m_limit - std::chrono::milliseconds(elapsed.elapsed());
    if (appeared || remaining <= std::chrono::milliseconds::zero()) {
        co_return;
    }
    co_await qCoro(&watcher, &QDBusServiceWatcher::serviceRegistered, remaining);
}
