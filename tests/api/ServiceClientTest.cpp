#include "api/DeviceAuthorizationClient.h"
#include "api/DeviceAuthorizationClientError.h"
#include "api/DeviceAuthorizationTransporting.h"
#include "api/TodaySummaryClient.h"
#include "api/TodaySummaryClientError.h"
#include "api/TodaySummaryTransporting.h"
#include "support/AsyncTest.h"
#include "support/FakeSleeper.h"
#include "support/TableRows.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

using ::PrintTo;
using AsyncTest::failureOf;
using AsyncTest::outcomeOf;

using Error = DeviceAuthorizationClientError;
using SummaryError = TodaySummaryClientError;
using Poll = DeviceAuthorizationPollResult;

const QString baseURL = "https://vantrel.example/api/vantrel/v1";
const QString endpoint = "device-authorizations";

// Serves both clients: records each request and answers on a later turn with the next response.
class FakeTransport : public DeviceAuthorizationTransporting, public TodaySummaryTransporting {
public:
    QCoro::Task<TransportResponse> send(TransportRequest request,
                                        CancellationToken token) override {
        requests.append(request);
        const TransportResponse response = responses.takeFirst();
        co_await turn.sleep(0, token);
        co_return response;
    }

    QList<TransportResponse> responses;
    QList<TransportRequest> requests;
    FakeSleeper turn;
};

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

QByteArray startBodyWith(const char* key, const QJsonValue& value) {
    QJsonObject body = startBody();
    value.isUndefined() ? void(body.remove(key)) : void(body.insert(key, value));
    return json(body);
}

class ServiceClientTest : public testing::Test {
protected:
    QCoro::Task<DeviceAuthorizationSession> start(const QString& url = baseURL) {
        return deviceClient.start(url, QUuid("{6f9619ff-8b86-d011-b42d-00c04fc964ff}"),
                                  "anna-laptop", "0.6.1", {});
    }

    FakeTransport transport;
    DeviceAuthorizationClient deviceClient{&transport, [] { return QDateTime(); }};
    TodaySummaryClient summaryClient{&transport};
};

// The real transports never answer without a status line; a client must not take one as HTTP 0.
TEST_F(ServiceClientTest, AnAnswerWithoutAStatusLineIsAnInvalidResponse) {
    transport.responses = {TransportResponse{json(startBody()), false, 0},
                           TransportResponse{"{}", false, 0}};
    EXPECT_EQ(failureOf<Error>(start()), Error::invalidResponse());
    EXPECT_EQ(failureOf<SummaryError>(summaryClient.fetchTodaySummary(baseURL, "k", {})),
              SummaryError::invalidResponse());
    EXPECT_EQ(
        failureOf<SummaryError>(summaryClient.fetchTodaySummary("HTTPS://a.example", "k", {})),
        SummaryError::invalidServerURL());
    EXPECT_EQ(transport.requests.size(), 2);
}

struct ServerURLRow {
    const char* name;
    QString serverURL;
    // Empty when the URL must be refused before anything is sent.
    QString endpoint = {};
};

class ServerURLTest : public ServiceClientTest, public testing::WithParamInterface<ServerURLRow> {};

TEST_P(ServerURLTest, JoinsTheEndpointOrRefusesBeforeSending) {
    transport.responses = {TransportResponse{json(startBody()), true, 201}};
    const auto error = failureOf<Error>(start(GetParam().serverURL));
    if (GetParam().endpoint.isEmpty()) {
        EXPECT_EQ(error, Error::invalidServerURL());
        EXPECT_TRUE(transport.requests.isEmpty());
    } else {
        ASSERT_EQ(error, std::nullopt);
        EXPECT_EQ(transport.requests.first().request.url().toString(), GetParam().endpoint);
        EXPECT_EQ(transport.requests.first().request.transferTimeout(), 15000);
    }
}

INSTANTIATE_TEST_SUITE_P(
    , ServerURLTest,
    testing::ValuesIn(std::vector<ServerURLRow>{
        {"TrailingSlash", "https://a.example/api/v1/", "https://a.example/api/v1/" + endpoint},
        {"NoPath", "https://a.example", "https://a.example/" + endpoint},
        {"PlainHTTPWithPort", "http://localhost:8080/api", "http://localhost:8080/api/" + endpoint},
        {"IPv6LiteralWithPort", "https://[::1]:8443/api", "https://[::1]:8443/api/" + endpoint},
        {"ACEHost", "https://xn--bcher-kva.example/v1",
         "https://xn--bcher-kva.example/v1/" + endpoint},
        {"UpperCaseScheme", "HTTPS://a.example/api"},
        {"FTP", "ftp://a.example/api"},
        {"NoScheme", "a.example/api"},
        {"NoHost", "https:///api"},
        {"Empty", ""}}),
    rowName);

