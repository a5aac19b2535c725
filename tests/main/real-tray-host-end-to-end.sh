#!/usr/bin/env bash
# Vantrel beside a real tray host on a virtual X server in a private session bus:
#   real-tray-host-end-to-end.sh <xfce|trayer> <vantrel binary>
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
exec "$here/with-xvfb.sh" dbus-run-session -- /usr/bin/python3 "$here/real_tray_hosts.py" "$1" "$2"
