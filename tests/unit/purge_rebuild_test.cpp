// Taking deleted records out of a file, and making a header from the records.
#include "index/slots.h"
#include "tests/support/library_fixture.h"

#include <vector>

using namespace tarsil;
using namespace tarsil::support;

namespace {

struct Purge : Library {
    // A file with a record for each body, those with a capital first letter deleted, and an index
    // over the first 4 bytes.
    static void make(const std::vector<std::string>& bodies, int32_t record_length)
    {
        ASSERT_EQ(tscrdata32("d", record_length, 0, nullptr), 0);
        for (const std::string& body : bodies)
            ASSERT_EQ(tsadd32(0, body.data(), static_cast<int32_t>(body.size()), 'y'), TS_OK);
        for (size_t i = 0; i < bodies.size(); ++i) {
            if (bodies[i][0] < 'a') { ASSERT_EQ(tsdeld32(0, static_cast<int32_t>(i) + 1), TS_OK); }
        }
        key_definition key = define_key(2, {{'s', 4, 0}});
        char body[16];
        ASSERT_EQ(tscrindd32(0, "i", 1, &key, body), 0);
    }

    static void reopen()
    {
        char cursor[] = "y";
        ASSERT_EQ(tsclosed32(0), TS_OK);
        ASSERT_EQ(tsopend32("d"), 0);
        ASSERT_EQ(tsopeni32(0, "i", cursor), 0);
    }

    static int32_t purge(int32_t& removed)
    {
        char buffer[16];
        return tspurge32(0, buffer, &removed);
    }

    static int32_t rebuild(const std::string& bytes)
    {
        sim::set_bytes("d", bytes);
        std::vector<char> buffer(bytes.size());
        return tsrbdbh32("d", buffer.data());
    }

