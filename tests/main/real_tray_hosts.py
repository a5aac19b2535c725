#!/usr/bin/python3
# Vantrel beside a real tray host on a virtual X server, in a private session bus and a throwaway
# home; CMake runs it inside with-xvfb.sh and dbus-run-session:
#
#     real_tray_hosts.py xfce <vantrel binary>    XFCE's panel with its systray plugin (it hosts
#                                                 StatusNotifierItems and XEmbed icons)
#     real_tray_hosts.py trayer <vantrel binary>  an XEmbed-only tray
#
# Each host starts after Vantrel and restarts while it runs. Exits 77 with one line when the host
# is not installed; screenshots of failures go to $VANTREL_TEST_ARTIFACTS.
import os
import re
import subprocess
import sys
import time

import dbus
import pyatspi

import desktop_session
from desktop_session import (FACTOR, TIMEOUT, WATCHER, check, finish, our_items, showing,
                             shown_titles, skip_unless, start_app, stop, throwaway_home,
                             tray_comes_and_goes, wait_for, window)

XFCONFD = "/usr/lib/x86_64-linux-gnu/xfce4/xfconf/xfconfd"
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


def x_windows():
    """Every window of the screen as (depth, name, x, y, width, height), from xwininfo's tree."""
    tree = subprocess.run(["xwininfo", "-root", "-tree"], capture_output=True, text=True).stdout
    pattern = re.compile(r'^( +)0x[0-9a-f]+ (?:"([^"]*)"|\(has no name\)).*?'
                         r'\s(\d+)x(\d+)[+-]-?\d+[+-]-?\d+\s+\+(-?\d+)\+(-?\d+)$')
    return [(len(indent), name or "", int(x), int(y), int(width), int(height))
            for indent, name, width, height, x, y in
            (match.groups() for match in map(pattern.match, tree.splitlines()) if match)]


def click(icon):
    x, y = icon[0] + icon[2] // 2, icon[1] + icon[3] // 2
    subprocess.run(["xdotool", "mousemove", str(x), str(y), "click", "1"], check=True)


def distance(rectangle, other):
    """How far apart two (x, y, width, height) rectangles are, 0 when they touch."""
    ax, ay, aw, ah = rectangle
    bx, by, bw, bh = other
    return max(bx - (ax + aw), ax - (bx + bw), by - (ay + ah), ay - (by + bh), 0)


def clicking_opens_the_panel_beside(icon, host):
    click(icon)
    panel = wait_for(lambda: showing(window("Vantrel")) and window("Vantrel"), 5 * FACTOR)
    extents = panel and tuple(panel.queryComponent().getExtents(pyatspi.DESKTOP_COORDS))
    check(f"{host}: a click on the icon {icon} opens the panel {extents} within 10 px of it",
          panel and distance(extents, icon) <= 10)
    time.sleep(0.6)  # two clicks closer together are a double click
    click(icon)
    check(f"{host}: a second click closes it",
          wait_for(lambda: not showing(window("Vantrel")), 5 * FACTOR))


def what_xfce_offers(binary, app):
    time.sleep(1)  # registered is not yet drawn: the host reads the item's icon first
    # The systray plugin is the panel's only one and our item its only icon: it sits at the start
    # of the bar (at the top, as configured), as square as the bar is high.
    bar = wait_for(lambda: next((w for w in x_windows() if w[1] == "xfce4-panel"
                                 and w[2:4] == (0, 0) and w[4] > 100), None))
    icon = (0, 0, bar[5], bar[5]) if bar else (0, 0, 30, 30)
    clicking_opens_the_panel_beside(icon, "xfce")
    check("xfce: a second start exits at once with status 0, opens the panel of the first, "
          "and the first keeps running", start_app(binary).wait(TIMEOUT) == 0
          and wait_for(lambda: showing(window("Vantrel"))) and app.poll() is None)


def run_xfce(binary, app):
    bus = dbus.SessionBus()
    settings = os.path.join(os.environ["XDG_CONFIG_HOME"], "xfce4/xfconf/xfce-perchannel-xml")
    os.makedirs(settings)
    with open(os.path.join(settings, "xfce4-panel.xml"), "w", encoding="utf-8") as out:
        out.write(PANEL_CONFIG)
    xfconfd = subprocess.Popen([XFCONFD], stderr=subprocess.DEVNULL)

    try:
        # The panel comes 3 s after Vantrel, as it may at login.
        tray_comes_and_goes("xfce", shown_titles, lambda: subprocess.Popen(
            ["xfce4-panel", "--disable-wm-check"], stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL), lambda: bus.name_has_owner(WATCHER),
            lambda: our_items(bus),
            # The panel is slow to end while our item is still there.
            lambda _, first: what_xfce_offers(binary, app) if first else stop(app), late=3)
    finally:
        stop(xfconfd)


def run_trayer(_, app):
    tray_comes_and_goes("trayer", shown_titles, lambda: subprocess.Popen(
        ["trayer", "--edge", "top", "--align", "right", "--widthtype", "request", "--height", "24",
         "--SetDockType", "true"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL),
        lambda: any(w[1] == "panel" for w in x_windows()),
        lambda: next((w[2:] for w in x_windows() if w[0] > 5 and w[1] == "Vantrel"), None),
        # Docked is not yet drawn: the window maps after the dock.
        lambda icon, first: first and icon and time.sleep(1) is None
        and clicking_opens_the_panel_beside(icon, "trayer"))


def main():
    host, binary = sys.argv[1], sys.argv[2]
    skip_unless(host, *{"xfce": ["xfce4-panel", XFCONFD], "trayer": ["trayer"]}[host],
                "xdotool", "xwininfo")
    home = throwaway_home(host)
    desktop_session.screenshot = lambda shot: subprocess.run(
        f"xwd -root -silent | convert xwd:- {shot}", shell=True)
    log_path = os.path.join(home, "vantrel.log")
    with open(log_path, "w") as log:
        app = start_app(binary, log=log)
        try:
            (run_xfce if host == "xfce" else run_trayer)(binary, app)
        finally:
            stop(app)
    return finish(home, log_path)


if __name__ == "__main__":
    sys.exit(main())
