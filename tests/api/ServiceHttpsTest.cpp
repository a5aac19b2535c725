#include "AwaitTask.h"
#include "api/DeviceAuthorizationClient.h"
#include "api/DeviceAuthorizationClientError.h"
#include "api/EnvironmentCertificateTrust.h"
#include "api/NetworkAccessDeviceAuthorizationTransport.h"
#include "api/NetworkAccessTodaySummaryTransport.h"
#include "api/TodaySummaryClient.h"
#include "api/TodaySummaryClientError.h"
#include "app/TaskHandle.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QSaveFile>
#include <QSslConfiguration>

#include <cstdio>
#include <gtest/gtest.h>
#include <optional>
#include <ostream>

// These tests talk to the scriptable HTTPS server that with-https-server.sh starts beside them.
namespace {

QString serverFile(const QString& name) {
    return qEnvironmentVariable("VANTREL_TEST_HTTPS_DIR") + "/" + name;
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString baseURL(const QString& listener) {
    return "https://127.0.0.1:" + QString::fromUtf8(readFile(serverFile(listener + ".port"))) +
           "/api/vantrel/v1";
}

// How the server answers every request from now on.
void respond(const QJsonObject& answer) {
    QSaveFile file(serverFile("response.json"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(answer).toJson());
    ASSERT_TRUE(file.commit());
}

QList<QJsonObject> requestsSeen() {
    QList<QJsonObject> requests;
    for (const QByteArray& line : readFile(serverFile("requests.jsonl")).split('\n')) {
        if (!line.isEmpty()) {
            requests.append(QJsonDocument::fromJson(line).object());
        }
    }
    return requests;
}

qint64 statusValue(const char* key) {
    for (const QByteArray& line : readFile("/proc/self/status").split('\n')) {
        if (line.startsWith(key)) {
            return line.mid(qstrlen(key)).trimmed().split(' ').first().toLongLong();
        }
    }
    return -1;
}

QByteArray paddedPending(qsizetype size) {
    const QByteArray head = R"({"status":"pending","padding":")";
    return head + QByteArray(size - head.size() - 2, 'p') + "\"}";
}

template <typename Error, typename T>
QCoro::Task<void> awaitRecording(QCoro::Task<T> task, std::optional<Error>* error, bool* finished) {
    try {
        co_await std::move(task);
    } catch (const Error& e) {
        *error = e;
    }
    *finished = true;
}

class ServiceHttpsTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_FALSE(qEnvironmentVariableIsEmpty("VANTREL_TEST_HTTPS_DIR"))
            << "run through with-https-server.sh";
        // What the composition root does at start-up.
        EnvironmentCertificateTrust::install(QProcessEnvironment::systemEnvironment());
    }

    void SetUp() override {
        QFile::remove(serverFile("requests.jsonl"));
        QFile::remove(serverFile("endless-sent"));
    }

    std::optional<TodaySummaryClientError> failureOfFetch(const QString& url) {
        try {
            awaitTask(summaryClient.fetchTodaySummary(url, "secret-key", {}));
        } catch (const TodaySummaryClientError& error) {
            return error;
        }
        return std::nullopt;
    }

    QNetworkAccessManager manager;
    NetworkAccessDeviceAuthorizationTransport deviceTransport{&manager};
    NetworkAccessTodaySummaryTransport summaryTransport{&manager};
    DeviceAuthorizationClient deviceClient{&deviceTransport,
                                           [] { return QDateTime::currentDateTimeUtc(); }};
    TodaySummaryClient summaryClient{&summaryTransport};
};

const QByteArray summaryBody =
    R"({"data":{"grand_total":{"text":"1 hr 5 mins","total_seconds":3900}}})";

