#pragma once

#include <QObject>

// Whether the session has a tray that can show our icon, followed while the application runs.
class TrayHostWatching : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    virtual bool isAvailable() const = 0;

Q_SIGNALS:
    void availabilityChanged(bool available);
};
