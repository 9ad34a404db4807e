# Kills of compact, reindex and repair: before every step at which files change their names or go to the disk, and at
# random moments: TOOL_KILL_ROUNDS (10) of the latter, as TOOL_KILL_SEED says. How many were met goes to totals.txt.

$ tarsil create a.dat --field id:i32 --field name:text:20; seq 1 300 | sed 's/$/,a name/' | tarsil import a.dat - --no-header
> tarsil index a.dat a.idx --key id --key name,id; mkdir far; tarsil index a.dat far/b.idx --key name
> tarsil delete a.dat $(seq 7 7 300) > out.txt; mkdir kept; cp -p a.dat a.dat.fields a.idx far/b.idx kept
a.dat: 2 fields, records of 24 bytes
a.dat: 300 records added
a.idx: 2 keys over 300 records: (id), (name, id)
far/b.idx: 1 key over 300 records: (name)

# stumble STEP COMMAND...: killed there, or not at all. records: how many there are, all files being sound.
$ cat > tools << 'END'
> files='a.dat a.idx far/b.idx'
> restore() { rm -rf far a.*; mkdir far; cp -p kept/a.* .; cp -p kept/b.idx far; }
> stumble() {
> step=$1; shift
> (LD_PRELOAD=$STUMBLE ASAN_OPTIONS=verify_asan_link_order=0 TOOL_STUMBLE=$step "$@" > out.txt 2>&1; exit $?) 2> shell.txt
> status=$?; [ $status -eq 0 ] || [ $status -eq 137 ] || cat out.txt
> [ $status -ne 0 ]
> }
> records() { tarsil check $files --json > found.txt 2>&1 || cat found.txt; sed -n '/"records"/{s/[^0-9]//g; p}' found.txt; }
> is_as_before() { cmp -s a.dat kept/a.dat && cmp -s a.idx kept/a.idx && cmp -s far/b.idx kept/b.idx && echo as before; }
> END

# The checker is content at once; the next command that opens the file finishes what was begun, or nothing was; and the
# next compaction leaves no trace of the killed one.
$ cat > compact << 'END'
> . ./tools; restore; tarsil compact $files > out.txt; clean=$(ls a.* far)
> for step in $(seq 99); do
> restore; stumble $step tarsil compact $files || break
> plan=$(ls a.dat.compacting 2> ls.txt); count=$(records); before=$(is_as_before)
> tarsil get a.dat 1 > got.txt 2>&1
> echo "$count${plan:+, planned}${before:+, as before}" $(grep -o 'has been.*' got.txt)
> [ "$(records)" = "$count" ] && [ ! -e a.dat.compacting ] || echo "step $step: $(records) records"
> tarsil compact $files > out.txt 2>&1; [ "$(records)" = 258 ] && [ "$(ls a.* far)" = "$clean" ] || echo "step $step: $(ls a.* far)"
> done
> END
$ sh compact | uniq
300, as before
258, planned, as before has been finished
258, planned has been finished
258

# A program that knows nothing of the journal adds a record before the next command comes: what it added stays.
$ cat > add_meanwhile << 'END'
> . ./tools
> for step in $(seq 99); do
> restore; stumble $step tarsil compact $files || break
> [ -e a.dat.compacting ] || continue
> tool_hold add a.dat; told=$(tarsil get a.dat 1 2>&1 | grep -o 'has been [a-z]*'); tarsil reindex $files > out.txt
> echo "$told: $(records), $(tarsil export a.dat | grep -c '^2139062143') added" $(ls a.* far | grep compact)
> done
> END
$ sh add_meanwhile | uniq
has been undone: 301, 1 added
has been finished: 259, 1 added

$ cat > others << 'END'
> . ./tools
> for step in $(seq 99); do
> restore; stumble $step tarsil reindex a.dat a.idx || break
> count=$(records); tarsil reindex a.dat a.idx > out.txt; [ "$count $(records)" = '300 300' ] && [ ! -e a.idx.reindexing ] || echo "step $step: $count"
> done
> for step in $(seq 99); do
> restore; head -c 8000 kept/a.dat > a.dat; stumble $step tarsil repair a.dat || break
> tarsil repair a.dat > out.txt; tarsil check a.dat
> done | uniq
> END
$ sh others
a.dat: sound; 248 records, 35 of them deleted, 7,980 bytes

# In a fixed order of delays, up to the time that the command takes.
$ cat > at_random << 'END'
> . ./tools; seq 1 5000 | sed 's/$/,a name/' > rows; restore; tarsil import $files rows --no-header > out.txt; cp -p a.* far/b.idx kept
> for command in compact reindex; do
> restore; start=$(date +%s%N); tarsil $command $files > out.txt; took=$(($(date +%s%N) - start)); kills=0
> for delay in $(awk -v n=${TOOL_KILL_ROUNDS:-10} -v seed=${TOOL_KILL_SEED:-1} -v took=$took 'BEGIN { srand(seed); while (n-- > 0) print 0.001 + rand() * took / 1e9 }'); do
> restore; (timeout -s KILL $delay tarsil $command $files > out.txt 2>&1; exit $?) 2> shell.txt
> case $? in 137) kills=$((kills + 1)) ;; 0) ;; *) cat out.txt ;; esac
> count=$(records); before=$(is_as_before); tarsil get a.dat 1 > got.txt 2>&1
> case $command$count$before in compact5258* | compact5300'as before' | reindex5300*) ;; *) echo "$command, $delay: $count $before" ;; esac
> [ "$(records)" = $count ] || echo "$command, $delay: $(records) records"
> done; [ $kills -gt 0 ] || echo "none of $command"; echo "total: $kills kills of tarsil $command, seed ${TOOL_KILL_SEED:-1}" >> totals.txt
> done
> END
$ sh at_random
