#pragma once

#include "core/VantrelError.h"

// A status document that is not valid JSON, not an object, or misses or mistypes a field.
class TrackerStatusDecodingError : public VantrelError {
public:
    explicit TrackerStatusDecodingError(QString reason)
        : m_reason(std::move(reason)) {}

    const QString& reason() const { return m_reason; }
    QString description() const override {
        return QStringLiteral("The tracker status could not be read because it is not in the "
                              "expected format: ") +
               m_reason + QLatin1Char('.');
    }

private:
    QString m_reason;
};
