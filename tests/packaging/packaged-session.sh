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

status_document "$packaged_helper" >"$work/status.json"
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
