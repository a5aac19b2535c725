#!/usr/bin/env bash
# Starts the real application binary, installed into a throwaway prefix next to a scripted tracker
# helper, with a throwaway home and a private keyring (run it under tests/scripts/with-keyring.sh
# and, but for the starts, tests/api/with-https-server.sh). Three roads, each a test of its own so
# that the session's quiet time does not hold up the rest:
#
#   application-end-to-end.sh starts|windows|session <vantrel> <fake helper> <vantrel-launchctl>
#
# starts: with no key anywhere the configuration file gets the API URL, the autostart entry
# appears, the status is read and no helper runs. Then the key an older installation left in the
# configuration file moves into the keyring (the windows road follows it further), and for each
# way of dying without a chance to clean up and for each signal a session ends it with, the helper
# goes with the application and the next start runs exactly one.
#
# windows: Settings and Diagnostics through the accessibility tree on a virtual X server, and the
# older installation's key, a signed-in one and a typed one each followed to the keyring and the
# helper's standard input and looked for everywhere else (see windows_end_to_end.py). Exits 77
# (skipped) where the virtual desktop or the accessibility bus cannot be had.
#
# session: a signed-in session with stand-ins for logind (on a private bus in place of the system
# bus) and for the desktop's notification service, the HTTPS stand-in as the service, and a helper
# that crashes at every start: one notification once the start's quiet time is over, whose button
# restarts the helper and withdraws it; then a wake reads the status and today's total at once.
set -euo pipefail

road="$1" app="$2" helper="$3" launchctl="$4"
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

if [ "$road" = windows ]; then
    for tool in Xvfb xclip /usr/libexec/at-spi-bus-launcher; do
        command -v "$tool" >/dev/null || { echo "skipped: no $tool" >&2; exit 77; }
    done
    /usr/bin/python3 -c 'import dbus, pyatspi' 2>/dev/null || { echo "skipped: no python3-pyatspi" >&2; exit 77; }
    # A distinctive key: a grep for it finds nothing by chance.
    key="legacy-$(od -An -N12 -tx1 /dev/urandom | tr -d ' \n')"
    serve_from "https://127.0.0.1:$(cat "$VANTREL_TEST_HTTPS_DIR/file.port")/api/vantrel/v1"
    write_helper_script "run.stdout helper started" "run.stderr helper warming up" \
        run.wait-stdin-eof "api_key = \"$key\""
    "$here/with-xvfb.sh" /usr/bin/python3 "$here/windows_end_to_end.py" "$work" "$key"
    exit
fi

if [ "$road" = starts ]; then
    autostart="$XDG_CONFIG_HOME/autostart/vantrel.desktop"
    # Nothing stored but a self-hosted server in the preferences file.
    server="https://self-hosted.example/api/vantrel/v1"
    serve_from "$server"
    write_helper_script run.wait-stdin-eof
    start_app first
    check "the first start signs nobody in" wait_for 20 grep -q "Vantrel: Sign in required" "$work/first.out"
    check "the configuration file gets the preferences' API URL" grep -qx "api_url = \"$server\"" "$config"
    check "the autostart entry is registered" test -f "$autostart"
    check "no helper was launched without a key" test ! -e "$record/pid"
    "$prefix/bin/vantrel" --action nonsense
    check "the running copy refuses an unknown action, and says so" \
        wait_for 5 grep -q 'unknown application action "nonsense"' "$work/first.err"
    check "the application quits on SIGTERM" end_app TERM

    # An older installation's key, and a helper that does not watch its input, which a helper
    # need not: only the kernel's signal can end it with the application.
    write_helper_script run.hang "api_key = \"legacy-key-$RANDOM\""
    # Helpers running from this prefix (a zombie's command line is empty, so it does not count).
    one_helper() {
        test -e "$record/pid" &&
            test "$(pgrep -cfx "$prefix/libexec/vantrel/vantrel-tracker --config .* run .*")" = 1
    }
    gone() { ! ps -o stat= -p "$1" | grep -qv Z; }
    ulimit -c 0 # a crash writes no core here
    # Dying without a chance to clean up, then the three ways a session asks it to end.
    for signal in KILL SEGV TERM HUP QUIT; do
        rm -f "$record/pid"
        start_app "before-$signal"
        check "the start before SIG$signal launches exactly one helper" \
            wait_for 20 one_helper
        if [ "$signal" = KILL ]; then
            check "the key is imported and announced, the status line reports tracking" wait_for 20 \
                bash -c "grep -q 'Imported the existing tracker' $work/before-KILL.out &&
                    grep -q 'Vantrel: Tracking' $work/before-KILL.out"
            check "a crash would write no core file, whatever the limit it was started with" \
                grep -Eq '^Max core file size +0 +0 ' "/proc/$app_pid/limits"
        fi
        helper_pid="$(cat "$record/pid")"
        case "$signal" in
        TERM | HUP | QUIT) check "SIG$signal ends the application as Quit does" end_app "$signal" ;;
        *) end_app "$signal" || true ;;
        esac
        check "SIG$signal leaves no helper running after 2 s" wait_for 2 gone "$helper_pid"
    done
    finish "application starts end to end"
    exit
