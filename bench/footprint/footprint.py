#!/usr/bin/python3
"""The footprint benchmark's driver. run.sh starts it inside a private keyring session and beside
the local HTTPS service; it starts its own virtual X server and the stand-in tray host, then runs
the bare tray program, the same program using the secret store and TLS, and the application one
after the other and prints their figures.

    footprint.py [--quick] [--detail] <build dir>
"""
import argparse
import ctypes
import json
import os
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

import dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
APP_ID = "com.keldor.Vantrel"
APP_PATH = "/com/keldor/Vantrel"
WATCHER = "org.kde.StatusNotifierWatcher"
TIMEOUT = 20 * float(os.environ.get("VANTREL_TEST_TIMEOUT_FACTOR", "1"))
CLOCK_TICKS = os.sysconf("SC_CLK_TCK")


class Failure(Exception):
    pass


def wait_for(predicate, timeout=TIMEOUT, step=0.05):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        value = predicate()
        if value:
            return value
        time.sleep(step)
    return None


# --- The X server: find top-level windows by title and close them as a window manager would ----

class ClientMessage(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("window", ctypes.c_ulong),
                ("message_type", ctypes.c_ulong), ("format", ctypes.c_int),
                ("data", ctypes.c_long * 5), ("pad", ctypes.c_long * 24)]


class WindowAttributes(ctypes.Structure):
    _fields_ = [("x", ctypes.c_int), ("y", ctypes.c_int), ("width", ctypes.c_int),
                ("height", ctypes.c_int), ("border_width", ctypes.c_int), ("depth", ctypes.c_int),
                ("visual", ctypes.c_void_p), ("root", ctypes.c_ulong), ("class_", ctypes.c_int),
                ("bit_gravity", ctypes.c_int), ("win_gravity", ctypes.c_int),
                ("backing_store", ctypes.c_int), ("backing_planes", ctypes.c_ulong),
                ("backing_pixel", ctypes.c_ulong), ("save_under", ctypes.c_int),
                ("colormap", ctypes.c_ulong), ("map_installed", ctypes.c_int),
                ("map_state", ctypes.c_int), ("all_event_masks", ctypes.c_long),
                ("your_event_mask", ctypes.c_long), ("do_not_propagate_mask", ctypes.c_long),
                ("override_redirect", ctypes.c_int), ("screen", ctypes.c_void_p)]


