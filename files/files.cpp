// The file primitives over the platform layer; see files/files.h.
#include "files/files.h"

#include "core/tables.h"

namespace tarsil {

using platform::access;
using platform::disposition;
using platform::file_handle;
using platform::origin;
using platform::share;

namespace {

share share_of_mode() { return is_shared() ? share::read_write : share::none; }

int32_t bytes_or_failure(bool done, uint32_t moved)
{
    if (done) return static_cast<int32_t>(moved);
    static_cast<void>(platform::GetLastError());
    return transfer_failed;
}

} // namespace

file_handle open_file(const char* name, access wanted_access, share wanted_share)
{
    return platform::CreateFileA(name, wanted_access, wanted_share, disposition::open_existing);
}

file_handle create_file(const char* name, access wanted_access, share wanted_share)
{
    return platform::CreateFileA(name, wanted_access, wanted_share, disposition::create_new);
}

file_handle open_shared_file(const char* name)
{
    return open_file(name, access::read_write, share_of_mode());
}

file_handle create_shared_file(const char* name)
{
    return create_file(name, access::read_write, share_of_mode());
}

int32_t read_file(file_handle file, void* buffer, int32_t bytes)
{
    if (bytes < 0) return transfer_failed;
    uint32_t moved = 0;
    const bool done = platform::ReadFile(file, buffer, static_cast<uint32_t>(bytes), moved);
    return bytes_or_failure(done, moved);
}

int32_t write_file(file_handle file, const void* buffer, int32_t bytes, platform::care wanted)
{
    if (bytes < 0) return transfer_failed;
    uint32_t moved = 0;
    const bool done = platform::WriteFile(file, buffer, static_cast<uint32_t>(bytes), moved,
                                          wanted);
    return bytes_or_failure(done, moved);
}

bool move_to(file_handle file, int32_t offset)
{
    if (offset < 0) return false;
    return platform::SetFilePointer(file, offset, origin::begin) == static_cast<uint32_t>(offset);
}

int32_t seek_end(file_handle file, int32_t offset)
{
    if (move_to(file, offset)) return 0;
    static_cast<void>(platform::GetLastError());
    return transfer_failed;
}

int32_t size_of(file_handle file)
{
    return static_cast<int32_t>(platform::SetFilePointer(file, 0, origin::end));
}

} // namespace tarsil
