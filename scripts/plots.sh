#!/usr/bin/env bash
# Fills in the tables of docs/performance.md, and draws plots in build/bench/plots/, from what scripts/bench.sh left in
# build/bench/ and from bench/baseline.json. A part that was not measured, or only by a quick run, is told and left
# out. The plot that the page shows is copied to docs/performance/. Safe to run again.
#   scripts/plots.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-packages.sh bench
/usr/bin/python3 -B bench/tables.py build/bench docs/performance.md
rm -rf build/bench/plots
status=0
/usr/bin/python3 -B bench/plots.py build/bench build/bench/plots || status=$?
[[ ! -e build/bench/plots/scale.svg ]] || cp build/bench/plots/scale.svg docs/performance/
exit "$status"
