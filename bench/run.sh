#!/usr/bin/env bash
# Builds the optimised configuration, prepares the benchmark data once (a 300,000-file index, a
# 1 GiB encrypted file, a 1,000,000-message chat.db, a 500 MB Telegram export and a 20,000-file tree
# of duplicates and a 2 GB file for the vault, about 6.2 GB under build/bench-data) and runs every benchmark. Each runs its reference
# (libplist, OpenSSL's PBKDF2, `openssl enc`, the sqlite3 command, cat and jq, an empty Qt window,
# vipsthumbnail, ffmpeg alone, Ghostscript, jdupes, rmlint, age, nginx with curl and wrk, rsync) in the same run.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target bench_mbfileinfo bench_unlock bench_reader bench_conversations \
  bench_explorer bench_lighten bench_duplicates bench_vault bench_transfer bench_photobackup nuvrel-make-samples
data=build/bench-data
if [ ! -f "$data/chat.db" ]; then
  rm -rf "$data"
  build/default/tools/samples/nuvrel-make-samples --bench-data "$data"
fi
build/default/bench/bench_mbfileinfo
build/default/bench/bench_unlock
NUVREL_BENCH_DATA=$data build/default/bench/bench_reader
NUVREL_BENCH_DATA=$data build/default/bench/bench_conversations
build/default/bench/bench_explorer
build/default/bench/bench_lighten
NUVREL_BENCH_DATA=$data build/default/bench/bench_duplicates
NUVREL_BENCH_DATA=$data build/default/bench/bench_vault
build/default/bench/bench_transfer
build/default/bench/bench_photobackup
