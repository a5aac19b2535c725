#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds Vantrel and starts it.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/install-deps.sh"
# A build tree of its own, so that running the application never changes what the tests build.
"$root/scripts/build.sh" "$root/build-app" -DVANTREL_BUILD_TESTS=OFF -DVANTREL_BUILD_BENCHMARKS=OFF
exec "$root/build-app/bin/vantrel" "$@"
