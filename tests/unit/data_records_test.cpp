// Records by number and in file order: the bytes of frames and bodies, which code wins, where the
// current record stands afterwards, and what damaged headers, frames and cut files do.
#include "tests/support/library_fixture.h"

#include <vector>

using namespace tarsil;
using namespace tarsil::support;

namespace {

using Records = Library;

enum read : uint8_t {
    first,
    last,
    next,
    previous,
    current,
    frame_only,
    by_number_1,
    by_number_2,
    by_number_3,
    reads
};

// One of the reads, into a buffer of exactly `room` bytes, so that a byte too many is seen.
struct outcome {
    int32_t code;
    int32_t deleted;
    std::string body;
};

outcome do_read(int32_t which, size_t room)
{
    std::vector<char> buffer(room, '.');
    outcome got = {0, -7, {}};
    int32_t number = 0;
    int32_t length = 0;
    switch (which) {
    case first: got.code = tsgetfd32(0, buffer.data(), &got.deleted); break;
    case last: got.code = tsgetld32(0, buffer.data(), &got.deleted); break;
    case next: got.code = tsgetnd32(0, buffer.data(), &got.deleted); break;
    case previous: got.code = tsgetpd32(0, buffer.data(), &got.deleted); break;
    case current: got.code = tsgetcd32(0, buffer.data(), &got.deleted); break;
    case frame_only: got.code = tsrecd32(0, &number, &got.deleted, &length); break;
    default: got.code = tsgetd32(0, which - by_number_1 + 1, buffer.data(), &got.deleted); break;
    }
    got.body = std::string(buffer.data(), room);
    return got;
}

TEST_F(Records, BytesAndHeaderOfTheFirstRecords)
{
    ASSERT_EQ(tscrdata32("fixed", 4, 0, nullptr), 0);
    for (const int32_t length : {0, -1, 99})
        ASSERT_EQ(tsadd32(0, "abcdEFGH", length, 'n'), TS_OK); // the length isn't used
    ASSERT_EQ(tsclosed32(0), TS_OK);
    EXPECT_EQ(sim::bytes("fixed").substr(0, 40),
              std::string(
                  "*TSD\3\0\0\0\0\0\0\0\4\0\0\0\x40\0\0\0\0\0\0\0\0\0\0\0 \0\0\0\4\0\0\0abcd", 40));

    ASSERT_EQ(tscrdata32("variable", -1, 0, nullptr), 0);
    for (const int32_t length : {0, -1, INT32_MIN})
        EXPECT_EQ(tsadd32(0, "x", length, 'n'), TS_RECORD_TOO_SHORT);
    EXPECT_EQ(sim::bytes("variable").size(), 28U);
    ASSERT_EQ(tsadd32(0, "12345", 5, 'n'), TS_OK);
    ASSERT_EQ(tsadd32(0, "1234567", 7, 'n'), TS_OK);
    ASSERT_EQ(tsclosed32(0), TS_OK);
    EXPECT_EQ(sim::bytes("variable"), data_file(2, 0, -1, 56, frame("12345") + frame("1234567")));
}

TEST_F(Records, WhatReadsSayInAFileWithoutRecords)
{
    const int32_t none = TS_NO_CURRENT_RECORD;
    struct row {
        int32_t which, created, fixed, variable;
    };
    const row rows[] = {
        {first, TS_FIRST_RECORD_NONE, TS_FIRST_RECORD_NONE, TS_FIRST_RECORD_NONE},
        {last, none, TS_LAST_RECORD_NONE, TS_NEEDS_FIXED_LENGTH},
        {next, none, TS_FRAME_READ_SHORT, TS_FRAME_READ_SHORT},
        {previous, none, TS_PREVIOUS_RECORD_AT_START, TS_NEEDS_FIXED_LENGTH},
        {current, none, TS_FRAME_READ_SHORT, TS_FRAME_READ_SHORT},
        {frame_only, none, TS_FRAME_READ_SHORT, TS_FRAME_READ_SHORT},
        {by_number_1, TS_BAD_RECORD_NUMBER, TS_BAD_RECORD_NUMBER, TS_BAD_RECORD_NUMBER},
    };
    for (const int32_t record_length : {4, -1}) {
        const std::string name = std::to_string(record_length);
        ASSERT_EQ(tscrdata32(name.c_str(), record_length, 0, nullptr), 0);
        for (const row& r : rows)
            EXPECT_EQ(do_read(r.which, 4).code, r.created) << name << " " << r.which;
        EXPECT_EQ(data_slots[0].current_record, 0);
        ASSERT_EQ(tsclosed32(0), TS_OK);
        ASSERT_EQ(tsopend32(name.c_str()), 0);
        for (const row& r : rows) {
            EXPECT_EQ(do_read(r.which, 4).code, record_length > 0 ? r.fixed : r.variable)
                << name << " " << r.which;
            EXPECT_EQ(data_slots[0].current_record, 1);
        }
        ASSERT_EQ(tsclosed32(0), TS_OK);
    }
}

TEST_F(Records, OnlyASmallDMarksADeletedRecordAndNoOtherIsSkipped)
{
    for (const int32_t record_length : {4, -1}) {
        const std::string records = frame("aaaa", '?') + frame("bbbb", 'd') + frame("cccc", 'D');
        sim::set_bytes("d", data_file(3, 1, record_length, 64, records));
        ASSERT_EQ(tsopend32("d"), 0);
        for (const auto& [which, body, deleted] : {std::tuple{first, "aaaa", 0},
                                                   {next, "bbbb", 1},
                                                   {current, "bbbb", 1},
                                                   {frame_only, "....", 1},
                                                   {next, "cccc", 0},
                                                   {by_number_1, "aaaa", 0}}) {
            const outcome got = do_read(which, 4);
            EXPECT_EQ(got.code, TS_OK);
            EXPECT_EQ(got.body, body);
            EXPECT_EQ(got.deleted, deleted);
        }
        ASSERT_EQ(tsclosed32(0), TS_OK);
    }
}

// Only the first read and the step back have moved when the body can't be read.
TEST_F(Records, WhereAFailedReadLeavesTheCurrentRecord)
{
    const struct {
        int32_t which, now;
    } rows[] = {{first, 1},   {last, 2},       {next, 2},       {previous, 1},
                {current, 2}, {frame_only, 2}, {by_number_1, 2}};
    sim::set_bytes("d", data_file(3, 0, 4, 64, frame("aaaa") + frame("bbbb") + frame("cccc")));
    ASSERT_EQ(tsopend32("d"), 0);
    for (const auto& r : rows) {
        for (const uint64_t failing : {1U, 2U}) {
            if (r.which == frame_only && failing == 2) continue;
            SCOPED_TRACE(std::to_string(r.which) + ", failing read " + std::to_string(failing));
            ASSERT_EQ(do_read(by_number_2, 4).code, TS_OK);
            sim::plan({.at = failing,
                       .where = sim::only(sim::call::read),
                       .how = sim::failure::one_byte_short});
            const int32_t code = do_read(r.which, 4).code;
            EXPECT_TRUE(code == TS_FRAME_READ_SHORT || code == TS_BODY_READ_SHORT) << code;
            EXPECT_EQ(data_slots[0].current_record, r.now);
        }
    }
}

// Every read of a damaged file comes back, with no byte beyond the room that the header tells.
void read_everything(size_t room)
{
    for (int32_t which = 0; which < reads; ++which) do_read(which, room);
    for (int32_t step = 0; step < 8; ++step) do_read(next, room);
}

TEST_F(Records, HostileHeadersAndFrames)
{
    const int32_t values[] = {INT32_MIN, INT32_MIN + 1, -9,       -8, -2, -1, 0, 1, 3, 5, 8, 28,
                              64,        0x7ffffff0,    INT32_MAX};
    for (const int32_t record_length : {4, -1}) {
        const std::string sound = data_file(3, 1, record_length, 64,
                                            frame("aaaa") + frame("bbbb", 'd') + frame("cccc"));
        for (const size_t place : {4U, 8U, 12U, 16U, 20U, 24U, 32U, 44U, 56U}) {
            for (const int32_t value : values) {
                SCOPED_TRACE(std::to_string(place) + ": " + std::to_string(value));
                start_over(value % 2 == 0 ? mode::single : mode::shared);
                tsdelow32('y');
                const std::string bytes = with(sound, place, value);
                sim::set_bytes("d", bytes);
                // A body is never longer than a sound header tells, nor than the file.
                const int32_t told = load_i32(bytes.data() + 12);
                const int32_t opened = tsopend32("d");
                if (opened == 0)
                    read_everything(told > 0 && told < 64 ? static_cast<size_t>(told) : 64);
                if (place == 32 && value < 1) {
                    EXPECT_EQ(opened < 0 ? opened : do_read(first, 4).code, TS_BODY_READ_SHORT);
                }
                EXPECT_EQ(sim::bytes("d"), bytes);
            }
        }
        for (size_t size = 28; size < sound.size(); ++size) {
            start_over(mode::single);
            sim::set_bytes("d", sound.substr(0, size));
            ASSERT_EQ(tsopend32("d"), 0);
            EXPECT_LT(do_read(by_number_3, 4).code, 0);
            read_everything(4);
        }
    }
}

} // namespace
