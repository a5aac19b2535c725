#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

class QSocketNotifier;
class SpawnedProcess;

// One run of a short command whose standard output is captured in full and whose standard error
// is captured up to a limit. Both pipes are drained by the GUI thread's event loop as data
// arrives, so a command that writes more than a pipe holds never stalls, and the GUI thread never
// waits for it. It has no time limit. `finished` is emitted once the command has exited and both
// pipes have ended, or once its output passed the ceiling (see Failure).
class StatusCommandProcess : public QObject {
    Q_OBJECT
public:
    struct Limits {
        // More standard output than this is no answer but a runaway command.
        qsizetype output;
        // Standard error beyond this is read and discarded.
        qsizetype error;
    };
    // Why a command was given up. Its pipes are closed, so it ends by itself on its next write
    // (SIGPIPE); it is sent no signal. Its output is not to be used.
    enum class Failure { none, outputTooLarge };

    // Starts the command at once; its standard input is the application's own. Throws
    // PlatformError when it cannot be started.
    StatusCommandProcess(const QString& executable, const QStringList& arguments,
                         const Limits& limits);
    ~StatusCommandProcess() override;

    bool isFinished() const;
    Failure failure() const { return m_failure; }
    qint32 exitStatus() const { return m_exitStatus; }
    // Kept as the chunks it arrived in: one buffer grown to megabytes would be copied into fresh
    // pages again and again, and the page faults alone would hold the GUI thread for tens of
    // milliseconds. Whoever decodes the output joins them.
    const QList<QByteArray>& standardOutput() const { return m_output; }
    // At most the limit given at construction; the rest was read and discarded.
    const QByteArray& standardError() const { return m_error; }

Q_SIGNALS:
    void finished();

private:
    struct Channel {
        int fd = -1;
        QSocketNotifier* notifier = nullptr;
    };
    void drainOutput();
    void drainError();
    // Reads what the pipe holds now, at most a few chunks; false once the pipe has ended.
    template <typename Consume>
    bool drain(Channel& channel, Consume consume);
    void close(Channel& channel);
    void giveUp(Failure failure);
    void finishIfDone();

    Channel m_outputChannel;
    Channel m_errorChannel;
    QList<QByteArray> m_output;
    qsizetype m_outputSize = 0;
    QByteArray m_error;
    Limits m_limits;
    Failure m_failure = Failure::none;
    QPointer<SpawnedProcess> m_process;
    bool m_exited = false;
    qint32 m_exitStatus = 0;
    bool m_finishedEmitted = false;
};
