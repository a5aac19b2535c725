#include "ApiTestSupport.h"
#include "api/DeviceAuthorizationClient.h"
#include "api/DeviceAuthorizationClientError.h"
#include "api/DeviceAuthorizationTransporting.h"
#include "api/TodaySummaryClient.h"
#include "api/TodaySummaryClientError.h"
#include "api/TodaySummaryTransporting.h"
#include "support/FakeSleeper.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

using ::PrintTo;

using Error = DeviceAuthorizationClientError;
using SummaryError = TodaySummaryClientError;

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
        {"IntervalAsText", startBodyWith("interval", "5")},
        {"NegativeInterval", startBodyWith("interval", -1)},
        {"IntervalBeyondADay", startBodyWith("interval", 86401)},
        {"ExpiryBeyondAYear", startBodyWith("expires_in", 31536001)},
        {"ExpiryBeyondDouble", json(startBody()).replace(":900,", ":1e400,")},
        {"MalformedUUID", startBodyWith("authorization_id", "5c1e9d3a0b7e4f7c")},
        {"EmptyVerificationURI", startBodyWith("verification_uri", "")},
        {"HTMLPage", "<html><body>Bad gateway</body></html>"}}),
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
