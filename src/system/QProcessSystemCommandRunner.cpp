#include "system/QProcessSystemCommandRunner.h"

#include "core/PlatformError.h"

#include <QProcess>
#include <QStringDecoder>

namespace {

QString strictUtf8(const QByteArray& bytes) {
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(bytes);
    return decoder.hasError() ? QString() : text;
}

} // namespace

SystemCommandResult QProcessSystemCommandRunner::run(const QString& executable,
                                                     const QStringList& arguments) {
    QProcess process;
    process.setProgram(executable);
    process.setArguments(arguments);
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.start();
    if (!process.waitForStarted(-1)) {
        throw PlatformError(QStringLiteral("Could not start ") + executable + QStringLiteral(": ") +
                            process.errorString());
    }
    // The wait reads both pipes as data arrives, so a chatty command never blocks on a full pipe;
    // it returns once the process has exited, whatever a leftover grandchild keeps open.
    process.waitForFinished(-1);

    SystemCommandResult result;
    // For a process ended by a signal QProcess reports the signal number here.
    result.exitStatus = process.exitCode();
    result.standardOutput = strictUtf8(process.readAllStandardOutput());
    result.standardError = strictUtf8(process.readAllStandardError());
    return result;
}
