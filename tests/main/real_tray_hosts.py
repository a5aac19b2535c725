#!/usr/bin/python3
"""Vantrel beside a real tray host on a virtual X server, in a private session bus and a throwaway
home. Run by real-tray-host-end-to-end.sh inside with-xvfb.sh and dbus-run-session.

    real_tray_hosts.py xfce <vantrel binary>    XFCE's panel with its systray plugin (it hosts
                                                StatusNotifierItems and XEmbed icons), started 3 s
                                                after Vantrel, then restarted while Vantrel runs
    real_tray_hosts.py trayer <vantrel binary>  an XEmbed-only tray started after Vantrel

Exits 77 with one line when the host is not installed (scripts/install-deps.sh installs the hosts
when CI=true or VANTREL_INSTALL_DESKTOPS=1). Screenshots of failures go to
$VANTREL_TEST_ARTIFACTS (default: a temporary folder the failure names).
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

import dbus
import pyatspi

import desktop_session
from desktop_session import (TIMEOUT, failures, find, menu_entries, press, showing, start_app,
                             stop, tray_item, wait_for, window)

WATCHER = "org.kde.StatusNotifierWatcher"
XFCONFD = "/usr/lib/x86_64-linux-gnu/xfce4/xfconf/xfconfd"
FACTOR = float(os.environ.get("VANTREL_TEST_TIMEOUT_FACTOR", "1"))
ICON_DELAY = 1.0 * FACTOR

PANEL_CONFIG = """<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="size" type="uint" value="30"/>
      <property name="plugin-ids" type="array"><value type="int" value="1"/></property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="systray"/>
  </property>
</channel>
"""


ARTEFACTS = os.environ.get("VANTREL_TEST_ARTIFACTS") or tempfile.mkdtemp(prefix="vantrel-shots-")


def check(description, condition):
    """A check whose failure leaves a screenshot of that moment."""
    if not desktop_session.check(description, condition):
        shot = os.path.join(ARTEFACTS, f"failure-{len(failures)}.png")
        subprocess.run(f"xwd -root -silent | convert xwd:- {shot}", shell=True)
        print(f"     screenshot: {shot}", flush=True)
    return condition


def windows():
    """Every window of the screen as (depth, name, x, y, width, height), from xwininfo's tree."""
    tree = subprocess.run(["xwininfo", "-root", "-tree"], capture_output=True, text=True).stdout
    pattern = re.compile(r'^( +)0x[0-9a-f]+ (?:"([^"]*)"|\(has no name\)).*?\s(\d+)x(\d+)[+-]-?\d+[+-]-?\d+'
                         r'\s+\+(-?\d+)\+(-?\d+)$')
    result = []
    for line in tree.splitlines():
        match = pattern.match(line)
        if match:
            indent, name, width, height, x, y = match.groups()
            result.append((len(indent), name or "", int(x), int(y), int(width), int(height)))
    return result


def click(x, y):
    subprocess.run(["xdotool", "mousemove", str(x), str(y), "click", "1"], check=True)


def distance(rectangle, other):
    """How far apart two (x, y, width, height) rectangles are, 0 when they touch."""
    ax, ay, aw, ah = rectangle
    bx, by, bw, bh = other
    return max(bx - (ax + aw), ax - (bx + bw), by - (ay + ah), ay - (by + bh), 0)


def panel_rectangle():
    return tuple(window("Vantrel").queryComponent().getExtents(pyatspi.DESKTOP_COORDS))


def clicking_opens_the_panel_beside(icon, host):
    """Clicks the icon's centre; checks the panel opens within 10 px of it and closes again."""
    x, y = icon[0] + icon[2] // 2, icon[1] + icon[3] // 2
    click(x, y)
    opened = check(f"{host}: a click on the icon opens the panel",
                   wait_for(lambda: showing(window("Vantrel")), 5 * FACTOR))
    if opened:
        panel = panel_rectangle()
        check(f"{host}: the panel {panel} opens within 10 px of the icon {icon}",
              distance(panel, icon) <= 10)
    time.sleep(0.6)  # two clicks closer together are a double click
    click(x, y)
    check(f"{host}: a second click closes it",
          wait_for(lambda: not showing(window("Vantrel")), 5 * FACTOR))


