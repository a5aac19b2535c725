# Shared by the development service and tracker tests: a service on 127.0.0.1 in a scratch
# folder, and requests to it made the way the application makes them.
import json
import os
import shutil
import signal
import ssl
import subprocess
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
SERVICE = os.path.join(ROOT, "dev", "vantrel-dev-service")
TRACKER = os.path.join(ROOT, "dev", "vantrel-dev-tracker")
SCALE = float(os.environ.get("VANTREL_TEST_TIMEOUT_FACTOR", "1"))


def wait_until(condition, seconds=10):
    deadline = time.monotonic() + seconds * SCALE
    while time.monotonic() < deadline:
        if condition():
            return True
        time.sleep(0.05)
    return condition()


class DevService:
    def __init__(self, directory, *arguments):
        self.directory = directory
        self.arguments = list(arguments)
        self.process = None
        self.port = 0

    def start(self, port=None):
        for name in ("port", "approval-port"):
            if os.path.exists(os.path.join(self.directory, name)):
                os.remove(os.path.join(self.directory, name))
        command = [SERVICE, "--dir", self.directory, *self.arguments]
        if port:
            command += ["--port", str(port)]
        self.log = open(os.path.join(self.directory, "service.log"), "ab")
        self.process = subprocess.Popen(command, stderr=self.log)
        if not wait_until(lambda: os.path.exists(os.path.join(self.directory, "port"))):
            raise RuntimeError("the development service did not start")
        self.port = int(self.read("port"))
        self.approval_port = int(self.read("approval-port"))
        self.context = ssl.create_default_context(cafile=os.path.join(self.directory, "ca.pem"))
        return self

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            self.process.wait(10)
        self.process = None
        self.log.close()

    def read(self, name):
        with open(os.path.join(self.directory, name)) as source:
            return source.read()

    @property
    def base(self):
        return f"https://127.0.0.1:{self.port}/api/vantrel/v1"

    def request(self, method, path, body=None, headers=None, raw=None):
        """(status, decoded JSON or None). Headers default to what the application sends."""
        if headers is None:
            headers = {"Accept": "application/json", "Content-Type": "application/json"}
        data = raw if raw is not None else (None if body is None else json.dumps(body).encode())
        request = urllib.request.Request(self.base + "/" + path, data=data, method=method,
                                         headers=headers)
        try:
            with urllib.request.urlopen(request, context=self.context, timeout=10) as response:
                status, payload = response.status, response.read()
        except urllib.error.HTTPError as error:
            status, payload = error.code, error.read()
        return status, (json.loads(payload) if payload else None)

    def decide(self, user_code, decision="approve"):
        """The HTTP status of the approval form's answer."""
        form = urllib.parse.urlencode({"user_code": user_code, "decision": decision}).encode()
        request = urllib.request.Request(
            f"http://127.0.0.1:{self.approval_port}/device", data=form, method="POST")
        try:
            with urllib.request.urlopen(request, timeout=10) as response:
                return response.status
        except urllib.error.HTTPError as error:
            return error.code

    def today(self, key):
        return self.request("GET", "users/current/statusbar/today",
                            headers={"Accept": "application/json",
                                     "Authorization": "Bearer " + key})


class ScratchTestCase:
    """Mixin: a scratch folder removed after each test, and a service started in it."""

    def setUp(self):
        self.scratch = tempfile.mkdtemp(prefix="vantrel-dev-test.")
        self.services = []

    def tearDown(self):
        for service in self.services:
            service.stop()
        shutil.rmtree(self.scratch, ignore_errors=True)

    def service(self, *arguments, port=None):
        service = DevService(os.path.join(self.scratch, "service"), *arguments)
        os.makedirs(service.directory, exist_ok=True)
        self.services.append(service)
        return service.start(port)

    def sign_in(self, service, device_id="6F9619FF-8B86-D011-B42D-00C04FC964FF"):
        """Runs the whole device sign-in and returns the API key."""
        status, started = service.request("POST", "device-authorizations", {
            "device_id": device_id, "device_name": "test machine", "platform": "linux",
            "client_version": "0.6.1"})
        assert status == 201, started
        assert service.decide(started["user_code"]) == 200
        time.sleep(started["interval"])
        status, answer = service.request("POST", "device-authorizations/poll", {
            "authorization_id": started["authorization_id"].upper(),
            "device_code": started["device_code"]})
        assert status == 200, answer
        return answer["api_key"]
