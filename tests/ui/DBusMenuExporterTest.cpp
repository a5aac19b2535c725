#include "ui/DBusMenuExporter.h"

#include "PanelTestSupport.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCall>

#include <gtest/gtest.h>

namespace {

// A tray host on its own connection: what it hears of the menu's changes.
class MenuHost : public QObject {
    Q_OBJECT
public:
    explicit MenuHost(const QString& service)
        : bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, "menu-host")) {
        for (const char* signal : {"LayoutUpdated", "ItemsPropertiesUpdated"}) {
            bus.connect(service, "/MenuBar", DBusMenuExporter::interfaceName, signal, this,
                        SLOT(heard(QDBusMessage)));
        }
    }
    ~MenuHost() override { QDBusConnection::disconnectFromBus("menu-host"); }

    QDBusConnection bus;
    QList<QDBusMessage> signals;

public Q_SLOTS:
    void heard(const QDBusMessage& message) { signals.append(message); }
};

// The labels of the entries an ItemsPropertiesUpdated names.
QStringList labelsIn(const QDBusMessage& message) {
    QStringList labels;
    const auto changed = message.arguments().value(0).value<QDBusArgument>();
    changed.beginArray();
    while (!changed.atEnd()) {
        int id = 0;
        QVariantMap properties;
        changed.beginStructure();
        changed >> id >> properties;
        changed.endStructure();
        labels.append(properties.value("label").toString());
    }
    changed.endArray();
    return labels;
}

// Hosts keep a shown menu current from these signals alone: a new layout when entries come or
// go, and new properties of just the entries whose text changed, as the countdown's every second.
TEST(DBusMenuExporter, tellsAHostOfANewLayoutAndOfEachChangedEntry) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    ASSERT_TRUE(bus.isConnected()) << "runs inside dbus-run-session";
    PanelFixture fixture;
    TrayMenuPresenter menu(*fixture.presenter, fixture.ticker());
    DBusMenuExporter exporter(menu, bus, "/MenuBar");
    ASSERT_TRUE(bus.registerVirtualObject("/MenuBar", &exporter));
    MenuHost host(bus.baseService());

    fixture.beginSignInWithCode();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return !host.signals.isEmpty(); }));
    AsyncTest::spin(std::chrono::milliseconds(50));
    EXPECT_TRUE(std::any_of(host.signals.cbegin(), host.signals.cend(), [](const auto& signal) {
        return signal.member() == "LayoutUpdated";
    })) << "the code and its actions came";

    host.signals.clear();
    fixture.now = fixture.now.addSecs(1);
    fixture.tickers.at(2)->fire();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return !host.signals.isEmpty(); }));
    AsyncTest::spin(std::chrono::milliseconds(50));
    ASSERT_EQ(host.signals.size(), 1);
    EXPECT_EQ(host.signals[0].member(), "ItemsPropertiesUpdated");
    EXPECT_EQ(labelsIn(host.signals[0]), QStringList{"Expires in 14:59"});

    // A call the menu does not know is refused at once, not left to the host's timeout.
    const QDBusPendingCall unknown = host.bus.asyncCall(
        QDBusMessage::createMethodCall(bus.baseService(), "/MenuBar",
                                       DBusMenuExporter::interfaceName, "Rearrange"),
        2000);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return unknown.isFinished(); }));
    EXPECT_TRUE(unknown.isError());
    EXPECT_NE(unknown.error().type(), QDBusError::NoReply);
    bus.unregisterObject("/MenuBar");
}

} // namespace

#include "DBusMenuExporterTest.moc"
