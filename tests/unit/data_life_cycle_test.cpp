// Creating, opening, closing and describing data files: the bytes that stand in the file, which
// code wins, what a failure leaves behind, and when the header reaches the file.
#include "tests/support/library_fixture.h"

#include <vector>

using namespace tarsil;
using namespace tarsil::support;

namespace {

using LifeCycle = Library;

int32_t create(const char* name, int32_t record_length = 4)
{
    return tscrdata32(name, record_length, 0, nullptr);
}

struct facts {
    int32_t records, deleted, record_length, current, fields;
    bool operator==(const facts&) const = default;
};

facts facts_of(int32_t data_handle)
{
    facts f = {-7, -7, -7, -7, -7};
    EXPECT_EQ(
        tsstatd32(data_handle, &f.records, &f.deleted, &f.record_length, &f.current, &f.fields),
        TS_OK);
    return f;
}

TEST_F(LifeCycle, NewFilesByteForByte)
{
    EXPECT_EQ(create("plain", 100), 0);
    EXPECT_EQ(sim::bytes("plain"),
              std::string("\x2ATSD\0\0\0\0\0\0\0\0\x64\0\0\0\x1C\0\0\0\0\0\0\0\0\0\0\0", 28));
    EXPECT_EQ(facts_of(0), (facts{0, 0, 100, 0, 0}));

    field_entry given[] = {{3, 'd'}, {3, 's'}, {9, 'H'}, {9, 'h'}, {9, 'L'},   {9, 'U'}, {9, 'i'},
                           {9, 'l'}, {9, 'f'}, {9, 'c'}, {9, '?'}, {9, 0x169}, {9, -152}};
    const int32_t stored[] = {8, 3, 2, 2, 4, 4, 4, 4, 4, 1, 9, 9, 9};
    EXPECT_EQ(tscrdata32("fields", TS_VARIABLE_LENGTH, 13, given), 1);
    std::string table;
    for (size_t i = 0; i < 13; ++i) {
        EXPECT_EQ(given[i].length, stored[i]);
        table += i32(stored[i]) + i32(given[i].type);
    }
    EXPECT_EQ(sim::bytes("fields"),
              "*TSD" + i32(0) + i32(0) + i32(-1) + i32(28 + 104) + i32(104) + i32(0) + table);
    EXPECT_EQ(table.substr(48, 8), std::string("\4\0\0\0\x69\0\0\0", 8));

    field_entry told[13] = {};
    EXPECT_EQ(tsfields32(1, told), 13);
    EXPECT_EQ(std::memcmp(told, given, sizeof told), 0);
    EXPECT_EQ(facts_of(1), (facts{0, 0, -1, 0, 13}));
    EXPECT_EQ(tsfields32(0, nullptr), 0);
}

TEST_F(LifeCycle, WhichCodeOfCreateWins)
{
    ASSERT_EQ(create("there"), 0);
    ASSERT_EQ(tsclosed32(0), TS_OK);
    const struct {
        const char* name;
        int32_t record_length, field_count, code;
    } rows[] = {
        {"there", 0, -1, TS_CREATE_DATA_FILE_EXISTS},
        {"new", 0, 0, TS_CREATE_BAD_RECORD_LENGTH},
        {"new", -2, 0, TS_CREATE_BAD_RECORD_LENGTH},
        {"new", 4, -1, TS_CREATE_BAD_RECORD_LENGTH},
        {"new", 4, (0x7fffffff - 28) / 8 + 1, TS_CREATE_BAD_RECORD_LENGTH},
        {"new", 4, 0x20000000, TS_CREATE_BAD_RECORD_LENGTH}, // 8 times this is 0 in 32 bits
        {"", 4, 0, TS_FILE_MARK_WRITE_POSITION},
    };
    const auto create_row = [](const auto& r) {
        return tscrdata32(r.name, r.record_length, r.field_count, nullptr);
    };
    for (const auto& r : rows) EXPECT_EQ(create_row(r), r.code) << r.name << r.record_length;
    ASSERT_EQ(tsmuser32('y'), TS_OK);
    EXPECT_EQ(create(""), TS_LOCK_NO_POSITION);
    ASSERT_EQ(tsmuser32('n'), TS_OK);

    for (int32_t handle = 0; handle < 8; ++handle)
        ASSERT_EQ(create(("f" + std::to_string(handle)).c_str()), handle);
    for (const auto& r : rows) EXPECT_EQ(create_row(r), TS_NO_FREE_DATA_SLOT);
    EXPECT_FALSE(sim::exists("new"));
    sim::set_bytes("there", "");
    EXPECT_EQ(tsopend32("there"), TS_NO_FREE_DATA_SLOT);
    EXPECT_EQ(tsclosed32(5), TS_OK);
    EXPECT_EQ(tsclosed32(2), TS_OK);
    EXPECT_EQ(create("again"), 2);
}

TEST_F(LifeCycle, BeforeTheStartAndOnWrongHandles)
{
    data_slots[0].status = slot_never_started;
    EXPECT_EQ(create("d"), TS_NOT_STARTED);
    EXPECT_EQ(tsclosed32(0), TS_DATA_NOT_OPEN);
    data_slots[0].status = slot_free;
    sim::set_bytes("d", data_file(0, 0, 4, 28));
    for (const int32_t handle : {-1, 8, INT32_MIN, INT32_MAX})
        EXPECT_EQ(tsclosed32(handle), TS_BAD_DATA_HANDLE);

    int32_t major = 0;
    int32_t minor = 0;
    EXPECT_EQ(tsvernum32(0, &major, &minor, -1, -1), TS_OK);
    EXPECT_EQ(major * 100 + minor, 210);
    EXPECT_EQ(tsvernum32(3, &major, &minor, 0, 0), TS_VERSION_BAD_MODE);
    EXPECT_EQ(tsvernum32(1, &major, &minor, 0, 0), TS_DATA_NOT_OPEN);
    ASSERT_EQ(tsopend32("d"), 0);
    EXPECT_EQ(tsvernum32(1, &major, &minor, 0, 99), TS_OK);
    EXPECT_EQ(major * 100 + minor, 210);
    EXPECT_EQ(tsvernum32(2, &major, &minor, 0, 0), TS_INDEX_NOT_OPEN);
}

TEST_F(LifeCycle, WhatCanNotBeOpenedSpoilsItsSlot)
{
    const std::string whole = data_file(0, 0, 4, 28);
    std::vector<std::pair<std::string, int32_t>> rows = {
        {"", TS_VERSION_READ_SHORT},
        {"\x2B", TS_BAD_MINOR_VERSION},
        {"\x1A", TS_BAD_MAJOR_VERSION},
        {"\xAA", TS_BAD_MAJOR_VERSION},
        {"*TSI" + whole.substr(4), TS_BAD_MAGIC},
        {"*tSD" + whole.substr(4), TS_BAD_MAGIC},
    };
    for (size_t size = 1; size < 28; ++size)
        rows.emplace_back(whole.substr(0, size),
                          size < 4 ? TS_MAGIC_READ_SHORT : TS_HEADER_READ_SHORT);
    for (const mode wanted : all_modes) {
        for (const auto& [bytes, code] : rows) {
            SCOPED_TRACE(std::to_string(bytes.size()) + " bytes");
            start_over(wanted);
            sim::set_bytes("d", bytes);
            EXPECT_EQ(tsopend32("d"), code);
            EXPECT_EQ(tsclosed32(0), TS_DATA_NOT_OPEN);
            EXPECT_EQ(sim::bytes("d"), bytes);
            sim::set_bytes("d", whole);
            EXPECT_EQ(tsopend32("d"), 1); // the spoilt slot isn't taken
        }
    }
    start_over(mode::single);
    EXPECT_EQ(tsopend32("missing"), TS_OPEN_DATA_NOT_THERE);
    sim::set_bytes("locked away", whole);
    sim::forbid_writing("locked away");
    EXPECT_EQ(tsopend32("locked away"), TS_VERSION_READ_POSITION);
    EXPECT_EQ(tsrbdbh32("locked away", nullptr), TS_REBUILD_NO_SIZE);
    ASSERT_EQ(tsmuser32('y'), TS_OK);
    EXPECT_EQ(tsopend32("locked away"), TS_OPEN_DATA_NOT_THERE);
}

TEST_F(LifeCycle, OneOpenInSingleUserModeManyInMultiUserMode)
{
    ASSERT_EQ(create("d"), 0);
    EXPECT_EQ(tsIsFileThere32("d"), 0);
    EXPECT_EQ(tsopend32("d"), TS_OPEN_DATA_NOT_THERE);
    EXPECT_EQ(tsrbdbh32("d", nullptr), TS_REBUILD_NOT_THERE);
    ASSERT_EQ(tsclosed32(0), TS_OK);
    EXPECT_EQ(tsIsFileThere32("d"), 1);
    ASSERT_EQ(tsmuser32('y'), TS_OK);
    EXPECT_EQ(tsopend32("d"), 0);
    EXPECT_EQ(tsopend32("d"), 1);
    ASSERT_EQ(tslockd32(1), 1);
    EXPECT_EQ(tsopend32("d"), TS_OPEN_DATA_LOCK_FAILED);
    EXPECT_EQ(data_slots[2].status, slot_free);
    EXPECT_EQ(tsrbdbh32("d", nullptr), TS_LOCK_REFUSED);
    EXPECT_EQ(tsulockd32(1), TS_OK);
}

TEST_F(LifeCycle, WhenTheHeaderReachesTheFile)
{
    const std::string before = data_file(0, 0, 4, 28, frame("abcd"));
    const std::string after = data_file(1, 0, 4, 40, frame("abcd"));
    for (const mode wanted : all_modes) {
        SCOPED_TRACE(static_cast<int>(wanted));
        start_over(wanted);
        ASSERT_EQ(create("d"), 0);
        ASSERT_EQ(tsadd32(0, "abcd", 0, 'y'), TS_OK);
        EXPECT_EQ(sim::bytes("d"), wanted == mode::single ? before : after);
        EXPECT_EQ(data_slots[0].status, wanted == mode::single ? slot_dirty : slot_clean);
        EXPECT_EQ(facts_of(0), (facts{1, 0, 4, 1, 0}));
        EXPECT_EQ(tsclosed32(0), TS_OK);
        EXPECT_EQ(sim::bytes("d"), after);
    }
    // The mode at the close decides, and in multi-user mode nothing is dirty.
    start_over(mode::single);
    ASSERT_EQ(create("d"), 0);
    ASSERT_EQ(tsadd32(0, "abcd", 0, 'y'), TS_OK);
    ASSERT_EQ(tsmuser32('y'), TS_OK);
    EXPECT_EQ(tsclosed32(0), TS_OK);
    EXPECT_EQ(sim::bytes("d"), before);
}

TEST_F(LifeCycle, AFileOfAnotherIsNeverRemoved)
{
    for (const mode wanted : {mode::single, mode::shared}) {
        start_over(wanted);
        sim::set_bytes("d", "somebody's");
        // It can't be opened now, so it reads as not there.
        sim::plan({.where = sim::only(sim::call::open)});
        EXPECT_EQ(create("d"),
                  wanted == mode::single ? TS_FILE_MARK_WRITE_POSITION : TS_LOCK_NO_POSITION);
        EXPECT_EQ(sim::bytes("d"), "somebody's");
    }
}

TEST_F(LifeCycle, AClosedFileLeavesNoRangeForTheNextOneInItsSlot)
{
    ASSERT_EQ(tsmuser32('y'), TS_OK);
    ASSERT_EQ(create("a"), 0);
    ASSERT_EQ(tslockd32(0), 1);
    ASSERT_EQ(tsclosed32(0), TS_OK);
    ASSERT_EQ(create("b"), 0);
    EXPECT_EQ(tslockd32(0), 1); // placed, not covered by what is left of the other file
    EXPECT_EQ(tsulockd32(0), TS_OK);
}

TEST_F(LifeCycle, HostileFieldBytes)
{
    for (const int32_t field_bytes : {INT32_MIN, -8, -1, 1, 7, 8, 0x7ffffff8, INT32_MAX}) {
        SCOPED_TRACE(field_bytes);
        start_over(mode::single);
        const std::string bytes = with(data_file(1, 1, 4, 40), 20, field_bytes);
        sim::set_bytes("d", bytes);
        ASSERT_EQ(tsopend32("d"), 0);
        const int32_t fields = facts_of(0).fields;
        EXPECT_EQ(fields, field_bytes / 8);
        field_entry nothing[1];
        EXPECT_EQ(tsfields32(0, nothing), fields == 0 ? 0 : TS_FIELD_TABLE_READ_SHORT);
        char body[4];
        int32_t removed = 0;
        // Nothing of the library can be led to write over the header.
        EXPECT_LT(tsupd32(0, 1, "abcd", 4, &removed, body, 0), 0);
        EXPECT_LT(tsdeld32(0, 1), 0);
        EXPECT_LT(tsadd32(0, "abcd", 4, 'y'), 0);
        EXPECT_LT(tspurge32(0, body, &removed), 0);
        EXPECT_EQ(sim::bytes("d"), bytes);
    }
}

} // namespace
