# Wrong command lines, narrow terminals, closed pipes, full or read-only places.

! tarsil
tarsil: no command: `tarsil --help` lists them
! tarsil frobnicate
tarsil: 'frobnicate' is no command: `tarsil --help` lists them
! tarsil get
tarsil: get: DATA is required: `tarsil get --help` tells how
! tarsil get a.dat 1 --frob
tarsil: get: '--frob' is no option here: `tarsil get --help` tells how
! tarsil get a.dat 1 --wait long
tarsil: get: --wait: 'long' is no number from 0 to 86400: `tarsil get --help` tells how
$ tarsil --help | head -3; tarsil find --help | grep -A2 Examples; tarsil --version
Works on TARSIL32 data files and index files.
Usage: tarsil [OPTIONS] SUBCOMMAND

Examples:
  tarsil find airports.dat airports.idx ident LSZH
  tarsil find airports.dat airports.idx country,name CH Ber --prefix
tarsil 2.10

$ tarsil create a.dat --field 'a long name of a field:text:30' --field n:i32 --field note:text:80
> seq 1 3000 | sed 's/.*/a text with blanks in it,&,ä rather long text that goes on and on and on to the end/' | tarsil import a.dat - --no-header
> COLUMNS=40 tarsil get a.dat 1; COLUMNS=40 tarsil get a.dat 1 2 | awk 'length > 40'; COLUMNS=40 tarsil info a.dat | awk 'length > 40'
a.dat: 3 fields, records of 114 bytes
a.dat: 3,000 records added
record                 1
a long name of a field a text with
                       blanks in it
n                      1
note                   ä rather long
                       text that goes on
                       and on and on to
                       the end
$ COLUMNS=40 tarsil explain -1
code   -1
name   TS_CREATE_DATA_FILE_EXISTS
cause  tscrdata32: the file can be
       opened, so it exists already
remedy Choose another name, or open the
       file with tsopend32
$ tarsil export a.dat | head -1
a long name of a field,n,note
tarsil: export: note: the reader of the output has closed it; the rest was not written
! tarsil export a.dat > /dev/full
tarsil: export: the output can't be written: No space left on device: give it room and start anew

$ (ulimit -f 64; tarsil export a.dat --output big.csv); ls big.csv
tarsil: export: big.csv: can't be written: File too large: give it room, and start anew
ls: cannot access 'big.csv': No such file or directory
[2]

# An import that meets a limit tells how far it came, and goes on from there.
$ seq 1 3000 | sed 's/.*/x,&,y/' > rows.csv; tarsil create b.dat --field a:text:80 --field n:i32 --field c:text:20
> (ulimit -f 200; tarsil import b.dat rows.csv --no-header) 2> failed.txt; echo $?; sed 's/[0-9,]* records/N records/; s/line [0-9]*/line N/' failed.txt
b.dat: 3 fields, records of 104 bytes
2
tarsil: import: b.dat: has reached the limit for the size of files (ulimit -f): raise the limit, and try again. N records added; --from-line N goes on behind that
$ tarsil check b.dat | head -1 | sed 's/;.*//'; tarsil import b.dat rows.csv --no-header $(grep -o -e '--from-line [0-9]*' failed.txt) | sed 's/[0-9,]* records/N records/'
> tarsil export b.dat | tail -n +2 | cmp - rows.csv
b.dat: sound
b.dat: N records added
