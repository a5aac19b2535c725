#!/usr/bin/env bash
# Fails when a C++ file differs from what clang-format makes of it.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
mapfile -t files < <(git ls-files -- '*.cpp' '*.h' 2>/dev/null || find src tests bench -name '*.cpp' -o -name '*.h')
if [ ${#files[@]} -eq 0 ]; then
  exit 0
fi
clang-format --dry-run --Werror "${files[@]}"
