#pragma once

#include "core/VantrelError.h"

// Failures of one today-summary fetch. The poller drops them all, so the texts exist for
// diagnosis, never for the menu.
class TodaySummaryClientError : public VantrelError {
public:
    enum class Code { requestRejected, invalidServerURL, invalidResponse, networkUnavailable };

    static TodaySummaryClientError requestRejected(int statusCode) {
        return TodaySummaryClientError(Code::requestRejected, statusCode);
    }
    static TodaySummaryClientError invalidServerURL() {
        return TodaySummaryClientError(Code::invalidServerURL);
    }
    static TodaySummaryClientError invalidResponse() {
        return TodaySummaryClientError(Code::invalidResponse);
    }
    static TodaySummaryClientError networkUnavailable() {
        return TodaySummaryClientError(Code::networkUnavailable);
    }

    Code code() const { return m_code; }
    int statusCode() const { return m_statusCode; }
    QString description() const override;

    friend bool operator==(const TodaySummaryClientError& a, const TodaySummaryClientError& b) {
        return a.m_code == b.m_code && a.m_statusCode == b.m_statusCode;
    }

private:
    explicit TodaySummaryClientError(Code code, int statusCode = 0)
        : m_code(code)
        , m_statusCode(statusCode) {}

    Code m_code;
    int m_statusCode;
};
