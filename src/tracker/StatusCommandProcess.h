#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <chrono>

class QSocketNotifier;
class SpawnedProcess;

// One run of a short command whose standard output is captured in full and whose standard error
// is captured up to a limit. Both pipes are drained by the GUI thread's event loop as data
// arrives, so a command that writes more than a pipe holds never stalls, and the GUI thread never
// waits for it. `finished` is emitted once the command has exited and both pipes have ended, or
// once it has been given up (see Failure).
class StatusCommandProcess : public QObject {
    Q_OBJECT
public:
    struct Limits {
        // More standard output than this is no answer but a runaway command.
        qsizetype output;
        // Standard error beyond this is read and discarded.
        qsizetype error;
        std::chrono::milliseconds time;
    };
    // Why a command was given up: it was killed, and its output is not to be used.
    enum class Failure { none, outputTooLarge, timedOut };

    // Starts the command at once; its standard input is the application's own. Throws
    // PlatformError when it cannot be started.
    StatusCommandProcess(const QString& executable, const QStringList& arguments,
                         const Limits& limits);
    ~StatusCommandProcess() override;

    bool isFinished() const;
    Failure failure() const { return m_failure; }
    qint32 exitStatus() const { return m_exitStatus; }
    const QByteArray& standardOutput() const { return m_output; }
    // At most the limit given at construction; the rest was read and discarded.
    const QByteArray& standardError() const { return m_error; }

Q_SIGNALS:
    void finished();

private:
    struct Channel {
        int fd = -1;
        QSocketNotifier* notifier = nullptr;
    };
    void drain(Channel& channel, QByteArray& buffer, qsizetype limit, bool failBeyondLimit);
    void close(Channel& channel);
    void giveUp(Failure failure);
    void finishIfDone();

    Channel m_outputChannel;
    Channel m_errorChannel;
    QByteArray m_output;
    QByteArray m_error;
    Limits m_limits;
    Failure m_failure = Failure::none;
    QPointer<SpawnedProcess> m_process;
    bool m_exited = false;
    qint32 m_exitStatus = 0;
    bool m_finishedEmitted = false;
};
