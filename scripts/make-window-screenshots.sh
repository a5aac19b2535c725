#!/usr/bin/env bash
# Renders the Settings and Diagnostics windows over test fakes into docs/screenshots:
#   scripts/make-window-screenshots.sh [build directory]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build}"
cmake --build "$build" --target window_screenshots
mkdir -p "$root/docs/screenshots"
QT_QPA_PLATFORM=offscreen "$build/bin/window_screenshots" "$root/docs/screenshots"
