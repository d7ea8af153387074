#!/usr/bin/env bash
# Builds the optimised configuration, prepares the benchmark data once (a 300,000-file index and a
# 1 GiB encrypted file, about 1.1 GB on disk under build/bench-data) and runs every benchmark. Each
# benchmark runs its reference (libplist, OpenSSL's PBKDF2, `openssl enc`) in the same process.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target bench_mbfileinfo bench_unlock bench_reader nuvrel-make-samples
data=build/bench-data
if [ ! -d "$data/big-file" ]; then
  build/default/tools/samples/nuvrel-make-samples --bench-data "$data"
fi
build/default/bench/bench_mbfileinfo
build/default/bench/bench_unlock
NUVREL_BENCH_DATA=$data build/default/bench/bench_reader
