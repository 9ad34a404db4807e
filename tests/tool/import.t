# import: rows that fit, rows that don't, and headers.

$ tarsil create a.dat --field id:i32 --field name:text:8 --field small:u8
> tarsil index a.dat a.idx --key id
a.dat: 3 fields, records of 13 bytes
a.idx: 1 key over 0 records: (id)

# Columns in any order, quotes, a byte order mark, line ends of other systems, an empty line, no end of the last line.
$ printf '\357\273\277small,"id",name\r\n1,1,"a,b"\r\n\r\n2,2,"say ""hi"""\r\n3,+3," c "' | tarsil import a.dat a.idx -
> tarsil export a.dat
a.dat: 3 records added
id,name,small
1,"a,b",1
2,"say ""hi""",2
3," c ",3

# Bad rows are told with line and reason and kept; the rest goes in.
$ cat > bad.csv << 'END'
> id,name,small
> 10,ok,1
> 11,"open quote,1
> 12,after it,1
> 13,in"side,1
> 14,"behind"it,1
> 15,columns
> 16,too,many,1
> x,letters,1
> 1.5,fraction,1
> ,empty,1
> 2147483648,large,1
> 17,number,256
> 18,number,-1
> 19,too long a name,1
> 20,"two
> lines",1
> 21,\:bad\q,1
> 22,\N,1
> 23,last,255
> END
> tarsil import a.dat a.idx bad.csv --rejects refused.csv
bad.csv, line 3: a quote stands in a wrong place
bad.csv, line 5: a quote stands in a wrong place
bad.csv, line 6: a quote stands in a wrong place
bad.csv, line 7: 2 columns instead of 3
bad.csv, line 8: 4 columns instead of 3
bad.csv, line 9: id: 'x' is no number
bad.csv, line 10: id: '1.5' is no whole number
bad.csv, line 11: id: a number is missing
bad.csv, line 12: id: '2147483648' doesn't fit i32 (-2147483648 to 2147483647)
bad.csv, line 13: small: '256' doesn't fit u8 (0 to 255)
bad.csv, line 14: small: '-1' doesn't fit u8 (0 to 255)
bad.csv, line 15: name: the text has 15 bytes, the field 8
bad.csv, line 16: name: the text has 9 bytes, the field 8
bad.csv, line 18: name: behind \: stand characters, \xHH and \\ only
bad.csv, line 19: name: null or \N is no value here: no record ends before its last field
a.dat: 3 records added, 15 refused
[1]

$ grep -v -e ok -e 'after it' -e last bad.csv | cmp - refused.csv; tarsil export a.dat --from 4 --no-header
10,ok,1
12,after it,1
23,last,255

# What was refused can be corrected and imported.
$ sed -n '1p; s/too long a name/short/p' refused.csv | tarsil import a.dat a.idx - ; tarsil check a.dat a.idx | head -1
a.dat: 1 record added
a.dat: sound; 7 records, 0 of them deleted, 199 bytes

# A quote that is never closed costs its own line.
$ { echo id,name,small; echo '30,"lost,1'; seq 31 2000 | sed 's/.*/&,fine,1/'; } | tarsil import a.dat a.idx - --dry-run
standard input, line 2: a quote isn't closed
a.dat: 1,970 records would be added, 1 refused
[1]
$ printf 'id,name,small\n1,twice,1\n50,new,1\n' | tarsil import a.dat a.idx - --duplicates no
standard input, line 2: a record with the same value of a key is there already
a.dat: 1 record added, 1 refused
[1]

# An index file that is not given is behind; who asks is told.
$ printf 'id,name,small\n51,new,1\n' | tarsil import a.dat - --json | sed '/seconds/d'; tarsil check a.dat a.idx | head -2; tarsil reindex a.dat a.idx
tarsil: import: note: a.idx was not given; if it belongs to a.dat, it doesn't learn of this: `tarsil reindex` brings it up to date
{
  "file": "a.dat",
  "added": 1,
  "refused": 0,
  "next_line": 3
}
a.dat: sound; 9 records, 0 of them deleted, 241 bytes
a.idx: out of step; 1 key, 10,408 bytes
a.idx: built anew over 9 records: (id)

