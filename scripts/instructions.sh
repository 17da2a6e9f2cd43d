#!/usr/bin/env bash
# Counts the instructions that each operation of the library executes, with the console off, and those that the
# reflector's pure part takes for a packet. Compares them with bench/baseline.json: fails where something takes over 3 %
# more, or less, than there, or more than its limit. The counts are the same in every run. Safe to run again; builds
# below build/ only.
#   scripts/instructions.sh                compare
#   scripts/instructions.sh --update       make what is counted the baseline
#   scripts/instructions.sh --functions    show what each function takes, too
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

case "$*" in
  '' | --update | --functions) ;;
  *)
    echo 'usage: scripts/instructions.sh [--update | --functions]' >&2
    exit 2
    ;;
esac

dumps=build/bench/instructions

count() { # PROGRAM VALGRIND-OPTION...; a dump for each thing that the program has counted
  local program=$1 name
  name=$(basename "$program")
  shift
  # --skip-plt=no: otherwise a jump through a linkage table counts twice.
  valgrind --tool=callgrind --quiet --skip-plt=no --compress-strings=no --compress-pos=no "$@" \
    --callgrind-out-file="$dumps/$name" "$program" 2>"$dumps/$name.log" || { cat "$dumps/$name.log" >&2; exit 1; }
}

./scripts/install-packages.sh bench

echo '== Configuring and building'
cmake --preset bench
cmake --build --preset bench --target library_instructions packet_instructions

echo '== Counting'
rm -rf "$dumps"
mkdir "$dumps"
count build/bench/bench/library/library_instructions
count build/bench/bench/reflect/packet_instructions --collect-atstart=no
# Dumps have numbers; what came after the last one has none.
python3 -B bench/instructions.py "$dumps"/*.[0-9]* >"$dumps.json"
case "$*" in
  --update) cp "$dumps.json" bench/baseline.json ;;
  --functions) python3 -B bench/instructions.py --functions "$dumps"/*.[0-9]* ;;
esac
exec python3 -B bench/limits.py build/bench instructions
