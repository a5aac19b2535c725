#include "core/CancellationToken.h"

#include "core/CancellationError.h"

#include <QMetaObject>

void CancellationToken::throwIfCancelled() const {
    if (isCancelled()) {
        throw CancellationError();
    }
}

QMetaObject::Connection CancellationToken::onCancel(QObject* context,
                                                    std::function<void()> callback) const {
    if (!m_state) {
        return {};
    }
    if (m_state->cancelled) {
        QMetaObject::invokeMethod(context, std::move(callback), Qt::QueuedConnection);
        return {};
    }
    return QObject::connect(m_state.get(), &CancellationState::cancelRequested, context,
                            std::move(callback), Qt::QueuedConnection);
}
