#include "support/AsyncTest.h"
#include "ui/DesktopServicesWorkspace.h"

#include <QDBusConnection>
#include <QDesktopServices>

#include <gtest/gtest.h>

namespace {

// Stands in for the desktop's file manager on the test's private session bus.
class FakeFileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QStringList shown;

public Q_SLOTS:
    void ShowItems(const QStringList& uris, const QString&) { shown = uris; }
};

// Catches what QDesktopServices would hand to the file manager.
class UrlCatcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;

public Q_SLOTS:
    void open(const QUrl& url) { opened.append(url); }
};

TEST(DesktopServicesWorkspace, AsksTheFileManagerToSelectTheFilesElseOpensTheirFolder) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    ASSERT_TRUE(bus.isConnected()) << "runs inside dbus-run-session";
    UrlCatcher catcher;
    QDesktopServices::setUrlHandler("file", &catcher, "open");
    DesktopServicesWorkspace workspace;

    workspace.revealFiles({"/home/a/.vantrel/tracker/stderr.log"}); // no file manager yet
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return !catcher.opened.isEmpty(); }));
    EXPECT_EQ(catcher.opened, QList<QUrl>{QUrl::fromLocalFile("/home/a/.vantrel/tracker")});

    FakeFileManager manager;
    ASSERT_TRUE(bus.registerObject("/org/freedesktop/FileManager1", &manager,
                                   QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(bus.registerService("org.freedesktop.FileManager1"));
    workspace.revealFiles({"/home/a/.vantrel/tracker/stdout.log", "/home/a/my logs/stderr.log"});
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return !manager.shown.isEmpty(); }));
    EXPECT_EQ(manager.shown, QStringList({"file:///home/a/.vantrel/tracker/stdout.log",
                                          "file:///home/a/my%20logs/stderr.log"}));
    EXPECT_EQ(catcher.opened.size(), 1);
    QDesktopServices::unsetUrlHandler("file");
}

} // namespace

#include "DesktopBindingsTest.moc"
