// The Secret Service store against the private gnome-keyring that with-keyring.sh starts, and the
// credential store contract it shares with the in-memory store the other tests rely on.

#include "system/SecretServiceCredentialStore.h"

#include "core/CancellationError.h"
#include "core/TaskHandle.h"
#include "support/AsyncTest.h"
#include "support/InMemoryCredentialStore.h"
#include "system/DBusSecretServiceAwaiter.h"
#include "system/KeychainStoreError.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <csignal>
#include <gtest/gtest.h>

namespace {

const QString service = "com.keldor.vantrel";
const QString account = "tracker-api-key";

using namespace std::chrono_literals;

std::optional<QString> load(CredentialStoring& store) {
    return AsyncTest::run(store.loadAPIKey(CancellationToken()));
}
void save(CredentialStoring& store, const QString& key) {
    AsyncTest::run(store.saveAPIKey(key, CancellationToken()));
}
void remove(CredentialStoring& store) {
    AsyncTest::run(store.deleteAPIKey(CancellationToken()));
}
std::vector<std::function<void()>> everyOperation(CredentialStoring& store) {
    return {[&] { load(store); }, [&] { save(store, "new-key"); }, [&] { remove(store); }};
}

std::optional<KeychainStoreError> errorOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const KeychainStoreError& error) {
        return error;
    }
    return std::nullopt;
}

QDBusMessage callKeyring(const QString& interface, const QString& method,
                         const QVariantList& arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        "org.freedesktop.secrets", "/org/freedesktop/secrets", interface, method);
    call.setArguments(arguments);
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        throw std::runtime_error(method.toStdString() + ": " + reply.errorMessage().toStdString());
    }
    return reply;
}

// The keyring's items seen through secret-tool and its lock through D-Bus, never through the store
// under test, so a store bug cannot hide behind the same bug in the check. Starts empty.
class TestKeyring {
public:
    explicit TestKeyring(QString accountName = account)
        : m_account(std::move(accountName)) {
        // Outside the private keyring these tests would clear the developer's own key.
        if (qEnvironmentVariableIsEmpty("VANTREL_TEST_KEYRING_PASSWORD")) {
            throw std::runtime_error("run under tests/scripts/with-keyring.sh");
        }
        tool({"clear"});
    }

    qsizetype itemCount() const {
        return ("\n" + tool({"search", "--all"}).value_or("")).count("\n[");
    }
    std::optional<QByteArray> lookup() const { return tool({"lookup"}); }
    // Created the way another client would: no schema name, possibly extra attributes.
    void storeForeign(const QByteArray& secret, const QStringList& extra = {}) const {
        ASSERT_TRUE(tool({"store", "--label=Another client's item"}, secret, extra));
    }

    static void setDefaultCollectionLocked(bool locked) {
        const QString secretService = "org.freedesktop.Secret.Service";
        const QVariant collection =
            QVariant::fromValue(QDBusObjectPath("/org/freedesktop/secrets/aliases/default"));
        if (locked) {
            callKeyring(secretService, "Lock",
                        {QVariant::fromValue(QList{collection.value<QDBusObjectPath>()})});
            return;
        }
        // A plain session carries the password unencrypted, which is fine on a private bus.
        const QDBusMessage opened = callKeyring(
            secretService, "OpenSession", {"plain", QVariant::fromValue(QDBusVariant(QString()))});
        QDBusArgument secret;
        secret.beginStructure();
        secret << opened.arguments()[1].value<QDBusObjectPath>() << QByteArray()
               << qgetenv("VANTREL_TEST_KEYRING_PASSWORD") << QString("text/plain");
        secret.endStructure();
        callKeyring("org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface",
                    "UnlockWithMasterPassword", {collection, QVariant::fromValue(secret)});
    }

    // Sends the keyring daemon `signal`; true when it could.
    static bool signalDaemon(int signal) {
        const uint pid =
            QDBusConnection::sessionBus().interface()->servicePid("org.freedesktop.secrets");
        return pid != 0 && ::kill(static_cast<pid_t>(pid), signal) == 0;
    }

    // Ends the keyring daemon the way a crash or a session restart would; its items stay on disk.
    static void stopDaemon() {
        QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
        ASSERT_TRUE(signalDaemon(SIGTERM));
        ASSERT_TRUE(AsyncTest::waitUntil(
            [&] { return !bus->isServiceRegistered("org.freedesktop.secrets").value(); }));
    }

