#!/usr/bin/python3
# Vantrel on Wayland beside Waybar's tray, on a headless Sway in a private session bus and a
# throwaway home. Run by sway-tray-host-end-to-end.sh, as an unprivileged user (Sway refuses root):
#
#     sway_tray_host.py <vantrel binary> <virtual_pointer binary> [--screenshots]
#
# Waybar starts after Vantrel and is restarted while it runs; the icon is clicked through a virtual
# pointer (the headless back end has no input devices), Escape typed with wtype, windows and their
# titles read from Sway's tree. Failures' screenshots (or the README's) go to
# $VANTREL_TEST_ARTIFACTS.
import glob
import json
import os
import subprocess
import sys
import time

import dbus

import desktop_session
from desktop_session import (FACTOR, WATCHER, activate, check, finish, our_items, skip_unless,
                             start_app, stop, throwaway_home, tray_comes_and_goes, wait_for)

WIDTH, HEIGHT, BAR = 1280, 800, 30
CONFIGS = {
    "sway.conf": f"output HEADLESS-1 resolution {WIDTH}x{HEIGHT}\nxwayland disable\n",
    "waybar.json": json.dumps({"position": "top", "height": BAR, "modules-right": ["tray"],
                               "tray": {"icon-size": 20, "spacing": 4}}),
    "waybar.css": "window#waybar { background: #202020; }\n",
}
# Qt's own KDE theme takes its palette from kdeglobals: the dark screenshot.
DARK = "".join(f"[Colors:{group}]\nBackgroundNormal={colour}\nForegroundNormal=239,240,241\n"
               for group, colour in (("Window", "42,46,50"), ("View", "35,38,41"),
                                     ("Button", "49,54,59")))


def windows(focused=False, by="name"):
    """Sway's windows as {title (or another field): (x, y, width, height)}, or only the one with
    the keyboard focus."""
    found, nodes = {}, [json.loads(subprocess.run(["swaymsg", "-t", "get_tree"],
                                                  capture_output=True, text=True).stdout)]
    while nodes:
        node = nodes.pop()
        nodes += node.get("nodes", []) + node.get("floating_nodes", [])
        if node.get("pid") and (node.get("focused") or not focused):
            found[node.get(by)] = tuple(node["rect"][k] for k in ("x", "y", "width", "height"))
    return found


