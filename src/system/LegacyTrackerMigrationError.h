#pragma once

#include "core/VantrelError.h"

class LegacyTrackerMigrationError : public VantrelError {
public:
    enum class Code { serviceStillRunning, credentialVerificationFailed };

    static LegacyTrackerMigrationError serviceStillRunning(QString label) {
        return LegacyTrackerMigrationError(Code::serviceStillRunning, std::move(label));
    }
    static LegacyTrackerMigrationError credentialVerificationFailed() {
        return LegacyTrackerMigrationError(Code::credentialVerificationFailed, {});
    }

    Code code() const { return m_code; }
    const QString& label() const { return m_label; }
    QString description() const override;

    friend bool operator==(const LegacyTrackerMigrationError& a,
                           const LegacyTrackerMigrationError& b) {
        return a.m_code == b.m_code && a.m_label == b.m_label;
    }

private:
    LegacyTrackerMigrationError(Code code, QString label)
        : m_code(code)
        , m_label(std::move(label)) {}

    Code m_code;
    QString m_label;
};
