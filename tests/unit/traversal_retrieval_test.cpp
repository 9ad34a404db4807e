// Reading by key value and walking in key order, on a data file with equal values and trees of
// several levels: what the random operations of model_test.cpp don't come to.
#include "index/search.h"
#include "tests/support/library_fixture.h"

#include <gmock/gmock.h>
#include <vector>

using namespace tarsil;
using support::define_key;
using support::i32;
using support::mode;
using support::with;

namespace {

// A record is a number and a name of 4 bytes. Key 0: number. Key 1: name and number. Key 2: number,
// without a cursor.
struct row {
    int32_t number;
    char name[4];
    int32_t deleted; // not stored
};
constexpr int32_t row_bytes = 8;

// 90 records; every third number comes up twice, and there are nine names.
std::vector<row> make_rows()
{
    std::vector<row> rows;
    for (int32_t i = 0; i < 90; ++i) {
        const int32_t number = i < 60 ? i * 37 % 60 : (i - 60) * 3 % 60;
        rows.push_back({number, {'n', static_cast<char>('a' + number % 9), 0, 0}, 0});
    }
    return rows;
}

void create_files(const std::vector<row>& rows)
{
    ASSERT_EQ(tscrdata32("d", row_bytes, 0, nullptr), 0);
    for (const row& each : rows) ASSERT_EQ(tsadd32(0, &each, 0, 'y'), TS_OK);
    key_definition keys[] = {define_key(2, {{'l'}}), define_key(3, {{'s', 4, 4}, {'l'}}),
                             define_key(2, {{'l'}}, 'n')};
    unsigned char buffer[row_bytes];
    ASSERT_EQ(tscrindd32(0, "i", 3, keys, buffer), rows.empty() ? TS_FIRST_RECORD_NONE : 0);
}

using reader = int32_t (*)(int32_t, int32_t, int32_t, void*, int32_t*);

int32_t read_by(reader read, int32_t key_number, row* to = nullptr)
{
    row told = {};
    const int32_t code = read(0, 0, key_number, &told, &told.deleted);
    if (to != nullptr) *to = told;
    return code;
}

class Walk : public support::Library {
protected:
    static void start(mode wanted, const std::vector<row>& rows)
    {
        start_over(wanted);
        create_files(rows);
    }
};

TEST_F(Walk, NeedsRecordsAPositionAndACursor)
{
    start(mode::single, {});
    for (const reader read : {tsgetfi32, tsgetli32})
        EXPECT_EQ(read_by(read, 0), TS_WALK_NO_RECORDS);
    start(mode::single, make_rows());
    EXPECT_EQ(tsclosei32(0, 0), TS_OK);
    char cursors[] = {'y', 'y', 'n'};
    ASSERT_EQ(tsopeni32(0, "i", cursors), 0);
    EXPECT_EQ(read_by(tsgetfi32, 2), TS_OK);
    for (const int32_t key_number : {0, 2}) {
        for (const reader read : {tsgetni32, tsgetpi32, tsgetci32})
            EXPECT_EQ(read_by(read, key_number), TS_CURSOR_NONE);
    }
    EXPECT_EQ(read_by(tsgetfi32, 3), TS_BAD_KEY_NUMBER);

    start(mode::shared, make_rows());
    for (const reader read : {tsgetni32, tsgetpi32, tsgetci32}) {
        data_slots[0].header.record_count += 1; // as if the file's had changed since
        EXPECT_EQ(read_by(read, 0), TS_CURSOR_FILE_CHANGED);
        EXPECT_EQ(read_by(read, 0), TS_OK);
    }
}

TEST_F(Walk, PartialSearchesTellBadArgumentsAndMissingCursorsApart)
{
    start(mode::single, make_rows());
    const std::string value = i32('n') + i32(5);
    row read;
    const struct {
        int32_t fields;
        uint32_t last_length;
        int32_t partial, nearest;
    } cases[] = {{0, 4, TS_PARTIAL_BAD_FIELD_COUNT, TS_NEAREST_BAD_FIELD_COUNT},
                 {3, 4, TS_PARTIAL_BAD_FIELD_COUNT, TS_NEAREST_BAD_FIELD_COUNT},
                 {1, 0, TS_PARTIAL_BAD_LENGTH, TS_NEAREST_BAD_LENGTH},
                 {1, 5, TS_PARTIAL_BAD_LENGTH, TS_NEAREST_BAD_LENGTH},
                 {1, 0xffffffff, TS_PARTIAL_BAD_LENGTH, TS_NEAREST_BAD_LENGTH}};
    for (const auto& [fields, last_length, partial, nearest] : cases) {
        EXPECT_EQ(tsgetip32(0, 0, 1, value.data(), fields, last_length, &read, &read.deleted),
                  partial);
        EXPECT_EQ(tsgetipp32(0, 0, 1, value.data(), fields, last_length, &read, &read.deleted),
                  nearest);
    }
    // Without a cursor only what needs no step back is answered.
    for (const auto& [number, code] : {std::pair{5, 0}, {99, 1}, {-5, int32_t{TS_CURSOR_NONE}}})
        EXPECT_EQ(tsgetipp32(0, 0, 2, i32(number).data(), 1, 0, &read, &read.deleted), code);
    start(mode::single, {});
    EXPECT_EQ(tsgetipp32(0, 0, 0, i32(5).data(), 1, 0, &read, &read.deleted), TS_CURSOR_NONE);
}

// Every byte that a walk can meet is damaged once: all calls come back, and within bounds.
TEST_F(Walk, ASearchThatEndsInABranchLeavesNoCursor)
{
    std::vector<row> rows = make_rows();
    rows.resize(14);
    start(mode::single, rows);
    ASSERT_EQ(tsclosei32(0, 0), TS_OK);
    const std::string sound = sim::bytes("i");
    const auto root = static_cast<size_t>(load_i32(sound.data() + 24));
    sim::set_bytes("i", with(sound, root, -1));
    char cursors[] = {'y', 'y', 'n'};
    ASSERT_EQ(tsopeni32(0, "i", cursors), 0);
    EXPECT_EQ(read_by(tsgetfi32, 0), TS_WALK_CHILD_MISSING);
    // A search that ends there leaves the cursor in a branch, whose links lead to no records.
    row met = {};
    int32_t number = 0;
    EXPECT_EQ(read_by(tsgetli32, 0), TS_OK);
    EXPECT_EQ(tsgeti32(0, 0, 0, i32(-1).data(), &met, &met.deleted), TS_FIND_NO_ENTRY);
    for (const reader read : {tsgetci32, tsgetni32, tsgetpi32})
        EXPECT_EQ(read_by(read, 0), TS_CURSOR_NONE);
    EXPECT_EQ(tssetd2i32(0, 0, 0, &number), TS_CURSOR_NONE);
    EXPECT_EQ(tsdelci32(0, 0, 0), TS_CURSOR_NONE);
}

} // namespace
