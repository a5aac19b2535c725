#include "api/ServiceRequest.h"

std::optional<QUrl> ServiceRequest::endpoint(const QString& serverURL, const QString& path) {
    // QUrl lower-cases schemes, so "HTTPS://" would pass a check made on the parsed URL.
    const qsizetype colon = serverURL.indexOf(QLatin1Char(':'));
    const QString scheme = colon < 0 ? QString() : serverURL.left(colon);
    if (scheme != QLatin1String("https") && scheme != QLatin1String("http")) {
        return std::nullopt;
    }
    QUrl url(serverURL, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty()) {
        return std::nullopt;
    }
    QString basePath = url.path(QUrl::FullyEncoded);
    while (basePath.endsWith(QLatin1Char('/'))) {
        basePath.chop(1);
    }
    url.setPath(basePath + QLatin1Char('/') + path, QUrl::TolerantMode);
    return url;
}

QNetworkRequest ServiceRequest::make(const QUrl& url) {
    QNetworkRequest request(url);
    request.setTransferTimeout(static_cast<int>(timeout.count()));
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::SameOriginRedirectPolicy);
    request.setRawHeader("Accept", "application/json");
    return request;
}
