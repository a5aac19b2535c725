#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine and runs the whole test suite: the formatting and layering
# checks, the normal build's tests, the same tests built with AddressSanitizer and
# UndefinedBehaviorSanitizer, then a short run of every fuzz target. Exits non-zero on the first
# failure.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"

"$root/scripts/install-deps.sh"

echo "== Formatting"
"$root/scripts/check-format.sh"

echo "== Layers"
"$root/scripts/check-layers.sh"

jobs="$(nproc)"

echo "== Build and test"
"$root/scripts/build.sh" "$root/build" -DVANTREL_BUILD_TESTS=ON -DVANTREL_BUILD_BENCHMARKS=ON
echo "== Debian package"
# Built once here rather than inside the install test, where its compile would share the cores
# with the other tests and count against that test's timeout.
VANTREL_PACKAGE="$("$root/scripts/build-package.sh" "$root/build/package" | tail -n 1)"
export VANTREL_PACKAGE
(cd "$root/build" && ctest --output-on-failure --no-tests=error --parallel "$jobs" --timeout 300)

echo "== Build and test with AddressSanitizer and UndefinedBehaviorSanitizer"
"$root/scripts/build.sh" "$root/build-asan" -DVANTREL_SANITIZE=ON -DVANTREL_BUILD_TESTS=ON -DVANTREL_BUILD_BENCHMARKS=OFF \
  -DCMAKE_BUILD_TYPE=Debug
# Sanitized code runs several times slower; every test's own deadlines stretch with it.
export VANTREL_TEST_TIMEOUT_FACTOR=4
export ASAN_OPTIONS="detect_leaks=0:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
(cd "$root/build-asan" && ctest --output-on-failure --no-tests=error --parallel "$jobs" --timeout 600)

echo "== Fuzz"
# Ten seconds per decoder over its seed corpus: a smoke run that catches regressions the seeds
# reach quickly; the long runs happen outside the test command.
"$root/scripts/fuzz.sh" 10
