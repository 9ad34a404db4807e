# create: the field table, the names beside it, and all that it refuses.

$ tarsil create 'my trees.dat' --field 'full name:text:12' --field height:f32 --field count:i
my trees.dat: 3 fields, records of 20 bytes
$ cat 'my trees.dat.fields'
# The fields of the records, in their order: name, letter, length.
full name s 12
height    f 4
count     i 4
$ od -An -tx1 'my trees.dat'
 2a 54 53 44 00 00 00 00 00 00 00 00 14 00 00 00
 34 00 00 00 18 00 00 00 00 00 00 00 0c 00 00 00
 73 00 00 00 04 00 00 00 66 00 00 00 04 00 00 00
 69 00 00 00

# Types by name and by letter; a name may hold colons.
$ tarsil create all.dat --field a:i32 --field b:u32 --field c:i16 --field d:u16 --field e:u8 --field f:f32 --field g:f64
> tarsil create letters.dat --field a:b:s:3 --field c:L --field d:l
> tarsil info letters.dat | tail -4
all.dat: 7 fields, records of 25 bytes
letters.dat: 3 fields, records of 11 bytes
FIELD TYPE   LETTER BYTES OFFSET
a:b   text:3 s          3      0
c     u32    L          4      3
d     i32    l          4      7
$ tarsil create notes.dat --field day:i32 --field note:text:200 --variable --json | tr -d ' \n'
{"file":"notes.dat","created":true,"record_length":null,"fields":[{"name":"day","type":"i32","letter":"i","length":4,"offset":0},{"name":"note","type":"text:200","letter":"s","length":200,"offset":4}]}
$ tarsil create dry.dat --field a:i32 --dry-run; ls dry*
would make dry.dat: 1 field, records of 4 bytes
ls: cannot access 'dry*': No such file or directory
[2]

# Refused: nothing is made.
! tarsil create 'my trees.dat' --field a:i32
tarsil: create: my trees.dat: exists already: choose another name, or remove it first
! tarsil create x.dat
tarsil: create: --field is required: `tarsil create --help` tells how
! tarsil create x.dat --field a
tarsil: create: --field a: no type: write NAME:TYPE, the type being i32, u32, i16, u16, u8, f32 or f64, or NAME:text:LENGTH
! tarsil create x.dat --field a:i64
tarsil: create: --field a:i64: 'i64' is no type: write NAME:TYPE, the type being i32, u32, i16, u16, u8, f32 or f64, or NAME:text:LENGTH
! tarsil create x.dat --field a:text
tarsil: create: --field a:text: a text needs a length: write NAME:TYPE, the type being i32, u32, i16, u16, u8, f32 or f64, or NAME:text:LENGTH
! tarsil create x.dat --field a:i32:8
tarsil: create: --field a:i32:8: i32 has 4 bytes: write NAME:TYPE, the type being i32, u32, i16, u16, u8, f32 or f64, or NAME:text:LENGTH
! tarsil create x.dat --field a:i32 --field a:u8
tarsil: create: --field a:u8: the name stands twice: give each field a name of its own
! tarsil create x.dat --field a,b:i32
tarsil: create: --field a,b:i32: 'a,b' can't be the name of a field: choose one without , and =, without # at its front and blanks at its ends
! tarsil create x.dat --field note:text:9 --field a:i32 --variable
tarsil: create: --variable: the last field is no text: put the text whose length varies behind all other fields
! tarsil create x.dat --field a:text:2147483647 --field b:text:2147483647
tarsil: create: x.dat: a record would have 4,294,967,294 bytes: a file holds 2 GiB at most; make the texts shorter
! tarsil create no/x.dat --field a:i32
tarsil: create: no/x.dat.fields: can't be made: No such file or directory: check the folder and its permissions

$ echo mine > y.dat.fields; tarsil create y.dat --field a:i32; cat y.dat.fields; ls x* y*
tarsil: create: y.dat.fields: exists already: choose another name, or remove it first
mine
ls: cannot access 'x*': No such file or directory
y.dat.fields
[2]
