#!/usr/bin/python3
# The windows and the API key end to end. Run by application-end-to-end.sh's windows road inside a
# private keyring session, beside the HTTPS stand-in, on a virtual X server, with the application
# installed and the helper scripted under <work>; it brings its accessibility bus.
#
#     windows_end_to_end.py <work> <the key an older installation left in the configuration file>
#
# One run of the real application with start-up: an older installation's key is imported, a
# device sign-in against the stand-in replaces it, and a key typed into Settings replaces that one.
# Each key must reach the keyring and the helper's standard input, and none may reach anything
# else.
import json
import os
import secrets
import subprocess
import sys

import dbus
import pyatspi

from desktop_session import (FACTOR, activate, check, failures, find, press, showing, stop,
                             wait_for, window)

HOME, CONFIG_HOME = os.environ["HOME"], os.environ["XDG_CONFIG_HOME"]
CONFIG = os.path.join(HOME, ".vantrel", "config.toml")
PREFERENCES = os.path.join(CONFIG_HOME, "Vantrel", "Vantrel.conf")
LOGS = [os.path.join(HOME, ".vantrel", "tracker", name) for name in ("stdout.log", "stderr.log")]
HTTPS = os.environ["VANTREL_TEST_HTTPS_DIR"]
API = "/api/vantrel/v1"
SELF_HOSTED = "https://tracker.example.test:8443" + API
TEXT_ROLES = (pyatspi.ROLE_TEXT, pyatspi.ROLE_PASSWORD_TEXT, pyatspi.ROLE_ENTRY)


def read(path):
    with open(path, "rb") as file:
        return file.read().decode(errors="replace")


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path + ".tmp", "w") as file:
        file.write(text)
    os.rename(path + ".tmp", path)


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, timeout=5).stdout


def keyring():
    return output("secret-tool", "lookup", "service", "com.keldor.vantrel", "account",
                  "tracker-api-key")


def clipboard():
    return output("xclip", "-o", "-selection", "clipboard")


def helper_pid(record):
    try:
        return int(read(os.path.join(record, "pid")))
    except (OSError, ValueError):
        return None


def relaunched_with(record, previous_pid, key):
    """Whether the scripted helper was launched again since `previous_pid`, with `key` on its
    standard input."""
    return helper_pid(record) not in (None, previous_pid) and read(f"{record}/key") == key


