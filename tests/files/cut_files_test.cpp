// Files that a foreign program cuts while they are open, or takes the room away from: each call
// ends with the code of its site, whether the files are mapped or not, and the files can be closed.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fcntl.h>

#include "tarsil32.h"
#include "tests/support/child_process.h"
#include "tests/support/file_parts.h"
#include "tests/support/platform_files.h"
#include "tests/support/temp_folder.h"

namespace {

constexpr int32_t records = 20000;

// One record with its number in front; the rest is no zero, as nearly everywhere.
struct body {
    int32_t number;
    char rest[96];
};

constexpr int32_t frame_of(int32_t number)
{
    return 28 + (number - 1) * (8 + int32_t{sizeof(body)});
}

class CutFiles : public testing::TestWithParam<char> {
protected:
    void SetUp() override
    {
        ASSERT_EQ(tsinit32(), TS_STARTED);
        ASSERT_EQ(tsmuser32(GetParam()), TS_OK);
        ASSERT_EQ(tscrdata32(data.c_str(), sizeof(body), 0, nullptr), 0);
        key_definition key = tarsil::support::define_key(0, {{'i'}}, 'n');
        ASSERT_EQ(tscrind32(0, index.c_str(), 1, &key), 0);
        for (int32_t number = 1; number <= records; ++number) ASSERT_EQ(add(number), TS_OK);
    }
    void TearDown() override
    {
        EXPECT_GE(tsclosed32(0), TS_OK);
        tsfree32();
    }

    int32_t add(int32_t number)
    {
        body record = {number, {}};
        std::memset(record.rest, 'x', sizeof record.rest);
        return tsadd32(0, &record, 0, 'n');
    }
    int32_t get(int32_t number) { return tsgetd32(0, number, &read, &deleted); }
    int32_t find(int32_t number) { return tsgeti32(0, 0, 0, &number, &read, &deleted); }

    tarsil::support::temp_folder folder;
    std::string data = folder.file("d");
    std::string index = folder.file("i");
    body read = {};
    int32_t deleted = 0;
};

INSTANTIATE_TEST_SUITE_P(, CutFiles, testing::Values('n', 'y'), [](const auto& shared) {
    return shared.param == 'y' ? "shared" : "alone";
});

TEST_P(CutFiles, GiveTheCodesOfTheirReads)
{
    const struct {
        int32_t size, number, code;
    } cuts[] = {{frame_of(15000), 14999, TS_OK},
                {frame_of(15000), 15000, TS_FRAME_READ_SHORT},
                {frame_of(15000), records, TS_FRAME_READ_SHORT},
                {frame_of(9000) + 4, 9000, TS_FRAME_READ_SHORT},
                {frame_of(8000) + 50, 8000, TS_BODY_READ_SHORT},
                {frame_of(8000) + 50, 7999, TS_OK}};
    for (const auto& cut : cuts) {
        SCOPED_TRACE(testing::Message() << cut.size << ", " << cut.number);
        ASSERT_EQ(truncate(data.c_str(), cut.size), 0);
        EXPECT_EQ(get(cut.number), cut.code);
        EXPECT_EQ(find(cut.number), cut.code);
    }
    ASSERT_EQ(truncate(index.c_str(), 5 * 8204), 0);
    EXPECT_EQ(find(records), TS_NODE_READ_SHORT);
    EXPECT_EQ(add(records + 1), TS_NODE_READ_SHORT);
    EXPECT_EQ(find(1), TS_OK) << "what is in front of the cut";
}

// Records whose bodies have holes, on a disk that somebody else has filled since: no
// signal, and no other record suffers.
TEST(FullDisk, AnUpdateInAHoleGivesTheCodeOfItsSite)
{
    constexpr int32_t body_bytes = 20000;
    const std::string old_body(body_bytes, 'o');
    for (const char shared : {'n', 'y'}) {
        SCOPED_TRACE(shared);
        const tarsil::support::temp_folder folder;
        const std::string data = folder.file("d");
        const std::string new_body(body_bytes, 'n');
        std::string scratch(body_bytes, ' ');
        int32_t deleted = 0;
        const auto update = [&](int32_t number) {
            return tsupd32(0, number, new_body.data(), 0, &deleted, scratch.data(), 0);
        };
        const std::vector<tarsil::support::child_step> steps = {
            {0, [&] { return tsinit32() + tsmuser32(shared) - TS_STARTED; }},
            {0, [&] { return tscrdata32(data.c_str(), body_bytes, 0, nullptr); }},
            {0, [&] { return tsadd32(0, old_body.data(), 0, 'y'); }},
            {0, [&] { return tsadd32(0, old_body.data(), 0, 'y'); }},
            {0,
             [&] {
                 const int file = open(data.c_str(), O_RDWR);
                 constexpr int how = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
                 return fallocate(file, how, 8192, 8192) + close(file);
             },
             "a hole in record 1"},
            {true,
             [&] {
                 std::ofstream other(folder.file("b"));
                 return !(other << std::string(4 << 20, 'b') << std::flush);
             },
             "a full disk"},
            {TS_RECORD_WRITE_SHORT, [&] { return update(1); }},
            {TS_OK, [&] { return update(2); }, "which has no hole"},
            {TS_OK, [&] { return tsgetd32(0, 2, scratch.data(), &deleted); }},
            {true, [&] { return scratch == new_body; }},
            {TS_OK, [&] { return unlink(folder.file("b").c_str()); }},
            {TS_OK, [&] { return update(1); }, "once there is room"},
            {TS_OK, [&] { return tsclosed32(0); }},
        };
        const auto small_disk = [&] { return tarsil::support::mount_small_disk(folder.path()); };
        if (!tarsil::support::expect_in_child(small_disk, steps))
            GTEST_SKIP() << "this process may not mount a small disk";
    }
}

} // namespace
