# salvage: copies what is whole, whatever the rest of the file is, and refuses without a trace.

$ tarsil create a.dat --field id:i32 --field t:text:28; tarsil index a.dat a.idx --key id
> seq 1 100 | sed 's/$/,text/' | tarsil import a.dat - --no-header 2> out.txt; tarsil delete a.dat $(seq 9 9 100) > out.txt
> tarsil salvage a.dat new.dat; cmp new.dat a.dat; cmp new.dat.fields a.dat.fields
> rm new.*; tarsil salvage a.dat new.dat --live; tarsil check new.dat; rm new.*
> tarsil salvage a.dat new.dat --dry-run --json | tr -d ' \n'
a.dat: 2 fields, records of 32 bytes
a.idx: 1 key over 0 records: (id)
a.dat: 100 records added
a.dat: records of 32 bytes, as the header tells; 2 fields; the first record at 44
new.dat: 100 records saved, 11 of them deleted
The index files of a.dat don't fit it: make new ones with `tarsil index`.
a.dat: records of 32 bytes, as the header tells; 2 fields; the first record at 44
new.dat: 89 records saved, 0 of them deleted
left out: 11 deleted records
The index files of a.dat don't fit it: make new ones with `tarsil index`.
new.dat: sound; 89 records, 0 of them deleted, 3,604 bytes
{"file":"a.dat","new_file":"new.dat","record_length":32,"record_length_known":"astheheadertells","first_record":44,"fields":2,"records":100,"deleted":11,"doubtful":0,"left_out":0,"gaps":0,"bytes_lost":0,"gap_list":[]}

$ echo something > taken.dat; head -c 3000 /dev/zero | tr '\0' x > noise
> for given in 'a.dat taken.dat' 'a.idx new.dat' 'noise new.dat' 'none.dat new.dat' 'a.dat no/new.dat' 'a.dat new.dat --record-length none' 'a.dat new.dat --field id'
> do tarsil salvage $given; done; (ulimit -f 4; tarsil salvage a.dat new.dat); cat taken.dat; ls new*
tarsil: salvage: taken.dat: exists already: choose another name, or remove it first
tarsil: salvage: a.idx: is an index file: indexes are made anew by `tarsil index`
tarsil: salvage: noise: no records were found in it: if it is a data file, tell what is known with --record-length and --start
tarsil: salvage: none.dat: there is no such file: check the name
tarsil: salvage: */no/new.dat.salvaging: the start of a new file cannot be reached, as when the file could not be created (TS_FILE_MARK_WRITE_POSITION, -1001): check the name and the permissions of the folder (glob)
tarsil: salvage: --record-length none: is no length: give a number of bytes, or the word variable
tarsil: salvage: --field id: no type: write NAME:TYPE, the type being i32, u32, i16, u16, u8, f32 or f64, or NAME:text:LENGTH
tarsil: salvage: */new.dat.salvaging: has reached the limit for the size of files (ulimit -f): raise the limit, and try again (glob)
something
ls: cannot access 'new*': No such file or directory
[2]

# Damaged files: records of 40 bytes from 44 on, the 50th at 2004. with PLACE BYTES, fill PLACE COUNT BYTE: puts them
# there; lose PLACE COUNT: takes them out.
$ cp a.dat good; cat > salvaged << 'END'
> with() { printf "$2" | dd of=a.dat bs=1 seek=$1 conv=notrunc 2> dd.txt; }
> fill() { head -c $2 /dev/zero | tr '\0' "$3" | dd of=a.dat bs=1 seek=$1 conv=notrunc 2> dd.txt; }
> lose() { { head -c $1 good; tail -c +$(($1 + $2 + 1)) good; } > a.dat; }
> while IFS=: read -r what damage options; do
> cp good a.dat; eval "$damage"; cp a.dat before
> tarsil salvage a.dat new.dat $options > told.txt 2>&1; echo "$what: $? $(sed -n 's/^new.dat: //p' told.txt)"
> cmp a.dat before; tarsil check new.dat > check.txt || cat check.txt; rm -f new.*
> done
> END
$ sh salvaged << 'END'
> a wrong mark: with 0 '????'
> a header of noise: fill 0 28 Z
> no header at all: fill 0 44 '\377'
> a wrong record length: with 12 @
> a header that tells fewer records: with 4 '\1\0\0\0'
> a wrong end of the field table: with 20 '\20'
> one damaged frame: with 2004 '\377\377\377\377\377'
> the same, its body wanted: with 2004 '\377\377\377\377\377': --doubtful
> every second frame of some: with 2008 '\377'; with 2088 '\377'; with 2168 '\377'
> a hole of zeros: fill 2004 400 '\0'
> a hole of zeros, doubtful: fill 2004 400 '\0': --doubtful
> 13 bytes lost: lose 3209 13
> whole records lost: lose 3204 200
> bytes put in: { head -c 364 good; printf 12345; tail -c +365 good; } > a.dat
> half a record at the end: lose 4035 9
> zeros behind the end: fill 4044 999 '\0'
> noise behind the end: fill 4044 999 3
> a start that is told: fill 0 400 '\377': --start 404 --record-length 32
> END
a wrong mark: 0 100 records saved, 11 of them deleted
a header of noise: 0 100 records saved, 11 of them deleted
no header at all: 0 100 records saved, 11 of them deleted
a wrong record length: 0 100 records saved, 11 of them deleted
a header that tells fewer records: 0 100 records saved, 11 of them deleted
a wrong end of the field table: 0 100 records saved, 11 of them deleted
one damaged frame: 1 99 records saved, 11 of them deleted
the same, its body wanted: 1 100 records saved, 11 of them deleted
every second frame of some: 1 97 records saved, 10 of them deleted
a hole of zeros: 1 90 records saved, 10 of them deleted
a hole of zeros, doubtful: 1 90 records saved, 10 of them deleted
13 bytes lost: 1 99 records saved, 10 of them deleted
whole records lost: 0 95 records saved, 10 of them deleted
bytes put in: 1 100 records saved, 11 of them deleted
half a record at the end: 1 99 records saved, 11 of them deleted
zeros behind the end: 0 100 records saved, 11 of them deleted
noise behind the end: 1 100 records saved, 11 of them deleted
a start that is told: 0 91 records saved, 10 of them deleted

# Frames of variable length are found again behind any damage; a byte costs two records at most.
$ tarsil create v.dat --field id:i32 --field note:text:500 --variable
> seq 1 300 | awk '{ printf "%d,%*d\n", $1, $1 % 90 + 1, 1 }' | tarsil import v.dat - --no-header; cp v.dat good
> for seed in $(seq 15); do
> cp good v.dat
> for place in $(awk -v seed=$seed -v size=$(wc -c < good) 'BEGIN { srand(seed); for (n = seed % 4; n >= 0; --n) print 44 + int(rand() * (size - 44)) }'); do
> printf '\251' | dd of=v.dat bs=1 seek=$place conv=notrunc 2> dd.txt
> done
> tarsil salvage v.dat new.dat > told.txt; count=$(sed -n 's/new.dat: \([0-9]*\) records.*/\1/p' told.txt)
> [ "$count" -le 300 ] && [ "$count" -ge $((298 - 2 * (seed % 4))) ] || cat told.txt; tarsil check new.dat > check.txt || cat check.txt; rm new.*
> done
v.dat: 2 fields, records of variable length
v.dat: 300 records added
