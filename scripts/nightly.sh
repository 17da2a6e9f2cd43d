#!/usr/bin/env bash
# What takes longer than CI may: all mutants, long fuzzing, a long soak, ARM under sanitizers, the same packages from two
# directories, Clang's static analyzer, whole benchmarks. Every stage runs, also after one has failed; at the end the
# seconds of each and whether it passed. Safe to run again; builds below build/ only.
#   scripts/nightly.sh                 every stage
#   scripts/nightly.sh STAGE...        some of them, by the names that --list shows
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

stages=(reproducible analyzer arm-sanitize fuzz soak mutants bench)

run_stage() {
  case $1 in
    reproducible) ./scripts/check-reproducible.sh ;;
    analyzer) ./scripts/lint.sh analyzer ;;
    arm-sanitize) ./scripts/install-packages.sh cross && ./scripts/test-presets.sh arm-sanitize ;;
    fuzz) ./scripts/fuzz.sh 600 ;;
    soak) ./scripts/soak.sh 20 ;;
    mutants) ./scripts/mutation.sh ;;
    bench) ./scripts/bench.sh ;;
  esac
}

if [[ ${1:-} == --list ]]; then
  printf '%s\n' "${stages[@]}"
  exit 0
fi
chosen=("$@")
((${#chosen[@]} > 0)) || chosen=("${stages[@]}")
for name in "${chosen[@]}"; do
  [[ " ${stages[*]} " == *" $name "* ]] || { echo "nightly: no stage '$name'; there are: ${stages[*]}" >&2; exit 2; }
done

results=()
failed=0
for name in "${chosen[@]}"; do
  printf '\n==== %s\n' "$name"
  begun=$SECONDS
  result=passed
  run_stage "$name" || { result=FAILED; failed=1; }
  results+=("$(printf '%6d s  %-6s  %s' $((SECONDS - begun)) "$result" "$name")")
done
printf '\n==== Nightly\n'
printf '%s\n' "${results[@]}"
exit "$failed"
