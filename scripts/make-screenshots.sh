#!/usr/bin/env bash
# Renders the tray panel in each state and the Settings and Diagnostics windows over test fakes
# into docs/screenshots:
#   scripts/make-screenshots.sh [build directory]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build}"
cmake --build "$build" --target screenshots
mkdir -p "$root/docs/screenshots"
"$build/bin/screenshots" "$root/docs/screenshots"

# The panel on Sway beside Waybar's tray, light and dark: a real session of its own (see
# tests/main/sway-tray-host-end-to-end.sh), which says so in one line and is skipped without Sway.
if cmake --build "$build" --target vantrel virtual_pointer >/dev/null 2>&1; then
  "$root/tests/main/sway-tray-host-end-to-end.sh" "$build/bin/vantrel" "$build/bin/virtual_pointer" \
    "$root/docs/screenshots" || [ $? -eq 77 ]
else
  echo "no Sway screenshots: the virtual_pointer tool needs libwayland-dev"
fi
