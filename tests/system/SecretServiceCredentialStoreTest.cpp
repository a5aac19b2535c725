// The Secret Service store against the private gnome-keyring that with-keyring.sh starts.

#include "system/SecretServiceCredentialStore.h"

#include "core/CancellationError.h"
#include "core/TaskHandle.h"
#include "support/AsyncTest.h"
#include "system/DBusSecretServiceAwaiter.h"
#include "system/KeychainStoreError.h"

#include <QCoreApplication>
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
using AsyncTest::failureOf;
using Errors = QList<std::optional<KeychainStoreError>>;

std::optional<QString> load(CredentialStoring& store) {
    return AsyncTest::run(store.loadAPIKey(CancellationToken()));
}
void save(CredentialStoring& store, const QString& key) {
    AsyncTest::run(store.saveAPIKey(key, CancellationToken()));
}
void remove(CredentialStoring& store) {
    AsyncTest::run(store.deleteAPIKey(CancellationToken()));
}

// What load, save and delete each fail with, one after the other.
Errors errorsOfEveryOperation(CredentialStoring& store) {
    return {failureOf<KeychainStoreError>(store.loadAPIKey({})),
            failureOf<KeychainStoreError>(store.saveAPIKey("new-key", {})),
            failureOf<KeychainStoreError>(store.deleteAPIKey({}))};
}

bool secretServiceOnBus() {
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(
        "org.freedesktop.secrets");
}

