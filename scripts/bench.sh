#!/usr/bin/env bash
# Times the library's operations on the software platform, with the console off, beside their floors: functions that
# make the same platform calls and nothing else. Fails where an operation takes over 1.15 times as long as its floor.
# The figures are the ratios, of processor time; the times are this machine's. Many short runs take turns, so that what
# else the machine does slows down both alike. Safe to run again; builds below build/ only.
#   scripts/bench.sh                      half a minute
#   scripts/bench.sh BENCHMARK_OPTION...  as Google Benchmark has them, such as --benchmark_repetitions=5
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-packages.sh bench

echo '== Configuring and building'
cmake --preset bench
cmake --build --preset bench --target library_bench

echo '== Timing'
report=build/bench/library_bench.json
build/bench/bench/library/library_bench --benchmark_enable_random_interleaving=true --benchmark_repetitions=51 \
  --benchmark_min_time=0.003 --benchmark_display_aggregates_only=true --benchmark_out="$report" \
  --benchmark_out_format=json "$@" >build/bench/library_bench.txt
python3 -B bench/library_report.py "$report"
