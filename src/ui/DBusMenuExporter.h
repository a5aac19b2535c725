#pragma once

#include "ui/TrayMenuPresenter.h"

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QHash>
#include <QList>

// The tray menu served as com.canonical.dbusmenu, which StatusNotifierItem hosts read and click.
// Served by hand rather than through Qt's exported QMenu: that one comes only with Qt's own tray
// item, and hosts are told of every change (a new layout when entries come or go, new properties
// when only a text changes, as the countdown does every second) while they show the menu.
class DBusMenuExporter : public QDBusVirtualObject {
    Q_OBJECT
public:
    static constexpr const char* interfaceName = "com.canonical.dbusmenu";

    DBusMenuExporter(TrayMenuPresenter& presenter, QDBusConnection connection, QString path,
                     QObject* parent = nullptr);

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

private:
    void update();
    int idOf(const QString& key);
    QVariantMap propertiesOf(const TrayMenuPresenter::Entry& entry) const;
    // The item `parent` (zero: the menu itself), with the entries as its children when asked.
    QVariant layout(int parent, bool withChildren) const;
    void reply(const QDBusMessage& message, const QVariantList& arguments);

    TrayMenuPresenter& m_presenter;
    QDBusConnection m_connection;
    QString m_path;
    QList<TrayMenuPresenter::Entry> m_entries;
    QHash<QString, int> m_ids;
    uint m_revision = 1;
};
