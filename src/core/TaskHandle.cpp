#include "core/TaskHandle.h"

TaskHandle::TaskHandle()
    : m_state(std::make_shared<CancellationState>()) {}

void TaskHandle::cancel() {
    if (m_state->cancelled) {
        return;
    }
    m_state->cancelled = true;
    Q_EMIT m_state->cancelRequested();
}
