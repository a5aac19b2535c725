#!/usr/bin/python3
# The development service: the device sign-in as the application lives it, the key's life until
# revoke, and the strict checks that make the service a check of the application's requests.
import os
import subprocess
import sys
import time
import unittest
import urllib.request

sys.path.insert(0, os.path.dirname(__file__))
from devstack import SERVICE, ScratchTestCase  # noqa: E402

DEVICE = "6F9619FF-8B86-D011-B42D-00C04FC964FF"
START = {"device_id": DEVICE, "device_name": "test machine", "platform": "linux",
         "client_version": "0.6.1"}
JSON_ONLY = {"Accept": "application/json", "Content-Type": "application/json"}


class DevServiceTest(ScratchTestCase, unittest.TestCase):
    def start(self, service):
        status, started = service.request("POST", "device-authorizations", START)
        self.assertEqual(status, 201, started)
        return started

    def poll(self, service, started):
        return service.request("POST", "device-authorizations/poll", {
            "authorization_id": started["authorization_id"], "device_code": started["device_code"]})

    def test_a_sign_in_goes_from_pending_to_authorized_to_claimed(self):
        service = self.service("--interval", "0.3")
        started = self.start(service)
        self.assertEqual(set(started), {"authorization_id", "device_code", "user_code",
                                        "verification_uri", "verification_uri_complete",
                                        "expires_in", "interval"})
        self.assertTrue(started["verification_uri_complete"].endswith(started["user_code"]))
        with urllib.request.urlopen(started["verification_uri_complete"], timeout=10) as page:
            text = page.read().decode()
        for shown in (started["user_code"], "Approve", "Deny", "test machine"):
            self.assertIn(shown, text)

        time.sleep(0.3)
        self.assertEqual(self.poll(service, started), (202, {"status": "pending", "interval": 0.3}))
        self.assertEqual(service.decide(started["user_code"]), 200)
        self.assertEqual(service.decide(started["user_code"], "deny"), 409, "decided once only")
        time.sleep(0.3)
        status, answer = self.poll(service, started)
        self.assertEqual((status, answer["status"]), (200, "authorized"))
        self.assertTrue(answer["api_key"])
        time.sleep(0.3)
        self.assertEqual(self.poll(service, started), (409, {"status": "claimed"}))

    def test_polling_too_fast_denial_and_expiry(self):
        lifetime = 4
        service = self.service("--interval", "0.3", "--expires-in", str(lifetime))
        hurried = self.start(service)
        self.assertEqual(self.poll(service, hurried), (429, {"status": "slow_down",
                                                            "interval": 5.3}))
        denied, expired = self.start(service), self.start(service)
        expiry = time.monotonic() + lifetime
        # As the demo decides: through the service's own command line.
        subprocess.run([SERVICE, "--dir", service.directory, "--deny", denied["user_code"]],
                       check=True, timeout=30)
        time.sleep(0.3)
        self.assertEqual(self.poll(service, denied), (403, {"status": "denied"}))
        time.sleep(max(0.0, expiry - time.monotonic()) + 0.1)
        self.assertEqual(self.poll(service, expired), (410, {"status": "expired"}))
        self.assertEqual(service.decide(expired["user_code"]), 410)

    def test_today_grows_with_uploads_and_revoke_ends_the_key(self):
        service = self.service("--interval", "0.1")
        key = self.sign_in(service)
        self.assertEqual(service.today(key), (200, {"data": {"grand_total": {
            "text": "0 secs", "total_seconds": 0}}}))
        beats = [{"time": time.time(), "duration": 1800}, {"time": time.time(), "duration": 1920}]
        upload = {"device_id": DEVICE, "heartbeats": beats}
        bearer = {**JSON_ONLY, "Authorization": "Bearer " + key}
        self.assertEqual(service.request("POST", "dev-tracker/heartbeats", upload, bearer)[0], 201)
        self.assertEqual(service.today(key)[1]["data"]["grand_total"],
                         {"text": "1 hr 2 mins", "total_seconds": 3720})

        # A restart on the same port keeps keys and totals: an outage, not a new service.
        port = service.port
        service.stop()
        service.start(port)
        self.assertEqual(service.today(key)[1]["data"]["grand_total"]["total_seconds"], 3720)

        self.assertEqual(service.request("POST", "device/revoke", headers=bearer), (204, None))
        self.assertEqual(service.today(key)[0], 401)
        self.assertEqual(service.request("POST", "device/revoke", headers=bearer)[0], 401)
        self.assertEqual(service.request("POST", "dev-tracker/heartbeats", upload, bearer)[0], 401)
        self.assertNotIn(key, service.read("service.log"), "keys never reach the terminal")

    def test_requests_that_break_the_contract_are_refused_and_reported(self):
        service = self.service()
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
        ]
        for name, method, path, body, headers, message in rows:
            with self.subTest(name):
                status, answer = service.request(method, path, body, headers)
                self.assertEqual(status, 400)
                self.assertEqual(answer["status"], "error")
                self.assertIn(message, answer["error"])
                self.assertIn(f"contract violation: {method} /api/vantrel/v1/{path}: ",
                              service.read("service.log"))
        with self.subTest("not JSON"):
            status, answer = service.request("POST", "device-authorizations", raw=b"{",
                                             headers=JSON_ONLY)
            self.assertEqual((status, "not UTF-8 JSON" in answer["error"]), (400, True))
        self.assertEqual(service.today(key)[0], 200, "the key survives refused requests")


if __name__ == "__main__":
    unittest.main()
