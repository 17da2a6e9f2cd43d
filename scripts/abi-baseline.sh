#!/usr/bin/env bash
# Writes the interface of a built library into tests/abi/baseline/, which the tests compare every build with.
# Run it, look at the difference and commit it when the interface was changed on purpose (docs/abi.md).
#   scripts/abi-baseline.sh build/dev x86_64
#   scripts/abi-baseline.sh build/arm arm
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if (($# != 2)); then
  echo 'usage: scripts/abi-baseline.sh BUILD-DIRECTORY PROCESSOR' >&2
  exit 2
fi
library=$1/twamp/libolv-twamp.so
baseline=tests/abi/baseline/libolv-twamp.$2.abi

mkdir -p "$(dirname "$baseline")"
abidw --exported-interfaces-only --headers-dir include --headers-dir platform --drop-private-types --no-show-locs --no-comp-dir-path \
  --no-corpus-path "$library" | sed "s|$PWD/||" >"$baseline"
echo "written: $baseline ($(grep -c '<function-decl' "$baseline") functions)"
