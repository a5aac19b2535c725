#include "api/TodaySummaryClient.h"

#include "AwaitTask.h"
#include "FakeServiceTransport.h"
#include "api/TodaySummaryClientError.h"
#include "app/PlatformError.h"

#include <gtest/gtest.h>
#include <optional>
#include <ostream>

namespace {

const QString baseURL = "https://vantrel.example/api/vantrel/v1";

class TodaySummaryClientTest : public testing::Test {
protected:
    std::optional<TodaySummaryClientError> failureOfFetch(const QString& url = baseURL) {
        try {
            awaitTask(client.fetchTodaySummary(url, "secret-key", {}));
        } catch (const TodaySummaryClientError& error) {
            return error;
        }
        return std::nullopt;
    }

    FakeServiceTransport transport;
    TodaySummaryClient client{&transport};
};

TEST_F(TodaySummaryClientTest, GetsTheStatusBarEndpointWithTheKeyAndNoContentType) {
    transport.outcomes = {FakeServiceTransport::http(
        200, R"({"data":{"grand_total":{"text":"1 hr 5 mins","total_seconds":3900}}})")};

    const TodaySummary summary =
        awaitTask(client.fetchTodaySummary(baseURL + "/", "secret-key", {}));

    EXPECT_EQ(summary, (TodaySummary{"1 hr 5 mins", 3900}));
    const TransportRequest& sent = transport.requests.first();
    EXPECT_EQ(sent.method, "GET");
    EXPECT_EQ(sent.request.url().toString(),
              "https://vantrel.example/api/vantrel/v1/users/current/statusbar/today");
    EXPECT_EQ(sent.request.rawHeader("Authorization"), "Bearer secret-key");
    EXPECT_EQ(sent.request.rawHeader("Accept"), "application/json");
    EXPECT_FALSE(sent.request.hasRawHeader("Content-Type"));
    EXPECT_EQ(sent.request.transferTimeout(), 15000);
    EXPECT_TRUE(sent.body.isEmpty());
}

TEST_F(TodaySummaryClientTest, ExchangeOutcomesBeforeDecoding) {
    transport.outcomes = {FakeServiceTransport::http(401, "<html>not json</html>"),
                          std::make_exception_ptr(PlatformError("TLS handshake failed")),
                          TransportResponse{"{}", false, 0},
                          FakeServiceTransport::http(200, QByteArray(65537, ' '))};
    EXPECT_EQ(failureOfFetch(), TodaySummaryClientError::requestRejected(401));
    EXPECT_EQ(failureOfFetch(), TodaySummaryClientError::networkUnavailable());
    EXPECT_EQ(failureOfFetch(), TodaySummaryClientError::invalidResponse());
    EXPECT_EQ(failureOfFetch(), TodaySummaryClientError::invalidResponse());
    EXPECT_EQ(failureOfFetch("HTTPS://vantrel.example"),
              TodaySummaryClientError::invalidServerURL());
    EXPECT_EQ(transport.requests.size(), 4);
}

struct SummaryRow {
    const char* name;
    QByteArray body;
    // Absent when the body is an invalid response.
    std::optional<TodaySummary> summary;
};

void PrintTo(const SummaryRow& row, std::ostream* out) {
    *out << row.name;
}

class SummaryDecodingTest : public testing::TestWithParam<SummaryRow> {};

TEST_P(SummaryDecodingTest, Decodes) {
    std::optional<TodaySummary> decoded;
    try {
        decoded = TodaySummaryClient::decode(GetParam().body);
    } catch (const TodaySummaryClientError& error) {
        EXPECT_EQ(error, TodaySummaryClientError::invalidResponse());
    }
    EXPECT_EQ(decoded, GetParam().summary);
}

QByteArray total(const char* inner) {
    return QByteArray(R"({"data":{"grand_total":)") + inner + "}}";
}

INSTANTIATE_TEST_SUITE_P(
    , SummaryDecodingTest,
    testing::Values(
        SummaryRow{"CamelCaseKeysMatchToo",
                   R"({"data":{"grandTotal":{"text":"2 mins","totalSeconds":120}}})",
                   TodaySummary{"2 mins", 120}},
        SummaryRow{"SurroundingSpacesAreKept", total(R"({"text":"  5 mins ","total_seconds":300})"),
                   TodaySummary{"  5 mins ", 300}},
        SummaryRow{"UnknownKeysAreIgnored",
                   R"({"cached_at":1,"data":{"range":{},"grand_total":{"text":"0 secs",)"
                   R"("total_seconds":0,"digital":"0:00"}}})",
                   TodaySummary{"0 secs", 0}},
        SummaryRow{"BlankText", total(R"({"text":" \n\t ","total_seconds":60})"), {}},
        SummaryRow{"NegativeSeconds", total(R"({"text":"x","total_seconds":-1})"), {}},
        SummaryRow{"FractionalSeconds", total(R"({"text":"x","total_seconds":3900.5})"), {}},
        SummaryRow{"SecondsAsText", total(R"({"text":"x","total_seconds":"3900"})"), {}},
        SummaryRow{"SecondsBeyond64Bits", total(R"({"text":"x","total_seconds":1e19})"), {}},
        SummaryRow{"NumberBeyondDouble", total(R"({"text":"x","total_seconds":1e400})"), {}},
        SummaryRow{"NullText", total(R"({"text":null,"total_seconds":1})"), {}},
        SummaryRow{"MissingGrandTotal", R"({"data":{}})", {}},
        SummaryRow{"DataNotAnObject", R"({"data":[]})", {}},
        SummaryRow{"NotJSON", "<html></html>", {}}),
    [](const auto& row) { return std::string(row.param.name); });

} // namespace
