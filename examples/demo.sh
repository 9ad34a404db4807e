#!/bin/sh
# The demo of the tool: the airports of the world in a data file with three keys, from the CSV that is given, in the
# current folder. Each command is printed in front of what it answers. `tarsil` has to be in PATH.
#
# usage: demo.sh AIRPORTS.csv
set -eu
airports=$1

tell() { printf '\n# %s\n' "$*"; }
run() {
    printf '$ %s\n' "$1"
    eval "$1"
}
# finds_damage COMMAND: one that has to answer 1.
finds_damage() {
    status=0
    run "$1" || status=$?
    [ "$status" -eq 1 ] || { echo "demo: answered $status" >&2; exit 1; }
}

tell "A data file for airports, with a name and a type for each field."
run "tarsil create airports.dat --field id:i32 --field ident:text:8 --field iata:text:4 --field size:text:8 \\
    --field name:text:80 --field municipality:text:40 --field country:text:2 --field region:text:8 \\
    --field latitude:f64 --field longitude:f64 --field elevation_ft:i32 --field scheduled:text:3"

tell "All rows of the CSV, with progress told more often than usual."
run "TARSIL_PROGRESS=0.01 tarsil import airports.dat $airports --empty-is-zero"

tell "Three keys over them."
run "tarsil index airports.dat airports.idx --key ident --key country,name --key latitude"
run "tarsil info airports.dat airports.idx"

tell "By code; by the beginning of a name within a country; by the nearest latitude."
run "tarsil find airports.dat airports.idx ident LSZH"
run "tarsil find airports.dat airports.idx country,name JP Os --prefix --format csv"
run "tarsil find airports.dat airports.idx latitude --nearest 47.0"

tell "Iceland in the order of names."
run "tarsil export airports.dat --by airports.idx:country,name --from IS --to IS | cut -d , -f 2,5,6"

tell "A change in place; one that changes a key, for which the record moves; three deletions."
run "tarsil update airports.dat 1 airports.idx --set 'municipality=Aleknagik Lake'"
run "tarsil update airports.dat 2 airports.idx --set 'name=Khost Airport' --move"
run "tarsil delete airports.dat 3 4 5"
run "tarsil check airports.dat airports.idx"

tell "The same airports again, but the import is killed half way through."
run "mkfifo rows"
run "tarsil import airports.dat airports.idx rows --empty-is-zero & import=\$!"
run "{ head -n 2600 $airports; kill -9 \$import; } > rows"
wait "$import" 2>wait.txt || true
rm -f wait.txt rows
finds_damage "tarsil check airports.dat airports.idx"

tell "What it left is brought back by the commands that it names."
status=0
run "tarsil repair airports.dat airports.idx" || status=$?
[ "$status" -le 1 ]
run "tarsil reindex airports.dat airports.idx"
run "tarsil check airports.dat airports.idx"

tell "The deleted records out and their space back; then all of it as CSV."
run "tarsil compact airports.dat airports.idx"
run "tarsil check airports.dat airports.idx"
run "tarsil export airports.dat --output airports.csv"
run "head -n 3 airports.csv"

tell "The files are in $(pwd):"
run "ls -l"
