# A full disk and a disk that may not be written.
! needs unshare -m mount -t tmpfs none /mnt
$ mkdir disk; cat > on_disk << 'END'
> mount -t tmpfs -o size=256k none disk || exit 9
> cd disk
> . "$1"
> END

# What was added before the disk was full is there and sound.
$ cat > fill << 'END'
> tarsil create a.dat --field n:i32 --field t:text:100; tarsil index a.dat a.idx --key n --key t
> seq 1 9999 | sed 's/$/,text/' | tarsil import a.dat - --no-header 2> ../failed.txt; echo $?
> tarsil check a.dat | head -1 | sed 's/;.*//'
> tarsil export a.dat --output out.csv; ls
> rm a.idx; tarsil index a.dat a.idx --key n; ls
> tarsil add a.dat --set n=1 --set t=more | sed 's/[0-9][0-9]*/N/'
> END
> unshare -m sh on_disk ../fill; sed 's/[0-9,]* records/N records/; s/line [0-9]*/line N/' failed.txt
a.dat: 2 fields, records of 104 bytes
a.idx: 2 keys over 0 records: (n), (t)
2
a.dat: sound
tarsil: export: out.csv: can't be written: No space left on device: give it room, and start anew
a.dat
a.dat.fields
a.idx
tarsil: index: a.idx: a node was not written whole (TS_NODE_WRITE_SHORT, -1011): check the space on the disk, then build the index anew
a.dat
a.dat.fields
a.dat: record N added
tarsil: import: note: a.idx was not given; if it belongs to a.dat, it doesn't learn of this: `tarsil reindex` brings it up to date
tarsil: import: a.dat: the disk is full: make room, and try again. N records added; --from-line N goes on behind that

$ cat > read_only << 'END'
> tarsil create a.dat --field n:i32; mount -o remount,ro disk ../disk; mount -o remount,ro .
> tarsil get a.dat 1; tarsil add a.dat --set n=1; tarsil create b.dat --field n:i32; tarsil info a.dat | grep records
> END
> unshare -m sh on_disk ../read_only
a.dat: 1 field, records of 4 bytes
tarsil: get: a.dat: may not be written: Read-only file system: files are always opened for both; change the permissions, or work on a copy
tarsil: add: a.dat: may not be written: Read-only file system: files are always opened for both; change the permissions, or work on a copy
tarsil: create: b.dat.fields: can't be made: Read-only file system: check the folder and its permissions
records        0
end of records 36
records left   178,956,967
