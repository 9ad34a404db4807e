# Files and functions stay short. A function's body stands between a { and a } that are alone at the left margin.
# -v max_file=LINES -v max_function=LINES -v long_files="FILE..."
BEGIN { count = split(long_files, list, " "); for (i = 1; i <= count; i++) long_file[list[i]] = 1 }

function end_file()
{
    if (file != "" && lines > max_file && !(file in long_file))
        report_at(file, lines, "sizes: a file of " lines " lines; " max_file " are the most")
}

FNR == 1 { end_file(); begin = 0 }
{ file = FILENAME; lines = FNR }
/^{$/ { begin = FNR }
/^}/ && begin {
    if (FNR - begin + 1 > max_function)
        report_at(FILENAME, begin, "sizes: a function of " (FNR - begin + 1) " lines; " max_function " are the most")
    begin = 0
}

END { end_file(); if (faults) exit 1 }
