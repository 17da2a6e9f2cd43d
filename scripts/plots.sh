#!/usr/bin/env bash
# Draws the plots of docs/performance.md from what scripts/bench.sh left in build/bench/. Safe to run again.
#   scripts/plots.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-packages.sh bench
exec /usr/bin/python3 -B bench/plots.py build/bench docs/performance
