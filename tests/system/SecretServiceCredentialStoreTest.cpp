// The Secret Service store against the private gnome-keyring that with-keyring.sh starts, and the
// credential store contract it shares with the in-memory store the other tests rely on.

#include "system/SecretServiceCredentialStore.h"

#include "support/AsyncTest.h"
#include "support/InMemoryCredentialStore.h"
#include "system/KeychainStoreError.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QProcess>
#include <QTemporaryDir>

#include <csignal>
#include <gtest/gtest.h>

namespace {

const QString service = "com.keldor.vantrel";
const QString account = "tracker-api-key";

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

    // Ends the keyring daemon the way a crash or a session restart would; its items stay on disk.
    static void stopDaemon() {
        QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
        const uint pid = bus->servicePid("org.freedesktop.secrets");
        ASSERT_NE(pid, 0u);
        ASSERT_EQ(::kill(static_cast<pid_t>(pid), SIGTERM), 0);
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
    EXPECT_EQ(store.loadAPIKey(), std::nullopt);
    EXPECT_NO_THROW(store.deleteAPIKey()) << "a missing item is no error";

    const QByteArray trimmed = "schl\xc3\xbcssel mit \xe2\x82\xac";
    store.saveAPIKey("\t\r\n schl\u00fcssel mit \u20ac\u00a0\u2028\n");
    EXPECT_EQ(storedBytes(), trimmed);
    EXPECT_EQ(store.loadAPIKey(), QString::fromUtf8(trimmed));
    for (const QString& blank : {QString(), QString("\n\t \r\n")}) {
        EXPECT_EQ(errorOf([&] { store.saveAPIKey(blank); }),
                  KeychainStoreError::invalidCredential());
        EXPECT_EQ(storedBytes(), trimmed);
    }

    store.saveAPIKey("second-key");
    EXPECT_EQ(store.loadAPIKey(), "second-key");
    EXPECT_EQ(itemCount(), 1);
    store.deleteAPIKey();
    EXPECT_EQ(store.loadAPIKey(), std::nullopt);
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
    EXPECT_EQ(store.loadAPIKey(), " key from elsewhere\n");

    store.saveAPIKey("new-key");
    EXPECT_EQ(keyring.itemCount(), 1);
    store.deleteAPIKey();
    EXPECT_EQ(keyring.itemCount(), 0);
    EXPECT_EQ(otherAccount.lookup(), "other-key");
}

TEST_F(SecretServiceStore, StoredBytesThatAreNotUtf8FailToLoadAndStayAsTheyAre) {
    for (const QByteArray bytes : {"\xff\xfe", "ab\xc0\x80", "\xed\xa0\x80", "key\xe2\x82"}) {
        SCOPED_TRACE(bytes.toHex().toStdString());
        keyring.storeForeign(bytes);
        EXPECT_EQ(errorOf([&] { store.loadAPIKey(); }), KeychainStoreError::invalidStoredData());
        EXPECT_EQ(keyring.lookup(), bytes);
    }
}

// A locked keyring must never pass for a missing key: the application would take the user for
// signed out. Without a prompter on the private bus the unlock attempt is dismissed at once.
TEST_F(SecretServiceStore, LockedCollectionIsAnErrorForEveryOperation) {
    keyring.storeForeign("locked-away");
    TestKeyring::setDefaultCollectionLocked(true);
    const std::function<void()> operations[] = {[&] { store.loadAPIKey(); },
                                                [&] { store.saveAPIKey("new-key"); },
                                                [&] { store.deleteAPIKey(); }};
    for (const auto& operation : operations) {
        EXPECT_EQ(errorOf(operation), KeychainStoreError::locked());
    }
    TestKeyring::setDefaultCollectionLocked(false);
    EXPECT_EQ(keyring.itemCount(), 1);
    EXPECT_EQ(keyring.lookup(), "locked-away");
}

// The store object lives on, as it does in a running application, while the daemon goes away and
// comes back: in between every operation says so in words, afterwards all work again.
TEST_F(SecretServiceStore, RecoversWhenTheServiceRestartsUnderIt) {
    store.saveAPIKey("before-restart");
    TestKeyring::stopDaemon();
    const std::function<void()> operations[] = {[&] { store.loadAPIKey(); },
                                                [&] { store.saveAPIKey("new-key"); },
                                                [&] { store.deleteAPIKey(); }};
    for (const auto& operation : operations) {
        EXPECT_EQ(errorOf(operation), KeychainStoreError::unreachable());
    }

    TestKeyring::startDaemon();
    EXPECT_EQ(store.loadAPIKey(), "before-restart");
    store.saveAPIKey("after-restart");
    EXPECT_EQ(store.loadAPIKey(), "after-restart");
    EXPECT_EQ(keyring.lookup(), "after-restart");
}

// Without any session bus the failure must still say what is wrong, not report a bare status.
// The check runs in a child process, since this one is already connected to the private bus.
TEST(SecretServiceStoreWithoutBus, SaysNoSecretServiceCouldBeReached) {
    if (qEnvironmentVariableIsSet("VANTREL_TEST_WITHOUT_BUS")) {
        SecretServiceCredentialStore store(service, account);
        EXPECT_EQ(errorOf([&] { store.loadAPIKey(); }), KeychainStoreError::unreachable());
        EXPECT_EQ(errorOf([&] { store.saveAPIKey("key"); }), KeychainStoreError::unreachable());
        EXPECT_EQ(errorOf([&] { store.deleteAPIKey(); }), KeychainStoreError::unreachable());
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
