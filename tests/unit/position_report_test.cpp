// Positions carried between cursor and data file, where random operations (model_test.cpp) don't
// come to; the key report; and an index built over records that are there already.
#include "index/search.h"
#include "tests/support/library_fixture.h"

#include <gmock/gmock.h>

using namespace tarsil;
using support::define_key;
using support::i32;
using support::mode;
using support::with;
using testing::ElementsAre;

namespace {

using Position = support::Library;

// Records are a number and a text; key 0 has a cursor, key 1 has none, both over the number.
void create_files(int32_t record_length, const std::vector<std::string>& records)
{
    ASSERT_EQ(tscrdata32("d", record_length, 0, nullptr), 0);
    for (const std::string& each : records)
        ASSERT_EQ(tsadd32(0, each.data(), static_cast<int32_t>(each.size()), 'y'), TS_OK);
    key_definition keys[] = {define_key(2, {{'l'}, {'s', 3, 4}}), define_key(10, {{'l'}}, 'n')};
    unsigned char buffer[64];
    ASSERT_EQ(tscrindd32(0, "i", 2, keys, buffer), 0);
}

// Some are shorter than the key.
const std::vector<std::string> records = {i32(9) + "first",       i32(7) + "2", i32(7) + "2",
                                          i32(3) + "number four", i32(1),       i32(0) + "abcdef"};

TEST_F(Position, DeliversThePackedKeyAndTellsAMissingEntry)
{
    create_files(TS_VARIABLE_LENGTH, records);
    unsigned char record[64];
    char packed[11];
    int32_t deleted = 0;
    int32_t number = 0;
    ASSERT_EQ(tsgetd32(0, 2, record, &deleted), TS_OK);
    const int32_t offset = data_slots[0].current_offset;
    ASSERT_EQ(tsseti2d32(0, 0, 0, record, packed, &number), TS_OK);
    EXPECT_EQ(std::string(packed, 11), i32(7) + std::string("2\0\0", 3) + i32(offset));

    // The record has another number now: nothing is found, and the cursor is given up.
    sim::set_bytes("d", with(sim::bytes("d"), static_cast<size_t>(offset) + 8, 8));
    number = 0;
    EXPECT_EQ(tsseti2d32(0, 0, 0, record, packed, &number), 1);
    EXPECT_EQ(number, 2);
    EXPECT_EQ(tssetd2i32(0, 0, 0, &number), TS_CURSOR_NONE);

    ASSERT_EQ(tsgetfi32(0, 0, 0, record, &deleted), TS_OK);
    data_slots[0].current_record = 0;
    EXPECT_EQ(tsseti2d32(0, 0, 0, record, packed, &number), TS_NO_CURRENT_RECORD);
    EXPECT_EQ(tsgetci32(0, 0, 0, record, &deleted), TS_OK);
}

TEST_F(Position, AnEntryThatNamesNoRecordEndsTheCountOfFrames)
{
    for (const int32_t record_length : {TS_VARIABLE_LENGTH + 0, 12}) {
        start_over(mode::single);
        create_files(record_length, {i32(1) + "aaaaaaaa", i32(2) + "bbbbbbbb"});
        unsigned char record[64];
        int32_t deleted = 0;
        int32_t number = 0;
        ASSERT_EQ(tsgetli32(0, 0, 0, record, &deleted), TS_OK);
        key_slot& key = key_of(0, 0, 0);
        unsigned char* entry = entry_at(key.key_record, key.work_node, key.position);
        for (const int32_t link : {no_offset, 0, 27, INT32_MIN, 49}) {
            set_entry_link(entry, link);
            EXPECT_EQ(tssetd2i32(0, 0, 0, &number), TS_FRAME_READ_POSITION);
        }
        set_entry_link(entry, 48);
        EXPECT_EQ(tssetd2i32(0, 0, 0, &number), TS_OK);
        EXPECT_EQ(number, 2);
    }
}

TEST_F(Position, ReportsOrderNodeCursorAndFields)
{
    support::switch_to(mode::shared);
    create_files(TS_VARIABLE_LENGTH, records);
    int32_t order = 0;
    int32_t node_bytes = 0;
    char cursor = 0;
    key_report report;
    std::memset(&report, 'x', sizeof report);
    const key_report blank = report;
    ASSERT_EQ(tsstati32(0, 0, 0, &order, &node_bytes, &cursor, &report), TS_OK);
    EXPECT_THAT((std::vector{order, node_bytes, int32_t{cursor}, report.field_count}),
                ElementsAre(2, 4 * (7 + 8 + 4) + 8, 'y', 2));
    EXPECT_EQ(std::string(report.types, 3), "lsx");
    EXPECT_THAT((std::vector{report.lengths[0], report.lengths[1], report.offsets[0]}),
                ElementsAre(4, 3, 0));
    EXPECT_EQ(report.offsets[1], 4);
    EXPECT_EQ(report.lengths[2], blank.lengths[2]);
    EXPECT_EQ(report.reserved, blank.reserved);
    ASSERT_EQ(tsstati32(0, 0, 1, &order, &node_bytes, &cursor, &report), TS_OK);
    EXPECT_THAT((std::vector{order, int32_t{cursor}}), ElementsAre(10, 'n'));
}

} // namespace
