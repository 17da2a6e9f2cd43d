#!/usr/bin/env bash
# Installs what the tests need, builds, and runs all tests: native, counting what is executed (scripts/coverage.sh
# reports that); with AddressSanitizer, UndefinedBehaviorSanitizer and LeakSanitizer; and of the built library, as it is
# developed and as it is released, what it shows to the outside. Safe to run again; builds below build/ only.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-packages.sh test coverage

mkdir -p build
find build/coverage -name '*.gcda' -delete 2>/dev/null || true
./scripts/test-presets.sh coverage | tee build/test-log
sed -n '/% tests passed/,$p' build/test-log >build/test-summary
./scripts/test-presets.sh asan

echo '== The library: dependencies, symbols, sealing, interface'
for preset in dev release; do
  cmake --preset "$preset"
  cmake --build --preset "$preset" --target olv-twamp
  ctest --preset "$preset" -R '^abi\.'
done