struct BodyRow {
    const char* name;
    QByteArray body;
    // For a summary body: what it decodes to, absent when it is an invalid response.
    std::optional<TodaySummary> summary = {};
};

class StartBodyTest : public ServiceClientTest, public testing::WithParamInterface<BodyRow> {};

TEST_P(StartBodyTest, IsAnInvalidResponse) {
    transport.responses = {TransportResponse{GetParam().body, true, 201}};
    EXPECT_EQ(failureOf<Error>(start()), Error::invalidResponse());
}

INSTANTIATE_TEST_SUITE_P(
    , StartBodyTest,
    testing::ValuesIn(std::vector<BodyRow>{
        {"MissingCompleteURI", startBodyWith("verification_uri_complete", QJsonValue::Undefined)},
        {"NullUserCode", startBodyWith("user_code", QJsonValue::Null)},
        {"MalformedUUID", startBodyWith("authorization_id", "5c1e9d3a0b7e4f7c")},
        {"EmptyVerificationURI", startBodyWith("verification_uri", "")},
        {"HTMLPage", "<html><body>Bad gateway</body></html>"}}),
    rowName);

// Numbers of seconds from the service, as the start answer's "interval" or "expires_in" or a
// poll's "interval": what the session or the pending answer holds, or none when the answer is
// unusable. The sign-in flow raises a short interval to a second itself; nothing here may turn
// into an endless wait, an overflow or a poll without pause.
struct SecondsRow {
    const char* name;
    const char* key;
    // The JSON text of the value; empty to leave the key out.
    QByteArray value;
    // The seconds the start answer's session holds, and a pending poll answer's interval (the
    // session's 5 when the answer has none); none where the answer is unusable.
    std::optional<double> inStart;
    std::optional<double> inPoll;
};

class SecondsTest : public testing::TestWithParam<SecondsRow> {
protected:
    // The start answer (or, with `poll`, a 202 pending answer) with the row's value in place.
    static QByteArray bodyWith(const SecondsRow& row, bool poll) {
        QJsonObject object = poll ? QJsonObject{{"status", "pending"}} : startBody();
        object.remove(row.key);
        QByteArray body = json(object);
        if (!row.value.isEmpty()) {
            body.insert(1, "\"" + QByteArray(row.key) + "\":" + row.value + ",");
        }
        return body;
    }

    FakeTransport transport;
    const QDateTime now = QDateTime(QDate(2026, 5, 1), QTime(10, 0), Qt::UTC);
    DeviceAuthorizationClient client{&transport, [this] { return now; }};
};

TEST_P(SecondsTest, StartAnswer) {
    const SecondsRow& row = GetParam();
    transport.responses = {TransportResponse{bodyWith(row, false), true, 201}};
    const auto outcome = outcomeOf<Error>(client.start(
        baseURL, QUuid("{6f9619ff-8b86-d011-b42d-00c04fc964ff}"), "anna-laptop", "0.6.1", {}));
    if (!row.inStart) {
        ASSERT_TRUE(std::holds_alternative<Error>(outcome));
        EXPECT_EQ(std::get<Error>(outcome), Error::invalidResponse());
        return;
    }
    ASSERT_TRUE(std::holds_alternative<DeviceAuthorizationSession>(outcome));
    const auto& session = std::get<DeviceAuthorizationSession>(outcome);
    const bool isInterval = QByteArray(row.key) == "interval";
    EXPECT_EQ(session.interval, isInterval ? *row.inStart : 5);
    EXPECT_EQ(session.expiresAt, now.addMSecs(qint64((isInterval ? 900 : *row.inStart) * 1000)));
}

