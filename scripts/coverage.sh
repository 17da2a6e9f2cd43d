#!/usr/bin/env bash
# Prints which share of the code the tests execute, of the library (twamp/) and of the other parts. Fails where the
# library is not covered to the last line and branch, or less than 95 % of the lines of another part are. Safe to run
# again; builds below build/ only.
#   scripts/coverage.sh            build, run the tests, report
#   scripts/coverage.sh report     report what scripts/test.sh has executed
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

case "$*" in
  '')
    ./scripts/install-packages.sh test coverage
    find build/coverage -name '*.gcda' -delete 2>/dev/null || true
    ./scripts/test-presets.sh coverage
    ;;
  report) ./scripts/install-packages.sh coverage ;;
  *)
    echo 'usage: scripts/coverage.sh [report]' >&2
    exit 2
    ;;
esac

parts=(net/ sim/ fastpath/ probe/ apps/)
# Branches that only an exception takes, of calls and of the compiler's own clean-up, are no decisions of the code.
gcovr_options=(--root . --exclude-unreachable-branches --exclude-throw-branches)
counts=build/coverage/counts.json

report() { # FOLDER OPTION...
  local folder=$1
  shift
  echo "== Coverage of $folder"
  gcovr "${gcovr_options[@]}" --add-tracefile "$counts" --filter "$folder" --print-summary \
    --txt "build/coverage/${folder%/}.txt" "$@"
}

echo '== Reading the counts'
gcovr "${gcovr_options[@]}" --object-directory build/coverage --filter twamp/ "${parts[@]/#/--filter=}" \
  -j "$(nproc)" --json "$counts"

failed=()
report twamp/ --fail-under-line 100 --fail-under-branch 100 || failed+=(twamp/)
for part in "${parts[@]}"; do
  report "$part" --fail-under-line 95 || failed+=("$part")
done
if ((${#failed[@]} != 0)); then
  echo "coverage: not enough of ${failed[*]}: see build/coverage/*.txt" >&2
  exit 1
fi
