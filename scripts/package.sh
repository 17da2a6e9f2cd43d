#!/usr/bin/env bash
# Builds the Debian packages from the release builds, into build/packages/. Safe to run again.
#   scripts/package.sh [amd64|armhf]...     amd64 if none is named
# Files in the packages are dated SOURCE_DATE_EPOCH; without it, like the last commit.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

umask 022 # cpack writes it into the packages
packages=build/packages

make_packages() { # ARCHITECTURE PRESET TRIPLET TARGET...
  local architecture=$1 preset=$2 triplet=$3 tree=build/$2
  shift 3
  echo "== Packages for $architecture"
  # What has been built there stays as it is: only where things are installed changes.
  cmake --preset "$preset" -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="lib/$triplet" \
    -DCMAKE_SKIP_INSTALL_RPATH=ON -DCMAKE_SKIP_INSTALL_ALL_DEPENDENCY=ON \
    -DCPACK_DEBIAN_PACKAGE_ARCHITECTURE="$architecture"
  cmake --build "$tree" --target "$@"
  rm -f "$tree"/*.deb "$packages"/*_"$architecture".deb
  (cd "$tree" && cpack)
  mv "$tree"/*.deb "$packages"
  cmake --preset "$preset" >/dev/null # for whoever installs from there
}

(($# > 0)) || set -- amd64
mkdir -p "$packages"
scripts/install-packages.sh package
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)} || {
  echo 'package: outside a git checkout SOURCE_DATE_EPOCH has to be set' >&2
  exit 1
}
export SOURCE_DATE_EPOCH
for architecture; do
  case $architecture in
    amd64) make_packages amd64 release x86_64-linux-gnu olv-twamp olv-sim twampctl twamp-probe ;;
    armhf)
      scripts/install-packages.sh cross
      make_packages armhf arm arm-linux-gnueabihf olv-twamp
      ;;
    *)
      echo "package: unknown architecture '$architecture'; there are 'amd64' and 'armhf'" >&2
      exit 2
      ;;
  esac
done

echo "== $packages"
(cd "$packages" && sha256sum -- *.deb)
