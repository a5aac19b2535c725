#include "ui/DesktopServicesWorkspace.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDesktopServices>
#include <QFileInfo>

void DesktopServicesWorkspace::openURL(const QUrl& url) {
    QDesktopServices::openUrl(url);
}

void DesktopServicesWorkspace::revealFiles(const QStringList& paths) {
    if (paths.isEmpty()) {
        return;
    }
    QStringList uris;
    for (const QString& path : paths) {
        uris.append(QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded));
    }
    const QString folder = QFileInfo(paths.first()).absolutePath();
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << uris << QString();
    // Asynchronous: an activatable file manager can take a while to start, and the GUI thread
    // must not wait for it.
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, folder](QDBusPendingCallWatcher* finished) {
                if (finished->isError()) {
                    openURL(QUrl::fromLocalFile(folder));
                }
                finished->deleteLater();
            });
}
