#include "system/QProcessSystemCommandRunner.h"

#include "core/PlatformError.h"

#include <QCoroSignal>
#include <QProcess>
#include <QStringDecoder>

namespace {

QString strictUtf8(const QByteArray& bytes) {
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(bytes);
    return decoder.hasError() ? QString() : text;
}

} // namespace

QCoro::Task<SystemCommandResult> QProcessSystemCommandRunner::run(QString executable,
                                                                  QStringList arguments) {
    QProcess process;
    process.setProgram(executable);
    process.setArguments(arguments);
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.start();
    // Followed through the state rather than the started signal, which a program that cannot be
    // executed never sends: awaiting it would hold start-up until a timeout.
    while (process.state() == QProcess::Starting) {
        co_await qCoro(&process, &QProcess::stateChanged);
    }
    if (process.error() == QProcess::FailedToStart) {
        throw PlatformError(QStringLiteral("Could not start ") + executable + QStringLiteral(": ") +
                            process.errorString());
    }
    // Both pipes are read as data arrives, so a chatty command never blocks on a full pipe; the
    // wait ends once the process has exited, whatever a leftover grandchild keeps open.
    if (process.state() != QProcess::NotRunning &&
        !co_await qCoro(&process, &QProcess::finished, m_bound)) {
        process.kill();
        if (process.state() != QProcess::NotRunning) {
            co_await qCoro(&process, &QProcess::finished, m_bound);
        }
        throw PlatformError(executable + QStringLiteral(" did not finish within ") +
                            QString::number(m_bound.count() / 1000.0) +
                            QStringLiteral(" seconds and was stopped."));
    }

    SystemCommandResult result;
    // For a process ended by a signal QProcess reports the signal number here.
    result.exitStatus = process.exitCode();
    result.standardOutput = strictUtf8(process.readAllStandardOutput());
    result.standardError = strictUtf8(process.readAllStandardError());
    co_return result;
}
