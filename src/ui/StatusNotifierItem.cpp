#include "ui/StatusNotifierItem.h"

#include "ui/DBusMenuExporter.h"
#include "ui/DBusPropertiesAnswer.h"
#include "ui/TrayIconArtwork.h"
#include "ui/TrayIconPresenter.h"

#include <QCursor>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QtEndian>

Q_LOGGING_CATEGORY(lcStatusNotifierItem, "vantrel.tray", QtInfoMsg)

namespace {

// (iiay): one size of the icon, ARGB32 in network byte order.
struct IconPixmap {
    int width = 0;
    int height = 0;
    QByteArray bytes;
};

// (sa(iiay)ss): icon name, icon, title and text of the tooltip.
struct ToolTip {
    QString iconName;
    QList<IconPixmap> pixmaps;
    QString title;
    QString text;
};

} // namespace

Q_DECLARE_METATYPE(IconPixmap)
Q_DECLARE_METATYPE(ToolTip)

namespace {

QDBusArgument& operator<<(QDBusArgument& argument, const IconPixmap& pixmap) {
    argument.beginStructure();
    argument << pixmap.width << pixmap.height << pixmap.bytes;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, IconPixmap& pixmap) {
    argument.beginStructure();
    argument >> pixmap.width >> pixmap.height >> pixmap.bytes;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const ToolTip& toolTip) {
    argument.beginStructure();
    argument << toolTip.iconName << toolTip.pixmaps << toolTip.title << toolTip.text;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, ToolTip& toolTip) {
    argument.beginStructure();
    argument >> toolTip.iconName >> toolTip.pixmaps >> toolTip.title >> toolTip.text;
    argument.endStructure();
    return argument;
}

const QString itemInterface = QStringLiteral("org.kde.StatusNotifierItem");

IconPixmap pixmapOf(const QImage& image) {
    const QImage straight = image.convertToFormat(QImage::Format_ARGB32);
    IconPixmap result{straight.width(), straight.height(), {}};
    result.bytes.resize(qsizetype(straight.width()) * straight.height() * 4);
    auto* out = reinterpret_cast<uchar*>(result.bytes.data());
    for (int y = 0; y < straight.height(); ++y) {
        const auto* line = reinterpret_cast<const quint32*>(straight.constScanLine(y));
        for (int x = 0; x < straight.width(); ++x, out += 4) {
            qToBigEndian(line[x], out);
        }
    }
    return result;
}

} // namespace

StatusNotifierItem::StatusNotifierItem(TrayIconPresenter& icon, TrayMenuPresenter& menu,
                                       Handlers handlers, QObject* parent)
    : QDBusVirtualObject(parent)
    , m_icon(icon)
    , m_handlers(std::move(handlers))
    , m_connectionName([] {
        // Each item its own connection: closing it is how the host learns the item is gone.
        static int counter = 0;
        return QStringLiteral("vantrel-status-notifier-item-%1").arg(++counter);
    }())
    , m_connection(QDBusConnection::connectToBus(QDBusConnection::SessionBus, m_connectionName)) {
    qDBusRegisterMetaType<IconPixmap>();
    qDBusRegisterMetaType<QList<IconPixmap>>();
    qDBusRegisterMetaType<ToolTip>();
    m_menu = std::make_unique<DBusMenuExporter>(menu, m_connection, QLatin1String(menuPath));
    connect(&m_icon, &TrayIconPresenter::changed, this, &StatusNotifierItem::render);
    render();
    m_connection.registerVirtualObject(QLatin1String(itemPath), this);
    m_connection.registerVirtualObject(QLatin1String(menuPath), m_menu.get());
    // Waybar's host reads the watcher's items once, when the watcher has answered its own
    // registration, and listens for new ones only from then on: an item registered in between
    // never shows. So the item waits for a host, unless the watcher cannot say whether it has one.
    const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");
    m_connection.connect(QLatin1String(watcherService), watcherPath, QLatin1String(watcherService),
                         QStringLiteral("StatusNotifierHostRegistered"), this,
                         SLOT(registerWithWatcher()));
    QDBusMessage hostQuestion = QDBusMessage::createMethodCall(
        QLatin1String(watcherService), watcherPath,
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    hostQuestion << QLatin1String(watcherService)
                 << QStringLiteral("IsStatusNotifierHostRegistered");
    auto* answer = new QDBusPendingCallWatcher(m_connection.asyncCall(hostQuestion), this);
    connect(
        answer, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
            call->deleteLater();
            const QDBusMessage reply = call->reply();
            if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty() ||
                qvariant_cast<QDBusVariant>(reply.arguments().constFirst()).variant().toBool()) {
                registerWithWatcher();
            }
        });
}

