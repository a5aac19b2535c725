#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds Vantrel and starts it.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" "$root/build" -DVANTREL_BUILD_TESTS=OFF -DVANTREL_BUILD_BENCHMARKS=OFF
exec "$root/build/bin/vantrel" "$@"