def window_shown(host, description, shown):
    """Checks that the panel's window comes (or goes) as the tray goes (or comes)."""
    check(f"{host}: {description}", wait_for(lambda: showing(window("Vantrel")) == shown))


def our_items(bus):
    try:
        watcher = bus.get_object(WATCHER, "/StatusNotifierWatcher")
        items = watcher.Get(WATCHER, "RegisteredStatusNotifierItems",
                            dbus_interface=dbus.PROPERTIES_IFACE)
    except dbus.DBusException:
        return []
    return [str(item) for item in items]


def what_the_tray_offers(bus, binary, home, app, centre):
    """The item, its panel and its menu as the host sees them, and a second start."""
    item = our_items(bus)[-1]
    check("xfce: the item draws its own icon at several sizes",
          len(tray_item(bus, item).get_dbus_method("Get", dbus.PROPERTIES_IFACE)(
              "org.kde.StatusNotifierItem", "IconPixmap")) >= 4)
    click(*centre)
    panel = wait_for(lambda: showing(window("Vantrel")) and window("Vantrel"), 5 * FACTOR)
    check("xfce: the panel offers Sign In",
          panel and find(panel, "Sign In", (pyatspi.ROLE_PUSH_BUTTON,)))
    check("xfce: Diagnostics… opens the Diagnostics window",
          panel and press(panel, "Diagnostics…")
          and wait_for(lambda: showing(window("Vantrel Diagnostics"))))
    check("xfce: the panel makes way for it", wait_for(lambda: not showing(window("Vantrel"))))

    second = start_app(binary, home)
    check("xfce: a second start exits at once with status 0", second.wait(TIMEOUT) == 0)
    check("xfce: a second start opens the panel of the first",
          wait_for(lambda: showing(window("Vantrel"))))
    check("xfce: the first copy keeps running", app.poll() is None)

    menu, entries = menu_entries(bus, item)
    check(f"xfce: the menu carries the state and every action of it ({list(entries)})",
          list(entries) == ["Sign in required", "Sign In", "Settings…", "Diagnostics…",
                            "Quit Vantrel"])
    menu.Event(entries["Settings…"], "clicked", dbus.String("", variant_level=1), 0)
    check("xfce: Settings… in the menu opens the Settings window",
          wait_for(lambda: showing(window("Vantrel Settings"))))


def start_xfce_panel(bus, before):
    """Starts the panel; returns it and how long after its tray appeared our item registered."""
    panel = subprocess.Popen(["xfce4-panel", "--disable-wm-check"], stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL)
    wait_for(lambda: bus.name_has_owner(WATCHER), 10 * FACTOR)
    appeared = time.monotonic()
    registered = wait_for(lambda: set(our_items(bus)) - before, 5 * FACTOR)
    return panel, (time.monotonic() - appeared) if registered else None


