#!/usr/bin/env bash
# Mutation testing: makes small wrong changes in the library, one at a time, runs its tests with each, and lists the
# changes that no test notices. Builds below build/ only; the sources stay as they are.
#   scripts/mutation.sh                         every mutant
#   scripts/mutation.sh --sample 40 --seed 1    some of them
#   scripts/mutation.sh --help                  what else there is
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

case " $* " in
  *' --list '* | *' --help '* | *' -h '*) ;; # neither builds nor tests
  *)
    ./scripts/install-packages.sh
    cmake --preset dev >/dev/null
    cmake --build --preset dev --target library_tests
    ;;
esac
exec python3 -B tests/mutation/mutation.py "$@"
