#pragma once

#include <QList>
#include <QProcessEnvironment>
#include <QSslCertificate>

// Qt trusts only the system certificate store, while OpenSSL-based tools also trust the
// certificate authorities named by SSL_CERT_FILE (one PEM bundle) and SSL_CERT_DIR (a
// colon-separated list of directories of PEM files). Honouring them lets a self-hosted server or
// a private test authority work without touching the system store.
class EnvironmentCertificateTrust {
public:
    // Every certificate the two variables name. Missing paths and files that hold no PEM
    // certificate are skipped: a stale variable must not keep the application from starting.
    static QList<QSslCertificate> certificates(const QProcessEnvironment& environment);

    // Adds those certificates to the default TLS configuration, keeping the system's own
    // authorities, and returns how many were new. With none named it changes nothing. Call it
    // before the first request: a QNetworkAccessManager keeps its connections to a host with the
    // configuration they were opened with.
    static qsizetype install(const QProcessEnvironment& environment);
};