    // The records as the key leads to them, each by its whole body.
    static std::vector<std::string> walk_key()
    {
        std::vector<std::string> bodies;
        char body[17] = {};
        int32_t deleted = 0;
        if (tsgetfi32(0, 0, 0, body, &deleted) != TS_OK) return bodies;
        int32_t code = TS_OK;
        for (; code == TS_OK && bodies.size() < 100; code = tsgetni32(0, 0, 0, body, &deleted))
            bodies.emplace_back(body);
        EXPECT_EQ(code, TS_NEXT_ENTRY_AT_END);
        return bodies;
    }
};

TEST_F(Purge, WhatStaysAndWhatGoes)
{
    // What is left, in the order of the file, which is that of the key too.
    const struct {
        int32_t record_length;
        std::vector<std::string> bodies, left;
    } rows[] = {
        {5, {"aaaa1", "BBBB2", "cccc3", "DDDD4", "eeee5"}, {"aaaa1", "cccc3", "eeee5"}},
        {5, {"aaaa1", "bbbb2", "CCCC3"}, {"aaaa1", "bbbb2"}},
        {5, {"AAAA1", "bbbb2", "bbbb2"}, {"bbbb2", "bbbb2"}},
        {5, {"AAAA1", "BBBB2"}, {}},
        {5, {"AAAA1", "BBBB2", "CCCC3", "DDDD4", "EEEE5", "FFFF6"}, {}}, // the root was a branch
        {-1, {"AAAA1", "bbbb", "CCCCCC3", "dddddd4", "EEEE"}, {"bbbb", "dddddd4"}},
    };
    for (const mode wanted : all_modes) {
        for (const auto& r : rows) {
            SCOPED_TRACE(r.bodies[0] + " mode " + std::to_string(static_cast<int>(wanted)));
            start_over(wanted);
            make(r.bodies, r.record_length);
            const size_t size = sim::bytes("d").size();
            std::string records;
            for (const std::string& body : r.left) records += frame(body);
            const auto count = static_cast<int32_t>(r.left.size());
            const auto end = static_cast<int32_t>(28 + records.size());
            reopen();
            int32_t removed = -7;
            EXPECT_EQ(purge(removed), TS_OK);
            EXPECT_EQ(removed, static_cast<int32_t>(r.bodies.size()) - count);
            EXPECT_EQ(data_slots[0].status, slot_dirty);
            EXPECT_EQ(data_slots[0].current_record, 1);
            EXPECT_EQ(data_slots[0].current_offset, 28);
            EXPECT_EQ(walk_key(), r.left);
            if (wanted != mode::single) {
                EXPECT_EQ(sim::bytes("d").substr(0, 28), data_file(count, 0, r.record_length, end));
            }
            EXPECT_EQ(purge(removed), TS_PURGE_NOTHING_DELETED);

            reopen();
            // The length of the file stays.
            const std::string clear(size - static_cast<size_t>(end), 0);
            EXPECT_EQ(sim::bytes("d"), data_file(count, 0, r.record_length, end, records) + clear);
            EXPECT_EQ(walk_key(), r.left);
            EXPECT_EQ(tsadd32(0, "zzzz9", 5, 'n'), TS_OK);
            EXPECT_EQ(walk_key().size(), r.left.size() + 1);
        }
    }
}

TEST_F(Purge, DamagedFilesAreRefused)
{
    const auto expect_refused = [](const std::string& bytes, int32_t code) {
        sim::set_bytes("d", bytes);
        ASSERT_EQ(tsopend32("d"), 0);
        int32_t removed = 0;
        EXPECT_EQ(purge(removed), code);
        EXPECT_EQ(sim::bytes("d"), bytes);
        ASSERT_EQ(tsclosed32(0), TS_OK);
    };
    const std::string sound = frame("aaaa") + frame("bbbb", 'd') + frame("cccc");
    for (const int32_t length : {INT32_MIN, -1, 0, 3, 5, INT32_MAX}) {
        for (const size_t place : {4U, 16U, 28U}) {
            SCOPED_TRACE(length);
            expect_refused(data_file(3, 1, 4, 64, with(sound, place, length)), TS_BODY_READ_SHORT);
        }
    }
    expect_refused(data_file(4, 1, 4, 64, frame("aaaa") + frame("bbbb") + frame("cccc")),
                   TS_FRAME_READ_SHORT);
    expect_refused(data_file(INT32_MAX, 1, -1, 64, frame("aaaa") + frame("bbbb")),
                   TS_FRAME_READ_SHORT);
}

// Records that the header doesn't know of stay for a rebuild to find.
TEST_F(Purge, WhatLiesBehindTheKnownRecordsIsNotCleared)
{
    sim::set_bytes("d", data_file(2, 1, 4, 52, frame("aaaa", 'd') + frame("bbbb") + frame("cccc")));
    ASSERT_EQ(tsopend32("d"), 0);
    int32_t removed = 0;
    EXPECT_EQ(purge(removed), TS_OK);
    EXPECT_EQ(sim::bytes("d").substr(28), frame("bbbb") + std::string(12, 0) + frame("cccc"));
}

TEST_F(Purge, HeadersMadeFromRecords)
{
    const std::string two = frame("aaaa") + frame("bbbb", 'd');
    const std::string mixed = two + frame("ccccc");
    const std::string cut = data_file(0, 0, 4, 28, two);
    const struct {
        std::string bytes;
        int32_t records, deleted, record_length, end;
    } made[] = {
        {data_file(9, 9, 4, 99, two), 2, 1, 4, 52},
        {data_file(-1, -1, 7, INT32_MIN, two), 2, 1, 4, 52},
        {data_file(0, 0, -1, 0, two), 2, 1, -1, 52},
        {data_file(0, 0, 4, 0, mixed), 3, 1, -1, 65},
        {data_file(0, 0, INT32_MAX, 0), 0, 0, INT32_MAX, 28},
        {data_file(5, 5, -1, 0), 0, 0, -1, 28},
        {data_file(5, 5, -2, 0), 0, 0, -1, 28},
        // What a purge leaves behind the records ends the scan, however short it has become.
        {data_file(0, 0, 4, 0, two + std::string(9000, 0)), 2, 1, 4, 52},
        {data_file(0, 0, 4, 0, two + std::string(8, 0)), 2, 1, 4, 52},
        {data_file(0, 0, 4, 0, two + std::string(1, 0)), 2, 1, 4, 52},
    };
    std::vector<std::pair<std::string, int32_t>> refused = {
        {data_file(0, 0, 4, 0, two + std::string(9000, 0) + "x"), TS_BODY_READ_SHORT},
        {data_file(0, 0, 4, 0, two + std::string(5, 0) + "x"), TS_FRAME_READ_SHORT},
        {data_file(0, 0, 4, 0, two + " " + std::string(20, 0)), TS_BODY_READ_SHORT},
        {data_file(0, 0, 4, 0, two + std::string(4, 0) + i32(-1)), TS_BODY_READ_SHORT},
        {data_file(0, 0, 4, 0, two + std::string(4, 0) + i32(INT32_MAX)), TS_BODY_READ_SHORT},
        {"*TSI" + two, TS_BAD_MAGIC},
        {"*TSD", TS_HEADER_READ_SHORT},
    };
    for (size_t size = 41; size < 52; ++size)
        refused.emplace_back(cut.substr(0, size),
                             size < 48 ? TS_FRAME_READ_SHORT : TS_BODY_READ_SHORT);
    for (const int32_t field_bytes : {INT32_MIN, -8, -1, 25, INT32_MAX})
        refused.emplace_back(with(cut, 20, field_bytes), TS_FRAME_READ_POSITION);
    for (const mode wanted : all_modes) {
        for (const auto& r : made) {
            SCOPED_TRACE(testing::PrintToString(r.bytes.substr(0, 60)));
            start_over(wanted);
            ASSERT_EQ(rebuild(r.bytes), TS_OK);
            EXPECT_EQ(data_slots[0].status,
                      wanted == mode::write_through ? slot_clean : slot_dirty);
            EXPECT_EQ(data_slots[0].current_offset, 28);
            ASSERT_EQ(tsclosed32(0), TS_OK);
            EXPECT_EQ(sim::bytes("d"),
                      data_file(r.records, r.deleted, r.record_length, r.end) + r.bytes.substr(28));
        }
        for (const auto& [bytes, code] : refused) {
            SCOPED_TRACE(testing::PrintToString(bytes.substr(0, 60)));
            start_over(wanted);
            EXPECT_EQ(rebuild(bytes), code);
            EXPECT_EQ(sim::bytes("d"), bytes);
            EXPECT_EQ(data_slots[0].status, slot_spoilt);
        }
    }
}

} // namespace
