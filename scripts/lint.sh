#!/usr/bin/env bash
# Checks format, wording and shell scripts, runs clang-tidy, and reads every file with Clang for its warnings.
# Safe to run again; builds below build/ only.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-packages.sh bench lint

mapfile -t sources < <(git ls-files '*.c' '*.cpp' '*.h' '*.hpp')
echo "== clang-format: ${#sources[@]} files"
clang-format-14 --dry-run -Werror "${sources[@]}"

echo "== shellcheck"
shellcheck scripts/*.sh .ci/run apps/completion/*

if [[ -x ../shared/hooks/wording ]]; then
  echo "== wording"
  ../shared/hooks/wording
fi

# Run clang-tidy on all files whose paths match; it shows Clang's own warnings, too.
tidy() { # NAME PATTERN OPTION...
  local log=build/clang-tidy-$1.log pattern=$2
  shift 2
  run-clang-tidy-14 -quiet -p build/clang "$@" "^$PWD/$pattern" >"$log" 2>&1 || {
    grep -E 'warning:|error:' "$log" | sort -u
    echo "clang-tidy: see $log" >&2
    exit 1
  }
  echo "clang-tidy: nothing to report"
}

# Nothing is built: what Clang has to say it says while reading. Each file is read with its own includes alone.
cmake --preset dev -B build/clang -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DOLV_TWAMP_BENCH=ON -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON

echo "== clang-tidy, and Clang's warnings"
tidy sources '(twamp|net|sim|fastpath|probe|apps|bench)/.*\.cpp$'

echo "== Clang's warnings of the tests and of C"
# clang-tidy takes Clang's warnings for no checks of its own, and wants one.
tidy tests '(tests/.*|.*\.c$)' -checks='-*,clang-diagnostic-*,misc-definitions-in-headers' -header-filter="^$PWD/"
