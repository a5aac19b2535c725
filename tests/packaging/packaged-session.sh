#!/usr/bin/env bash
# Runs the installed /usr/bin/vantrel with a key in the keyring, first without its tracker helper,
# then with a scripted helper copied to the packaged path (run it under
# tests/scripts/with-keyring.sh; package-install.sh removes the helper again).
#
#   packaged-session.sh <fake tracker helper> <packaged helper path>
#
# $VANTREL_TEST_ROOT_COMMAND (for example "sudo -n") runs the copy when this user may not write
# to /usr.
set -euo pipefail

helper="$1" packaged_helper="$2"
read -r -a as_root <<<"${VANTREL_TEST_ROOT_COMMAND:-}"

[ -n "${VANTREL_TEST_KEYRING_PASSWORD:-}" ] || { echo "run me under with-keyring.sh" >&2; exit 2; }

work="$(mktemp -d)" app_pid=""
trap '[ -z "$app_pid" ] || kill -KILL "$app_pid" 2>/dev/null; rm -rf "$work"' EXIT

# shellcheck source=../scripts/checks.sh
source "$(dirname "$0")/../scripts/checks.sh"

start_app() { /usr/bin/vantrel >"$work/$1.out" 2>"$work/$1.err" & app_pid=$!; }
stop_app() {
    kill -TERM "$app_pid"
    local status=0
    wait_for 10 bash -c "! kill -0 $app_pid 2>/dev/null" || status=1
    wait "$app_pid" 2>/dev/null || status=$?
    app_pid=""
    return "$status"
}

config="$HOME/.vantrel/config.toml" record="$work/record"
mkdir -p "$HOME/.vantrel" "$record"
export XDG_CONFIG_HOME="$HOME/.config" QT_QPA_PLATFORM=offscreen
printf '%s' "packaged-key-$RANDOM" |
    secret-tool store --label=Vantrel service com.keldor.vantrel account tracker-api-key

cat >"$work/status.json" <<JSON
{"schema_version": 1, "tracker_version": "9.9.9-test", "vantrel_config_path": "$config",
 "vantrel_config_exists": true, "wakatime_compat_config_path": "$HOME/.wakatime.cfg",
 "wakatime_compat_config_exists": false, "state_path": "$HOME/.vantrel/state.json",
 "state_exists": false, "pending_queue_path": "$HOME/.vantrel/queue", "pending_queue_exists": false,
 "stdout_log_path": "$HOME/.vantrel/tracker/stdout.log", "stdout_log_exists": true,
 "stderr_log_path": "$HOME/.vantrel/tracker/stderr.log", "stderr_log_exists": true,
 "service_definition_path": "", "service_definition_exists": false, "service_state": "supervised",
 "binary_install_path": "$packaged_helper", "authenticated": true,
 "device_id": "6F9619FF-8B86-D011-B42D-00C04FC964FF", "device_name": "test-machine",
 "queued_heartbeats": 0, "queued_activity_segments": 0, "dropped_heartbeats": 0,
 "dropped_activity_segments": 0, "presence_coverage": "full", "presence_reason": "test",
 "last_successful_upload_at": "2026-11-23T10:00:00Z"}
JSON
# The helper reads its script from the configuration file.
printf '%s\n' run.read-key "run.record $record" run.wait-stdin-eof \
    "status.stdout-file $work/status.json" >"$config"

start_app missing
check "without its helper it says where the package expects it" wait_for 20 \
    grep -qF "Tracker helper is missing at $packaged_helper." "$work/missing.out"
check "it quits on SIGTERM" stop_app

"${as_root[@]}" install -m 755 "$helper" "$packaged_helper"
start_app tracking
check "the helper at the packaged path is launched" wait_for 20 test -e "$record/pid"
check "the status line reports tracking" wait_for 20 grep -q "^Vantrel: Tracking" "$work/tracking.out"
helper_pid="$(cat "$record/pid" 2>/dev/null || echo 0)"
check "it quits on SIGTERM" stop_app
check "quitting stops the helper" wait_for 10 bash -c "! kill -0 $helper_pid 2>/dev/null"

for log in "$work"/*.out "$work"/*.err; do
    echo "--- $(basename "$log")" && cat "$log"
done
finish "packaged session"
