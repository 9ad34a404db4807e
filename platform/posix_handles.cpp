// The table of open files, closing, forks, memory, and the number of the last failure.
//
// A fork copies the table and shares every file description with its locks: a child that went on
// using the handles could release locks that its parent relies on. So the first open registers a
// handler that runs in each child; it closes the child's copies and marks the handles lost. Closing
// a copy ends no lock, since the parent's descriptor still holds the description. The other way
// round the parent can't count on its own close to end the locks while a child's copies live (a
// child between fork and exec has them), so CloseHandle ends the locks explicitly first. What
// bypasses the C library's fork isn't noticed.
#include "platform/posix.h"

#include <cerrno>
#include <cstdlib>
#include <pthread.h>
#include <unistd.h>

namespace tarsil::platform {

open_file open_files[open_file_limit];

namespace {

uint32_t last_error = 0;
bool forks_are_watched = false;

void lose_handles()
{
    for (open_file& entry : open_files) {
        if (entry.state != handle_state::open) continue;
        if (entry.view.bytes != nullptr) forget_view(entry);
        close(entry.descriptor);
        entry.state = handle_state::lost;
    }
}

} // namespace

bool refuse(int error)
{
    last_error = static_cast<uint32_t>(error);
    return false;
}

int abandon(int descriptor)
{
    const int error = errno;
    close(descriptor);
    errno = error;
    return -1;
}

bool watch_forks()
{
    if (forks_are_watched) return true;

    const int error = pthread_atfork(nullptr, nullptr, lose_handles);
    if (error != 0) return refuse(error);
    forks_are_watched = true;
    return true;
}

bool CloseHandle(file_handle file)
{
    if (file < 0 || file >= open_file_limit) return refuse(EBADF);
    open_file& entry = open_files[file];
    const handle_state state = entry.state;
    entry.state = handle_state::free;
    if (state != handle_state::open) return refuse(EBADF);

    const bool is_exact = entry.view.bytes == nullptr || unmap_file(entry);
    release_kernel_locks(entry.descriptor);
    // An interrupted close has closed the descriptor all the same; a second try could hit somebody
    // else's.
    if (close(entry.descriptor) != 0 && errno != EINTR) return refuse(errno);
    return is_exact;
}

uint32_t GetLastError() { return last_error; }

void* LocalAlloc(size_t bytes)
{
    void* const block = std::calloc(1, bytes);
    if (block == nullptr) refuse(ENOMEM);
    return block;
}

void LocalFree(void* block) { std::free(block); }

} // namespace tarsil::platform
