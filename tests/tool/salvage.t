# salvage: copies what is whole, and refuses without a trace. What it saves of damaged files is told in salvage_test.cpp.

$ tarsil create a.dat --field id:i32 --field t:text:28; tarsil index a.dat a.idx --key id
> seq 1 100 | sed 's/$/,text/' | tarsil import a.dat - --no-header 2> out.txt; tarsil delete a.dat $(seq 9 9 100) > out.txt
> tarsil salvage a.dat new.dat; cmp new.dat a.dat; cmp new.dat.fields a.dat.fields
> rm new.*; tarsil salvage a.dat new.dat --live; tarsil check new.dat; rm new.*
> tarsil salvage a.dat new.dat --dry-run --json | tr -d ' \n'
a.dat: 2 fields, records of 32 bytes
a.idx: 1 key over 0 records: (id)
a.dat: 100 records added
a.dat: records of 32 bytes, as the header tells; 2 fields; the first record at 44
new.dat: 100 records saved, 11 of them deleted
The index files of a.dat don't fit it: make new ones with `tarsil index`.
a.dat: records of 32 bytes, as the header tells; 2 fields; the first record at 44
new.dat: 89 records saved, 0 of them deleted
left out: 11 deleted records
The index files of a.dat don't fit it: make new ones with `tarsil index`.
new.dat: sound; 89 records, 0 of them deleted, 3,604 bytes
{"file":"a.dat","new_file":"new.dat","record_length":32,"record_length_known":"astheheadertells","first_record":44,"fields":2,"records":100,"deleted":11,"doubtful":0,"left_out":0,"gaps":0,"bytes_lost":0,"gap_list":[]}

$ echo something > taken.dat; head -c 3000 /dev/zero | tr '\0' x > noise
> for given in 'a.dat taken.dat' 'a.idx new.dat' 'noise new.dat' 'none.dat new.dat' 'a.dat no/new.dat' 'a.dat new.dat --record-length none' 'a.dat new.dat --field id'
> do tarsil salvage $given; done; (ulimit -f 4; tarsil salvage a.dat new.dat); cat taken.dat; ls new*
tarsil: salvage: taken.dat: exists already: choose another name, or remove it first
tarsil: salvage: a.idx: is an index file: indexes are made anew by `tarsil index`
tarsil: salvage: noise: no records were found in it: if it is a data file, tell what is known with --record-length and --start
tarsil: salvage: none.dat: there is no such file: check the name
tarsil: salvage: */no/new.dat.salvaging: the start of a new file cannot be reached, as when the file could not be created (TS_FILE_MARK_WRITE_POSITION, -1001): check the name and the permissions of the folder (glob)
tarsil: salvage: --record-length none: is no length: give a number of bytes, or the word variable
tarsil: salvage: --field id: no type: write NAME:TYPE, the type being i32, u32, i16, u16, u8, f32 or f64, or NAME:text:LENGTH
tarsil: salvage: */new.dat.salvaging: has reached the limit for the size of files (ulimit -f): raise the limit, and try again (glob)
something
ls: cannot access 'new*': No such file or directory
[2]
