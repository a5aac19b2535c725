#include "main/FirstRequestPreparedNetworkAccessManager.h"

#include "api/EnvironmentCertificateTrust.h"

#include <QNetworkProxyFactory>
#include <QProcessEnvironment>

FirstRequestPreparedNetworkAccessManager::FirstRequestPreparedNetworkAccessManager(QObject* parent)
    : QNetworkAccessManager(parent) {
    setCache(nullptr);
}

QNetworkReply* FirstRequestPreparedNetworkAccessManager::createRequest(
    Operation operation, const QNetworkRequest& request, QIODevice* outgoingData) {
    if (!m_prepared) {
        m_prepared = true;
        // Before the request takes its copy of the default TLS configuration: connections keep
        // the settings they were opened with.
        EnvironmentCertificateTrust::install(QProcessEnvironment::systemEnvironment());
        QNetworkProxyFactory::setUseSystemConfiguration(true);
    }
    return QNetworkAccessManager::createRequest(operation, request, outgoingData);
}
