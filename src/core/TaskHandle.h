#pragma once

#include "core/CancellationToken.h"

// The owning side of an asynchronous task: whoever started the task keeps the handle and may
// cancel it. The task itself receives `token()`. Cancelling is idempotent; a handle that is
// dropped without cancel() leaves its task running (tasks end themselves or are cancelled by
// their owner, never by going out of scope).
class TaskHandle {
public:
    TaskHandle();

    CancellationToken token() const { return CancellationToken(m_state); }
    bool isCancelled() const { return m_state->cancelled; }
    void cancel();

    friend bool operator==(const TaskHandle& a, const TaskHandle& b) {
        return a.m_state == b.m_state;
    }

private:
    std::shared_ptr<CancellationState> m_state;
};
