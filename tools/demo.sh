#!/usr/bin/env bash
# The demo: installs what is missing, builds Nuvrel, writes sample iPhone backup folders and lists
# them with nuvrel-cli, in French, in English and as JSON.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc 2>/dev/null || sysctl -n hw.ncpu)" --target nuvrel-cli nuvrel-make-samples

samples=build/demo/Backup
rm -rf "$samples"
build/default/tools/samples/nuvrel-make-samples "$samples"
cli=build/default/src/cli/nuvrel-cli

run() {
  printf '\n$ nuvrel-cli %s\n' "$*"
  "$cli" "$@" || printf '(exit status %s)\n' "$?"
}
run backups --root "$samples" --lang fr
run backups --root "$samples" --lang en
run backups --root "$samples" --lang sr-Cyrl
run backups --root "$samples" --json
run backups --root build/demo/nowhere --lang fr
