// Range locks: the ledger of each handle, and open-file-description locks under it.
//
// The kernel decides between different opens of a file, in this process or another; it never waits,
// and whatever it answers but success counts as a refusal. Between the ranges of one handle it
// would merge, split and grant what it should refuse, so the ledger decides there, before the
// kernel is asked. Since only whole entries of the ledger are released and none overlap, what the
// kernel has merged comes apart again exactly where it was joined.
#include "platform/posix.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace tarsil::platform {

namespace {

bool overlap(const held_bytes& held, int32_t offset, int32_t length)
{
    return int64_t{held.offset} < int64_t{offset} + length &&
           int64_t{offset} < int64_t{held.offset} + held.length;
}

bool overlaps_own(const open_file& entry, int32_t offset, int32_t length)
{
    for (int32_t i = 0; i < entry.held_count; ++i) {
        if (overlap(entry.held[i], offset, length)) return true;
    }
    return false;
}

int32_t find_held(const open_file& entry, int32_t offset, int32_t length)
{
    for (int32_t i = 0; i < entry.held_count; ++i) {
        if (entry.held[i].offset == offset && entry.held[i].length == length) return i;
    }
    return -1;
}

} // namespace

bool set_kernel_lock(int descriptor, int type, off_t offset, off_t length)
{
    struct flock request = {};
    request.l_type = static_cast<short>(type);
    request.l_whence = SEEK_SET;
    request.l_start = offset;
    request.l_len = length;
    int answer = -1;
    do {
        answer = fcntl(descriptor, F_OFD_SETLK, &request);
    } while (answer != 0 && errno == EINTR);
    return answer == 0;
}

void release_kernel_locks(int descriptor)
{
    struct flock request = {};
    request.l_type = F_UNLCK;
    request.l_whence = SEEK_SET;
    // A start and a length of 0 stand for the whole file, the share byte included.
    fcntl(descriptor, F_OFD_SETLK, &request);
}

bool LockFile(file_handle file, int32_t offset, int32_t length)
{
    open_file* const entry = find_open(file);
    if (entry == nullptr) return refuse(EBADF);
    if (offset < 0 || length <= 0) return refuse(EINVAL);
    if (overlaps_own(*entry, offset, length)) return refuse(EAGAIN);
    if (entry->held_count == held_range_limit) return refuse(ENOLCK);

    if (!set_kernel_lock(entry->descriptor, F_WRLCK, offset, length)) return refuse(errno);
    entry->held[entry->held_count] = {offset, length};
    ++entry->held_count;
    return true;
}

bool UnlockFile(file_handle file, int32_t offset, int32_t length)
{
    open_file* const entry = find_open(file);
    if (entry == nullptr) return refuse(EBADF);
    const int32_t found = find_held(*entry, offset, length);
    if (found < 0) return refuse(EINVAL);

    if (!set_kernel_lock(entry->descriptor, F_UNLCK, offset, length)) return refuse(errno);
    --entry->held_count;
    entry->held[found] = entry->held[entry->held_count];
    return true;
}

} // namespace tarsil::platform
