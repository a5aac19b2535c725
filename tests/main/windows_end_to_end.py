#!/usr/bin/python3
"""The windows and the API key end to end. Run by windows-end-to-end.sh inside a private keyring
session, beside the HTTPS stand-in, on a virtual X server with an accessibility bus.

    windows_end_to_end.py <vantrel> <fake tracker helper> <vantrel-launchctl>

One run of the real application with start-up: an older installation's key is imported, a device
sign-in against the stand-in replaces it, and a key typed into Settings replaces that one. Each key
must reach the keyring and the helper's standard input, and none may reach anything else.
"""
import json
import os
import re
import secrets
import subprocess
import sys
import tempfile

import dbus
import pyatspi

from desktop_session import (HERE, activate_action, all_names, check, failures, find, press, showing,
                             start_tray_host, stop, tray_item, wait_for, window)

HOME = os.environ["HOME"]
CONFIG_HOME = os.environ["XDG_CONFIG_HOME"]
CONFIG = os.path.join(HOME, ".vantrel", "config.toml")
PREFERENCES = os.path.join(CONFIG_HOME, "Vantrel", "Vantrel.conf")
LOGS = [os.path.join(HOME, ".vantrel", "tracker", name) for name in ("stdout.log", "stderr.log")]
HTTPS = os.environ["VANTREL_TEST_HTTPS_DIR"]
TEXT_ROLES = (pyatspi.ROLE_TEXT, pyatspi.ROLE_PASSWORD_TEXT, pyatspi.ROLE_ENTRY)


def read(path, mode="r"):
    with open(path, mode) as file:
        return file.read()


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path + ".tmp", "w") as file:
        file.write(text)
    os.rename(path + ".tmp", path)


def keyring():
    result = subprocess.run(["secret-tool", "lookup", "service", "com.keldor.vantrel", "account",
                             "tracker-api-key"], capture_output=True, text=True)
    return result.stdout


def clipboard():
    return subprocess.run(["xclip", "-o", "-selection", "clipboard"], capture_output=True,
                          text=True, timeout=5).stdout


def helper_pid(record):
    try:
        return int(read(os.path.join(record, "pid")))
    except (OSError, ValueError):
        return None


def relaunched_with(record, previous_pid, key):
    """Whether the scripted helper was launched again since `previous_pid`, with `key` on its
    standard input."""
    pid = helper_pid(record)
    return pid is not None and pid != previous_pid and read(os.path.join(record, "key")) == key


def shell(function, *arguments):
    """A function of the end-to-end scripts' shared checks.sh, run for its output."""
    script = f'source "{HERE}/../scripts/checks.sh"; {function} "$@"'
    return subprocess.run(["bash", "-c", script, "bash", *arguments], capture_output=True,
                          text=True, check=True).stdout


def answer(replies):
    """The stand-in's answers by path, each a status and a JSON body."""
    write(os.path.join(HTTPS, "response.json"), json.dumps({"paths": {
        path: {"status": status, "body": json.dumps(body)}
        for path, (status, body) in replies.items()}}))


def requests_to(path):
    try:
        log = read(os.path.join(HTTPS, "requests.log"))
    except OSError:
        return 0
    return sum(1 for line in log.splitlines() if line.split(" ")[1:2] == [path])


def mapped_titles():
    """The titles of the shown top-level windows as the window manager reads them."""
    def run(*command):
        return subprocess.run(command, capture_output=True, text=True, timeout=5).stdout
    titles = []
    for window in re.findall(r"^\s+(0x[0-9a-f]+) ", run("xwininfo", "-root", "-children"), re.M):
        if "IsViewable" in run("xwininfo", "-id", window):
            name = re.search(r'= "(.*)"$', run("xprop", "-id", window, "_NET_WM_NAME"), re.M)
            titles.append(name.group(1) if name else None)
    return titles


def set_text(root, name, text):
    field = find(root, name, TEXT_ROLES)
    if field is None:
        return False
    field.queryEditableText().setTextContents(text)
    return True


def feedback(settings):
    label = pyatspi.findDescendant(
        settings, lambda a: a.getRole() == pyatspi.ROLE_LABEL and a.name.startswith("Saved"))
    return label.name if label is not None else None