    // A new daemon on the same keyring files, unlocked with the same password. It outlives this
    // process; with-keyring.sh ends whichever daemon owns the name when the tests are done.
    static void startDaemon() {
        ASSERT_TRUE(QProcess::startDetached(
            "sh", {"-c", "printf %s \"$VANTREL_TEST_KEYRING_PASSWORD\" | exec "
                         "gnome-keyring-daemon --foreground --unlock --components=secrets "
                         ">/dev/null 2>&1"}));
        QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
        ASSERT_TRUE(AsyncTest::waitUntil(
            [&] { return bus->isServiceRegistered("org.freedesktop.secrets").value(); }));
    }

private:
    // secret-tool's output, or nothing when it fails.
    std::optional<QByteArray> tool(QStringList arguments, const QByteArray& input = {},
                                   const QStringList& extra = {}) const {
        QProcess process;
        process.start("secret-tool",
                      arguments << "service" << service << "account" << m_account << extra);
        process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(30000) || process.exitCode() != 0) {
            return std::nullopt;
        }
        return process.readAllStandardOutput();
    }

    QString m_account;
};

// The contract both stores keep, so that tests relying on the in-memory one can trust it.
// `storedBytes` and `itemCount` look at what the store left behind without going through it.
void expectCredentialStoreContract(CredentialStoring& store,
                                   const std::function<std::optional<QByteArray>()>& storedBytes,
                                   const std::function<qsizetype()>& itemCount) {
    EXPECT_EQ(load(store), std::nullopt);
    EXPECT_NO_THROW(remove(store)) << "a missing item is no error";

    const QByteArray trimmed = "schl\xc3\xbcssel mit \xe2\x82\xac";
    save(store, "\t\r\n schl\u00fcssel mit \u20ac\u00a0\u2028\n");
    EXPECT_EQ(storedBytes(), trimmed);
    EXPECT_EQ(load(store), QString::fromUtf8(trimmed));
    for (const QString& blank : {QString(), QString("\n\t \r\n")}) {
        EXPECT_EQ(errorOf([&] { save(store, blank); }), KeychainStoreError::invalidCredential());
        EXPECT_EQ(storedBytes(), trimmed);
    }

    save(store, "second-key");
    EXPECT_EQ(load(store), "second-key");
    EXPECT_EQ(itemCount(), 1);
    remove(store);
    EXPECT_EQ(load(store), std::nullopt);
    EXPECT_EQ(itemCount(), 0);
}

TEST(InMemoryCredentialStore, KeepsTheCredentialStoreContract) {
    InMemoryCredentialStore store;
    expectCredentialStoreContract(
        store, [&] { return store.stored ? std::optional(store.stored->toUtf8()) : std::nullopt; },
        [&] { return store.stored ? 1 : 0; });
}

class SecretServiceStore : public testing::Test {
protected:
    TestKeyring keyring;
    SecretServiceCredentialStore store{service, account};
};

TEST_F(SecretServiceStore, KeepsTheCredentialStoreContract) {
    expectCredentialStoreContract(
        store, [&] { return keyring.lookup(); }, [&] { return keyring.itemCount(); });
}

TEST_F(SecretServiceStore, SharesItemsWithOtherClientsAndLeavesNoDuplicateBehind) {
    const TestKeyring otherAccount("other-account");
    otherAccount.storeForeign("other-key");
    keyring.storeForeign(" key from elsewhere\n", {"origin", "older-release"});
    EXPECT_EQ(load(store), " key from elsewhere\n");

    save(store, "new-key");
    EXPECT_EQ(keyring.itemCount(), 1);
    remove(store);
    EXPECT_EQ(keyring.itemCount(), 0);
    EXPECT_EQ(otherAccount.lookup(), "other-key");
}

TEST_F(SecretServiceStore, StoredBytesThatAreNotUtf8FailToLoadAndStayAsTheyAre) {
    for (const QByteArray bytes : {"\xff\xfe", "ab\xc0\x80", "\xed\xa0\x80", "key\xe2\x82"}) {
        SCOPED_TRACE(bytes.toHex().toStdString());
        keyring.storeForeign(bytes);
        EXPECT_EQ(errorOf([&] { load(store); }), KeychainStoreError::invalidStoredData());
        EXPECT_EQ(keyring.lookup(), bytes);
    }
}

// A locked keyring must never pass for a missing key: the application would take the user for
// signed out. Without a prompter on the private bus the unlock attempt is dismissed at once.
TEST_F(SecretServiceStore, LockedCollectionIsAnErrorForEveryOperation) {
    keyring.storeForeign("locked-away");
    TestKeyring::setDefaultCollectionLocked(true);
    for (const auto& operation : everyOperation(store)) {
        EXPECT_EQ(errorOf(operation), KeychainStoreError::locked());
    }
    TestKeyring::setDefaultCollectionLocked(false);
    EXPECT_EQ(keyring.itemCount(), 1);
    EXPECT_EQ(keyring.lookup(), "locked-away");
}

