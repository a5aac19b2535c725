#!/usr/bin/env bash
# The application on a virtual X server in a private session bus, with the accessibility bus that
# the session starts by itself: tray-end-to-end.sh <vantrel binary>
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
exec "$here/with-xvfb.sh" dbus-run-session -- /usr/bin/python3 "$here/tray_end_to_end.py" "$1"
