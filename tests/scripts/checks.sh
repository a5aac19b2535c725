# Sourced by the end-to-end scripts: counted checks, waits that stretch with the machine, and the
# tally that ends a script.

passed=0 failed=0

# check "<what must hold>" command…: runs the command and counts it.
check() {
    if "${@:2}"; then passed=$((passed + 1)) && echo "ok: $1"
    else failed=$((failed + 1)) && echo "FAILED: $1"; fi
}

# wait_for <seconds> command…: retries the command until it succeeds, for up to that many seconds
# times VANTREL_TEST_TIMEOUT_FACTOR (a sanitizer build runs slower).
wait_for() {
    local deadline=$((SECONDS + $1 * ${VANTREL_TEST_TIMEOUT_FACTOR:-1}))
    until "${@:2}"; do
        [ "$SECONDS" -lt "$deadline" ] || return 1
        sleep 0.1
    done
}

# install_prefix <prefix> <vantrel> <helper> <vantrel-launchctl>: the application installed as the
# package lays it out, with the scripted helper and the launchctl substitute in its libexec.
install_prefix() {
    mkdir -p "$1/bin" "$1/libexec/vantrel"
    cp "$2" "$1/bin/vantrel" && cp "$3" "$1/libexec/vantrel/vantrel-tracker" && cp "$4" "$1/libexec/vantrel/"
}

# status_document <helper path>: the report of a healthy, signed-in helper whose files are under
# $HOME/.vantrel, for the scripted helper's status command to print.
status_document() {
    cat <<JSON
{"schema_version": 1, "tracker_version": "9.9.9-test",
 "vantrel_config_path": "$HOME/.vantrel/config.toml", "vantrel_config_exists": true,
 "wakatime_compat_config_path": "$HOME/.wakatime.cfg", "wakatime_compat_config_exists": false,
 "state_path": "$HOME/.vantrel/state.json", "state_exists": false,
 "pending_queue_path": "$HOME/.vantrel/queue", "pending_queue_exists": false,
 "stdout_log_path": "$HOME/.vantrel/tracker/stdout.log", "stdout_log_exists": true,
 "stderr_log_path": "$HOME/.vantrel/tracker/stderr.log", "stderr_log_exists": true,
 "service_definition_path": "", "service_definition_exists": false, "service_state": "supervised",
 "binary_install_path": "$1", "authenticated": true,
 "device_id": "6F9619FF-8B86-D011-B42D-00C04FC964FF", "device_name": "test-machine",
 "queued_heartbeats": 0, "queued_activity_segments": 0, "dropped_heartbeats": 0,
 "dropped_activity_segments": 0, "presence_coverage": "full", "presence_reason": "test",
 "last_successful_upload_at": "2026-11-23T10:00:00Z"}
JSON
}

# finish "<name>": prints the tally; the script's status is whether every check held.
finish() {
    echo "$1: $passed passed, $failed failed"
    [ "$failed" -eq 0 ]
}
