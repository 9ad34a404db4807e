# check: what it finds, and that the commands that it names mend that.

$ tarsil create a.dat --field id:i32 --field name:text:20 --field height:f64
> tarsil index a.dat a.idx --key id --key name,id
> seq 1 200 | sed 's/.*/&,tree &,0.5/' | tarsil import a.dat a.idx - --no-header; tarsil delete a.dat 7 8 > out.txt
> cat a.dat a.idx | cksum > sum; tarsil check a.dat a.idx; tarsil check a.dat a.idx --json | tr -d ' \n'
> cat a.dat a.idx | cksum | cmp - sum
a.dat: 3 fields, records of 32 bytes
a.idx: 2 keys over 0 records: (id), (name, id)
a.dat: 200 records added
a.dat: sound; 200 records, 2 of them deleted, 8,052 bytes
a.idx: sound; 2 keys, 18,552 bytes
  key 0: 200 entries in 1 node, depth 1, leaves 29 % full
  key 1: 200 entries in 1 node, depth 1, leaves 88 % full
{"data":{"file":"a.dat","state":"sound","bytes":8052,"records":200,"deleted":2,"bytes_behind_end":0,"records_behind_end":0,"findings":[],"findings_counted":0},"indexes":[{"file":"a.idx","state":"sound","bytes":18552,"bytes_unreached":0,"compared_with_records":true,"keys":[{"entries":200,"missing_entries":0,"nodes":1,"depth":1,"fill_percent":29,"findings":[],"findings_counted":0},{"entries":200,"missing_entries":0,"nodes":1,"depth":1,"fill_percent":88,"findings":[],"findings_counted":0}],"findings":[]}],"may_be_in_change":false,"mended_by":null}

# mend FILE PLACE BYTES: puts them there (-: cuts the file there), and has the commands done that are told. The header
# of a.dat has its counts from 4 on, the record length at 12, the end at 16, the size of the field table at 20; records
# of 40 bytes begin at 52.
$ cp a.dat good.dat; cp a.idx good.idx; cat > mend << 'END'
> cp good.dat a.dat; cp good.idx a.idx
> if [ "$3" = - ]; then head -c $2 good.${1#a.} > $1; else printf "$3" | dd of=$1 bs=1 seek=$2 conv=notrunc 2> dd.txt; fi
> until tarsil check a.dat a.idx > found; do
> told=$(sed -n 's/^To mend it: //p' found)
> echo $(grep -m 1 '^  [DI]' found | sed 's/:.*//'): $told
> case $told in *salvage*) exit ;; esac
> $told > out.txt 2>&1
> done
> END
$ while read -r file place bytes what; do echo "- $what"; sh mend $file $place "$bytes"; done << 'END'
> a.dat 4 \226\0\0\0\2\0\0\0\040\0\0\0\244\27 a header behind its records
> a.dat 8025 - half a record at the end
> a.dat 8015 - half a frame at the end
> a.dat 8 \7 a wrong count of deleted records
> a.dat 12 \41 a wrong record length
> a.dat 4016 \115 a damaged frame
> a.dat 20 \27 a field table that can't be
> a.dat 380 x a record that changed
> a.idx 3000 \356\356\356\356\356\356\356\356 a damaged node
> a.idx 24 \5\0\0\0 a root that is none
> a.idx 2300 - a cut index file
> a.idx 8 \15\0\0\0 a damaged order
> END
- a header behind its records
D5 out of step, at 6052: tarsil repair a.dat a.idx
- half a record at the end
D5 damage, record 200, at 8012: tarsil repair a.dat a.idx
I11 out of step, key 0, at 4604: tarsil reindex a.dat a.idx
- half a frame at the end
D5 damage, record 200, at 8012: tarsil repair a.dat a.idx
I11 out of step, key 0, at 4604: tarsil reindex a.dat a.idx
- a wrong count of deleted records
D7 out of step, at 8: tarsil repair a.dat a.idx
- a wrong record length
D6 damage, record 1, at 52: tarsil repair a.dat a.idx
- a damaged frame
D6 damage, record 100, at 4012: tarsil salvage a.dat NEW
- a field table that can't be
D3 damage, at 20: tarsil salvage a.dat NEW
- a record that changed
I11 out of step, key 0, record 9, at 2312: tarsil reindex a.dat a.idx
- a damaged node
I9 damage, key 0, at 2996: tarsil reindex a.dat a.idx
- a root that is none
I3 damage, key 0, at 24: tarsil reindex a.dat a.idx
- a cut index file
I3 damage, key 0, at 24: tarsil reindex a.dat a.idx
- a damaged order
I2 damage, key 0, at 8: tarsil reindex a.dat a.idx
$ cp good.dat a.dat; cp good.idx a.idx; tarsil add a.dat --set id=201 --partial > out.txt 2>&1; tarsil check a.dat a.idx | tail -3
> tarsil check a.dat a.idx --json | grep -m 1 -A 5 '"invariant"'
  I11 out of step, key 0, record 201: The record at 8052 has no entry. Remedy: reindex.
  I11 out of step, key 1, record 201: The record at 8052 has no entry. Remedy: reindex.
To mend it: tarsil reindex a.dat a.idx
              "invariant": "I11",
              "severity": "out of step",
              "text": "The record at 8052 has no entry.",
              "key": 0,
              "record": 201,
              "remedy": "reindex"

# What can't be looked at.
$ : > empty; echo some text > text.idx
> for files in none.dat empty . text.idx a.idx 'a.dat a.dat' 'a.dat text.idx' 'a.dat none.idx'; do tarsil check $files; done
tarsil: check: none.dat: there is no such file: check the name
tarsil: check: empty: is empty: restore it from a copy
tarsil: check: .: is no regular file: give the name of a file
tarsil: check: text.idx: doesn't begin with the mark of a data file: if it is a damaged one, `tarsil salvage` saves what can be read
tarsil: check: a.idx: is an index file where the data file should stand: give the data file first, then its index files
tarsil: check: a.dat: is a data file where an index file should stand: give the data file first, then its index files
tarsil: check: text.idx: doesn't begin with the mark of an index file: if it is a damaged one, make it anew with `tarsil index`
tarsil: check: none.idx: there is no such file: check the name
[2]

# Values of a key that are close to each other stand in another order if they are told apart.
$ tarsil create f.dat --field at:f64; seq 1 500 | awk '{ print 0.1 + $1 * 7919 % 500 / 1e7 }' OFMT=%.9g | tarsil import f.dat - --no-header
> tarsil index f.dat f.idx --key at; tarsil check f.dat f.idx --precision 9 | tail -1; tarsil reindex f.dat f.idx --precision 9
> tarsil check f.dat f.idx --precision 9 | grep idx
f.dat: 1 field, records of 8 bytes
f.dat: 500 records added
f.idx: 1 key over 500 records: (at)
  I6 note, key 0: 80 pairs of neighbours stand against the order of their values by more than the tolerance; a search may miss them. Remedy: reindex.
f.idx: built anew over 500 records: (at)
f.idx: sound; 1 key, 10,416 bytes
