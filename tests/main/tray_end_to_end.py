#!/usr/bin/python3
"""The application in a desktop session: a virtual X server, a private session bus and a stand-in
tray host. Run by tray-end-to-end.sh inside xvfb-run and dbus-run-session.

    tray_end_to_end.py <vantrel binary>
"""
import os
import subprocess
import sys
import tempfile
import time

import dbus
import pyatspi

APP_ID = "com.keldor.Vantrel"
APP_PATH = "/com/keldor/Vantrel"
HERE = os.path.dirname(os.path.abspath(__file__))
TIMEOUT = 20 * float(os.environ.get("VANTREL_TEST_TIMEOUT_FACTOR", "1"))

failures = []


def check(description, condition):
    print(("ok   " if condition else "FAIL ") + description, flush=True)
    if not condition:
        failures.append(description)
    return condition


def wait_for(predicate, timeout=TIMEOUT):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        try:
            value = predicate()
        except Exception:  # the object may not be there yet
            value = None
        if value:
            return value
        time.sleep(0.1)
    return None


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


def app_accessible():
    desktop = pyatspi.Registry.getDesktop(0)
    for index in range(desktop.childCount):
        child = desktop.getChildAtIndex(index)
        if child is not None and child.name.lower() in ("vantrel", "com.keldor.vantrel"):
            return child
    return None


def window(title):
    application = app_accessible()
    if application is None:
        return None
    for index in range(application.childCount):
        child = application.getChildAtIndex(index)
        if child is not None and child.name == title:
            return child
    return None


def showing(accessible):
    return accessible is not None and accessible.getState().contains(pyatspi.STATE_SHOWING)


def find(root, name, roles):
    return pyatspi.findDescendant(root, lambda a: a.name == name and a.getRole() in roles)


def press(root, name):
    control = find(root, name, (pyatspi.ROLE_PUSH_BUTTON,))
    if control is None:
        return False
    actions = control.queryAction()
    for index in range(actions.nActions):
        if actions.getName(index) in ("press", "Press", "click"):
            return actions.doAction(index)
    return actions.doAction(0)


def menu_entries(bus, item):
    name, path = item.split("/", 1)
    properties = dbus.Interface(bus.get_object(name, "/" + path), dbus.PROPERTIES_IFACE)
    menu_path = properties.Get("org.kde.StatusNotifierItem", "Menu")
    menu = dbus.Interface(bus.get_object(name, menu_path), "com.canonical.dbusmenu")
    _, layout = menu.GetLayout(0, -1, [])
    entries = {}
    for child in layout[2]:
        identifier, props, _ = child
        if props.get("type") != "separator" and props.get("visible", True):
            entries[str(props.get("label", "")).replace("_", "")] = int(identifier)
    return menu, entries


def main():
    binary = sys.argv[1]
    bus = dbus.SessionBus()
    home = tempfile.mkdtemp(prefix="vantrel-tray-")
    record = os.path.join(home, "items")
    open(record, "w").close()

    # Without a tray the panel is an ordinary window, and Quit reaches it over D-Bus.
    app = start_app(binary, home)
    check("without a tray the panel opens as a window titled Vantrel",
          wait_for(lambda: showing(window("Vantrel"))))
    application = bus.get_object(APP_ID, APP_PATH)
    application.ActivateAction("quit", dbus.Array([], signature="v"),
                                dbus.Dictionary({}, signature="sv"),
                                dbus_interface="org.freedesktop.Application")
    check("ActivateAction quit ends the application", wait_for(lambda: app.poll() == 0))

    watcher = subprocess.Popen(["/usr/bin/python3", os.path.join(HERE, "status_notifier_watcher.py"),
                                record])
    try:
        wait_for(lambda: bus.name_has_owner("org.kde.StatusNotifierWatcher"))
        app = start_app(binary, home)
        item = wait_for(lambda: open(record, encoding="utf-8").read().split())
        check("the tray icon registers with the tray host", item)
        item = item[0] if item else ""
        check("with a tray the panel starts hidden",
              wait_for(lambda: app_accessible() is not None) and not showing(window("Vantrel")))

        name, path = item.split("/", 1)
        sni = dbus.Interface(bus.get_object(name, "/" + path), "org.kde.StatusNotifierItem")
        sni.Activate(10, 10)
        check("activating the icon opens the panel", wait_for(lambda: showing(window("Vantrel"))))
        panel = window("Vantrel")
        check("the panel offers Sign In", find(panel, "Sign In", (pyatspi.ROLE_PUSH_BUTTON,)))
        check("the panel tells the state", find(panel, "Sign in required", (pyatspi.ROLE_LABEL,)))
        check("Diagnostics… opens the Diagnostics window",
              press(panel, "Diagnostics…") and wait_for(lambda: showing(window("Vantrel Diagnostics"))))
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
        for process in (app, watcher):
            if process.poll() is None:
                process.terminate()
                process.wait(5)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
