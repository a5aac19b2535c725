#include "api/DeviceAuthorizationClient.h"
#include "api/DeviceAuthorizationClientError.h"
#include "api/EnvironmentCertificateTrust.h"
#include "api/NetworkAccessDeviceAuthorizationTransport.h"
#include "api/NetworkAccessTodaySummaryTransport.h"
#include "api/ServiceRequest.h"
#include "api/TodaySummaryClient.h"
#include "api/TodaySummaryClientError.h"
#include "core/TaskHandle.h"
#include "support/AsyncTest.h"
#include "support/TestFiles.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QSslConfiguration>

#include <algorithm>
#include <gtest/gtest.h>

// The service clients' exchanges over HTTPS with the scriptable server that with-https-server.sh
// starts beside this executable.
namespace {

using AsyncTest::failureOf;

using Error = DeviceAuthorizationClientError;
using SummaryError = TodaySummaryClientError;
using Poll = DeviceAuthorizationPollResult;
const Error invalid = Error::invalidResponse();
const QDateTime now(QDate(2026, 5, 1), QTime(10, 0), Qt::UTC);

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
DeviceAuthorizationSession session(double interval = 5, double expiresIn = 900) {
    return DeviceAuthorizationSession(QUuid("{5c1e9d3a-0b7e-4f7c-9a51-2e6f1d0c4b88}"),
                                      "device-secret", "WDJB-MJHT",
                                      QUrl("https://vantrel.example/device"),
                                      QUrl("https://vantrel.example/device?code=WDJB-MJHT"),
                                      now.addMSecs(qint64(expiresIn * 1000)), interval);
}

TEST(ServiceRequestTest, JoinsThePathBelowAnHTTPOrHTTPSBaseURLOrRefusesIt) {
    const QList<std::pair<QString, std::optional<QUrl>>> rows{
        {"https://a.example/api/v1//", QUrl("https://a.example/api/v1/a/b")},
        {"http://localhost:8080", QUrl("http://localhost:8080/a/b")},
        {"HTTPS://a.example/api", std::nullopt},
        {"https:///api", std::nullopt}};
    for (const auto& [serverURL, endpoint] : rows) {
        EXPECT_EQ(ServiceRequest::endpoint(serverURL, "a/b"), endpoint) << serverURL.toStdString();
    }
    EXPECT_EQ(ServiceRequest::make(QUrl("https://a.example")).transferTimeout(), 15000);
}

QString serverFile(const QString& name) {
    return qEnvironmentVariable("VANTREL_TEST_HTTPS_DIR") + "/" + name;
}

// The base URL of the listener whose certificate the named authority signed.
QString baseURL(const QString& listener) {
    return "https://127.0.0.1:" + QString::fromUtf8(readFile(serverFile(listener + ".port"))) +
           "/api/vantrel/v1";
}

// How the server answers every request from now on.
void respond(const QJsonObject& answer) {
    writeFile(serverFile("response.json"), QJsonDocument(answer).toJson());
}

// A request as the server saw it: method, path, the headers the clients set, and body.
std::string seen(qsizetype index = 0) {
    return readFile(serverFile("requests.log")).split('\n').value(index).toStdString();
}

class ServiceHttpsTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        // What the composition root does at start-up.
        EnvironmentCertificateTrust::install(QProcessEnvironment::systemEnvironment());
    }

    void SetUp() override { QFile::remove(serverFile("requests.log")); }

    std::optional<SummaryError> failureOfFetch(const QString& listener) {
        return failureOf<SummaryError>(
            summaryClient.fetchTodaySummary(baseURL(listener), "secret-key", {}));
    }

    QNetworkAccessManager manager;
    NetworkAccessDeviceAuthorizationTransport deviceTransport{&manager};
    NetworkAccessTodaySummaryTransport summaryTransport{&manager};
    DeviceAuthorizationClient deviceClient{&deviceTransport, [] { return now; }};
    TodaySummaryClient summaryClient{&summaryTransport};
    static constexpr std::chrono::milliseconds shortDeadline{1000};
    NetworkAccessTodaySummaryTransport hastyTransport{&manager, shortDeadline};
    TodaySummaryClient hastyClient{&hastyTransport};
};

