#pragma once

#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <chrono>
#include <optional>

// The rules both service clients apply before anything reaches the network.
class ServiceRequest {
public:
    // The largest response body a client accepts; transports stop reading one byte beyond it.
    static constexpr qsizetype maximumBodyBytes = 65536;
    // Silence for `timeout` ends an exchange, and so does `deadline` in all, however busy.
    static constexpr std::chrono::milliseconds timeout{15000};
    static constexpr std::chrono::milliseconds deadline{60000};

    // `path` below the base URL's own path with exactly one "/" between them, or nullopt when the
    // base has no host or its scheme is not literally "https" or "http".
    static std::optional<QUrl> endpoint(const QString& serverURL, const QString& path);

    // A request with what every call shares: the transfer timeout, no cache in either direction,
    // "Accept: application/json", and redirects followed only within the same origin so that an
    // "Authorization" header never travels to a host the user did not configure.
    static QNetworkRequest make(const QUrl& url);
};
