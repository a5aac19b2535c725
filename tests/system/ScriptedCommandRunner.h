#pragma once

#include "system/SystemCommandRunning.h"

#include <QHash>
#include <QList>

#include <deque>
#include <optional>

// A launchctl that answers from a script. "print" plays the statuses queued for its target, then
// reports the service as unknown (113); "bootout" answers `bootoutStatus`. Every call is kept.
class ScriptedCommandRunner : public SystemCommandRunning {
public:
    SystemCommandResult run(const QString& executable, const QStringList& arguments) override;

    struct Call {
        QString executable;
        QStringList arguments;
    };
    QList<Call> calls;
    QStringList argumentLines() const; // "print gui/501/…" per call

    QHash<QString, std::deque<qint32>> printStatuses; // by target
    qint32 bootoutStatus = 5;
    // When set, the command cannot start: throws PlatformError with this text.
    std::optional<QString> startFailure;
};
