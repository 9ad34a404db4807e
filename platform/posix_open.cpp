// Opening and removing files, and the share byte that stands for share modes.
//
// The share mode is a lock on one byte at 2^40, where no range of the logic can lie: a read lock
// for "read and write", which any number of opens hold side by side, a write lock for "none".
// (flock would become a lock of the whole file on network file systems and refuse every range.) A
// write lock needs a writable descriptor; the read-only open with share none is a question that
// nobody keeps open for long, so it only asks whether that lock could be had and leaves none
// behind.
//
// Between an open and its lock the name can be removed or come to mean another file, whose removal
// was rightful since the lock didn't stand yet. So the name is looked at again after the lock.
#include "platform/posix.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarsil::platform {

namespace {

constexpr off_t share_byte = off_t{1} << 40;
constexpr int open_tries = 2;

// Whether the write lock of the share byte could be had now. Unlike taking it, asking needs no
// writable descriptor.
bool could_have_alone(int descriptor)
{
    struct flock question = {};
    question.l_type = F_WRLCK;
    question.l_whence = SEEK_SET;
    question.l_start = share_byte;
    question.l_len = 1;
    if (fcntl(descriptor, F_OFD_GETLK, &question) != 0) return false;
    if (question.l_type == F_UNLCK) return true;
    errno = EAGAIN;
    return false;
}

int open_existing(const char* name, int flags, access wanted_access, share wanted_share)
{
    for (int attempt = 0; attempt < open_tries; ++attempt) {
        const int descriptor = open_regular(name, flags);
        if (descriptor < 0) return -1;
        if (!take_share(descriptor, wanted_access, wanted_share)) return abandon(descriptor);
        if (still_named(name, descriptor)) return descriptor;
        abandon(descriptor);
    }
    errno = EAGAIN;
    return -1;
}

int open_or_create(const char* name, access wanted_access, share wanted_share, disposition how)
{
    if (how == disposition::open_existing) {
        const int flags = wanted_access == access::read_only ? O_RDONLY : O_RDWR;
        return open_existing(name, flags, wanted_access, wanted_share);
    }
    if (wanted_access == access::read_write) return create_descriptor(name, wanted_share);
    errno = EINVAL;
    return -1;
}

file_handle find_free()
{
    for (file_handle file = 0; file < open_file_limit; ++file) {
        if (open_files[file].state == handle_state::free) return file;
    }
    return no_file;
}

bool is_name(const char* name) { return name != nullptr && name[0] != '\0'; }

file_handle refuse_file(int error)
{
    refuse(error);
    return no_file;
}

// A print to a closed standard stream goes to whatever has its number: our files stay above them.
int above_standard_streams(int descriptor)
{
    if (descriptor > STDERR_FILENO) return descriptor;

    const int higher = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    abandon(descriptor);
    return higher;
}

} // namespace

int open_regular(const char* name, int flags)
{
    constexpr mode_t mode = 0666;
    int descriptor = -1;
    do {
        descriptor = open(name, flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, mode);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) return -1;

    descriptor = above_standard_streams(descriptor);
    if (descriptor < 0) return -1;

    struct stat facts = {};
    if (fstat(descriptor, &facts) != 0) return abandon(descriptor);
    if (S_ISREG(facts.st_mode)) return descriptor;
    errno = EINVAL;
    return abandon(descriptor);
}

bool still_named(const char* name, int descriptor)
{
    struct stat opened = {};
    struct stat named = {};
    if (fstat(descriptor, &opened) != 0 || stat(name, &named) != 0) return false;
    return opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool take_share(int descriptor, access wanted_access, share wanted_share)
{
    if (wanted_share == share::read_write) {
        return set_kernel_lock(descriptor, F_RDLCK, share_byte, 1);
    }
    if (wanted_access == access::read_only) return could_have_alone(descriptor);
    return set_kernel_lock(descriptor, F_WRLCK, share_byte, 1);
}

file_handle CreateFileA(const char* name, access wanted_access, share wanted_share, disposition how)
{
    if (!is_name(name)) return refuse_file(ENOENT);
    const file_handle file = find_free();
    if (file == no_file) return refuse_file(EMFILE);
    if (!watch_forks()) return no_file;

    read_size_limit();
    const int descriptor = open_or_create(name, wanted_access, wanted_share, how);
    if (descriptor < 0) return refuse_file(errno);

    open_files[file] = {};
    open_files[file].descriptor = descriptor;
    open_files[file].state = handle_state::open;
    open_files[file].is_alone = wanted_share == share::none;
    if (wanted_access == access::read_write) map_file(open_files[file]);
    return file;
}

// A name that is a symbolic link is refused: only the file itself could be asked whether somebody
// has it open.
bool DeleteFileA(const char* name)
{
    if (!is_name(name)) return refuse(ENOENT);

    const int descriptor = open_existing(name, O_RDWR | O_NOFOLLOW, access::read_write,
                                         share::none);
    if (descriptor < 0) return refuse(errno);

    const bool removed = unlink(name) == 0 || refuse(errno);
    release_kernel_locks(descriptor);
    abandon(descriptor);
    return removed;
}

} // namespace tarsil::platform
