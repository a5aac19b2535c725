#!/usr/bin/env bash
# Starts the real application binary, installed into a throwaway prefix next to a scripted tracker
# helper, with a throwaway home and a private keyring (run it under tests/scripts/with-keyring.sh).
#
#   application-end-to-end.sh <vantrel> <fake tracker helper> <vantrel-launchctl>
#
# First start, with no key anywhere: the configuration file gets the API URL, the autostart entry
# appears, the status is read, no helper runs. Second start, with the key an older installation
# left in the configuration file: the key moves into the keyring, the file keeps it blanked, and
# the helper is launched (windows-end-to-end follows the key to its standard input and looks for
# it everywhere else). Then, for each way of
# dying without a chance to clean up and for each signal a session ends it with, the helper goes with
# the application and the next start runs exactly one.
#
# Last, a signed-in session with stand-ins for logind (on a private bus in place of the system
# bus) and for the desktop's notification service, and the HTTPS stand-in as the service (run it
# under with-https-server.sh too): a wake reads the status and today's total at once; a helper that
# keeps crashing gets one notification once the start's quiet time is over; its button restarts
# the helper and the notification goes; the next crash lock shows one again, never two.
set -euo pipefail

app="$1" helper="$2" launchctl="$3"
here="$(cd "$(dirname "$0")" && pwd)"
work="$(mktemp -d)" app_pid="" stand_ins_pid=""
trap '[ -z "$app_pid" ] || kill -KILL "$app_pid" 2>/dev/null
      [ -z "$stand_ins_pid" ] || { kill "$stand_ins_pid" && wait "$stand_ins_pid"; } 2>/dev/null
      rm -rf "$work"' EXIT

# shellcheck source=../scripts/checks.sh
source "$here/../scripts/checks.sh"

prefix="$work/prefix" config="$HOME/.vantrel/config.toml" record="$work/record"
export XDG_CONFIG_HOME="$HOME/.config" QT_QPA_PLATFORM=offscreen
mkdir -p "$HOME/.vantrel" "$record" "$XDG_CONFIG_HOME/Vantrel"
install_prefix "$prefix" "$app" "$helper" "$launchctl"
status_document "$prefix/libexec/vantrel/vantrel-tracker" >"$work/status.json"

serve_from() { printf '[General]\nserverURL=%s\n' "$1" >"$XDG_CONFIG_HOME/Vantrel/Vantrel.conf"; }
# The helper reads its script from the configuration file; the application keeps those lines.
write_helper_script() {
    printf '%s\n' run.read-key "run.record $record" "$@" "status.stdout-file $work/status.json" \
        >"$config"
}
# Started with core files allowed, so the core check below sees the limit the application sets.
start_app() {
    (ulimit -S -c unlimited 2>/dev/null || true; exec "$prefix/bin/vantrel") \
        >"$work/$1.out" 2>"$work/$1.err" &
    app_pid=$!
}
# end_app <signal>: true when the application ends within 10 s of it, with status 0.
end_app() {
    kill -"$1" "$app_pid"
    wait_for 10 bash -c "! kill -0 $app_pid 2>/dev/null" || return 1
    local status=0
    wait "$app_pid" 2>/dev/null || status=$?
    app_pid=""
    return "$status"
}

autostart="$XDG_CONFIG_HOME/autostart/vantrel.desktop"
key="legacy-key-$RANDOM$RANDOM"

# First start: nothing stored but a self-hosted server in the preferences file.
server="https://self-hosted.example/api/vantrel/v1"
serve_from "$server"
write_helper_script run.wait-stdin-eof
start_app first
check "the first start signs nobody in" wait_for 20 grep -q "Vantrel: Sign in required" "$work/first.out"
check "the configuration file gets the preferences' API URL" grep -qx "api_url = \"$server\"" "$config"
check "the helper's own lines are kept" grep -qx "run.read-key" "$config"
check "the configuration file is private" test "$(stat -c %a "$config")" = 600
check "the autostart entry is registered" test -f "$autostart"
check "no helper was launched without a key" test ! -e "$record/pid"
check "the application quits on SIGTERM" end_app TERM

# Second start: an older installation left its key in the configuration file (windows-end-to-end
# follows it to the keyring).
write_helper_script run.wait-stdin-eof "api_key = \"$key\""
start_app second
check "the helper is launched" wait_for 20 test -e "$record/pid"
check "the status line reports tracking" wait_for 20 grep -q "Vantrel: Tracking" "$work/second.out"
check "the import is announced" grep -q "Imported the existing tracker" "$work/second.out"
check "a crash would write no core file, whatever the limit it was started with" \
    grep -Eq '^Max core file size +0 +0 ' "/proc/$app_pid/limits"
