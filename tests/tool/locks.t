# locks: which process holds what of a file, by its meaning.

$ tarsil create a.dat --field n:i32 --field t:text:28; tarsil index a.dat a.idx --key n --key t --order 4
> seq 1 20 | sed 's/$/,x/' | tarsil import a.dat a.idx - --no-header; tarsil locks a.dat a.idx
a.dat: 2 fields, records of 32 bytes
a.idx: 2 keys over 0 records: (n), (t)
a.dat: 20 records added
nobody has these files open

# shown MODE FILE...: what the command says while tool_hold is at work, without the number of that process.
$ cat > shown << 'END'
> tool_hold "$@" > ready & holder=$!
> until [ -s ready ]; do sleep 0.01; done
> tarsil locks $2 $json | sed "s/  */ /g; s/ $//; s/$holder/N/"; kill $holder 2> kill.txt; wait $holder 2> kill.txt; rm ready
> END

$ sh shown open a.dat; sh shown alone a.dat; sh shown lock a.dat; json=--json sh shown ranges a.idx 0 2147483647 | grep -A 9 process\"
FILE PROCESS PROGRAM OPEN HOLDS FROM TO
a.dat N tool_hold shared nothing
FILE PROCESS PROGRAM OPEN HOLDS FROM TO
a.dat N tool_hold alone nothing
FILE PROCESS PROGRAM OPEN HOLDS FROM TO
a.dat N tool_hold shared the whole file 0 2147483646
 "process": N,
 "program": "tool_hold",
 "open": "without a lock",
 "ranges": [
 {
 "first": 0,
 "last": 2147483646,
 "exclusive": true,
 "meaning": "the whole file"
 }

# Records of 40 bytes from 44 on.
$ sh shown ranges a.dat 4 24 124 8 212 32 444 120 844 40
FILE PROCESS PROGRAM OPEN HOLDS FROM TO
a.dat N tool_hold without a lock header 4 27
a.dat N tool_hold without a lock frame of record 3 124 131
a.dat N tool_hold without a lock body of record 5 212 243
a.dat N tool_hold without a lock records 11 to 13 444 563
a.dat N tool_hold without a lock record 21, being added 844 883
$ sh shown ranges a.dat 0 30 44 40 90 4; sh shown ranges a.idx 0 4 10 90 2216 104 4000 30
FILE PROCESS PROGRAM OPEN HOLDS FROM TO
a.dat N tool_hold without a lock file mark, header, field table 0 29
a.dat N tool_hold without a lock record 1 44 83
a.dat N tool_hold without a lock a part of record 2 90 93
FILE PROCESS PROGRAM OPEN HOLDS FROM TO
a.idx N tool_hold without a lock file mark 0 3
a.idx N tool_hold without a lock key records 10 99
a.idx N tool_hold without a lock the node at 2216 of key 0 2216 2319
a.idx N tool_hold without a lock nodes from 4000 to 4029 4000 4029

$ echo text > foreign; tarsil locks foreign; sh shown ranges foreign 1 2
nobody has foreign open
FILE PROCESS PROGRAM OPEN HOLDS FROM TO
foreign N tool_hold without a lock a range 1 2
! tarsil locks none.dat
tarsil: locks: none.dat: there is no such file: check the name
! tarsil locks .
tarsil: locks: .: is not a regular file: check the name
