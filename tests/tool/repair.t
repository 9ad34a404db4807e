# repair: the header made anew from the records, and half a record at the end cut off; nothing where more is wrong.

# Records of 40 bytes from 44 on, the last one at 2004. header: as it was when there were 30, none of them deleted.
$ tarsil create a.dat --field id:i32 --field t:text:28; tarsil index a.dat a.idx --key id
> seq 1 50 | sed 's/$/,text/' | tarsil import a.dat a.idx - --no-header; tarsil delete a.dat 7 14
> cp a.dat good; head -c 4 good > header; printf '\36\0\0\0\0\0\0\0\40\0\0\0\334\4' >> header
a.dat: 2 fields, records of 32 bytes
a.idx: 1 key over 0 records: (id)
a.dat: 50 records added
a.dat: records 7, 14 deleted

$ for size in 2004 2005 2012 2043; do
> head -c $size good > a.dat; dd if=header of=a.dat conv=notrunc 2> dd.txt; cp a.dat before
> tarsil repair a.dat --dry-run > out.txt; cmp a.dat before; tarsil repair a.dat | grep -v INDEX; tarsil check a.dat > check.txt || echo unsound
> tail -c +45 a.dat > records; head -c 2004 good | tail -c +45 | cmp - records
> done
a.dat: the header made anew: 49 records, 2 of them deleted; it told 30 and 0
a.dat: 1 bytes of half a record cut off at 2004
a.dat: the header made anew: 49 records, 2 of them deleted; it told 30 and 0
a.dat: 8 bytes of half a record cut off at 2004
a.dat: the header made anew: 49 records, 2 of them deleted; it told 30 and 0
a.dat: 39 bytes of half a record cut off at 2004
a.dat: the header made anew: 49 records, 2 of them deleted; it told 30 and 0

# A body without a length behind the end that the header tells, as a killed add beside others leaves it, and a deletion
# that wasn't counted: cut off only where the header tells as many records as there are.
$ { cat good; printf '\0\0\0\0\0\0\0\0\63\0\0\0text%90s' x; } > a.dat; printf '\1' | dd of=a.dat bs=1 seek=8 conv=notrunc 2> dd.txt
> tarsil check a.dat | tail -1; tarsil repair a.dat | grep -v INDEX; cmp a.dat good
To mend it: tarsil repair a.dat
a.dat: 106 bytes of half a record cut off at 2044
a.dat: the header made anew: 50 records, 2 of them deleted; it told 50 and 1
$ { cat good; printf '\0\0\0\0\0\0\0\0\63\0\0\0text%90s' x; } > a.dat; printf '\61' | dd of=a.dat bs=1 seek=4 conv=notrunc 2> dd.txt
! tarsil repair a.dat
tarsil: repair: a.dat: from 2044 on there are no whole records, and more follows than half a one; nothing was changed: `tarsil salvage a.dat NEW` saves what can be read

# Index files that no longer fit are told.
$ head -c 2015 good > a.dat; tarsil repair a.dat a.idx --json | tr -d ' \n'
{"file":"a.dat","needed":true,"repaired":true,"cut_at":2004,"cut_bytes":11,"before":{"records":50,"deleted":2,"record_length":32,"end":2044},"found":{"records":49,"deleted":2,"record_length":32,"end":2004},"reindex":["a.idx"]}
$ tarsil reindex a.dat a.idx; tarsil repair a.dat a.idx
a.idx: built anew over 49 records: (id)
a.dat: nothing to repair

# More is wrong than a header can tell: nothing is cut and nothing is written.
$ tarsil create v.dat --field n:i32 --field t:text:99 --variable; seq 1 50 | sed 's/$/,text/' | tarsil import v.dat - --no-header; cp v.dat v.good
> while read -r file place bytes what; do
> cp good a.dat; cp v.good v.dat; printf "$bytes" | dd of=$file bs=1 seek=$place conv=notrunc 2> dd.txt; cp $file before
> echo "- $what"; tarsil repair $file; cmp $file before
> done << 'END'
> a.dat 804 \377\377\377\377\377\377\377\377 a frame in the middle
> a.dat 2008 \177 the last frame, wrong in its length
> a.dat 2008 \41 one record of another length
> v.dat 48 \0\1 the length of an early record
> a.dat 1 X the mark
> a.dat 20 \31 the length of the field table
> END
v.dat: 2 fields, records of variable length
v.dat: 50 records added
- a frame in the middle
tarsil: repair: a.dat: from 804 on there are no whole records, and more follows than half a one; nothing was changed: `tarsil salvage a.dat NEW` saves what can be read
- the last frame, wrong in its length
tarsil: repair: a.dat: from 2004 on there are no whole records, and more follows than half a one; nothing was changed: `tarsil salvage a.dat NEW` saves what can be read
- one record of another length
tarsil: repair: a.dat: from 2004 on there are no whole records, and more follows than half a one; nothing was changed: `tarsil salvage a.dat NEW` saves what can be read
- the length of an early record
tarsil: repair: v.dat: from 308 on there are no whole records, and more follows than half a one; nothing was changed: `tarsil salvage v.dat NEW` saves what can be read
- the mark
tarsil: repair: a.dat: doesn't begin with the mark of a data file: if it is a damaged one, `tarsil salvage` saves what can be read
- the length of the field table
tarsil: repair: a.dat: the place of the records can't be told; nothing was changed: `tarsil salvage a.dat NEW` saves what can be read

# Records of several lengths.
$ { cat good; printf ' \0\0\0\41\0\0\0%33s \0\0\0\41\0\0\0%33s' x y; } > a.dat; dd if=header of=a.dat conv=notrunc 2> dd.txt; cp a.dat before
> tarsil repair a.dat; cmp a.dat before; tarsil repair a.dat --variable; tarsil check a.dat
tarsil: repair: a.dat: has records of 32 to 33 bytes, and would become a file of variable length; nothing was changed: `tarsil salvage a.dat NEW` keeps those of the right length; --variable goes on
a.dat: the header made anew: 52 records, 2 of them deleted; it told 30 and 0
`tarsil check a.dat INDEX...` tells whether its index files fit.
a.dat: sound; 52 records, 2 of them deleted, 2,126 bytes
