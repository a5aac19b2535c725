#include "api/EnvironmentCertificateTrust.h"

#include <QDir>
#include <QFile>
#include <QSslConfiguration>

namespace {

QList<QSslCertificate> fromFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QSslCertificate::fromDevice(&file, QSsl::Pem);
}

} // namespace

QList<QSslCertificate>
EnvironmentCertificateTrust::certificates(const QProcessEnvironment& environment) {
    QList<QSslCertificate> found;
    const QString file = environment.value(QStringLiteral("SSL_CERT_FILE"));
    if (!file.isEmpty()) {
        found += fromFile(file);
    }
    const QStringList directories = environment.value(QStringLiteral("SSL_CERT_DIR"))
                                        .split(QLatin1Char(':'), Qt::SkipEmptyParts);
    for (const QString& directory : directories) {
        // OpenSSL looks certificates up by hashed names; reading every file finds the same set.
        const QFileInfoList entries =
            QDir(directory).entryInfoList(QDir::Files | QDir::Readable, QDir::Name);
        for (const QFileInfo& entry : entries) {
            found += fromFile(entry.filePath());
        }
    }
    return found;
}

qsizetype EnvironmentCertificateTrust::install(const QProcessEnvironment& environment) {
    const QList<QSslCertificate> named = certificates(environment);
    if (named.isEmpty()) {
        return 0;
    }
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    // Setting the list explicitly ends Qt's loading of system authorities on demand, so they go
    // into the list as well.
    QList<QSslCertificate> trusted = configuration.caCertificates();
    const QList<QSslCertificate> system = QSslConfiguration::systemCaCertificates();
    for (const QSslCertificate& certificate : system) {
        if (!trusted.contains(certificate)) {
            trusted.append(certificate);
        }
    }
    qsizetype added = 0;
    for (const QSslCertificate& certificate : named) {
        if (!trusted.contains(certificate)) {
            trusted.append(certificate);
            ++added;
        }
    }
    configuration.setCaCertificates(trusted);
    QSslConfiguration::setDefaultConfiguration(configuration);
    return added;
}
