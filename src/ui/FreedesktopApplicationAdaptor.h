#pragma once

#include <QDBusAbstractAdaptor>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <functional>

// org.freedesktop.Application on the application's object: how a second start, the desktop
// entry's actions and other programs reach the running copy.
class FreedesktopApplicationAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
public:
    struct Handlers {
        std::function<void()> activate;
        // "settings", "diagnostics", "sign-in", "quit"; false for any other name.
        std::function<bool(const QString& action)> activateAction;
    };

    FreedesktopApplicationAdaptor(QObject* object, Handlers handlers);

public Q_SLOTS:
    void Activate(const QVariantMap& platformData);
    void Open(const QStringList& uris, const QVariantMap& platformData);
    void ActivateAction(const QString& actionName, const QVariantList& parameter,
                        const QVariantMap& platformData);

private:
    Handlers m_handlers;
};
