#pragma once

#include <QObject>

#include <functional>
#include <memory>

// Shared flag behind a TaskHandle and its tokens. Lives on the GUI thread like everything else.
class CancellationState : public QObject {
    Q_OBJECT
public:
    bool cancelled = false;

Q_SIGNALS:
    void cancelRequested();
};

// The observing side of a task's cancellation: a coroutine receives one and checks it after every
// suspension. A default-constructed token is never cancelled.
class CancellationToken {
public:
    CancellationToken() = default;

    bool isCancelled() const { return m_state && m_state->cancelled; }

    // Throws CancellationError when cancelled.
    void throwIfCancelled() const;

    // Runs `callback` once cancellation is requested, on a later turn of the event loop, never
    // from inside the cancel() call: whoever cancels finishes its own work before the cancelled
    // task resumes. The connection ends with `context`. A token that is already cancelled
    // schedules the callback at once.
    QMetaObject::Connection onCancel(QObject* context, std::function<void()> callback) const;

private:
    friend class TaskHandle;
    explicit CancellationToken(std::shared_ptr<CancellationState> state)
        : m_state(std::move(state)) {}

    std::shared_ptr<CancellationState> m_state;
};