helper_pid="$(cat "$record/pid")"
check "the application quits on SIGTERM" end_app TERM
check "quitting stops the helper" wait_for 10 bash -c "! kill -0 $helper_pid 2>/dev/null"
# Helpers running from this prefix (a zombie's command line is empty, so it does not count).
helpers() { pgrep -cfx "$prefix/libexec/vantrel/vantrel-tracker --config .* run .*" || true; }
gone() { ! ps -o stat= -p "$1" | grep -qv Z; }
ulimit -c 0 # a crash writes no core here
# From here the helper does not watch its input, which a helper need not: only the kernel's signal
# can end it with the application.
sed -i 's/^run.wait-stdin-eof$/run.hang/' "$config"
# Dying without a chance to clean up, then the three ways a session asks it to end.
start_one_helper() {
    rm -f "$record/pid"
    start_app "$1"
    check "the start ($1) launches a helper" wait_for 20 test -e "$record/pid"
    check "the start ($1) runs exactly one helper" test "$(helpers)" = 1
}
for signal in KILL SEGV TERM HUP QUIT; do
    start_one_helper "before-$signal"
    helper_pid="$(cat "$record/pid" 2>/dev/null || echo 0)"
    case "$signal" in
    TERM | HUP | QUIT) check "SIG$signal ends the application as Quit does" end_app "$signal" ;;
    *) end_app "$signal" || true ;;
    esac
    check "SIG$signal leaves no helper running after 2 s" wait_for 2 gone "$helper_pid"
done
start_one_helper after-QUIT
check "the application quits on SIGTERM" end_app TERM
check "the key is in no output and no preference" \
    bash -c "! grep -rqa '$key' '$work'/*.out '$work'/*.err '$XDG_CONFIG_HOME'"

# A signed-in session whose helper crashes at every start, with the session's stand-ins.
factor="${VANTREL_TEST_TIMEOUT_FACTOR:-1}" https="$VANTREL_TEST_HTTPS_DIR"
status_record="$work/status-record"
mkdir -p "$status_record"
/usr/bin/python3 "$here/session_stand_ins.py" "$work" &
stand_ins_pid=$!
wait_for 20 test -e "$work/system-bus" || { echo "the stand-ins did not start" >&2; exit 1; }
export DBUS_SYSTEM_BUS_ADDRESS="$(cat "$work/system-bus")"

serve_from "https://127.0.0.1:$(cat "$https/file.port")/api/vantrel/v1"
echo '{}' >"$https/response.json"
printf '%s' "session-key-$RANDOM$RANDOM" |
    secret-tool store --label=Vantrel service com.keldor.vantrel account tracker-api-key
# The helper crashes at every start; its status command reports and leaves a trace per run.
write_helper_script "run.exit 3" "status.record $status_record"
start_app session

todays() { grep -c statusbar/today "$https/requests.log" 2>/dev/null || true; }
status_changed() { [ "$(cat "$status_record/pid" 2>/dev/null)" != "$1" ]; }
# changed_within <seconds> <file> <since>: the file last changed less than that after the moment.
changed_within() { awk -v limit="$1" -v changed="$(stat -c %.3Y "$2")" -v since="$3" \
    'BEGIN { exit !(changed - since < limit) }'; }

check "the status is read and today's total fetched at start" \
    wait_for 20 bash -c "test -e '$status_record/pid' && grep -qs statusbar/today '$https/requests.log'"
# Right after a regular status run, so that the next regular one is seconds away.
wait_for 10 status_changed "$(cat "$status_record/pid")"
last_status="$(cat "$status_record/pid")" fetched="$(todays)" woke_at="$(date +%s.%N)"
dbus-send --system --print-reply --dest=org.freedesktop.login1 /org/freedesktop/login1 \
    test.Control.Wake >/dev/null
check "a wake runs the status command" wait_for 3 status_changed "$last_status"
check "a wake fetches today's total" wait_for 3 bash -c "[ \$(grep -c statusbar/today '$https/requests.log') -gt $fetched ]"
check "the status is run within a second of the wake" \
    changed_within "$factor" "$status_record/pid" "$woke_at"
check "today's total is fetched within a second of it" \
    changed_within "$factor" "$https/requests.log" "$woke_at"

# Four restarts take 15 s; the quiet time ends 30 s after the wake.
lock="Action required | Tracker stopped after repeated crashes. | Retry Tracker"
check "the crash lock shows one notification with its button" wait_for 45 grep -qs \
    "^notify 1 | Vantrel | $lock | desktop-entry=com.keldor.Vantrel | open 1$" "$work/notifications.log"
check "not before the quiet time ended" \
    awk -v now="$(date +%s.%N)" -v since="$woke_at" 'BEGIN { exit !(now - since >= 30) }'
launch="$(cat "$record/pid")"
dbus-send --session --print-reply --dest=org.freedesktop.Notifications \
    /org/freedesktop/Notifications test.Control.Press uint32:1 >/dev/null
check "its button restarts the helper" wait_for 5 bash -c "[ \"\$(cat '$record/pid')\" != '$launch' ]"
check "and the notification goes" wait_for 5 grep -q "^close 1 | open 0$" "$work/notifications.log"
check "the next crash lock shows one again" \
    wait_for 30 grep -qs "^notify 2 | Vantrel | $lock | .* | open 1$" "$work/notifications.log"
check "never more than one is open" bash -c "! grep -q 'open [2-9]' '$work/notifications.log'"
check "the application quits on SIGTERM" end_app TERM
[ "$failed" -eq 0 ] || cat "$work/notifications.log" "$work/session.err" >&2

finish "application end to end"
