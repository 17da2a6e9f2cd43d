#!/usr/bin/env bash
# Builds the fuzz targets, replays their corpora and fuzzes: the library against its model, the reflector, and what
# the programs read. Fails when an input crashes a target or shows a difference; the input is kept, and the command
# that replays it is printed. Safe to run again; builds below build/ only.
#   scripts/fuzz.sh [--keep] [--afl] SECONDS [TARGET...]     SECONDS for each target, all if none is named; as many at
#                                                            the same time as there are processors
#   --keep   add what was found to tests/fuzz/corpus/, as few inputs as reach the same
#   --afl    fuzz with AFL++ instead of libFuzzer
#   --built  only fuzz, the one TARGET that is named: it was built just now
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

usage() {
  sed -n '2,/^set /{/^set /d;s/^# \{0,1\}//;p}' "$0" >&2
  exit 2
}

keep=no
preset=fuzz
built=no
passed_on=()
while [[ ${1:-} == --* ]]; do
  case $1 in
    --keep) keep=yes ;;
    --afl) preset=fuzz-afl ;;
    --built) built=yes ;;
    *) usage ;;
  esac
  passed_on+=("$1")
  shift
done
[[ ${1:-} =~ ^[1-9][0-9]*$ ]] || usage
[[ $keep == no || $preset == fuzz ]] || usage
seconds=$1
shift
(($# > 0)) || set -- fuzz_library fuzz_reflector fuzz_applications

tree=build/$preset
work=$PWD/$tree/fuzzing # found inputs and crashes, by target
maximum_length=400
# Stacks are kept short while fuzzing: they take much of the time. A replay shows them whole.
export ASAN_OPTIONS=malloc_context_size=2:abort_on_error=1:symbolize=0:detect_leaks=1
failures=0

log_of() { printf '%s/%s/log' "$work" "$1"; }

complain() { # TARGET INPUT...
  local input
  for input in "${@:2}"; do
    printf '%s: an input fails; replay it with\n  ASAN_OPTIONS=symbolize=1 %s %s\n' "$1" \
      "$tree/tests/fuzz/$1_replay" "$input" >&2
  done
  failures=$((failures + 1))
}

build() { # TARGET...
  cmake --preset "$preset" && cmake --build --preset "$preset" --target "$@" "${@/%/_replay}"
}

replay() { # TARGET
  "$tree/tests/fuzz/$1_replay" "tests/fuzz/corpus/$1" >"$(log_of "$1")" 2>&1 && return
  tail -n 40 "$(log_of "$1")" >&2
  complain "$1" "$(grep '^tests/fuzz/corpus/' "$(log_of "$1")" | tail -n 1)"
  return 1
}

# Runs, what they reached and how many a second, from libFuzzer's last line.
summarise() { # TARGET
  local last
  last=$(grep -E '^#[0-9]+.*cov: ' "$(log_of "$1")" | tail -n 1)
  printf '%s: %s\n' "$1" "$(sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\1 runs in \2 s/p' "$(log_of "$1")")"
  printf '  coverage %s, features %s, corpus %s, runs a second %s\n' \
    "$(sed -E 's/.* cov: ([0-9]+).*/\1/' <<<"$last")" "$(sed -E 's/.* ft: ([0-9]+).*/\1/' <<<"$last")" \
    "$(sed -E 's/.* corp: ([^ ]+).*/\1/' <<<"$last")" "$(sed -E 's/.* exec\/s: ([0-9]+).*/\1/' <<<"$last")"
}

run_libfuzzer() { # TARGET
  local found=$work/$1/found failing=$work/$1/failing options=() seeds=()
  rm -rf "$failing"
  mkdir -p "$found" "$failing"
  [[ $1 != fuzz_applications ]] || options+=(-dict=tests/fuzz/applications/options.dict)
  if [[ $1 == fuzz_library ]]; then
    python3 tests/fuzz/library/write_seeds.py "$work/$1/seeds"
    seeds+=("$work/$1/seeds")
  fi
  if "$tree/tests/fuzz/$1" -max_total_time="$seconds" -max_len="$maximum_length" -timeout=10 -print_final_stats=1 \
    -artifact_prefix="$failing/" "${options[@]}" "$found" "tests/fuzz/corpus/$1" "${seeds[@]}" >"$(log_of "$1")" 2>&1; then
    summarise "$1"
  else
    grep -vE '^(#|INFO|\s+NEW_FUNC|\s+#[0-9]+ 0x)' "$(log_of "$1")" | head -n 40 >&2
    complain "$1" "$failing"/*
  fi
}

# What reaches something new joins the corpus.
merge() { # TARGET
  local merged=$work/$1/merged input
  rm -rf "$merged"
  mkdir -p "$merged"
  "$tree/tests/fuzz/$1" -merge=1 -use_counters=0 -max_len="$maximum_length" "$merged" "tests/fuzz/corpus/$1" \
    "$work/$1/found" >"$(log_of "$1")" 2>&1
  rm -f "tests/fuzz/corpus/$1"/*
  for input in "$merged"/*; do
    cp "$input" "tests/fuzz/corpus/$1/$(sha1sum <"$input" | cut -d ' ' -f 1)"
  done
  printf '%s: %s inputs in the corpus\n' "$1" "$(find "tests/fuzz/corpus/$1" -type f | wc -l)"
}

run_afl() { # TARGET
  local found=$work/$1/found options=() crashes
  rm -rf "$found"
  [[ $1 != fuzz_applications ]] || options+=(-x tests/fuzz/applications/options.dict)
  AFL_SKIP_CPUFREQ=1 AFL_I_DONT_CARE_ABOUT_MISSING_CRASHES=1 AFL_NO_UI=1 AFL_NO_AFFINITY=1 \
    afl-fuzz -i "tests/fuzz/corpus/$1" -o "$found" -V "$seconds" -m none -t 10000 "${options[@]}" \
    -- "$tree/tests/fuzz/$1" >"$(log_of "$1")" 2>&1 || { tail -n 40 "$(log_of "$1")" >&2; complain "$1"; return; }
  mapfile -t crashes < <(find "$found/default/crashes" "$found/default/hangs" -name 'id:*')
  printf '%s: %s\n' "$1" "$(awk -F ' *: *' '
    { value[$1] = $2 }
    END { print value["execs_done"] " runs in " value["run_time"] " s"
          print "  coverage " value["edges_found"] ", of all edges " value["bitmap_cvg"] ", corpus " \
            value["corpus_count"] ", runs a second " value["execs_per_sec"] }' "$found/default/fuzzer_stats")"
  ((${#crashes[@]} == 0)) || complain "$1" "${crashes[@]}"
}

fuzz() { # TARGET
  echo "== $1"
  replay "$1" || return 0
  if [[ $preset == fuzz-afl ]]; then
    run_afl "$1"
  else
    run_libfuzzer "$1"
  fi
  [[ $keep == no ]] || merge "$1"
}

if [[ $built == yes ]]; then
  (($# == 1)) || usage
  mkdir -p "$work/$1"
  output=$work/$1/output
  # Told at the end, since others run beside it.
  exec 3>&1 >"$output" 2>&1
  trap 'cat "$output" >&3' EXIT
  fuzz "$1"
  exit $((failures != 0))
fi

./scripts/install-packages.sh fuzz
echo '== Build'
mkdir -p "$tree"
build "$@" >"$tree/build.log" 2>&1 || { tail -n 40 "$tree/build.log" >&2; exit 1; }
# By xargs: an interrupt ends these processes, too.
printf '%s\n' "$@" |
  xargs --max-procs="$(nproc)" --max-args=1 ./scripts/fuzz.sh "${passed_on[@]}" --built "$seconds" || {
  echo 'fuzz: failures, see above' >&2
  exit 1
}
