#include "api/DeviceAuthorizationClient.h"
#include "api/DeviceAuthorizationClientError.h"
#include "api/ServiceRequest.h"
#include "api/TodaySummaryClient.h"
#include "api/TodaySummaryClientError.h"
#include "support/TableRows.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

using ::PrintTo;

using Error = DeviceAuthorizationClientError;
using SummaryError = TodaySummaryClientError;
using Poll = DeviceAuthorizationPollResult;

const QDateTime now(QDate(2026, 5, 1), QTime(10, 0), Qt::UTC);

// What `decode` returns, or the error it throws.
template <typename Failure, typename Decode>
std::variant<std::invoke_result_t<Decode>, Failure> decoded(Decode decode) {
    try {
        return decode();
    } catch (const Failure& error) {
        return error;
    }
}

QJsonObject startBody() {
    return {{"authorization_id", "5c1e9d3a-0b7e-4f7c-9a51-2e6f1d0c4b88"},
            {"device_code", "device-secret"},
            {"user_code", "WDJB-MJHT"},
            {"verification_uri", "https://vantrel.example/device"},
            {"verification_uri_complete", "https://vantrel.example/device?code=WDJB-MJHT"},
            {"expires_in", 900},
            {"interval", 5}};
}

// The session startBody() describes, with the given interval and expiry.
DeviceAuthorizationSession session(double interval, double expiresIn) {
    return DeviceAuthorizationSession(QUuid("{5c1e9d3a-0b7e-4f7c-9a51-2e6f1d0c4b88}"),
                                      "device-secret", "WDJB-MJHT",
                                      QUrl("https://vantrel.example/device"),
                                      QUrl("https://vantrel.example/device?code=WDJB-MJHT"),
                                      now.addMSecs(qint64(expiresIn * 1000)), interval);
}

TEST(ServiceRequestTest, JoinsThePathBelowAnHTTPOrHTTPSBaseURLOrRefusesIt) {
    const QList<std::pair<QString, std::optional<QUrl>>> rows{
        {"https://a.example/api/v1//", QUrl("https://a.example/api/v1/a/b")},
        {"https://a.example", QUrl("https://a.example/a/b")},
        {"http://localhost:8080/api", QUrl("http://localhost:8080/api/a/b")},
        {"https://[::1]:8443/api", QUrl("https://[::1]:8443/api/a/b")},
        {"HTTPS://a.example/api", std::nullopt},
        {"ftp://a.example/api", std::nullopt},
        {"a.example/api", std::nullopt},
        {"https:///api", std::nullopt}};
    for (const auto& [serverURL, endpoint] : rows) {
        EXPECT_EQ(ServiceRequest::endpoint(serverURL, "a/b"), endpoint) << serverURL.toStdString();
    }
    EXPECT_EQ(ServiceRequest::make(QUrl("https://a.example")).transferTimeout(), 15000);
}

// One member of the start answer, also put into a 202 pending poll answer. The sign-in flow
// raises a short interval to a second itself; nothing here may turn into an endless wait, an
// overflow or a poll without pause.
struct MemberRow {
    const char* name;
    const char* key;
    // The JSON text of the value; empty to leave the key out.
    QByteArray value;
    // For "interval" or "expires_in", the seconds the started session holds; none where the
    // start answer is unusable.
    std::optional<double> inStart;
    // The pending poll's interval (the session's 5 when the answer has none); none where the poll
    // answer is unusable.
    std::optional<double> inPoll;
};

class AnswerMemberTest : public testing::TestWithParam<MemberRow> {
protected:
    static QByteArray bodyWith(QJsonObject object, const MemberRow& row) {
        object.remove(row.key);
        QByteArray body = QJsonDocument(object).toJson(QJsonDocument::Compact);
        if (!row.value.isEmpty()) {
            body.insert(1, "\"" + QByteArray(row.key) + "\":" + row.value + ",");
        }
        return body;
    }
};

