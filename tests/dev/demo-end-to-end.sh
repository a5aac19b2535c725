#!/usr/bin/env bash
# The demo's whole road without a display, as a user runs it inside their own session: the demo
# signs in through the application's actions on its private bus and approves the code on its
# development service, the status reaches "Tracking" with today's total, then this script signs
# out on that bus (the revoke arrives and the key leaves the keyring) and
# stops the demo as Ctrl+C does. The throwaway home, folders and keyring of with-keyring.sh stand
# in for the user's real ones and hold a Vantrel setup that the demo must leave exactly as it was.
#
#   demo-end-to-end.sh <folder holding vantrel and vantrel-launchctl>
#
# Exits 77 (skipped) when the application offers no actions on the session bus.
set -euo pipefail

bin="$1"
demo="$(cd "$(dirname "$0")/../../dev" && pwd)/vantrel-demo"
[ -n "${VANTREL_TEST_KEYRING_PASSWORD:-}" ] || { echo "run me under with-keyring.sh" >&2; exit 2; }

work="$(mktemp -d)" group=""
# shellcheck disable=SC2317 # reached through the trap
cleanup() {
    [ -z "$group" ] || kill -KILL -- "-$group" 2>/dev/null || true
    [ ! -f "$work/demo.out" ] || { echo "--- demo output" && cat "$work/demo.out"; }
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

# The demo's own temporary folders, its profile included, land here, so leftovers are visible.
mkdir "$work/tmp"
TMPDIR="$work/tmp" VANTREL_DEMO_TRACKER_INTERVAL=1 setsid "$demo" "$bin" >"$work/demo.out" 2>&1 &
group=$!
shown() { grep -q "Vantrel: Tracking.* — today [0-9]\|offers no actions" "$work/demo.out"; }
check "the demo shows the road (or says why it cannot)" wait_for 120 shown
if grep -q "offers no actions" "$work/demo.out"; then
    echo "SKIPPED: the application offers no actions on the session bus"
    exit 77
fi
road="$(grep -o 'Vantrel: [A-Za-z ]*' "$work/demo.out" | sed 's/ *$//' | uniq | tr '\n' '|')"
check "the road reads signed out, connecting, tracking ($road)" \
    grep -qF 'Sign in required|Vantrel: Connecting|Vantrel: Tracking|' <<<"$road"
check "no request strayed from the contract" bash -c "! grep -q 'contract violation' '$work/demo.out'"

# Inside the demo's profile: its private bus, keyring and service.
profile="$(echo "$work"/tmp/vantrel-keyring.*)"
bus="$(find "$profile/runtime" -maxdepth 1 -type s -name 'dbus-*')"
inside() { DBUS_SESSION_BUS_ADDRESS="unix:path=$bus" "$@"; }
lookup() { inside secret-tool lookup service com.keldor.vantrel account tracker-api-key; }
key="$(lookup)" || true
fingerprint="$(printf '%s' "$key" | sha256sum | cut -c1-8)"
inside gdbus call --session --dest com.keldor.Vantrel --object-path /com/keldor/Vantrel \
    --method org.freedesktop.Application.ActivateAction sign-out '[]' '{}' >/dev/null || true
check "signing out revokes the key on the service" \
    wait_for 30 grep -q "revoked key $fingerprint" "$work/demo.out"
cleared() { ! lookup >/dev/null 2>&1; }
check "signing out clears the keyring" wait_for 10 cleared
check "the key is in no output or file of the profile" bash -c \
    "! grep -rqa -- '$key' '$work/demo.out' '$profile/home' '$profile/config'"

kill -INT -- "-$group" 2>/dev/null || true
gone() { ! kill -0 -- "-$group" 2>/dev/null; }
check "Ctrl+C stops every process of the demo" wait_for 30 gone
group=""

snapshot >"$work/after"
check "home, preferences, autostart, data and keyring, the user's key included, are unchanged" \
    diff -u "$work/before" "$work/after"
check "the demo's folders are gone" test -z "$(ls -A "$work/tmp")"

finish "demo end to end"
