# Beside other processes: waiting, and naming who is in the way.

$ tarsil create a.dat --field n:i32; tarsil index a.dat a.idx --key n; echo 1 | tarsil import a.dat a.idx - --no-header
a.dat: 1 field, records of 4 bytes
a.idx: 1 key over 0 records: (n)
a.dat: 1 record added

# held MODE SECONDS COMMAND: with tool_hold in that mode on a.dat for so long.
$ cat > held << 'END'
> timeout $2 tool_hold $1 a.dat > ready & holder=$!
> until [ -s ready ]; do sleep 0.01; done
> shift 2; "$@"; status=$?
> kill $holder 2> kill.txt; wait $holder 2> kill.txt; rm ready; exit $status
> END
$ sh held open 60 tarsil get a.dat 1; sh held open 60 tarsil add a.dat a.idx --set n=2
record 1
n      1
a.dat: record 2 added
! sh held open 60 tarsil get a.dat 1 --single-user
tarsil: get: a.dat: process * (tool_hold) has it open: give --multi-user if it shares its files, or wait (glob)
$ echo 3 | sh held open 60 tarsil import a.dat a.idx /dev/stdin --no-header
a.dat: 1 record added

# What needs the files alone.
$ for command in purge compact reindex; do sh held open 60 tarsil $command a.dat a.idx --wait 0; done
tarsil: purge: a.dat: process * (tool_hold) has it open: give --multi-user if it shares its files, or wait (glob)
tarsil: compact: a.dat: process * (tool_hold) has it open: close it there, or wait longer with --wait (glob)
tarsil: reindex: a.dat: process * (tool_hold) has it open: give --multi-user if it shares its files, or wait (glob)
[2]
! sh held alone 60 tarsil get a.dat 1 --wait 0.1
tarsil: get: a.dat: process * (tool_hold) has it open: wait until it has ended, or give --wait more seconds (glob)
! sh held lock 60 tarsil export a.dat --wait 0.1
tarsil: export: a.dat: process * (tool_hold) holds what is needed of it: try again, or give --wait more seconds (glob)
! sh held lock 60 tarsil delete a.dat 1 --wait 0
tarsil: delete: a.dat: process * (tool_hold) holds what is needed of it: try again, or give --wait more seconds (glob)

# Who only looks isn't kept off.
$ sh held alone 60 tarsil info a.dat | grep -e records -e open; sh held open 60 tarsil check a.dat
> for mode in alone lock; do sh held $mode 60 tarsil check a.dat --wait 0.1; done
records        3
end of records 72
records left   178,956,964
open in        process * (tool_hold) (glob)
a.dat: sound; 3 records, 0 of them deleted, 72 bytes
tarsil: check: warning: a.dat: process * (tool_hold) has it open and may be changing it; what is read now may be half of a change (glob)
a.dat: sound; 3 records, 0 of them deleted, 72 bytes
tarsil: check: warning: a.dat: process * (tool_hold) has it open and may be changing it; what is read now may be half of a change (glob)
a.dat: sound; 3 records, 0 of them deleted, 72 bytes

# Who is only in the way for a moment is waited for.
$ sh held lock 0.3 tarsil delete a.dat 1 --wait 20; sh held alone 0.3 tarsil undelete a.dat 1 --wait 20
> sh held lock 0.3 tarsil check a.dat --wait 20
a.dat: record 1 deleted
a.dat: record 1 undeleted
a.dat: sound; 3 records, 0 of them deleted, 72 bytes

# An import that waits for its rows lets others work meanwhile, and sees what they add.
$ mkfifo rows; tarsil import --multi-user a.dat a.idx rows --no-header > import.txt & { echo 4; sleep 0.3; tarsil add a.dat a.idx --set n=5 >&2; echo 6; } > rows; wait; cat import.txt
> tarsil export a.dat --by a.idx:n --no-header | tr '\n' ' '; tarsil check a.dat a.idx | head -2
a.dat: record 5 added
a.dat: 2 records added
1 2 3 4 5 6 a.dat: sound; 6 records, 0 of them deleted, 108 bytes
a.idx: sound; 1 key, 10,408 bytes

# A wish to stop ends an import in order.
$ tarsil import a.dat a.idx rows --no-header & { echo 7; sleep 0.3; kill -INT $!; seq 8 9999; } > rows; wait $!; status=$?; tarsil check a.dat a.idx | head -2; exit $status
tarsil: import: stopped: 1 record added; --from-line 2 goes on behind that
a.dat: sound; 7 records, 0 of them deleted, 120 bytes
a.idx: sound; 1 key, 10,408 bytes
[2]
$ tarsil import a.dat rows --dry-run --no-header & { printf '8\n9'; sleep 0.3; kill -INT $!; sleep 0.3; } > rows; wait $!
tarsil: import: stopped: 1 record added; --from-line 2 goes on behind that
[2]

# So does one at the end of what a pipe gave, which need not be all.
$ tarsil import a.dat rows --dry-run --no-header & { echo 8; sleep 0.3; kill -INT $!; sleep 0.3; } > rows; wait $!
tarsil: import: stopped: 1 record added; --from-line 2 goes on behind that
[2]
