#!/usr/bin/env bash
# Configures, builds and tests presets of CMakePresets.json, one after the other. The packages have to be there.
#   scripts/test-presets.sh dev asan
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if (($# == 0)); then
  echo 'usage: scripts/test-presets.sh PRESET...' >&2
  cmake --list-presets >&2
  exit 2
fi
for preset; do
  echo "== Configuring and building: $preset"
  cmake --preset "$preset"
  cmake --build --preset "$preset"
  echo "== Testing: $preset"
  ctest --preset "$preset"
done
