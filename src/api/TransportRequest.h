#pragma once

#include <QByteArray>
#include <QNetworkRequest>

// One HTTP exchange as a client built it: the method and body travel beside the request because
// QNetworkRequest carries neither.
struct TransportRequest {
    QByteArray method;
    QNetworkRequest request;
    QByteArray body;
};
