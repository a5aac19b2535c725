#include "system/QProcessSystemCommandRunner.h"

#include "core/PlatformError.h"

#include <QProcess>
#include <QStringDecoder>
#include <QTimer>

#include <coroutine>
#include <memory>

namespace {

QString strictUtf8(const QByteArray& bytes) {
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(bytes);
    return decoder.hasError() ? QString() : text;
}

// Awaits the end of a started process: its exit, its failure to start, or the bound passing
// first. QCoro's own waits follow the started signal, which a program that cannot be executed
// never sends, and its signal awaiter cannot take QProcess's private signals. The coroutine is
// resumed from the event loop, not inside the process's signal, so it may destroy the process.
class ProcessEnd {
public:
    ProcessEnd(QProcess& process, std::chrono::milliseconds bound)
        : m_process(&process)
        , m_bound(bound) {}

    bool await_ready() const noexcept { return ended(); }
    void await_suspend(std::coroutine_handle<> waiter) {
        m_waiting = std::make_unique<Waiting>();
        Waiting* waiting = m_waiting.get();
        const auto wake = [waiting, waiter] {
            if (waiting->woken) {
                return;
            }
            waiting->woken = true;
            waiting->timer.stop();
            QTimer::singleShot(0, [waiter] { waiter.resume(); });
        };
        QObject::connect(m_process, &QProcess::finished, &waiting->context, wake);
        QObject::connect(m_process, &QProcess::errorOccurred, &waiting->context,
                         [wake](QProcess::ProcessError error) {
                             if (error == QProcess::FailedToStart) {
                                 wake();
                             }
                         });
        waiting->timer.setSingleShot(true);
        QObject::connect(&waiting->timer, &QTimer::timeout, &waiting->context, wake);
        waiting->timer.start(m_bound);
    }
    // Whether the process ended, or never started, before the bound passed.
    bool await_resume() const noexcept { return ended(); }

private:
    struct Waiting {
        QObject context;
        QTimer timer;
        bool woken = false;
    };

    bool ended() const { return m_process->state() == QProcess::NotRunning; }

    QProcess* m_process;
    std::chrono::milliseconds m_bound;
    std::unique_ptr<Waiting> m_waiting;
};

} // namespace

QCoro::Task<SystemCommandResult> QProcessSystemCommandRunner::run(QString executable,
                                                                  QStringList arguments) {
    QProcess process;
    process.setProgram(executable);
    process.setArguments(arguments);
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.start();
    // Both pipes are read as data arrives, so a chatty command never blocks on a full pipe; the
    // wait ends once the process has exited, whatever a leftover grandchild keeps open.
    const bool ended = co_await ProcessEnd(process, m_bound);
    if (process.error() == QProcess::FailedToStart) {
        throw PlatformError(QStringLiteral("Could not start ") + executable + QStringLiteral(": ") +
                            process.errorString());
    }
    if (!ended) {
        process.kill();
        co_await ProcessEnd(process, m_bound);
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
