// Creating files, so that nobody can open a new file before its creator has locked it.
//
// Three ways, each tried when the file system or the system doesn't offer the one before:
// 1. a file without a name (O_TMPFILE) is locked and then linked to its name;
// 2. a file under a name that nobody asks for is locked and then renamed, which fails if the name
// is taken;
// 3. the file is created under its name and then locked. Somebody who opens the name in a tight
// loop can lock it
//    first; the creation then fails, and the name is removed again.
// All three fail if the name exists, whatever it is, and none can truncate a file.
#include "platform/posix.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace tarsil::platform {

namespace {

constexpr int other_name_tries = 64;

// `folder` is what stands before the last part of the name, with its slash, or nothing.
struct path_buffer {
    char text[PATH_MAX];
};

bool split_folder(const char* name, path_buffer& folder)
{
    const char* const slash = std::strrchr(name, '/');
    const size_t length = slash == nullptr ? 0 : static_cast<size_t>(slash - name) + 1;
    if (length >= sizeof folder.text) {
        errno = ENAMETOOLONG;
        return false;
    }
    if (name[length] == '\0') {
        errno = EISDIR;
        return false;
    }
    std::memcpy(folder.text, name, length);
    folder.text[length] = '\0';
    return true;
}

int create_nameless(const char* name, const path_buffer& folder, share wanted_share)
{
    const char* const place = folder.text[0] == '\0' ? "." : folder.text;
    const int descriptor = open_regular(place, O_RDWR | O_TMPFILE);
    if (descriptor < 0) return -1;
    if (!take_share(descriptor, access::read_write, wanted_share)) return abandon(descriptor);

    char link[32];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    if (linkat(AT_FDCWD, link, AT_FDCWD, name, AT_SYMLINK_FOLLOW) != 0) return abandon(descriptor);
    return descriptor;
}

// A name that somebody killed in the midst of a creation left behind is passed over.
int open_other_name(const path_buffer& folder, path_buffer& other)
{
    static uint32_t number = 0;
    for (int attempt = 0; attempt < other_name_tries; ++attempt) {
        const int length = std::snprintf(other.text, sizeof other.text, "%s.tarsil32-%ld-%u.new",
                                         folder.text, static_cast<long>(getpid()), ++number);
        if (length < 0 || static_cast<size_t>(length) >= sizeof other.text) break;
        const int descriptor = open_regular(other.text, O_RDWR | O_CREAT | O_EXCL);
        if (descriptor >= 0 || errno != EEXIST) return descriptor;
    }
    errno = ENAMETOOLONG;
    return -1;
}

int create_under_other_name(const char* name, const path_buffer& folder, share wanted_share)
{
    path_buffer other;
    const int descriptor = open_other_name(folder, other);
    if (descriptor < 0) return -1;

    if (take_share(descriptor, access::read_write, wanted_share) &&
        renameat2(AT_FDCWD, other.text, AT_FDCWD, name, RENAME_NOREPLACE) == 0) {
        return descriptor;
    }
    const int error = errno;
    unlink(other.text);
    errno = error;
    return abandon(descriptor);
}

int create_in_place(const char* name, share wanted_share)
{
    const int descriptor = open_regular(name, O_RDWR | O_CREAT | O_EXCL);
    if (descriptor < 0) return -1;
    if (take_share(descriptor, access::read_write, wanted_share)) return descriptor;

    const int error = errno;
    if (still_named(name, descriptor)) unlink(name);
    errno = error;
    return abandon(descriptor);
}

} // namespace

int create_descriptor(const char* name, share wanted_share)
{
    path_buffer folder;
    if (!split_folder(name, folder)) return -1;

    int descriptor = create_nameless(name, folder, wanted_share);
    if (descriptor >= 0 || errno == EEXIST) return descriptor;
    descriptor = create_under_other_name(name, folder, wanted_share);
    if (descriptor >= 0 || errno == EEXIST) return descriptor;
    return create_in_place(name, wanted_share);
}

} // namespace tarsil::platform
