// The baselines of the footprint benchmark, one source built twice.
//
// footprint_bare_tray: the least a Qt Widgets tray program does, one tray icon with a two-entry
// menu, created once the session's tray host is on the bus (as the application does, since Qt
// caches a negative answer), and nothing else. It links nothing more, since merely loading a
// library costs memory.
//
// footprint_services_tray <url>: the same program plus the two platform services a signed-in
// companion cannot do without, through the application's own bindings: the API key read once
// from the Secret Service, and an HTTPS GET of <url> at start and every 60 s through one
// QNetworkAccessManager that trusts the same certificate authorities. What the application costs
// beyond this second baseline is its own.

#ifdef FOOTPRINT_WITH_SERVICES
#include "api/EnvironmentCertificateTrust.h"
#include "system/SecretServiceCredentialStore.h"
#endif

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusServiceWatcher>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>
#ifdef FOOTPRINT_WITH_SERVICES
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcessEnvironment>
#include <QTimer>
#endif

#include <cstdio>
#include <memory>

namespace {

QIcon drawnIcon() {
    QIcon icon;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setBrush(Qt::black);
        painter.drawEllipse(QRectF(1, 1, size - 2, size - 2));
        icon.addPixmap(pixmap);
    }
    return icon;
}

#ifdef FOOTPRINT_WITH_SERVICES
// Reads the key and keeps fetching; a failure is printed, since a baseline that silently skipped
// its TLS handshake would measure less than it claims.
QCoro::Task<void> readKey(CredentialStoring& store) {
    try {
        if (!co_await store.loadAPIKey(CancellationToken())) {
            std::fprintf(stderr, "footprint_services_tray: no API key in the secret store\n");
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "footprint_services_tray: %s\n", error.what());
    }
}

void startServices(QApplication& app, const QUrl& url) {
    // Kept for the whole run, as the application keeps its store.
    static SecretServiceCredentialStore store("com.keldor.vantrel", "tracker-api-key");
    readKey(store);
    EnvironmentCertificateTrust::install(QProcessEnvironment::systemEnvironment());
    auto* manager = new QNetworkAccessManager(&app);
    const auto fetch = [manager, url] {
        QNetworkReply* reply = manager->get(QNetworkRequest(url));
        QObject::connect(reply, &QNetworkReply::finished, reply, [reply] {
            if (reply->error() != QNetworkReply::NoError) {
                std::fprintf(stderr, "footprint_services_tray: %s\n",
                             qPrintable(reply->errorString()));
            }
            reply->deleteLater();
        });
    };
    fetch();
    auto* timer = new QTimer(&app);
    QObject::connect(timer, &QTimer::timeout, fetch);
    timer->start(60'000);
}
#endif

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
#ifdef FOOTPRINT_WITH_SERVICES
    if (QApplication::arguments().size() != 2) {
        std::fprintf(stderr, "usage: footprint_services_tray <url>\n");
        return 2;
    }
#endif

    QMenu menu;
    menu.addAction("Open");
    menu.addAction("Quit", &app, &QCoreApplication::quit);

    std::unique_ptr<QSystemTrayIcon> icon;
    const auto createIcon = [&] {
        if (!icon) {
            icon = std::make_unique<QSystemTrayIcon>(drawnIcon());
            icon->setToolTip("Bare tray");
            icon->setContextMenu(&menu);
            icon->show();
        }
    };
    const QString watcherName = "org.kde.StatusNotifierWatcher";
    QDBusConnection bus = QDBusConnection::sessionBus();
    QDBusServiceWatcher watcher(watcherName, bus, QDBusServiceWatcher::WatchForRegistration);
    QObject::connect(&watcher, &QDBusServiceWatcher::serviceRegistered, createIcon);
    if (bus.interface() && bus.interface()->isServiceRegistered(watcherName)) {
        createIcon();
    }
#ifdef FOOTPRINT_WITH_SERVICES
    // After the icon, as the application asks only once its icon is up.
    QTimer::singleShot(0, &app, [&app] { startServices(app, QUrl(QApplication::arguments()[1])); });
#endif
    return QApplication::exec();
}
