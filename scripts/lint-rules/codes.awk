# Result codes go by their names. A negative literal is refused where a code would stand: returned, compared with,
# assigned or chosen. A named constant or an enumerator may be defined with one digit (a marker, not a code), -1 may
# be chosen (a step back), and in platform/ -1 is what system calls answer.
BEGIN { negative = "-[ ]*[0-9]" }
{
    line = code_of($0)
    if (line !~ negative) next
    if (line ~ /constexpr|enum/) gsub(/=[ ]*-[ ]*[0-9]([^0-9]|$)/, "one ", line)
    gsub(/[?:][ (]*-[ ]*1([^0-9]|$)/, "one ", line)
    if (FILENAME ~ /^platform\//) gsub(/-[ ]*1([^0-9]|$)/, "one ", line)
    if (line ~ ("(^|[^A-Za-z0-9_])return[ (]*" negative)) report("codes: a negative literal is returned")
    else if (line ~ ("[=!]=[ (]*" negative) || line ~ ("(^|[^<])<=?[ (]*" negative) || line ~ ("(^|[^->])>=?[ (]*" negative))
        report("codes: a comparison with a negative literal")
    else if (line ~ ("=[ ({]*" negative)) report("codes: a negative literal is assigned")
    else if (line ~ ("[?:][ (]*" negative)) report("codes: a negative literal is chosen")
    else if (line ~ ("case[ ]*" negative)) report("codes: a case of a negative literal")
}
