#!/usr/bin/env bash
# Builds the fuzz targets (clang, libFuzzer) in build-fuzz and runs each over its seed corpus for
# a bounded time: scripts/fuzz.sh [seconds per target, default 10] [target name…]
# Fails on a crash, a sanitizer report or a broken property; the input that caused it is left in
# build-fuzz/artifacts/<target>/. Inputs found along the way go to build-fuzz/corpus/<target>/,
# never into the seed corpus under fuzz/corpus/.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
seconds="${1:-10}"
shift || true

"$root/scripts/build.sh" "$root/build-fuzz" -DVANTREL_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  # Every target the tree built; one whose decoder is not in this tree has a corpus but no program.
  mapfile -t targets < <(find build-fuzz/bin -name '*Fuzzer' -type f -printf '%f\n' | sed 's/Fuzzer$//' | sort)
fi
unset ASAN_OPTIONS
export UBSAN_OPTIONS="print_stacktrace=1"
for target in "${targets[@]}"; do
  echo "-- ${target}Fuzzer, ${seconds} s"
  mkdir -p "build-fuzz/corpus/$target" "build-fuzz/artifacts/$target"
  log="build-fuzz/artifacts/$target/last-run.log"
  status=0
  "build-fuzz/bin/${target}Fuzzer" -max_total_time="$seconds" -print_final_stats=1 \
    -artifact_prefix="build-fuzz/artifacts/$target/" "build-fuzz/corpus/$target" \
    "fuzz/corpus/$target" >"$log" 2>&1 || status=$?
  grep -E '^(stat::number_of_executed_units|stat::new_units_added)' "$log" || true
  if [ "$status" -ne 0 ]; then
    grep -E -A20 'Property violated|runtime error|ERROR: (AddressSanitizer|libFuzzer)' "$log" >&2 || true
    echo "${target}Fuzzer failed (exit $status); see $log" >&2
    exit 1
  fi
done