class Screen:
    """Without a window manager every top-level window is a child of the root window; closing
    one sends it WM_DELETE_WINDOW, which is what a title bar's close button does."""

    IS_VIEWABLE = 2

    def __init__(self):
        x = ctypes.cdll.LoadLibrary("libX11.so.6")
        x.XOpenDisplay.restype = ctypes.c_void_p
        x.XOpenDisplay.argtypes = [ctypes.c_char_p]
        x.XDefaultRootWindow.restype = ctypes.c_ulong
        x.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
        x.XInternAtom.restype = ctypes.c_ulong
        x.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
        x.XQueryTree.argtypes = [ctypes.c_void_p, ctypes.c_ulong] + [ctypes.c_void_p] * 4
        x.XGetWindowProperty.argtypes = [
            ctypes.c_void_p, ctypes.c_ulong, ctypes.c_ulong, ctypes.c_long, ctypes.c_long,
            ctypes.c_int, ctypes.c_ulong] + [ctypes.c_void_p] * 5
        x.XGetWindowAttributes.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_void_p]
        x.XSendEvent.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_int, ctypes.c_long,
                                 ctypes.c_void_p]
        x.XFlush.argtypes = [ctypes.c_void_p]
        x.XFree.argtypes = [ctypes.c_void_p]
        # A window that goes away between listing and asking must not end the benchmark.
        self._error_handler = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)(
            lambda display, event: 0)
        x.XSetErrorHandler(self._error_handler)
        self.x = x
        self.display = x.XOpenDisplay(None)
        if not self.display:
            raise Failure("cannot open the X display")
        self.root = x.XDefaultRootWindow(self.display)
        self.atom = lambda name: x.XInternAtom(self.display, name.encode(), 0)

    def _title(self, window):
        actual_type, actual_format = ctypes.c_ulong(), ctypes.c_int()
        count, remaining, data = ctypes.c_ulong(), ctypes.c_ulong(), ctypes.c_void_p()
        for name in ("_NET_WM_NAME", "WM_NAME"):
            status = self.x.XGetWindowProperty(
                self.display, window, self.atom(name), 0, 1024, 0, 0, ctypes.byref(actual_type),
                ctypes.byref(actual_format), ctypes.byref(count), ctypes.byref(remaining),
                ctypes.byref(data))
            if status == 0 and data.value:
                title = ctypes.string_at(data.value, count.value).decode("utf-8", "replace")
                self.x.XFree(data)
                return title
        return None

    def _viewable(self, window):
        attributes = WindowAttributes()
        if not self.x.XGetWindowAttributes(self.display, window, ctypes.byref(attributes)):
            return False
        return attributes.map_state == self.IS_VIEWABLE

    def titles(self):
        return [self._title(window) for window in self._top_levels() if self._viewable(window)]

    def shown(self, title):
        found = None
        for window in self._top_levels():
            shown_title = self._viewable(window) and self._title(window)
            # Qt adds the application's display name to other titles.
            if shown_title in (title, f"{title} \u2014 Vantrel"):
                found = window
        return found

    def _top_levels(self):
        root, parent = ctypes.c_ulong(), ctypes.c_ulong()
        children, count = ctypes.POINTER(ctypes.c_ulong)(), ctypes.c_uint()
        if not self.x.XQueryTree(self.display, self.root, ctypes.byref(root),
                                 ctypes.byref(parent), ctypes.byref(children),
                                 ctypes.byref(count)):
            return []
        windows = [children[index] for index in range(count.value)]
        if children:
            self.x.XFree(children)
        return windows

    def close(self, window):
        event = ClientMessage(type=33, send_event=1, display=self.display, window=window,
                              message_type=self.atom("WM_PROTOCOLS"), format=32)
        event.data[0] = self.atom("WM_DELETE_WINDOW")
        self.x.XSendEvent(self.display, window, 0, 0, ctypes.byref(event))
        self.x.XFlush(self.display)


# --- What the kernel tells about a process ------------------------------------------------------

def memory(pid):
    """Resident and proportional set size in kB."""
    values = {}
    with open(f"/proc/{pid}/smaps_rollup") as rollup:
        for line in rollup:
            fields = line.split()
            if fields[0] in ("Rss:", "Pss:"):
                values[fields[0][:-1]] = int(fields[1])
    return values["Rss"], values["Pss"]


def cpu_and_switches(pid):
    """CPU seconds (user + system) of the whole process, and context switches of all its
    threads (/proc/<pid>/status counts only the main thread's)."""
    with open(f"/proc/{pid}/stat") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    cpu = (int(fields[11]) + int(fields[12])) / CLOCK_TICKS
    switches = 0
    for task in os.listdir(f"/proc/{pid}/task"):
        try:
            with open(f"/proc/{pid}/task/{task}/status") as status:
                for line in status:
                    if line.startswith(("voluntary_ctxt_switches", "nonvoluntary_ctxt_switches")):
                        switches += int(line.split()[1])
        except FileNotFoundError:
            pass
    return cpu, switches


def mappings(pid, top=12):
    """The largest mappings by PSS, grouped by what they map."""
    totals = {}
    current = None
    with open(f"/proc/{pid}/smaps") as smaps:
        for line in smaps:
            fields = line.split()
            if "-" in fields[0] and len(fields) >= 5:
                current = fields[5] if len(fields) > 5 else "[anonymous]"
                current = os.path.basename(current) if current.startswith("/") else current
            elif fields[0] == "Pss:":
                totals[current] = totals.get(current, 0) + int(fields[1])
    return sorted(totals.items(), key=lambda item: -item[1])[:top]


# --- The session ---------------------------------------------------------------------------------

