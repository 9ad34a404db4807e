# get and find: records by number and by key.

$ tarsil create a.dat --field country:text:2 --field name:text:12 --field height:f64
> cat > a.csv << 'END'
> country,name,height
> CH,Bern,540
> CH,Basel,260
> CH,Zürich,408
> AT,Wien,151
> AT,Graz,353
> AT,Gmunden,425
> NO,Bergen,12
> FR,Bern,-3
> END
> tarsil import a.dat a.csv; tarsil index a.dat a.idx --key country,name --key height --key name
> tarsil delete a.dat 6
a.dat: 3 fields, records of 22 bytes
a.dat: 8 records added
a.idx: 3 keys over 8 records: (country, name), (height), (name)
a.dat: record 6 deleted

$ tarsil get a.dat 3
record  3
country CH
name    Zürich
height  408

$ tarsil get a.dat 6 1
record country name    height remark
     6 AT      Gmunden    425 deleted
     1 CH      Bern       540 
$ tarsil get a.dat 1 99
tarsil: get: note: a.dat has no record 99; it has 8
record  1
country CH
name    Bern
height  540
[1]
$ tarsil get a.dat 4 --json; tarsil get a.dat 4 --format csv
{"_number":4,"country":"AT","name":"Wien","height":151.0}
_number,country,name,height,_deleted
4,AT,Wien,151,0
! tarsil get a.dat 0
tarsil: get: N: '0' is no number from 1 up: `tarsil get --help` tells how
! tarsil get a.dat one
tarsil: get: N: 'one' is no number from 1 up: `tarsil get --help` tells how

# The whole value, its leading fields, a beginning; the number of a key, or its fields.
$ tarsil find a.dat a.idx 0 CH Bern --json
{"_number":1,"country":"CH","name":"Bern","height":540.0}
$ tarsil find a.dat a.idx country CH
record country name   height
     2 CH      Basel     260
     1 CH      Bern      540
     3 CH      Zürich    408
$ tarsil find a.dat a.idx country,name CH B --prefix --json
{"_number":2,"country":"CH","name":"Basel","height":260.0}
{"_number":1,"country":"CH","name":"Bern","height":540.0}
$ tarsil find a.dat a.idx country AT G --prefix --deleted --limit 1 --format csv
_number,country,name,height,_deleted
6,AT,Gmunden,425,1
$ tarsil find a.dat a.idx name '' --prefix --limit 2 --json
{"_number":2,"country":"CH","name":"Basel","height":260.0}
{"_number":7,"country":"NO","name":"Bergen","height":12.0}

# The nearest: a match, before the value, behind all, and further ones.
$ tarsil find a.dat a.idx height --nearest 353
record  5 (a match)
country AT
name    Graz
height  353
$ tarsil find a.dat a.idx height --nearest 400 --limit 2
record country name   height remark
     5 AT      Graz      353 the nearest before the value
     3 CH      Zürich    408 
$ tarsil find a.dat a.idx height --nearest -- -40 | head -1
record  8 (the first of the key, behind the value)

$ tarsil find a.dat a.idx country CH X
tarsil: find: note: nothing found
[1]
! tarsil find a.dat a.idx height C
tarsil: find: value 1 of the key: 'C' is no number: give a value that the field can hold
! tarsil find a.dat a.idx height 1 2
tarsil: find: 2 values for a key of 1 field: give one value a field, from the first on
! tarsil find a.dat a.idx town Bern
tarsil: find: a.idx: has no key town: its keys are 0 (country, name), 1 (height), 2 (name)
! tarsil find a.dat a.idx name 'a name that is too long'
tarsil: find: value 1 of the key: the text has 23 bytes, the field 12: give a value that the field can hold
! tarsil find a.dat a.dat name Bern
tarsil: find: a.dat: is a data file where an index file should stand: give the data file once, in front of the index files
! tarsil find a.dat a.idx name Bern --format tree
tarsil: find: --format tree: there is no such format: it is csv, jsonl or raw
! tarsil find a.dat a.idx name Bern --prefix --nearest
tarsil: find: --prefix excludes --nearest: `tarsil find --help` tells how
$ tarsil create none.dat --field n:i32; tarsil index none.dat none.idx --key n; tarsil find none.dat none.idx n 1; tarsil find none.dat none.idx n 1 --nearest
none.dat: 1 field, records of 4 bytes
none.idx: 1 key over 0 records: (n)
tarsil: find: note: nothing found
tarsil: find: note: nothing found
[1]
