#!/usr/bin/env bash
# Draws the plots of docs/performance.md, in docs/performance/, and fills in its tables, from what scripts/bench.sh left
# in build/bench/, and bench/baseline.json. What has a part that was not measured, or only by a quick run, stays as it
# is, which is said. Safe to run again.
#   scripts/plots.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-packages.sh bench
/usr/bin/python3 -B bench/tables.py build/bench bench/baseline.json docs/performance.md
exec /usr/bin/python3 -B bench/plots.py build/bench docs/performance
