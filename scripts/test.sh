#!/usr/bin/env bash
# Installs what the tests need, builds, and runs all tests: native, then with AddressSanitizer,
# UndefinedBehaviorSanitizer and LeakSanitizer; then looks at the library as it is released. Safe to run again;
# builds below build/ only.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-packages.sh test

./scripts/test-presets.sh dev asan

echo "== The released library: dependencies, symbols, sealing"
cmake --preset release
cmake --build --preset release --target olv-twamp
ctest --preset release -R '^abi\.'
