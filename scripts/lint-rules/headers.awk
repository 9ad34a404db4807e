# The system's headers stay in platform/, and of the language's own the library takes those that need no runtime.
# -v allowed="NAME..."
BEGIN { count = split(allowed, list, " "); for (i = 1; i <= count; i++) known[list[i]] = 1 }

FILENAME ~ /^platform\// && FILENAME != "platform/platform.h" { next }
{
    path = included($0)
    if (substr(path, 1, 1) == "<" && !(substr(path, 2) in known))
        report("headers: <" substr(path, 2) "> is not for the library's folders above the platform")
}
