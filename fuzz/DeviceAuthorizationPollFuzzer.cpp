#include "FuzzProperty.h"
#include "api/DeviceAuthorizationClient.h"
#include "api/DeviceAuthorizationClientError.h"
#include "api/DeviceAuthorizationPollResult.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace {

using Kind = DeviceAuthorizationPollResult::Kind;

constexpr double sessionInterval = 5;

struct Answer {
    int statusCode;
    const char* status;
};

Answer answerFor(Kind kind) {
    switch (kind) {
    case Kind::authorized:
        return {200, "authorized"};
    case Kind::pending:
        return {202, "pending"};
    case Kind::slowDown:
        return {429, "slow_down"};
    case Kind::denied:
        return {403, "denied"};
    case Kind::expired:
        return {410, "expired"};
    case Kind::claimed:
        return {409, "claimed"};
    }
    std::abort();
}

QByteArray encoded(const DeviceAuthorizationPollResult& result) {
    QJsonObject object{{QStringLiteral("status"), QLatin1String(answerFor(result.kind()).status)}};
    if (result.kind() == Kind::authorized) {
        object.insert(QStringLiteral("api_key"), result.apiKey());
    }
    if (result.kind() == Kind::pending || result.kind() == Kind::slowDown) {
        object.insert(QStringLiteral("interval"), result.interval());
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

} // namespace

// Input: "<HTTP status code>\0<body>"; without the NUL the body came with a 202.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    QByteArrayList parts = inputParts(data, size, 2);
    if (parts[1].isNull()) {
        parts = {"202", parts[0]};
    }
    bool isNumber = false;
    const int statusCode = parts[0].toInt(&isNumber);
    if (!isNumber) {
        return 0;
    }

    std::optional<DeviceAuthorizationPollResult> result;
    try {
        result = DeviceAuthorizationClient::decodePollResult(statusCode, parts[1], sessionInterval);
    } catch (const DeviceAuthorizationClientError& error) {
        require(error == DeviceAuthorizationClientError::invalidResponse() ||
                    error == DeviceAuthorizationClientError::requestRejected(statusCode),
                "a poll fails only as an invalid response or a rejection with its status");
        return 0;
    }
    require(answerFor(result->kind()).statusCode == statusCode,
            "every answer comes with its own status code");
    if (result->kind() == Kind::authorized) {
        require(!result->apiKey().isEmpty(), "an authorization carries a key");
    }
    if (result->kind() == Kind::pending || result->kind() == Kind::slowDown) {
        require(std::isfinite(result->interval()) && result->interval() >= 0 &&
                    result->interval() <= DeviceAuthorizationClient::maximumInterval,
                "the next wait is one the sign-in can sit through");
    }

    try {
        const DeviceAuthorizationPollResult again = DeviceAuthorizationClient::decodePollResult(
            statusCode, encoded(*result), sessionInterval);
        require(again == *result, "a decoded answer equals itself decoded from its re-encoding");
    } catch (const DeviceAuthorizationClientError&) {
        require(false, "a decoded answer re-encodes to a body that decodes");
    }
    return 0;
}
