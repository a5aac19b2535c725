#!/usr/bin/env bash
# The Settings and Diagnostics windows driven through the accessibility tree, with start-up: see
# windows_end_to_end.py, which this runs in a private keyring, beside the HTTPS stand-in, on a
# virtual X server.
#
#   windows-end-to-end.sh <vantrel> <fake tracker helper> <vantrel-launchctl>
#
# Exits 77 (skipped) where the virtual desktop or the accessibility bus cannot be had.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
for tool in Xvfb xclip secret-tool gnome-keyring-daemon openssl \
    /usr/libexec/at-spi-bus-launcher; do
    command -v "$tool" >/dev/null || { echo "skipped: no $tool" >&2; exit 77; }
done
/usr/bin/python3 -c 'import dbus, pyatspi' 2>/dev/null || { echo "skipped: no python3-pyatspi" >&2; exit 77; }
exec "$here/../scripts/with-keyring.sh" "$here/../api/with-https-server.sh" "$here/with-xvfb.sh" \
    /usr/bin/python3 "$here/windows_end_to_end.py" "$@"
