#include "tracker/TrackerSupervisorError.h"

QString TrackerSupervisorError::description() const {
    switch (m_code) {
    case Code::helperMissing:
        return QStringLiteral("Tracker helper is missing at ") + m_helperPath + QLatin1Char('.');
    case Code::helperExited:
        return QStringLiteral("Tracker helper exited with status ") +
               QString::number(m_exitStatus) + QStringLiteral(": ") + m_message;
    }
    Q_UNREACHABLE();
}
