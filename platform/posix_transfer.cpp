// Reading, writing and the file position.
//
// The position lives in the table, so positioning is arithmetic. Each transfer is a copy from or to
// the mapping of the file, or one positional system call where there is none; what the mapping
// doesn't do comes back here. A transfer that the system cuts short is continued, so that a short
// read means the end of the file and a short write never shows but as a failure.
//
// Two limits are kept before the system is asked: max_file_bytes, and the limit that the system
// sets to the size of files (RLIMIT_FSIZE). A write beyond the latter would raise SIGXFSZ, which
// kills a program that isn't prepared, and a library must not do that to its caller. The limit is
// read at every open and again before a write is refused for it, so a limit that is raised is
// noticed; one that the program lowers while files are open is noticed at its next open only.
#include "platform/posix.h"

#include <algorithm>
#include <cerrno>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarsil::platform {

namespace {

int64_t size_limit = 0;

// Counts a step of a transfer; `step` is what pread or pwrite answered, and it is above 0.
void advance(open_file& entry, uint32_t& moved, ssize_t step)
{
    entry.position += static_cast<int32_t>(step);
    moved += static_cast<uint32_t>(step);
}

[[gnu::noinline]] bool read_by_calls(open_file& entry, uint8_t* target, uint32_t bytes,
                                     uint32_t& moved)
{
    while (moved < bytes) {
        const ssize_t step = pread(entry.descriptor, target + moved, bytes - moved, entry.position);
        if (step == 0) return true;
        if (step > 0)
            advance(entry, moved, step);
        else if (errno != EINTR)
            return refuse(errno);
    }
    return true;
}

bool write_by_calls(open_file& entry, const uint8_t* source, uint32_t bytes, uint32_t& moved)
{
    while (moved < bytes) {
        const ssize_t step = pwrite(entry.descriptor, source + moved, bytes - moved,
                                    entry.position);
        if (step == 0) return refuse(EIO);
        if (step > 0)
            advance(entry, moved, step);
        else if (errno != EINTR)
            return refuse(errno);
    }
    return true;
}

// The system writes page by page, and a kill ends it between two of them. What is appended across
// the edge of a page therefore gets its room first: a kill then leaves zeros in place of the rest,
// and not half a record, which the rebuild of a header would take for damage. (Not so where the
// edge lies within the eight bytes of a frame: only a mapping can help there.) The answer is the
// length to go back to if the write fails, or below 0 where nothing was done: others who have the
// file open may count on its end.
int64_t lengthen_first(open_file& entry, uint32_t bytes)
{
    const int64_t end = int64_t{entry.position} + bytes;
    if (!entry.is_alone || !crosses_page(entry.position, end)) return -1;
    const int64_t shown = file_size(entry);
    const int64_t size = std::max<int64_t>(shown, entry.view.allocated);
    if (shown < 0 || end <= size) return -1;
    return ftruncate(entry.descriptor, end) == 0 ? size : -1;
}

bool append_by_calls(open_file& entry, const uint8_t* source, uint32_t bytes, uint32_t& moved)
{
    const int64_t length = lengthen_first(entry, bytes);
    const bool done = write_by_calls(entry, source, bytes, moved);
    if (done || length < 0) return done;
    // What refused the write is noted already.
    static_cast<void>(!ftruncate(entry.descriptor, std::max<int64_t>(length, entry.position)));
    return false;
}

// The place that a distance is counted from; below 0 for a failure.
int64_t place_of(open_file& entry, origin from)
{
    if (from == origin::begin) return 0;
    return from == origin::current ? entry.position : file_size(entry);
}

} // namespace

int64_t read_size_limit()
{
    struct rlimit limit = {};
    size_limit = max_file_bytes;
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0) return size_limit;
    if (limit.rlim_cur < static_cast<rlim_t>(max_file_bytes)) {
        size_limit = static_cast<int64_t>(limit.rlim_cur);
    }
    return size_limit;
}

bool within_size_limit(int64_t end)
{
    return end <= size_limit || end <= read_size_limit() || refuse(EFBIG);
}

int64_t file_size(open_file& entry)
{
    if (entry.view.bytes != nullptr && has_known_size(entry)) return entry.view.length;
    struct stat facts = {};
    if (fstat(entry.descriptor, &facts) == 0) return facts.st_size;
    refuse(errno);
    return -1;
}

bool ReadFile(file_handle file, void* buffer, uint32_t bytes, uint32_t& moved)
{
    moved = 0;
    open_file* const entry = find_open(file);
    if (entry == nullptr) return refuse(EBADF);
    if (int64_t{entry->position} + bytes > max_file_bytes) return refuse(EFBIG);

    if (entry->view.bytes != nullptr && read_view(*entry, buffer, bytes, moved)) return true;
    return read_by_calls(*entry, static_cast<uint8_t*>(buffer), bytes, moved);
}

bool WriteFile(file_handle file, const void* buffer, uint32_t bytes, uint32_t& moved, care wanted)
{
    moved = 0;
    open_file* const entry = find_open(file);
    if (entry == nullptr) return refuse(EBADF);
    if (!within_size_limit(int64_t{entry->position} + bytes)) return false;

    if (entry->view.bytes != nullptr && write_view(*entry, buffer, bytes, moved, wanted))
        return true;
    const bool done = append_by_calls(*entry, static_cast<const uint8_t*>(buffer), bytes, moved);
    if (moved > 0) note_written(*entry);
    return done;
}

const uint8_t* LookAtFile(file_handle file, uint32_t bytes)
{
    open_file* const entry = find_open(file);
    if (entry == nullptr || entry->view.bytes == nullptr) return nullptr;
    return begin_look(*entry, bytes);
}

bool EndLook(file_handle file)
{
    open_file* const entry = find_open(file);
    return entry != nullptr && entry->view.bytes != nullptr && end_look(*entry);
}

uint32_t SetFilePointer(file_handle file, int32_t distance, origin from)
{
    open_file* const entry = find_open(file);
    if (entry == nullptr) {
        refuse(EBADF);
        return invalid_position;
    }
    const int64_t place = place_of(*entry, from);
    if (place < 0) return invalid_position;

    const int64_t position = place + distance;
    if (position < 0 || position > max_file_bytes) {
        refuse(EINVAL);
        return invalid_position;
    }
    entry->position = static_cast<int32_t>(position);
    return static_cast<uint32_t>(position);
}

} // namespace tarsil::platform
