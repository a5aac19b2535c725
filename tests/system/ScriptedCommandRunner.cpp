#include "ScriptedCommandRunner.h"

#include "app/PlatformError.h"

SystemCommandResult ScriptedCommandRunner::run(const QString& executable,
                                               const QStringList& arguments) {
    calls.append({executable, arguments});
    if (startFailure) {
        throw PlatformError(*startFailure);
    }
    SystemCommandResult result;
    if (arguments.value(0) == "bootout") {
        result.exitStatus = bootoutStatus;
        result.standardError = "Boot-out failed: 3: No such process\n";
        return result;
    }
    std::deque<qint32>& queued = printStatuses[arguments.value(1)];
    if (queued.empty()) {
        result.exitStatus = 113;
        return result;
    }
    result.exitStatus = queued.front();
    queued.pop_front();
    return result;
}

QStringList ScriptedCommandRunner::argumentLines() const {
    QStringList lines;
    for (const Call& call : calls) {
        lines.append(call.arguments.join(' '));
    }
    return lines;
}
