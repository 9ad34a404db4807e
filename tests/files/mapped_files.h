// What tests of mapped files share: whether a file is mapped, and transfers at places; and those
// that count the system calls of the platform, or refuse single ones.
#pragma once

#include "tests/files/system_calls.h"
#include "tests/support/file_parts.h"
#include "tests/support/platform_files.h"
#include "tests/support/temp_folder.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <string>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

namespace tarsil::support {

// By its device and number: a file that was created without a name shows none there.
inline bool is_mapped(const std::string& name)
{
    struct stat facts = {};
    if (stat(name.c_str(), &facts) != 0) return false;
    char wanted[64];
    std::snprintf(wanted, sizeof wanted, " %02x:%02x %ju ", major(facts.st_dev),
                  minor(facts.st_dev), uintmax_t{facts.st_ino});
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if ((line + ' ').find(wanted) != std::string::npos) return true;
    }
    return false;
}

inline uint32_t move(file_handle file, size_t place)
{
    return SetFilePointer(file, static_cast<int32_t>(place), origin::begin);
}

inline std::string get(file_handle file, size_t place, size_t bytes)
{
    std::string room(bytes, '?');
    uint32_t moved = 0;
    move(file, place);
    if (!ReadFile(file, room.data(), static_cast<uint32_t>(bytes), moved)) return "failed";
    return room.substr(0, moved);
}

inline bool put_at(file_handle file, size_t place, const std::string& bytes,
                   care wanted = care::from_back)
{
    move(file, place);
    return put(file, bytes, wanted);
}

inline uint32_t end_of(file_handle file) { return SetFilePointer(file, 0, origin::end); }

// Tests whose faults only a mapping has, or that count the calls of the system, ask for a file
// system whose files are mapped for stores, too; where temporary files lie elsewhere, there is
// still the one for shared memory.
class mapped_files : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        const temp_folder folder;
        struct statfs facts = {};
        ASSERT_EQ(statfs(folder.path().c_str(), &facts), 0);
        const auto kind = static_cast<uint32_t>(facts.f_type);
        const bool is_sound = kind == EXT4_SUPER_MAGIC || kind == XFS_SUPER_MAGIC ||
                              kind == TMPFS_MAGIC;
        folder_before = std::filesystem::temp_directory_path();
        if (!is_sound) setenv("TMPDIR", "/dev/shm", 1);
    }
    static void TearDownTestSuite() { setenv("TMPDIR", folder_before.c_str(), 1); }

    static inline std::string folder_before;
};

inline constexpr size_t page = 4096;
inline constexpr size_t large = 1 << 21; // a file that grows ahead, and ends where it has grown to
inline constexpr share alone = share::none;
inline constexpr share shared = share::read_write;

class counted_calls : public mapped_files {
protected:
    ~counted_calls() override
    {
        planned = {};
        file_system_kind = 0;
    }
};

template <class Action> std::string calls_of(Action&& action)
{
    calls_made.clear();
    action();
    return calls_made;
}

inline file_handle file_of(const std::string& name, share mode, const std::string& content)
{
    const file_handle file = create_file(name, mode);
    for (size_t done = 0; done < content.size(); done += 50000)
        EXPECT_TRUE(put(file, content.substr(done, 50000)));
    return file;
}

} // namespace tarsil::support
