#!/usr/bin/env bash
# Makes the packages here and from a copy of the sources, and compares every library and package byte by byte. The
# two differ in what must not matter: length of the path, age and permissions of the files, umask, time zone, language.
# Safe to run again; builds below build/ only.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

work=$PWD/build/check-reproducible
first=$PWD
second=$work/another/directory/with/a/longer/name
architectures=(amd64 armhf)

# One date for both: a copy is not a clone.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
export SOURCE_DATE_EPOCH

copy_sources() { # DIRECTORY UMASK DATE
  mkdir -p "$1"
  git ls-files -z | tar --create --null --files-from=- |
    (umask "$2" && tar --extract --no-same-permissions --touch --directory="$1")
  find "$1" -exec touch --date="$3" {} +
}

make_packages() { # DIRECTORY UMASK VARIABLE...
  echo "== Packages in $1"
  (umask "$2" && env "${@:3}" "$1/scripts/package.sh" "${architectures[@]}") >"$work/log" 2>&1 ||
    { cat "$work/log"; exit 1; }
}

# Libraries, linked and in archives, and packages; paths below build/.
results() { # DIRECTORY
  (cd "$1/build" && find arm/twamp release/{apps,fastpath,net,probe,sim,twamp} packages \
    -type f \( -name '*.so.*' -o -name '*.a' -o -name '*.deb' \) | sort)
}

rm -rf "$work"
mkdir -p "$work"
copy_sources "$second" 077 2001-01-01
make_packages "$first" 022 TZ=UTC LC_ALL=C
make_packages "$second" 077 TZ=Asia/Kathmandu LC_ALL=C.UTF-8

echo '== Comparison'
diff <(results "$first") <(results "$second") || { echo 'check-reproducible: not the same files' >&2; exit 1; }
compared=0
different=0
while read -r file; do
  compared=$((compared + 1))
  cmp "$first/build/$file" "$second/build/$file" || different=$((different + 1))
done < <(results "$first")
((compared >= 8)) || { echo "check-reproducible: only $compared files were made" >&2; exit 1; }
if ((different != 0)); then
  echo "check-reproducible: $different of $compared files differ" >&2
  exit 1
fi
echo "$compared libraries and packages are the same, byte by byte"
