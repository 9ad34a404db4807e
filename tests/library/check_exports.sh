#!/bin/sh
# check_exports.sh LIBRARY SOURCE_FOLDER: the shared library, its version script and its public header agree with
# the list of exported names in exports.txt. What the library shows is what the header declares, nothing more or less.
set -eu
library=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
LC_ALL=C
export LC_ALL

list=$source/tests/library/exports.txt
sort -u "$list" >"$work/list"
cmp -s "$list" "$work/list" || { echo "exports.txt is not sorted or names something twice"; exit 1; }
[ "$(wc -l <"$list")" -eq 61 ] || { echo "exports.txt does not hold 61 names"; exit 1; }

# The version script: the lines between "global:" and "local:".
sed -n '/global:/,/local:/s/^ *\([A-Za-z0-9_]*\);$/\1/p' "$source/core/exports.map" | sort >"$work/map"
# The header: the name before the first parenthesis of each declaration that carries the export mark.
sed -e 's|//.*||' -e '/^ *#/d' "$source/include/tarsil32.h" | tr '\n' ' ' | tr ';{}' '\n\n\n' |
    sed -n 's/^.*TARSIL32_API[^(]*[ *]\([A-Za-z0-9_]*\) *(.*$/\1/p' | sort >"$work/header"
# The library: every dynamic symbol it defines, the version node (an absolute symbol) apart.
nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $2, $3 }' >"$work/symbols"
awk '{ print $2 }' "$work/symbols" | sort >"$work/library"

failed=0
agree() { # agree WHAT FILE
    diff "$work/list" "$work/$2" >"$work/diff" && return 0
    echo "$1 does not agree with exports.txt (< only there, > only in $1):"
    grep '^[<>]' "$work/diff"
    failed=1
}
agree "the version script" map
agree "the public header" header
agree "the library" library
if awk '$1 != "T"' "$work/symbols" | grep .; then
    echo "these exported symbols are not functions"
    failed=1
fi
exit $failed