void StatusNotifierItem::registerWithWatcher() {
    if (m_registered) {
        return;
    }
    m_registered = true;
    QDBusMessage registration = QDBusMessage::createMethodCall(
        QLatin1String(watcherService), QStringLiteral("/StatusNotifierWatcher"),
        QLatin1String(watcherService), QStringLiteral("RegisterStatusNotifierItem"));
    registration << m_connection.baseService();
    m_connection.asyncCall(registration);
}

StatusNotifierItem::~StatusNotifierItem() {
    // Closing the connection is what tells the host the item is gone.
    m_connection.unregisterObject(QLatin1String(menuPath));
    m_connection.unregisterObject(QLatin1String(itemPath));
    QDBusConnection::disconnectFromBus(m_connectionName);
}

QString StatusNotifierItem::introspect(const QString&) const {
    return QStringLiteral(R"xml(<interface name="org.kde.StatusNotifierItem">
  <property name="Category" type="s" access="read"/>
  <property name="Id" type="s" access="read"/>
  <property name="Title" type="s" access="read"/>
  <property name="Status" type="s" access="read"/>
  <property name="WindowId" type="i" access="read"/>
  <property name="IconThemePath" type="s" access="read"/>
  <property name="IconName" type="s" access="read"/>
  <property name="IconPixmap" type="a(iiay)" access="read"/>
  <property name="OverlayIconName" type="s" access="read"/>
  <property name="OverlayIconPixmap" type="a(iiay)" access="read"/>
  <property name="AttentionIconName" type="s" access="read"/>
  <property name="AttentionIconPixmap" type="a(iiay)" access="read"/>
  <property name="AttentionMovieName" type="s" access="read"/>
  <property name="ToolTip" type="(sa(iiay)ss)" access="read"/>
  <property name="IconAccessibleDesc" type="s" access="read"/>
  <property name="AttentionAccessibleDesc" type="s" access="read"/>
  <property name="ItemIsMenu" type="b" access="read"/>
  <property name="Menu" type="o" access="read"/>
  <method name="ContextMenu"><arg name="x" type="i" direction="in"/><arg name="y" type="i" direction="in"/></method>
  <method name="Activate"><arg name="x" type="i" direction="in"/><arg name="y" type="i" direction="in"/></method>
  <method name="SecondaryActivate"><arg name="x" type="i" direction="in"/><arg name="y" type="i" direction="in"/></method>
  <method name="Scroll"><arg name="delta" type="i" direction="in"/><arg name="orientation" type="s" direction="in"/></method>
  <method name="ProvideXdgActivationToken"><arg name="token" type="s" direction="in"/></method>
  <signal name="NewTitle"/>
  <signal name="NewIcon"/>
  <signal name="NewAttentionIcon"/>
  <signal name="NewOverlayIcon"/>
  <signal name="NewToolTip"/>
  <signal name="NewStatus"><arg name="status" type="s"/></signal>
</interface>
)xml");
}