// The keyring's items seen through secret-tool and its daemon through D-Bus, never through the
// store under test, so a store bug cannot hide behind the same bug in the check. Starts empty.
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

    // Sends the keyring daemon `signal`; true when it could.
    static bool signalDaemon(int signal) {
        const uint pid =
            QDBusConnection::sessionBus().interface()->servicePid("org.freedesktop.secrets");
        return pid != 0 && ::kill(static_cast<pid_t>(pid), signal) == 0;
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

class SecretServiceStore : public testing::Test {
protected:
    TestKeyring keyring;
    SecretServiceCredentialStore store{service, account};
};

// An item another client stored under the same attributes is the same credential: it is read
// as stored, updated rather than shadowed, and a stale duplicate goes with the next save. Bytes
// that are not UTF-8 fail to load and stay as they are.
TEST_F(SecretServiceStore, KeepsOneTrimmedItemSharedWithOtherClients) {
    const TestKeyring otherAccount("other-account");
    otherAccount.storeForeign("other-key");
    EXPECT_EQ(load(store), std::nullopt);
    EXPECT_NO_THROW(remove(store)) << "a missing item is no error";
    keyring.storeForeign(" key from elsewhere\n", {"origin", "older-release"});
    EXPECT_EQ(load(store), " key from elsewhere\n");

    const QByteArray trimmed = "schl\xc3\xbcssel mit \xe2\x82\xac";
    save(store, "\t\r\n schl\u00fcssel mit \u20ac\u00a0\u2028\n");
    EXPECT_EQ(keyring.itemCount(), 1);
    EXPECT_EQ(keyring.lookup(), trimmed);
    EXPECT_EQ(failureOf<KeychainStoreError>(store.saveAPIKey("\n\t \r\n", {})),
              KeychainStoreError::invalidCredential());
    EXPECT_EQ(keyring.lookup(), trimmed);

    remove(store);
    EXPECT_EQ(keyring.itemCount(), 0);
    save(store, "second-key");
    keyring.storeForeign("stale", {"origin", "older-release"});
    ASSERT_EQ(keyring.itemCount(), 2);
    save(store, "third-key");
    EXPECT_EQ(keyring.itemCount(), 1);
    EXPECT_EQ(load(store), "third-key");
    EXPECT_EQ(otherAccount.lookup(), "other-key");

    remove(store);
    for (const QByteArray bytes : {"\xff\xfe", "ab\xc0\x80", "\xed\xa0\x80", "key\xe2\x82"}) {
        SCOPED_TRACE(bytes.toHex().toStdString());
        keyring.storeForeign(bytes);
        EXPECT_EQ(failureOf<KeychainStoreError>(store.loadAPIKey({})),
                  KeychainStoreError::invalidStoredData());
        EXPECT_EQ(keyring.lookup(), bytes);
    }
}

// The store object lives on, as it does in a running application, while the keyring stops
// answering, is locked (which must never pass for a missing key: the user would look signed out),
// and goes away and comes back. A daemon that is there but answers nothing (stopped, hung): every
// operation gives up within its bound while the event loop keeps turning. Without a prompter on
// the private bus an unlock is dismissed at once. At login the keyring may come after us: the wait
// for it ends when it appears, or at its limit.
TEST_F(SecretServiceStore, StoppedLockedOrAbsentKeyringIsAnErrorUntilItIsBack) {
    save(store, "before-stop");
    SecretServiceCredentialStore bounded(service, account, 300ms);
    ASSERT_TRUE(TestKeyring::signalDaemon(SIGSTOP));
    int ticks = 0;
    QTimer ticker;
    ticker.callOnTimeout([&] { ++ticks; });
    ticker.start(10ms);
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_EQ(errorsOfEveryOperation(bounded), Errors(3, KeychainStoreError::unreachable()));
    EXPECT_LT(elapsed.elapsed(), AsyncTest::scaled(3s).count());
    EXPECT_GE(ticks, 30) << "the event loop stood still";
    // Whoever started an operation can end it long before the bound: sign-out and quit do.
    SecretServiceCredentialStore patient(service, account, 60s);
    TaskHandle task;
    QTimer::singleShot(50ms, [&task] { task.cancel(); });
    elapsed.restart();
    EXPECT_THROW(AsyncTest::run(patient.loadAPIKey(task.token())), CancellationError);
    EXPECT_LT(elapsed.elapsed(), AsyncTest::scaled(2s).count());
    ASSERT_TRUE(TestKeyring::signalDaemon(SIGCONT));
    EXPECT_EQ(load(bounded), "before-stop");

    QDBusMessage lock =
        QDBusMessage::createMethodCall("org.freedesktop.secrets", "/org/freedesktop/secrets",
                                       "org.freedesktop.Secret.Service", "Lock");
    lock.setArguments(
        {QVariant::fromValue(QList{QDBusObjectPath("/org/freedesktop/secrets/aliases/default")})});
    ASSERT_EQ(QDBusConnection::sessionBus().call(lock).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(errorsOfEveryOperation(store), Errors(3, KeychainStoreError::locked()));
    // Ended the way a crash or a session restart would; its items stay on disk.
    ASSERT_TRUE(TestKeyring::signalDaemon(SIGTERM));
    ASSERT_TRUE(AsyncTest::waitUntil([] { return !secretServiceOnBus(); }));
    EXPECT_EQ(errorsOfEveryOperation(store), Errors(3, KeychainStoreError::unreachable()));
    elapsed.restart();
    AsyncTest::run(
        DBusSecretServiceAwaiter(QDBusConnection::sessionBus(), 300ms).awaitSecretService());
    EXPECT_GE(elapsed.elapsed(), 250) << "Qt's coarse timers may end a little early";
    // A new daemon on the same keyring files, unlocked with the same password. It outlives this
    // process; with-keyring.sh ends whichever daemon owns the name when the tests are done.
    QTimer::singleShot(200ms, [] {
        QProcess::startDetached("sh", {"-c", "printf %s \"$VANTREL_TEST_KEYRING_PASSWORD\" | exec "
                                             "gnome-keyring-daemon --foreground --unlock "
                                             "--components=secrets >/dev/null 2>&1"});
    });
    AsyncTest::run(DBusSecretServiceAwaiter(QDBusConnection::sessionBus()).awaitSecretService());
    EXPECT_TRUE(secretServiceOnBus());

    EXPECT_EQ(load(store), "before-stop");
    save(store, "after-restart");
    EXPECT_EQ(keyring.lookup(), "after-restart");
    AsyncTest::run(DBusSecretServiceAwaiter(QDBusConnection::sessionBus(), 1h).awaitSecretService(),
                   1s);
}

// Without any session bus the failure must still say what is wrong, not report a bare status.
// The check runs in a child process, since this one is already connected to the private bus.
TEST(SecretServiceStoreWithoutBus, SaysNoSecretServiceCouldBeReached) {
    if (qEnvironmentVariableIsSet("VANTREL_TEST_WITHOUT_BUS")) {
        SecretServiceCredentialStore store(service, account);
        EXPECT_EQ(errorsOfEveryOperation(store), Errors(3, KeychainStoreError::unreachable()));
        return;
    }
    // No "bus" socket in the runtime folder either, which GLib would otherwise fall back to.
    const QTemporaryDir runtime;
    EXPECT_EQ(QProcess::execute("env", {"-u", "DBUS_SESSION_BUS_ADDRESS", "-u", "DISPLAY", "-u",
                                        "WAYLAND_DISPLAY", "XDG_RUNTIME_DIR=" + runtime.path(),
                                        "VANTREL_TEST_WITHOUT_BUS=1",
                                        QCoreApplication::applicationFilePath(),
                                        "--gtest_filter=SecretServiceStoreWithoutBus.*"}),
              0);
}

} // namespace
