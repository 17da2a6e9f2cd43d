#!/usr/bin/env bash
# Lets everything happen at once for a while: random control operations on thousands of responders, random faults,
# packets of several senders. Then nothing may be left and every counter has to add up. Safe to run again.
#   scripts/soak.sh MINUTES [SEED]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if (($# < 1 || $# > 2)) || ! [[ $1 =~ ^[0-9]+([.][0-9]+)?$ ]] || ! [[ ${2:-1} =~ ^[0-9]+$ ]]; then
  echo 'usage: scripts/soak.sh MINUTES [SEED]' >&2
  exit 2
fi

./scripts/install-packages.sh
cmake --preset dev
cmake --build --preset dev --target soak

echo "== Soaking for $1 minute(s)"
build/dev/tests/soak/soak --seconds "$(awk -v minutes="$1" 'BEGIN { print minutes * 60 }')" --seed "${2:-1}"
