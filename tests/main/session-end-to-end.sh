#!/usr/bin/env bash
# A signed-in session of the real application beside the scripted helper, with stand-ins for
# logind (on a private bus in place of the system bus) and for the desktop's notification
# service, and the HTTPS stand-in as the service (run it under with-keyring.sh and
# with-https-server.sh).
#
#   session-end-to-end.sh <vantrel> <fake tracker helper> <vantrel-launchctl>
#
# A wake reads the status and today's total at once. A helper that keeps crashing gets one
# notification once the start's quiet time is over; its button restarts the helper and the
# notification goes; the next crash lock shows one again, never two.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
app="$1" helper="$2" launchctl="$3"

if [ -z "${VANTREL_TEST_KEYRING_PASSWORD:-}" ] || [ -z "${VANTREL_TEST_HTTPS_DIR:-}" ]; then
    echo "run me under with-keyring.sh and with-https-server.sh" >&2
    exit 2
fi

work="$(mktemp -d)" app_pid="" stand_ins_pid=""
trap '[ -z "$app_pid" ] || kill -KILL "$app_pid" 2>/dev/null
      [ -z "$stand_ins_pid" ] || { kill "$stand_ins_pid" && wait "$stand_ins_pid"; } 2>/dev/null
      rm -rf "$work"' EXIT

# shellcheck source=../scripts/checks.sh
source "$here/../scripts/checks.sh"
factor="${VANTREL_TEST_TIMEOUT_FACTOR:-1}"

prefix="$work/prefix" config="$HOME/.vantrel/config.toml" record="$work/record"
status_record="$work/status-record" https="$VANTREL_TEST_HTTPS_DIR"
mkdir -p "$HOME/.vantrel" "$record" "$status_record"
install_prefix "$prefix" "$app" "$helper" "$launchctl"
export XDG_CONFIG_HOME="$HOME/.config" QT_QPA_PLATFORM=offscreen

/usr/bin/python3 "$here/session_stand_ins.py" "$work" & stand_ins_pid=$!
wait_for 20 test -e "$work/system-bus" || { echo "the stand-ins did not start" >&2; exit 1; }
system_bus="$(cat "$work/system-bus")"
export DBUS_SYSTEM_BUS_ADDRESS="$system_bus"

mkdir -p "$XDG_CONFIG_HOME/Vantrel"
printf '[General]\nserverURL=https://127.0.0.1:%s/api/vantrel/v1\n' "$(cat "$https/file.port")" \
    >"$XDG_CONFIG_HOME/Vantrel/Vantrel.conf"
echo '{}' >"$https/response.json"
printf '%s' "session-key-$RANDOM$RANDOM" |
    secret-tool store --label=Vantrel service com.keldor.vantrel account tracker-api-key
# The helper crashes at every start; its status command reports and leaves a trace per run.
status_document "$prefix/libexec/vantrel/vantrel-tracker" >"$work/status.json"
printf '%s\n' run.read-key "run.record $record" "run.exit 3" "status.record $status_record" \
    "status.stdout-file $work/status.json" >"$config"

"$prefix/bin/vantrel" >"$work/app.out" 2>"$work/app.err" & app_pid=$!

today_requests() { grep -c statusbar/today "$https/requests.log" 2>/dev/null || true; }
status_changed() { [ "$(cat "$status_record/pid" 2>/dev/null)" != "$1" ]; }
# changed_within <seconds> <file> <since>: the file last changed less than that after the moment.
changed_within() { awk -v limit="$1" -v changed="$(stat -c %.3Y "$2")" -v since="$3" \
    'BEGIN { exit !(changed - since < limit) }'; }
seconds_since() { awk -v now="$(date +%s.%N)" -v since="$1" 'BEGIN { print now - since }'; }

check "the status is read and today's total fetched at start" \
    wait_for 20 bash -c "test -e '$status_record/pid' && grep -qs statusbar/today '$https/requests.log'"
# Right after a regular status run, so that the next regular one is seconds away.
wait_for 10 status_changed "$(cat "$status_record/pid")"
last_status="$(cat "$status_record/pid")" todays="$(today_requests)"
woke_at="$(date +%s.%N)"
dbus-send --bus="$system_bus" --print-reply --dest=org.freedesktop.login1 /org/freedesktop/login1 \
    test.Control.Wake >/dev/null
check "a wake runs the status command" wait_for 3 status_changed "$last_status"
check "a wake fetches today's total" wait_for 3 bash -c "[ \$(grep -c statusbar/today '$https/requests.log') -gt $todays ]"
both_within_a_second() {
    changed_within "$factor" "$status_record/pid" "$woke_at" &&
        changed_within "$factor" "$https/requests.log" "$woke_at"
}
check "both within a second of the wake" both_within_a_second

# Four restarts take 15 s; the quiet time ends 30 s after the wake.
lock="Action required | Tracker stopped after repeated crashes. | Retry Tracker"
check "the crash lock shows one notification with its button" wait_for 45 grep -qs \
    "^notify 1 | Vantrel | $lock | desktop-entry=com.keldor.Vantrel | open 1$" "$work/notifications.log"
check "not before the quiet time ended" \
    awk -v waited="$(seconds_since "$woke_at")" 'BEGIN { exit !(waited >= 30) }'
launch="$(cat "$record/pid")"
dbus-send --session --print-reply --dest=org.freedesktop.Notifications \
    /org/freedesktop/Notifications test.Control.Press uint32:1 >/dev/null
check "its button restarts the helper" wait_for 5 bash -c "[ \"\$(cat '$record/pid')\" != '$launch' ]"
check "and the notification goes" wait_for 5 grep -q "^close 1 | open 0$" "$work/notifications.log"
check "the next crash lock shows one again" \
    wait_for 30 grep -qs "^notify 2 | Vantrel | $lock | .* | open 1$" "$work/notifications.log"
check "never more than one is open" bash -c "! grep -q 'open [2-9]' '$work/notifications.log'"
kill -TERM "$app_pid"
check "the application quits on SIGTERM" wait_for 10 bash -c "! kill -0 $app_pid 2>/dev/null"
app_pid=""
[ "$failed" -eq 0 ] || cat "$work/notifications.log" "$work/app.err" >&2

finish "session end to end"
