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

written=$(mktemp)
trap 'rm -f "$written"' EXIT
abidw --exported-interfaces-only --headers-dir include --headers-dir platform --drop-private-types --no-show-locs --no-comp-dir-path \
  --no-corpus-path "$library" | sed "s|$PWD/||" >"$written"
operations=$(grep -c '<function-decl' "$written" || true)
if ((operations != 20)); then
  echo "abi-baseline: $library shows types of $operations operations, not 20; was it built with -g?" >&2
  exit 1
fi
mkdir -p "$(dirname "$baseline")"
cp "$written" "$baseline"
echo "written: $baseline"
