// Data files: the bytes that stand in them, which code wins, what a refusal leaves behind, and what
// damaged files do. That calls answer rightly on sound files is the affair of model_test.cpp.
#include "index/slots.h"
#include "tests/support/library_fixture.h"

#include <vector>

using namespace tarsil;
using namespace tarsil::support;

namespace {

struct DataFiles : Library {
    static int32_t create(const char* name, int32_t record_length = 4)
    {
        return tscrdata32(name, record_length, 0, nullptr);
    }
    static int32_t purge()
    {
        char buffer[16];
        int32_t removed = 0;
        return tspurge32(0, buffer, &removed);
    }
    static int32_t rebuild()
    {
        std::vector<char> buffer(sim::bytes("d").size() + 1);
        return tsrbdbh32("d", buffer.data());
    }
    static std::string stored() { return sim::bytes("d").substr(28); }
};

TEST_F(DataFiles, NewFilesByteForByte)
{
    EXPECT_EQ(create("plain", 100), 0);
    EXPECT_EQ(sim::calls(sim::call::write), 2U) << "no table of fields";
    EXPECT_EQ(sim::bytes("plain"),
              std::string("\x2ATSD\0\0\0\0\0\0\0\0\x64\0\0\0\x1C\0\0\0\0\0\0\0\0\0\0\0", 28));

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

    EXPECT_EQ(tsfields32(1, given), 13);
    EXPECT_EQ(given[12].type, -152);
}

TEST_F(DataFiles, RecordsByteForByteAndWhenTheHeaderFollows)
{
    const std::string before = data_file(0, 0, 4, 28, frame("abcd"));
    const std::string after = data_file(1, 0, 4, 40, frame("abcd"));
    for (const mode wanted : all_modes) {
        SCOPED_TRACE(static_cast<int>(wanted));
        start_over(wanted);
        ASSERT_EQ(create("d"), 0);
        ASSERT_EQ(tsadd32(0, "abcdEFGH", 99, 'y'), TS_OK); // the length isn't used
        EXPECT_EQ(sim::bytes("d"), wanted == mode::single ? before : after);
        EXPECT_EQ(data_slots[0].status, wanted == mode::single ? slot_dirty : slot_clean);
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

TEST_F(DataFiles, WhichCodeOfCreateWins)
{
    sim::set_bytes("there", data_file(0, 0, 4, 28));
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
    const auto try_row = [](const auto& r, int32_t code) {
        EXPECT_EQ(tscrdata32(r.name, r.record_length, r.field_count, nullptr), code) << r.name;
    };
    for (const auto& r : rows) try_row(r, r.code);
    for (int32_t handle = 0; handle < 8; ++handle)
        ASSERT_EQ(create(("f" + std::to_string(handle)).c_str()), handle);
    for (const auto& r : rows) try_row(r, TS_NO_FREE_DATA_SLOT);
    EXPECT_EQ(tsopend32("there"), TS_NO_FREE_DATA_SLOT);
    EXPECT_FALSE(sim::exists("new"));
    EXPECT_EQ(tsclosed32(5), TS_OK);
    EXPECT_EQ(tsclosed32(2), TS_OK);
    EXPECT_EQ(create("again"), 2);
}

TEST_F(DataFiles, BeforeTheStartAndOnWrongHandles)
{
    data_slots[0].status = slot_never_started;
    EXPECT_EQ(create("d"), TS_NOT_STARTED);
    EXPECT_EQ(tsclosed32(0), TS_DATA_NOT_OPEN);
    data_slots[0].status = slot_free;
    for (const int32_t handle : {-1, 8}) EXPECT_EQ(tsclosed32(handle), TS_BAD_DATA_HANDLE);
    int32_t major = 0;
    int32_t minor = 0;
    EXPECT_EQ(tsvernum32(0, &major, &minor, -1, -1), TS_OK);
    EXPECT_EQ(major * 100 + minor, 210);
    EXPECT_EQ(tsvernum32(3, &major, &minor, 0, 0), TS_VERSION_BAD_MODE);
    EXPECT_EQ(tsvernum32(1, &major, &minor, 0, 0), TS_DATA_NOT_OPEN);
    ASSERT_EQ(create("d"), 0);
    EXPECT_EQ(tsvernum32(1, &major, &minor, 0, 99), TS_OK);
    EXPECT_EQ(major * 100 + minor, 210);
    EXPECT_EQ(tsvernum32(2, &major, &minor, 0, 0), TS_INDEX_NOT_OPEN);
}

TEST_F(DataFiles, OneOpenInSingleUserModeManyInMultiUserMode)
{
    ASSERT_EQ(create("d"), 0);
    EXPECT_EQ(tsIsFileThere32("d"), 0);
    EXPECT_EQ(tsopend32("d"), TS_OPEN_DATA_NOT_THERE);
    EXPECT_EQ(rebuild(), TS_REBUILD_NOT_THERE);
    ASSERT_EQ(tsclosed32(0), TS_OK);
    EXPECT_EQ(tsIsFileThere32("d"), 1);

    start_over(mode::shared);
    sim::set_bytes("d", data_file(0, 0, 4, 28));
    for (const int32_t handle : {0, 1}) EXPECT_EQ(tsopend32("d"), handle);
    ASSERT_EQ(tslockd32(1), 1);
    EXPECT_EQ(tsopend32("d"), TS_OPEN_DATA_LOCK_FAILED);
    EXPECT_EQ(data_slots[2].status, slot_free);
    EXPECT_EQ(rebuild(), TS_LOCK_REFUSED);
    EXPECT_EQ(tsclosed32(1), TS_OK); // with its range
    ASSERT_EQ(tsopend32("d"), 1);
    EXPECT_EQ(tslockd32(1), 1) << "placed, not covered by what is left of the other open";
    EXPECT_EQ(tsulockd32(1), TS_OK);

    // It can't be opened now, so it reads as not there; yet nobody creates over it.
    sim::set_bytes("somebody's", "bytes");
    sim::plan({.where = sim::only(sim::call::open)});
    EXPECT_EQ(create("somebody's"), TS_LOCK_NO_POSITION);
    EXPECT_EQ(sim::bytes("somebody's"), "bytes");
}

// An open stands on the first record, also where there is none.
TEST_F(DataFiles, ReadsOfACurrentRecordThatIsNotThere)
{
    for (const int32_t record_length : {4, -1}) {
        start_over(mode::single);
        ASSERT_EQ(create("d", record_length), 0);
        ASSERT_EQ(tsclosed32(0), TS_OK);
        ASSERT_EQ(tsopend32("d"), 0);
        char body[4];
        int32_t told[3];
        EXPECT_EQ(tsgetnd32(0, body, told), TS_FRAME_READ_SHORT);
        EXPECT_EQ(tsgetcd32(0, body, told), TS_FRAME_READ_SHORT);
        EXPECT_EQ(tsrecd32(0, told, told + 1, told + 2), TS_FRAME_READ_SHORT);
        EXPECT_EQ(data_slots[0].current_record, 1);
    }
}

// 0.0 and -0.0 are one value. What else counts as a change is the affair of model_test.cpp, too.
TEST_F(DataFiles, TheBytesOfAKeyFieldCountAndNotItsValue)
{
    key_definition key = define_key(0, {{'d'}}, 'n');
    ASSERT_EQ(create("d", 8), 0);
    ASSERT_EQ(tscrind32(0, "i", 1, &key), 0);
    ASSERT_EQ(tsadd32(0, raw(0.0).data(), 8, 'n'), TS_OK);
    int32_t deleted = 0;
    char scratch[8];
    EXPECT_EQ(tsupd32(0, 1, raw(-0.0).data(), 8, &deleted, scratch, 0), TS_UPDATE_KEY_CHANGED);
}

// Another process makes the stored record longer between the look at its frame and the read of its
// body.
TEST_F(DataFiles, ScratchHoldsNoMoreThanItsRoom)
{
    start_over(mode::shared);
    key_definition key = define_key(0, {{'c'}}, 'n');
    ASSERT_EQ(create("v", TS_VARIABLE_LENGTH), 0);
    ASSERT_EQ(tscrind32(0, "vi", 1, &key), 0);
    ASSERT_EQ(tsadd32(0, "abcd", 4, 'n'), TS_OK);
    sim::meanwhile(3, sim::only(sim::call::read), [] { // header, frame, then frame and body
        sim::set_bytes("v", data_file(1, 0, -1, 56, frame("abcdefghijklmnopqrst")));
    });
    int32_t deleted = 0;
    std::vector<char> scratch(4);
    EXPECT_EQ(tsupd32(0, 1, "aXXX", 4, &deleted, scratch.data(), 0), TS_BODY_READ_SHORT);
}

TEST_F(DataFiles, APurgeMovesRecordsUpAndClearsWhatTheyLeave)
{
    const std::string a = frame("aaaa");
    const std::string b = frame("bbbb", 'd');
    const std::string c = frame("cccccc");
    const std::string d = frame("dd", 'd');
    const struct {
        int32_t record_length, records, deleted;
        std::string before, after;
        std::string behind; // a record that the header doesn't know of stays for a rebuild to find
    } rows[] = {
        {4, 5, 2, a + b + a + b + a, a + a + a, ""},
        {4, 3, 1, a + a + b, a + a, ""},
        {4, 2, 2, b + b, "", ""},
        {-1, 5, 3, d + a + b + c + d, a + c, ""},
        {4, 2, 1, b + a, a, a},
    };
    const auto end_of = [](const std::string& all) {
        return static_cast<int32_t>(28 + all.size());
    };
    for (const mode wanted : all_modes) {
        for (const auto& r : rows) {
            SCOPED_TRACE(r.before + " mode " + std::to_string(static_cast<int>(wanted)));
            start_over(wanted);
            sim::set_bytes("d", data_file(r.records, r.deleted, r.record_length, end_of(r.before),
                                          r.before + r.behind));
            ASSERT_EQ(tsopend32("d"), 0);
            EXPECT_EQ(purge(), TS_OK);
            EXPECT_EQ(data_slots[0].status, slot_dirty);
            EXPECT_EQ(data_slots[0].current_offset, 28);
            const std::string header = data_file(r.records - r.deleted, 0, r.record_length,
                                                 end_of(r.after));
            EXPECT_EQ(sim::bytes("d").substr(0, 28) == header, wanted != mode::single);
            EXPECT_EQ(purge(), TS_PURGE_NOTHING_DELETED);
            ASSERT_EQ(tsclosed32(0), TS_OK);
            const std::string cleared(r.before.size() - r.after.size(), 0);
            EXPECT_EQ(sim::bytes("d"), header + r.after + cleared + r.behind);
        }
    }
}

TEST_F(DataFiles, ARebuildMakesTheHeaderFromTheRecords)
{
    const std::string two = frame("aaaa") + frame("bbbb", 'd');
    const auto zeros = [](size_t bytes) { return std::string(bytes, 0); };
    const struct {
        std::string bytes;
        int32_t records, deleted, record_length, end;
    } rows[] = {
        {data_file(9, 9, 4, 99, two), 2, 1, 4, 52},
        {data_file(-1, -1, 7, INT32_MIN, two), 2, 1, 4, 52},
        {data_file(0, 0, -1, 0, two), 2, 1, -1, 52},
        {data_file(0, 0, 4, 0, two + frame("ccccc")), 3, 1, -1, 65},
        {data_file(0, 0, 4, 0, two + frame("cccc", '?') + frame("dddd", 'D')), 4, 1, 4, 76},
        {data_file(0, 0, INT32_MAX, 0), 0, 0, INT32_MAX, 28},
        {data_file(5, 5, -2, 0), 0, 0, -1, 28},
        // What a purge leaves behind the records ends the scan, however short it has become.
        {data_file(0, 0, 4, 0, two + zeros(9000)), 2, 1, 4, 52},
        {data_file(0, 0, 4, 0, two + zeros(8)), 2, 1, 4, 52},
        {data_file(0, 0, 4, 0, two + zeros(1)), 2, 1, 4, 52},
    };
    for (const mode wanted : all_modes) {
        for (const auto& r : rows) {
            SCOPED_TRACE(testing::PrintToString(r.bytes.substr(0, 60)));
            start_over(wanted);
            sim::set_bytes("d", r.bytes);
            ASSERT_EQ(rebuild(), TS_OK);
            EXPECT_EQ(data_slots[0].status,
                      wanted == mode::write_through ? slot_clean : slot_dirty);
            EXPECT_EQ(data_slots[0].current_offset, 28);
            ASSERT_EQ(tsclosed32(0), TS_OK);
            EXPECT_EQ(sim::bytes("d"),
                      data_file(r.records, r.deleted, r.record_length, r.end) + r.bytes.substr(28));
        }
    }
}

TEST_F(DataFiles, DamagedFilesAreRefusedAsTheyAre)
{
    const std::string two = frame("aaaa") + frame("bbbb", 'd');
    const std::string whole = data_file(0, 0, 4, 28, two);
    const auto open_and_purge = [] { return tsopend32("d") == 0 ? purge() : 0; };
    const auto open = [] { return tsopend32("d"); };
    struct row {
        int32_t (*call)();
        std::string bytes;
        int32_t code;
    };
    std::vector<row> rows = {
        {open, "", TS_VERSION_READ_SHORT},
        {open, "\x2B", TS_BAD_MINOR_VERSION},
        {open, "\x1A", TS_BAD_MAJOR_VERSION},
        {open, "*TSI" + whole.substr(4), TS_BAD_MAGIC},
        {open, "*tSD" + whole.substr(4), TS_BAD_MAGIC},
        {rebuild, "*TSI" + two, TS_BAD_MAGIC},
        {rebuild, "*TSD", TS_HEADER_READ_SHORT},
        {rebuild, whole + std::string(9000, 0) + "x", TS_BODY_READ_SHORT},
        {rebuild, whole + std::string(5, 0) + "x", TS_FRAME_READ_SHORT},
        {rebuild, whole + " " + std::string(20, 0), TS_BODY_READ_SHORT},
        {rebuild, whole + std::string(4, 0) + i32(-1), TS_BODY_READ_SHORT},
        {rebuild, whole + std::string(4, 0) + i32(INT32_MAX), TS_BODY_READ_SHORT},
        {open_and_purge, data_file(3, 1, 4, 52, two), TS_FRAME_READ_SHORT},
        {open_and_purge, data_file(INT32_MAX, 1, -1, 52, two), TS_FRAME_READ_SHORT},
    };
    for (size_t size = 1; size < 28; ++size)
        rows.push_back(
            {open, whole.substr(0, size), size < 4 ? TS_MAGIC_READ_SHORT : TS_HEADER_READ_SHORT});
    for (size_t size = 41; size < 52; ++size)
        rows.push_back(
            {rebuild, whole.substr(0, size), size < 48 ? TS_FRAME_READ_SHORT : TS_BODY_READ_SHORT});
    for (const int32_t field_bytes : {INT32_MIN, -8, -1, 25, INT32_MAX})
        rows.push_back({rebuild, with(whole, 20, field_bytes), TS_FRAME_READ_POSITION});
    for (const int32_t length : {INT32_MIN, -1, 0, 3, 5, INT32_MAX}) {
        for (const size_t place : {32U, 44U})
            rows.push_back({open_and_purge, with(data_file(2, 1, 4, 52, two), place, length),
                            TS_BODY_READ_SHORT});
    }
    for (const mode wanted : all_modes) {
        for (const row& r : rows) {
            SCOPED_TRACE(testing::PrintToString(r.bytes.substr(0, 60)));
            start_over(wanted);
            sim::set_bytes("d", r.bytes);
            EXPECT_EQ(r.call(), r.code);
            EXPECT_EQ(sim::bytes("d"), r.bytes);
            release_ranges(); // a purge keeps its own
            if (r.call == +open_and_purge) continue;
            EXPECT_EQ(data_slots[0].status, slot_spoilt);
            sim::set_bytes("d", whole);
            EXPECT_EQ(tsopend32("d"), 1); // the spoilt slot isn't taken
        }
    }
}

TEST_F(DataFiles, HostileHeadersLeadToNoWriteAndNoBlock)
{
    for (const int32_t field_bytes : {INT32_MIN, -8, -1, 1, 7, 8, 0x7ffffff8, INT32_MAX}) {
        SCOPED_TRACE(field_bytes);
        start_over(mode::single);
        const std::string bytes = with(data_file(1, 1, 4, 40), 20, field_bytes);
        sim::set_bytes("d", bytes);
        ASSERT_EQ(tsopend32("d"), 0);
        field_entry nothing[1];
        EXPECT_EQ(tsfields32(0, nothing), field_bytes / 8 == 0 ? 0 : TS_FIELD_TABLE_READ_SHORT);
        char body[4];
        int32_t deleted = 0;
        EXPECT_LT(tsupd32(0, 1, "abcd", 4, &deleted, body, 0), 0);
        EXPECT_LT(tsdeld32(0, 1), 0);
        EXPECT_LT(tsadd32(0, "abcd", 4, 'y'), 0);
        EXPECT_LT(purge(), 0);
        EXPECT_EQ(sim::bytes("d"), bytes);
    }
    const std::string frames = frame("1111") + frame("2222", 'd');
    const auto try_end = [&](int32_t record_length, int32_t records, int32_t end) {
        SCOPED_TRACE(std::to_string(records) + " records to " + std::to_string(end));
        start_over(mode::single);
        sim::set_bytes("d", data_file(records, 1, record_length, end, frames));
        ASSERT_EQ(tsopend32("d"), 0);
        EXPECT_EQ(tsadd32(0, "abcd", 4, 'y'), TS_RECORD_WRITE_POSITION);
        EXPECT_EQ(stored(), frames);
    };
    for (const int32_t end : {INT32_MIN, -1, 0, 27, 28, 40, 51}) try_end(4, 2, end);
    for (const int32_t end : {27, INT32_MAX - 11}) try_end(TS_VARIABLE_LENGTH, 2, end);
    for (const int32_t records : {-1, INT32_MAX}) {
        for (const int32_t record_length : {4, -1}) try_end(record_length, records, 52);
    }
    start_over(mode::single);
    for (const int32_t count : {INT32_MAX, INT32_MIN}) {
        sim::set_bytes("d", data_file(2, count, 4, 52, frames));
        ASSERT_EQ(tsopend32("d"), 0);
        EXPECT_EQ(count > 0 ? tsdeld32(0, 1) : tsundeld32(0, 2), TS_OK);
        EXPECT_EQ(data_slots[0].header.deleted_count, count);
        ASSERT_EQ(tsclosed32(0), TS_OK);
    }
    tsdelow32('y');
    sim::set_bytes("d", data_file(1, 1, INT32_MAX, 40, frame("1111", 'd')));
    sim::count_afresh();
    ASSERT_EQ(tsopend32("d"), 0);
    EXPECT_EQ(sim::calls(sim::call::allocate), 0U) << "by a length that the file doesn't have";
}

// An entry of a damaged index leads into the header, the field table, between two frames.
TEST_F(DataFiles, ADamagedIndexNeverLeadsToWritesOutsideOfRecords)
{
    key_definition key = define_key(2, {{'s', 4, 0}});
    ASSERT_EQ(create("d", 8), 0);
    ASSERT_EQ(tscrind32(0, "i", 1, &key), 0);
    for (const char* body : {"aaaa1111", "bbbb2222"}) ASSERT_EQ(tsadd32(0, body, 8, 'n'), TS_OK);
    const std::string before = sim::bytes("d");
    const std::string seeming = before.substr(16, 8); // the body, if a frame begins at 8
    char scratch[8];
    int32_t deleted = 0;
    ASSERT_EQ(tsgeti32(0, 0, 0, "aaaa", scratch, &deleted), TS_OK);
    const key_slot& slot = key_of(0, 0, 0);
    for (const int32_t offset : {0, 4, 8, 27, 29, 36, 43, -1, INT32_MAX, INT32_MIN}) {
        SCOPED_TRACE(offset);
        set_entry_link(entry_at(slot.key_record, slot.work_node, slot.position), offset);
        EXPECT_LT(tsdelci32(0, 0, 0), 0);
        EXPECT_LT(tsudelci32(0, 0, 0), 0);
        EXPECT_LT(tsupci32(0, 0, 0, seeming.c_str(), 8, &deleted, scratch, 0), 0);
        EXPECT_EQ(sim::bytes("d"), before);
    }
}

} // namespace
