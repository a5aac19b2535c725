#!/usr/bin/python3
# The development tracker: its two command lines as the application runs them, and its status
# moving with what happens to its uploads (success, outage, revoked key).
import json
import os
import signal
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(__file__))
from devstack import TRACKER, ScratchTestCase, wait_until  # noqa: E402

TEXT, FLAG, NUMBER = str, bool, int
REQUIRED = {
    "schema_version": NUMBER, "tracker_version": TEXT, "vantrel_config_path": TEXT,
    "vantrel_config_exists": FLAG, "wakatime_compat_config_path": TEXT,
    "wakatime_compat_config_exists": FLAG, "state_path": TEXT, "state_exists": FLAG,
    "pending_queue_path": TEXT, "pending_queue_exists": FLAG, "stdout_log_path": TEXT,
    "stdout_log_exists": FLAG, "stderr_log_path": TEXT, "stderr_log_exists": FLAG,
    "service_definition_path": TEXT, "service_definition_exists": FLAG, "service_state": TEXT,
    "binary_install_path": TEXT, "authenticated": FLAG, "device_id": TEXT, "device_name": TEXT,
    "queued_heartbeats": NUMBER, "queued_activity_segments": NUMBER,
    "dropped_heartbeats": NUMBER, "dropped_activity_segments": NUMBER,
    "presence_coverage": TEXT, "presence_reason": TEXT}
OPTIONAL = {
    "installed_binary_version": TEXT, "last_presence_sample_at": TEXT,
    "last_presence_segment_at": TEXT, "last_presence_error": TEXT,
    "last_successful_upload_at": TEXT, "last_successful_upload_count": NUMBER,
    "last_upload_attempt_at": TEXT, "last_upload_error_kind": TEXT, "last_upload_error": TEXT}


class DevTrackerTest(ScratchTestCase, unittest.TestCase):
    def setUp(self):
        super().setUp()
        self.home = os.path.join(self.scratch, "home")
        self.config = os.path.join(self.home, ".vantrel", "config.toml")
        os.makedirs(os.path.dirname(self.config))
        self.environment = {**os.environ, "HOME": self.home, "VANTREL_DEV_TRACKER_INTERVAL": "0.3"}
        self.trackers = []

    def tearDown(self):
        for tracker in self.trackers:
            if tracker.poll() is None:
                tracker.kill()
                tracker.wait()
            tracker.stdin.close()
        super().tearDown()

    def point_at(self, service):
        with open(self.config, "w") as config:
            config.write(f'api_key = ""\napi_url = "{service.base}"\n\n[other]\napi_url = "x"\n')
        self.environment["SSL_CERT_FILE"] = os.path.join(service.directory, "ca.pem")

    def status(self):
        done = subprocess.run([TRACKER, "--config", self.config, "status", "--json"],
                              env=self.environment, capture_output=True, timeout=30)
        self.assertEqual(done.returncode, 0, done.stderr)
        return json.loads(done.stdout)

    def run_tracker(self, key):
        tracker = subprocess.Popen(
            [TRACKER, "--config", self.config, "run", "--api-key-stdin", "--device-name",
             'Anna\'s "laptop"'], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL, env=self.environment)
        tracker.stdin.write(key.encode() + b"\n")
        tracker.stdin.flush()
        self.trackers.append(tracker)
        return tracker

    def wait_for_status(self, condition, seconds=15):
        self.assertTrue(wait_until(lambda: condition(self.status()), seconds),
                        json.dumps(self.status(), indent=1))

    def test_the_status_document_is_complete_and_the_device_id_stable(self):
        document = self.status()
        self.assertEqual(set(document), set(REQUIRED) | set(OPTIONAL))
        for key, kind in REQUIRED.items():
            with self.subTest(key):
                self.assertIs(type(document[key]), kind)
        for key, kind in OPTIONAL.items():
            with self.subTest(key):
                self.assertIn(type(document[key]), (kind, type(None)))
        self.assertRegex(document["device_id"], r"^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$")
        self.assertEqual(self.status()["device_id"], document["device_id"])
        self.assertTrue(self.status()["state_exists"])

    def test_other_command_lines_are_refused(self):
        rows = [["--config", self.config, "status"],
                ["--config", self.config, "status", "--json", "--verbose"],
                ["--config", self.config, "run", "--api-key-stdin", "--device-name"],
                ["--config", self.config, "run", "--api-key", "k", "--device-name", "x"],
                ["status", "--json"]]
        for arguments in rows:
            with self.subTest(" ".join(arguments[2:])):
                done = subprocess.run([TRACKER, *arguments], env=self.environment,
                                      capture_output=True, timeout=30, input=b"")
                self.assertEqual(done.returncode, 64)
                self.assertIn(b"usage", done.stderr)

    def test_uploads_show_success_outage_and_recovery_and_stop_at_end_of_input(self):
        service = self.service("--interval", "0.1")
        self.point_at(service)
        key = self.sign_in(service)
        tracker = self.run_tracker(key)
        self.wait_for_status(lambda s: s["last_successful_upload_at"] is not None)
        first = self.status()
        self.assertEqual((first["authenticated"], first["device_name"]), (True, 'Anna\'s "laptop"'))
        # Heartbeats are a fraction of a second here; whole seconds add up after a few.
        self.assertTrue(wait_until(lambda: service.today(key)[1]["data"]["grand_total"]
                                   ["total_seconds"] > 0, 15))

        port = service.port
        service.stop()
        self.wait_for_status(lambda s: s["last_upload_error_kind"] == "network"
                             and s["queued_heartbeats"] >= 2)
        service.start(port)
        self.wait_for_status(lambda s: s["last_upload_error_kind"] is None
                             and s["queued_heartbeats"] == 0)

        tracker.stdin.close()
        self.assertEqual(tracker.wait(10), 0)
        for folder, _, names in os.walk(self.home):
            for name in names:
                with open(os.path.join(folder, name), "rb") as written:
                    self.assertNotIn(key.encode(), written.read(), name)

    def test_a_revoked_key_reports_unauthorized_and_sigterm_ends_the_run(self):
        service = self.service("--interval", "0.1")
        self.point_at(service)
        key = self.sign_in(service)
        bearer = {"Accept": "application/json", "Content-Type": "application/json",
                  "Authorization": "Bearer " + key}
        self.assertEqual(service.request("POST", "device/revoke", headers=bearer)[0], 204)
        tracker = self.run_tracker(key)
        self.wait_for_status(lambda s: s["last_upload_error_kind"] == "unauthorized")
        self.assertFalse(self.status()["authenticated"])
        tracker.send_signal(signal.SIGTERM)
        self.assertEqual(tracker.wait(10), 0)

        silent = subprocess.run(
            [TRACKER, "--config", self.config, "run", "--api-key-stdin", "--device-name", "x"],
            env=self.environment, input=b"", capture_output=True, timeout=30)
        self.assertNotEqual(silent.returncode, 0, "no key, no run")


if __name__ == "__main__":
    unittest.main()
