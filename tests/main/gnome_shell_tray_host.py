#!/usr/bin/python3
"""Vantrel under GNOME Shell 43 with its AppIndicator extension, headless on a virtual monitor, in
the private session bus, keyring and throwaway home of with-keyring.sh, Vantrel on Wayland. There a
left click on the icon opens the icon's menu, so the menu is the product: it is clicked and read as
the shell shows it, through the shell's Eval and the test's own extension in
gnome-shell-test-extension/.

    gnome_shell_tray_host.py <vantrel binary>

Exits 77 with one line when the shell, the extension or Qt's Wayland plugin is not installed.
Screenshots of failures and both logs go to $VANTREL_TEST_ARTIFACTS (default: a temporary folder
the failure names).
"""
import glob
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

import dbus

import desktop_session
from desktop_session import HERE, failures, start_app, stop, wait_for

APPINDICATOR = "ubuntu-appindicators@ubuntu.com"
TEST_EXTENSION = "vantrel-test@vantrel.test"
WATCHER = "org.kde.StatusNotifierWatcher"
FACTOR = float(os.environ.get("VANTREL_TEST_TIMEOUT_FACTOR", "1"))
ARTEFACTS = (os.environ.get("VANTREL_TEST_ARTIFACTS")
             or os.path.join(tempfile.gettempdir(), f"vantrel-gnome-{os.getpid()}"))
SYSTEM_BUS = """<busconfig><type>system</type><listen>unix:path={}</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/>
</policy></busconfig>"""
INDICATOR = "global.vantrelTest.indicator()"
SIGNED_OUT = [["Sign in required", False], ["Sign In", True], ["Settings…", True],
              ["Diagnostics…", True], ["Quit Vantrel", True]]


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as out:
        out.write(text)


def start_shell(home, log):
    """A private system bus (the shell aborts without one) and the shell, in a key-file profile
    with only the test's extension enabled (it opens Eval and Screenshot)."""
    write(os.path.join(home, ".config/glib-2.0/settings/keyfile"),
          f"[org/gnome/shell]\nenabled-extensions=['{TEST_EXTENSION}']\n"
          "welcome-dialog-last-shown-version='999'\n")
    shutil.copytree(os.path.join(HERE, "gnome-shell-test-extension"),
                    os.path.join(home, ".local/share/gnome-shell/extensions", TEST_EXTENSION))
    system_bus = os.path.join(home, "system_bus")
    write(os.path.join(home, "system.conf"), SYSTEM_BUS.format(system_bus))
    daemon = subprocess.Popen(["dbus-daemon", "--nofork", "--config-file",
                               os.path.join(home, "system.conf")], stderr=subprocess.DEVNULL)
    wait_for(lambda: os.path.exists(system_bus), 5)
    os.environ.update(GSETTINGS_BACKEND="keyfile",
                      DBUS_SYSTEM_BUS_ADDRESS=f"unix:path={system_bus}")
    shell = subprocess.Popen(["gnome-shell", "--headless", "--wayland", "--virtual-monitor",
                              "1280x800"], stdout=log, stderr=log)
    return daemon, shell


def shell_eval(script):
    shell = dbus.SessionBus().get_object("org.gnome.Shell", "/org/gnome/Shell")
    ok, result = shell.Eval(script, dbus_interface="org.gnome.Shell")
    if not ok:
        raise RuntimeError(result)
    return json.loads(result) if result else None


def titles():
    return shell_eval("global.get_window_actors().map(a => a.meta_window.get_title())")


def check(description, condition):
    """A check whose failure leaves a screenshot of that moment."""
    if not desktop_session.check(description, condition):
        os.makedirs(ARTEFACTS, exist_ok=True)
        shot = os.path.join(ARTEFACTS, f"gnome-failure-{len(failures)}.png")
        try:
            screenshot = "org.gnome.Shell.Screenshot"
            dbus.SessionBus().get_object(screenshot, "/org/gnome/Shell/Screenshot").Screenshot(
                False, False, shot, dbus_interface=screenshot)
            print(f"     screenshot: {shot}", flush=True)
        except dbus.DBusException as error:
            print(f"     no screenshot: {error}", flush=True)
    return condition


def open_menu():
    if not shell_eval(INDICATOR)["open"]:
        time.sleep(0.5)  # clicks closer together are a double click, which activates the item
        shell_eval("global.vantrelTest.click()")
    opened = wait_for(lambda: shell_eval(INDICATOR)["open"], 5 * FACTOR)
    time.sleep(0.3)  # the menu slides in, and a click on a moving entry is lost
    return opened


