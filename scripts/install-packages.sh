#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, as far as they are missing.
#   scripts/install-packages.sh            compiler, build tools, test and command-line libraries
#   scripts/install-packages.sh lint       also the second compiler and the linters
#   scripts/install-packages.sh fuzz       also the compilers and run-time libraries of the fuzzers
#   scripts/install-packages.sh package    also what makes and checks packages
#   scripts/install-packages.sh cross      also the cross compilers, the emulator and GoogleTest's sources
#   scripts/install-packages.sh coverage   also what reports coverage
set -euo pipefail

packages=(build-essential cmake ninja-build g++ libgtest-dev libgmock-dev libcli11-dev abigail-tools python3
  python3-pyelftools)
case "${1:-}" in
  '') ;;
  lint) packages+=(clang-14 clang-format-14 clang-tidy-14 git libclang-rt-14-dev shellcheck) ;;
  fuzz) packages+=(afl++ clang-14 libclang-rt-14-dev llvm-14) ;;
  package) packages+=(dpkg-dev file git pkgconf) ;;
  cross) packages+=(g++-arm-linux-gnueabihf g++-powerpc-linux-gnu googletest qemu-user) ;;
  coverage) packages+=(gcovr) ;;
  *)
    echo "install-packages: unknown argument '$1'; there are 'lint', 'fuzz', 'package', 'cross', 'coverage' or none" >&2
    exit 2
    ;;
esac

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null) || status=
  [[ $status == installed ]] || missing+=("$package")
done
if ((${#missing[@]} == 0)); then
  echo 'packages: all there'
  exit 0
fi

as_root=()
if ((EUID != 0)); then
  if ! command -v sudo >/dev/null; then
    echo "install-packages: neither root nor sudo to install with: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi

echo "packages: installing ${missing[*]}"
# Only errors are of interest; sudo would drop an exported variable.
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -qq --yes --no-install-recommends "${missing[@]}" >/dev/null
echo 'packages: installed'
