#!/usr/bin/python3
"""The application in a desktop session: a virtual X server, a private session bus and a stand-in
tray host. Run by tray-end-to-end.sh inside with-xvfb.sh and dbus-run-session.

    tray_end_to_end.py <vantrel binary>
"""
import os
import subprocess
import sys
import tempfile

import dbus
import pyatspi

from desktop_session import (TIMEOUT, activate_action, app_accessible, check, failures, find,
                             menu_entries, press, showing, start_tray_host, stop, tray_item,
                             wait_for, window)


def start_app(binary, home, *arguments):
    env = dict(os.environ)
    env.update({
        "HOME": home,
        "XDG_CONFIG_HOME": os.path.join(home, ".config"),
        "XDG_DATA_HOME": os.path.join(home, ".local/share"),
        "QT_QPA_PLATFORM": "xcb",
        "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1",
        # No start-up: no keyring, no helper; the views still show the state.
        "XCTestConfigurationFilePath": "",
    })
    return subprocess.Popen([binary, *arguments], env=env)


def main():
    binary = sys.argv[1]
    bus = dbus.SessionBus()
    home = tempfile.mkdtemp(prefix="vantrel-tray-")
    record = os.path.join(home, "items")

    # Without a tray the panel is an ordinary window, and Quit reaches it over D-Bus.
    app = start_app(binary, home)
    check("without a tray the panel opens as a window titled Vantrel",
          wait_for(lambda: showing(window("Vantrel"))))
    activate_action(bus, "quit")
    check("ActivateAction quit ends the application", wait_for(lambda: app.poll() == 0))

    watcher = start_tray_host(record)
    try:
        wait_for(lambda: bus.name_has_owner("org.kde.StatusNotifierWatcher"))
        app = start_app(binary, home)
        item = wait_for(lambda: open(record, encoding="utf-8").read().split())
        check("the tray icon registers with the tray host", item)
        item = item[0] if item else ""
        check("with a tray the panel starts hidden",
              wait_for(lambda: app_accessible() is not None) and not showing(window("Vantrel")))

        sni = tray_item(bus, item)
        sni.Activate(10, 10)
        check("activating the icon opens the panel", wait_for(lambda: showing(window("Vantrel"))))
        panel = window("Vantrel")
        check("the panel offers Sign In", find(panel, "Sign In", (pyatspi.ROLE_PUSH_BUTTON,)))
        check("the panel tells the state", find(panel, "Sign in required", (pyatspi.ROLE_LABEL,)))
        check("Diagnostics… opens the Diagnostics window",
              press(panel, "Diagnostics…") and wait_for(lambda: showing(window("Vantrel Diagnostics"))))
        check("the panel makes way for it", wait_for(lambda: not showing(window("Vantrel"))))
        sni.Activate(10, 10)
        check("activating the icon opens the panel again", wait_for(lambda: showing(window("Vantrel"))))
        sni.Activate(10, 10)
        check("activating the icon again closes the panel",
              wait_for(lambda: not showing(window("Vantrel"))))

        second = start_app(binary, home)
        check("a second start exits at once with status 0", second.wait(TIMEOUT) == 0)
        check("a second start opens the panel of the first", wait_for(lambda: showing(window("Vantrel"))))
        check("the first copy keeps running", app.poll() is None)

        menu, entries = menu_entries(bus, item)
        check("the context menu lists Open Vantrel first, then the actions",
              list(entries) == ["Open Vantrel", "Settings…", "Diagnostics…", "Sign In", "Quit Vantrel"])
        menu.Event(entries["Quit Vantrel"], "clicked", dbus.String("", variant_level=1), 0)
        wait_for(lambda: app.poll() is not None)
        if app.poll() is None and os.environ.get("VANTREL_DEBUG_HANG"):
            subprocess.run(["gdb", "-batch", "-p", str(app.pid), "-ex", "thread apply all bt"])
        check(f"Quit Vantrel in the context menu ends the application (status {app.poll()})",
              app.poll() == 0)
    finally:
        stop(app, watcher)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
