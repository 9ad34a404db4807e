// What the platform promises between processes, beyond the contract suite: forks, and races for a
// name.
#include "platform/platform.h"
#include "tests/support/child_process.h"
#include "tests/support/platform_files.h"
#include "tests/support/refused_calls.h"
#include "tests/support/temp_folder.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <vector>

namespace tarsil::platform {
namespace {

using namespace support;

const refused_call no_nameless = {SYS_openat, EOPNOTSUPP, 2, O_TMPFILE};

TEST(PlatformForks, TheChildsHandlesAreDeadAndTheParentsLocksStand)
{
    const temp_folder folder;
    const std::string name = folder.file("a");
    const std::string later = folder.file("later");
    const file_handle mine = create_file(name);
    ASSERT_TRUE(put(mine, "abc"));
    ASSERT_TRUE(LockFile(mine, 0, 10));
    expect_in_child({
        {-1, [&] { return descriptor_of(name); }, "the descriptor is closed"},
        {false, [&] { return put(mine, "x"); }},
        {invalid_position, [&] { return SetFilePointer(mine, 0, origin::current); }},
        {false, [&] { return UnlockFile(mine, 0, 10); }},
        {true, [&] { return create_file(later) != mine; }, "its number isn't used again"},
        {false, [&] { return CloseHandle(mine); }},
        {mine, [&] { return open_file(name); }, "until it has been closed"},
    });

    const file_handle second = open_file(name);
    EXPECT_FALSE(LockFile(second, 0, 1)) << "the parent's lock stands after the child's end";
    EXPECT_TRUE(UnlockFile(mine, 0, 10));
    EXPECT_TRUE(CloseHandle(mine));
    EXPECT_TRUE(CloseHandle(second));
    EXPECT_EQ(file_bytes(name), "abc");
}

// vfork runs no handlers, so until its exec the child has the parent's very descriptors.
TEST(PlatformForks, ACloseEndsTheLocksAlsoWhileACopyOfTheDescriptorLives)
{
    const temp_folder folder;
    const std::string name = folder.file("a");
    const file_handle mine = create_file(name, share::none);
    ASSERT_TRUE(LockFile(mine, 0, 10));
    const int copy = dup(descriptor_of(name));
    ASSERT_GE(copy, 0);
    EXPECT_TRUE(CloseHandle(mine));
    const file_handle second = open_file(name, share::none);
    EXPECT_TRUE(LockFile(second, 0, 10));
    EXPECT_TRUE(CloseHandle(second));
    close(copy);
}

// The other process opens the name as fast as it can while files are created, unnamed and closed
// under it. All of them are had alone, so one success would be a file seen before its lock, or a
// lock on a file that lost its name.
TEST(PlatformRaces, NoNewFileIsEverSeenUnlocked)
{
    const std::vector<refused_call> ways[] = {{}, {no_nameless}};
    for (const std::vector<refused_call>& refused : ways) {
        const temp_folder folder;
        const std::string name = folder.file("a");
        child_process opener([&](const child_line& line) {
            int64_t tries = 0;
            int64_t seen = 0;
            line.step([] { return 0; });
            for (; !line.is_waiting(); ++tries) seen += can_open(name) ? 1 : 0;
            line.step([&] { return seen; });
            line.step([&] { return tries; });
        });
        child_process creator([&](const child_line& line) {
            line.step([&] { return refuse_calls(refused); });
            line.step([&] {
                constexpr int rounds = 5000;
                int done = 0;
                for (int i = 0; i < rounds; ++i) {
                    const file_handle file = create_file(name, share::none);
                    if (file == no_file) return done;
                    unlink(name.c_str());
                    CloseHandle(file);
                    ++done;
                }
                return done;
            });
        });
        if (!creator.next())
            GTEST_SKIP() << "this system doesn't let a process refuse calls to itself";
        opener.next();
        EXPECT_EQ(creator.next(), 5000);
        EXPECT_EQ(opener.next(), 0) << "opens of files that another process had alone";
        EXPECT_GT(opener.next(), 1000);
    }
}

} // namespace
} // namespace tarsil::platform