def main():
    work = tempfile.mkdtemp(prefix="vantrel-windows-")
    prefix, record = os.path.join(work, "prefix"), os.path.join(work, "record")
    os.makedirs(record)
    shell("install_prefix", prefix, *sys.argv[1:4])
    binary = os.path.join(prefix, "bin", "vantrel")
    bus = dbus.SessionBus()

    # Distinctive keys: a grep for one of them finds nothing by chance.
    legacy_key = "legacy-" + secrets.token_hex(12)
    device_key = "device-" + secrets.token_hex(12)
    manual_key = "manual-" + secrets.token_hex(12)
    keys = (legacy_key, device_key, manual_key)

    port = read(os.path.join(HTTPS, "file.port")).strip()
    service = f"https://127.0.0.1:{port}/api/vantrel/v1"
    self_hosted = "https://tracker.example.test:8443/api/vantrel/v1"
    write(PREFERENCES, f"[General]\nserverURL={service}\n")
    write(os.path.join(work, "status.json"),
          shell("status_document", os.path.join(prefix, "libexec", "vantrel", "vantrel-tracker")))
    # The helper's script lives in the configuration file, where an older installation also
    # left its key.
    write(CONFIG, "\n".join([
        "run.read-key", f"run.record {record}", "run.stdout helper started",
        "run.stderr helper warming up", "run.wait-stdin-eof",
        f"status.stdout-file {os.path.join(work, 'status.json')}",
        f'api_key = "{legacy_key}"', ""]))
    # The browser: opening the approval page only leaves a note.
    tools = os.path.join(work, "bin")
    os.makedirs(tools)
    opened = os.path.join(work, "opened")
    write(os.path.join(tools, "xdg-open"), f'#!/bin/sh\necho "$1" >>"{opened}"\n')
    os.chmod(os.path.join(tools, "xdg-open"), 0o755)

    answer({
        "/api/vantrel/v1/device-authorizations": (201, {
            "authorization_id": "5c1e9d3a-0b7e-4f7c-9a51-2e6f1d0c4b88",
            "device_code": "device-code", "user_code": "WDJB-MJHT",
            "verification_uri": f"https://127.0.0.1:{port}/device",
            "verification_uri_complete": f"https://127.0.0.1:{port}/device?code=WDJB-MJHT",
            "expires_in": 600, "interval": 1}),
        "/api/vantrel/v1/device-authorizations/poll": (200, {
            "status": "authorized", "api_key": device_key}),
    })

    watcher = start_tray_host(os.path.join(work, "items"))
    wait_for(lambda: bus.name_has_owner("org.kde.StatusNotifierWatcher"))
    env = dict(os.environ, QT_QPA_PLATFORM="xcb", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1",
               PATH=tools + os.pathsep + os.environ["PATH"])
    env.pop("XCTestConfigurationFilePath", None)
    output = [os.path.join(work, name) for name in ("app.out", "app.err")]
    with open(output[0], "w") as out, open(output[1], "w") as err:
        app = subprocess.Popen([binary], env=env, stdout=out, stderr=err)
    try:
        report = run(bus, record, keys, service, self_hosted, opened, work)
        exposed = exposed_places(app, record, report)
        activate_action(bus, "quit")
        check("quitting ends the application with status 0", wait_for(lambda: app.poll() == 0))
        for path in output:
            exposed[f"the application's {os.path.basename(path)}"] = read(path, "rb")
        for name, key in zip(("imported", "signed-in", "typed"), keys):
            leaks = [place for place, content in exposed.items()
                     if (key.encode() if isinstance(content, bytes) else key) in content]
            check(f"the {name} key is in none of {len(exposed)} places {leaks or ''}", not leaks)
    except BaseException:
        failures.append("the run ended early")
        raise
    finally:
        stop(app, watcher)
        if failures:
            sys.stderr.write(f"--- the application's status: {app.returncode}\n")
            for path in output:
                sys.stderr.write(f"--- {path}\n{read(path)}")
    return 1 if failures else 0


