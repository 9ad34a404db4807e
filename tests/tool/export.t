# export: orders, ranges, formats. That it comes back whole is told in round_trip.t.

$ tarsil create a.dat --field name:text:8 --field n:i32 --field x:f64
> printf 'name,n,x\nbeech,3,0.1\nash,-2,1e300\noak,1,-0\n"e, lm",1,2.5\n' | tarsil import a.dat -
> tarsil index a.dat a.idx --key name --key n,name
> tarsil delete a.dat 3
a.dat: 3 fields, records of 20 bytes
a.dat: 4 records added
a.idx: 2 keys over 4 records: (name), (n, name)
a.dat: record 3 deleted

$ tarsil export a.dat
name,n,x
beech,3,0.1
ash,-2,1e+300
"e, lm",1,2.5
$ tarsil export a.dat --deleted --format jsonl
{"name":"beech","n":3,"x":0.1}
{"name":"ash","n":-2,"x":1e+300}
{"name":"oak","n":1,"x":-0.0,"_deleted":true}
{"name":"e, lm","n":1,"x":2.5}
$ tarsil export a.dat --by a.idx:0 --no-header
ash,-2,1e+300
beech,3,0.1
"e, lm",1,2.5
$ tarsil export a.dat --by a.idx:n --from 1 --to 2 --no-header
"e, lm",1,2.5
$ tarsil export a.dat --by a.idx:n --from 1 --from f --no-header --separator '	'
beech	3	0.1

$ tarsil export a.dat --from 2 --to 3 --deleted --json
{"name":"ash","n":-2,"x":1e+300}
{"name":"oak","n":1,"x":-0.0,"_deleted":true}
$ tarsil export a.dat --from 1 --to 1 --format raw | od -An -tx1
 62 65 65 63 68 00 00 00 03 00 00 00 9a 99 99 99
 99 99 b9 3f
$ tarsil export a.dat --output out.jsonl; cat out.jsonl; tarsil export a.dat --output out.jsonl
out.jsonl: 3 records
{"name":"beech","n":3,"x":0.1}
{"name":"ash","n":-2,"x":1e+300}
{"name":"e, lm","n":1,"x":2.5}
tarsil: export: out.jsonl: exists already: choose another name, or remove it first
[2]

# An empty file, an empty range, an empty key.
$ tarsil create none.dat --field n:i32; tarsil index none.dat none.idx --key n
> tarsil export none.dat; tarsil export none.dat --by none.idx:n; tarsil export none.dat --by none.idx:n --from 1
> tarsil export a.dat --by a.idx:name --from x --to b --no-header; tarsil export a.dat --from 9 --no-header
none.dat: 1 field, records of 4 bytes
none.idx: 1 key over 0 records: (n)
n
n
n

! tarsil export a.dat --by a.idx:9
tarsil: export: a.idx: has no key 9: its keys are 0 (name), 1 (n, name)
! tarsil export a.dat --by a.idx:x
tarsil: export: a.idx: has no key x: its keys are 0 (name), 1 (n, name)
! tarsil export a.dat --by a.idx:n --from one
tarsil: export: value 1 of the key: 'one' is no number: give a value that the field can hold
! tarsil export a.dat --from ash
tarsil: export: 'ash' is no number of a record: give a number from 1 up; values of a key go with --by
! tarsil export a.dat --deleted --format raw
tarsil: export: --deleted with raw bytes: they have no place for the mark: choose csv or jsonl
! tarsil export a.dat --output no/out.csv
tarsil: export: no/out.csv: can't be made: No such file or directory: check the folder and its permissions
