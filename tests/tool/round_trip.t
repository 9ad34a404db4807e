# What is exported and imported again is the same to the last byte, whatever the bytes are.

# All types with bytes by chance, some records deleted.
$ fields='--field a:i32 --field b:u32 --field c:i16 --field d:u16 --field e:u8 --field f:f32 --field g:f64 --field h:text:9'
> tarsil create a.dat $fields; head -c 68000 /dev/urandom > chance.raw; tarsil import a.dat chance.raw
> tarsil delete a.dat 1 77 2000
> for format in csv jsonl; do
> tarsil create $format.dat $fields; tarsil export a.dat --deleted --output a.$format
> tarsil import $format.dat a.$format; cmp a.dat $format.dat
> done
> tarsil undelete a.dat 1 77 2000; tarsil export a.dat --format raw | cmp - chance.raw
a.dat: 8 fields, records of 34 bytes
a.dat: 2,000 records added
a.dat: records 1, 77, 2000 deleted
csv.dat: 8 fields, records of 34 bytes
a.csv: 2,000 records
csv.dat: 2,000 records added
jsonl.dat: 8 fields, records of 34 bytes
a.jsonl: 2,000 records
jsonl.dat: 2,000 records added
a.dat: records 1, 77, 2000 undeleted

# The limits of numbers, and what is no number.
$ tarsil create n.dat --field i:i32 --field u:u32 --field f:f32 --field d:f64
> cat > n.csv << 'END'
> i,u,f,d
> -2147483648,0,3.4028235e+38,1.7976931348623157e+308
> 2147483647,4294967295,1e-45,5e-324
> 0,1,-0,-0
> 0,1,inf,-inf
> 0,1,nan,nan
> 0,1,nan(0x7f800001),nan(0xfff8000000000001)
> 0,1,0.1,0.1
> END
> tarsil import n.dat n.csv; tarsil export n.dat | cmp - n.csv; tarsil export n.dat --json | tee n.jsonl
> tarsil create m.dat --field i:i32 --field u:u32 --field f:f32 --field d:f64; tarsil import m.dat n.jsonl; cmp n.dat m.dat
n.dat: 4 fields, records of 20 bytes
n.dat: 7 records added
{"i":-2147483648,"u":0,"f":3.4028235e+38,"d":1.7976931348623157e+308}
{"i":2147483647,"u":4294967295,"f":1e-45,"d":5e-324}
{"i":0,"u":1,"f":-0.0,"d":-0.0}
{"i":0,"u":1,"f":"inf","d":"-inf"}
{"i":0,"u":1,"f":"nan","d":"nan"}
{"i":0,"u":1,"f":"nan(0x7f800001)","d":"nan(0xfff8000000000001)"}
{"i":0,"u":1,"f":0.1,"d":0.1}
m.dat: 4 fields, records of 20 bytes
m.dat: 7 records added

