#pragma once

#include "core/VantrelError.h"

class DeviceAuthorizationClientError : public VantrelError {
public:
    enum class Code { requestRejected, invalidServerURL, invalidResponse, networkUnavailable };

    static DeviceAuthorizationClientError requestRejected(int statusCode) {
        return DeviceAuthorizationClientError(Code::requestRejected, statusCode);
    }
    static DeviceAuthorizationClientError invalidServerURL() {
        return DeviceAuthorizationClientError(Code::invalidServerURL);
    }
    static DeviceAuthorizationClientError invalidResponse() {
        return DeviceAuthorizationClientError(Code::invalidResponse);
    }
    static DeviceAuthorizationClientError networkUnavailable() {
        return DeviceAuthorizationClientError(Code::networkUnavailable);
    }

    Code code() const { return m_code; }
    int statusCode() const { return m_statusCode; }
    QString description() const override;

    friend bool operator==(const DeviceAuthorizationClientError& a,
                           const DeviceAuthorizationClientError& b) {
        return a.m_code == b.m_code && a.m_statusCode == b.m_statusCode;
    }

private:
    explicit DeviceAuthorizationClientError(Code code, int statusCode = 0)
        : m_code(code)
        , m_statusCode(statusCode) {}

    Code m_code;
    int m_statusCode;
};