class TrayHost:
    """The stand-in tray host, and the moment each item registers with it."""

    def __init__(self, bus, work):
        self.bus = bus
        self.process = subprocess.Popen(
            ["/usr/bin/python3", os.path.join(HERE, "status_notifier_watcher.py"),
             os.path.join(work, "items")])
        if not wait_for(lambda: bus.name_has_owner(WATCHER)):
            raise Failure("the stand-in tray host did not start")
        self.registered_at = None
        bus.add_signal_receiver(self._registered, "StatusNotifierItemRegistered", WATCHER)

    def _registered(self, _item):
        if self.registered_at is None:
            self.registered_at = time.monotonic()

    def start(self, command, env):
        """Starts the command; returns the process and the seconds from exec to its icon."""
        self.registered_at = None
        started = time.monotonic()
        process = subprocess.Popen(command, env=env)
        context = GLib.MainContext.default()
        deadline = started + TIMEOUT
        while self.registered_at is None and time.monotonic() < deadline:
            context.iteration(False) or time.sleep(0.001)
            if process.poll() is not None:
                raise Failure(f"{command[0]} ended with status {process.returncode}")
        if self.registered_at is None:
            stop(process)
            raise Failure(f"{command[0]} registered no tray icon")
        return process, self.registered_at - started

    def stop(self):
        stop(self.process)


def stop(process):
    if process.poll() is None:
        process.send_signal(signal.SIGTERM)
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def start_x_server(work):
    for attempt in range(20):
        display = 200 + (os.getpid() + attempt * 37) % 700
        if os.path.exists(f"/tmp/.X{display}-lock"):
            continue
        log = open(os.path.join(work, "xvfb.log"), "w")
        server = subprocess.Popen(["Xvfb", f":{display}", "-screen", "0", "1280x800x24",
                                   "-nolisten", "tcp", "-noreset"], stderr=log)
        ready = lambda: subprocess.run(["xdpyinfo", "-display", f":{display}"],
                                       stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL).returncode == 0
        if wait_for(lambda: ready() or server.poll() is not None, 10, 0.1) and ready():
            os.environ["DISPLAY"] = f":{display}"
            return server
        stop(server)
    raise Failure("no virtual X server would start")


def prepare_application(build, work):
    """The application installed beside the scripted helper, signed in with a key in the private
    keyring, its API on the local HTTPS service, the helper reporting a recent upload. Returns the
    program and the address of today's total on that service."""
    home = os.environ["HOME"]
    prefix = os.path.join(work, "prefix")
    os.makedirs(os.path.join(prefix, "bin"))
    os.makedirs(os.path.join(prefix, "libexec/vantrel"))
    shutil.copy(os.path.join(build, "bin/vantrel"), os.path.join(prefix, "bin/vantrel"))
    shutil.copy(os.path.join(build, "bin/fake_tracker_helper"),
                os.path.join(prefix, "libexec/vantrel/vantrel-tracker"))
    shutil.copy(os.path.join(build, "bin/vantrel-launchctl"), os.path.join(prefix, "libexec/vantrel"))

    data = os.path.join(home, ".vantrel")
    os.makedirs(data, exist_ok=True)
    status = {
        "schema_version": 1, "tracker_version": "9.9.9-bench", "vantrel_config_path":
        f"{data}/config.toml", "vantrel_config_exists": True, "state_path": f"{data}/state.json",
        "state_exists": False, "authenticated": True, "device_id": "bench-device",
        "device_name": "bench", "queued_heartbeats": 0, "queued_activity_segments": 0,
        "dropped_heartbeats": 0, "dropped_activity_segments": 0, "presence_coverage": "full",
        "last_successful_upload_at": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime()),
    }
    with open(os.path.join(work, "status.json"), "w") as out:
        json.dump(status, out)
    with open(os.path.join(data, "config.toml"), "w") as out:
        out.write(f"run.read-key\nrun.wait-stdin-eof\nstatus.stdout-file {work}/status.json\n")

    https = os.environ["VANTREL_TEST_HTTPS_DIR"]
    with open(os.path.join(https, "file.port")) as port_file:
        port = port_file.read().strip()
    with open(os.path.join(https, "response.json"), "w") as out:
        json.dump({"status": 200, "body": json.dumps(
            {"data": {"grand_total": {"text": "1 hr 2 mins", "total_seconds": 3720}}})}, out)
    settings = os.path.join(os.environ["XDG_CONFIG_HOME"], "Vantrel")
    os.makedirs(settings, exist_ok=True)
    with open(os.path.join(settings, "Vantrel.conf"), "w") as out:
        out.write(f"[General]\nserverURL=https://127.0.0.1:{port}/api/vantrel/v1\n"
                  "launchAtLogin=false\nlaunchAtLoginInitialized=true\n")
    subprocess.run(["secret-tool", "store", "--label=Vantrel", "service", "com.keldor.vantrel",
                    "account", "tracker-api-key"], input=b"bench-key-0123456789", check=True)
    summary_url = f"https://127.0.0.1:{port}/api/vantrel/v1/users/current/statusbar/today"
    return os.path.join(prefix, "bin/vantrel"), summary_url