# Texts: as they are, and behind the mark where they have to be.
$ tarsil create t.dat --field t:text:8
> printf 'plain\0\0\0a\0b\0\0\0\0\0\377\376\0\0\0\0\0\0\\N\0\0\0\0\0\0\\:x\0\0\0\0\0C:\\new\0\0\033[1m\0\0\0\0two\nline\0\0\0\0\0\0\0\0"q", \0\0\0' > t.raw
> tarsil import t.dat t.raw; tarsil export t.dat | tee t.csv; tarsil export t.dat --json | tee t.jsonl
t.dat: 1 field, records of 8 bytes
t.dat: 10 records added
t
plain
\:a\x00b
\:\xff\xfe
\:\\N
\:\\:x
C:\new
\:\x1b[1m
"two
line"
""
"""q"", "
{"t":"plain"}
{"t":"\\:a\\x00b"}
{"t":"\\:\\xff\\xfe"}
{"t":"\\:\\\\N"}
{"t":"\\:\\\\:x"}
{"t":"C:\\new"}
{"t":"\\:\\x1b[1m"}
{"t":"two\u000aline"}
{"t":""}
{"t":"\"q\", "}

$ for file in t.csv t.jsonl; do
> tarsil create $file.dat --field t:text:8; tarsil import $file.dat $file; cmp t.dat $file.dat
> done; tarsil get t.dat 2 3 7
t.csv.dat: 1 field, records of 8 bytes
t.csv.dat: 10 records added
t.jsonl.dat: 1 field, records of 8 bytes
t.jsonl.dat: 10 records added
record t
     2 a
     3 \xff\xfe
     7 \x1b[1m

# Records of variable length: an empty text, zero bytes at its end, a record that ends before its text.
$ tarsil create v.dat --field a:u16 --field b:text:4 --field t:text:20 --variable
> printf '\007\0\0\0AAwordx\010\0\0\0AAwordx\0\006\0\0\0AAword\002\0\0\0AA' > v.raw
> tarsil import v.dat v.raw; tarsil export v.dat | tee v.csv; tarsil export v.dat --json | tee v.jsonl
> for file in v.csv v.jsonl; do
> tarsil create $file.dat --field a:u16 --field b:text:4 --field t:text:20 --variable
> tarsil import $file.dat $file; cmp v.dat $file.dat
> done; tarsil export v.dat --format raw | cmp - v.raw
v.dat: 3 fields, records of variable length
v.dat: 4 records added
a,b,t
16705,word,x
16705,word,\:x\x00
16705,word,
16705,\N,\N
{"a":16705,"b":"word","t":"x"}
{"a":16705,"b":"word","t":"\\:x\\x00"}
{"a":16705,"b":"word","t":""}
{"a":16705,"b":null,"t":null}
v.csv.dat: 3 fields, records of variable length
v.csv.dat: 4 records added
v.jsonl.dat: 3 fields, records of variable length
v.jsonl.dat: 4 records added

$ printf 'a,b,t\n1,\\N,text\n\\N,\\N,\\N\n' | tarsil import v.dat -
standard input, line 2: a field behind the end of the record has a value
standard input, line 3: a record without a byte can't be stored
v.dat: 0 records added, 2 refused
[1]

# A record that ends inside a field is for raw bytes alone.
$ printf '\001\0\0\0A' | tarsil import v.dat - --format raw; tarsil export v.dat --from 5; tarsil export v.dat --from 5 --format raw | od -An -tx1
v.dat: 1 record added
tarsil: export: a record of 1 byte ends inside the field 'a': --format raw takes it as it is; or describe the records anew by --fields
a,b,t
 01 00 00 00 41
$ printf '\001\0\0' | tarsil import v.dat - --format raw; printf '\003\0\0\0A' | tarsil import v.dat - --format raw
> printf 'short' | tarsil import t.dat - --format raw
tarsil: import: standard input, record 1: has no length: check that the file holds records behind their lengths
tarsil: import: standard input, record 1: the file ends inside it: check that the file is whole and of records of this length
tarsil: import: standard input, record 1: the file ends inside it: check that the file is whole and of records of this length
[2]

# Files of others: bytes behind the fields, without a field table, with names of the user's own.
$ tarsil create two.dat --field a:u8 --field b:text:3 > /dev/null; rm two.dat.fields
> { head -c 16 two.dat; printf '\044\0\0\0\010\0\0\0'; tail -c +25 two.dat | head -c 12; } > one.dat
> { head -c 16 two.dat; printf '\034\0\0\0\0\0\0\0\0\0\0\0'; } > none.dat
> for file in two one none; do
> printf '\101abc' | tarsil import $file.dat - --format raw; tarsil export $file.dat; tarsil check $file.dat; done
two.dat: 1 record added
f1,f2
65,abc
two.dat: sound; 1 record, 0 of them deleted, 56 bytes
one.dat: 1 record added
f1,rest
65,abc
one.dat: sound; 1 record, 0 of them deleted, 48 bytes
none.dat: 1 record added
record
Aabc
none.dat: sound; 1 record, 0 of them deleted, 40 bytes
$ echo 'mine own c 1' > one.dat.fields; tarsil get one.dat 1 --json; tarsil update one.dat 1 --set rest=xy; tarsil get one.dat 1 --json
{"_number":1,"mine own":65,"rest":"abc"}
one.dat: record 1 updated
{"_number":1,"mine own":65,"rest":"xy"}
! tarsil get one.dat 1 --fields none.fields
tarsil: get: none.fields: can't be read: No such file or directory: check its name and its permissions