TEST_P(AnswerMemberTest, StartAndPendingPollAnswers) {
    const MemberRow& row = GetParam();
    const bool isInterval = QByteArray(row.key) == "interval";
    using Started = std::variant<DeviceAuthorizationSession, Error>;
    using Polled = std::variant<Poll, Error>;
    EXPECT_EQ(decoded<Error>([&] {
                  return DeviceAuthorizationClient::decodeSession(bodyWith(startBody(), row), now);
              }),
              row.inStart
                  ? Started(session(isInterval ? *row.inStart : 5, isInterval ? 900 : *row.inStart))
                  : Started(Error::invalidResponse()));
    EXPECT_EQ(decoded<Error>([&] {
                  return DeviceAuthorizationClient::decodePollResult(
                      202, bodyWith({{"status", "pending"}}, row), 5);
              }),
              row.inPoll ? Polled(Poll::pending(*row.inPoll)) : Polled(Error::invalidResponse()));
}

// A poll's "expires_in" is read for its type only, so any number passes there.
INSTANTIATE_TEST_SUITE_P(, AnswerMemberTest,
                         testing::ValuesIn(std::vector<MemberRow>{
                             {"IntervalZero", "interval", "0", 0, 0},
                             {"IntervalOneDay", "interval", "86400", 86400, 86400},
                             {"IntervalBeyondADay", "interval", "86401", {}, {}},
                             {"IntervalNegative", "interval", "-1", {}, {}},
                             {"IntervalNull", "interval", "null", {}, 5},
                             {"ExpiryFraction", "expires_in", "2.5", 2.5, 5},
                             {"ExpiryOneYear", "expires_in", "31536000", 31536000, 5},
                             {"ExpiryBeyondAYear", "expires_in", "31536001", {}, 5},
                             {"ExpiryBeyondDouble", "expires_in", "1e400", {}, {}},
                             {"ExpiryAsText", "expires_in", "\"900\"", {}, {}},
                             {"ExpiryMissing", "expires_in", "", {}, 5},
                             {"CompleteURIMissing", "verification_uri_complete", "", {}, 5},
                             {"UserCodeNull", "user_code", "null", {}, 5},
                             {"MalformedUUID", "authorization_id", "\"5c1e9d3a0b7e4f7c\"", {}, 5},
                             {"EmptyVerificationURI", "verification_uri", "\"\"", {}, 5}}),
                         rowName);

struct SummaryRow {
    const char* name;
    QByteArray body;
    std::variant<TodaySummary, SummaryError> outcome = SummaryError::invalidResponse();
};

class SummaryDecodingTest : public testing::TestWithParam<SummaryRow> {};

TEST_P(SummaryDecodingTest, Decodes) {
    EXPECT_EQ(decoded<SummaryError>([] { return TodaySummaryClient::decode(GetParam().body); }),
              GetParam().outcome);
}

// A summary whose grand total has the given text value and further members.
QByteArray total(const char* members) {
    return QByteArray(R"({"data":{"range":{},"grand_total":{"text":)") + members + "}}}";
}

INSTANTIATE_TEST_SUITE_P(
    , SummaryDecodingTest,
    testing::ValuesIn(std::vector<SummaryRow>{
        {"CamelCaseKeys", R"({"data":{"grandTotal":{"text":"2 mins","totalSeconds":120}}})",
         TodaySummary{"2 mins", 120}},
        {"KeepsSurroundingSpaces", total(R"("  5 mins ","total_seconds":300,"digital":"0:05")"),
         TodaySummary{"  5 mins ", 300}},
        // Early in the day nothing is tracked yet: a total, not an error.
        {"NothingYet", total(R"("0 secs","total_seconds":0)"), TodaySummary{"0 secs", 0}},
        {"BlankText", total(R"(" \n\t ","total_seconds":60)")},
        {"NullText", total(R"(null,"total_seconds":1)")},
        {"NegativeSeconds", total(R"("x","total_seconds":-1)")},
        {"FractionalSeconds", total(R"("x","total_seconds":3900.5)")},
        {"SecondsAsText", total(R"("x","total_seconds":"3900")")},
        {"SecondsBeyond64Bits", total(R"("x","total_seconds":1e19)")},
        {"MissingGrandTotal", R"({"data":{}})"},
        {"DataNotAnObject", R"({"data":[]})"},
        {"NotJSON", "<html></html>"}}),
    rowName);

} // namespace
