// What the logic relies on of a platform (platform/platform.h), asked of whatever platform is
// linked: this suite is built once with the real one and once with the simulation, so that the two
// can't drift apart.
//
// It uses nothing but the platform's own functions. Two opens in one process stand for two parties;
// what needs two processes is in tests/files/platform_failure_test.cpp.
#include "tests/support/platform_files.h"
#include "tests/support/temp_folder.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

// The sanitizer is to answer a request for too much memory as the C library does.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

namespace tarsil::platform {
namespace {

using support::put;
constexpr disposition existing = disposition::open_existing;
constexpr access both = access::read_write;

class Platform : public testing::Test {
protected:
    ~Platform() override
    {
        for (const file_handle file : opened_) CloseHandle(file);
        for (const std::string& name : named_) DeleteFileA(name.c_str());
    }

    std::string name(const char* last_part) { return named_.emplace_back(folder_.file(last_part)); }

    file_handle open(const std::string& name, access how = both, share mode = share::read_write)
    {
        return keep(support::open_file(name, mode, how));
    }

    file_handle create(const std::string& name, share mode = share::read_write)
    {
        return keep(support::create_file(name, mode));
    }

    // A file with content, open and positioned at its begin.
    file_handle file_of(const char* last_part, const std::string& content,
                        share mode = share::read_write)
    {
        const file_handle file = create(name(last_part), mode);
        EXPECT_TRUE(put(file, content));
        EXPECT_EQ(SetFilePointer(file, 0, origin::begin), 0U);
        return file;
    }

    static std::string get(file_handle file, uint32_t bytes)
    {
        std::string room(bytes, '?');
        uint32_t moved = 0;
        if (!ReadFile(file, room.data(), bytes, moved)) return "failed";
        return room.substr(0, moved);
    }

    static std::string get_all(file_handle file)
    {
        SetFilePointer(file, 0, origin::begin);
        return get(file, 4096);
    }

    static uint32_t position(file_handle file) { return SetFilePointer(file, 0, origin::current); }

private:
    file_handle keep(file_handle file)
    {
        if (file != no_file) opened_.push_back(file);
        return file;
    }

