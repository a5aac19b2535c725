// The baseline of the footprint benchmark: the least a Qt Widgets tray program does. One tray
// icon with a two-entry menu, created once the session's tray host is on the bus (as the
// application does, since Qt caches a negative answer), and nothing else.

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusServiceWatcher>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>

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

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);

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
    return QApplication::exec();
}