def main():
    bus = dbus.SessionBus()
    # The keyring's private bus starts nothing on demand, so the accessibility bus is started here.
    launcher = subprocess.Popen(["/usr/libexec/at-spi-bus-launcher", "--launch-immediately"],
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    if not wait_for(lambda: bus.name_has_owner("org.a11y.Bus"), 10 * FACTOR):
        print("skipped: the accessibility bus did not start", flush=True)
        stop(launcher)
        return 77
    work, legacy_key = sys.argv[1:3]
    prefix, record, tools = (os.path.join(work, name) for name in ("prefix", "record", "bin"))
    # Distinctive keys: a grep for one of them finds nothing by chance.
    keys = [legacy_key] + [f"{kind}-{secrets.token_hex(12)}" for kind in ("device", "manual")]
    origin = f"https://127.0.0.1:{read(os.path.join(HTTPS, 'file.port')).strip()}"
    # The browser: opening the approval page only leaves a note.
    write(f"{tools}/xdg-open", f'#!/bin/sh\necho "$1" >>"{work}/opened"\n')
    os.chmod(f"{tools}/xdg-open", 0o755)
    # The service authorizes the device at the first poll.
    write(os.path.join(HTTPS, "response.json"), json.dumps({"paths": {
        f"{API}/device-authorizations": {"status": 201, "body": json.dumps({
            "authorization_id": "5c1e9d3a-0b7e-4f7c-9a51-2e6f1d0c4b88",
            "device_code": "device-code", "user_code": "WDJB-MJHT",
            "verification_uri": f"{origin}/device",
            "verification_uri_complete": f"{origin}/device?code=WDJB-MJHT",
            "expires_in": 600, "interval": 1})},
        f"{API}/device-authorizations/poll": {"status": 200, "body": json.dumps({
            "status": "authorized", "api_key": keys[1]})}}}))

    env = dict(os.environ, QT_QPA_PLATFORM="xcb", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1",
               PATH=tools + os.pathsep + os.environ["PATH"])
    env.pop("XCTestConfigurationFilePath", None)
    logs = [f"{work}/app.out", f"{work}/app.err"]
    with open(logs[0], "w") as out, open(logs[1], "w") as err:
        app = subprocess.Popen([f"{prefix}/bin/vantrel"], env=env, stdout=out, stderr=err)
    try:
        report = run(bus, record, keys, origin + API, work)
        exposed = exposed_places(app, record, report)
        activate(bus, "quit")
        check("quitting ends the application with status 0", wait_for(lambda: app.poll() == 0))
        exposed.update({f"the application's {os.path.basename(path)}": read(path) for path in logs})
        for name, key in zip(("imported", "signed-in", "typed"), keys):
            leaks = [place for place, content in exposed.items() if key in content]
            check(f"the {name} key is in none of {len(exposed)} places {leaks or ''}", not leaks)
    finally:
        stop(app, launcher)
    sys.stderr.write("".join(read(path) for path in logs) if failures else "")
    return 1 if failures else 0


def run(bus, record, keys, service, work):
    legacy_key, device_key, manual_key = keys
    check("start-up launches the helper with the imported key",
          wait_for(lambda: relaunched_with(record, None, legacy_key)))
    check("the imported key is in the keyring, and the configuration file keeps it blanked",
          keyring() == legacy_key and 'api_key = ""' in read(CONFIG).splitlines())

    previous = helper_pid(record)
    activate(bus, "sign-in")
    check("the sign-in asks the service for a code and polls", wait_for(
        lambda: f"{API}/device-authorizations/poll" in read(f"{HTTPS}/requests.log").split()))
    check("the approval page is opened",
          wait_for(lambda: "code=WDJB-MJHT" in read(f"{work}/opened")))
    check("the signed-in key restarts the helper on its standard input, and is in the keyring",
          wait_for(lambda: relaunched_with(record, previous, device_key))
          and keyring() == device_key)

    # Settings, from the desktop entry's action (the tray hosts' tests take the panel's road).
    activate(bus, "settings")
    check("the Settings window opens", wait_for(lambda: showing(window("Vantrel Settings"))))
    settings = window("Vantrel Settings")
    url = lambda: find(settings, "API server URL", TEXT_ROLES)
    check("the advanced connection settings open, the URL field showing the current server",
          press(settings, "Advanced connection settings",
                (pyatspi.ROLE_CHECK_BOX, pyatspi.ROLE_TOGGLE_BUTTON))
          and wait_for(lambda: showing(url())) and url().queryText().getText(0, -1) == service)
    previous = helper_pid(record)
    key_field = find(settings, "Replace API key", TEXT_ROLES)
    url().queryEditableText().setTextContents(SELF_HOSTED + "/")
    key_field.queryEditableText().setTextContents(f"  {manual_key}\n")
    check("the masked field gives assistive technology no readable key",
          manual_key not in key_field.queryText().getText(0, -1))
    saved = lambda a: a.getRole() == pyatspi.ROLE_LABEL and a.name.startswith("Saved")
    check("Save Changes answers with the success text", press(settings, "Save Changes")
          and wait_for(lambda: pyatspi.findDescendant(settings, saved)))
    check("the typed key, trimmed, is in the keyring, and the helper restarts with it on its "
          "standard input", keyring() == manual_key
          and wait_for(lambda: relaunched_with(record, previous, manual_key)))
    check("the URL is in the preferences and is the configuration file's api_url",
          f"serverURL={SELF_HOSTED}" in read(PREFERENCES).splitlines()
          and f'api_url = "{SELF_HOSTED}"' in read(CONFIG).splitlines())

    # Diagnostics, from the desktop entry's action, onto the clipboard.
    activate(bus, "diagnostics")
    check("the Diagnostics window opens", wait_for(lambda: showing(window("Vantrel Diagnostics"))))
    check("Copy Diagnostics is pressed", press(window("Vantrel Diagnostics"), "Copy Diagnostics"))
    report = wait_for(lambda: "Vantrel diagnostics" in clipboard() and clipboard())
    check("the clipboard holds the report, with the helper's version and that the helper runs",
          report and {"Tracker version: 9.9.9-test", "Helper running: true"}
          <= set(report.splitlines()))
    return report or ""


def exposed_places(app, record, report):
    """Everything the key must never reach, read while the application and helper still run."""
    places = {}
    for who, pid in (("application", app.pid), ("helper", helper_pid(record))):
        for part in ("cmdline", "environ"):
            try:
                places[f"the {who}'s {part}"] = read(f"/proc/{pid}/{part}")
            except PermissionError:
                # The application is not dumpable: only root may read its environment.
                check(f"only the application keeps its {part} from its user", who == "application")
    places.update({path: read(path) for path in LOGS + [PREFERENCES, CONFIG]})
    check("the helper's logs caught its output", all(places[log] for log in LOGS))
    # Also whatever else landed in the home and the XDG folders (a stray temporary file, a cache).
    for top in {HOME, CONFIG_HOME, os.environ["XDG_CACHE_HOME"]}:
        for folder, _, names in os.walk(top):
            for path in (os.path.join(folder, name) for name in names):
                if os.path.isfile(path) and not os.path.islink(path):
                    places.setdefault(path, read(path))
    places.update({"the diagnostics report": report, "the clipboard": clipboard()})
    for title in ("Vantrel", "Vantrel Settings", "Vantrel Diagnostics"):
        if window(title) is not None:
            places[f"the accessible texts of {title}"] = "\n".join(
                text for accessible in pyatspi.findAllDescendants(window(title), lambda a: True)
                for text in (accessible.name, accessible.description) if text)
    return places


if __name__ == "__main__":
    sys.exit(main())
