# index: keys by the names of fields, built from the records.

$ tarsil create a.dat --field name:text:8 --field n:i32 --field memo:text:300
> printf 'name,n,memo\nbeech,3,\nash,2,\noak,1,\n' | tarsil import a.dat -
> tarsil index a.dat a.idx --key name --key n,name:cursor --order 4
> tarsil check a.dat a.idx; tarsil export a.dat --by a.idx:n --json
a.dat: 3 fields, records of 312 bytes
a.dat: 3 records added
a.idx: 2 keys over 3 records: (name), (n, name)
a.dat: sound; 3 records, 0 of them deleted, 1,012 bytes
a.idx: sound; 2 keys, 2,552 bytes
  key 0: 3 entries in 1 node, depth 1, leaves 37 % full
  key 1: 3 entries in 1 node, depth 1, leaves 37 % full
{"name":"oak","n":1,"memo":""}
{"name":"ash","n":2,"memo":""}
{"name":"beech","n":3,"memo":""}

$ tarsil index a.dat b.idx --key n --dry-run --json | tr -d ' \n'; ls b*
{"file":"b.idx","created":false,"records":3,"keys":[{"fields":[{"name":"n","type":"i32","letter":"i","length":4,"offset":8}]}]}ls: cannot access 'b*': No such file or directory
[2]

# An empty data file has an empty index.
$ tarsil create none.dat --field n:i32; tarsil index none.dat none.idx --key n; tarsil check none.dat none.idx
none.dat: 1 field, records of 4 bytes
none.idx: 1 key over 0 records: (n)
none.dat: sound; 0 records, 0 of them deleted, 36 bytes
none.idx: sound; 1 key, 10,408 bytes
  key 0: 0 entries in 1 node, depth 1, leaves 0 % full

# Refused: nothing is made.
! tarsil index a.dat a.idx --key n
tarsil: index: a.idx: exists already: choose another name; `tarsil reindex` builds an index file anew
! tarsil index a.dat b.idx --key nme
tarsil: index: --key nme: there is no field 'nme': the fields are name, n, memo
! tarsil index a.dat b.idx --key memo
tarsil: index: --key memo: 'memo' has 300 bytes: a text in a key has 256 bytes at most
! tarsil index a.dat b.idx --key n --order 1
tarsil: index: b.idx: the order of a key is 1, or so large that its nodes have no room in a file (TS_KEY_BAD_ORDER, -53): give an order of 2 or more, or 0 for the automatic one
! tarsil index a.dat b.idx --key n,n,n,n,n,n,n,n,n,n,n,n,n,n,n,n,n
tarsil: index: --key n,n,n,n,n,n,n,n,n,n,n,n,n,n,n,n,n: too many fields: a key has 16 at most
! tarsil index a.dat b.idx --key n --key n --key n --key n --key n --key n --key n --key n --key n
tarsil: index: 9 keys for one index file: it has 8 at most; make a second one
! tarsil index a.idx b.idx --key n
tarsil: index: a.idx: is an index file where the data file should stand: give the data file first
! tarsil index a.dat no/b.idx --key n
tarsil: index: no/b.idx: the index file could not be created (TS_CREATE_INDEX_FAILED, -1005): check the name and the permissions of the folder
$ ls -A | grep -v '^.run$'
a.dat
a.dat.fields
a.idx
none.dat
none.dat.fields
none.idx
