#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, as far as they are missing.
#   scripts/install-packages.sh            compiler, build tools, the libraries of the programs and of the tests
#   scripts/install-packages.sh SET...     also what these sets name:
#     test       the tools that tests run
#     docs       what makes the API reference
#     lint       the second compiler and the linters
#     fuzz       the compilers and run-time libraries of the fuzzers
#     package    what makes and checks packages
#     cross      the cross compilers, the emulator and GoogleTest's sources
#     coverage   what reports coverage
#     bench      the benchmark library, what counts instructions and what draws
set -euo pipefail

packages=(build-essential cmake ninja-build g++ libgtest-dev libgmock-dev libcli11-dev libedit-dev
  liblttng-ust-dev libmicrohttpd-dev nlohmann-json3-dev pkgconf prometheus-cpp-dev abigail-tools python3
  python3-pyelftools)
for set in "$@"; do
  case $set in
    test) packages+=(babeltrace2 bash-completion gnuplot-nox iproute2 lttng-tools mandoc python3-matplotlib
      python3-pexpect python3-pyte python3-scapy tshark) ;;
    docs) packages+=(doxygen) ;;
    lint) packages+=(clang-14 clang-format-14 clang-tidy-14 git libclang-rt-14-dev shellcheck) ;;
    fuzz) packages+=(afl++ clang-14 libclang-rt-14-dev llvm-14) ;;
    package) packages+=(dpkg-dev file git) ;;
    cross) packages+=(g++-arm-linux-gnueabihf g++-powerpc-linux-gnu googletest qemu-user) ;;
    coverage) packages+=(gcovr) ;;
    bench) packages+=(libbenchmark-dev python3-matplotlib valgrind) ;;
    *)
      echo "install-packages: unknown set '$set'; there are test, docs, lint, fuzz, package, cross, coverage, bench" >&2
      exit 2
      ;;
  esac
done

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
