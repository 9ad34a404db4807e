// What the platform promises on real files, beyond the contract suite: kinds of files and names,
// limits, what the file system lacks; and between processes: forks, and races for a name.
#include "platform/platform.h"
#include "tests/support/child_process.h"
#include "tests/support/platform_files.h"
#include "tests/support/temp_folder.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <vector>

namespace tarsil::platform {
namespace {

using namespace support;

TEST(PlatformFiles, OnlyRegularFilesAreOpenedAndNoNameIsOverrun)
{
    const temp_folder folder;
    ASSERT_EQ(mkfifo(folder.file("fifo").c_str(), 0600), 0);
    ASSERT_EQ(mkdir(folder.file("folder").c_str(), 0700), 0);
    ASSERT_EQ(symlink("loop", folder.file("loop").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", folder.file("dangling").c_str()), 0);
    ASSERT_EQ(symlink("/dev/null", folder.file("device").c_str()), 0);
    ASSERT_EQ(symlink("target", folder.file("link").c_str()), 0);
    std::vector<std::string> refused = {"fifo", "folder",   "folder/", "loop",
                                        ".",    "dangling", "device",  "no/a"};
    refused.push_back(std::string(300, 'n'));
    refused.push_back(std::string(5000, '/') + "a");
    const size_t names = names_in(folder.path());
    for (const std::string& each : refused) {
        const std::string name = folder.file(each);
        EXPECT_FALSE(can_open(name)) << name;
        EXPECT_FALSE(can_open(name, share::none, access::read_only)) << name;
        EXPECT_EQ(create_file(name), no_file) << name;
        EXPECT_FALSE(DeleteFileA(name.c_str())) << name;
    }
    EXPECT_EQ(names_in(folder.path()), names) << "nothing was left behind or removed";

    const file_handle target = create_file(folder.file("target"), share::none);
    EXPECT_FALSE(can_open(folder.file("link")))
        << "share modes belong to the file, not to its names";
    EXPECT_TRUE(CloseHandle(target));
    EXPECT_TRUE(can_open(folder.file("link")));
    EXPECT_FALSE(DeleteFileA(folder.file("link").c_str()));
}

TEST(PlatformFiles, AFileThatCannotBeWrittenCanBeAskedForAndRead)
{
    const temp_folder folder;
    const std::string name = folder.file("a");
    set_file_bytes(name, "abc");
    ASSERT_EQ(chmod(name.c_str(), 0444), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    constexpr uid_t nobody = 65534;
    const bool is_own = geteuid() != 0;
    expect_in_child([&] { return is_own || setuid(nobody) == 0; },
                    {
                        {false, [&] { return can_open(name); }},
                        {true, [&] { return can_open(name, share::none, access::read_only); }},
                        {no_file, [&] { return is_own ? no_file : create_file(folder.file("b")); },
                         "in a folder that is another's"},
                    });
}

TEST(PlatformFiles, NewFilesStandWhereTheNameSaysObeyTheUmaskAndCloseOnExec)
{
    const temp_folder folder;
    const auto creates_well = [](const char* name) {
        create_file(name);
        const int descriptor = descriptor_of(name);
        const int flags = fcntl(descriptor, F_GETFD);
        return descriptor > 2 && flags >= 0 && (flags & FD_CLOEXEC) != 0;
    };
    expect_in_child({
        {0, [&] { return chdir(folder.path().c_str()); }},
        {true, [&] { return umask(027), creates_well("a"); }},
        {0, [] { return close(0) + close(1) + close(2); }},
        {true, [&] { return creates_well("b"); }, "with all standard streams closed"},
    });
    struct stat facts = {};
    ASSERT_EQ(stat(folder.file("a").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0640U);
    EXPECT_EQ(names_in(folder.path()), 2U);
}

TEST(PlatformFiles, TheTableOfOpenFilesHasItsEndAndRecovers)
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < 300) GTEST_SKIP() << "no process may open so many files here";
    const temp_folder folder;
    const std::string name = folder.file("a");
    std::vector<file_handle> files = {create_file(name)};
    while (files.back() != no_file && files.size() < 1000) files.push_back(open_file(name));
    files.pop_back();
    ASSERT_EQ(files.size(), 256U);
    EXPECT_TRUE(CloseHandle(files[100]));
    EXPECT_EQ(open_file(name), files[100]);
    for (const file_handle file : files) EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(descriptor_of(name), -1);
}

TEST(PlatformLimits, TheLastByteOfTheLargestFileCanBeWritten)
{
    for (const share mode : {share::none, share::read_write}) {
        const temp_folder folder;
        const std::string name = folder.file("a");
        const file_handle file = create_file(name, mode);
        SetFilePointer(file, max_file_bytes - 1, origin::begin);
        EXPECT_TRUE(put(file, "z"));
        EXPECT_EQ(SetFilePointer(file, 0, origin::end), static_cast<uint32_t>(max_file_bytes));
        EXPECT_FALSE(put(file, "z"));
        ASSERT_EQ(truncate(name.c_str(), int64_t{max_file_bytes} + 1), 0) << "by somebody else";
        SetFilePointer(file, 5, origin::begin);
        EXPECT_EQ(SetFilePointer(file, 0, origin::end), invalid_position);
        EXPECT_EQ(SetFilePointer(file, 0, origin::current), 5U);
        EXPECT_TRUE(CloseHandle(file));
    }
}

// Nothing of a write across the limit is done; a file that grows ahead of its end stops there.
void meet_size_limit(uint32_t bytes, share mode, care wanted)
{
    const temp_folder folder;
    const std::string name = folder.file("a");
    rlimit limit = {bytes, RLIM_INFINITY};
    file_handle file = no_file;
    const auto here = [&] { return SetFilePointer(file, 0, origin::current); };
    expect_in_child({
        {bytes / 1000 * 1000,
         [&] {
             setrlimit(RLIMIT_FSIZE, &limit);
             file = create_file(name, mode);
             while (put(file, std::string(1000, 'x'), wanted)) continue;
             return here();
         }},
        {true, [&] { return put(file, std::string(bytes % 1000, 'y'), wanted); }, "up to it"},
        {false, [&] { return put(file, "z", wanted); }, "across it"},
        {true, [&] { return std::filesystem::file_size(name) <= bytes; }},
        {bytes + 4,
         [&] {
             limit.rlim_cur += 1000;
             setrlimit(RLIMIT_FSIZE, &limit);
             return put(file, "more", wanted) ? here() : 0;
         },
         "where the refused write began, once the limit is raised"},
        {false,
         [&] {
             limit.rlim_cur = 1000;
             setrlimit(RLIMIT_FSIZE, &limit);
             CloseHandle(file);
             file = open_file(name);
             return refuse_calls({{SYS_fallocate, EOPNOTSUPP}}) && ZeroFileRange(file, 2000, 100);
         },
         "zeros that would have to be written beyond it"},
    });
}

TEST(PlatformLimits, AFileSizeLimitIsARefusalAndNoSignal)
{
    for (const uint32_t bytes : {4096U, 2'100'500U}) {
        meet_size_limit(bytes, share::none, care::from_back);
        meet_size_limit(bytes, share::read_write, care::not_counted_yet);
    }
}

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
