#!/usr/bin/env bash
# Checks format, wording and shell scripts, builds everything with Clang as well, and runs clang-tidy.
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

echo "== Clang build"
# For its warnings alone: what it makes is not run.
cmake --preset dev -B build/clang -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O0 -DOLV_TWAMP_BENCH=ON
cmake --build build/clang

echo "== clang-tidy"
run-clang-tidy-14 -quiet -p build/clang "^$PWD/(twamp|sim|apps|bench)/.*\.cpp\$" >build/clang-tidy.log 2>&1 || {
  grep -E 'warning:|error:' build/clang-tidy.log | sort -u
  echo "clang-tidy: see build/clang-tidy.log" >&2
  exit 1
}
echo "clang-tidy: nothing to report"
