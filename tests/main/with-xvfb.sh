#!/usr/bin/env bash
# Runs a command on a virtual X server of its own: with-xvfb.sh <command> [arguments...]
# Exits 77 (skipped) where there is no Xvfb; otherwise returns the command's exit status.
set -euo pipefail
command -v Xvfb >/dev/null || { echo "no Xvfb" >&2; exit 77; }
work="$(mktemp -d)"
trap 'kill "$xvfb_pid" 2>/dev/null; rm -rf "$work"' EXIT
# Several test runs may share the machine: the server takes a free display itself and names it
# once it accepts connections.
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset 3>"$work/display" \
    2>"$work/xvfb.log" &
xvfb_pid=$!
for _ in $(seq 100); do
    [ -s "$work/display" ] || ! kill -0 "$xvfb_pid" 2>/dev/null && break
    sleep 0.1
done
[ -s "$work/display" ] || { cat "$work/xvfb.log" >&2; exit 1; }
export DISPLAY=":$(cat "$work/display")"
# Qt's X11 plugin builds its keymap with libxkbcommon-x11, which passes strndup a buffer that is
# not NUL-terminated within its length; AddressSanitizer's strict string checks read on to a NUL
# and report an overflow that is not there. Later options win over the caller's.
if [ -n "${ASAN_OPTIONS:-}" ]; then
    export ASAN_OPTIONS="$ASAN_OPTIONS:strict_string_checks=0"
fi
status=0
"$@" || { status=$? && cat "$work/xvfb.log" >&2; }
exit "$status"
