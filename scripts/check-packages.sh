#!/usr/bin/env bash
# Makes the Debian packages and checks what they hold and what can be done with them: unpacked, not installed,
# they serve to build a program in C and one in C++, by way of pkg-config and by way of CMake.
# Safe to run again; builds below build/ only.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

packages=build/packages
work=$PWD/build/check-packages
root=$work/root        # all packages for amd64
no_sim=$work/no-sim    # those without the software platform
armhf=$work/armhf      # all packages for armhf
libraries=$root/usr/lib/x86_64-linux-gnu
failures=0

check() { # WHAT COMMAND...; what the command prints is shown if it fails
  local what=$1
  shift
  if "$@" >"$work/output" 2>&1; then
    printf '  good  %s\n' "$what"
  else
    cat "$work/output"
    printf '  BAD   %s\n' "$what"
    failures=$((failures + 1))
  fi
}

prints() { # EXPECTED COMMAND...
  local expected=$1 output
  shift
  output=$("$@") || { printf 'exit status %s\n' $?; return 1; }
  diff -u <(printf '%s\n' "$expected") <(printf '%s\n' "$output")
}

# --------------------------------------------------------------------------------------------------------
# What the packages hold
# --------------------------------------------------------------------------------------------------------

# Nothing for a file that is not ELF.
describe_elf() { # FILE NAME
  readelf --file-header --sections --dynamic "$1" 2>/dev/null | awk -v name="$2" '
    $1 == "Class:" { class = $2 }
    $1 == "Machine:" { machine = $NF }
    / \.symtab / { symbols = ", not stripped" }
    /\((RPATH|RUNPATH)\)/ { run_path = ", run path " $NF }
    END { if (class != "") print "elf: " name " " class " " machine symbols run_path }' || true
}

# Fields; control files; mode, owner and path of each file; what the programs and libraries are made for.
describe() { # PACKAGE
  local unpacked=$work/unpacked file
  rm -rf "$unpacked"
  dpkg-deb --raw-extract "$1" "$unpacked"
  dpkg-deb --field "$1" Package Source Version Architecture Section Priority Maintainer Depends
  for file in shlibs triggers; do
    [[ ! -e $unpacked/DEBIAN/$file ]] || sed "s/^/$file: /" "$unpacked/DEBIAN/$file"
  done
  dpkg-deb --fsys-tarfile "$1" | tar --list --verbose | sed -E 's/^(\S+ \S+) +\S+ \S+ \S+ /\1 /'
  dpkg-deb --fsys-tarfile "$1" | tar --list | while read -r file; do
    [[ -d $unpacked/$file || -L $unpacked/$file ]] || describe_elf "$unpacked/$file" "$file"
  done
}

holds() { # PACKAGE
  diff -u "tests/package/contents/$(basename "$1" .deb).txt" <(describe "$1")
}

sums_agree() { # PACKAGE ROOT
  dpkg-deb --info "$1" md5sums | (cd "$2" && md5sum --check --quiet --strict)
}

newest_c_library() { # FILE
  readelf --version-info "$1" | grep -oE 'GLIBC_[0-9.]+' | sort --version-sort --unique | tail -n 1
}

unpack() { # ROOT PACKAGE...
  local package
  for package in "${@:2}"; do
    dpkg-deb --extract "$package" "$1"
  done
}

# --------------------------------------------------------------------------------------------------------
# What can be built with them
# --------------------------------------------------------------------------------------------------------

# Environment of whoever uses the unpacked packages.
in_root() { # COMMAND...
  env PKG_CONFIG_SYSROOT_DIR="$root" PKG_CONFIG_LIBDIR="$libraries/pkgconfig" LD_LIBRARY_PATH="$libraries" "$@"
}

build_with_pkg_config() { # SOURCE PROGRAM COMPILER...
  local flags
  read -ra flags < <(in_root pkg-config --cflags --libs olv-twamp olv-sim)
  "${@:3}" -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror "$1" "${flags[@]}" -o "$2"
}

configure() { # SOURCE TREE ROOT OPTION...
  cmake -G Ninja -S "$1" -B "$2" -DCMAKE_PREFIX_PATH="$3/usr" "${@:4}"
}

