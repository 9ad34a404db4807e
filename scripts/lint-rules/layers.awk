# A file includes only what the table of layers allows its folder, and by the path from the root.
# -v layers="FOLDER: ALLOWED... FOLDER: ALLOWED..."
BEGIN {
    words = split(layers, word, " ")
    for (i = 1; i <= words; i++) {
        if (word[i] ~ /:$/) folder = substr(word[i], 1, length(word[i]) - 1)
        else allowed[folder] = allowed[folder] " " word[i]
    }
}

function may_include(folder, path,    count, list, i)
{
    if (path ~ /^tarsil32[a-z_]*\.hp?p?$/) return 1
    count = split(allowed[folder], list, " ")
    for (i = 1; i <= count; i++) {
        if (list[i] == path) return 1
        if (list[i] ~ /\/$/ && index(path, list[i]) == 1) return 1
    }
    return 0
}

{
    path = included($0)
    if (substr(path, 1, 1) != "\"") next
    path = substr(path, 2)
    folder = FILENAME
    sub(/\/.*/, "", folder)
    if (!may_include(folder, path)) report("layers: " folder "/ may not include \"" path "\"")
}
