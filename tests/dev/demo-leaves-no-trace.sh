#!/usr/bin/env bash
# Runs the demo as a user would, without a display, and stops it as Ctrl+C does. The throwaway
# home, configuration folders and keyring that with-keyring.sh makes stand in for the user's
# real ones; they hold a real-looking Vantrel setup that the demo must leave exactly as it was.
#
#   demo-leaves-no-trace.sh <folder holding vantrel and vantrel-launchctl>
set -euo pipefail

bin="$1"
demo="$(cd "$(dirname "$0")/../../dev" && pwd)/vantrel-demo"
[ -n "${VANTREL_TEST_KEYRING_PASSWORD:-}" ] || { echo "run me under with-keyring.sh" >&2; exit 2; }

work="$(mktemp -d)" group=""
# shellcheck disable=SC2317 # reached through the trap
cleanup() {
    [ -z "$group" ] || kill -KILL -- "-$group" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

# shellcheck source=../scripts/checks.sh
source "$(dirname "$0")/../scripts/checks.sh"
# The user's own setup: preferences for their server, start at login, a key in their keyring,
# the tracker's configuration.
mkdir -p "$XDG_CONFIG_HOME/Vantrel" "$XDG_CONFIG_HOME/autostart" "$HOME/.vantrel"
printf '[General]\nserverURL=https://vantrel.example.org/api/vantrel/v1\n' \
    >"$XDG_CONFIG_HOME/Vantrel/Vantrel.conf"
printf '[Desktop Entry]\nType=Application\nName=Vantrel\nExec=vantrel\n' \
    >"$XDG_CONFIG_HOME/autostart/vantrel.desktop"
printf 'api_url = "https://vantrel.example.org/api/vantrel/v1"\n' >"$HOME/.vantrel/config.toml"
printf 'the-users-own-key' | secret-tool store --label=Vantrel service com.keldor.vantrel \
    account tracker-api-key

snapshot() {
    local folder
    for folder in "$HOME" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"; do
        (cd "$folder" && find . -printf '%p %y %m %s\n' | sort &&
            find . -type f -exec sha256sum {} + | sort -k2)
    done
    secret-tool search --all service com.keldor.vantrel 2>&1 | grep -v '^\(created\|modified\)'
}
snapshot >"$work/before"

# The demo's own temporary folders land here, so leftovers are visible.
mkdir "$work/tmp"
TMPDIR="$work/tmp" setsid "$demo" "$bin" >"$work/demo.out" 2>&1 &
group=$!
shown() { grep -q "Vantrel: Tracking.* — today\|offers no actions" "$work/demo.out"; }
check "the demo shows the road (or says why it cannot)" wait_for 90 shown
kill -INT -- "-$group"
gone() { ! kill -0 -- "-$group" 2>/dev/null; }
check "Ctrl+C stops every process of the demo" wait_for 30 gone
group=""

snapshot >"$work/after"
check "home, preferences, autostart, data and keyring are unchanged" \
    diff -u "$work/before" "$work/after"
check "the user's key is still theirs" test \
    "$(secret-tool lookup service com.keldor.vantrel account tracker-api-key)" = the-users-own-key
check "the demo's folders are gone" test -z "$(ls -A "$work/tmp")"
echo "--- demo output" && cat "$work/demo.out"

finish "demo leaves no trace"
