#include "system/NetworkManagerReturnWatcher.h"

#include "support/AsyncTest.h"
#include "support/TableRows.h"

#include <QDBusConnection>
#include <QDBusMessage>

#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace {

using ::PrintTo;

const QString service = "org.freedesktop.NetworkManager";
const QString path = "/org/freedesktop/NetworkManager";

// NetworkManager as the watcher meets it on the bus: a name of its own, the State property and
// the StateChanged signal, sent from a connection of its own.
class StandInNetworkManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.NetworkManager")
    Q_PROPERTY(uint State READ state)

public:
    explicit StandInNetworkManager(uint state)
        : m_state(state) {}
    ~StandInNetworkManager() override { QDBusConnection::disconnectFromBus("network-manager"); }

    uint state() {
        ++reads;
        return m_state;
    }
    // The previous case's stand-in may still hold the name for a moment.
    bool run() {
        bus.registerObject(path, this, QDBusConnection::ExportAllProperties);
        return AsyncTest::waitUntil([this] { return bus.registerService(service); });
    }
    // Signals of one sender arrive in order, so the changes are framed by markers: the first
    // heard shows that `watched` knows the name's new owner (it drops signals until then), the
    // last that every change before it has arrived.
    bool announce(const std::vector<uint>& states, QDBusConnection& watched) {
        watched.connect(service, path, service, "Marker", this, SLOT(heard()));
        if (!marked()) {
            return false;
        }
        for (const uint state : states) {
            bus.send(QDBusMessage::createSignal(path, service, "StateChanged") << state);
        }
        return marked();
    }

    QDBusConnection bus =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, "network-manager");
    int reads = 0;

public Q_SLOTS:
    void heard() { ++m_markers; }

private:
    bool marked() {
        const int before = m_markers;
        return AsyncTest::waitUntil([this, before] {
            bus.send(QDBusMessage::createSignal(path, service, "Marker"));
            AsyncTest::spin(std::chrono::milliseconds(10));
            return m_markers > before;
        });
    }

    uint m_state;
    int m_markers = 0;
};

struct ReturnRow {
    const char* name;
    std::optional<uint> atStart; // none: NetworkManager comes after the watcher
    std::vector<uint> changes;
    int returns;
};

class NetworkReturn : public ::testing::TestWithParam<ReturnRow> {};

TEST_P(NetworkReturn, isAMoveToFullConnectivityFromAKnownStateShortOfIt) {
    QDBusConnection watched = QDBusConnection::sessionBus();
    ASSERT_TRUE(watched.isConnected()) << "runs inside dbus-run-session";
    StandInNetworkManager manager(GetParam().atStart.value_or(20));
    if (GetParam().atStart) {
        ASSERT_TRUE(manager.run());
    }
    NetworkManagerReturnWatcher watcher(watched);
    int returns = 0;
    QObject::connect(&watcher, &NetworkReturnWatching::returned, [&returns] { ++returns; });
    if (GetParam().atStart) {
        ASSERT_TRUE(AsyncTest::waitUntil([&manager] { return manager.reads == 1; }));
    } else {
        ASSERT_TRUE(manager.run());
    }
    ASSERT_TRUE(manager.announce(GetParam().changes, watched));
    EXPECT_EQ(returns, GetParam().returns);
}

INSTANTIATE_TEST_SUITE_P(
    States, NetworkReturn,
    ::testing::Values(ReturnRow{"fromDisconnectedAtStart", 20, {70}, 1},
                      ReturnRow{"eachTimeItComesBack", 20, {40, 70, 20, 50, 70}, 2},
                      ReturnRow{"notWhileStayingConnected", 70, {70, 60, 70}, 1},
                      ReturnRow{"notFromNetworkManagersUnknown", 0, {70, 20}, 0},
                      ReturnRow{"notOnTheFirstStateSeenLate", std::nullopt, {70}, 0},
                      ReturnRow{"afterAStateSeenLate", std::nullopt, {40, 70}, 1}),
    rowName);

} // namespace

#include "NetworkManagerReturnWatcherTest.moc"
