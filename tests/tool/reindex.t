# reindex: index files built anew by the keys that stand in the old one, whatever its trees are, or by those that are told.

$ tarsil create a.dat --field id:i32 --field t:text:28; tarsil index a.dat a.idx --key id --key t,id --order 8
> seq 1 300 | sed 's/$/,text/' | tarsil import a.dat a.idx - --no-header
> tarsil reindex a.dat a.idx; cp a.idx good; cp a.dat good.dat
a.dat: 2 fields, records of 32 bytes
a.idx: 2 keys over 0 records: (id), (t, id)
a.dat: 300 records added
a.idx: built anew over 300 records: (id), (t, id)

# spoil PLACE BYTES: so many bytes of A5 there; 2216 is where the nodes begin, 24 a root.
$ cat > spoil << 'END'
> head -c $2 /dev/zero | tr '\0' '\245' | dd of=a.idx bs=1 seek=$1 conv=notrunc 2> dd.txt; tarsil check a.dat a.idx > check.txt; echo $?
> END
$ for damage in '2216 1500' '24 4' '9000 3000'; do
> sh spoil $damage; tarsil reindex a.dat a.idx; cmp a.idx good
> done; head -c 2216 good > a.idx; tarsil reindex a.dat a.idx --json | tr -d ' \n'; cmp a.idx good
1
a.idx: built anew over 300 records: (id), (t, id)
1
a.idx: built anew over 300 records: (id), (t, id)
1
a.idx: built anew over 300 records: (id), (t, id)
[{"file":"a.idx","built":true,"records":300,"keys":[{"fields":[{"name":"id","type":"i32","letter":"i","length":4,"offset":0}]},{"fields":[{"name":"t","type":"text:28","letter":"s","length":28,"offset":4},{"name":"id","type":"i32","letter":"i","length":4,"offset":0}]}]}]

# Keys that are told.
$ sh spoil 16 4; tarsil reindex a.dat a.idx; tarsil reindex a.dat a.idx --key t,id; tarsil check a.dat a.idx | tail -2
1
tarsil: reindex: a.idx: key 0 tells -1515870811 fields: give the keys with --key, as for `tarsil index`
a.idx: built anew over 300 records: (t, id)
a.idx: sound; 1 key, 34,984 bytes
  key 0: 300 entries in 4 nodes, depth 2, leaves 53 % full
$ tarsil reindex a.dat b.idx --key id; tarsil check a.dat b.idx | tail -2
b.idx: built anew over 300 records: (id)
b.idx: sound; 1 key, 10,408 bytes
  key 0: 300 entries in 1 node, depth 1, leaves 43 % full
! tarsil reindex a.dat b.idx a.idx --key id
tarsil: reindex: --key is for one index file: give one INDEX at a time
! tarsil reindex a.dat b.idx --key nothing
tarsil: reindex: --key nothing: there is no field 'nothing': the fields are id, t

# Neither a full disk nor what a killed run left is in the way of the old file and of the next run.
$ cp good a.idx; (ulimit -f 20; tarsil reindex a.dat a.idx); cmp a.idx good; ls *reindexing
tarsil: reindex: a.idx: has reached the limit for the size of files (ulimit -f): raise the limit, and try again
ls: cannot access '*reindexing': No such file or directory
[2]
$ head -c 5000 good > a.idx.reindexing; tarsil reindex a.dat a.idx; ls *reindexing
a.idx: built anew over 300 records: (id), (t, id)
ls: cannot access '*reindexing': No such file or directory
[2]
$ echo 'a note of the user' > a.idx.reindexing; tarsil reindex a.dat a.idx; cat *reindexing; rm *reindexing
tarsil: reindex: */a.idx.reindexing: stands where a new file is to be made: remove it if a killed command has left it, or move it away (glob)
a note of the user

# A file keeps its permissions and its links.
$ mkdir far; mv a.idx far; chmod 640 far/a.idx; ln -s far/a.idx a.idx; tarsil reindex a.dat a.idx; stat -c %a far/a.idx; readlink a.idx
a.idx: built anew over 300 records: (id), (t, id)
640
far/a.idx

# Refused: nothing is put in the place of anything else.
$ echo foreign > f.idx; : > empty
> for index in f.idx empty a.dat none.idx; do tarsil reindex a.dat $index; done; tarsil reindex a.dat f.idx --key id; cat f.idx
> tarsil reindex a.idx a.idx; tarsil reindex none.dat a.idx
> tarsil reindex a.dat a.idx --dry-run; head -c 9000 good.dat > a.dat; tarsil reindex a.dat a.idx; cmp a.idx good
tarsil: reindex: f.idx: doesn't begin with the mark of an index file: check the name; if it is a damaged one, move it away and use `tarsil index`
tarsil: reindex: empty: doesn't begin with the mark of an index file: check the name; if it is a damaged one, move it away and use `tarsil index`
tarsil: reindex: a.dat: doesn't begin with the mark of an index file: check the name; if it is a damaged one, move it away and use `tarsil index`
tarsil: reindex: none.idx: there is no such file: check the name
tarsil: reindex: f.idx: doesn't begin with the mark of an index file: check the name; if it is a damaged one, move it away and use `tarsil index`
foreign
tarsil: reindex: a.idx: is an index file where the data file should stand: give the data file first
tarsil: reindex: none.dat: there is no such file: check the name
a.idx: would be built anew over 300 records: (id), (t, id)
tarsil: reindex: a.dat: has to be mended first: `tarsil check` tells what is wrong and what mends it
