#!/usr/bin/env bash
# Checks how the sources are written. Safe to run again; builds below build/ only.
#   scripts/lint.sh            format and tidy
#   scripts/lint.sh format     clang-format, shellcheck, no test that can be skipped: seconds
#   scripts/lint.sh tidy       clang-tidy and Clang's warnings, each file with its own includes alone: minutes
#   scripts/lint.sh analyzer   Clang's static analyzer on the sources: longer
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

shipped='(twamp|net|sim|fastpath|probe|apps)/.*\.cpp$'
benchmarks='bench/.*\.cpp$'

format() {
  local files
  mapfile -t files < <(git ls-files '*.c' '*.cpp' '*.h' '*.hpp')
  echo "== clang-format: ${#files[@]} files"
  clang-format-14 --dry-run -Werror "${files[@]}"
  echo "== shellcheck"
  shellcheck scripts/*.sh .ci/run apps/completion/*
  echo "== no test can be skipped"
  ! git grep -nE 'GTEST_SKIP|DISABLED_|SkipTest|skip(Test|If|Unless)|SKIP_RETURN_CODE' -- tests cmake
}

# Nothing is built: what Clang has to say it says while reading.
configure() {
  cmake --preset dev -B build/clang -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
    -DOLV_TWAMP_BENCH=ON -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON
}

# Run clang-tidy on all files whose paths match; it shows Clang's own warnings, too.
run_tidy() { # NAME PATTERN OPTION...
  local log=build/clang-tidy-$1.log pattern=$2
  echo "== clang-tidy: $1"
  shift 2
  run-clang-tidy-14 -quiet -p build/clang "$@" "^$PWD/$pattern" >"$log" 2>&1 || {
    grep -E 'warning:|error:' "$log" | sort -u
    echo "clang-tidy: see $log" >&2
    exit 1
  }
}

tidy() {
  configure
  run_tidy sources "($shipped|$benchmarks)" -checks='-clang-analyzer-*'
  # clang-tidy takes Clang's warnings for no checks of its own, and wants one.
  run_tidy tests '(tests/.*|.*\.c$)' -checks='-*,clang-diagnostic-*,misc-definitions-in-headers' -header-filter="^$PWD/"
}

analyzer() {
  configure
  local checks='-*,clang-analyzer-*,-clang-analyzer-valist.Uninitialized'
  run_tidy analyzer "$shipped" -checks="$checks"
  # Benchmarks that are registered stay to the end of the process: for the analyzer, a leak of their library.
  run_tidy analyzer-bench "$benchmarks" -checks="$checks,-clang-analyzer-cplusplus.NewDeleteLeaks"
}

case "$*" in
  '' | format | tidy | analyzer) ;;
  *)
    echo 'usage: scripts/lint.sh [format | tidy | analyzer]' >&2
    exit 2
    ;;
esac
./scripts/install-packages.sh bench lint
if (($# == 0)); then
  format
  tidy
else
  "$1"
fi
