#!/usr/bin/env bash
# Runs a command against a throwaway Secret Service: a private D-Bus session bus with its own
# gnome-keyring-daemon whose default collection exists and is unlocked.
#
#   with-keyring.sh <command> [arguments...]
#
# Nothing of the caller's desktop is reachable from inside: HOME and the XDG directories point into
# a temporary directory (removed afterwards), the bus is private, and the bus knows no activatable
# services, so a keyring unlock prompt cannot pop up on the developer's screen nor wait for one —
# gnome-keyring finds no prompter and dismisses the prompt at once. The command's exit status is
# returned.
set -euo pipefail

# Second stage: we run inside the private bus (see the end of this script).
if [ "${VANTREL_KEYRING_STAGE:-}" = "inside" ]; then
    unset VANTREL_KEYRING_STAGE
    # The password guards only this throwaway keyring. Tests that lock the collection unlock it
    # again with it; there is no prompter that could ask for it.
    export VANTREL_TEST_KEYRING_PASSWORD="vantrel-test-$$"
    printf '%s' "$VANTREL_TEST_KEYRING_PASSWORD" |
        gnome-keyring-daemon --foreground --unlock --components=secrets \
        >"$XDG_RUNTIME_DIR/keyring.log" 2>&1 &
    keyring_pid=$!
    # A test may have replaced the daemon with one of its own; end whichever owns the name.
    stop_keyring() {
        kill "$keyring_pid" 2>/dev/null && wait "$keyring_pid" 2>/dev/null || true
        local owner
        owner=$(dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
            org.freedesktop.DBus.GetConnectionUnixProcessID string:org.freedesktop.secrets \
            2>/dev/null | awk '/uint32/ { print $2 }' || true)
        [ -z "$owner" ] || kill "$owner" 2>/dev/null || true
    }
    trap stop_keyring EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM

    # Ready once the keyring answers on the bus with a default collection; no one else can own
    # the name on this bus, and asking cannot start anything.
    default_collection_ready() {
        dbus-send --session --print-reply --dest=org.freedesktop.secrets /org/freedesktop/secrets \
            org.freedesktop.Secret.Service.ReadAlias string:default 2>/dev/null |
            grep -q 'object path "/org/freedesktop/secrets/collection/'
    }
    # shellcheck source=checks.sh
    source "$(dirname "$0")/checks.sh"
    wait_for 30 default_collection_ready || { cat "$XDG_RUNTIME_DIR/keyring.log" >&2; exit 1; }
    # Under `set -e` a failing command ends the script with its status, through the trap.
    "$@"
    exit
fi

self="$(cd "$(dirname "$0")" && pwd)/$(basename "$0")"
scratch="$(mktemp -d "${TMPDIR:-/tmp}/vantrel-keyring.XXXXXXXX")"
trap 'rm -rf "$scratch"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
mkdir -m 700 "$scratch/home" "$scratch/data" "$scratch/config" "$scratch/cache" "$scratch/runtime"

# A session bus with no service directories: nothing is started on demand, so neither a second
# keyring nor a graphical prompter can appear.
cat >"$scratch/bus.conf" <<CONF
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>unix:dir=$scratch/runtime</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
CONF

env -u DISPLAY -u WAYLAND_DISPLAY -u DBUS_SESSION_BUS_ADDRESS -u GNOME_KEYRING_CONTROL \
    -u SSH_AUTH_SOCK \
    HOME="$scratch/home" XDG_DATA_HOME="$scratch/data" XDG_CONFIG_HOME="$scratch/config" \
    XDG_CACHE_HOME="$scratch/cache" XDG_RUNTIME_DIR="$scratch/runtime" \
    VANTREL_KEYRING_STAGE=inside \
    dbus-run-session --config-file="$scratch/bus.conf" -- bash "$self" "$@"
