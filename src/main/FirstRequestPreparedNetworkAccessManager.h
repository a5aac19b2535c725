#pragma once

#include <QNetworkAccessManager>

// The application's one QNetworkAccessManager. The TLS library, the extra certificate authorities
// and the system proxy settings are loaded on the first request rather than at launch: a session
// signed out never needs them, and a signed-in one first asks after its tray icon is up.
class FirstRequestPreparedNetworkAccessManager : public QNetworkAccessManager {
    Q_OBJECT
public:
    explicit FirstRequestPreparedNetworkAccessManager(QObject* parent = nullptr);

protected:
    QNetworkReply* createRequest(Operation operation, const QNetworkRequest& request,
                                 QIODevice* outgoingData) override;

private:
    bool m_prepared = false;
};
