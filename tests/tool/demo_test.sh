# demo_test.sh EXAMPLES: the demo runs to its end, and says what it is there to show.
set -eu
"$1/demo.sh" "$1/airports.csv" >demo.txt 2>&1 || { cat demo.txt; exit 1; }
for line in 'airports.dat: 5,210 records added' '^importing .* %, .* records, .* a second' '^ident *LSZH' \
    'To mend it: tarsil repair airports.dat airports.idx' 'the header made anew' 'airports.idx: built anew' \
    'deleted records taken out' 'airports.dat: sound' '^# The files are in /'; do
    grep -q -- "$line" demo.txt || { cat demo.txt; echo "missing: $line"; exit 1; }
done
# Nothing of the first import is lost, and not all of the second went in.
rows=$(tarsil export airports.dat --no-header | wc -l)
[ "$rows" -gt 5207 ] && [ "$rows" -lt 7807 ] || { echo "$rows records"; exit 1; }