TEST_P(SecondsTest, PendingPollAnswer) {
    const SecondsRow& row = GetParam();
    transport.responses = {TransportResponse{bodyWith(row, true), true, 202}};
    DeviceAuthorizationSession session;
    session.interval = 5;
    const auto outcome = outcomeOf<Error>(client.poll(baseURL, session, {}));
    if (!row.inPoll) {
        ASSERT_TRUE(std::holds_alternative<Error>(outcome));
        EXPECT_EQ(std::get<Error>(outcome), Error::invalidResponse());
    } else {
        ASSERT_TRUE(std::holds_alternative<Poll>(outcome));
        EXPECT_TRUE(std::get<Poll>(outcome) == Poll::pending(*row.inPoll));
    }
}

// A poll's "expires_in" is read for its type only, so any number passes there.
INSTANTIATE_TEST_SUITE_P(, SecondsTest,
                         testing::ValuesIn(std::vector<SecondsRow>{
                             {"IntervalZero", "interval", "0", 0, 0},
                             {"IntervalFraction", "interval", "2.5", 2.5, 2.5},
                             {"IntervalOneDay", "interval", "86400", 86400, 86400},
                             {"IntervalBeyondADay", "interval", "86401", {}, {}},
                             {"IntervalBeyondDouble", "interval", "1e400", {}, {}},
                             {"IntervalNegative", "interval", "-1", {}, {}},
                             {"IntervalAsText", "interval", "\"5\"", {}, {}},
                             {"IntervalBoolean", "interval", "true", {}, {}},
                             {"IntervalNull", "interval", "null", {}, 5},
                             {"IntervalMissing", "interval", "", {}, 5},
                             {"ExpiryFraction", "expires_in", "2.5", 2.5, 5},
                             {"ExpiryOneYear", "expires_in", "31536000", 31536000, 5},
                             {"ExpiryBeyondAYear", "expires_in", "31536001", {}, 5},
                             {"ExpiryBeyondDouble", "expires_in", "1e400", {}, {}},
                             {"ExpiryNegative", "expires_in", "-1", {}, 5},
                             {"ExpiryAsText", "expires_in", "\"900\"", {}, {}},
                             {"ExpiryMissing", "expires_in", "", {}, 5}}),
                         rowName);

class SummaryDecodingTest : public testing::TestWithParam<BodyRow> {};

TEST_P(SummaryDecodingTest, Decodes) {
    std::optional<TodaySummary> decoded;
    try {
        decoded = TodaySummaryClient::decode(GetParam().body);
    } catch (const SummaryError& error) {
        EXPECT_EQ(error, SummaryError::invalidResponse());
    }
    EXPECT_EQ(decoded, GetParam().summary);
}

// A summary whose grand total has the given text value and further members.
QByteArray total(const char* members) {
    return QByteArray(R"({"data":{"grand_total":{"text":)") + members + "}}}";
}

INSTANTIATE_TEST_SUITE_P(
    , SummaryDecodingTest,
    testing::ValuesIn(std::vector<BodyRow>{
        {"IgnoresUnknownKeys",
         R"({"cached_at":1,"data":{"range":{},"grand_total":{"text":"1 hr 5 mins",)"
         R"("total_seconds":3900,"digital":"1:05"}}})",
         TodaySummary{"1 hr 5 mins", 3900}},
        {"CamelCaseKeys", R"({"data":{"grandTotal":{"text":"2 mins","totalSeconds":120}}})",
         TodaySummary{"2 mins", 120}},
        {"KeepsSurroundingSpaces", total(R"("  5 mins ","total_seconds":300)"),
         TodaySummary{"  5 mins ", 300}},
        // Early in the day nothing is tracked yet: a total, not an error.
        {"NothingYet", total(R"("0 secs","total_seconds":0)"), TodaySummary{"0 secs", 0}},
        {"BlankText", total(R"(" \n\t ","total_seconds":60)")},
        {"NullText", total(R"(null,"total_seconds":1)")},
        {"NegativeSeconds", total(R"("x","total_seconds":-1)")},
        {"FractionalSeconds", total(R"("x","total_seconds":3900.5)")},
        {"SecondsAsText", total(R"("x","total_seconds":"3900")")},
        {"SecondsBeyond64Bits", total(R"("x","total_seconds":1e19)")},
        {"SecondsBeyondDouble", total(R"("x","total_seconds":1e400)")},
        {"MissingGrandTotal", R"({"data":{}})"},
        {"DataNotAnObject", R"({"data":[]})"},
        {"NotJSON", "<html></html>"}}),
    rowName);

} // namespace