def run(bus, record, keys, service, self_hosted, opened, work):
    legacy_key, device_key, manual_key = keys

    # Start-up imports the key that an older installation left behind.
    check("start-up launches the helper with the imported key",
          wait_for(lambda: relaunched_with(record, None, legacy_key)))
    check("the imported key is in the keyring", keyring() == legacy_key)
    check("the configuration file keeps the imported key blanked",
          'api_key = ""' in read(CONFIG).splitlines())

    # A device sign-in against the stand-in, which authorizes at the first poll.
    previous = helper_pid(record)
    activate_action(bus, "sign-in")
    check("the sign-in asks the service for a code and polls",
          wait_for(lambda: requests_to("/api/vantrel/v1/device-authorizations/poll")))
    check("the approval page is opened",
          wait_for(lambda: "code=WDJB-MJHT" in read(opened)))
    check("the signed-in key restarts the helper on its standard input",
          wait_for(lambda: relaunched_with(record, previous, device_key)))
    check("the signed-in key is in the keyring", keyring() == device_key)

    # Settings, from the panel's row.
    items = wait_for(lambda: read(os.path.join(work, "items")).split())
    check("the tray icon registers", items)
    tray_item(bus, items[0]).Activate(10, 10)
    panel = wait_for(lambda: showing(window("Vantrel")) and window("Vantrel"))
    check("Settings… in the panel opens the Settings window",
          panel and press(panel, "Settings…")
          and wait_for(lambda: showing(window("Vantrel Settings"))))
    check("the panel makes way for the window it opened",
          wait_for(lambda: not showing(window("Vantrel"))))
    settings = window("Vantrel Settings")
    check("the advanced connection settings open",
          press(settings, "Advanced connection settings",
                (pyatspi.ROLE_CHECK_BOX, pyatspi.ROLE_TOGGLE_BUTTON))
          and wait_for(lambda: showing(find(settings, "API server URL", TEXT_ROLES))))
    check("the URL field shows the current server",
          find(settings, "API server URL", TEXT_ROLES).queryText().getText(0, -1) == service)
    previous = helper_pid(record)
    check("a server URL and a key are typed",
          set_text(settings, "API server URL", self_hosted + "/")
          and set_text(settings, "Replace API key", f"  {manual_key}\n"))
    check("the masked field gives assistive technology no readable key",
          manual_key not in find(settings, "Replace API key", TEXT_ROLES).queryText().getText(0, -1))
    check("Save Changes answers with the success text",
          press(settings, "Save Changes") and wait_for(lambda: feedback(settings)))
    check("the typed key, trimmed, is in the keyring", keyring() == manual_key)
    check("the helper restarts with the typed key on its standard input",
          wait_for(lambda: relaunched_with(record, previous, manual_key)))
    check("the URL is in the preferences",
          re.search(r"^serverURL=" + re.escape(self_hosted) + "$", read(PREFERENCES), re.M))
    check("the URL is the configuration file's api_url",
          f'api_url = "{self_hosted}"' in read(CONFIG).splitlines())

    # Diagnostics, from the desktop entry's action, onto the clipboard.
    activate_action(bus, "diagnostics")
    check("the Diagnostics window opens",
          wait_for(lambda: showing(window("Vantrel Diagnostics"))))
    check("the window manager reads both titles exactly",
          wait_for(lambda: {"Vantrel Settings", "Vantrel Diagnostics"} <= set(mapped_titles())))
    check("Copy Diagnostics is pressed", press(window("Vantrel Diagnostics"), "Copy Diagnostics"))
    report = wait_for(lambda: "Vantrel diagnostics" in clipboard() and clipboard())
    check("the clipboard holds the report with the helper's version",
          report and "Tracker version: 9.9.9-test" in report.splitlines())
    check("the report tells that the helper runs",
          report and "Helper running: true" in report.splitlines())
    return report or ""


def exposed_places(app, record, report):
    """Everything the key must never reach, read while the application and helper still run."""
    places = {}
    for who, pid in (("application", app.pid), ("helper", helper_pid(record))):
        for part in ("cmdline", "environ"):
            try:
                places[f"the {who}'s {part}"] = read(f"/proc/{pid}/{part}", "rb")
            except PermissionError:
                # The application is not dumpable: only root may read its environment.
                check(f"only the application keeps its {part} from its user", who == "application")
    for path in LOGS + [PREFERENCES, CONFIG]:
        places[path] = read(path, "rb")
    check("the helper's logs caught its output", all(places[log] for log in LOGS))
    # Also whatever else landed in the home and the XDG folders (a stray temporary file, a cache).
    for top in {HOME, CONFIG_HOME, os.environ["XDG_CACHE_HOME"]}:
        for folder, _, names in os.walk(top):
            for name in names:
                path = os.path.join(folder, name)
                if os.path.isfile(path) and not os.path.islink(path):
                    places.setdefault(path, read(path, "rb"))
    places["the diagnostics report"] = report
    places["the clipboard"] = clipboard()
    for title in ("Vantrel", "Vantrel Settings", "Vantrel Diagnostics"):
        accessible = window(title)
        if accessible is not None:
            places[f"the accessible texts of {title}"] = all_names(accessible)
    return places


if __name__ == "__main__":
    sys.exit(main())
