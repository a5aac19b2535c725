#!/usr/bin/env bash
# Vantrel beside Waybar's tray on a headless Sway, in a private session bus:
#   sway-tray-host-end-to-end.sh <vantrel binary> <virtual_pointer binary> [screenshot folder]
# With a folder, it takes the README's screenshots of the panel there instead of testing.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"
mkdir -m 700 "$work/runtime" "$work/artefacts"
as_user=()
if [ "$(id -u)" -eq 0 ]; then
    # Sway refuses to run as root: the whole session, bus included, runs as a system user of
    # its own, so that Waybar and Vantrel share the bus and the compositor.
    id vantrel-desktop >/dev/null 2>&1 ||
        useradd --system --no-create-home --shell /usr/sbin/nologin vantrel-desktop
    chown vantrel-desktop: "$work/runtime" "$work/artefacts"
    as_user=(runuser -u vantrel-desktop --)
fi
status=0
"${as_user[@]}" env -i PATH=/usr/bin:/bin LANG=C.UTF-8 XDG_RUNTIME_DIR="$work/runtime" \
    VANTREL_TEST_ARTIFACTS="$work/artefacts" \
    VANTREL_TEST_TIMEOUT_FACTOR="${VANTREL_TEST_TIMEOUT_FACTOR:-1}" \
    ASAN_OPTIONS="${ASAN_OPTIONS:-}" UBSAN_OPTIONS="${UBSAN_OPTIONS:-}" \
    dbus-run-session -- /usr/bin/python3 "$here/sway_tray_host.py" "$1" "$2" ${3:+--screenshots} ||
    status=$?
if [ -n "${3:-}" ]; then
    cp "$work/artefacts"/sway-panel-*.png "$3/" 2>/dev/null || true
elif compgen -G "$work/artefacts/*.png" >/dev/null; then
    kept="${VANTREL_TEST_ARTIFACTS:-$(mktemp -d "${TMPDIR:-/tmp}/vantrel-shots-XXXXXX")}"
    mkdir -p "$kept" && cp "$work/artefacts"/*.png "$kept/"
    echo "screenshots kept in $kept"
fi
exit "$status"