build_with_cmake() { # SOURCE TREE
  configure "$1" "$2" "$root" -DCMAKE_BUILD_TYPE=Release && cmake --build "$2"
}

# Whether find_package(olv-twamp WANTED) leads to a text of the configuration.
finds() { # TEXT ROOT WANTED
  local output
  rm -rf "$work/components"
  output=$(configure tests/package/components "$work/components" "$2" -DWANTED="$3" 2>&1 |
    tr -s '[:space:]' ' ') || true # it is to fail here and there
  printf '%s\n' "$output"
  [[ $output == *"$1"* ]]
}

# --------------------------------------------------------------------------------------------------------

scripts/package.sh amd64 armhf
rm -rf "$work"
mkdir -p "$work"
unpack "$root" "$packages"/*_amd64.deb
unpack "$no_sim" "$packages"/libolv-twamp*_amd64.deb
unpack "$armhf" "$packages"/*_armhf.deb

echo '== What the packages hold'
check 'five packages' prints "libolv-twamp-dev_1.0.0_amd64.deb
libolv-twamp-dev_1.0.0_armhf.deb
libolv-twamp1_1.0.0_amd64.deb
libolv-twamp1_1.0.0_armhf.deb
olv-twamp-sim_1.0.0_amd64.deb" env LC_ALL=C ls "$packages"
for package in "$packages"/*.deb; do
  check "$(basename "$package"): fields and files" holds "$package"
done
for package in "$packages"/*_amd64.deb; do
  check "$(basename "$package"): check sums" sums_agree "$package" "$root"
done
for package in "$packages"/*_armhf.deb; do
  check "$(basename "$package"): check sums" sums_agree "$package" "$armhf"
done
check 'armhf: the C library that the dependency names is new enough' prints GLIBC_2.4 \
  newest_c_library "$armhf/usr/lib/arm-linux-gnueabihf/libolv-twamp.so.1"

echo '== What can be built with them'
line='responder 1: 0 received, 0 transmitted'
check 'C, pkg-config: builds' build_with_pkg_config tests/package/c/main.c "$work/c" cc -std=c11
check 'C, pkg-config: runs' prints "$line" in_root "$work/c"
check 'C++, pkg-config: builds' build_with_pkg_config tests/package/cpp/main.cpp "$work/cpp" c++ -std=c++20
check 'C++, pkg-config: runs' prints "$line" in_root "$work/cpp"
for language in c cpp; do
  check "$language, CMake: builds" build_with_cmake "tests/package/$language" "$work/cmake-$language"
  check "$language, CMake: runs" prints "$line" in_root "$work/cmake-$language/module"
done

echo '== What find_package finds'
check 'the library' finds 'there is: olv-twamp::olv-twamp.' "$root" 'REQUIRED'
check 'the library and the platform' finds 'there is: olv-twamp::olv-twamp olv-twamp::olv-sim.' "$root" \
  'REQUIRED;COMPONENTS;sim'
check 'no platform where it is not installed' finds "The component 'sim', the software platform, is not installed" \
  "$no_sim" 'REQUIRED;COMPONENTS;sim'
check 'the library where the platform is only welcome' finds 'there is: olv-twamp::olv-twamp.' "$no_sim" \
  'REQUIRED;OPTIONAL_COMPONENTS;sim'
check 'no other component' finds "There is no component 'simulator'; there is 'sim'." "$root" \
  'REQUIRED;COMPONENTS;simulator'
check 'no other major version' finds 'version: 1.0.0' "$root" '2;REQUIRED'

echo '== The programs'
check 'twampctl starts' in_root "$root/usr/bin/twampctl" --help
check 'twampctl loads what traces to LTTng' in_root "$root/usr/bin/twampctl" run --listen 127.0.0.1:0 --duration 0 \
  --trace lttng
check 'twamp-probe starts' in_root "$root/usr/bin/twamp-probe" --help

if ((failures != 0)); then
  printf 'check-packages: %s check(s) failed, see above\n' "$failures" >&2
  exit 1
fi
