// The Secret Service store against the private gnome-keyring that with-keyring.sh starts, and the
// credential store contract it shares with the in-memory store the other tests rely on.

#include "system/SecretServiceCredentialStore.h"

#include "support/InMemoryCredentialStore.h"
#include "system/KeychainStoreError.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QElapsedTimer>
#include <QProcess>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
        bool ok = false;
        tool({"clear"}, {}, &ok);
    }

    // The secret of every matching item; secret-tool leaves out secrets that are not text.
    QList<QByteArray> secrets() const {
        QList<QByteArray> result;
        for (const QByteArray& line : tool({"search", "--all"}).split('\n')) {
            if (line.startsWith('[')) {
                result.append(QByteArray());
            } else if (line.startsWith("secret = ") && !result.isEmpty()) {
                result.last() = line.mid(9);
            }
        }
        return result;
    }
    std::optional<QByteArray> lookup() const {
        bool ok = false;
        const QByteArray secret = tool({"lookup"}, {}, &ok);
        return ok ? std::optional(secret) : std::nullopt;
    }
    // Created the way another client would: no schema name, possibly extra attributes.
    void storeForeign(const QByteArray& secret, const QStringList& extra = {}) const {
        tool(QStringList{"store", "--label=Another client's item"}, secret, nullptr, extra);
    }

    static void setDefaultCollectionLocked(bool locked) {
        const QString secretService = "org.freedesktop.Secret.Service";
        const QVariant collection =
            callKeyring(secretService, "ReadAlias", {"default"}).arguments()[0];
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

private:
    // Throws when secret-tool fails, unless `ok` is there to take the outcome.
    QByteArray tool(QStringList arguments, const QByteArray& input = {}, bool* ok = nullptr,
                    const QStringList& extra = {}) const {
        QProcess process;
        process.start("secret-tool",
                      arguments << "service" << service << "account" << m_account << extra);
        process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit) {
            throw std::runtime_error("secret-tool did not finish");
        }
        if (ok != nullptr) {
            *ok = process.exitCode() == 0;
        } else if (process.exitCode() != 0) {
            throw std::runtime_error("secret-tool " + arguments.join(' ').toStdString() +
                                     " failed: " + process.readAllStandardError().toStdString());
        }
        return process.readAllStandardOutput();
    }

    QString m_account;
};

// ---- The contract, held by both stores -----------------------------------------------------

struct InMemoryBackend {
    InMemoryCredentialStore store;
    std::optional<QByteArray> storedBytes() const {
        return store.stored ? std::optional(store.stored->toUtf8()) : std::nullopt;
    }
    int itemCount() const { return store.stored ? 1 : 0; }
};

struct SecretServiceBackend {
    TestKeyring keyring;
    SecretServiceCredentialStore store{service, account};
    std::optional<QByteArray> storedBytes() const { return keyring.lookup(); }
    int itemCount() const { return int(keyring.secrets().size()); }
};

template <typename Backend>
class CredentialStoreContract : public testing::Test {
protected:
    Backend backend;
    CredentialStoring& store = backend.store;
};

struct BackendNames {
    template <typename Backend>
    static std::string GetName(int) {
        return std::is_same_v<Backend, InMemoryBackend> ? "InMemory" : "SecretService";
    }
};

using Backends = testing::Types<InMemoryBackend, SecretServiceBackend>;
TYPED_TEST_SUITE(CredentialStoreContract, Backends, BackendNames);

TYPED_TEST(CredentialStoreContract, StoresTheTrimmedKeyAsUtf8AndLoadsItBack) {
    this->store.saveAPIKey("\t\r\n schl\u00fcssel mit \u20ac\u00a0\u2028\n");
    EXPECT_EQ(this->backend.storedBytes(), "schl\xc3\xbcssel mit \xe2\x82\xac");
    EXPECT_EQ(this->store.loadAPIKey(), "schl\u00fcssel mit \u20ac");
}

TYPED_TEST(CredentialStoreContract, RejectsABlankKeyAndKeepsTheStoredOne) {
    this->store.saveAPIKey("existing-key");
    for (const QString& blank : {QString(), QString("\n\t \r\n")}) {
        EXPECT_EQ(errorOf([&] { this->store.saveAPIKey(blank); }),
                  KeychainStoreError::invalidCredential());
        EXPECT_EQ(this->backend.storedBytes(), "existing-key");
    }
}

TYPED_TEST(CredentialStoreContract, SecondSaveReplacesTheOneItemAndDeleteRemovesIt) {
    this->store.saveAPIKey("first-key");
    this->store.saveAPIKey("second-key");
    EXPECT_EQ(this->store.loadAPIKey(), "second-key");
    EXPECT_EQ(this->backend.itemCount(), 1);
    this->store.deleteAPIKey();
    EXPECT_EQ(this->store.loadAPIKey(), std::nullopt);
    EXPECT_EQ(this->backend.itemCount(), 0);
}

TYPED_TEST(CredentialStoreContract, MissingItemIsNoErrorForLoadOrDelete) {
    EXPECT_EQ(this->store.loadAPIKey(), std::nullopt);
    EXPECT_NO_THROW(this->store.deleteAPIKey());
}

// ---- The Secret Service alone --------------------------------------------------------------

class SecretServiceStore : public testing::Test {
protected:
    TestKeyring keyring;
    SecretServiceCredentialStore store{service, account};
};

TEST_F(SecretServiceStore, SharesItemsWithOtherClientsAndLeavesNoDuplicateBehind) {
    const TestKeyring otherAccount("other-account");
    otherAccount.storeForeign("other-key");
    keyring.storeForeign(" key from elsewhere\n");
    EXPECT_EQ(store.loadAPIKey(), " key from elsewhere\n");

    keyring.storeForeign("stale", {"origin", "older-release"});
    store.saveAPIKey("new-key");
    EXPECT_THAT(keyring.secrets(), ElementsAre("new-key"));
    keyring.storeForeign("stale-again", {"origin", "older-release"});
    store.deleteAPIKey();
    EXPECT_THAT(keyring.secrets(), IsEmpty());
    EXPECT_THAT(otherAccount.secrets(), ElementsAre("other-key"));
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
        QElapsedTimer clock;
        clock.start();
        EXPECT_EQ(errorOf(operation), KeychainStoreError::unexpectedStatus(2));
        EXPECT_LT(clock.elapsed(), 5000) << "the unlock prompt should fail at once";
    }
    TestKeyring::setDefaultCollectionLocked(false);
    EXPECT_THAT(keyring.secrets(), ElementsAre("locked-away"));
}

// The child process sees no session bus at all, as on a machine without a desktop session.
[[noreturn]] void loadWithoutSessionBus() {
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/vantrel-test-bus");
    try {
        SecretServiceCredentialStore(service, account).loadAPIKey();
    } catch (const KeychainStoreError& error) {
        std::fprintf(stderr, "%s\n", qPrintable(error.description()));
        std::exit(error.code() == KeychainStoreError::Code::unexpectedStatus ? 0 : 1);
    }
    std::exit(1);
}

TEST(SecretServiceWithoutService, FailsInsteadOfReportingNoKey) {
    // A fresh process, so that no connection made by earlier tests is reused.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(loadWithoutSessionBus(), testing::ExitedWithCode(0),
                "^Keychain operation failed with status -?[0-9]+\\.\n$");
}

} // namespace
