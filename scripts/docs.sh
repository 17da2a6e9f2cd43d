#!/usr/bin/env bash
# Makes the API reference of the public headers: build/docs/html/index.html. Fails for a symbol without a comment, and
# in the C headers for a parameter or a result without one. Safe to run again; builds below build/ only.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-packages.sh docs

work=build/docs
rm -rf "$work"
mkdir -p "$work/strict"

# Run Doxygen with docs/Doxyfile and settings that replace what stands there.
document() { # SETTING...
  { cat docs/Doxyfile && printf '%s\n' "$@"; } | doxygen - 2>"$work/doxygen.log"
}

# Doxygen itself says nothing of enumerators.
enumerators_without_comment() { # FOLDER OF XML
  awk '
    /<enumvalue / { inside = 1; described = 0 }
    inside && /<name>/ { name = $0; gsub(/ *<[^>]*>/, "", name) }
    inside && /<para>/ { described = 1 }
    /<\/enumvalue>/ { if (!described) print name; inside = 0 }
  ' "$1"/*.xml | sort -u
}

fail() { # MESSAGE FILE
  echo "docs: $1" >&2
  cat "$2" >&2
  exit 1
}

xml=('GENERATE_XML = YES')
strict=("${xml[@]}" "OUTPUT_DIRECTORY = $work/strict" "WARN_LOGFILE = $work/strict.log" 'WARN_NO_PARAMDOC = YES')

echo '== Gaps are noticed'
cat >"$work/sample.h" <<'END'
/** @file sample.h A header with gaps. */
/** A function. @param value A value. @return Another one. */
int complete(int value);
/** A function whose parameter and result have no word. */
int lacking_words(int value);
int lacking_a_comment(int value);
/** A record. */
struct record {
    int lacking_field;
};
/** Values. */
enum values {
    described_value, /**< A value. */
    lacking_value
};
END
if document "${strict[@]}" "INPUT = $work/sample.h"; then
  fail 'gaps in a header went unnoticed' "$work/sample.h"
fi
for gap in 'parameters of member lacking_words' 'return type of member lacking_words' \
  'Member lacking_a_comment' 'Member lacking_field'; do
  grep -q "$gap" "$work/strict.log" || fail "went unnoticed: $gap" "$work/strict.log"
done
[[ $(enumerators_without_comment "$work/strict/xml") == lacking_value ]] ||
  fail 'went unnoticed: lacking_value' "$work/sample.h"
! grep -q 'complete' "$work/strict.log" || fail 'what is complete was reported' "$work/strict.log"

echo '== Every parameter and result of the C headers has a word'
document "${strict[@]}" 'INPUT = include platform sim/olv_sim.h' || fail 'the C headers have gaps' "$work/strict.log"

echo '== Every symbol has a comment'
document "${xml[@]}" || fail 'the headers have gaps' "$work/warnings.log"
enumerators_without_comment "$work/xml" >"$work/enumerators"
[[ ! -s $work/enumerators ]] || fail 'enumerators without a comment:' "$work/enumerators"
rm -r "$work/strict" "$work/xml" "$work/enumerators" "$work/sample.h"
echo "made $work/html/index.html: $(find "$work/html" -name '*.html' | wc -l) pages"
