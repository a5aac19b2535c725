#!/usr/bin/python3
"""The application in a desktop session: a virtual X server, a private session bus and a stand-in
tray host that comes late and restarts. Run by tray-end-to-end.sh inside with-xvfb.sh and
dbus-run-session.

    tray_end_to_end.py <vantrel binary>
"""
import os
import sys
import tempfile
import time

import dbus
import pyatspi

from desktop_session import (TIMEOUT, check, failures, find, menu_entries, press,
                             showing, start_app, start_tray_host, stop, tray_item, wait_for,
                             window)

WATCHER = "org.kde.StatusNotifierWatcher"
# What "at once" means for an icon whose tray just appeared.
ICON_DELAY = float(os.environ.get("VANTREL_TEST_TIMEOUT_FACTOR", "1"))


def start_watcher_and_time_the_icon(bus, record):
    """Starts the stand-in tray host; returns it, the item that registered and how long after
    the host's name appeared it did."""
    watcher = start_tray_host(record)
    wait_for(lambda: bus.name_has_owner(WATCHER), 10)
    appeared = time.monotonic()
    item = wait_for(lambda: open(record, encoding="utf-8").read().split(), 10)
    return watcher, (item or [""])[-1], time.monotonic() - appeared


def distance(rectangle, x, y):
    left, top, width, height = rectangle
    dx = max(left - x, 0, x - (left + width))
    dy = max(top - y, 0, y - (top + height))
    return max(dx, dy)


def main():
    binary = sys.argv[1]
    bus = dbus.SessionBus()
    home = tempfile.mkdtemp(prefix="vantrel-tray-")
    record = os.path.join(home, "items")
    app = watcher = None
    try:
        # Vantrel first, as autostart often wins the race with the panel.
        app = start_app(binary, home)
        check("without a tray the panel opens as a window titled Vantrel",
              wait_for(lambda: showing(window("Vantrel"))))

        watcher, item, delay = start_watcher_and_time_the_icon(bus, record)
        check(f"a tray host started later gets the icon within a second ({delay:.2f} s)",
              item and delay <= ICON_DELAY)
        check("with the icon in the tray the window goes",
              wait_for(lambda: not showing(window("Vantrel"))))

        stop(watcher)
        check("while the tray host is gone the window is back",
              wait_for(lambda: showing(window("Vantrel"))))
        watcher, item, delay = start_watcher_and_time_the_icon(bus, record)
        check(f"a restarted tray host gets the icon within a second ({delay:.2f} s)",
              item and delay <= ICON_DELAY)
        check("and the window goes again", wait_for(lambda: not showing(window("Vantrel"))))

        sni = tray_item(bus, item)
        check("the item draws its own icon at several sizes",
              len(sni.get_dbus_method("Get", dbus.PROPERTIES_IFACE)(
                  "org.kde.StatusNotifierItem", "IconPixmap")) >= 4)
        sni.Activate(700, 4)
        check("activating the icon opens the panel", wait_for(lambda: showing(window("Vantrel"))))
        panel = window("Vantrel")
        extents = tuple(panel.queryComponent().getExtents(pyatspi.DESKTOP_COORDS))
        check(f"the panel opens at the click position the host reported ({extents})",
              distance(extents, 700, 4) <= 10)
        check("the panel offers Sign In", find(panel, "Sign In", (pyatspi.ROLE_PUSH_BUTTON,)))
        check("Diagnostics… opens the Diagnostics window",
              press(panel, "Diagnostics…") and wait_for(lambda: showing(window("Vantrel Diagnostics"))))
        check("the panel makes way for it", wait_for(lambda: not showing(window("Vantrel"))))
        sni.Activate(700, 4)
        check("activating the icon opens the panel again", wait_for(lambda: showing(window("Vantrel"))))
        sni.Activate(700, 4)
        check("activating the icon again closes the panel",
              wait_for(lambda: not showing(window("Vantrel"))))

        second = start_app(binary, home)
        check("a second start exits at once with status 0", second.wait(TIMEOUT) == 0)
        check("a second start opens the panel of the first", wait_for(lambda: showing(window("Vantrel"))))
        check("the first copy keeps running", app.poll() is None)

        menu, entries = menu_entries(bus, item)
        check(f"the menu carries the state and every action of it ({list(entries)})",
              list(entries) == ["Sign in required", "Sign In", "Settings…", "Diagnostics…",
                                "Quit Vantrel"])
        menu.Event(entries["Settings…"], "clicked", dbus.String("", variant_level=1), 0)
        check("Settings… in the menu opens the Settings window",
              wait_for(lambda: showing(window("Vantrel Settings"))))
        menu.Event(entries["Quit Vantrel"], "clicked", dbus.String("", variant_level=1), 0)
        wait_for(lambda: app.poll() is not None)
        check(f"Quit Vantrel in the menu ends the application (status {app.poll()})",
              app.poll() == 0)
    finally:
        stop(app, watcher)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
