#!/usr/bin/env bash
# Builds the optimised configuration, prepares the benchmark data once and runs every benchmark. The
# data, about 7 GB under build/bench-data: a 300,000-file backup index and a 1,000,000-message chat.db
# shaped like a real phone's, WhatsApp exports of 50,000 and 100,000 messages in French, Serbian and
# Russian with emoji (and the same in ASCII), all written by bench/generators (Python, independent of
# Nuvrel's code); a 1 GiB encrypted file, a 500 MB Telegram export, a 20,000-file tree of duplicates
# and a 2 GB file for the vault. Each benchmark runs its reference
# (libplist, OpenSSL's PBKDF2, `openssl enc`, the sqlite3 command, cat and jq, an empty Qt window,
# vipsthumbnail, ffmpeg alone, Ghostscript, jdupes, rmlint, age, nginx with curl and wrk, rsync) in the same run.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target bench_mbfileinfo bench_unlock bench_reader bench_conversations \
  bench_explorer bench_lighten bench_duplicates bench_vault bench_transfer bench_photobackup nuvrel-make-samples
data=build/bench-data
if [ ! -f "$data/whatsapp-100k.txt" ]; then
  rm -rf "$data"
  build/default/tools/samples/nuvrel-make-samples --bench-data "$data"
  python3 bench/generators/phone_backup.py "$data/phone-300k" --files 300000
  python3 bench/generators/chats.py messages-db "$data/chat.db" --messages 1000000 --chats 2000
  python3 bench/generators/chats.py whatsapp-export "$data/whatsapp-50k.txt" --messages 50000
  python3 bench/generators/chats.py whatsapp-export "$data/whatsapp-50k-ascii.txt" --messages 50000 --ascii
  python3 bench/generators/chats.py whatsapp-export "$data/whatsapp-100k.txt" --messages 100000
fi
build/default/bench/bench_mbfileinfo
build/default/bench/bench_unlock
NUVREL_BENCH_DATA=$data build/default/bench/bench_reader
NUVREL_BENCH_DATA=$data build/default/bench/bench_conversations
NUVREL_BENCH_DATA=$data build/default/bench/bench_explorer
build/default/bench/bench_lighten
NUVREL_BENCH_DATA=$data build/default/bench/bench_duplicates
NUVREL_BENCH_DATA=$data build/default/bench/bench_vault
build/default/bench/bench_transfer
build/default/bench/bench_photobackup
