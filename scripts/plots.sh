#!/usr/bin/env bash
# Draws the plots of docs/performance.md, in docs/performance/, from what scripts/bench.sh left in build/bench/. A plot
# stays as it is, which is said, where its part was not measured, or only by a quick run. Safe to run again.
#   scripts/plots.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-packages.sh bench
exec /usr/bin/python3 -B bench/plots.py build/bench docs/performance
