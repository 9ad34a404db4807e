# For all rules: report() and code_of(), a line without its comments and the contents of its literals.

function report(what)
{
    report_at(FILENAME, FNR, what)
}

function report_at(file, line, what)
{
    print file ":" line ": " what
    faults++
}

FNR == 1 { in_comment = 0 }

function code_of(line,    out, at, two, quote)
{
    out = ""
    for (at = 1; at <= length(line); at++) {
        two = substr(line, at, 2)
        if (in_comment) {
            if (two == "*/") { in_comment = 0; at++ }
            continue
        }
        if (two == "//") break
        if (two == "/*") { in_comment = 1; at++; continue }
        quote = substr(two, 1, 1)
        out = out quote
        # A quote between digits is a separator of digits.
        if (quote != "\"" && (quote != "'" || out ~ /[0-9]'$/)) continue
        for (at++; at <= length(line) && substr(line, at, 1) != quote; at++)
            if (substr(line, at, 1) == "\\") at++
        out = out quote
    }
    return out
}

# The path in an #include, with its opening delimiter ("core/x.h or <x>), or nothing.
function included(line)
{
    if (line !~ /^[ \t]*#[ \t]*include[ \t]*["<]/) return ""
    sub(/^[ \t]*#[ \t]*include[ \t]*/, "", line)
    sub(/[">][^">]*$/, "", line)
    return line
}

END { if (faults) exit 1 }
