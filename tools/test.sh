#!/usr/bin/env bash
# The whole test suite: installs what is missing, checks formatting and clang-tidy, builds the
# optimised and the sanitizer configurations with warnings as errors, gives the binary
# property-list fuzzer a bounded run, and runs CTest on both builds. Fast on a second run: ccache and the build folders stay.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh

jobs=$(nproc 2>/dev/null || sysctl -n hw.ncpu)
fuzz_seconds=${NUVREL_FUZZ_SECONDS:-60}
status=0

step() { printf '\n== %s\n' "$*"; }

step "Formatting"
cmake --preset default -DNUVREL_WERROR=ON >/dev/null
cmake --build --preset default --target format-check || status=1

step "Optimised build"
cmake --build --preset default -j "$jobs"

step "clang-tidy"
cmake --build --preset default --target tidy || status=1

step "Sanitizer build (AddressSanitizer, UndefinedBehaviorSanitizer)"
cmake --preset asan -DNUVREL_WERROR=ON >/dev/null
cmake --build --preset asan -j "$jobs"

step "Fuzzing the binary property-list reader for ${fuzz_seconds}s"
cmake --preset fuzz -DNUVREL_WERROR=ON >/dev/null
cmake --build --preset fuzz -j "$jobs" --target fuzz_bplist
corpus=build/fuzz/corpus
mkdir -p "$corpus"
cmake --build --preset fuzz --target nuvrel-make-samples >/dev/null
build/fuzz/tools/samples/nuvrel-make-samples --blobs "$corpus" >/dev/null
if ! build/fuzz/tests/fuzz/fuzz_bplist -max_total_time="$fuzz_seconds" -max_len=4096 -timeout=10 \
     -print_final_stats=1 "$corpus" >build/fuzz/fuzz.log 2>&1; then
  tail -n 60 build/fuzz/fuzz.log
  echo "fuzz: FAILED (crash or sanitizer report above; the input is in build/fuzz)"
  status=1
else
  grep -E 'stat::number_of_executed_units|Done' build/fuzz/fuzz.log | tail -n 2 || true
fi

step "Sanitizer tests"
ctest --preset asan || status=1

step "Tests"
ctest --preset default || status=1
exit $status
