#include "core/VantrelError.h"

QString VantrelError::describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const VantrelError& e) {
        return e.description();
    } catch (const std::exception& e) {
        return QString::fromUtf8(e.what());
    } catch (...) {
        return QStringLiteral("An unknown error occurred.");
    }
}
