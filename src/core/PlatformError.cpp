#include "core/PlatformError.h"

#include <cstring>

PlatformError PlatformError::fromErrno(const QString& what, int errnum) {
    return PlatformError(what + QStringLiteral(": ") +
                         QString::fromLocal8Bit(std::strerror(errnum)));
}
