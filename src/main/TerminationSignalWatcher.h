#pragma once

#include <QObject>

#include <functional>

class QSocketNotifier;

// Turns SIGTERM, SIGINT, SIGHUP and SIGQUIT into a call on the GUI thread, so that a logout,
// `kill`, Ctrl+C or a closed terminal quits the way the Quit action does: the helper is stopped
// instead of being orphaned. Only one watcher may exist per process.
class TerminationSignalWatcher : public QObject {
    Q_OBJECT
public:
    explicit TerminationSignalWatcher(std::function<void()> onTermination,
                                      QObject* parent = nullptr);
    ~TerminationSignalWatcher() override;

private:
    static void handleSignal(int signalNumber);

    std::function<void()> m_onTermination;
    QSocketNotifier* m_notifier = nullptr;
};
