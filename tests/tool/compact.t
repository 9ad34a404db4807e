# compact: the deleted records go, the others keep their order, and index files are built anew. What a kill leaves of it
# stands in kills.t.

$ tarsil create a.dat --field id:i32 --field t:text:28; tarsil index a.dat a.idx --key id --key t,id --order 8
> seq 1 2000 | sed 's/$/,text/' | tarsil import a.dat a.idx - --no-header; tarsil delete a.dat $(seq 2 2 2000) > out.txt
> tarsil export a.dat > live.csv; chmod 604 a.dat; cp a.dat a.old; cp a.idx i.old; echo foreign > f.idx
a.dat: 2 fields, records of 32 bytes
a.idx: 2 keys over 0 records: (id), (t, id)
a.dat: 2,000 records added

# Refused: all stays as it is.
! tarsil compact f.idx
tarsil: compact: f.idx: is no data file: check the name; nothing was changed
! tarsil compact a.idx
tarsil: compact: a.idx: is no data file: check the name; nothing was changed
! tarsil compact a.dat f.idx
tarsil: compact: f.idx: is shorter than the key records of an index file: build it anew with `tarsil reindex`, or leave it out
! tarsil compact a.dat none.idx
tarsil: compact: none.idx: there is no such file: check the name
! tarsil compact a.dat a.idx ./a.idx
tarsil: compact: ./a.idx: is given twice: give each index file once
! tarsil compact a.dat 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17
tarsil: compact: 17 index files: a data file has 5 at most
! (ulimit -f 20; tarsil compact a.dat a.idx)
tarsil: compact: */a.dat.compacted: has reached the limit for the size of files (ulimit -f): raise the limit, and try again (glob)
! (ulimit -f 90; tarsil compact a.dat a.idx)
tarsil: compact: */a.idx.compacted: a node was not written whole (TS_NODE_WRITE_SHORT, -1011): check the space on the disk, then build the index anew (glob)
$ echo 'a note of the user' > a.dat.compacting; tarsil compact a.dat a.idx; tarsil get a.dat 1; tarsil check a.dat a.idx | head -1
> cat a.dat.compacting; rm a.dat.compacting
tarsil: compact: */a.dat.compacting: is no journal of a compaction that this version can read: move it away if you know what it is (glob)
tarsil: get: */a.dat.compacting: is no journal of a compaction that this version can read: move it away if you know what it is (glob)
tarsil: check: note: */a.dat.compacting: is no journal of a compaction that this version can read (glob)
a.dat: sound; 2,000 records, 1,000 of them deleted, 80,044 bytes
a note of the user
$ head -c 30000 a.old > a.dat; tarsil compact a.dat; head -c 30000 a.old | cmp - a.dat; cat a.old > a.dat
tarsil: compact: a.dat: is damaged; nothing was changed: `tarsil check` tells what is wrong and what mends it
$ tarsil compact a.dat a.idx --dry-run; cmp a.dat a.old; cmp a.idx i.old; ls *compact* 2> /dev/null
a.dat: 1,000 deleted records would be taken out, 1,000 left
[2]

# A second time nothing changes any more.
$ tarsil compact a.dat a.idx; tarsil export a.dat | cmp - live.csv; stat -c '%a %s' a.dat; tarsil check a.dat a.idx | head -2
> cat a.dat a.idx | cksum > sums; tarsil compact a.dat a.idx --json | tr -d ' \n'; cat a.dat a.idx | cksum | cmp - sums
a.dat: 1,000 deleted records taken out, 1,000 left
a.dat: 40,044 bytes, before 80,044
a.idx: 116,216 bytes, before 232,952
604 40044
a.dat: sound; 1,000 records, 0 of them deleted, 40,044 bytes
a.idx: sound; 2 keys, 116,216 bytes
{"file":"a.dat","compacted":true,"records":1000,"removed":0,"files":[{"file":"a.dat","bytes_before":40044,"bytes":40044},{"file":"a.idx","bytes_before":116216,"bytes":116216}]}

# Records of variable length, and a file of which nothing is left.
$ tarsil create v.dat --field n:u8 --field t:text:99 --variable; seq 1 200 | sed 's/.*/&,a text &/' | tarsil import v.dat - --no-header
> tarsil delete v.dat 1 2 200; tarsil export v.dat > live.csv; tarsil compact v.dat; tarsil export v.dat | cmp - live.csv
> tarsil delete v.dat $(seq 1 197) > out.txt; tarsil compact v.dat; tarsil check v.dat
v.dat: 2 fields, records of variable length
v.dat: 200 records added
v.dat: records 1, 2, 200 deleted
v.dat: 3 deleted records taken out, 197 left
v.dat: 3,683 bytes, before 3,736
v.dat: 197 deleted records taken out, 0 left
v.dat: 44 bytes, before 3,683
v.dat: sound; 0 records, 0 of them deleted, 44 bytes
