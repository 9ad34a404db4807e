# The man pages out of the public header; see make-man. The first file is the table of codes, the second the header:
# its head, its types, and its families, each under a line "// --- Title", where a comment stands over the
# declarations that it tells of.
BEGIN {
    # The page of each family. A family that is not here stops the making of the pages.
    split("tsinit32|Start, stop, options|tsdata|Data files|tsread|Reading records without a key|tsadd|Adding|" \
        "tsdelete|Deleting and undeleting|tsupdate|Updating|tsmaintain|Maintenance|tsindex|Index files|" \
        "tskeyread|Reading by key value|tswalk|Reading in key order|" \
        "tsposition|Position exchange and facts of a key|tsshare|Multi-user operation|tstext|Text services", pair, "|")
    for (i = 1; i in pair; i += 2) {
        page_of[pair[i + 1]] = pair[i]
        page_list[++page_total] = pair[i]
    }
}

# --- Reading

FNR == 1 { file_number++ }

# X(NAME, NUMBER, "cause", \ and on the next line "remedy"). Other comments of the table are its headings.
file_number == 1 {
    if ($0 ~ /^[ ]*\/\*.*\*\// && code_total >= 0) heading = between($0, "/* ", " */")
    if ($0 ~ /^[ ]*X\(/) {
        code = $1
        sub(/^X\(/, "", code)
        sub(/,$/, "", code)
        code_name[++code_total] = code
        code_heading[code_total] = heading
        heading = ""
        code_number[code] = $2 + 0
        cause[code] = between($0, "\"", "\"")
        next
    }
    if (code != "" && $0 ~ /^[ ]*"/) { remedy[code] = between($0, "\"", "\""); code = "" }
    next
}

FNR == 1 { in_head = 1 }
in_head && !/^\/\// { in_head = 0 }
in_head { head = head strip($0) "\n"; next }

/^\/\/ --- / {
    title = strip($0)
    sub(/^--- /, "", title)
    sub(/ *(\(.*\))? *-*$/, "", title)
    if (!(title in page_of)) die("no page for the family " title)
    page = page_of[title]
    title_of[page] = title
    text = ""
    next
}
/^\/\// { text = text strip($0) "\n"; next }
page == "" && /^(typedef struct|enum) / && !/^enum tarsil32_code/ { in_type = 1; type_text = $0; next }
in_type {
    type_text = type_text "\n" $0
    if ($0 ~ /^}/) {
        type_total++
        type_comment[type_total] = text
        type_code[type_total] = type_text
        in_type = 0
        text = ""
    }
    next
}
/^TARSIL32_API/ { declaration = "" ; in_declaration = 1 }
in_declaration {
    line = $0
    gsub(/^ +/, "", line)
    declaration = declaration (declaration == "" ? "" : " ") line
    if ($0 !~ /;$/) next
    in_declaration = 0
    sub(/^TARSIL32_API /, "", declaration)
    add_declaration(declaration)
    next
}
/^$/ { text = "" }

function strip(line) { sub(/^\/\/ ?/, "", line); return line }

function between(line, before, behind,    at)
{
    at = index(line, before)
    if (!at) return ""
    line = substr(line, at + length(before))
    at = length(line)
    while (at > 0 && substr(line, at, length(behind)) != behind) at--
    return substr(line, 1, at - 1)
}

# A declaration belongs to the group of the comment above it; the first one opens the group.
function add_declaration(line,    name)
{
    if (page == "") die("a function before the first family: " line)
    name = line
    sub(/\(.*/, "", name)
    sub(/.*[ *]/, "", name)
    function_page[name] = page
    functions[page] = functions[page] " " name
    prototypes[page] = prototypes[page] line "\n"
    if (text != "") {
        group_total[page]++
        group_text[page, group_total[page]] = text
        text = ""
    }
    group_names[page, group_total[page]] = group_names[page, group_total[page]] " " name
}

function die(what)
{
    print "make-man: " what > "/dev/stderr"
    failed = 1
    exit 1
}

# --- Writing

END {
    if (failed) exit 1
    for (i = 1; i <= page_total; i++) {
        if (!(page_list[i] in title_of)) die("no family for the page " page_list[i])
        write_family(page_list[i])
    }
    write_interface()
    write_codes()
    for (name in function_page)
        if (name != function_page[name]) write_alias(name, function_page[name])
}

function begin_page(name)
{
    out = folder "/" name ".3"
    printf ".\\\" Made by scripts/make-man from include/tarsil32.h.\n" > out
    printf ".TH %s 3 \"\" \"TARSIL32 2.10\" \"TARSIL32 manual\"\n", toupper(name) > out
}

function write_alias(name, page)
{
    out = folder "/" name ".3"
    printf ".so man3/%s.3\n", page > out
    close(out)
}

# Plain text for troff: what could be a request or a quote, names in bold and arguments in italics.
function troff(words,    done, word)
{
    gsub(/\\/, "\\e", words)
    gsub(/'/, "\\(aq", words)
    gsub(/-/, "\\-", words)
    done = ""
    while (match(words, /TS_[A-Z0-9_]+|ts[A-Za-z0-9]*32|check_share_loaded32/)) {
        word = substr(words, RSTART, RLENGTH)
        done = done substr(words, 1, RSTART - 1) "\\fB\\%" word "\\fR"
        words = substr(words, RSTART + RLENGTH)
    }
    words = done words
    while (match(words, /`[^`]*`/))
        words = substr(words, 1, RSTART - 1) "\\fI" substr(words, RSTART + 1, RLENGTH - 2) "\\fR" \
            substr(words, RSTART + RLENGTH)
    if (words ~ /^[.]/) words = "\\&" words
    return words
}

function write_text(words,    count, line, i, open)
{
    count = split(words, line, "\n")
    open = 0
    for (i = 1; i <= count; i++) {
        if (line[i] == "") { open = 0; continue }
        if (!open && i > 1) print ".PP" > out
        open = 1
        print troff(line[i]) > out
    }
}

# "type *name" and the like, in the alternation of fonts that .BI makes; broken into lines of a terminal.
function write_prototype(line,    open, start, count, arg, i, name, piece, column, indent)
{
    sub(/;$/, "", line)
    open = index(line, "(")
    start = substr(line, 1, open)
    line = substr(line, open + 1)
    sub(/\)$/, "", line)
    count = split(line, arg, /, */)
    indent = sprintf("%" length(start) "s", "")
    printf ".BI \"%s", start > out
    column = length(start)
    for (i = 1; i <= count; i++) {
        name = arg[i]
        sub(/.*[ *]/, "", name)
        piece = substr(arg[i], 1, length(arg[i]) - length(name))
        if (piece == "") { piece = name; name = "" } # (void)
        if (i > 1 && column + length(arg[i]) > 66) {
            printf "\n.BI \"%s", indent > out
            column = length(indent)
        }
        column += length(arg[i]) + 2
        printf "%s\" \"%s\" \"%s", piece, name, i < count ? ", " : ");" > out
    }
    print "\"" > out
}

function write_family(page,    count, line, names, i, list)
{
    begin_page(page)
    list = functions[page]
    sub(/^ /, "", list)
    gsub(/ /, ", ", list)
    printf ".SH NAME\n%s \\- %s\n", list, tolower(substr(title_of[page], 1, 1)) substr(title_of[page], 2) > out
    print ".SH SYNOPSIS\n.nf\n.B #include <tarsil32.h>\n.PP" > out
    count = split(prototypes[page], line, "\n")
    for (i = 1; i < count; i++) write_prototype(line[i])
    print ".fi\n.SH DESCRIPTION" > out
    for (i = 1; i <= group_total[page]; i++) {
        names = group_names[page, i]
        sub(/^ /, "", names)
        gsub(/ /, ", ", names)
        printf ".TP\n.B %s\n", names > out
        write_text(group_text[page, i])
    }
    write_errors(page)
    write_see_also(page)
    close(out)
}

# The codes that the family's comments name, those under a named beginning (TS_NO_MEMORY_), and those whose cause
# begins with a function of the family. A cause that begins with functions of other families only isn't taken in by
# a named beginning.
function belongs(code, page, all,    site, count, name, i, own)
{
    if ((all "\n") ~ ("[^A-Z0-9_]" code "[^A-Z0-9_]")) return 1
    own = 0
    site = cause[code]
    if (site ~ /^(ts[A-Za-z0-9]*32(, )?)+:/) {
        sub(/:.*/, "", site)
        count = split(site, name, ", ")
        for (i = 1; i <= count; i++) if (function_page[name[i]] == page) return 1
        return 0
    }
    return all ~ /[^A-Z0-9_]TS_NO_MEMORY_[^A-Z0-9_]/ && code ~ /^TS_NO_MEMORY_/
}

function write_errors(page,    all, i, code, any)
{
    all = " "
    for (i = 1; i <= group_total[page]; i++) all = all group_text[page, i]
    for (i = 1; i <= code_total; i++) {
        code = code_name[i]
        if (!belongs(code, page, all)) continue
        if (!any++) print ".SH ERRORS" > out
        write_code(code)
    }
    if (any)
        print ".PP\nEvery function with a handle has the codes of its handles besides, and every function on a file\n" \
            "those of file access and of locks:\nsee\n.BR tarsil32 (3)\nand\n.BR tarsil32_codes (3)." > out
}

function write_code(code)
{
    printf ".TP\n.B %s\n", code > out
    printf "(\\-%d)\n%s.\n%s.\n", -code_number[code], troff(cause[code]), troff(remedy[code]) > out
}

function write_see_also(page,    i, list)
{
    print ".SH SEE ALSO" > out
    list = ""
    for (i = 1; i <= page_total; i++)
        if (page_list[i] != page) list = list ".BR " page_list[i] " (3),\n"
    if (page != "tarsil32") list = list ".BR tarsil32 (3),\n"
    if (page != "tarsil32_codes") list = list ".BR tarsil32_codes (3),\n"
    sub(/,\n$/, "", list)
    print list > out
}

function write_interface(    i)
{
    begin_page("tarsil32")
    print ".SH NAME\ntarsil32 \\- embedded record manager with B+tree keys\n.SH SYNOPSIS\n.nf" > out
    print ".B #include <tarsil32.h>\n.PP\nLink with \\fI\\-lTARSIL32\\fP.\n.fi\n.SH DESCRIPTION" > out
    write_text(head)
    print ".SH FUNCTIONS" > out
    for (i = 1; i <= page_total; i++) {
        names = functions[page_list[i]]
        sub(/^ /, "", names)
        gsub(/ /, ", ", names)
        printf ".TP\n.BR %s (3)\n%s:\n%s\n", page_list[i], title_of[page_list[i]], troff(names) > out
    }
    print ".SH TYPES" > out
    for (i = 1; i <= type_total; i++) {
        print ".PP" > out
        write_text(type_comment[i])
        print ".PP\n.in +4n\n.nf" > out
        print verbatim(type_code[i]) > out
        print ".fi\n.in" > out
    }
    write_see_also("tarsil32")
    close(out)
}

# Lines of code as they stand, comments that are too long for a terminal on a line of their own.
function verbatim(code,    count, line, i, all, at)
{
    count = split(code, line, "\n")
    for (i = 1; i <= count; i++) {
        gsub(/\\/, "\\e", line[i])
        gsub(/'/, "\\(aq", line[i])
        gsub(/-/, "\\-", line[i])
        at = index(line[i], "//")
        if (at > 5 && length(line[i]) > 72)
            line[i] = "    " substr(line[i], at) "\n" substr(line[i], 1, at - 1)
        all = all (i > 1 ? "\n" : "") line[i]
    }
    return all
}

function write_codes(    i)
{
    begin_page("tarsil32_codes")
    print ".SH NAME\ntarsil32_codes \\- result codes of TARSIL32\n.SH SYNOPSIS\n.nf\n.B #include <tarsil32.h>\n.fi" > out
    print ".SH DESCRIPTION\n0 is\n.BR TS_OK .\nEvery other code has a name, a number, a cause and a remedy." > out
    for (i = 1; i <= code_total; i++) {
        if (code_heading[i] != "") {
            print ".PP" > out
            write_text(code_heading[i])
        }
        write_code(code_name[i])
    }
    write_see_also("tarsil32_codes")
    close(out)
}
