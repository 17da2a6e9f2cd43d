#!/usr/bin/env bash
# Measures what the parts of the project cost, and lists which limits the figures meet and which not. Limits are for
# ratios of one run; the times are this machine's. Fails where a limit is missed, after all parts have run. Leaves
# build/bench/PART.json, for scripts/plots.sh. Safe to run again; builds below build/ only.
#   scripts/bench.sh [--quick] [--clock-seconds SECONDS] [PART]...    all parts if none is named
#     library   the library's operations beside their platform calls alone
#     scale     the same with 1, 1,000, 1,000,000 and 16,000,000 responders: time and memory
#     reflect   the fast path over loopback beside echo servers
#     workers   two workers of the fast path beside one, and beside servers that share nothing
#     clock     the reflector's time stamps beside the wall clock, for 300 seconds
#   --quick           small sizes and runs of seconds: shows that every part works, nothing is lost and no responder
#                     takes too much memory; figures of time say nothing then and are not judged
#   --clock-seconds   how long the clock is looked at, in whole tens of seconds
# Instructions are counted by scripts/instructions.sh. A whole run takes some ten minutes and more than 5 GB of memory,
# and the machine should have nothing else to do.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

explain() { sed -n '2,/^set /{/^set /d;s/^# \{0,1\}//;p}' "$0"; }

usage() {
  explain >&2
  exit 2
}

quick=no
clock_seconds=300
parts=()
while (($# > 0)); do
  case $1 in
    --help | -h)
      explain
      exit 0
      ;;
    --quick) quick=yes ;;
    --clock-seconds)
      [[ ${2:-} =~ ^[1-9][0-9]*$ ]] || usage
      clock_seconds=$2
      shift
      ;;
    library | scale | reflect | workers | clock) parts+=("$1") ;;
    *) usage ;;
  esac
  shift
done
((${#parts[@]} > 0)) || parts=(library scale reflect workers clock)

programs=build/bench/bench
results=build/bench

# Many short runs take turns, so that what else the machine does slows down all alike.
run_in_turns() { # PROGRAM REPORT REPETITIONS SECONDS ARGUMENT...
  local text=${2%.json}.txt
  local options=(--benchmark_enable_random_interleaving=true --benchmark_repetitions="$3" --benchmark_min_time="$4"
    --benchmark_display_aggregates_only=true --benchmark_out="$2" --benchmark_out_format=json)
  [[ $quick == no ]] || options+=(--benchmark_context=quick=true)
  "$1" "${options[@]}" "${@:5}" >"$text" 2>&1 || { tail -n 20 "$text" >&2; return 1; }
}

# What each part runs, and with --quick.
measure() { # PART REPORT
  local reflect=("$programs/reflect/reflect_bench" "$1" --json "$2")
  case $quick-$1 in
    no-library) run_in_turns "$programs/library/library_bench" "$2" 51 0.003 ;;
    yes-library) run_in_turns "$programs/library/library_bench" "$2" 3 0.001 ;;
    no-scale) run_in_turns "$programs/scale/scale_bench" "$2" 21 0.01 1 1000 1000000 16000000 ;;
    yes-scale) run_in_turns "$programs/scale/scale_bench" "$2" 3 0.003 1 1000 100000 ;;
    no-clock) "${reflect[@]}" --intervals $(((clock_seconds + 9) / 10)) ;;
    no-*) "${reflect[@]}" ;;
    yes-*) "${reflect[@]}" --quick ;;
  esac
}

declare -A titles=(
  [library]="The library's operations beside their platform calls"
  [scale]='Operations beside those with 1,000 responders'
  [reflect]='The fast path beside echo servers'
  [workers]='Two workers beside one'
  [clock]='Time stamps beside the wall clock'
)

./scripts/install-packages.sh bench

echo '== Configuring and building'
cmake --preset bench
cmake --build --preset bench --target library_bench scale_bench reflect_bench

failed=()
for part in "${parts[@]}"; do
  printf '\n== %s: %s\n' "$part" "${titles[$part]}"
  report=$results/$part.json
  rm -f "$report"
  measure "$part" "$report" || failed+=("$part")
  python3 -B bench/limits.py "$results" "$part" || failed+=("$part")
done

[[ $quick == no ]] || printf '\nbench: a quick run: its figures say nothing, and those of time were not judged\n'
if ((${#failed[@]} != 0)); then
  printf '\nbench: failed, or limits missed: %s\n' "$(printf '%s\n' "${failed[@]}" | uniq | xargs)" >&2
  exit 1
fi
printf '\nbench: all limits that were judged are met\n'
