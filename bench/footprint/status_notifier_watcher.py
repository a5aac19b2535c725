#!/usr/bin/python3
# The footprint bench's stand-in tray host: owns org.kde.StatusNotifierWatcher on the session
# bus, says a host is there, and writes each item that registers to a file, one a line.
#
#     status_notifier_watcher.py <file>
import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

WATCHER = "org.kde.StatusNotifierWatcher"
# Qt's own tray finds the host property only through the introspection data.
INTROSPECTION = f"""<node><interface name="{WATCHER}">
  <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="ProtocolVersion" type="i" access="read"/>
  <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
</interface></node>"""


class Watcher(dbus.service.Object):
    def __init__(self, bus, record):
        super().__init__(bus, "/StatusNotifierWatcher")
        self.items, self.record = [], record

    @dbus.service.method("org.freedesktop.DBus.Introspectable", out_signature="s")
    def Introspect(self):
        return INTROSPECTION

    @dbus.service.method(WATCHER, in_signature="s", sender_keyword="sender")
    def RegisterStatusNotifierItem(self, service, sender=None):
        # An item may register by path only; its bus name is then the caller's.
        entry = sender + service if service.startswith("/") else service + "/StatusNotifierItem"
        if entry not in self.items:
            self.items.append(entry)
            with open(self.record, "a", encoding="utf-8") as out:
                out.write(entry + "\n")
        self.StatusNotifierItemRegistered(entry)

    @dbus.service.signal(WATCHER, signature="s")
    def StatusNotifierItemRegistered(self, service):
        pass

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return {"RegisteredStatusNotifierItems": dbus.Array(self.items, signature="s"),
                "IsStatusNotifierHostRegistered": dbus.Boolean(True),
                "ProtocolVersion": dbus.Int32(0)}[name]


if __name__ == "__main__":
    DBusGMainLoop(set_as_default=True)
    watcher = Watcher(dbus.SessionBus(), sys.argv[1])
    name = dbus.service.BusName(WATCHER, dbus.SessionBus(), do_not_queue=True)
    GLib.MainLoop().run()
