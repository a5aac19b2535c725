#include "main/TerminationSignalWatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Written by the signal handler, read on the GUI thread: the self-pipe trick, since a signal
// handler may call nothing but async-signal-safe functions.
int signalSockets[2] = {-1, -1};

// A closed terminal (SIGHUP) and the terminal's quit key (SIGQUIT) end the application as surely
// as `kill` does; left to their default actions they would end it without stopping the helper.
constexpr int watchedSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT};

void setHandler(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : watchedSignals) {
        // Started under nohup, the application was asked to outlive its terminal.
        struct sigaction current {};
        if (signalNumber == SIGHUP && ::sigaction(SIGHUP, nullptr, &current) == 0 &&
            current.sa_handler == SIG_IGN) {
            continue;
        }
        ::sigaction(signalNumber, &action, nullptr);
    }
}

} // namespace

TerminationSignalWatcher::TerminationSignalWatcher(std::function<void()> onTermination,
                                                   QObject* parent)
    : QObject(parent)
    , m_onTermination(std::move(onTermination)) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalSockets) != 0) {
        return;
    }
    m_notifier = new QSocketNotifier(signalSockets[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char signalNumber = 0;
        if (::read(signalSockets[1], &signalNumber, 1) == 1 && m_onTermination) {
            m_onTermination();
        }
    });
    setHandler(&TerminationSignalWatcher::handleSignal);
}

TerminationSignalWatcher::~TerminationSignalWatcher() {
    setHandler(SIG_DFL);
    for (int& socket : signalSockets) {
        if (socket >= 0) {
            ::close(socket);
            socket = -1;
        }
    }
}

void TerminationSignalWatcher::handleSignal(int signalNumber) {
    const char byte = static_cast<char>(signalNumber);
    [[maybe_unused]] const ssize_t written = ::write(signalSockets[0], &byte, 1);
}