bool StatusNotifierItem::handleMessage(const QDBusMessage& message, const QDBusConnection&) {
    const QString member = message.member();
    const QVariantList arguments = message.arguments();
    if (message.interface() == DBusPropertiesAnswer::interfaceName) {
        return DBusPropertiesAnswer::answer(message, properties(), m_connection);
    }
    if (!message.interface().isEmpty() && message.interface() != itemInterface) {
        return false;
    }
    if (member == QLatin1String("Activate") || member == QLatin1String("ContextMenu")) {
        const QPoint at = position(arguments);
        // What hosts send here differs (the icon, the pointer, zeros); the log tells which.
        qCDebug(lcStatusNotifierItem).noquote().nospace()
            << member << "(" << (arguments.size() >= 2 ? arguments[0].toInt() : 0) << ", "
            << (arguments.size() >= 2 ? arguments[1].toInt() : 0) << ")";
        m_connection.send(message.createReply());
        const auto& handler =
            member == QLatin1String("Activate") ? m_handlers.activate : m_handlers.showMenu;
        if (handler) {
            handler(at);
        }
        return true;
    }
    if (member == QLatin1String("ProvideXdgActivationToken")) {
        // GNOME hands over the token of a click on the icon or a menu entry just before passing
        // the click on. Qt's Wayland shell activates the next window that asks with it, so a
        // window opened from the menu comes to the front instead of a "Vantrel is ready" notice.
        if (!arguments.isEmpty()) {
            qputenv("XDG_ACTIVATION_TOKEN", arguments[0].toString().toUtf8());
        }
        m_connection.send(message.createReply());
        return true;
    }
    if (member == QLatin1String("SecondaryActivate") || member == QLatin1String("Scroll")) {
        m_connection.send(message.createReply());
        return true;
    }
    return false;
}

void StatusNotifierItem::render() {
    QList<IconPixmap> pixmaps;
    for (const int size : TrayIconArtwork::sizes) {
        pixmaps.append(pixmapOf(
            TrayIconArtwork::image(m_icon.healthKind(), QGuiApplication::palette(), size)));
    }
    const bool first = !m_pixmaps.isValid();
    m_pixmaps = QVariant::fromValue(pixmaps);
    const QString status = m_icon.healthKind() == TrackerHealth::Kind::actionRequired
                               ? QStringLiteral("NeedsAttention")
                               : QStringLiteral("Active");
    if (first) {
        m_status = status;
        return;
    }
    const auto announce = [this](const char* name, const QVariantList& arguments = {}) {
        QDBusMessage signal =
            QDBusMessage::createSignal(QLatin1String(itemPath), itemInterface, QLatin1String(name));
        signal.setArguments(arguments);
        m_connection.send(signal);
    };
    announce("NewIcon");
    announce("NewAttentionIcon");
    announce("NewToolTip");
    if (status != m_status) {
        m_status = status;
        announce("NewStatus", {m_status});
    }
}

QVariantMap StatusNotifierItem::properties() const {
    const QVariant none = QVariant::fromValue(QList<IconPixmap>());
    const ToolTip toolTip{{}, {}, QStringLiteral("Vantrel"), m_icon.toolTip()};
    const QString description = QStringLiteral("Vantrel: ") + m_icon.toolTip();
    return {
        {QStringLiteral("Category"), QStringLiteral("ApplicationStatus")},
        {QStringLiteral("Id"), QStringLiteral("vantrel")},
        {QStringLiteral("Title"), QStringLiteral("Vantrel")},
        {QStringLiteral("Status"), m_status},
        {QStringLiteral("WindowId"), 0},
        {QStringLiteral("IconThemePath"), QString()},
        {QStringLiteral("IconName"), QString()},
        {QStringLiteral("IconPixmap"), m_pixmaps},
        {QStringLiteral("OverlayIconName"), QString()},
        {QStringLiteral("OverlayIconPixmap"), none},
        {QStringLiteral("AttentionIconName"), QString()},
        // The badge already turns red; hosts that swap icons for attention show the same one.
        {QStringLiteral("AttentionIconPixmap"), m_pixmaps},
        {QStringLiteral("AttentionMovieName"), QString()},
        {QStringLiteral("ToolTip"), QVariant::fromValue(toolTip)},
        // Read by screen readers, and asked for by GNOME's extension after every NewIcon.
        {QStringLiteral("IconAccessibleDesc"), description},
        {QStringLiteral("AttentionAccessibleDesc"), description},
        {QStringLiteral("ItemIsMenu"), false},
        {QStringLiteral("Menu"), QVariant::fromValue(QDBusObjectPath(QLatin1String(menuPath)))},
    };
}

QPoint StatusNotifierItem::position(const QVariantList& arguments) const {
    // Hosts that cannot tell (Wayland, some X11 trays) send zeros: the pointer is then the best
    // guess of where the icon is.
    const QPoint reported =
        arguments.size() >= 2 ? QPoint(arguments[0].toInt(), arguments[1].toInt()) : QPoint();
    return reported.isNull() ? QCursor::pos() : reported;
}
