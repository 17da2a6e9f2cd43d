#!/usr/bin/env bash
# Counts the instructions that each operation of the library executes, with the console off, and compares them with
# bench/baseline.json: fails where an operation takes over 3 % more, or less, than there, or more than its limit. The
# counts are the same in every run. Safe to run again; builds below build/ only.
#   scripts/instructions.sh             compare
#   scripts/instructions.sh --update    make what is counted the baseline
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

case "$*" in
  '' | --update) ;;
  *)
    echo 'usage: scripts/instructions.sh [--update]' >&2
    exit 2
    ;;
esac

./scripts/install-packages.sh bench

echo '== Configuring and building'
cmake --preset bench
cmake --build --preset bench --target library_instructions

echo '== Counting'
dumps=build/bench/instructions
rm -rf "$dumps"
mkdir "$dumps"
valgrind --tool=callgrind --quiet --skip-plt=no --compress-strings=no --compress-pos=no \
  --callgrind-out-file="$dumps/dump" build/bench/bench/library/library_instructions 2>"$dumps/valgrind.log" || {
  cat "$dumps/valgrind.log" >&2
  exit 1
}
# Without a number: what came after the last operation.
exec python3 -B bench/library/instructions.py "$@" bench/baseline.json "$dumps"/dump.*
