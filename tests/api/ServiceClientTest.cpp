#include "api/DeviceAuthorizationClient.h"
#include "api/DeviceAuthorizationClientError.h"
#include "api/ServiceRequest.h"
#include "api/TodaySummaryClient.h"
#include "api/TodaySummaryClientError.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

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
        {"HTTPS://a.example/api", std::nullopt},
        {"https:///api", std::nullopt}};
    for (const auto& [serverURL, endpoint] : rows) {
        EXPECT_EQ(ServiceRequest::endpoint(serverURL, "a/b"), endpoint) << serverURL.toStdString();
    }
    EXPECT_EQ(ServiceRequest::make(QUrl("https://a.example")).transferTimeout(), 15000);
}

// The start answer, or a 202 pending poll answer, with `key` set to the JSON text `value` (left
// out when that is empty).
QByteArray with(QJsonObject answer, const char* key, const QByteArray& value) {
    answer.remove(key);
    QByteArray body = QJsonDocument(answer).toJson(QJsonDocument::Compact);
    return value.isEmpty() ? body : body.insert(1, "\"" + QByteArray(key) + "\":" + value + ",");
}

// The sign-in flow raises a short interval to a second itself; nothing here may turn into an
// endless wait, an overflow or a poll without pause. A poll's "expires_in" is read for its type
// only, so any number passes there.
TEST(DeviceAuthorizationAnswerTest, StartAndPendingPollAnswersHoldOnlyUsableMembers) {
    // A member, the seconds the started session holds for it and the pending poll's interval
    // (the session's 5 when the answer has none); none where the answer is unusable.
    const QList<std::tuple<const char*, QByteArray, std::optional<double>, std::optional<double>>>
        rows{{"interval", "0", 0, 0},
             {"interval", "86400", 86400, 86400},
             {"interval", "86401", {}, {}},
             {"interval", "-1", {}, {}},
             {"interval", "null", {}, 5},
             {"expires_in", "2.5", 2.5, 5},
             {"expires_in", "31536001", {}, 5},
             {"expires_in", "1e400", {}, {}},
             {"expires_in", "\"900\"", {}, {}},
             {"verification_uri_complete", "", {}, 5},
             {"authorization_id", "\"5c1e9d3a0b7e4f7c\"", {}, 5},
             {"verification_uri", "\"\"", {}, 5}};
    for (const auto& [key, value, inStart, inPoll] : rows) {
        const bool isInterval = QByteArray(key) == "interval";
        using Started = std::variant<DeviceAuthorizationSession, Error>;
        using Polled = std::variant<Poll, Error>;
        const QByteArray start = with(startBody(), key, value);
        const QByteArray poll = with({{"status", "pending"}}, key, value);
        EXPECT_EQ(
            decoded<Error>([&] { return DeviceAuthorizationClient::decodeSession(start, now); }),
            inStart ? Started(session(isInterval ? *inStart : 5, isInterval ? 900 : *inStart))
                    : Started(Error::invalidResponse()))
            << start.toStdString();
        EXPECT_EQ(decoded<Error>(
                      [&] { return DeviceAuthorizationClient::decodePollResult(202, poll, 5); }),
                  inPoll ? Polled(Poll::pending(*inPoll)) : Polled(Error::invalidResponse()))
            << poll.toStdString();
    }
}

TEST(TodaySummaryDecodingTest, TakesANonBlankTextAndAWholeNonNegativeNumberOfSeconds) {
    using Decoded = std::variant<TodaySummary, SummaryError>;
    const Decoded invalid = SummaryError::invalidResponse();
    // A summary whose grand total has the given text value and further members.
    const auto total = [](const char* members) {
        return QByteArray(R"({"data":{"range":{},"grand_total":{"text":)") + members + "}}}";
    };
    const QList<std::pair<QByteArray, Decoded>> rows{
        {R"({"data":{"grandTotal":{"text":"2 mins","totalSeconds":120}}})",
         TodaySummary{"2 mins", 120}},
        {total(R"("  5 mins ","total_seconds":300,"digital":"0:05")"),
         TodaySummary{"  5 mins ", 300}},
        // Early in the day nothing is tracked yet: a total, not an error.
        {total(R"("0 secs","total_seconds":0)"), TodaySummary{"0 secs", 0}},
        {total(R"(" \n\t ","total_seconds":60)"), invalid},
        {total(R"(null,"total_seconds":1)"), invalid},
        {total(R"("x","total_seconds":-1)"), invalid},
        {total(R"("x","total_seconds":3900.5)"), invalid},
        {total(R"("x","total_seconds":"3900")"), invalid},
        {total(R"("x","total_seconds":1e19)"), invalid},
        {R"({"data":{}})", invalid},
        {R"({"data":[]})", invalid},
        {"<html></html>", invalid}};
    for (const auto& [body, outcome] : rows) {
        EXPECT_EQ(decoded<SummaryError>([&] { return TodaySummaryClient::decode(body); }), outcome)
            << body.toStdString();
    }
}

} // namespace