def run_xfce(binary, home, log_path):
    bus = dbus.SessionBus()
    settings = os.path.join(home, ".config/xfce4/xfconf/xfce-perchannel-xml")
    os.makedirs(settings)
    with open(os.path.join(settings, "xfce4-panel.xml"), "w", encoding="utf-8") as out:
        out.write(PANEL_CONFIG)
    xfconfd = subprocess.Popen([XFCONFD], stderr=subprocess.DEVNULL)
    app = panel = None
    with open(log_path, "w") as log:
        try:
            app = start_app(binary, home, log=log)
            window_shown("xfce", "before the panel runs, Vantrel shows its window", True)
            time.sleep(3)  # the panel comes 3 s after Vantrel, as it may at login
            panel, delay = start_xfce_panel(bus, set())
            check(f"xfce: the panel started 3 s later shows our item within a second ({delay})",
                  delay is not None and delay <= ICON_DELAY)
            window_shown("xfce", "the window goes once the icon is there", False)

            time.sleep(1)  # registered is not yet drawn: the host reads the item's icon first
            # The systray plugin is the panel's only one and our item its only icon: it sits at
            # the start of the bar (at the top, as configured), as square as the bar is high.
            bar = wait_for(lambda: next((w for w in windows() if w[1] == "xfce4-panel"
                                         and w[2:4] == (0, 0) and w[4] > 100), None))
            icon = (0, 0, bar[5], bar[5]) if bar else (0, 0, 30, 30)
            clicking_opens_the_panel_beside(icon, "xfce")
            what_the_tray_offers(bus, binary, home, app, (icon[0] + icon[2] // 2, icon[1] + icon[3] // 2))

            before = set(our_items(bus))
            stop(panel)
            window_shown("xfce", "with the panel gone the window is back", True)
            panel, delay = start_xfce_panel(bus, before)
            check(f"xfce: a restarted panel shows our item within a second ({delay})",
                  delay is not None and delay <= ICON_DELAY)
            window_shown("xfce", "and the window goes again", False)
            menu, entries = menu_entries(bus, our_items(bus)[-1])
            menu.Event(entries["Quit Vantrel"], "clicked", dbus.String("", variant_level=1), 0)
            check(f"xfce: Quit Vantrel in the menu ends the application (status {app.wait(TIMEOUT)})",
                  app.returncode == 0)
        finally:
            stop(app, panel, xfconfd)


def run_trayer(binary, home, log_path):
    app = tray = None
    with open(log_path, "w") as log:
        try:
            app = start_app(binary, home, log=log)
            window_shown("trayer", "before the tray runs, Vantrel shows its window", True)
            for when in ("started after Vantrel", "restarted"):
                tray = subprocess.Popen(["trayer", "--edge", "top", "--align", "right",
                                         "--widthtype", "request", "--height", "24",
                                         "--SetDockType", "true"], stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
                wait_for(lambda: any(w[1] == "panel" for w in windows()), 10 * FACTOR)
                appeared = time.monotonic()
                docked = lambda: next((w for w in windows() if w[0] > 5 and w[1] == "Vantrel"),
                                      None)
                icon = wait_for(docked, 5 * FACTOR)
                delay = time.monotonic() - appeared
                check(f"trayer: {when}, it docks our icon within a second ({delay:.2f} s)",
                      icon is not None and delay <= ICON_DELAY)
                window_shown("trayer", "the window goes once the icon is there", False)
                if when == "restarted":
                    break
                if icon:
                    time.sleep(1)  # docked is not yet drawn: the window maps after the dock
                    clicking_opens_the_panel_beside(icon[2:], "trayer")
                stop(tray)
                window_shown("trayer", "with the tray gone the window is back", True)
        finally:
            stop(app, tray)


HOSTS = {
    "xfce": (["xfce4-panel", XFCONFD], run_xfce),
    "trayer": (["trayer"], run_trayer),
}


def main():
    host, binary = sys.argv[1], sys.argv[2]
    programs, run = HOSTS[host]
    missing = [p for p in programs + ["xdotool", "xwininfo"] if not shutil.which(p)]
    if missing:
        print(f"SKIP {host}: {', '.join(missing)} not installed "
              "(VANTREL_INSTALL_DESKTOPS=1 scripts/install-deps.sh installs them)")
        return 77
    home = tempfile.mkdtemp(prefix=f"vantrel-{host}-")
    # The hosts too live in the throwaway home: they read their settings there and write there.
    for variable, folder in (("HOME", ""), ("XDG_CONFIG_HOME", ".config"),
                             ("XDG_CACHE_HOME", ".cache"), ("XDG_DATA_HOME", ".local/share")):
        os.environ[variable] = os.path.join(home, folder)
    log_path = os.path.join(home, "vantrel.log")
    run(binary, home, log_path)
    if failures:
        print(f"{host}: Vantrel's log is {log_path}", flush=True)
        return 1
    shutil.rmtree(home, ignore_errors=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
