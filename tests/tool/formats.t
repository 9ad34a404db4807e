# The worked examples of docs/FILE_FORMATS.md: the files are made here, and dumped as they stand there.

$ cat > is_shown << 'END'
> sed -n "/^\`\`\`text $1\$/,/^\`\`\`\$/p" "$FILE_FORMATS" | sed '1d; $d; s/ *|.*//; s/^00//; s/  */ /g' > shown
> od -A x -t x1 $1 | sed '$d; s/  */ /g' | diff shown - && echo $(($(wc -l < shown))) lines of $1
> END

$ tarsil create trees.dat --field name:text:4 --field number:i16
> tarsil index trees.dat trees.idx --key name,number --order 2
> printf 'oak,12\nelm,-3\nash,7\nfir,40\nelm,-3\n' | tarsil import trees.dat trees.idx - --no-header
> tarsil delete trees.dat 4; sh is_shown trees.dat; sh is_shown trees.idx
trees.dat: 2 fields, records of 6 bytes
trees.idx: 1 key over 0 records: (name, number)
trees.dat: 5 records added
trees.dat: record 4 deleted
8 lines of trees.dat
22 lines of trees.idx

# The header of an empty file of variable length without fields, which the tool itself doesn't make.
$ printf '*TSD\0\0\0\0\0\0\0\0\377\377\377\377\034\0\0\0\0\0\0\0\0\0\0\0' > notes.dat
> printf '\5\0\0\0Hello\2\0\0\0ok' | tarsil import notes.dat - --format raw; sh is_shown notes.dat
notes.dat: 2 records added
4 lines of notes.dat
