#!/usr/bin/env bash
# The Settings and Diagnostics windows driven through the accessibility tree, with start-up: the
# real application installed beside the scripted helper, a private keyring, an HTTPS stand-in for
# the service, a virtual X server and a stand-in tray host.
#
#   windows-end-to-end.sh <vantrel> <fake tracker helper> <vantrel-launchctl>
#
# Exits 77 (skipped) where the virtual desktop or the accessibility bus cannot be had.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/../.." && pwd)"
launcher=/usr/libexec/at-spi-bus-launcher

if [ "${1:-}" != "--inside" ]; then
    for tool in Xvfb xdpyinfo xprop xwininfo xclip secret-tool gnome-keyring-daemon openssl "$launcher"; do
        command -v "$tool" >/dev/null || { echo "skipped: no $tool" >&2; exit 77; }
    done
    /usr/bin/python3 -c 'import dbus, pyatspi' 2>/dev/null ||
        { echo "skipped: no python3-pyatspi" >&2; exit 77; }
    exec "$root/tests/scripts/with-keyring.sh" "$root/tests/api/with-https-server.sh" \
        "$here/with-xvfb.sh" "$0" --inside "$@"
fi
shift

# The keyring's private bus starts nothing on demand, so the accessibility bus is started here.
"$launcher" --launch-immediately >/dev/null 2>&1 &
launcher_pid=$!
trap 'kill "$launcher_pid" 2>/dev/null || true; wait "$launcher_pid" 2>/dev/null || true' EXIT
a11y_ready() {
    dbus-send --session --print-reply --dest=org.a11y.Bus /org/a11y/bus org.a11y.Bus.GetAddress \
        >/dev/null 2>&1
}
for _ in $(seq $((100 * ${VANTREL_TEST_TIMEOUT_FACTOR:-1}))); do
    a11y_ready && break
    sleep 0.1
done
a11y_ready || { echo "skipped: the accessibility bus did not start" >&2; exit 77; }

/usr/bin/python3 "$here/windows_end_to_end.py" "$@"
