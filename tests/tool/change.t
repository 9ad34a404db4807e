# add, update, delete, undelete, purge: single records by the names of their fields, and the space of the deleted.

$ tarsil create a.dat --field 'full name:text:8' --field n:i16
> tarsil index a.dat a.idx --key 'full name'
> tarsil add a.dat a.idx --set 'full name=a=b' --set n=-1; tarsil add a.dat a.idx --set 'full name=oak' --partial --json
> tarsil export a.dat
a.dat: 2 fields, records of 10 bytes
a.idx: 1 key over 0 records: (full name)
a.dat: record 1 added
{
  "file": "a.dat",
  "record": 2
}
full name,n
a=b,-1
oak,0

! tarsil add a.dat a.idx --set 'full name=oak'
tarsil: add: n: has no value: give values that make a record of the file
! tarsil add a.dat a.idx --set n=1 --set n=2
tarsil: add: --set n=2: 'n' is set twice: set each field once
! tarsil add a.dat a.idx --set n
tarsil: add: --set n: has no =: write NAME=VALUE
! tarsil add a.dat a.idx --set m=1
tarsil: add: --set m=1: there is no field 'm': the fields are full name, n
! tarsil add a.dat a.idx --set n=32768 --partial
tarsil: add: n: '32768' doesn't fit i16 (-32768 to 32767): give a value that the field can hold
! tarsil add a.dat a.idx --set 'full name=too long a name' --partial
tarsil: add: full name: the text has 15 bytes, the field 8: give a value that the field can hold
! tarsil add a.dat a.idx ./a.idx --set n=1
tarsil: add: ./a.idx: is given twice: give each index file once
! tarsil add a.dat a.idx --set 'full name=oak' --partial --duplicates no
tarsil: add: a.dat: a record with the same value of a key is there already: change the value, or give --duplicates yes
$ tarsil add a.dat a.idx --set 'full name=elm' --set n=1 --dry-run; tarsil info a.dat --json | grep records
a.dat: a record of 10 bytes would be added
    "records": 2,
    "end_of_records": 80,
    "records_left": 119304642,

$ tarsil add a.dat --set 'full name=elm' --set n=1; tarsil check a.dat a.idx | head -3; tarsil reindex a.dat a.idx
tarsil: add: note: a.idx was not given; if it belongs to a.dat, it doesn't learn of this: `tarsil reindex` brings it up to date
a.dat: record 3 added
a.dat: sound; 3 records, 0 of them deleted, 98 bytes
a.idx: out of step; 1 key, 10,416 bytes
  key 0: 2 entries in 1 node, depth 1, leaves 0 % full
a.idx: built anew over 3 records: (full name)

# An update changes what is set and nothing else; a key that changes has the record move.
$ tarsil update a.dat 2 a.idx --set n=7; tarsil get a.dat 2
a.dat: record 2 updated
record    2
full name oak
n         7
! tarsil update a.dat 2 a.idx --set 'full name=ash'
tarsil: update: a.dat, record 2: a field of a key changes, so the record can't stay in its place: give --move to delete it and add it anew, under a new number
! tarsil update a.dat 2 a.idx --set 'full name=elm' --move --duplicates no
tarsil: update: a.dat, record 2: a record with the same value of a key is there already: the record is deleted now; `tarsil undelete` brings it back
$ tarsil undelete a.dat 2; tarsil update a.dat 2 a.idx --set 'full name=ash' --move --json | tr -d ' \n'
a.dat: record 2 undeleted
{"file":"a.dat","updated":true,"old_record":2,"record":4}

