# The includes among our own files form no circle.
{
    path = included($0)
    if (substr(path, 1, 1) != "\"") next
    edges[FILENAME] = edges[FILENAME] " " substr(path, 2)
    line_of[FILENAME, substr(path, 2)] = FNR
}

# state: 1 while the file is on the way from the start, 2 once all behind it is known to be sound.
function visit(file, way,    count, list, i)
{
    state[file] = 1
    count = split(edges[file], list, " ")
    for (i = 1; i <= count; i++) {
        if (state[list[i]] == 1)
            report_at(file, line_of[file, list[i]], "cycles: a circle of includes:" way " " file " " list[i])
        else if (!state[list[i]]) visit(list[i], way " " file)
    }
    state[file] = 2
}

END {
    for (file in edges) if (!state[file]) visit(file, "")
    if (faults) exit 1
}
