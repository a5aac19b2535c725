#!/usr/bin/env bash
# The footprint of the application against a bare Qt tray program, and against that program using
# the secret store and TLS as well, all on a virtual X server with a stand-in tray host, in a
# private session bus and keyring, beside a local HTTPS service:
#
#   bench/footprint/run.sh [--quick] [--detail] [--without-extra-authorities] <build dir>
#
# --quick shortens the settle and idle windows (a smoke run); --detail also lists the largest
# mappings of each process. Takes about four minutes without --quick.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
source_dir="$(cd "$here/../.." && pwd)"
options=()
while [ $# -gt 0 ] && [ "${1#--}" != "$1" ]; do
    options+=("$1")
    shift
done
if [ $# -ne 1 ]; then
    echo "usage: $0 [--quick] [--detail] [--without-extra-authorities] <build dir>" >&2
    exit 2
fi
build="$(cd "$1" && pwd)"
for program in vantrel footprint_bare_tray footprint_services_tray fake_tracker_helper vantrel-launchctl; do
    [ -x "$build/bin/$program" ] || { echo "$build/bin/$program is missing; build it first" >&2; exit 2; }
done
exec "$source_dir/tests/scripts/with-keyring.sh" "$source_dir/tests/api/with-https-server.sh" \
    /usr/bin/python3 "$here/footprint.py" "${options[@]}" "$build"