// The store object lives on, as it does in a running application, while the daemon goes away and
// comes back: in between every operation says so in words, afterwards all work again.
TEST_F(SecretServiceStore, RecoversWhenTheServiceRestartsUnderIt) {
    save(store, "before-restart");
    TestKeyring::stopDaemon();
    for (const auto& operation : everyOperation(store)) {
        EXPECT_EQ(errorOf(operation), KeychainStoreError::unreachable());
    }

    TestKeyring::startDaemon();
    EXPECT_EQ(load(store), "before-restart");
    save(store, "after-restart");
    EXPECT_EQ(load(store), "after-restart");
    EXPECT_EQ(keyring.lookup(), "after-restart");
}

// A daemon that is there but answers nothing (stopped, hung): every operation gives up within
// its bound while the event loop keeps turning, and the store works again once the daemon does.
TEST_F(SecretServiceStore, GivesUpOnAStoppedDaemonWithinTheBound) {
    save(store, "before-stop");
    SecretServiceCredentialStore bounded(service, account, 300ms);
    ASSERT_TRUE(TestKeyring::signalDaemon(SIGSTOP));
    int ticks = 0;
    QTimer ticker;
    ticker.callOnTimeout([&] { ++ticks; });
    ticker.start(10ms);
    for (const auto& operation : everyOperation(bounded)) {
        ticks = 0;
        QElapsedTimer elapsed;
        elapsed.start();
        EXPECT_EQ(errorOf(operation), KeychainStoreError::unreachable());
        EXPECT_LT(elapsed.elapsed(), AsyncTest::scaled(2s).count());
        EXPECT_GE(ticks, 10) << "the event loop stood still";
    }
    // Whoever started an operation can end it long before the bound: sign-out and quit do.
    SecretServiceCredentialStore patient(service, account, 60s);
    TaskHandle task;
    QTimer::singleShot(50ms, [&task] { task.cancel(); });
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_THROW(AsyncTest::run(patient.loadAPIKey(task.token())), CancellationError);
    EXPECT_LT(elapsed.elapsed(), AsyncTest::scaled(2s).count());
    ASSERT_TRUE(TestKeyring::signalDaemon(SIGCONT));
    EXPECT_EQ(load(bounded), "before-stop");
}

// At login the keyring may come after us: the wait ends when it appears and the key is read;
// for a keyring that never comes the wait ends at its limit.
TEST_F(SecretServiceStore, StartUpWaitsForAKeyringThatComesLate) {
    save(store, "stored-before");
    TestKeyring::stopDaemon();
    QElapsedTimer elapsed;
    elapsed.start();
    AsyncTest::run(
        DBusSecretServiceAwaiter(QDBusConnection::sessionBus(), 300ms).awaitSecretService());
    EXPECT_GE(elapsed.elapsed(), 250) << "Qt's coarse timers may end a little early";

    QTimer::singleShot(200ms, [] { TestKeyring::startDaemon(); });
    AsyncTest::run(DBusSecretServiceAwaiter(QDBusConnection::sessionBus()).awaitSecretService());
    EXPECT_EQ(load(store), "stored-before");
    AsyncTest::run(DBusSecretServiceAwaiter(QDBusConnection::sessionBus(), 1h).awaitSecretService(),
                   1s);
}

// Without any session bus the failure must still say what is wrong, not report a bare status.
// The check runs in a child process, since this one is already connected to the private bus.
TEST(SecretServiceStoreWithoutBus, SaysNoSecretServiceCouldBeReached) {
    if (qEnvironmentVariableIsSet("VANTREL_TEST_WITHOUT_BUS")) {
        SecretServiceCredentialStore store(service, account);
        for (const auto& operation : everyOperation(store)) {
            EXPECT_EQ(errorOf(operation), KeychainStoreError::unreachable());
        }
        return;
    }
    QTemporaryDir runtime; // no "bus" socket inside, which GLib would otherwise fall back to
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DBUS_SESSION_BUS_ADDRESS", "DISPLAY", "WAYLAND_DISPLAY"}) {
        environment.remove(name);
    }
    environment.insert("XDG_RUNTIME_DIR", runtime.path());
    environment.insert("VANTREL_TEST_WITHOUT_BUS", "1");
    QProcess child;
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedChannels);
    child.start(QCoreApplication::applicationFilePath(),
                {"--gtest_filter=SecretServiceStoreWithoutBus.*"});
    ASSERT_TRUE(child.waitForFinished(30000));
    EXPECT_EQ(child.exitCode(), 0);
}

} // namespace
