#include "ui/DBusMenuExporter.h"

#include "ui/DBusPropertiesAnswer.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QTimer>

#include <utility>

namespace {

// (ia{sv}): an item's properties, as GetGroupProperties and ItemsPropertiesUpdated carry them.
struct MenuItemProperties {
    int id = 0;
    QVariantMap properties;
};

// (ias): properties an item lost. Entries never lose one, but the signal's signature has it.
struct MenuItemRemovedProperties {
    int id = 0;
    QStringList names;
};

// (ia{sv}av): an item with its children, each a variant holding the same structure.
struct MenuLayout {
    int id = 0;
    QVariantMap properties;
    QList<MenuLayout> children;
};

} // namespace

Q_DECLARE_METATYPE(MenuItemProperties)
Q_DECLARE_METATYPE(MenuItemRemovedProperties)
Q_DECLARE_METATYPE(MenuLayout)

namespace {

QDBusArgument& operator<<(QDBusArgument& argument, const MenuItemProperties& item) {
    argument.beginStructure();
    argument << item.id << item.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, MenuItemProperties& item) {
    argument.beginStructure();
    argument >> item.id >> item.properties;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const MenuItemRemovedProperties& item) {
    argument.beginStructure();
    argument << item.id << item.names;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, MenuItemRemovedProperties& item) {
    argument.beginStructure();
    argument >> item.id >> item.names;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const MenuLayout& layout) {
    argument.beginStructure();
    argument << layout.id << layout.properties;
    argument.beginArray(QMetaType::fromType<QDBusVariant>());
    for (const MenuLayout& child : layout.children) {
        argument << QDBusVariant(QVariant::fromValue(child));
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, MenuLayout& layout) {
    argument.beginStructure();
    argument >> layout.id >> layout.properties;
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        layout.children.append(qdbus_cast<MenuLayout>(child.variant()));
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}

} // namespace

DBusMenuExporter::DBusMenuExporter(TrayMenuPresenter& presenter, QDBusConnection connection,
                                   QString path, QObject* parent)
    : QDBusVirtualObject(parent)
    , m_presenter(presenter)
    , m_connection(std::move(connection))
    , m_path(std::move(path))
    , m_entries(presenter.entries()) {
    qDBusRegisterMetaType<MenuItemProperties>();
    qDBusRegisterMetaType<QList<MenuItemProperties>>();
    qDBusRegisterMetaType<MenuItemRemovedProperties>();
    qDBusRegisterMetaType<QList<MenuItemRemovedProperties>>();
    qDBusRegisterMetaType<MenuLayout>();
    for (const TrayMenuPresenter::Entry& entry : std::as_const(m_entries)) {
        idOf(entry.key);
    }
    connect(&m_presenter, &TrayMenuPresenter::changed, this, &DBusMenuExporter::update);
}

QString DBusMenuExporter::introspect(const QString&) const {
    return QStringLiteral(R"xml(<interface name="com.canonical.dbusmenu">
  <property name="Version" type="u" access="read"/>
  <property name="TextDirection" type="s" access="read"/>
  <property name="Status" type="s" access="read"/>
  <property name="IconThemePath" type="as" access="read"/>
  <method name="GetLayout">
    <arg type="i" name="parentId" direction="in"/>
    <arg type="i" name="recursionDepth" direction="in"/>
    <arg type="as" name="propertyNames" direction="in"/>
    <arg type="u" name="revision" direction="out"/>
    <arg type="(ia{sv}av)" name="layout" direction="out"/>
  </method>
  <method name="GetGroupProperties">
    <arg type="ai" name="ids" direction="in"/>
    <arg type="as" name="propertyNames" direction="in"/>
    <arg type="a(ia{sv})" name="properties" direction="out"/>
  </method>
  <method name="GetProperty">
    <arg type="i" name="id" direction="in"/>
    <arg type="s" name="name" direction="in"/>
    <arg type="v" name="value" direction="out"/>
  </method>
  <method name="Event">
    <arg type="i" name="id" direction="in"/>
    <arg type="s" name="eventId" direction="in"/>
    <arg type="v" name="data" direction="in"/>
    <arg type="u" name="timestamp" direction="in"/>
  </method>
  <method name="EventGroup">
    <arg type="a(isvu)" name="events" direction="in"/>
    <arg type="ai" name="idErrors" direction="out"/>
  </method>
  <method name="AboutToShow">
    <arg type="i" name="id" direction="in"/>
    <arg type="b" name="needUpdate" direction="out"/>
  </method>
  <method name="AboutToShowGroup">
    <arg type="ai" name="ids" direction="in"/>
    <arg type="ai" name="updatesNeeded" direction="out"/>
    <arg type="ai" name="idErrors" direction="out"/>
  </method>
  <signal name="ItemsPropertiesUpdated">
    <arg type="a(ia{sv})" name="updatedProps" direction="out"/>
    <arg type="a(ias)" name="removedProps" direction="out"/>
  </signal>
  <signal name="LayoutUpdated">
    <arg type="u" name="revision" direction="out"/>
    <arg type="i" name="parent" direction="out"/>
  </signal>
  <signal name="ItemActivationRequested">
    <arg type="i" name="id" direction="out"/>
    <arg type="u" name="timestamp" direction="out"/>
  </signal>
</interface>
)xml");
}

bool DBusMenuExporter::handleMessage(const QDBusMessage& message, const QDBusConnection&) {
    const QString member = message.member();
    const QVariantList arguments = message.arguments();
    if (message.interface() == DBusPropertiesAnswer::interfaceName) {
        return DBusPropertiesAnswer::answer(
            message,
            {
                {QStringLiteral("Version"), 3U},
                {QStringLiteral("TextDirection"), QStringLiteral("ltr")},
                {QStringLiteral("Status"), QStringLiteral("normal")},
                {QStringLiteral("IconThemePath"), QStringList()},
            },
            m_connection);
    }
    if (member == QLatin1String("GetLayout") && arguments.size() == 3) {
        const int parent = arguments[0].toInt();
        if (parent != 0 && m_ids.key(parent).isEmpty()) {
            m_connection.send(message.createErrorReply(QDBusError::InvalidArgs,
                                                       QStringLiteral("No such menu item")));
            return true;
        }
        reply(message, {m_revision, layout(parent, arguments[1].toInt() != 0)});
        return true;
    }
    if (member == QLatin1String("GetGroupProperties") && arguments.size() == 2) {
        const auto ids = qdbus_cast<QList<int>>(arguments[0]);
        QList<MenuItemProperties> items;
        for (const TrayMenuPresenter::Entry& entry : std::as_const(m_entries)) {
            const int id = m_ids.value(entry.key);
            if (ids.isEmpty() || ids.contains(id)) {
                items.append({id, propertiesOf(entry)});
            }
        }
        reply(message, {QVariant::fromValue(items)});
        return true;
    }
    if (member == QLatin1String("GetProperty") && arguments.size() == 2) {
        for (const TrayMenuPresenter::Entry& entry : std::as_const(m_entries)) {
            if (m_ids.value(entry.key) == arguments[0].toInt()) {
                reply(message, {QVariant::fromValue(QDBusVariant(
                                   propertiesOf(entry).value(arguments[1].toString())))});
                return true;
            }
        }
        return false;
    }
    if (member == QLatin1String("Event") && arguments.size() == 4) {
        const QString key = m_ids.key(arguments[0].toInt());
        reply(message, {});
        if (arguments[1].toString() == QLatin1String("clicked") && !key.isEmpty()) {
            // After the reply: the action may quit the application or open a window.
            QTimer::singleShot(0, &m_presenter,
                               [presenter = &m_presenter, key] { presenter->trigger(key); });
        }
        return true;
    }
    if (member == QLatin1String("EventGroup")) {
        reply(message, {QVariant::fromValue(QList<int>())});
        return true;
    }
    if (member == QLatin1String("AboutToShow")) {
        reply(message, {false});
        return true;
    }
    if (member == QLatin1String("AboutToShowGroup")) {
        reply(message, {QVariant::fromValue(QList<int>()), QVariant::fromValue(QList<int>())});
        return true;
    }
    return false;
}

void DBusMenuExporter::update() {
    const QList<TrayMenuPresenter::Entry> previous =
        std::exchange(m_entries, m_presenter.entries());
    const auto keys = [](const QList<TrayMenuPresenter::Entry>& entries) {
        QStringList result;
        for (const auto& entry : entries) {
            result.append(entry.key);
        }
        return result;
    };
    QDBusMessage signal;
    if (keys(previous) != keys(m_entries)) {
        for (const TrayMenuPresenter::Entry& entry : std::as_const(m_entries)) {
            idOf(entry.key);
        }
        ++m_revision;
        signal = QDBusMessage::createSignal(m_path, QLatin1String(interfaceName),
                                            QStringLiteral("LayoutUpdated"));
        signal << m_revision << 0;
    } else {
        QList<MenuItemProperties> changed;
        for (qsizetype index = 0; index < m_entries.size(); ++index) {
            if (m_entries[index] != previous[index]) {
                changed.append({m_ids.value(m_entries[index].key), propertiesOf(m_entries[index])});
            }
        }
        signal = QDBusMessage::createSignal(m_path, QLatin1String(interfaceName),
                                            QStringLiteral("ItemsPropertiesUpdated"));
        signal << QVariant::fromValue(changed)
               << QVariant::fromValue(QList<MenuItemRemovedProperties>());
    }
    m_connection.send(signal);
}

int DBusMenuExporter::idOf(const QString& key) {
    // Zero is the root; an entry keeps its number while the application runs.
    auto found = m_ids.constFind(key);
    if (found == m_ids.cend()) {
        found = m_ids.insert(key, int(m_ids.size()) + 1);
    }
    return found.value();
}

QVariantMap DBusMenuExporter::propertiesOf(const TrayMenuPresenter::Entry& entry) const {
    if (entry.kind == TrayMenuPresenter::Kind::separator) {
        return {{QStringLiteral("type"), QStringLiteral("separator")}};
    }
    // An underscore marks the access key in this protocol; a status text's own is doubled.
    return {
        {QStringLiteral("label"),
         QString(entry.label).replace(QLatin1Char('_'), QLatin1String("__"))},
        {QStringLiteral("enabled"), entry.kind == TrayMenuPresenter::Kind::action},
    };
}

QVariant DBusMenuExporter::layout(int parent, bool withChildren) const {
    MenuLayout result;
    if (parent != 0) {
        const QString key = m_ids.key(parent);
        for (const TrayMenuPresenter::Entry& entry : m_entries) {
            if (entry.key == key) {
                result = {parent, propertiesOf(entry), {}};
            }
        }
        return QVariant::fromValue(result);
    }
    result.properties.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
    if (withChildren) {
        for (const TrayMenuPresenter::Entry& entry : m_entries) {
            result.children.append({m_ids.value(entry.key), propertiesOf(entry), {}});
        }
    }
    return QVariant::fromValue(result);
}

void DBusMenuExporter::reply(const QDBusMessage& message, const QVariantList& arguments) {
    m_connection.send(message.createReply(arguments));
}
