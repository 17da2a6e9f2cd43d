#!/usr/bin/env bash
# Looks for data races: builds the tests that use several threads, and the programs, with ThreadSanitizer and runs
# them. Safe to run again; builds below build/ only.
#   scripts/races.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-packages.sh

echo "== ThreadSanitizer: building"
cmake --preset tsan
cmake --build --preset tsan --target race_tests sim_tests fastpath_tests

echo "== ThreadSanitizer: control threads beside the fast path, the platform, the UDP server"
for tests in races/race_tests sim/sim_tests fastpath/fastpath_tests; do
  "build/tsan/tests/$tests" --gtest_brief=1
done
