#!/usr/bin/python3
# Stand-ins for the session services a tray application meets, for tests.
#
# Usage: session_stand_ins.py DIR
#
# Starts a private bus in place of the system bus (its address goes to DIR/system-bus) and owns
# org.freedesktop.login1 there; owns org.freedesktop.Notifications on the session bus. Every
# notification call is appended to DIR/notifications.log, each line ending with the number of
# notifications then open. The tests drive both through a "test.Control" interface:
#   login1:        Wake()      emits PrepareForSleep(false)
#   notifications: Press(id)   invokes the notification's first action; like a server showing
#                              resident notifications, it leaves the notification open.
import os
import signal
import subprocess
import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

BUS_CONFIG = """<busconfig><listen>unix:dir={}</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/>
</policy></busconfig>"""


def private_bus(folder):
    """A bus of our own in place of the system bus: the daemon and the bus's address."""
    os.makedirs(os.path.join(folder, "system-bus.d"), exist_ok=True)
    with open(os.path.join(folder, "system-bus.conf"), "w") as out:
        out.write(BUS_CONFIG.format(os.path.join(folder, "system-bus.d")))
    daemon = subprocess.Popen(["dbus-daemon", "--nofork", "--print-address",
                               f"--config-file={folder}/system-bus.conf"],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    return daemon, daemon.stdout.readline().strip()


class Login1(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/login1")

    @dbus.service.signal("org.freedesktop.login1.Manager", signature="b")
    def PrepareForSleep(self, sleeping):
        pass

    @dbus.service.method("test.Control")
    def Wake(self):
        self.PrepareForSleep(False)


class Notifications(dbus.service.Object):
    def __init__(self, bus, log):
        super().__init__(bus, "/org/freedesktop/Notifications")
        self.log, self.open, self.last = log, {}, 0

    def record(self, line):
        with open(self.log, "a") as out:
            out.write(f"{line} | open {len(self.open)}\n")

    @dbus.service.method("org.freedesktop.Notifications", in_signature="susssasa{sv}i",
                         out_signature="u")
    def Notify(self, app, replaces, icon, summary, body, actions, hints, timeout):
        if replaces not in self.open:
            self.last += 1
            replaces = self.last
        self.open[replaces] = list(actions)
        self.record(f"notify {replaces} | {app} | {summary} | {body} | "
                    f"{','.join(actions[1::2])} | desktop-entry={hints.get('desktop-entry', '')}")
        return replaces

    @dbus.service.method("org.freedesktop.Notifications", in_signature="u")
    def CloseNotification(self, id):
        self.open.pop(id, None)
        self.record(f"close {id}")

    @dbus.service.signal("org.freedesktop.Notifications", signature="us")
    def ActionInvoked(self, id, key):
        pass

    @dbus.service.method("test.Control", in_signature="u")
    def Press(self, id):
        self.ActionInvoked(id, self.open[id][0])


def main():
    work = sys.argv[1]
    DBusGMainLoop(set_as_default=True)
    daemon, address = private_bus(work)
    try:
        system, session = dbus.bus.BusConnection(address), dbus.SessionBus()
        stand_ins = Login1(system), Notifications(session, os.path.join(work, "notifications.log"))
        system.request_name("org.freedesktop.login1")
        session.request_name("org.freedesktop.Notifications")
        with open(os.path.join(work, "system-bus.tmp"), "w") as out:
            out.write(address)
        os.rename(os.path.join(work, "system-bus.tmp"), os.path.join(work, "system-bus"))
        loop = GLib.MainLoop()
        GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGTERM, loop.quit)
        loop.run()
    finally:
        daemon.terminate()
        daemon.wait()


if __name__ == "__main__":
    main()