def choose(label):
    open_menu()
    shell_eval(f"global.vantrelTest.click({json.dumps(label)})")


def run(bus, app):
    # The extension comes only once Vantrel runs, as its watcher may come late at login.
    check("before any tray, Vantrel shows its window",
          wait_for(lambda: "Vantrel" in titles(), 30 * FACTOR) and not bus.name_has_owner(WATCHER))
    shell_eval("Main.overview.hide()")
    time.sleep(1)  # the shell settles after its start-up: what is timed next is the item
    for when in ("come later", "back after it was switched off"):
        shell_eval(f"Main.extensionManager.enableExtension('{APPINDICATOR}')")
        wait_for(lambda: bus.name_has_owner(WATCHER), 10 * FACTOR)
        appeared = time.monotonic()
        shown = wait_for(lambda: shell_eval(INDICATOR)["icon"], 5 * FACTOR)
        delay = time.monotonic() - appeared
        check(f"the extension's watcher, {when}, shows our icon within a second ({delay:.2f} s)",
              shown and delay <= FACTOR)
        check("and the window goes", wait_for(lambda: "Vantrel" not in titles()))
        if when == "come later":
            shell_eval(f"Main.extensionManager.disableExtension('{APPINDICATOR}')")
            check("with the extension switched off the window is back",
                  wait_for(lambda: "Vantrel" in titles()))
            time.sleep(1)  # as above: the shell settles before the next timing

    check("a left click on the icon opens its menu", open_menu())
    items = shell_eval(INDICATOR)["items"]
    check(f"GNOME's menu shows the state, then every action of it ({items})", items == SIGNED_OUT)
    for label, title in (("Settings…", "Vantrel Settings"),
                         ("Diagnostics…", "Vantrel Diagnostics")):
        choose(label)
        check(f"{label} in GNOME's menu opens a window titled exactly {title}, with the focus",
              wait_for(lambda: shell_eval("global.display.focus_window?.get_title()") == title))

    # This build has no tracker helper beside it, so signing in stops at once, and says why.
    choose("Sign In")
    failed = wait_for(lambda: open_menu() and shell_eval(INDICATOR)["items"][1][0]
                      .startswith("Tracker helper is missing"))
    items = shell_eval(INDICATOR)["items"]
    check(f"Sign In there fails, and GNOME's menu says why under the state ({items[1]})",
          failed and not items[1][1] and items[:1] + items[2:] == SIGNED_OUT)
    choose("Quit Vantrel")
    check("Quit Vantrel in GNOME's menu ends Vantrel with status 0",
          wait_for(lambda: app.poll() is not None) and app.poll() == 0)


def main():
    binary = sys.argv[1]
    if not (shutil.which("gnome-shell") and os.path.isdir(f"/usr/share/gnome-shell/extensions/"
                                                          f"{APPINDICATOR}")
            and glob.glob("/usr/lib/*/qt6/plugins/platforms/libqwayland-generic.so")):
        print("SKIP gnome: gnome-shell, its AppIndicator extension or qt6-wayland is not "
              "installed (VANTREL_INSTALL_DESKTOPS=1 scripts/install-deps.sh installs them)")
        return 77
    home = os.environ["HOME"]  # with-keyring.sh's throwaway home
    # The shell reads its profile where start_app points Vantrel.
    os.environ.update(XDG_CONFIG_HOME=os.path.join(home, ".config"),
                      XDG_DATA_HOME=os.path.join(home, ".local/share"))
    bus = dbus.SessionBus()
    app = daemon = shell = None
    logs = [os.path.join(home, name) for name in ("vantrel.log", "shell.log")]
    with open(logs[0], "w") as log, open(logs[1], "w") as shell_log:
        try:
            daemon, shell = start_shell(home, shell_log)
            socket = os.path.join(os.environ["XDG_RUNTIME_DIR"], "wayland-0")
            wait_for(lambda: os.path.exists(socket), 30 * FACTOR)
            os.environ["WAYLAND_DISPLAY"] = socket
            # Qt's -platform outranks the X11 that start_app sets; the shell's Wayland is native.
            app = start_app(binary, home, "-platform", "wayland", log=log)
            run(bus, app)
        except Exception as error:  # a step that could not be taken at all
            check(f"the run goes to its end ({error!r})", False)
        finally:
            stop(app, shell, daemon)
    if failures:
        os.makedirs(ARTEFACTS, exist_ok=True)
        for path in logs:
            shutil.copy(path, os.path.join(ARTEFACTS, "gnome-" + os.path.basename(path)))
        print(f"gnome: Vantrel's log and the shell's are in {ARTEFACTS}", flush=True)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
