#!/usr/bin/python3
# Vantrel under GNOME Shell 43 with its AppIndicator extension, headless on a virtual monitor, in
# the private session bus and keyring of with-keyring.sh and a throwaway home, Vantrel on Wayland.
# There a left click on the icon opens the icon's menu, so the menu is the product: it is clicked
# and read as the shell shows it, through the shell's Eval and the test's own extension in
# gnome-shell-test-extension/.
#
#     gnome_shell_tray_host.py <vantrel binary>
#
# Exits 77 with one line when the shell, the extension or Qt's Wayland plugin is not installed.
# Screenshots of failures go to $VANTREL_TEST_ARTIFACTS.
import json
import os
import shutil
import subprocess
import sys
import time

import dbus

import desktop_session
from desktop_session import (FACTOR, HERE, WATCHER, check, finish, skip_unless, start_app, stop,
                             throwaway_home, tray_comes_and_goes, wait_for)
from session_stand_ins import private_bus

APPINDICATOR = "ubuntu-appindicators@ubuntu.com"
TEST_EXTENSION = "vantrel-test@vantrel.test"
INDICATOR = "global.vantrelTest.indicator()"
SIGNED_OUT = [["Sign in required", False], ["Sign In", True], ["Settings…", True],
              ["Diagnostics…", True], ["Quit Vantrel", True]]


def shell_eval(script):
    shell = dbus.SessionBus().get_object("org.gnome.Shell", "/org/gnome/Shell")
    ok, result = shell.Eval(script, dbus_interface="org.gnome.Shell")
    if not ok:
        raise RuntimeError(result)
    return json.loads(result) if result else None


def titles():
    return shell_eval("global.get_window_actors().map(a => a.meta_window.get_title())")


def screenshot(shot):
    try:
        dbus.SessionBus().get_object("org.gnome.Shell.Screenshot", "/org/gnome/Shell/Screenshot") \
            .Screenshot(False, False, shot, dbus_interface="org.gnome.Shell.Screenshot")
    except dbus.DBusException as error:
        print(f"     no screenshot: {error}", flush=True)


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


def the_menu(app):
    check("gnome: a left click on the icon opens its menu", open_menu())
    items = shell_eval(INDICATOR)["items"]
    check(f"gnome: the menu shows the state, then every action of it ({items})",
          items == SIGNED_OUT)
    for label, title in (("Settings…", "Vantrel Settings"),
                         ("Diagnostics…", "Vantrel Diagnostics")):
        choose(label)
        check(f"gnome: {label} in the menu opens a window titled exactly {title}, with the focus",
              wait_for(lambda: shell_eval("global.display.focus_window?.get_title()") == title))

    # This build has no tracker helper beside it, so signing in stops at once, and says why.
    choose("Sign In")
    failed = wait_for(lambda: open_menu() and shell_eval(INDICATOR)["items"][1][0]
                      .startswith("Tracker helper is missing"))
    items = shell_eval(INDICATOR)["items"]
    check(f"gnome: Sign In there fails, and the menu says why under the state ({items[1]})",
          failed and not items[1][1] and items[:1] + items[2:] == SIGNED_OUT)
    choose("Quit Vantrel")
    check("gnome: Quit Vantrel in the menu ends Vantrel with status 0",
          wait_for(lambda: app.poll() is not None) and app.poll() == 0)


def run(binary, log):
    socket = os.path.join(os.environ["XDG_RUNTIME_DIR"], "wayland-0")
    wait_for(lambda: os.path.exists(socket), 30 * FACTOR)
    os.environ["WAYLAND_DISPLAY"] = socket
    app = start_app(binary, "-platform", "wayland", log=log)
    try:
        bus = dbus.SessionBus()
        # The overview the shell starts in hides only once the shell has settled.
        wait_for(lambda: "Vantrel" in titles() and shell_eval("Main.overview.hide(); true"),
                 30 * FACTOR)
        # The extension comes only once Vantrel runs, as its watcher may come late at login;
        # each time a second after the shell last moved, so that what is timed is the item.
        switch = "Main.extensionManager.{}Extension('" + APPINDICATOR + "')"
        tray_comes_and_goes("gnome", titles, lambda: shell_eval(switch.format("enable")),
                            lambda: bus.name_has_owner(WATCHER),
                            lambda: shell_eval(INDICATOR)["icon"],
                            lambda _, first: first or the_menu(app), late=1,
                            take_down=lambda _: shell_eval(switch.format("disable")))
    finally:
        stop(app)


def main():
    skip_unless("gnome", "gnome-shell", f"/usr/share/gnome-shell/extensions/{APPINDICATOR}",
                "/usr/lib/*/qt6/plugins/platforms/libqwayland-generic.so")
    home = throwaway_home("gnome")
    # A key-file profile with only the test's extension enabled (it opens Eval and Screenshot).
    os.makedirs(os.path.join(home, ".config/glib-2.0/settings"))
    with open(os.path.join(home, ".config/glib-2.0/settings/keyfile"), "w") as out:
        out.write(f"[org/gnome/shell]\nenabled-extensions=['{TEST_EXTENSION}']\n"
                  "welcome-dialog-last-shown-version='999'\n")
    shutil.copytree(os.path.join(HERE, "gnome-shell-test-extension"),
                    os.path.join(home, ".local/share/gnome-shell/extensions", TEST_EXTENSION))
    # The shell aborts without a system bus.
    daemon, system_bus = private_bus(home)
    os.environ.update(GSETTINGS_BACKEND="keyfile", DBUS_SYSTEM_BUS_ADDRESS=system_bus)
    desktop_session.screenshot = screenshot
    logs = [os.path.join(home, name) for name in ("vantrel.log", "shell.log")]
    shell = None
    with open(logs[0], "w") as log, open(logs[1], "w") as shell_log:
        try:
            shell = subprocess.Popen(["gnome-shell", "--headless", "--wayland",
                                      "--virtual-monitor", "1280x800"],
                                     stdout=shell_log, stderr=shell_log)
            run(sys.argv[1], log)
        except Exception as error:  # a step that could not be taken at all
            check(f"gnome: the run goes to its end ({error!r})", False)
        finally:
            stop(shell, daemon)
    return finish(home, *logs)


if __name__ == "__main__":
    sys.exit(main())
