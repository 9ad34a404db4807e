# info and explain: facts in words and in JSON; what files say that are none of ours, empty, cut.

$ tarsil create a.dat --field 'full name:text:40' --field x:f32; tarsil index a.dat a.idx --key 'full name,x' --order 4
> seq 1 100 | sed 's/$/,1.5/' | tarsil import a.dat a.idx - --no-header; tarsil delete a.dat 5 > /dev/null
> tarsil info a.dat a.idx
a.dat: 2 fields, records of 44 bytes
a.idx: 1 key over 0 records: (full name, x)
a.dat: 100 records added
file           a.dat
kind           data file
version        2.10
bytes          5,244
records        100
deleted        1
end of records 5,244
bytes left     2,147,478,403
records left   41,297,661
record length  44

FIELD     TYPE    LETTER BYTES OFFSET
full name text:40 s         40      0
x         f32     f          4     40

file       a.idx
kind       index file
version    2.10
bytes      14,072
bytes left 2,147,469,575

KEY FIELDS       ORDER DEPTH NODES ENTRIES FILL
  0 full name, x     4     3    26     100 62 %
$ tarsil info a.dat --json | tr -d ' \n'; echo; tarsil info a.dat a.idx --json | grep -e names -e entries -e fill
[{"file":"a.dat","kind":"datafile","version":"2.10","bytes":5244,"records":100,"deleted":1,"end_of_records":5244,"bytes_left":2147478403,"records_left":41297661,"record_length":44,"fields":[{"name":"fullname","type":"text:40","letter":"s","length":40,"offset":0},{"name":"x","type":"f32","letter":"f","length":4,"offset":40}]}]
        "names": "full name, x",
        "entries": 100,
        "fill_percent": 62

$ tarsil create v.dat --field t:text:9 --variable; tarsil info v.dat
v.dat: 1 field, records of variable length
file           v.dat
kind           data file
version        2.10
bytes          36
records        0
deleted        0
end of records 36
bytes left     2,147,483,611
record length  variable

FIELD TYPE   LETTER BYTES OFFSET
t     text:9 s          9      0
$ echo 'some text' > text.txt; : > empty; mkdir folder; head -c 20 a.dat > cut.dat; head -c 3000 a.idx > cut.idx
> tarsil info text.txt
tarsil: info: text.txt: doesn't begin with the mark of a data file or index file: check the name
[2]
! tarsil info empty
tarsil: info: empty: is empty, so it is neither a data file nor an index file: restore it from a copy, or remove it and make it anew
! tarsil info folder
tarsil: info: folder: is not a regular file: check the name
! tarsil info none.dat
tarsil: info: none.dat: there is no such file: check the name

$ tarsil info cut.dat
tarsil: info: warning: cut.dat: its header can't be true; `tarsil check` tells more
file           cut.dat
kind           data file
version        2.10
bytes          20
records        0
deleted        0
end of records 0
bytes left     2,147,483,647
$ tarsil info cut.idx --json | grep -c bytes
tarsil: info: warning: cut.idx: is damaged; `tarsil check` tells more
3

# Nothing but what has the mark is ever opened, and nothing is changed.
$ sum=$(cat text.txt empty cut.dat cut.idx | cksum)
> for file in text.txt empty folder none.dat; do tarsil get $file 1; tarsil find a.dat $file x 1; done
> for command in 'add --set n=1' export purge; do tarsil $command text.txt; done; tarsil import none.dat a.csv
> [ "$sum" = "$(cat text.txt empty cut.dat cut.idx | cksum)" ]
tarsil: get: text.txt: is no data file: it doesn't begin with the mark of one: check the name; nothing was changed
tarsil: find: text.txt: is no index file: it doesn't begin with the mark of one: check the name; nothing was changed
tarsil: get: empty: is empty, so it is no data file: restore it from a copy, or remove it and make it anew
tarsil: find: empty: is empty, so it is no index file: restore it from a copy, or remove it and make it anew
tarsil: get: folder: is not a regular file: check the name
tarsil: find: folder: is not a regular file: check the name
tarsil: get: none.dat: there is no such file: check the name; `tarsil create` makes a new one
tarsil: find: none.dat: there is no such file: check the name; `tarsil index` makes a new one
tarsil: add: text.txt: is no data file: it doesn't begin with the mark of one: check the name; nothing was changed
tarsil: export: text.txt: is no data file: it doesn't begin with the mark of one: check the name; nothing was changed
tarsil: purge: text.txt: is no data file: it doesn't begin with the mark of one: check the name; nothing was changed
tarsil: import: a.csv: can't be read: No such file or directory: check its name and its permissions
$ tarsil export cut.dat; tarsil find a.dat cut.idx x 1; tarsil index cut.dat b.idx --key f1; ls b.idx
tarsil: export: cut.dat: the header of the data file was not read whole (TS_HEADER_READ_SHORT, -1013): `tarsil check` with its data file tells what is wrong and what mends it
tarsil: find: cut.idx: a node was not read whole (TS_NODE_READ_SHORT, -1019): `tarsil check` with its data file tells what is wrong and what mends it
tarsil: index: cut.dat: the header of the data file was not read whole (TS_HEADER_READ_SHORT, -1013): `tarsil check` with its data file tells what is wrong and what mends it
ls: cannot access 'b.idx': No such file or directory
[2]

# Names that contradict the file, or are none.
! printf 'a s 40\nb i 4\n' > wrong.fields; tarsil export a.dat --fields wrong.fields
tarsil: export: wrong.fields: 'b' is i 4, and in the data file f 4: correct wrong.fields, or remove it
! printf 'a s 40\n' > wrong.fields; tarsil export a.dat --fields wrong.fields
tarsil: export: wrong.fields: has 1 field, the data file 2 fields: correct wrong.fields, or remove it
! printf 'a s 40\na f 4\n' > wrong.fields; tarsil export a.dat --fields wrong.fields
tarsil: export: wrong.fields: the name 'a' stands twice: give each field a name of its own
! printf 'what is this\n' > wrong.fields; tarsil export a.dat --fields wrong.fields
tarsil: export: wrong.fields, line 1: not a name, a letter and a length: a line is like `ident s 8`; correct it or remove the file
$ rm a.dat.fields; tarsil export a.dat --from 99
f1,f2
99,1.5
100,1.5

# explain
$ tarsil explain -204; tarsil explain FIND_NO_ENTRY 14 --json
code   -204
name   TS_LOCK_REFUSED
cause  Another process holds a range of this file
remedy Try again: the library itself never waits
[
  {
    "code": -13,
    "name": "TS_FIND_NO_ENTRY",
    "cause": "No entry of the key equals the key value",
    "remedy": "Check how the key value was packed, or search for the nearest value with tsgetipp32"
  },
  {
    "code": -14,
    "name": "TS_DELETE_FOUND_DELETED",
    "cause": "tsdeli32: the record found by key is deleted already",
    "remedy": "None needed"
  }
]
$ tarsil explain | wc -l; tarsil explain --json | grep -c '"code"'
151
150
! tarsil explain 12345
tarsil: explain: 12345 is no result code: `tarsil explain` without a code lists all
