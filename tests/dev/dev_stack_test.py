#!/usr/bin/python3
# The development service and tracker that the demo runs, each against the other and against
# requests made the way the application makes them, on 127.0.0.1 in a scratch folder: the device
# sign-in as the application lives it, the strict checks that make the service a check of the
# application's requests, and the tracker's command lines and status through uploads, an outage
# and a revoked key.
import contextlib
import json
import os
import shutil
import signal
import ssl
import subprocess
import tempfile
import time
import unittest
import urllib.error
import urllib.parse
import urllib.request

DEV = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", "dev"))
SERVICE, TRACKER = os.path.join(DEV, "vantrel-dev-service"), os.path.join(DEV, "vantrel-dev-tracker")
SCALE = float(os.environ.get("VANTREL_TEST_TIMEOUT_FACTOR", "1"))
DEVICE = "6F9619FF-8B86-D011-B42D-00C04FC964FF"
START = {"device_id": DEVICE, "device_name": "test machine", "platform": "linux",
         "client_version": "0.6.1"}
JSON_ONLY = {"Accept": "application/json", "Content-Type": "application/json"}


def wait_until(condition, seconds=10):
    deadline = time.monotonic() + seconds * SCALE
    while time.monotonic() < deadline:
        if condition():
            return True
        time.sleep(0.05)
    return condition()


def exchange(request, **options):
    """(HTTP status, body) of the answer, an error status included."""
    try:
        with urllib.request.urlopen(request, timeout=10, **options) as response:
            return response.status, response.read()
    except urllib.error.HTTPError as error:
        return error.code, error.read()


