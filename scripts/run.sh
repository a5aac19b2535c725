#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds Vantrel and starts the demo: the development service
# on 127.0.0.1 and Vantrel in a throwaway profile, signed in through it (dev/vantrel-demo).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/install-deps.sh"
# A build tree of its own, so that running the application never changes what the tests build.
"$root/scripts/build.sh" "$root/build-app" -DVANTREL_BUILD_TESTS=OFF -DVANTREL_BUILD_BENCHMARKS=OFF
exec "$root/dev/vantrel-demo" "$root/build-app/bin"
