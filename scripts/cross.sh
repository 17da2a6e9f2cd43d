#!/usr/bin/env bash
# Builds the library, the software platform and the fast path for 32-bit ARM and for big-endian 32-bit PowerPC,
# and runs their tests under emulation: ARM as it is shipped, PowerPC with UndefinedBehaviorSanitizer. (ARM with
# AddressSanitizer is a stage of scripts/nightly.sh.) Safe to run again; builds below build/ only.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-packages.sh cross

./scripts/test-presets.sh arm ppc

echo '== Size of the library on ARM'
ctest --preset arm -R '^abi\.Size' --verbose | grep -E '[0-9]: (\.text|largest)'
