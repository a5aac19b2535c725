#pragma once

#include <QObject>

// Tells when the internet has become reachable again after a time without it.
class NetworkReturnWatching : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

Q_SIGNALS:
    void returned();
};