class DevService:
    def __init__(self, directory, *arguments):
        self.directory, self.arguments = directory, list(arguments)
        os.makedirs(directory, exist_ok=True)

    def start(self, port=None):
        for name in ("port", "approval-port"):
            with contextlib.suppress(FileNotFoundError):
                os.remove(self.path(name))
        self.log = open(self.path("service.log"), "ab")
        self.process = subprocess.Popen(
            [SERVICE, "--dir", self.directory, *self.arguments, *(["--port", str(port)] if port
                                                                   else [])], stderr=self.log)
        if not wait_until(lambda: os.path.exists(self.path("port"))):
            raise RuntimeError("the development service did not start")
        self.port, self.approval_port = int(self.read("port")), int(self.read("approval-port"))
        self.context = ssl.create_default_context(cafile=self.path("ca.pem"))
        self.base = f"https://127.0.0.1:{self.port}/api/vantrel/v1"
        return self

    def stop(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            self.process.wait(10)
        self.log.close()

    def path(self, name):
        return os.path.join(self.directory, name)

    def read(self, name):
        with open(self.path(name)) as source:
            return source.read()

    def request(self, method, path, body=None, headers=JSON_ONLY, raw=None):
        """(status, decoded JSON or None)."""
        data = raw if raw is not None else (None if body is None else json.dumps(body).encode())
        status, payload = exchange(urllib.request.Request(self.base + "/" + path, data, headers,
                                                          method=method), context=self.context)
        return status, (json.loads(payload) if payload else None)

    def decide(self, user_code, decision="approve"):
        """The HTTP status of the approval form's answer."""
        form = urllib.parse.urlencode({"user_code": user_code, "decision": decision}).encode()
        return exchange(urllib.request.Request(f"http://127.0.0.1:{self.approval_port}/device",
                                               form))[0]

    def today(self, key):
        return self.request("GET", "users/current/statusbar/today",
                            headers={"Accept": "application/json", "Authorization": "Bearer " + key})


class DevStackTest(unittest.TestCase):
    def setUp(self):
        self.scratch = tempfile.mkdtemp(prefix="vantrel-dev-test.")
        self.home = os.path.join(self.scratch, "home")
        self.config = os.path.join(self.home, ".vantrel", "config.toml")
        os.makedirs(os.path.dirname(self.config))
        self.environment = {**os.environ, "HOME": self.home, "VANTREL_DEV_TRACKER_INTERVAL": "0.3"}
        self.services, self.trackers = [], []

    def tearDown(self):
        for tracker in self.trackers:
            if tracker.poll() is None:
                tracker.kill()
                tracker.wait()
            tracker.stdin.close()
        for service in self.services:
            service.stop()
        shutil.rmtree(self.scratch, ignore_errors=True)

    def service(self, *arguments):
        self.services.append(DevService(os.path.join(self.scratch, "service"), *arguments))
        return self.services[-1].start()

    def start(self, service):
        status, started = service.request("POST", "device-authorizations", START)
        self.assertEqual(status, 201, started)
        return started

    def poll(self, service, started):
        return service.request("POST", "device-authorizations/poll", {
            "authorization_id": started["authorization_id"], "device_code": started["device_code"]})

    def sign_in(self, service):
        """Runs the whole device sign-in, as the application does, and returns the API key."""
        started = self.start(service)
        self.assertEqual(service.decide(started["user_code"]), 200)
        time.sleep(started["interval"])
        started["authorization_id"] = started["authorization_id"].upper()
        status, answer = self.poll(service, started)
        self.assertEqual(status, 200, answer)
        return answer["api_key"]

    def status(self):
        done = subprocess.run([TRACKER, "--config", self.config, "status", "--json"],
                              env=self.environment, capture_output=True, timeout=30)
        self.assertEqual(done.returncode, 0, done.stderr)
        return json.loads(done.stdout)

    def wait_for_status(self, condition, seconds=15):
        self.assertTrue(wait_until(lambda: condition(self.status()), seconds),
                        json.dumps(self.status(), indent=1))

    def test_a_sign_in_is_pending_then_authorized_once_or_denied_or_expired(self):
        lifetime = 8 * SCALE  # long enough for the approval that comes first
        service = self.service("--interval", "0.3", "--expires-in", str(lifetime))
        started, denied, expired = self.start(service), self.start(service), self.start(service)
        expiry = time.monotonic() + lifetime
        hurried = self.start(service)
        self.assertEqual(self.poll(service, hurried), (429, {"status": "slow_down",
                                                            "interval": 5.3}))
        # The start answer's fields are those the application's decoder requires on the demo's road;
        # the page behind the complete address is what a user with a display approves on.
        with urllib.request.urlopen(started["verification_uri_complete"], timeout=10) as page:
            text = page.read().decode()
        for shown in (started["user_code"], "Approve", "Deny", "test machine"):
            self.assertIn(shown, text)
        time.sleep(0.3)
        self.assertEqual(self.poll(service, started), (202, {"status": "pending", "interval": 0.3}))
        self.assertEqual(service.decide(started["user_code"]), 200)
        self.assertEqual(service.decide(started["user_code"], "deny"), 409, "decided once only")
        # As the demo decides: through the service's own command line.
        subprocess.run([SERVICE, "--dir", service.directory, "--deny", denied["user_code"]],
                       check=True, timeout=30)
        time.sleep(0.3)
        status, answer = self.poll(service, started)
        self.assertEqual((status, answer["status"]), (200, "authorized"))
        self.assertTrue(answer["api_key"])
        self.assertEqual(self.poll(service, denied), (403, {"status": "denied"}))
        time.sleep(0.3)
        self.assertEqual(self.poll(service, started), (409, {"status": "claimed"}))
        time.sleep(max(0.0, expiry - time.monotonic()) + 0.1)
        self.assertEqual(self.poll(service, expired), (410, {"status": "expired"}))
        self.assertEqual(service.decide(expired["user_code"]), 410)

    def test_requests_that_break_the_contract_are_refused_and_reported(self):
        service = self.service("--interval", "0.1")
        key = self.sign_in(service)
        bearer = {"Accept": "application/json", "Authorization": "Bearer " + key}
        rows = [
            ("unknown path", "POST", "device-authorization", START, JSON_ONLY, "no endpoint"),
            ("wrong method", "GET", "device-authorizations", None, JSON_ONLY, "takes POST"),
            ("no Accept", "POST", "device-authorizations", START,
             {"Content-Type": "application/json"}, '"Accept"'),
            ("form body", "POST", "device-authorizations", START,
             {"Accept": "application/json", "Content-Type": "text/plain"}, '"Content-Type"'),
            ("camelCase key", "POST", "device-authorizations",
             {**{k: v for k, v in START.items() if k != "device_id"}, "deviceId": DEVICE},
             JSON_ONLY, "missing ['device_id'], unexpected ['deviceId']"),
            ("device id not a UUID", "POST", "device-authorizations",
             {**START, "device_id": DEVICE + "0"}, JSON_ONLY, "UUID"),
            ("number as version", "POST", "device-authorizations",
             {**START, "client_version": 6}, JSON_ONLY, '"client_version" must be a string'),
            ("unknown platform", "POST", "device-authorizations",
             {**START, "platform": "Linux"}, JSON_ONLY, "platform"),
            ("poll of no authorization", "POST", "device-authorizations/poll",
             {"authorization_id": DEVICE, "device_code": "x"}, JSON_ONLY, "unknown"),
            ("revoke without bearer", "POST", "device/revoke", None, JSON_ONLY, '"Authorization"'),
            ("revoke with a body", "POST", "device/revoke", {},
             {**JSON_ONLY, "Authorization": "Bearer " + key}, "no body"),
            ("today with a content type", "GET", "users/current/statusbar/today", None,
             {**bearer, "Content-Type": "application/json"}, '"Content-Type"'),
            ("today with basic auth", "GET", "users/current/statusbar/today", None,
             {**bearer, "Authorization": "Basic " + key}, '"Bearer "'),
            ("not JSON", "POST", "device-authorizations", b"{", JSON_ONLY, "not UTF-8 JSON"),
        ]
        for name, method, path, body, headers, message in rows:
            with self.subTest(name):
                raw = body if isinstance(body, bytes) else None
                status, answer = service.request(method, path, None if raw else body, headers,
                                                 raw)
                self.assertEqual((status, answer["status"]), (400, "error"))
                self.assertIn(message, answer["error"])
                self.assertIn(f"contract violation: {method} /api/vantrel/v1/{path}: ",
                              service.read("service.log"))
        self.assertEqual(service.today(key)[0], 200, "the key survives refused requests")

    def test_uploads_show_success_outage_recovery_and_a_revoked_key(self):
        service = self.service("--interval", "0.1")
        with open(self.config, "w") as config:
            config.write(f'api_key = ""\napi_url = "{service.base}"\n\n[other]\napi_url = "x"\n')
        self.environment["SSL_CERT_FILE"] = service.path("ca.pem")
        key = self.sign_in(service)
        bearer = {**JSON_ONLY, "Authorization": "Bearer " + key}
        tracker = subprocess.Popen([TRACKER, "--config", self.config, "run", "--api-key-stdin",
                                    "--device-name", 'Anna\'s "laptop"'], stdin=subprocess.PIPE,
                                   stdout=subprocess.DEVNULL, env=self.environment)
        self.trackers.append(tracker)
        tracker.stdin.write(key.encode() + b"\n")
        tracker.stdin.flush()
        self.wait_for_status(lambda s: s["last_successful_upload_at"] is not None
                             and s["device_name"] == 'Anna\'s "laptop"')

        # A restart on the same port keeps keys and totals: an outage, not a new service.
        port = service.port
        service.stop()
        self.wait_for_status(lambda s: s["last_upload_error_kind"] == "network"
                             and s["queued_heartbeats"] >= 2)
        service.start(port)
        self.wait_for_status(lambda s: s["last_upload_error_kind"] is None
                             and s["queued_heartbeats"] == 0)

        self.assertEqual(service.request("POST", "device/revoke", headers=bearer), (204, None))
        self.assertEqual(service.today(key)[0], 401)
        self.wait_for_status(lambda s: s["last_upload_error_kind"] == "unauthorized"
                             and not s["authenticated"])
        tracker.send_signal(signal.SIGTERM)
        self.assertEqual(tracker.wait(10), 0)


if __name__ == "__main__":
    unittest.main()