def icon_rectangle():
    """Where the bar is drawn in other colours than its background: our item is its only icon."""
    pixels = subprocess.run(["grim", "-t", "ppm", "-g", f"0,0 {WIDTH}x{BAR}", "-"],
                            capture_output=True).stdout.split(b"\n", 3)[3]
    drawn = [(i // 3 % WIDTH, i // 3 // WIDTH) for i in range(0, len(pixels), 3)
             if pixels[i:i + 3] != pixels[:3]]
    xs, ys = [x for x, _ in drawn], [y for _, y in drawn]
    return drawn and (min(xs), min(ys), max(xs) - min(xs) + 1, max(ys) - min(ys) + 1)


def start_waybar():
    home = os.environ["HOME"]
    return subprocess.Popen(["waybar", "-c", os.path.join(home, "waybar.json"), "-s",
                             os.path.join(home, "waybar.css")], stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)


def point(pointer, *moves):
    for move in moves:
        pointer.stdin.write(move + "\n")
        pointer.stdin.flush()
        pointer.stdout.readline()


def open_panel(pointer, icon):
    """Clicks the icon; returns the panel's rectangle once it shows."""
    icon = icon or (WIDTH - 20, 5, 20, 20)
    # From elsewhere: a click where the pointer already rests reaches no icon drawn since.
    point(pointer, f"{WIDTH // 2} {HEIGHT // 2}",
          f"{icon[0] + icon[2] // 2} {icon[1] + icon[3] // 2} left")
    return wait_for(lambda: windows().get("Vantrel"), 5 * FACTOR)


def run(binary, pointer, log):
    bus = dbus.SessionBus()

    def with_icon(_, first):
        if first:
            icon = wait_for(icon_rectangle, 5 * FACTOR)
            check(f"sway: Waybar draws the icon ({icon})", icon)
            check("sway: a click on the icon opens the panel", open_panel(pointer, icon))
            # A key typed before Sway hands the panel the focus goes to nobody.
            check("sway: the panel has the keyboard focus",
                  wait_for(lambda: "Vantrel" in windows(focused=True)))
            subprocess.run(["wtype", "-k", "Escape"], check=True)
            check("sway: Escape closes it", wait_for(lambda: "Vantrel" not in windows()))
            return
        activate(bus, "settings")
        # The desktop entry's name, by which the desktop finds our icon and name for the windows.
        check("sway: Settings opens a window Sway calls exactly 'Vantrel Settings', of "
              "com.keldor.Vantrel", wait_for(lambda: "Vantrel Settings" in windows())
              and set(windows(by="app_id")) == {"com.keldor.Vantrel"})

    app = start_app(binary, "-platform", "wayland", log=log)
    try:
        tray_comes_and_goes("sway", windows, start_waybar, lambda: bus.name_has_owner(WATCHER),
                            lambda: our_items(bus), with_icon)
    finally:
        stop(app)


def screenshots(binary, pointer, log):
    """The bar and the open panel, light and then dark, as sway-panel-<scheme>.png."""
    for scheme in ("light", "dark"):
        if scheme == "dark":
            with open(os.path.join(os.environ["XDG_CONFIG_HOME"], "kdeglobals"), "w") as out:
                out.write(DARK)
            os.environ.update(XDG_CURRENT_DESKTOP="KDE", KDE_SESSION_VERSION="5")
        # A Waybar of its own for each: Waybar 0.9.17 may end when an item it shows goes away.
        waybar, app = start_waybar(), start_app(binary, "-platform", "wayland", log=log)
        panel = open_panel(pointer, wait_for(icon_rectangle))
        if check(f"sway: the {scheme} panel opens for its screenshot", panel):
            point(pointer, f"{WIDTH - 1} {HEIGHT - 1}")  # out of the picture
            time.sleep(0.5)  # shown is not yet drawn
            x, bottom = panel[0] - 12, panel[1] + panel[3] + 12
            subprocess.run(["grim", "-g", f"{x},0 {WIDTH - x}x{bottom}", os.path.join(
                os.environ["VANTREL_TEST_ARTIFACTS"], f"sway-panel-{scheme}.png")], check=True)
        stop(app, waybar)


def main():
    binary, pointer_binary, mode = sys.argv[1], sys.argv[2], sys.argv[3:]
    skip_unless("sway", "sway", "swaymsg", "waybar", "grim", "wtype")
    home = throwaway_home("sway")
    os.makedirs(os.environ["XDG_CONFIG_HOME"])  # where the dark scheme goes
    for name, text in CONFIGS.items():
        with open(os.path.join(home, name), "w", encoding="utf-8") as out:
            out.write(text)
    runtime = os.environ["XDG_RUNTIME_DIR"]
    sway = subprocess.Popen(["sway", "-c", os.path.join(home, "sway.conf")],
                            env=dict(os.environ, WLR_BACKENDS="headless",
                                     WLR_LIBINPUT_NO_DEVICES="1"),
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    display = wait_for(lambda: glob.glob(os.path.join(runtime, "sway-ipc.*.sock")) and
                       [p for p in glob.glob(os.path.join(runtime, "wayland-*"))
                        if not p.endswith(".lock")])
    if not check("sway: the compositor comes up", display):
        stop(sway)
        return 1
    os.environ["WAYLAND_DISPLAY"] = display[0]
    os.environ["SWAYSOCK"] = glob.glob(os.path.join(runtime, "sway-ipc.*.sock"))[0]
    desktop_session.screenshot = lambda shot: subprocess.run(["grim", shot])
    pointer = subprocess.Popen([pointer_binary, str(WIDTH), str(HEIGHT)], text=True,
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    log_path = os.path.join(home, "vantrel.log")
    with open(log_path, "w") as log:
        try:
            (screenshots if mode == ["--screenshots"] else run)(binary, pointer, log)
        finally:
            pointer.stdin.close()
            stop(pointer, sway)
    return finish(home, log_path)


if __name__ == "__main__":
    sys.exit(main())
