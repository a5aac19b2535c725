// The credential store contract, held by the Secret Service store against a real keyring and by
// the in-memory store the other tests rely on, so the two cannot drift apart.

#include "TestKeyring.h"
#include "support/InMemoryCredentialStore.h"
#include "system/KeychainStoreError.h"
#include "system/SecretServiceCredentialStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

const QString service = "com.keldor.vantrel";
const QString account = "tracker-api-key";

// What the store left behind, read without going through the store.
class InMemoryBackend {
public:
    CredentialStoring& store() { return m_store; }
    std::optional<QByteArray> storedBytes() const {
        return m_store.stored ? std::optional(m_store.stored->toUtf8()) : std::nullopt;
    }
    int itemCount() const { return m_store.stored ? 1 : 0; }

private:
    InMemoryCredentialStore m_store;
};

class SecretServiceBackend {
public:
    SecretServiceBackend() { m_keyring.clear(); }
    CredentialStoring& store() { return m_store; }
    std::optional<QByteArray> storedBytes() const { return m_keyring.lookup(); }
    int itemCount() const { return static_cast<int>(m_keyring.secrets().size()); }

private:
    TestKeyring m_keyring{service, account};
    SecretServiceCredentialStore m_store{service, account};
};

template <typename Backend>
class CredentialStoreContract : public testing::Test {
protected:
    Backend backend;
    CredentialStoring& store = backend.store();
};

class BackendNames {
public:
    template <typename Backend>
    static std::string GetName(int) {
        return std::is_same_v<Backend, InMemoryBackend> ? "InMemory" : "SecretService";
    }
};

using Backends = testing::Types<InMemoryBackend, SecretServiceBackend>;
TYPED_TEST_SUITE(CredentialStoreContract, Backends, BackendNames);

std::optional<KeychainStoreError> errorOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const KeychainStoreError& error) {
        return error;
    }
    return std::nullopt;
}

TYPED_TEST(CredentialStoreContract, StoresTheTrimmedKeyAsUtf8AndLoadsItBack) {
    struct Row {
        QString given;
        QByteArray stored;
    };
    const Row rows[] = {
        {"  abc \n", "abc"},
        {"\t\r\nkey with inner spaces\u00a0\u2028", "key with inner spaces"},
        {"schl\u00fcssel-\u20ac", "schl\xc3\xbc"
                                  "ssel-\xe2\x82\xac"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.given.toStdString());
        this->store.saveAPIKey(row.given);
        EXPECT_EQ(this->backend.storedBytes(), row.stored);
        EXPECT_EQ(this->store.loadAPIKey(), QString::fromUtf8(row.stored));
    }
}

TYPED_TEST(CredentialStoreContract, RejectsABlankKeyAndKeepsTheStoredOne) {
    this->store.saveAPIKey("existing-key");
    for (const QString& blank : {QString(), QString("   "), QString("\n\t \r\n")}) {
        SCOPED_TRACE(blank.toStdString());
        const auto error = errorOf([&] { this->store.saveAPIKey(blank); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), KeychainStoreError::Code::invalidCredential);
        EXPECT_EQ(error->description(), "The API key is empty.");
        EXPECT_EQ(this->backend.storedBytes(), "existing-key");
    }
}

TYPED_TEST(CredentialStoreContract, ASecondSaveReplacesTheKeyInTheSameItem) {
    this->store.saveAPIKey("first-key");
    this->store.saveAPIKey("second-key");
    EXPECT_EQ(this->store.loadAPIKey(), "second-key");
    EXPECT_EQ(this->backend.itemCount(), 1);
}

TYPED_TEST(CredentialStoreContract, AMissingItemIsNoErrorForLoadOrDelete) {
    EXPECT_EQ(this->store.loadAPIKey(), std::nullopt);
    EXPECT_NO_THROW(this->store.deleteAPIKey());
    EXPECT_EQ(this->store.loadAPIKey(), std::nullopt);
}

TYPED_TEST(CredentialStoreContract, DeleteRemovesTheKey) {
    this->store.saveAPIKey("doomed-key");
    this->store.deleteAPIKey();
    EXPECT_EQ(this->store.loadAPIKey(), std::nullopt);
    EXPECT_EQ(this->backend.itemCount(), 0);
}

} // namespace
