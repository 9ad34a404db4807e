// Files that a foreign program cuts while they are open: each call ends with the code of its site,
// whether the files are mapped or not, and the files can be closed.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "tarsil32.h"
#include "tests/support/file_parts.h"
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

} // namespace
