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

