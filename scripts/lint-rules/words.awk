# Words that stay out of the tree: notes of unfinished work, references to papers that a reader of the tree doesn't
# have, and folders of one machine. (The brackets keep these lines from finding themselves.)
{
    low = " " tolower($0) " "
    if (low ~ /[^a-z0-9_]([t]odo|[f]ixme)[^a-z0-9_]/) report("words: unfinished work")
    if (low ~ /[^a-z0-9_]([s]pecs?|[s]pecifications?)[^a-z0-9_]/ || low ~ /[^a-z]part [0-9]/)
        report("words: a reference to a paper outside this tree")
    if (low ~ /[^a-z0-9_.}\/]\/([h]ome|[r]oot|[w]ork)\//) report("words: a folder of one machine")
}