# --- The runs ------------------------------------------------------------------------------------

def open_and_close_windows(bus, screen, rounds):
    application = dbus.Interface(bus.get_object(APP_ID, APP_PATH), "org.freedesktop.Application")
    no_arguments = (dbus.Array([], signature="v"), dbus.Dictionary({}, signature="sv"))
    openers = {
        "Vantrel": lambda: application.Activate(no_arguments[1]),
        "Vantrel Settings": lambda: application.ActivateAction("settings", *no_arguments),
        "Vantrel Diagnostics": lambda: application.ActivateAction("diagnostics", *no_arguments),
    }
    for _ in range(rounds):
        for title, open_window in openers.items():
            open_window()
            window = wait_for(lambda: screen.shown(title))
            if not window:
                raise Failure(f"the window {title!r} did not open; shown: {screen.titles()}")
            # Let it paint, as a user would look at it.
            time.sleep(0.3)
            screen.close(window)
            if not wait_for(lambda: not screen.shown(title)):
                raise Failure(f"the window {title!r} did not close")


def measure(name, host, command, env, settle, idle, window_cycles, detail):
    process, to_icon = host.start(command, env)
    try:
        time.sleep(settle)
        figures = {"icon": to_icon}
        figures["rss"], figures["pss"] = memory(process.pid)
        if detail:
            print(f"\n{name}: largest mappings by PSS after settling (kB)")
            for mapping, kilobytes in mappings(process.pid):
                print(f"  {kilobytes:8d}  {mapping}")
        if window_cycles:
            window_cycles()
            time.sleep(settle / 2)
        figures["rss_after"], figures["pss_after"] = memory(process.pid)
        if detail and window_cycles:
            print(f"\n{name}: largest mappings by PSS after the windows (kB)")
            for mapping, kilobytes in mappings(process.pid):
                print(f"  {kilobytes:8d}  {mapping}")
        if idle:
            cpu_before, switches_before = cpu_and_switches(process.pid)
            time.sleep(idle)
            cpu_after, switches_after = cpu_and_switches(process.pid)
            figures["cpu"] = cpu_after - cpu_before
            figures["switches"] = switches_after - switches_before
        if process.poll() is not None:
            raise Failure(f"{name} ended during the run")
        return figures
    finally:
        stop(process)


def start_times(host, command, env, count):
    times = []
    for _ in range(count):
        process, to_icon = host.start(command, env)
        stop(process)
        times.append(to_icon)
    return times


def ratio(value, base):
    return f"{value / base:6.2f}×" if base else "     —"


