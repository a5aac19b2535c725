#include "api/DeviceAuthorizationClient.h"

#include "AwaitTask.h"
#include "FakeServiceTransport.h"
#include "api/DeviceAuthorizationClientError.h"
#include "app/PlatformError.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>
#include <optional>
#include <ostream>

namespace {

const QString baseURL = "https://vantrel.example/api/vantrel/v1";
const QDateTime fixedNow(QDate(2025, 3, 1), QTime(12, 0), Qt::UTC);
const QUuid deviceID("{6f9619ff-8b86-d011-b42d-00c04fc964ff}");

QByteArray json(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QJsonObject startBody() {
    return {{"authorization_id", "5c1e9d3a-0b7e-4f7c-9a51-2e6f1d0c4b88"},
            {"device_code", "device-secret"},
            {"user_code", "WDJB-MJHT"},
            {"verification_uri", "https://vantrel.example/device"},
            {"verification_uri_complete", "https://vantrel.example/device?code=WDJB-MJHT"},
            {"expires_in", 900},
            {"interval", 5},
            {"unknown", "ignored"}};
}

DeviceAuthorizationSession session() {
    DeviceAuthorizationSession s;
    s.authorizationID = QUuid("{5c1e9d3a-0b7e-4f7c-9a51-2e6f1d0c4b88}");
    s.deviceCode = "device-secret";
    s.interval = 5;
    return s;
}

class DeviceAuthorizationClientTest : public testing::Test {
protected:
    DeviceAuthorizationSession start(const QString& url = baseURL) {
        return awaitTask(client.start(url, deviceID, "anna-laptop", "0.6.1", {}));
    }
    DeviceAuthorizationPollResult poll() { return awaitTask(client.poll(baseURL, session(), {})); }

    template <typename Operation>
    std::optional<DeviceAuthorizationClientError> failureOf(Operation operation) {
        try {
            operation();
        } catch (const DeviceAuthorizationClientError& error) {
            return error;
        }
        return std::nullopt;
    }

    FakeServiceTransport transport;
    DeviceAuthorizationClient client{&transport, [] { return fixedNow; }};
};

TEST_F(DeviceAuthorizationClientTest, StartTurnsTheAnswerIntoASessionTimedByTheInjectedClock) {
    QJsonObject body = startBody();
    body["interval"] = 2.5;
    transport.outcomes = {FakeServiceTransport::http(201, json(body))};

    const DeviceAuthorizationSession s = start();

    EXPECT_EQ(s.authorizationID, QUuid("{5c1e9d3a-0b7e-4f7c-9a51-2e6f1d0c4b88}"));
    EXPECT_EQ(s.deviceCode, "device-secret");
    EXPECT_EQ(s.userCode, "WDJB-MJHT");
    EXPECT_EQ(s.verificationURL, QUrl("https://vantrel.example/device"));
    EXPECT_EQ(s.verificationURLComplete, QUrl("https://vantrel.example/device?code=WDJB-MJHT"));
    EXPECT_EQ(s.expiresAt, fixedNow.addSecs(900));
    EXPECT_EQ(s.interval, 2.5);
}

TEST_F(DeviceAuthorizationClientTest, StartAnsweredWith200IsRejectedWithTheStatusInItsMessage) {
    transport.outcomes = {FakeServiceTransport::http(200, json(startBody()))};
    const auto error = failureOf([&] { start(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(*error, DeviceAuthorizationClientError::requestRejected(200));
    EXPECT_EQ(error->description(),
              "Vantrel rejected the device authorization request (HTTP 200).");
}

struct StartBodyRow {
    const char* name;
    QByteArray body;
};

void PrintTo(const StartBodyRow& row, std::ostream* out) {
    *out << row.name;
}

class StartBodyTest : public DeviceAuthorizationClientTest,
                      public testing::WithParamInterface<StartBodyRow> {};

QByteArray startBodyWith(const char* key, const QJsonValue& value) {
    QJsonObject body = startBody();
    if (value.isUndefined()) {
        body.remove(key);
    } else {
        body.insert(key, value);
    }
    return json(body);
}

TEST_P(StartBodyTest, IsAnInvalidResponse) {
    transport.outcomes = {FakeServiceTransport::http(201, GetParam().body)};
    EXPECT_EQ(failureOf([&] { start(); }), DeviceAuthorizationClientError::invalidResponse());
}

INSTANTIATE_TEST_SUITE_P(
    , StartBodyTest,
    testing::Values(
        StartBodyRow{"MissingCompleteURI",
                     startBodyWith("verification_uri_complete", QJsonValue::Undefined)},
        StartBodyRow{"NullUserCode", startBodyWith("user_code", QJsonValue::Null)},
        StartBodyRow{"IntervalAsText", startBodyWith("interval", "5")},
        StartBodyRow{"NegativeInterval", startBodyWith("interval", -1)},
        StartBodyRow{"IntervalBeyondADay", startBodyWith("interval", 86401)},
        StartBodyRow{"ExpiryBeyondAYear", startBodyWith("expires_in", 31536001)},
        StartBodyRow{"MalformedUUID", startBodyWith("authorization_id", "5c1e9d3a0b7e4f7c")},
        StartBodyRow{"EmptyVerificationURI", startBodyWith("verification_uri", "")},
        StartBodyRow{"NumberBeyondDouble",
                     R"({"authorization_id":"5c1e9d3a-0b7e-4f7c-9a51-2e6f1d0c4b88",)"
                     R"("device_code":"d","user_code":"u","verification_uri":"https://a.b",)"
                     R"("verification_uri_complete":"https://a.b","expires_in":1e400,)"
                     R"("interval":5})"},
        StartBodyRow{"ArrayInsteadOfObject", "[1,2]"},
        StartBodyRow{"HTMLPage", "<html><body>Bad gateway</body></html>"}),
    [](const auto& row) { return std::string(row.param.name); });

struct ServerURLRow {
    const char* name;
    QString serverURL;
    // Empty when the URL must be refused before anything is sent.
    QString endpoint;
};

void PrintTo(const ServerURLRow& row, std::ostream* out) {
    *out << row.name;
}

class ServerURLTest : public DeviceAuthorizationClientTest,
                      public testing::WithParamInterface<ServerURLRow> {};

TEST_P(ServerURLTest, JoinsTheEndpointOrRefusesBeforeSending) {
    transport.outcomes = {FakeServiceTransport::http(201, json(startBody()))};
    const auto error = failureOf([&] { start(GetParam().serverURL); });
    if (GetParam().endpoint.isEmpty()) {
        EXPECT_EQ(error, DeviceAuthorizationClientError::invalidServerURL());
        EXPECT_TRUE(transport.requests.isEmpty());
    } else {
        ASSERT_FALSE(error);
        EXPECT_EQ(transport.requests.first().request.url().toString(), GetParam().endpoint);
    }
}

INSTANTIATE_TEST_SUITE_P(
    , ServerURLTest,
    testing::Values(ServerURLRow{"TrailingSlash", "https://vantrel.example/api/v1/",
                                 "https://vantrel.example/api/v1/device-authorizations"},
                    ServerURLRow{"NoPath", "https://vantrel.example",
                                 "https://vantrel.example/device-authorizations"},
                    ServerURLRow{"PlainHTTPWithPort", "http://localhost:8080/api",
                                 "http://localhost:8080/api/device-authorizations"},
                    ServerURLRow{"UpperCaseScheme", "HTTPS://vantrel.example/api", {}},
                    ServerURLRow{"FTP", "ftp://vantrel.example/api", {}},
                    ServerURLRow{"NoScheme", "vantrel.example/api", {}},
                    ServerURLRow{"NoHost", "https:///api", {}}, ServerURLRow{"Empty", "", {}}),
    [](const auto& row) { return std::string(row.param.name); });

struct PollRow {
    const char* name;
    int status;
    QByteArray body;
    std::optional<DeviceAuthorizationPollResult> result;
    std::optional<DeviceAuthorizationClientError> error;
};

void PrintTo(const PollRow& row, std::ostream* out) {
    *out << row.name;
}

class PollTest : public DeviceAuthorizationClientTest,
                 public testing::WithParamInterface<PollRow> {};

TEST_P(PollTest, MapsStatusAndStatusString) {
    transport.outcomes = {FakeServiceTransport::http(GetParam().status, GetParam().body)};
    std::optional<DeviceAuthorizationPollResult> result;
    const auto error = failureOf([&] { result = poll(); });
    EXPECT_EQ(result, GetParam().result);
    EXPECT_EQ(error, GetParam().error);
}

using Result = DeviceAuthorizationPollResult;
using Error = DeviceAuthorizationClientError;

PollRow ok(const char* name, int status, const char* body, Result result) {
    return {name, status, body, result, {}};
}
PollRow fails(const char* name, int status, const char* body, Error error) {
    return {name, status, body, {}, error};
}

INSTANTIATE_TEST_SUITE_P(
    , PollTest,
    testing::Values(
        ok("PendingKeepsTheSessionInterval", 202, R"({"status":"pending"})", Result::pending(5)),
        ok("PendingWithItsOwnInterval", 202, R"({"status":"pending","interval":10})",
           Result::pending(10)),
        ok("NullIntervalCountsAsAbsent", 202, R"({"status":"pending","interval":null})",
           Result::pending(5)),
        ok("SlowDown", 429, R"({"status":"slow_down","interval":7.5})", Result::slowDown(7.5)),
        ok("Authorized", 200, R"({"status":"authorized","api_key":"k","extra":[1]})",
           Result::authorized("k")),
        ok("Denied", 403, R"({"status":"denied"})", Result::denied()),
        ok("Expired", 410, R"({"status":"expired"})", Result::expired()),
        ok("Claimed", 409, R"({"status":"claimed"})", Result::claimed()),
        fails("StatusStringIsCaseSensitive", 202, R"({"status":"Pending"})",
              Error::requestRejected(202)),
        fails("UnlistedStatusCode", 418, R"({"status":"pending"})", Error::requestRejected(418)),
        fails("MissingAPIKey", 200, R"({"status":"authorized"})", Error::invalidResponse()),
        fails("MissingStatus", 202, R"({"interval":5})", Error::invalidResponse()),
        fails("UnusedExpiryOfTheWrongType", 202, R"({"status":"pending","expires_in":"soon"})",
              Error::invalidResponse()),
        fails("IntervalBeyondADay", 202, R"({"status":"pending","interval":86401})",
              Error::invalidResponse()),
        fails("NumberBeyondDouble", 202, R"({"status":"pending","interval":1e400})",
              Error::invalidResponse())),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(DeviceAuthorizationClientTest, RevokeSucceedsOnlyOn204) {
    transport.outcomes = {FakeServiceTransport::http(204, "ignored"),
                          FakeServiceTransport::http(200, {})};
    awaitTask(client.revoke(baseURL, "secret-key", {}));
    EXPECT_EQ(failureOf([&] { awaitTask(client.revoke(baseURL, "secret-key", {})); }),
              Error::requestRejected(200));
}

TEST_F(DeviceAuthorizationClientTest, ExchangeFailuresAndNonHTTPAnswersAreMappedAlike) {
    transport.outcomes = {std::make_exception_ptr(PlatformError("Host unreachable")),
                          TransportResponse{json(startBody()), false, 0}};
    EXPECT_EQ(failureOf([&] { start(); }), Error::networkUnavailable());
    EXPECT_EQ(failureOf([&] { start(); }), Error::invalidResponse());
}

} // namespace