// The sign-in flow raises a short interval to a second itself; nothing here may turn into an
// endless wait, an overflow or a poll without pause.
TEST_F(ServiceHttpsTest, StartAndRevokeTakeOnlyTheirOwnStatusAndAStartAnswerOnlyUsableMembers) {
    // A member of the start answer, its value and the session that follows.
    const QList<std::tuple<QString, QJsonValue, std::variant<DeviceAuthorizationSession, Error>>>
        rows{{"interval", 0, session(0)},
             {"interval", 86400, session(86400)},
             {"interval", 86401, invalid},
             {"interval", -1, invalid},
             {"expires_in", 2.5, session(5, 2.5)},
             {"expires_in", 31536001, invalid},
             {"authorization_id", "5c1e9d3a0b7e4f7c", invalid},
             {"verification_uri", "", invalid}};
    for (const auto& [key, value, outcome] : rows) {
        QJsonObject answer = startBody();
        answer[key] = value;
        respond({{"status", 201}, {"body", QString(QJsonDocument(answer).toJson())}});
        EXPECT_EQ(AsyncTest::outcomeOf<Error>(deviceClient.start(
                      baseURL("file"), QUuid("{6f9619ff-8b86-d011-b42d-00c04fc964ff}"),
                      "anna-laptop", "0.6.1", {})),
                  outcome)
            << key.toStdString();
    }
    EXPECT_EQ(seen(), "POST /api/vantrel/v1/device-authorizations "
                      R"({"accept":"application/json","content-type":"application/json"} )"
                      R"({"client_version":"0.6.1","device_id":"6F9619FF-8B86-D011-B42D-)"
                      R"(00C04FC964FF","device_name":"anna-laptop","platform":"linux"})");

    respond({{"status", 204}});
    EXPECT_EQ(failureOf<Error>(deviceClient.revoke(baseURL("file"), "secret-key", {})),
              std::nullopt);
    EXPECT_EQ(seen(rows.size()),
              "POST /api/vantrel/v1/device/revoke "
              R"({"accept":"application/json","authorization":"Bearer secret-key",)"
              R"("content-type":"application/json"} )");
    respond({{"status", 200}, {"body", QString(QJsonDocument(startBody()).toJson())}});
    EXPECT_EQ(failureOf<Error>(deviceClient.start(baseURL("file"), {}, "a", "1", {})),
              Error::requestRejected(200));
    EXPECT_EQ(failureOf<Error>(deviceClient.revoke(baseURL("file"), "secret-key", {})),
              Error::requestRejected(200));
}

TEST_F(ServiceHttpsTest, TodaysTotalIsANonBlankTextAndAWholeNonNegativeNumberOfSeconds) {
    using Fetched = std::variant<TodaySummary, SummaryError>;
    const Fetched unusable = SummaryError::invalidResponse();
    // A summary whose grand total has the given text value and further members.
    const auto total = [](const char* members) {
        return QByteArray(R"({"data":{"range":{},"grand_total":{"text":)") + members + "}}}";
    };
    const QList<std::tuple<int, QByteArray, Fetched>> rows{
        {200, R"({"data":{"grandTotal":{"text":"2 mins","totalSeconds":120}}})",
         TodaySummary{"2 mins", 120}},
        // Early in the day nothing is tracked yet: a total, not an error.
        {200, total(R"("  0 secs ","total_seconds":0,"digital":"0:00")"),
         TodaySummary{"  0 secs ", 0}},
        {200, total(R"(" \n\t ","total_seconds":60)"), unusable},
        {200, total(R"("x","total_seconds":-1)"), unusable},
        {200, total(R"("x","total_seconds":3900.5)"), unusable},
        {200, "<html></html>", unusable},
        {401, "<html></html>", SummaryError::requestRejected(401)}};
    for (const auto& [status, body, outcome] : rows) {
        respond({{"status", status}, {"body", QString::fromUtf8(body)}});
        EXPECT_EQ(AsyncTest::outcomeOf<SummaryError>(
                      summaryClient.fetchTodaySummary(baseURL("file"), "secret-key", {})),
                  outcome)
            << status << " " << body.toStdString();
    }
    EXPECT_EQ(seen(), "GET /api/vantrel/v1/users/current/statusbar/today "
                      R"({"accept":"application/json","authorization":"Bearer secret-key"} )");
}

