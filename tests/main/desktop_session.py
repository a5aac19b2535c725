# What the end-to-end drivers share: checks that collect failures (with a picture of the screen
# when a driver can take one), bounded waits, a throwaway home, the application as the
# accessibility bus and its own D-Bus service show it, its tray item and actions, and a tray host
# that comes late and restarts.
import glob
import os
import shutil
import subprocess
import sys
import tempfile
import time

import dbus
import pyatspi

HERE = os.path.dirname(os.path.abspath(__file__))
FACTOR = float(os.environ.get("VANTREL_TEST_TIMEOUT_FACTOR", "1"))
TIMEOUT = 20 * FACTOR
WATCHER = "org.kde.StatusNotifierWatcher"

failures = []
screenshot = None  # set by a driver that can picture its screen: takes the file to write


def check(description, condition):
    print(("ok   " if condition else "FAIL ") + description, flush=True)
    if not condition:
        failures.append(description)
        if screenshot:
            folder = os.environ.get("VANTREL_TEST_ARTIFACTS") or tempfile.mkdtemp(prefix="vantrel-")
            os.environ["VANTREL_TEST_ARTIFACTS"] = folder
            shot = os.path.join(folder, f"failure-{len(failures)}.png")
            screenshot(shot)
            print(f"     screenshot: {shot}", flush=True)
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


def skip_unless(host, *needed):
    # Programs by name, files by path (a glob).
    missing = [need for need in needed if not (shutil.which(need) or glob.glob(need))]
    if missing:
        print(f"SKIP {host}: {', '.join(missing)} not installed "
              "(VANTREL_INSTALL_DESKTOPS=1 scripts/install-deps.sh installs them)", flush=True)
        sys.exit(77)


def throwaway_home(host):
    # The hosts live there too: they read their settings there and write there.
    home = tempfile.mkdtemp(prefix=f"vantrel-{host}-")
    for variable, folder in (("HOME", ""), ("XDG_CONFIG_HOME", ".config"),
                             ("XDG_CACHE_HOME", ".cache"), ("XDG_DATA_HOME", ".local/share")):
        os.environ[variable] = os.path.join(home, folder)
    return home


def finish(home, *logs):
    # The home goes only with a success; a failure shows the end of each log, since CI keeps
    # nothing else of the run.
    for path in logs if failures else ():
        print(f"the end of {path}:", *open(path, errors="replace").readlines()[-30:], flush=True)
    if not failures:
        shutil.rmtree(home, ignore_errors=True)
    return 1 if failures else 0


def start_app(binary, *arguments, log=None):
    # Without start-up (no keyring, no helper; the views still show the state), tray decisions
    # logged. Qt's -platform among the arguments outranks the X11 set here.
    env = dict(os.environ, QT_QPA_PLATFORM="xcb", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1",
               QT_LOGGING_RULES="vantrel.tray.debug=true", XCTestConfigurationFilePath="")
    return subprocess.Popen([binary, *arguments], env=env, stderr=log)


def stop(*processes):
    for process in processes:
        if isinstance(process, subprocess.Popen) and process.poll() is None:
            process.terminate()
            process.wait(5)


def windows():
    desktop = pyatspi.Registry.getDesktop(0)
    for application in (desktop.getChildAtIndex(i) for i in range(desktop.childCount)):
        if application is not None and application.name.lower() in ("vantrel",
                                                                     "com.keldor.vantrel"):
            return [application.getChildAtIndex(i) for i in range(application.childCount)]
    return []


def window(title):
    return next((shown for shown in windows() if shown is not None and shown.name == title), None)


def showing(accessible):
    return accessible is not None and accessible.getState().contains(pyatspi.STATE_SHOWING)


def shown_titles():
    return [shown.name for shown in windows() if showing(shown)]


def find(root, name, roles=(pyatspi.ROLE_PUSH_BUTTON,)):
    return pyatspi.findDescendant(root, lambda a: a.name == name and a.getRole() in roles)


def press(root, name, roles=(pyatspi.ROLE_PUSH_BUTTON,)):
    control = find(root, name, roles)
    if control is None:
        return False
    actions = control.queryAction()
    wanted = [index for index in range(actions.nActions)
              if actions.getName(index).lower() in ("press", "click", "toggle")]
    return actions.doAction((wanted or [0])[0])


def our_items(bus):
    try:
        return [str(item) for item in bus.get_object(WATCHER, "/StatusNotifierWatcher").Get(
            WATCHER, "RegisteredStatusNotifierItems", dbus_interface=dbus.PROPERTIES_IFACE)]
    except dbus.DBusException:
        return []


def activate(bus, action):
    """Runs one of the desktop entry's actions, as the desktop does."""
    bus.get_object("com.keldor.Vantrel", "/com/keldor/Vantrel").ActivateAction(
        action, dbus.Array([], signature="v"), dbus.Dictionary({}, signature="sv"),
        dbus_interface="org.freedesktop.Application")


def tray_comes_and_goes(host, titles, start, ready, icon, with_icon, late=0, take_down=stop):
    """Vantrel shows its window until a tray comes, `late` seconds after it; our icon shows
    within a second of the tray being ready and the window goes; with_icon(icon, first) checks
    what the tray offers. Then the tray goes, the window comes back, and all again."""
    check(f"{host}: before the tray runs, Vantrel shows its window",
          wait_for(lambda: "Vantrel" in titles(), 30 * FACTOR))
    tray = None
    try:
        for when in ("started after Vantrel", "restarted"):
            time.sleep(late)
            tray = start()
            wait_for(ready, 10 * FACTOR)
            appeared = time.monotonic()
            shown = wait_for(icon, 5 * FACTOR)
            delay = time.monotonic() - appeared
            check(f"{host}: the tray {when} shows our icon within a second ({delay:.2f} s)",
                  shown and delay <= FACTOR)
            check(f"{host}: the window goes once the icon is there",
                  wait_for(lambda: "Vantrel" not in titles()))
            with_icon(shown, when != "restarted")
            if when != "restarted":
                take_down(tray)
                check(f"{host}: with the tray gone the window is back",
                      wait_for(lambda: "Vantrel" in titles()))
    finally:
        stop(tray)