TEST_F(ServiceHttpsTest, StartArrivesAsBuilt) {
    respond(
        {{"status", 201},
         {"body",
          R"({"authorization_id":"5c1e9d3a-0b7e-4f7c-9a51-2e6f1d0c4b88",)"
          R"("device_code":"d","user_code":"WDJB-MJHT","verification_uri":"https://v.example",)"
          R"("verification_uri_complete":"https://v.example/?c=1","expires_in":900,"interval":5})"}});
    const DeviceAuthorizationSession session = awaitTask(
        deviceClient.start(baseURL("file"), QUuid("{6f9619ff-8b86-d011-b42d-00c04fc964ff}"),
                           "anna-laptop", "0.6.1", {}));
    EXPECT_EQ(session.userCode, "WDJB-MJHT");

    const QJsonObject seen = requestsSeen().value(0);
    EXPECT_EQ(seen["method"], "POST");
    EXPECT_EQ(seen["path"], "/api/vantrel/v1/device-authorizations");
    EXPECT_EQ(seen["headers"]["accept"], "application/json");
    EXPECT_EQ(seen["headers"]["content-type"], "application/json");
    EXPECT_EQ(QJsonDocument::fromJson(seen["body"].toString().toUtf8()).object(),
              (QJsonObject{{"device_id", "6F9619FF-8B86-D011-B42D-00C04FC964FF"},
                           {"device_name", "anna-laptop"},
                           {"platform", "linux"},
                           {"client_version", "0.6.1"}}));
}

struct WireRow {
    const char* name;
    int status;
    QByteArray body;
    std::optional<DeviceAuthorizationPollResult> result;
    std::optional<DeviceAuthorizationClientError> error;
};

void PrintTo(const WireRow& row, std::ostream* out) {
    *out << row.name;
}

class PollOverHttpsTest : public ServiceHttpsTest, public testing::WithParamInterface<WireRow> {};

TEST_P(PollOverHttpsTest, MapsTheAnswer) {
    respond({{"status", GetParam().status},
             {"body", QString::fromUtf8(GetParam().body)},
             {"content_type", GetParam().body.startsWith('<') ? "text/html" : "application/json"}});
    DeviceAuthorizationSession session;
    session.authorizationID = QUuid("{5c1e9d3a-0b7e-4f7c-9a51-2e6f1d0c4b88}");
    session.deviceCode = "device-secret";
    session.interval = 5;

    std::optional<DeviceAuthorizationPollResult> result;
    std::optional<DeviceAuthorizationClientError> error;
    try {
        result = awaitTask(deviceClient.poll(baseURL("file"), session, {}));
    } catch (const DeviceAuthorizationClientError& e) {
        error = e;
    }
    EXPECT_EQ(result, GetParam().result);
    EXPECT_EQ(error, GetParam().error);
    EXPECT_EQ(
        requestsSeen().value(0)["body"],
        R"({"authorization_id":"5C1E9D3A-0B7E-4F7C-9A51-2E6F1D0C4B88","device_code":"device-secret"})");
}

using Result = DeviceAuthorizationPollResult;
using Error = DeviceAuthorizationClientError;

WireRow ok(const char* name, int status, QByteArray body, Result result) {
    return {name, status, std::move(body), result, {}};
}
WireRow fails(const char* name, int status, QByteArray body, Error error) {
    return {name, status, std::move(body), {}, error};
}

// Status codes travel through Qt's own error mapping here, which the fakes cannot show.
INSTANTIATE_TEST_SUITE_P(
    , PollOverHttpsTest,
    testing::Values(
        ok("Pending202", 202, R"({"status":"pending"})", Result::pending(5)),
        ok("SlowDown429", 429, R"({"status":"slow_down","interval":9})", Result::slowDown(9)),
        fails("PendingOn200", 200, R"({"status":"pending"})", Error::requestRejected(200)),
        fails("AuthorizedOn202", 202, R"({"status":"authorized","api_key":"k"})",
              Error::requestRejected(202)),
        fails("EmptyKey", 200, R"({"status":"authorized","api_key":""})", Error::invalidResponse()),
        fails("JSONOn400", 400, R"({"status":"error"})", Error::requestRejected(400)),
        fails("JSONOn401", 401, R"({"status":"error"})", Error::requestRejected(401)),
        fails("JSONOn500", 500, R"({"status":"error"})", Error::requestRejected(500)),
        fails("HTMLOn500", 500, "<html>Internal Server Error</html>", Error::invalidResponse()),
        ok("ExactlyTheLimit", 202, paddedPending(65536), Result::pending(5)),
        fails("OneByteOverTheLimit", 202, paddedPending(65537), Error::invalidResponse())),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(ServiceHttpsTest, RevokeCarriesTheKeyAsBearerWithoutABody) {
    respond({{"status", 204}});
    awaitTask(deviceClient.revoke(baseURL("file"), "secret-key", {}));

    const QJsonObject seen = requestsSeen().value(0);
    EXPECT_EQ(seen["path"], "/api/vantrel/v1/device/revoke");
    EXPECT_EQ(seen["headers"]["authorization"], "Bearer secret-key");
    EXPECT_EQ(seen["headers"]["content-type"], "application/json");
    EXPECT_EQ(seen["body"], "");
}

TEST_F(ServiceHttpsTest, TodaySummaryIsAnAuthorizedGetWithoutContentType) {
    respond({{"status", 200}, {"body", QString::fromUtf8(summaryBody)}});
    EXPECT_EQ(awaitTask(summaryClient.fetchTodaySummary(baseURL("file"), "secret-key", {})),
              (TodaySummary{"1 hr 5 mins", 3900}));
    respond({{"status", 401}, {"body", "<html>no</html>"}});
    EXPECT_EQ(failureOfFetch(baseURL("file")), TodaySummaryClientError::requestRejected(401));

    const QJsonObject seen = requestsSeen().value(0);
    EXPECT_EQ(seen["method"], "GET");
    EXPECT_EQ(seen["path"], "/api/vantrel/v1/users/current/statusbar/today");
    EXPECT_EQ(seen["headers"]["authorization"], "Bearer secret-key");
    EXPECT_FALSE(seen["headers"].toObject().contains("content-type"));
}

TEST_F(ServiceHttpsTest, AnEndlessBodyIsCutOffWithoutGrowingMemory) {
    respond({{"status", 200}, {"endless", true}});
    // Resets the peak resident size to the current one, so the peak below belongs to this test.
    QFile clearRefs("/proc/self/clear_refs");
    ASSERT_TRUE(clearRefs.open(QIODevice::WriteOnly));
    clearRefs.write("5");
    clearRefs.close();
    const qint64 residentBefore = statusValue("VmRSS:");

    QElapsedTimer elapsed;
    elapsed.start();
    const TransportResponse response =
        awaitTask(summaryTransport.send({"GET", QNetworkRequest(QUrl(baseURL("file"))), {}}, {}));
    const qint64 peakGrowth = statusValue("VmHWM:") - residentBefore;

    EXPECT_EQ(response.body.size(), 65537);
    EXPECT_TRUE(response.isHTTPResponse);
    EXPECT_LT(elapsed.elapsed(), 10000);
    EXPECT_LT(peakGrowth, 16 * 1024) << "kB";
    ASSERT_TRUE(AsyncTest::waitUntil([] { return QFile::exists(serverFile("endless-sent")); }));
    std::printf("endless body: server wrote %s bytes before the client went away; peak resident "
                "memory grew by %lld kB\n",
                readFile(serverFile("endless-sent")).constData(), peakGrowth);
    RecordProperty("peak_growth_kB", static_cast<int>(peakGrowth));

    EXPECT_EQ(failureOfFetch(baseURL("file")), TodaySummaryClientError::invalidResponse());
}

TEST_F(ServiceHttpsTest, CancellationAbortsASlowExchange) {
    respond({{"status", 200}, {"body", QString::fromUtf8(summaryBody)}, {"delay", 20}});
    TaskHandle handle;
    std::optional<TodaySummaryClientError> error;
    bool finished = false;
    awaitRecording(summaryClient.fetchTodaySummary(baseURL("file"), "k", handle.token()), &error,
                   &finished);
    ASSERT_TRUE(AsyncTest::waitUntil([] { return !requestsSeen().isEmpty(); }));

    QElapsedTimer elapsed;
    elapsed.start();
    handle.cancel();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return finished; }));
    EXPECT_LT(elapsed.elapsed(), 2000);
    EXPECT_EQ(error, TodaySummaryClientError::networkUnavailable());
}

TEST_F(ServiceHttpsTest, AConnectionClosedWithoutAnswerIsNetworkUnavailable) {
    respond({{"drop", true}});
    EXPECT_EQ(failureOfFetch(baseURL("file")), TodaySummaryClientError::networkUnavailable());
}

TEST_F(ServiceHttpsTest, TrustFollowsTheCertificateEnvironment) {
    respond({{"status", 200}, {"body", QString::fromUtf8(summaryBody)}});
    EXPECT_EQ(failureOfFetch(baseURL("dir")), std::nullopt) << "authority from SSL_CERT_DIR";
    EXPECT_EQ(failureOfFetch(baseURL("stranger")), TodaySummaryClientError::networkUnavailable());

    QProcessEnvironment environment;
    environment.insert("SSL_CERT_FILE", serverFile("late-ca.pem"));
    EXPECT_EQ(failureOfFetch(baseURL("late")), TodaySummaryClientError::networkUnavailable());
    EXPECT_EQ(EnvironmentCertificateTrust::install(environment), 1);
    manager.clearConnectionCache();
    EXPECT_EQ(failureOfFetch(baseURL("late")), std::nullopt);
}

TEST(EnvironmentCertificateTrust, ReadsTheBundleAndEveryDirectoryAndSkipsWhatIsNotThere) {
    QProcessEnvironment environment;
    EXPECT_TRUE(EnvironmentCertificateTrust::certificates(environment).isEmpty());

    environment.insert("SSL_CERT_FILE", serverFile("file-ca.pem"));
    environment.insert("SSL_CERT_DIR", "/nonexistent:" + serverFile("certs") + ":");
    QStringList names;
    for (const QSslCertificate& certificate :
         EnvironmentCertificateTrust::certificates(environment)) {
        names += certificate.subjectInfo(QSslCertificate::CommonName);
    }
    EXPECT_EQ(names, (QStringList{"Vantrel test authority file", "Vantrel test authority dir"}));

    environment.insert("SSL_CERT_FILE", serverFile("file.port"));
    environment.insert("SSL_CERT_DIR", "/nonexistent");
    EXPECT_TRUE(EnvironmentCertificateTrust::certificates(environment).isEmpty());
}

TEST(EnvironmentCertificateTrust, KeepsTheSystemAuthoritiesBesideTheNamedOnes) {
    QProcessEnvironment environment;
    // The authority the fixture trusts anyway, so that no other test's expectations change.
    environment.insert("SSL_CERT_FILE", serverFile("file-ca.pem"));
    EnvironmentCertificateTrust::install(environment);
    const QList<QSslCertificate> trusted =
        QSslConfiguration::defaultConfiguration().caCertificates();
    for (const QSslCertificate& certificate : QSslConfiguration::systemCaCertificates()) {
        ASSERT_TRUE(trusted.contains(certificate));
    }
}

} // namespace
