#!/usr/bin/env bash
# Configures and builds one build tree: scripts/build.sh <dir> [extra cmake arguments…]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
dir="$1"
shift
launcher=()
# Several build trees (application, tests, sanitizers, worktrees) share one compiler cache when
# the machine has one; nothing depends on it.
if command -v ccache >/dev/null 2>&1; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}" "$@" >/dev/null
cmake --build "$dir" --parallel "$(nproc)"