TEST_F(ServiceHttpsTest, ADroppedEndlessSlowOrCancelledExchangeFailsInTime) {
    respond({{"drop", true}});
    EXPECT_EQ(failureOfFetch("file"), SummaryError::networkUnavailable());
    // Reading stops one byte past the limit, and the client goes away at once.
    respond({{"status", 200}, {"endless", true}});
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_EQ(failureOfFetch("file"), SummaryError::invalidResponse());
    EXPECT_LT(elapsed.elapsed(), 5000);

    respond({{"delay", 20}});
    elapsed.restart();
    EXPECT_EQ(failureOf<SummaryError>(hastyClient.fetchTodaySummary(baseURL("file"), "k", {})),
              SummaryError::networkUnavailable());
    EXPECT_GE(elapsed.elapsed(), shortDeadline.count() * 9 / 10) << "a coarse timer runs early";
    EXPECT_LT(elapsed.elapsed(), shortDeadline.count() + 4000);

    QFile::remove(serverFile("requests.log"));
    TaskHandle handle;
    auto fetch = summaryClient.fetchTodaySummary(baseURL("file"), "k", handle.token());
    ASSERT_TRUE(AsyncTest::waitUntil([] { return !seen().empty(); }));
    elapsed.restart();
    handle.cancel();
    EXPECT_EQ(failureOf<SummaryError>(std::move(fetch)), SummaryError::networkUnavailable());
    EXPECT_LT(elapsed.elapsed(), 5000);
}

// A poll answer with the given status string and further members.
QByteArray said(const char* status, const QByteArray& members = {}) {
    return R"({"status":")" + QByteArray(status) + '"' + members + '}';
}

// Status codes travel through Qt's own error mapping here, which no fake can show. A poll's
// "expires_in" is read for its type only.
TEST_F(ServiceHttpsTest, APollAnswerPairsTheStatusCodeWithTheStatusString) {
    const QList<std::tuple<int, QByteArray, std::variant<Poll, Error>>> rows{
        {202, said("pending"), Poll::pending(5)},
        {429, said("slow_down", R"(,"interval":7.5)"), Poll::slowDown(7.5)},
        {200, said("authorized", R"(,"api_key":"k","extra":[1])"), Poll::authorized("k")},
        {403, said("denied"), Poll::denied()},
        {410, said("expired"), Poll::expired()},
        {409, said("claimed"), Poll::claimed()},
        {200, said("pending"), Error::requestRejected(200)},
        {500, "<html>Internal Server Error</html>", invalid},
        {200, said("authorized", R"(,"api_key":"")"), invalid},
        {200, said("authorized"), invalid},
        {202, said("pending", R"(,"expires_in":"900")"), invalid},
        // Spaces after the object keep it valid JSON at any size.
        {202, said("pending").leftJustified(65536), Poll::pending(5)},
        {202, said("pending").leftJustified(65537), invalid}};
    for (const auto& [status, body, outcome] : rows) {
        respond({{"status", status}, {"body", QString::fromUtf8(body)}});
        EXPECT_EQ(AsyncTest::outcomeOf<Error>(deviceClient.poll(baseURL("file"), session(), {})),
                  outcome)
            << status << " " << body.left(80).toStdString();
    }
    EXPECT_EQ(seen(), "POST /api/vantrel/v1/device-authorizations/poll "
                      R"({"accept":"application/json","content-type":"application/json"} )"
                      R"({"authorization_id":"5C1E9D3A-0B7E-4F7C-9A51-2E6F1D0C4B88",)"
                      R"("device_code":"device-secret"})");
}

TEST_F(ServiceHttpsTest, TrustFollowsTheCertificateEnvironmentAndKeepsTheSystemAuthorities) {
    // Any answer at all shows that the connection was trusted.
    respond({});
    EXPECT_EQ(failureOfFetch("stranger"), SummaryError::networkUnavailable());

    // Every file in a folder counts, hashed name or not, as OpenSSL would find it.
    QProcessEnvironment environment;
    environment.insert("SSL_CERT_DIR", "/nonexistent:" + serverFile("certs") + ":");
    EXPECT_EQ(EnvironmentCertificateTrust::install(environment), 1);
    const auto trusted = QSslConfiguration::defaultConfiguration().caCertificates();
    EXPECT_TRUE(std::ranges::all_of(QSslConfiguration::systemCaCertificates(),
                                    [&](const auto& system) { return trusted.contains(system); }));
    manager.clearConnectionCache();
    EXPECT_EQ(failureOfFetch("stranger"), SummaryError::requestRejected(404));
}

} // namespace
