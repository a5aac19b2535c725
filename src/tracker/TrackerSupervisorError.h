#pragma once

#include "core/VantrelError.h"

class TrackerSupervisorError : public VantrelError {
public:
    enum class Code { helperMissing, helperExited };

    static TrackerSupervisorError helperMissing(QString helperPath) {
        return TrackerSupervisorError(Code::helperMissing, std::move(helperPath), 0, {});
    }
    static TrackerSupervisorError helperExited(qint32 status, QString message) {
        return TrackerSupervisorError(Code::helperExited, {}, status, std::move(message));
    }

    Code code() const { return m_code; }
    const QString& helperPath() const { return m_helperPath; }
    qint32 exitStatus() const { return m_exitStatus; }
    const QString& message() const { return m_message; }
    QString description() const override;

    friend bool operator==(const TrackerSupervisorError& a, const TrackerSupervisorError& b) {
        return a.m_code == b.m_code && a.m_helperPath == b.m_helperPath &&
               a.m_exitStatus == b.m_exitStatus && a.m_message == b.m_message;
    }

private:
    TrackerSupervisorError(Code code, QString helperPath, qint32 exitStatus, QString message)
        : m_code(code)
        , m_helperPath(std::move(helperPath))
        , m_exitStatus(exitStatus)
        , m_message(std::move(message)) {}

    Code m_code;
    QString m_helperPath;
    qint32 m_exitStatus;
    QString m_message;
};
