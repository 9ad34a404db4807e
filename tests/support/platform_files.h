// Short names for what tests of real files do with the platform all the time.
#pragma once

#include "platform/platform.h"

#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>

namespace tarsil::support {

using namespace platform;

#if defined(TARSIL32_MAPPING)
inline constexpr bool is_built_to_map = true;
#else
inline constexpr bool is_built_to_map = false;
#endif

inline file_handle open_file(const std::string& name, share mode = share::read_write,
                             access wanted = access::read_write)
{
    return CreateFileA(name.c_str(), wanted, mode, disposition::open_existing);
}

inline file_handle create_file(const std::string& name, share mode = share::read_write)
{
    return CreateFileA(name.c_str(), access::read_write, mode, disposition::create_new);
}

inline bool can_open(const std::string& name, share mode = share::read_write,
                     access wanted = access::read_write)
{
    return CloseHandle(open_file(name, mode, wanted));
}

inline bool put(file_handle file, const std::string& bytes, care wanted = care::from_back)
{
    uint32_t moved = 0;
    return WriteFile(file, bytes.data(), static_cast<uint32_t>(bytes.size()), moved, wanted) &&
           moved == bytes.size();
}

inline size_t names_in(const std::string& folder)
{
    const std::filesystem::directory_iterator all(folder);
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

// The descriptor under which this process has the file open, for tests that spoil it; -1 if there
// is none.
inline int descriptor_of(const std::string& name)
{
    struct stat wanted = {};
    struct stat found = {};
    if (stat(name.c_str(), &wanted) != 0) return -1;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        if (fstat(descriptor, &found) != 0) continue;
        if (found.st_ino == wanted.st_ino && found.st_dev == wanted.st_dev) return descriptor;
    }
    return -1;
}

// A disk of 3 MiB in a namespace of the child's own; false where it may have none.
inline bool mount_small_disk(const std::string& folder)
{
    return unshare(CLONE_NEWNS) == 0 && mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", folder.c_str(), "tmpfs", 0, "size=3m") == 0;
}

} // namespace tarsil::support