# Headers.
! printf 'id,nme,small\n1,x,1\n' | tarsil import a.dat a.idx -
tarsil: import: standard input, header line: there is no field 'nme': correct the name; --partial passes over such columns
! printf 'id,small\n1,1\n' | tarsil import a.dat a.idx -
tarsil: import: standard input, header line: no column for the field 'name': add it; with --partial such fields become 0 or empty
! printf 'id,id,name,small\n1,1,x,1\n' | tarsil import a.dat a.idx -
tarsil: import: standard input, header line: 'id' stands twice: remove one of them
$ printf 'id;extra;name\n60;?;\n' | tarsil import a.dat a.idx - --partial --separator ';'; tarsil find a.dat a.idx id 60 --format csv
a.dat: 1 record added
_number,id,name,small,_deleted
10,60,,0,0
$ printf '61,by place,\n' | tarsil import a.dat a.idx - --no-header --empty-is-zero; tarsil find a.dat a.idx id 61 --format csv
a.dat: 1 record added
_number,id,name,small,_deleted
11,61,by place,0,0
! tarsil import a.dat a.idx - < /dev/null
tarsil: import: standard input: has no header line: put the names of the fields there; --no-header goes without

# Without names the columns are in the order of the fields.
$ cp a.dat b.dat; printf 'Number,Title,Size\n70,x,1\n' | tarsil import b.dat - ; tarsil get b.dat 10 --json
b.dat: 1 record added
{"_number":10,"f1":60,"f2":"","f3":0}

# Going on where another import ended.
$ printf 'id,name,small\n80,a,1\n81,b,1\n82,c,1\n' > more.csv; tarsil import a.dat a.idx more.csv --from-line 4; tarsil find a.dat a.idx id 82 --format csv
a.dat: 1 record added
_number,id,name,small,_deleted
12,82,c,1,0

# JSON Lines.
$ cat > rows.jsonl << 'END'
> {"id": 90, "name": "json", "small": 7}
> {"small": 7, "id": 91, "name": "\u00e4"}
> 
> {"id": 92, "name": "x"}
> {"id": 92, "name": "x", "small": 7, "more": 1}
> {"id": 92, "id": 93, "name": "x", "small": 7}
> {"id": [92], "name": "x", "small": 7}
> {"id": true, "name": "x", "small": 7}
> {"id": 92, "name": 5, "small": 7}
> {"id": 92.5, "name": "x", "small": 7}
> {"id": 92, "name": "x"
> [92]
> {"id": 92, "name": null, "small": 7}
> {"id": 94, "name": "last", "small": 7, "_number": 3, "_deleted": true}
> END
> tarsil import a.dat a.idx rows.jsonl
rows.jsonl, line 4: small: has no value
rows.jsonl, line 5: there is no field 'more'
rows.jsonl, line 6: 'id' stands twice
rows.jsonl, line 7: a list is no value of a field
rows.jsonl, line 8: id: neither a number nor a text
rows.jsonl, line 9: name: 5 is no text
rows.jsonl, line 10: id: '92.5' is no whole number
rows.jsonl, line 11: no JSON, at byte 24 of the line
rows.jsonl, line 12: a list is no value of a field
rows.jsonl, line 13: name: null or \N is no value here: no record ends before its last field
a.dat: 3 records added, 10 refused
[1]

$ tarsil find a.dat a.idx id 94 --deleted --json; tarsil check a.dat a.idx | head -2
{"_number":15,"id":94,"name":"last","small":7,"_deleted":true}
a.dat: sound; 15 records, 1 of them deleted, 367 bytes
a.idx: sound; 1 key, 10,408 bytes

# Files.
! tarsil import a.dat a.idx
tarsil: import: a.idx: is no file of rows, but an index file: give the file with the rows last
! tarsil import a.dat a.idx not.csv
tarsil: import: not.csv: can't be read: No such file or directory: check its name and its permissions
! tarsil import a.dat a.idx .
tarsil: import: .: is a folder: give a file, or - for standard input
! tarsil import a.dat a.idx more.csv --rejects bad.csv
tarsil: import: bad.csv: exists already: choose another name, or remove it first
! tarsil import a.dat a.idx more.csv --format xml
tarsil: import: --format xml: there is no such format: it is csv, jsonl or raw
$ printf 'id,name,small\n95,x,1\n' | tarsil import a.dat a.idx - --dry-run --rejects none.csv; ls none.csv
a.dat: 1 record would be added
ls: cannot access 'none.csv': No such file or directory
[2]

# Progress: a line every so many seconds.
$ tarsil create p.dat --field a:text:20 --field n:i32; seq 1 9999 | sed 's/.*/x,&/' > many.csv
> TARSIL_PROGRESS=0.000001 tarsil import p.dat many.csv --no-header > progress.txt 2>&1; sed '1s/[0-9,]*[0-9]/N/g; 1!{/importing/d}' progress.txt
> TARSIL_PROGRESS=0.000001 tarsil export p.dat 2>&1 > out.csv | sed '1!d; s/[0-9,]*[0-9]/N/g'; tarsil import p.dat many.csv --no-header
p.dat: 2 fields, records of 24 bytes
importing N %, N records, N a second, N s left
p.dat: 9,999 records added
exporting N %, N records, N a second, N s left
p.dat: 9,999 records added
