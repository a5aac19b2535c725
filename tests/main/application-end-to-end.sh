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
set -euo pipefail

app="$1" helper="$2" launchctl="$3"

[ -n "${VANTREL_TEST_KEYRING_PASSWORD:-}" ] || { echo "run me under with-keyring.sh" >&2; exit 2; }

work="$(mktemp -d)" app_pid=""
trap '[ -z "$app_pid" ] || kill -KILL "$app_pid" 2>/dev/null; rm -rf "$work"' EXIT

# shellcheck source=../scripts/checks.sh
source "$(dirname "$0")/../scripts/checks.sh"

prefix="$work/prefix" config="$HOME/.vantrel/config.toml" record="$work/record"
mkdir -p "$HOME/.vantrel" "$record"
install_prefix "$prefix" "$app" "$helper" "$launchctl"
export XDG_CONFIG_HOME="$HOME/.config" QT_QPA_PLATFORM=offscreen

status_document "$prefix/libexec/vantrel/vantrel-tracker" >"$work/status.json"

# The helper reads its script from the configuration file; the application keeps those lines.
write_helper_script() {
    printf '%s\n' run.read-key "run.record $record" run.wait-stdin-eof \
        "status.stdout-file $work/status.json" "$1" >"$config"
}
# Started with core files allowed, so the core check below sees the limit the application sets.
start_app() { (ulimit -S -c unlimited 2>/dev/null || true; exec "$prefix/bin/vantrel") >"$work/$1.out" 2>"$work/$1.err" & app_pid=$!; }

stop_app() {
    kill -TERM "$app_pid"
    local status=0
    wait_for 10 bash -c "! kill -0 $app_pid 2>/dev/null" || status=1
    wait "$app_pid" 2>/dev/null || status=$?
    app_pid=""
    return "$status"
}

autostart="$XDG_CONFIG_HOME/autostart/vantrel.desktop"
key="legacy-key-$RANDOM$RANDOM"

# First start: nothing stored but a self-hosted server in the preferences file.
server="https://self-hosted.example/api/vantrel/v1"
mkdir -p "$XDG_CONFIG_HOME/Vantrel"
printf '[General]\nserverURL=%s\n' "$server" >"$XDG_CONFIG_HOME/Vantrel/Vantrel.conf"
write_helper_script ""
start_app first
check "the first start signs nobody in" wait_for 20 grep -q "Vantrel: Sign in required" "$work/first.out"
check "the configuration file gets the preferences' API URL" grep -qx "api_url = \"$server\"" "$config"
check "the helper's own lines are kept" grep -qx "run.read-key" "$config"
check "the configuration file is private" test "$(stat -c %a "$config")" = 600
check "the autostart entry is registered" test -f "$autostart"
check "no helper was launched without a key" test ! -e "$record/pid"
check "the application quits on SIGTERM" stop_app

# Second start: an older installation left its key in the configuration file.
write_helper_script "api_key = \"$key\""
start_app second
check "the helper is launched" wait_for 20 test -e "$record/pid"
check "the key moved into the keyring" test "$(secret-tool lookup service com.keldor.vantrel account tracker-api-key)" = "$key"
check "the configuration file keeps the key blanked" grep -qx 'api_key = ""' "$config"
check "the status line reports tracking" wait_for 20 grep -q "Vantrel: Tracking" "$work/second.out"
check "the import is announced" grep -q "Imported the existing tracker" "$work/second.out"
check "a crash would write no core file, whatever the limit it was started with" \
    grep -Eq '^Max core file size +0 +0 ' "/proc/$app_pid/limits"
helper_pid="$(cat "$record/pid")"
check "the application quits on SIGTERM" stop_app
check "quitting stops the helper" wait_for 10 bash -c "! kill -0 $helper_pid 2>/dev/null"
# Helpers running from this prefix (a zombie's command line is empty, so it does not count).
helpers() { pgrep -cfx "$prefix/libexec/vantrel/vantrel-tracker --config .* run .*" || true; }
gone() { ! ps -o stat= -p "$1" | grep -qv Z; }
start_one_helper() {
    rm -f "$record/pid"
    start_app "$1"
    check "the start ($1) launches a helper" wait_for 20 test -e "$record/pid"
    check "the start ($1) runs exactly one helper" test "$(helpers)" = 1
}
ulimit -c 0 # a crash writes no core here
# From here the helper does not watch its input, which a helper need not: only the kernel's signal
# can end it with the application.
sed -i 's/^run.wait-stdin-eof$/run.hang/' "$config"
# Dying without a chance to clean up, then the three ways a session asks it to end.
for signal in KILL SEGV TERM HUP QUIT; do
    start_one_helper "before-$signal"
    helper_pid="$(cat "$record/pid" 2>/dev/null || echo 0)"
    kill -"$signal" "$app_pid"
    status=0
    wait "$app_pid" 2>/dev/null || status=$?
    app_pid=""
    case "$signal" in
    TERM | HUP | QUIT) check "SIG$signal ends the application as Quit does" test "$status" = 0 ;;
    esac
    check "SIG$signal leaves no helper running after 2 s" wait_for 2 gone "$helper_pid"
done
start_one_helper after-QUIT
check "the application quits on SIGTERM" stop_app
check "the key is in no output and no preference" bash -c "! grep -rqa '$key' '$work'/*.out '$work'/*.err '$XDG_CONFIG_HOME'"

finish "application end to end"