$ tarsil export a.dat --deleted; tarsil check a.dat a.idx | head -2
full name,n,_deleted
a=b,-1,0
oak,7,1
elm,1,0
ash,7,0
a.dat: sound; 4 records, 1 of them deleted, 116 bytes
a.idx: sound; 1 key, 10,416 bytes
! tarsil update a.dat 2 a.idx --set n=1
tarsil: update: a.dat, record 2: is deleted: bring it back by `tarsil undelete` first
! tarsil update a.dat 99 a.idx --set n=1
tarsil: update: a.dat, record 99: there is no such record: `tarsil info` tells how many there are
$ tarsil update a.dat 1 a.idx --set n=5 --dry-run; tarsil get a.dat 1 --format csv
a.dat: record 1 would be updated
_number,full name,n,_deleted
1,a=b,-1,0
$ tarsil delete a.dat 1; tarsil delete a.dat 1 3; tarsil delete a.dat 9
a.dat: record 1 deleted
tarsil: delete: note: record 1 is deleted already
a.dat: record 3 deleted
tarsil: delete: a.dat: there is no record 9: `tarsil info` tells how many there are
[2]
$ tarsil undelete a.dat 1 --dry-run; tarsil undelete a.dat 1 4 --json | tr -d ' \n'
a.dat: record 1 would be undeleted
tarsil: undelete: note: record 4 is live already
{"file":"a.dat","undeleted":[1]}

# A text in a file of variable length can't change its length in its place.
$ tarsil create v.dat --field n:u8 --field t:text:9 --variable; tarsil add v.dat --set n=1 --set t=four
> tarsil update v.dat 1 --set t=five; tarsil update v.dat 1 --set t=fiver; tarsil update v.dat 1 --set n=300; tarsil export v.dat
v.dat: 2 fields, records of variable length
v.dat: record 1 added
v.dat: record 1 updated
tarsil: update: v.dat, record 1: the record would change its length: delete it and add the new one instead
tarsil: update: n: '300' doesn't fit u8 (0 to 255): give a value that the field can hold
n,t
1,five

# Purge takes the deleted ones out and tells of index files that were forgotten.
$ tarsil purge a.dat a.idx --dry-run; tarsil info a.dat --json | grep -e records\" -e deleted
a.dat: 2 deleted records would be removed, 2 left
    "records": 4,
    "deleted": 2,
    "end_of_records": 116,

$ tarsil purge a.dat a.idx; tarsil export a.dat --deleted; tarsil check a.dat a.idx | head -2; tarsil purge a.dat a.idx
a.dat: 2 deleted records removed, 2 left
full name,n,_deleted
a=b,-1,0
ash,7,0
a.dat: sound; 2 records, 0 of them deleted, 116 bytes
a.idx: sound; 1 key, 10,416 bytes
a.dat: 0 deleted records removed, 2 left
$ tarsil delete a.dat 1 > /dev/null; tarsil purge a.dat; tarsil check a.dat a.idx > check.txt; echo $?; tarsil reindex a.dat a.idx
tarsil: purge: note: a.idx was not given; if it belongs to a.dat, it doesn't learn of this: `tarsil reindex` brings it up to date
a.dat: 1 deleted record removed, 1 left
1
a.idx: built anew over 1 record: (full name)

# Behind the end that the header tells stand the records of a killed import: nothing goes over them, nothing loses them.
$ tarsil create k.dat --field n:u8 > out.txt; tarsil import k.dat --no-header - < /dev/null > out.txt; head -c 36 k.dat > header
> printf '1\n2\n3\n' > rows; tarsil import k.dat rows --no-header; dd if=header of=k.dat conv=notrunc 2> out.txt
> tarsil add k.dat --set n=4; tarsil purge k.dat; tarsil index k.dat k.idx --key n; tarsil import k.dat rows --no-header; tarsil export k.dat
> tarsil repair k.dat > out.txt; tarsil add k.dat --set n=4; tarsil export k.dat --no-header | tr '\n' ' '
k.dat: 3 records added
tarsil: add: k.dat: has records that its header doesn't count, as a killed program leaves them: `tarsil repair k.dat` counts them; nothing was changed
tarsil: purge: k.dat: is damaged; nothing was changed: `tarsil check` tells what is wrong and what mends it
tarsil: index: k.dat: has records that its header doesn't count, as a killed program leaves them: `tarsil repair k.dat` counts them; nothing was changed
tarsil: import: k.dat: has records that its header doesn't count, as a killed program leaves them: `tarsil repair k.dat` counts them; nothing was changed
tarsil: export: warning: k.dat: has records that its header doesn't count, as a killed program leaves them; they are not among those exported
n
k.dat: record 4 added
1 2 3 4 
