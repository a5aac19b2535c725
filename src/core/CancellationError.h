#pragma once

#include "core/VantrelError.h"

// Thrown by an asynchronous operation that noticed its task was cancelled. Callers treat it as a
// quiet end, never as something to show.
class CancellationError : public VantrelError {
public:
    QString description() const override { return QStringLiteral("The operation was cancelled."); }
};
