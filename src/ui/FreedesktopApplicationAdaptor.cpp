#include "ui/FreedesktopApplicationAdaptor.h"

#include <QtGlobal>

FreedesktopApplicationAdaptor::FreedesktopApplicationAdaptor(QObject* object, Handlers handlers)
    : QDBusAbstractAdaptor(object)
    , m_handlers(std::move(handlers)) {}

void FreedesktopApplicationAdaptor::Activate(const QVariantMap&) {
    m_handlers.activate();
}

void FreedesktopApplicationAdaptor::Open(const QStringList&, const QVariantMap&) {
    // The application opens no documents; being asked to is still a request to come forward.
    m_handlers.activate();
}

void FreedesktopApplicationAdaptor::ActivateAction(const QString& actionName, const QVariantList&,
                                                   const QVariantMap&) {
    if (!m_handlers.activateAction(actionName)) {
        qWarning("Ignoring the unknown application action \"%s\"", qUtf8Printable(actionName));
    }
}
