#include "system/SecretServiceCredentialStore.h"

#include "TestKeyring.h"
#include "system/KeychainStoreError.h"

#include <QElapsedTimer>

#include <cstdio>
#include <cstdlib>
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

class SecretServiceCredentialStoreTest : public testing::Test {
protected:
    void SetUp() override { keyring.clear(); }

    TestKeyring keyring{service, account};
    SecretServiceCredentialStore store{service, account};
};

TEST_F(SecretServiceCredentialStoreTest, ReturnsAnotherClientsItemExactlyAsStored) {
    keyring.storeForeignItem(" key from elsewhere\n");
    EXPECT_EQ(store.loadAPIKey(), " key from elsewhere\n");
    keyring.storeForeignItem("\xef\xbb\xbfkey after a byte-order mark");
    EXPECT_EQ(store.loadAPIKey(), "\ufeffkey after a byte-order mark");
}

TEST_F(SecretServiceCredentialStoreTest, UpdatesAnotherClientsItemOfTheSameAccountOnly) {
    const TestKeyring otherAccount(service, "other-account");
    otherAccount.clear();
    otherAccount.storeForeignItem("other-key");
    keyring.storeForeignItem("old-key");

    store.saveAPIKey("new-key");
    EXPECT_THAT(keyring.secrets(), ElementsAre("new-key"));
    store.deleteAPIKey();
    EXPECT_THAT(otherAccount.secrets(), ElementsAre("other-key"));
}

TEST_F(SecretServiceCredentialStoreTest, SaveAndDeleteLeaveNoDuplicateBehind) {
    keyring.storeForeignItem("stale-one");
    keyring.storeForeignItem("stale-two", {"origin", "older-release"});
    ASSERT_EQ(keyring.secrets().size(), 2);

    store.saveAPIKey("new-key");
    EXPECT_THAT(keyring.secrets(), ElementsAre("new-key"));
    EXPECT_EQ(store.loadAPIKey(), "new-key");

    keyring.storeForeignItem("stale-three", {"origin", "older-release"});
    store.deleteAPIKey();
    EXPECT_THAT(keyring.secrets(), IsEmpty());
}

struct InvalidBytesRow {
    const char* name;
    QByteArray bytes;
};

void PrintTo(const InvalidBytesRow& row, std::ostream* out) {
    *out << row.name;
}

class SecretServiceInvalidStoredData : public SecretServiceCredentialStoreTest,
                                       public testing::WithParamInterface<InvalidBytesRow> {};

TEST_P(SecretServiceInvalidStoredData, FailsToLoadAndLeavesTheItemAsItIs) {
    keyring.storeForeignItem(GetParam().bytes);
    const auto error = errorOf([&] { store.loadAPIKey(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), KeychainStoreError::Code::invalidStoredData);
    EXPECT_EQ(error->description(), "The stored API key is not valid UTF-8.");
    EXPECT_EQ(keyring.lookup(), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(Bytes, SecretServiceInvalidStoredData,
                         testing::Values(InvalidBytesRow{"ByteOrderMarkOfUtf16", "\xff\xfe"},
                                         InvalidBytesRow{"OverlongEncoding", "ab\xc0\x80"},
                                         InvalidBytesRow{"EncodedSurrogate", "\xed\xa0\x80"},
                                         InvalidBytesRow{"TruncatedSequence", "key\xe2\x82"}),
                         [](const testing::TestParamInfo<InvalidBytesRow>& row) {
                             return row.param.name;
                         });

// A locked keyring must never pass for a missing key: the application would take the user for
// signed out. Without a prompter on the private bus the unlock attempt is dismissed at once.
class SecretServiceLockedCollection : public SecretServiceCredentialStoreTest {
protected:
    void SetUp() override {
        SecretServiceCredentialStoreTest::SetUp();
        keyring.storeForeignItem("locked-away");
        TestKeyring::lockDefaultCollection();
    }
    void TearDown() override {
        TestKeyring::unlockDefaultCollection();
        EXPECT_EQ(keyring.lookup(), "locked-away");
    }

    void expectLockedFailure(const std::function<void()>& operation) {
        QElapsedTimer clock;
        clock.start();
        const auto error = errorOf(operation);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), KeychainStoreError::Code::unexpectedStatus);
        EXPECT_EQ(error->description(), "Keychain operation failed with status 2.");
        EXPECT_LT(clock.elapsed(), 5000) << "the unlock prompt should fail at once";
    }
};

TEST_F(SecretServiceLockedCollection, LoadFailsInsteadOfReportingNoKey) {
    expectLockedFailure([&] { store.loadAPIKey(); });
}

TEST_F(SecretServiceLockedCollection, SaveFailsWithoutAddingASecondItem) {
    expectLockedFailure([&] { store.saveAPIKey("new-key"); });
    TestKeyring::unlockDefaultCollection();
    EXPECT_THAT(keyring.secrets(), ElementsAre("locked-away"));
}

TEST_F(SecretServiceLockedCollection, DeleteFailsInsteadOfPretendingTheKeyIsGone) {
    expectLockedFailure([&] { store.deleteAPIKey(); });
}

// The child process sees no session bus at all, as on a machine without a desktop session.
[[noreturn]] void loadWithoutSessionBus() {
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/vantrel-test-bus");
    SecretServiceCredentialStore store(service, account);
    try {
        const auto key = store.loadAPIKey();
        std::fprintf(stderr, "loaded %s\n", key ? "a key" : "nothing");
    } catch (const KeychainStoreError& error) {
        std::fprintf(stderr, "%s\n", qPrintable(error.description()));
        std::exit(error.code() == KeychainStoreError::Code::unexpectedStatus ? 0 : 1);
    }
    std::exit(1);
}

TEST(SecretServiceCredentialStoreWithoutService, FailsInsteadOfReportingNoKey) {
    // A fresh process, so that no connection made by earlier tests is reused.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(loadWithoutSessionBus(), testing::ExitedWithCode(0),
                "^Keychain operation failed with status -?[0-9]+\\.\n$");
}

} // namespace
