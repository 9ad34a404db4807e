// Stable storage, and giving space back.
//
// A file is on stable storage when its bytes, its length and the name that leads to it are. The
// name is an entry of a folder, which has to be flushed by itself; whether this handle or another
// one created the file isn't known, so the first flush of every handle does it. The folder is found
// through the descriptor and not through the name that was opened, since that may have been
// relative to a working directory that has changed.
//
// What was stored into a mapping of the file needs nothing of its own: its pages are the file's,
// and fsync and fdatasync write all that are dirty, however they became so.
//
// After a failed flush the kernel may have dropped the unwritten pages and call the next flush a
// success. So the first failure stays with the handle.
#include "platform/posix.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace tarsil::platform {

namespace {

constexpr uint32_t zero_block_bytes = 16384;
uint8_t zero_block[zero_block_bytes]; // Never written; static, so that it takes no room in the
                                      // library's file.

bool sync_bytes(int descriptor, bool length_alone_counts)
{
    int answer = -1;
    do {
        answer = length_alone_counts ? fdatasync(descriptor) : fsync(descriptor);
    } while (answer != 0 && errno == EINTR);
    return answer == 0;
}

// A descriptor of the folder that holds the file, or -1. A file that was created without a name, or
// removed since, shows another last part here; the folder before it is right all the same.
int open_folder_of(int descriptor)
{
    char link[32];
    char path[PATH_MAX];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t length = readlink(link, path, sizeof path);
    if (length <= 0 || length == sizeof path || path[0] != '/') return -1;

    path[length] = '\0';
    char* const slash = std::strrchr(path, '/');
    slash[slash == path ? 1 : 0] = '\0';
    return open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

// Where the folder can't be found, read or flushed by itself, the whole file system is flushed
// instead.
bool sync_name(int descriptor)
{
    const int folder = open_folder_of(descriptor);
    if (folder < 0) return syncfs(descriptor) == 0;

    const bool done = sync_bytes(folder, false);
    abandon(folder);
    if (done || errno != EINVAL) return done;
    return syncfs(descriptor) == 0;
}

bool write_zeros(int descriptor, off_t offset, off_t end)
{
    while (offset < end) {
        const off_t left = end - offset;
        const size_t bytes = left < zero_block_bytes ? static_cast<size_t>(left) : zero_block_bytes;
        const ssize_t step = pwrite(descriptor, zero_block, bytes, offset);
        if (step == 0) return refuse(EIO);
        if (step > 0)
            offset += step;
        else if (errno != EINTR)
            return refuse(errno);
    }
    return true;
}

} // namespace

bool FlushFileBuffers(file_handle file)
{
    open_file* const entry = find_open(file);
    if (entry == nullptr) return refuse(EBADF);
    if (entry->flush_failed) return refuse(EIO);

    const bool known = entry->name_is_stable;
    if (!sync_bytes(entry->descriptor, known) || (!known && !sync_name(entry->descriptor))) {
        entry->flush_failed = true;
        return refuse(errno);
    }
    entry->name_is_stable = true;
    return true;
}

bool ZeroFileRange(file_handle file, int32_t offset, int32_t length)
{
    open_file* const entry = find_open(file);
    if (entry == nullptr) return refuse(EBADF);
    if (offset < 0 || length < 0) return refuse(EINVAL);

    const int64_t end = int64_t{offset} + length;
    const int64_t size = file_size(*entry);
    if (size < 0) return false;
    if (end > size) return refuse(EINVAL);
    if (length == 0) return true;

    constexpr int hole = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
    if (fallocate(entry->descriptor, hole, offset, length) == 0) return true;
    return within_size_limit(end) && write_zeros(entry->descriptor, offset, end);
}

} // namespace tarsil::platform
