#include "api/TodaySummaryClientError.h"

QString TodaySummaryClientError::description() const {
    switch (m_code) {
    case Code::requestRejected:
        return QStringLiteral("Vantrel rejected the request for today's total (HTTP %1).")
            .arg(m_statusCode);
    case Code::invalidServerURL:
        return QStringLiteral("The Vantrel server address is invalid.");
    case Code::invalidResponse:
        return QStringLiteral("Vantrel returned an invalid answer for today's total.");
    case Code::networkUnavailable:
        return QStringLiteral("Vantrel could not be reached to fetch today's total.");
    }
    Q_UNREACHABLE();
}
