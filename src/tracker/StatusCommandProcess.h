#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

class QSocketNotifier;
class SpawnedProcess;

// One run of a short command whose standard output is captured in full and whose standard error
// is captured up to a limit. Both pipes are drained by the GUI thread's event loop as data
// arrives, so a command that writes more than a pipe holds never stalls, and the GUI thread never
// waits for it. `finished` is emitted once the command has exited and both pipes have ended.
class StatusCommandProcess : public QObject {
    Q_OBJECT
public:
    // Starts the command at once; its standard input is the application's own. Throws
    // PlatformError when it cannot be started.
    StatusCommandProcess(const QString& executable, const QStringList& arguments,
                         qsizetype standardErrorLimit);
    ~StatusCommandProcess() override;

    bool isFinished() const;
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
    void drain(Channel& channel, QByteArray& buffer, qsizetype limit);
    void close(Channel& channel);
    void finishIfDone();

    Channel m_outputChannel;
    Channel m_errorChannel;
    QByteArray m_output;
    QByteArray m_error;
    qsizetype m_errorLimit;
    QPointer<SpawnedProcess> m_process;
    bool m_exited = false;
    qint32 m_exitStatus = 0;
    bool m_finishedEmitted = false;
};