    support::temp_folder folder_;
    std::vector<std::string> named_;
    std::vector<file_handle> opened_;
};

// A file that one open has alone may be served in ways of its own, with the same answers.
class PlatformTransfers : public Platform, public testing::WithParamInterface<share> {};

INSTANTIATE_TEST_SUITE_P(, PlatformTransfers, testing::Values(share::none, share::read_write),
                         [](const auto& mode) {
                             return mode.param == share::none ? "alone" : "shared";
                         });

TEST_F(Platform, NamesThatLeadNowhereAreRefused)
{
    for (const disposition how : {existing, disposition::create_new}) {
        EXPECT_EQ(CreateFileA(nullptr, both, share::none, how), no_file);
        EXPECT_EQ(CreateFileA("", both, share::none, how), no_file);
    }
    EXPECT_EQ(open(name("missing")), no_file);
    EXPECT_FALSE(DeleteFileA(nullptr));
    EXPECT_FALSE(DeleteFileA(""));
    EXPECT_FALSE(DeleteFileA(name("missing").c_str()));
}

TEST_F(Platform, CreationNeverTouchesAnExistingFile)
{
    const std::string a = name("a");
    const file_handle first = create(a);
    ASSERT_NE(first, no_file);
    EXPECT_EQ(position(first), 0U);
    EXPECT_EQ(SetFilePointer(first, 0, origin::end), 0U);
    EXPECT_TRUE(put(first, "kept"));
    EXPECT_EQ(create(a), no_file) << "while it is open";
    EXPECT_TRUE(CloseHandle(first));
    EXPECT_EQ(create(a), no_file) << "while nobody has it open";
    EXPECT_EQ(get_all(open(a)), "kept");
    EXPECT_EQ(
        CreateFileA(name("b").c_str(), access::read_only, share::none, disposition::create_new),
        no_file);
    EXPECT_EQ(open(name("b")), no_file);
}

// One open stands, a second one is asked for: both have to share. A creation stands like an open.
TEST_F(Platform, ShareModesLetInWhomTheySay)
{
    const std::string a = name("a");
    ASSERT_TRUE(CloseHandle(create(a)));
    const auto try_both = [&](const std::string& file, bool is_new, share standing_mode,
                              access asked_access, share asked) {
        const file_handle standing = is_new ? create(file, standing_mode)
                                            : open(file, both, standing_mode);
        ASSERT_NE(standing, no_file);
        const bool granted = standing_mode == share::read_write && asked == share::read_write;
        EXPECT_EQ(CloseHandle(open(file, asked_access, asked)), granted);
        EXPECT_TRUE(CloseHandle(standing));
        EXPECT_TRUE(CloseHandle(open(file, asked_access, asked))) << "once nobody has it open";
    };
    int line = 0;
    for (const share standing : {share::none, share::read_write}) {
        for (const access asked_access : {both, access::read_only}) {
            for (const share asked : {share::none, share::read_write}) {
                SCOPED_TRACE(++line);
                try_both(a, false, standing, asked_access, asked);
                try_both(name(std::to_string(line).c_str()), true, standing, asked_access, asked);
            }
        }
    }
    const file_handle sharers[] = {create(name("b")), open(name("b")),
                                   open(name("b"), access::read_only)};
    for (const file_handle sharer : sharers) {
        EXPECT_EQ(open(name("b"), both, share::none), no_file) << "each of them counts";
        EXPECT_TRUE(CloseHandle(sharer));
    }
    EXPECT_NE(open(name("b"), both, share::none), no_file);
}

TEST_F(Platform, AReadOnlyHandleReadsAndDoesNotWrite)
{
    const std::string a = name("a");
    EXPECT_TRUE(CloseHandle(file_of("a", "abc")));
    const file_handle reader = open(a, access::read_only, share::none);
    EXPECT_EQ(get(reader, 2), "ab");
    uint32_t moved = 9;
    EXPECT_FALSE(WriteFile(reader, "x", 1, moved));
    EXPECT_EQ(moved, 0U);
    EXPECT_FALSE(LockFile(reader, 0, 1));
    EXPECT_EQ(get_all(reader), "abc");
}

TEST_P(PlatformTransfers, TransfersMoveThePositionByTheBytesMoved)
{
    const file_handle file = file_of("a", "0123456789", GetParam());
    EXPECT_EQ(get(file, 4), "0123");
    EXPECT_EQ(position(file), 4U);
    EXPECT_EQ(get(file, 0), "");
    EXPECT_TRUE(put(file, "ab"));
    EXPECT_EQ(position(file), 6U);
    EXPECT_EQ(get(file, 100), "6789") << "short at the end of the file";
    EXPECT_EQ(position(file), 10U);
    EXPECT_EQ(get(file, 5), "") << "nothing at the end, and no failure";
    SetFilePointer(file, 1000, origin::begin);
    EXPECT_EQ(get(file, 5), "") << "nothing beyond the end, and no failure";
    EXPECT_EQ(SetFilePointer(file, 0, origin::end), 10U)
        << "reading beyond the end changes nothing";

    SetFilePointer(file, 12, origin::begin);
    EXPECT_TRUE(put(file, "z"));
    EXPECT_EQ(SetFilePointer(file, 0, origin::end), 13U);
    EXPECT_EQ(get_all(file), std::string("0123ab6789\0\0z", 13)) << "the gap reads as zeros";
}

TEST_P(PlatformTransfers, PositioningIsAbsoluteRelativeOrFromTheEnd)
{
    constexpr uint32_t refused = invalid_position;
    constexpr int32_t most = max_file_bytes;
    const struct {
        int32_t before, distance;
        origin from;
        uint32_t answer;
    } rows[] = {{3, 0, origin::begin, 0},
                {3, most, origin::begin, most},
                {3, -1, origin::begin, refused},
                {3, INT_MIN, origin::begin, refused},
                {3, 4, origin::current, 7},
                {3, -3, origin::current, 0},
                {3, -4, origin::current, refused},
                {3, most - 3, origin::current, most},
                {3, most - 2, origin::current, refused},
                {most, most, origin::current, refused},
                {3, 0, origin::end, 10},
                {3, -10, origin::end, 0},
                {3, -11, origin::end, refused},
                {3, 5, origin::end, 15},
                {3, most - 9, origin::end, refused}};
    const file_handle file = file_of("a", "0123456789", GetParam());
    for (const auto& r : rows) {
        SetFilePointer(file, r.before, origin::begin);
        EXPECT_EQ(SetFilePointer(file, r.distance, r.from), r.answer) << r.before << r.distance;
        const uint32_t before = static_cast<uint32_t>(r.before);
        EXPECT_EQ(position(file), r.answer == refused ? before : r.answer);
    }
}

TEST_P(PlatformTransfers, NoTransferEndsBeyondTheLargestFile)
{
    const file_handle file = file_of("a", "abc", GetParam());
    char room[2] = {};
    for (const uint32_t bytes : {2U, 0x80000000U, 0xffffffffU}) {
        SetFilePointer(file, max_file_bytes - 1, origin::begin);
        uint32_t moved = 9;
        EXPECT_FALSE(ReadFile(file, room, bytes, moved));
        EXPECT_EQ(moved, 0U);
        moved = 9;
        EXPECT_FALSE(WriteFile(file, room, bytes, moved));
        EXPECT_EQ(moved, 0U);
        EXPECT_EQ(position(file), static_cast<uint32_t>(max_file_bytes - 1));
    }
    EXPECT_EQ(get(file, 1), "");
    EXPECT_EQ(SetFilePointer(file, 0, origin::end), 3U);
}

// The range 100, 10 is held by one handle; another one asks for ranges, some of them none at all,
// and then the same handle.
TEST_F(Platform, ALockExcludesEveryOverlapFromEverybody)
{
    constexpr int32_t most = max_file_bytes;
    const int32_t refused[][2] = {{100, 10}, {100, 1},       {109, 1},  {104, 2},  {99, 2},
                                  {109, 2},  {90, 30},       {0, most}, {50, 0},   {104, 0},
                                  {50, -1},  {104, INT_MIN}, {-1, 1},   {-1, 200}, {INT_MIN, most}};
    const int32_t granted[][2] = {{90, 10},    {110, 10}, {0, 100},
                                  {110, most}, {most, 1}, {most, most}};
    const file_handle holder = file_of("a", "shorter than the ranges");
    EXPECT_FALSE(LockFile(holder, 0, 0)) << "while nobody else has the file open";
    const file_handle other = open(name("a"));
    ASSERT_TRUE(LockFile(holder, 100, 10));
    for (const file_handle file : {other, holder}) {
        for (const auto& [offset, length] : refused)
            EXPECT_FALSE(LockFile(file, offset, length)) << offset << ", " << length;
        for (const auto& [offset, length] : granted) {
            EXPECT_TRUE(LockFile(file, offset, length)) << offset << ", " << length;
            EXPECT_TRUE(UnlockFile(file, offset, length)) << offset << ", " << length;
        }
    }
    EXPECT_TRUE(UnlockFile(holder, 100, 10));
}

TEST_F(Platform, AReleaseUndoesExactlyOneLock)
{
    const file_handle holder = file_of("a", "");
    const file_handle other = open(name("a"));
    const auto is_free = [&](int32_t offset, int32_t length) {
        return LockFile(other, offset, length) && UnlockFile(other, offset, length);
    };
    EXPECT_FALSE(UnlockFile(holder, 0, 4)) << "nothing is held";
    ASSERT_TRUE(LockFile(holder, 0, 4));
    ASSERT_TRUE(LockFile(holder, 4, 4));
    ASSERT_TRUE(LockFile(holder, 8, 4));
    for (const int32_t offset : {0, 4, 8}) EXPECT_FALSE(LockFile(holder, offset, 1)) << offset;

    const int32_t never_placed[][2] = {{0, 8}, {0, 12}, {0, 3}, {1, 3},
                                       {2, 4}, {0, 5},  {0, 0}, {0, -4}};
    for (const auto& [offset, length] : never_placed) {
        EXPECT_FALSE(UnlockFile(holder, offset, length)) << offset << ", " << length;
    }
    EXPECT_FALSE(UnlockFile(other, 4, 4)) << "another handle's lock";
    for (const int32_t offset : {0, 4, 8}) EXPECT_FALSE(is_free(offset, 1)) << offset;

    EXPECT_TRUE(UnlockFile(holder, 4, 4));
    EXPECT_TRUE(is_free(4, 4));
    EXPECT_FALSE(is_free(3, 1));
    EXPECT_FALSE(is_free(8, 1));
    EXPECT_FALSE(UnlockFile(holder, 4, 4)) << "a second time";
    EXPECT_TRUE(UnlockFile(holder, 0, 4));
    EXPECT_TRUE(UnlockFile(holder, 8, 4));
    EXPECT_TRUE(is_free(0, max_file_bytes));
}

TEST_F(Platform, EachHandleHasItsOwnPositionAndTransfersUnderItsOwnRanges)
{
    const file_handle holder = file_of("a", "0123456789");
    const file_handle other = open(name("a"));
    for (int32_t i = 0; i < 5; ++i) ASSERT_TRUE(LockFile(holder, 2 * i, 2));
    EXPECT_EQ(position(holder), 0U);
    EXPECT_EQ(get(holder, 6), "012345");
    EXPECT_EQ(position(other), 0U);
    EXPECT_TRUE(FlushFileBuffers(holder) && FlushFileBuffers(holder)) << "which moves nothing";
    EXPECT_TRUE(put(holder, "abcdef"));
    EXPECT_EQ(get_all(other), "012345abcdef");
    EXPECT_EQ(get_all(holder), "012345abcdef");
    for (const int32_t i : {3, 0, 4, 1, 2}) EXPECT_TRUE(UnlockFile(holder, 2 * i, 2));
}

TEST_F(Platform, AllLocksOfAHandleEndWithItAndNoOthers)
{
    const file_handle holder = file_of("a", "");
    const file_handle third = open(name("a"));
    const file_handle other = open(name("a"));
    ASSERT_TRUE(LockFile(holder, 0, 100));
    ASSERT_TRUE(LockFile(holder, 200, 100));
    ASSERT_TRUE(LockFile(third, 300, 100));
    EXPECT_TRUE(CloseHandle(open(name("a")))) << "a further open and its close change nothing";
    EXPECT_FALSE(LockFile(other, 99, 1));
    EXPECT_TRUE(CloseHandle(holder));
    EXPECT_TRUE(LockFile(other, 0, 300));
    EXPECT_FALSE(LockFile(other, 300, 1));
}

TEST_F(Platform, NothingWorksOnAHandleThatIsNotOpen)
{
    const file_handle closed = file_of("a", "abc");
    ASSERT_TRUE(CloseHandle(closed));
    for (const file_handle file : {closed, no_file, 5000, INT_MAX, INT_MIN}) {
        char room[4] = {};
        uint32_t moved = 9;
        EXPECT_FALSE(ReadFile(file, room, 1, moved));
        EXPECT_EQ(moved, 0U);
        EXPECT_FALSE(WriteFile(file, room, 1, moved));
        EXPECT_EQ(SetFilePointer(file, 0, origin::begin), invalid_position);
        EXPECT_EQ(SetFilePointer(file, 0, origin::end), invalid_position);
        EXPECT_FALSE(LockFile(file, 0, 1));
        EXPECT_FALSE(UnlockFile(file, 0, 1));
        EXPECT_FALSE(FlushFileBuffers(file));
        EXPECT_FALSE(ZeroFileRange(file, 0, 1));
        EXPECT_FALSE(CloseHandle(file));
        EXPECT_NE(GetLastError(), 0U);
    }
    EXPECT_EQ(get_all(open(name("a"))), "abc");
}

TEST_F(Platform, AFileIsRemovedOnlyWhileNobodyHasItOpen)
{
    const std::string a = name("a");
    for (const share mode : {share::none, share::read_write}) {
        const file_handle file = create(a, mode);
        EXPECT_FALSE(DeleteFileA(a.c_str()));
        EXPECT_TRUE(put(file, "x"));
        EXPECT_TRUE(CloseHandle(file));
        EXPECT_TRUE(DeleteFileA(a.c_str()));
        EXPECT_EQ(open(a), no_file);
        EXPECT_FALSE(DeleteFileA(a.c_str()));
    }
    EXPECT_EQ(get(create(a), 1), "") << "a later file of the same name begins empty";
}

TEST_P(PlatformTransfers, ZeroedRangesReadAsZerosAndNothingElseChanges)
{
    const std::string content(100000, 'x');
    const struct {
        int32_t offset, length;
        bool granted;
    } rows[] = {{5, 10, true},      {4095, 40000, true}, {99999, 1, true},
                {0, 100000, true},  {100000, 0, true},   {50, 0, true},
                {99999, 2, false},  {100000, 1, false},  {-1, 5, false},
                {5, -1, false},     {200000, 5, false},  {5, max_file_bytes, false},
                {INT_MIN, 0, false}};
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << r.offset << ", " << r.length);
        const file_handle file = file_of("a", content, GetParam());
        SetFilePointer(file, 7, origin::begin);
        ASSERT_TRUE(LockFile(file, 0, 50));
        EXPECT_EQ(ZeroFileRange(file, r.offset, r.length), r.granted);
        EXPECT_EQ(position(file), 7U);
        EXPECT_TRUE(UnlockFile(file, 0, 50));

        std::string expected = content;
        const size_t length = static_cast<size_t>(r.length);
        if (r.granted) expected.replace(static_cast<size_t>(r.offset), length, length, '\0');
        SetFilePointer(file, 0, origin::begin);
        EXPECT_TRUE(get(file, 200000) == expected);
        EXPECT_TRUE(CloseHandle(file));
        EXPECT_TRUE(DeleteFileA(name("a").c_str()));
    }
}

TEST_F(Platform, BlocksComeFilledWithZerosOrNotAtAll)
{
    for (const size_t bytes : {size_t{1}, size_t{240 * 8}, size_t{100000}}) {
        void* const block = LocalAlloc(bytes);
        ASSERT_NE(block, nullptr);
        const std::string zeros(bytes, '\0');
        EXPECT_EQ(std::memcmp(block, zeros.data(), bytes), 0);
        std::memset(block, 0x5a, bytes);
        LocalFree(block);
    }
    EXPECT_EQ(LocalAlloc(SIZE_MAX / 2), nullptr);
    LocalFree(nullptr);
}

} // namespace
} // namespace tarsil::platform
