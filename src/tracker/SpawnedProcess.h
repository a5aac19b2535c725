#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <sys/types.h>

class QSocketNotifier;
class QTimer;

// A child process started with fork and exec and reaped on the GUI thread's event loop, through a
// pidfd where the kernel offers one. The child is bound to our life: the kernel sends it SIGTERM
// when the thread that started it ends, which for the GUI thread is when the application ends,
// however it ends. Start children from the GUI thread only. Nothing else in the application waits
// for our children, so the pid stays ours until this object reaps it, and signals can never reach a
// stranger.
//
// Objects are created parentless and end their own life: once the child has been reaped (and
// `exited` emitted) a SpawnedProcess deletes itself, so owners hold it through a QPointer. It is
// never destroyed while the child runs, which is what keeps the child from becoming a zombie or
// being killed on the way out.
class SpawnedProcess : public QObject {
    Q_OBJECT
public:
    // Descriptors the child gets as its standard streams; -1 leaves the application's own. Every
    // other descriptor is closed in the child.
    struct StandardStreams {
        int input = -1;
        int output = -1;
        int error = -1;
        // Handed on as descriptor 3 when not -1.
        int extra = -1;
    };

    // Starts `executable` with `arguments` (not including argv[0]), the application's
    // environment and working directory, and default signal handling. Throws PlatformError when
    // the process cannot be started, including when the program cannot be executed.
    static SpawnedProcess* spawn(const QString& executable, const QStringList& arguments,
                                 const StandardStreams& streams);

    ~SpawnedProcess() override;

    pid_t pid() const { return m_pid; }
    // Alive as the kernel sees it now: a child that has ended but has not been reaped yet
    // counts as gone.
    bool isRunning() const;
    bool hasExited() const { return m_exited; }
    qint32 exitStatus() const { return m_exitStatus; }
    // Sends `signalNumber` unless the child has already been reaped.
    void sendSignal(int signalNumber);

Q_SIGNALS:
    // Emitted once with the exit status, or the signal number for a child ended by a signal.
    void exited(qint32 status);

private:
    SpawnedProcess(pid_t pid, int pidfd);
    void reapIfExited();

    pid_t m_pid;
    int m_pidfd;
    bool m_exited = false;
    qint32 m_exitStatus = 0;
    QSocketNotifier* m_notifier = nullptr;
    QTimer* m_pollTimer = nullptr;
};