def report(bare, services, app, idle):
    print(f"\nfootprint: {idle:.0f} s idle window; ratios to the bare Qt tray program "
          "measured in this run")
    print("(bare+services: the bare program reading the key from the Secret Service and fetching "
          "over HTTPS every 60 s through the application's own bindings)")
    print(f"{'':44s}{'bare':>10s}{'vantrel':>10s}{'ratio':>9s}"
          f"{'bare+services':>15s}{'vantrel to it':>15s}")
    rows = [
        ("idle RSS, panel never opened (MB)", "rss", 1 / 1024),
        ("idle PSS, panel never opened (MB)", "pss", 1 / 1024),
        ("RSS after windows opened+closed 3× (MB)", "rss_after", 1 / 1024),
        ("PSS after windows opened+closed 3× (MB)", "pss_after", 1 / 1024),
        (f"CPU time over {idle:.0f} idle s (ms)", "cpu", 1000),
        (f"context switches over {idle:.0f} idle s", "switches", 1),
        ("start to tray icon, median (ms)", "icon", 1000),
    ]
    for label, key, scale in rows:
        line = (f"{label:44s}{bare[key] * scale:10.1f}{app[key] * scale:10.1f}"
                f"{ratio(app[key], bare[key]):>9s}")
        if key in services:
            line += (f"{services[key] * scale:15.1f}"
                     f"{ratio(app[key], services[key]):>15s}")
        print(line)
    print(f"vantrel after windows / before: RSS {ratio(app['rss_after'], app['rss'])}, "
          f"PSS {ratio(app['pss_after'], app['pss'])}")
    print("start to tray icon, each start (ms): bare "
          + " ".join(f"{t * 1000:.0f}" for t in bare["icons"]) + "; vantrel "
          + " ".join(f"{t * 1000:.0f}" for t in app["icons"]))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", action="store_true", help="short settle and idle windows")
    parser.add_argument("--detail", action="store_true", help="also list the largest mappings")
    parser.add_argument("--without-extra-authorities", action="store_true",
                        help="start the application without SSL_CERT_FILE and SSL_CERT_DIR, to "
                        "see what trusting them costs (its requests then fail, silently)")
    parser.add_argument("build")
    arguments = parser.parse_args()
    build = os.path.abspath(arguments.build)
    settle, idle, starts = (2.0, 5.0, 1) if arguments.quick else (10.0, 60.0, 3)

    DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    work = tempfile.mkdtemp(prefix="vantrel-footprint-")
    server = host = None
    try:
        server = start_x_server(work)
        screen = Screen()
        host = TrayHost(bus, work)
        vantrel, summary_url = prepare_application(build, work)
        env = dict(os.environ, QT_QPA_PLATFORM="xcb")
        env.pop("VANTREL_TEST_KEYRING_PASSWORD", None)
        app_env = dict(env)
        if arguments.without_extra_authorities:
            app_env.pop("SSL_CERT_FILE", None)
            app_env.pop("SSL_CERT_DIR", None)
        bare_command = [os.path.join(build, "bin/footprint_bare_tray")]

        # One start of each first, so that neither is measured with a cold page cache.
        start_times(host, bare_command, env, 1)
        start_times(host, [vantrel], app_env, 1)
        bare = measure("bare", host, bare_command, env, settle, idle, None, arguments.detail)
        # Idle CPU and start-up are the application's own matter; this baseline is for memory.
        services_command = [os.path.join(build, "bin/footprint_services_tray"), summary_url]
        services = measure("bare+services", host, services_command,
                           app_env, settle, 0, None, arguments.detail)
        services = {key: services[key] for key in ("rss", "pss")}
        app = measure("vantrel", host, [vantrel], app_env, settle, idle,
                      lambda: open_and_close_windows(bus, screen, 3), arguments.detail)
        bare["icons"] = [bare["icon"]]
        app["icons"] = [app["icon"]]
        for _ in range(starts - 1):
            bare["icons"] += start_times(host, bare_command, env, 1)
            app["icons"] += start_times(host, [vantrel], app_env, 1)
        bare["icon"] = statistics.median(bare["icons"])
        app["icon"] = statistics.median(app["icons"])
        report(bare, services, app, idle)
        return 0
    except Failure as failure:
        print(f"footprint: {failure}", file=sys.stderr)
        return 1
    finally:
        if host:
            host.stop()
        if server:
            stop(server)
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
