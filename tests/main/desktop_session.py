"""What the end-to-end drivers share: checks that collect failures, bounded waits, the application
as the accessibility bus shows it, and the application's own D-Bus service and tray item."""
import os
import subprocess
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


def start_app(binary, home, *arguments, log=None):
    """The application in a throwaway home, on X11, without start-up (no keyring, no helper; the
    views still show the state), its tray decisions logged."""
    env = dict(os.environ)
    env.update({
        "HOME": home,
        "XDG_CONFIG_HOME": os.path.join(home, ".config"),
        "XDG_DATA_HOME": os.path.join(home, ".local/share"),
        "QT_QPA_PLATFORM": "xcb",
        "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1",
        "QT_LOGGING_RULES": "vantrel.tray.debug=true",
        "XCTestConfigurationFilePath": "",
    })
    return subprocess.Popen([binary, *arguments], env=env, stderr=log)


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


def press(root, name, roles=(pyatspi.ROLE_PUSH_BUTTON,)):
    control = find(root, name, roles)
    if control is None:
        return False
    actions = control.queryAction()
    for index in range(actions.nActions):
        if actions.getName(index) in ("press", "Press", "click", "toggle", "Toggle"):
            return actions.doAction(index)
    return actions.doAction(0)


def all_names(root):
    """Every name and description in a window, as a screen reader could read them out."""
    texts = []
    for accessible in pyatspi.findAllDescendants(root, lambda a: True):
        texts.extend(filter(None, (accessible.name, accessible.description)))
    return "\n".join(texts)


def activate_action(bus, action):
    application = bus.get_object(APP_ID, APP_PATH)
    application.ActivateAction(action, dbus.Array([], signature="v"),
                               dbus.Dictionary({}, signature="sv"),
                               dbus_interface="org.freedesktop.Application")


def start_tray_host(record):
    """The stand-in tray host; items that register are written to `record`, one a line."""
    open(record, "w").close()
    return subprocess.Popen(["/usr/bin/python3", os.path.join(HERE, "status_notifier_watcher.py"),
                             record])


def tray_item(bus, item):
    name, path = item.split("/", 1)
    return dbus.Interface(bus.get_object(name, "/" + path), "org.kde.StatusNotifierItem")


def menu_entries(bus, item):
    name, path = item.split("/", 1)
    properties = dbus.Interface(bus.get_object(name, "/" + path), dbus.PROPERTIES_IFACE)
    menu_path = properties.Get("org.kde.StatusNotifierItem", "Menu")
    menu = dbus.Interface(bus.get_object(name, menu_path), "com.canonical.dbusmenu")
    _, layout = menu.GetLayout(0, -1, dbus.Array([], signature="s"))
    entries = {}
    for child in layout[2]:
        identifier, props, _ = child
        if props.get("type") != "separator" and props.get("visible", True):
            entries[str(props.get("label", "")).replace("_", "")] = int(identifier)
    return menu, entries


def stop(*processes):
    for process in processes:
        if process is not None and process.poll() is None:
            process.terminate()
            process.wait(5)