fi

factor="${VANTREL_TEST_TIMEOUT_FACTOR:-1}" https="$VANTREL_TEST_HTTPS_DIR"
status_record="$work/status-record" notifications="$work/notifications.log"
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
started_at="$(date +%s.%N)"
start_app session

# changed_within <seconds> <since> <file>...: each file last changed less than that after the moment.
changed_within() {
    for file in "${@:3}"; do
        awk -v limit="$1" -v since="$2" -v changed="$(stat -c %.3Y "$file")" \
            'BEGIN { exit !(changed - since < limit) }' || return 1
    done
}
# Four restarts take 15 s, the start's quiet time 30.
lock="Action required | Tracker stopped after repeated crashes. | Retry Tracker"
check "the crash lock shows one notification with its button" wait_for 45 grep -qs \
    "^notify 1 | Vantrel | $lock | desktop-entry=com.keldor.Vantrel | open 1$" "$notifications"
check "not before the start's quiet time ended" \
    awk -v now="$(date +%s.%N)" -v since="$started_at" 'BEGIN { exit !(now - since >= 30) }'
launch="$(cat "$record/pid")"
dbus-send --session --print-reply --dest=org.freedesktop.Notifications \
    /org/freedesktop/Notifications test.Control.Press uint32:1 >/dev/null
check "its button restarts the helper" wait_for 5 bash -c "[ \"\$(cat '$record/pid')\" != '$launch' ]"
check "and the notification goes" wait_for 5 grep -q "^close 1 | open 0$" "$notifications"

status_changed() { [ "$(cat "$status_record/pid" 2>/dev/null)" != "$1" ]; }
todays() { grep -cs statusbar/today "$https/requests.log"; }
check "the status is read and today's total fetched at start" test "$(todays)" -gt 0
# Right after a regular status run, so that the next regular one is seconds away.
wait_for 10 status_changed "$(cat "$status_record/pid")"
last_status="$(cat "$status_record/pid")" fetched="$(todays)" woke_at="$(date +%s.%N)"
dbus-send --system --print-reply --dest=org.freedesktop.login1 /org/freedesktop/login1 \
    test.Control.Wake >/dev/null
check "a wake runs the status command and fetches today's total" wait_for 3 bash -c \
    "[ \"\$(cat '$status_record/pid')\" != '$last_status' ] && [ \$(grep -c statusbar/today '$https/requests.log') -gt $fetched ]"
check "both within a second of it" \
    changed_within "$factor" "$woke_at" "$status_record/pid" "$https/requests.log"
check "never more than one notification is open" bash -c "! grep -q 'open [2-9]' '$notifications'"
check "the application quits on SIGTERM" end_app TERM
[ "$failed" -eq 0 ] || cat "$notifications" "$work/session.err" >&2
finish "application session end to end"
