#!/usr/bin/env bash
# The demo's road without a display, checked: the development service, the real application in
# a throwaway prefix with the development tracker as its helper, a sign-in pressed through the
# application's actions on the session bus and approved on the service, "Tracking" with today's
# total, the application ended by SIGTERM, SIGHUP and SIGQUIT in turn and started again, then
# sign-out: the revoke arrives and the old key is refused. Run it under
# tests/scripts/with-keyring.sh, whose private bus and keyring the application uses.
#
#   sign-in-end-to-end.sh <folder holding vantrel and vantrel-launchctl>
#
# Exits 77 (skipped) when the application offers no actions on the session bus.
set -euo pipefail

bin="$1"
dev="$(cd "$(dirname "$0")/../../dev" && pwd)"
[ -n "${VANTREL_TEST_KEYRING_PASSWORD:-}" ] || { echo "run me under with-keyring.sh" >&2; exit 2; }

work="$(mktemp -d)" app_pid="" service_pid="" tracker_pid=""
# shellcheck disable=SC2317 # reached through the trap
cleanup() {
    exec 3>&-
    for pid in $app_pid $tracker_pid $service_pid; do kill -TERM "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

# shellcheck source=../scripts/checks.sh
source "$(dirname "$0")/../scripts/checks.sh"
action() {
    gdbus call --session --dest com.keldor.Vantrel --object-path /com/keldor/Vantrel \
        --method org.freedesktop.Application.ActivateAction "$1" '[]' '{}' >/dev/null
}
name_owned() {
    gdbus call --session --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
        --method org.freedesktop.DBus.NameHasOwner com.keldor.Vantrel 2>/dev/null | grep -q true
}
status_field() {
    "$dev/vantrel-dev-tracker" --config "$config" status --json |
        python3 -c "import json, sys; print(json.load(sys.stdin)['$1'])"
}

"$dev/vantrel-dev-service" --dir "$work/service" --interval 1 2>"$work/service.log" &
service_pid=$!
wait_for 30 test -f "$work/service/port"
port="$(cat "$work/service/port")"

mkdir -p "$work/prefix/bin" "$XDG_CONFIG_HOME/Vantrel"
cp "$bin/vantrel" "$bin/vantrel-launchctl" "$work/prefix/bin/"
ln -s "$dev/vantrel-dev-tracker" "$work/prefix/bin/vantrel-tracker"
printf '[General]\nserverURL=https://127.0.0.1:%s/api/vantrel/v1\n' "$port" \
    >"$XDG_CONFIG_HOME/Vantrel/Vantrel.conf"
export SSL_CERT_FILE="$work/service/ca.pem" VANTREL_DEV_TRACKER_INTERVAL=1 QT_QPA_PLATFORM=offscreen
config="$HOME/.vantrel/config.toml"

"$work/prefix/bin/vantrel" >"$work/app.out" 2>"$work/app.err" &
app_pid=$!
check "the application starts signed out" wait_for 30 grep -q "Vantrel: Sign in required" "$work/app.out"
if ! wait_for 20 name_owned; then
    echo "SKIPPED: the application offers no actions on the session bus"
    exit 77
fi

action sign-in
code_shown() { grep -q 'code [A-Z0-9]\{4\}-[A-Z0-9]\{4\}' "$work/app.out"; }
check "the sign-in shows a code" wait_for 30 code_shown
code="$(grep -o 'code [A-Z0-9]\{4\}-[A-Z0-9]\{4\}' "$work/app.out" | tail -1 | cut -c6-)"
check "the service approves the code" "$dev/vantrel-dev-service" --dir "$work/service" --approve "$code"
check "the status reaches Tracking with today's total" \
    wait_for 60 grep -q "Vantrel: Tracking.* — today [0-9]" "$work/app.out"
road="$(grep -o 'Vantrel: [A-Za-z ]*' "$work/app.out" | sed 's/ *$//' | uniq | tr '\n' '|')"
check "the road reads signed out, connecting, tracking ($road)" \
    grep -qF 'Sign in required|Vantrel: Connecting|Vantrel: Tracking|' <<<"$road"
check "no request strayed from the contract" bash -c "! grep -q 'contract violation' '$work/service.log'"

# `kill`, a closed terminal and the quit key each end it as Quit does: status 0, helper stopped
# (the development tracker logs "stopping" whether SIGTERM or the end of its input came first).
end_app() {
    kill -"$1" "$app_pid"
    wait_for 10 bash -c "! kill -0 $app_pid 2>/dev/null" || kill -KILL "$app_pid"
    wait "$app_pid" 2>/dev/null
}
stops() { grep -c 'stopping$' "$HOME/.vantrel/tracker/stdout.log" || true; }
stopped_again() { [ "$(stops)" -gt "$1" ]; }
check "a crash would write no core file" grep -Eq '^Max core file size +0 +0 ' "/proc/$app_pid/limits"
for signal in TERM HUP QUIT; do
    before="$(stops)"
    check "SIG$signal ends the application with status 0" end_app "$signal"
    check "SIG$signal stops the helper" wait_for 10 stopped_again "$before"
    "$work/prefix/bin/vantrel" >"$work/app-$signal.out" 2>"$work/app-$signal.err" &
    app_pid=$!
    check "the start after SIG$signal tracks" wait_for 30 grep -q "Vantrel: Tracking" "$work/app-$signal.out"
done

key="$(secret-tool lookup service com.keldor.vantrel account tracker-api-key)"
check "the key is in the keyring" test -n "$key"
fingerprint="$(printf '%s' "$key" | sha256sum | cut -c1-8)"
action sign-out
check "signing out revokes the key on the service" \
    wait_for 30 grep -q "revoked key $fingerprint" "$work/service.log"
check "signing out clears the keyring" wait_for 10 bash -c \
    "! secret-tool lookup service com.keldor.vantrel account tracker-api-key >/dev/null"
end_app TERM || true

# The old key, handed to a fresh tracker as the application would: a first line on standard
# input, which stays open.
mkfifo "$work/stdin"
"$dev/vantrel-dev-tracker" --config "$config" run --api-key-stdin --device-name again \
    <"$work/stdin" >/dev/null 2>&1 &
tracker_pid=$!
exec 3>"$work/stdin"
printf '%s\n' "$key" >&3
unauthorized() { [ "$(status_field last_upload_error_kind)" = unauthorized ]; }
check "a tracker started with the old key reports unauthorized" wait_for 30 unauthorized
check "the key is in no output or preference" bash -c \
    "! grep -rqa -- '$key' '$work'/app*.out '$work'/app*.err '$work/service.log' '$XDG_CONFIG_HOME' '$HOME'"

finish "sign-in end to end"
