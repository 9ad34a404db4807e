// Deleting, undeleting, updating and the reuse of slots, by number, at the current record, by key
// value and at a cursor: codes, bytes, counts and positions.
#include "data/reuse.h"
#include "index/slots.h"
#include "tests/support/library_fixture.h"

#include <vector>

using namespace tarsil;
using namespace tarsil::support;

namespace {

enum form : uint8_t { by_number, at_current, by_value, at_cursor };
constexpr form all_forms[] = {by_number, at_current, by_value, at_cursor};

// Three records of 8 bytes, the second deleted, with a key over their first 4 bytes, a string.
struct Change : Library {
    static std::string records(const char* marks = " d ")
    {
        return frame("aaaa1111", marks[0]) + frame("bbbb2222", marks[1]) +
               frame("cccc3333", marks[2]);
    }

    static void prepare()
    {
        key_definition key = define_key(2, {{'s', 4, 0}});
        ASSERT_EQ(tscrdata32("d", 8, 0, nullptr), 0);
        ASSERT_EQ(tscrind32(0, "i", 1, &key), 0);
        for (const char* body : {"aaaa1111", "bbbb2222", "cccc3333"})
            ASSERT_EQ(tsadd32(0, body, 8, 'n'), TS_OK);
        ASSERT_EQ(tsdeld32(0, 2), TS_OK);
        ASSERT_EQ(sim::bytes("d").substr(28), records());
    }

    // Makes `number` the record that every form names.
    static void stand_on(int32_t number)
    {
        step_to(number);
        char body[8];
        int32_t deleted = 0;
        ASSERT_EQ(tsgeti32(0, 0, 0, value(number), body, &deleted), TS_OK);
    }

    static void step_to(int32_t number)
    {
        char body[8];
        int32_t deleted = 0;
        ASSERT_EQ(tsgetd32(0, number, body, &deleted), TS_OK);
    }

    static void expect_current(int32_t number)
    {
        EXPECT_EQ(data_slots[0].current_record, number);
        EXPECT_EQ(data_slots[0].current_offset, 28 + 16 * (number - 1));
    }

    static const char* value(int32_t number)
    {
        static const char* const values[] = {"zzzz", "aaaa", "bbbb", "cccc"};
        return values[number];
    }

    static int32_t change(bool to_deleted, form how, int32_t number)
    {
        switch (how) {
        case by_number: return to_deleted ? tsdeld32(0, number) : tsundeld32(0, number);
        case at_current: return to_deleted ? tsdelcd32(0) : tsudelcd32(0);
        case by_value:
            return to_deleted ? tsdeli32(0, 0, 0, value(number))
                              : tsundeli32(0, 0, 0, value(number));
        default: return to_deleted ? tsdelci32(0, 0, 0) : tsudelci32(0, 0, 0);
        }
    }

    static int32_t update(form how, int32_t number, const char* record, int32_t& deleted,
                          int32_t wanted_mode)
    {
        char scratch[8];
        switch (how) {
        case by_number: return tsupd32(0, number, record, 0, &deleted, scratch, wanted_mode);
        case at_current: return tsupcd32(0, record, 0, &deleted, scratch, wanted_mode);
        case by_value:
            return tsupi32(0, 0, 0, value(number), record, 0, &deleted, scratch, wanted_mode);
        default: return tsupci32(0, 0, 0, record, 0, &deleted, scratch, wanted_mode);
        }
    }

    static std::string stored() { return sim::bytes("d").substr(28); }
    static const data_header& header() { return data_slots[0].header; }
};

TEST_F(Change, DeletesAndUndeletesInEveryForm)
{
    const int32_t pointless[2][4] = {{TS_UNDELETE_RECORD_LIVE, TS_UNDELETE_CURRENT_LIVE,
                                      TS_UNDELETE_FOUND_LIVE, TS_UNDELETE_CURSOR_LIVE},
                                     {TS_DELETE_RECORD_DELETED, TS_DELETE_CURRENT_DELETED,
                                      TS_DELETE_FOUND_DELETED, TS_DELETE_CURSOR_DELETED}};
    for (const mode wanted : all_modes) {
        for (const form how : all_forms) {
            for (const bool to_deleted : {false, true}) {
                SCOPED_TRACE((to_deleted ? "delete " : "undelete ") + std::to_string(how));
                const int32_t right = to_deleted ? 1 : 2;
                const int32_t wrong = to_deleted ? 2 : 1;
                start_over(wanted);
                prepare();
                stand_on(wrong);
                EXPECT_EQ(change(to_deleted, how, wrong), pointless[to_deleted][how]);
                EXPECT_EQ(stored(), records());
                stand_on(right);
                if (how != at_current) step_to(3);
                EXPECT_EQ(change(to_deleted, how, right), TS_OK);
                EXPECT_EQ(stored(), records(to_deleted ? "dd " : "   "));
                EXPECT_EQ(header().deleted_count, to_deleted ? 2 : 0);
                expect_current(how == by_number || how == at_current ? right : 3);
                if (wanted != mode::single) {
                    EXPECT_EQ(sim::bytes("d").substr(8, 4), i32(header().deleted_count));
                }
            }
        }
    }
}

TEST_F(Change, RecordsThatCanNotBeNamed)
{
    int32_t deleted = -7;
    char scratch[8];
    start_over(mode::shared);
    prepare();
    for (const int32_t number : {0, -1, 4}) {
        EXPECT_EQ(tsdeld32(0, number), TS_BAD_RECORD_NUMBER);
        EXPECT_EQ(tsundeld32(0, number), TS_BAD_RECORD_NUMBER);
        EXPECT_EQ(tsupd32(0, number, "x", 8, &deleted, scratch, 0), TS_BAD_RECORD_NUMBER);
        data_slots[0].current_record = number;
        EXPECT_EQ(tsdelcd32(0), TS_DELETE_NO_CURRENT);
        EXPECT_EQ(tsudelcd32(0), TS_DELETE_NO_CURRENT);
        EXPECT_EQ(tsupcd32(0, "x", 8, &deleted, scratch, 0), TS_UPDATE_NO_CURRENT);
    }
    key_of({0, 0, 0}).position = no_position;
    for (const auto& [how, code] :
         {std::pair<form, int32_t>{by_value, TS_FIND_NO_ENTRY}, {at_cursor, TS_CURSOR_NONE}}) {
        EXPECT_EQ(change(false, how, 0), code);
        EXPECT_EQ(change(true, how, 0), code);
        EXPECT_EQ(update(how, 0, "x", deleted, 0), code);
    }
    EXPECT_EQ(deleted, -7);
    EXPECT_EQ(stored(), records());
}

TEST_F(Change, UpdatesInPlaceAndByDeleteAndAdd)
{
    const int32_t refused[] = {TS_UPDATE_RECORD_DELETED, TS_UPDATE_CURRENT_DELETED,
                               TS_UPDATE_FOUND_DELETED, TS_UPDATE_CURSOR_DELETED};
    constexpr int32_t changed = TS_UPDATE_KEY_CHANGED;
    constexpr int32_t of_form = 99; // the code of `refused`
    const struct {
        int32_t number;
        const char* record;
        int32_t mode, code;
        const char* stored_1; // body of record 1 afterwards
        const char* marks;
        const char* added;
    } rows[] = {
        {1, "aaaaNEW!", 0, 0, "aaaaNEW!", " d ", nullptr},
        {1, "aaaaNEW!", 2, 0, "aaaaNEW!", " d ", nullptr},
        {1, "AaaaNEW!", -1, changed, "aaaa1111", " d ", nullptr},
        {1, "AaaaNEW!", 1, 1, "aaaa1111", "dd ", "AaaaNEW!"},
        {1, "ccccNEW!", 1, TS_DUPLICATE_KEY, "aaaa1111", "dd ", nullptr},
        {1, "ccccNEW!", 2, 1, "aaaa1111", "dd ", "ccccNEW!"},
        {2, "bbbbNEW!", 0, of_form, "aaaa1111", " d ", nullptr},
        {2, "bbbbNEW!", 1, of_form, "aaaa1111", " d ", nullptr},
        {2, "BbbbNEW!", 1, of_form, "aaaa1111", " d ", nullptr},
    };
    for (const mode wanted : all_modes) {
        for (const form how : all_forms) {
            for (const auto& r : rows) {
                SCOPED_TRACE(std::to_string(how) + r.record + std::to_string(r.mode));
                start_over(wanted);
                prepare();
                stand_on(r.number);
                if (how != at_current) step_to(3);
                int32_t deleted = -7;
                EXPECT_EQ(update(how, r.number, r.record, deleted, r.mode),
                          r.code == of_form ? refused[how] : r.code);
                EXPECT_EQ(deleted, r.number == 2 ? 1 : 0);
                std::string expected = records(r.marks);
                expected.replace(8, 8, r.stored_1);
                if (r.added != nullptr) expected += frame(r.added);
                EXPECT_EQ(stored(), expected);
                EXPECT_EQ(header().record_count, r.added == nullptr ? 3 : 4);
                EXPECT_EQ(header().deleted_count, std::string(r.marks) == "dd " ? 2 : 1);
                const bool moved = how == by_number && (r.code == 0 || r.code == TS_DUPLICATE_KEY);
                expect_current(r.added != nullptr ? 4 : moved || how == at_current ? r.number : 3);
                EXPECT_EQ(sim::held_ranges(), 0U);
            }
        }
    }
}

// Which bytes of a key field count: all of a number, of a string those up to a 0 in both images.
TEST_F(Change, WhatCountsAsAChangeOfAKey)
{
    struct row {
        char type;
        int32_t offset;
        std::string before, after;
        bool changed;
    };
    const std::string zero(8, 0);
    const row rows[] = {
        {'s', 0, {"ab\0xcdef", 8}, {"ab\0ycdef", 8}, false},
        {'s', 0, "abcdefgh", "abcdefgX", true},
        {'s', 0, {"ab\0xcdef", 8}, "abzxcdef", true},
        {'d', 0, zero, std::string(7, 0) + '\x80', true}, // 0.0 and -0.0
        {'i', 0, zero, std::string("\0\0\0\1\0\0\0\0", 8), true},
        {'i', 0, zero, std::string("\0\0\0\0\1\0\0\0", 8), false},
        {'i', 6, zero, std::string("\0\0\0\0\0\0\0\1", 8),
         true}, // the part inside the record counts
        {'i', 8, zero, std::string("\1\1\1\1\1\1\1\1", 8), false}, // the rest reads as zeros
        {'i', INT32_MAX, zero, std::string("\1\1\1\1\1\1\1\1", 8), false},
    };
    for (row r : rows) {
        SCOPED_TRACE(std::string(1, r.type) + std::to_string(r.offset) + r.after);
        start_over(mode::single);
        r.before.resize(8);
        r.after.resize(8);
        key_definition key = define_key(0, {{r.type, 8, r.offset}}, 'n');
        ASSERT_EQ(tscrdata32("d", -1, 0, nullptr), 0);
        ASSERT_EQ(tscrind32(0, "i", 1, &key), 0);
        ASSERT_EQ(tsadd32(0, r.before.data(), 8, 'n'), TS_OK);
        int32_t deleted = 0;
        std::vector<char> scratch(8);
        for (const int32_t length : {7, 9, 0, -1, INT32_MAX})
            EXPECT_EQ(tsupd32(0, 1, r.after.data(), length, &deleted, scratch.data(), 2),
                      TS_UPDATE_LENGTH_DIFFERS);
        EXPECT_EQ(tsupd32(0, 1, r.after.data(), 8, &deleted, scratch.data(), 0),
                  r.changed ? TS_UPDATE_KEY_CHANGED : TS_OK);
        EXPECT_EQ(stored(), frame(r.changed ? r.before : r.after));
    }
}

// Another process makes the stored record longer between the look at its frame and the read of its
// body.
TEST_F(Change, ScratchHoldsNoMoreThanItsRoom)
{
    start_over(mode::shared);
    key_definition key = define_key(0, {{'c'}}, 'n');
    ASSERT_EQ(tscrdata32("v", -1, 0, nullptr), 0);
    ASSERT_EQ(tscrind32(0, "vi", 1, &key), 0);
    ASSERT_EQ(tsadd32(0, "abcd", 4, 'n'), TS_OK);
    sim::meanwhile(3, sim::only(sim::call::read), [] { // header, frame, then frame and body
        sim::set_bytes("v", data_file(1, 0, -1, 56, frame("abcdefghijklmnopqrst")));
    });
    int32_t deleted = 0;
    std::vector<char> scratch(4);
    EXPECT_EQ(tsupd32(0, 1, "aXXX", 4, &deleted, scratch.data(), 0), TS_BODY_READ_SHORT);
}

// An entry of a damaged index leads into the header, the field table, between two frames.
TEST_F(Change, ADamagedIndexNeverLeadsToWritesOutsideOfRecords)
{
    prepare();
    ASSERT_EQ(tsundeld32(0, 2), TS_OK);
    const std::string before = sim::bytes("d");
    const std::string seeming = before.substr(
        16, 8); // the body, if the header at 8 is taken for a frame
    stand_on(1);
    for (const int32_t offset : {0, 4, 8, 27, 29, 36, 43, -1, INT32_MAX, INT32_MIN}) {
        SCOPED_TRACE(offset);
        set_entry_link(entry_at(key_of({0, 0, 0}).key_record, key_of({0, 0, 0}).work_node,
                                key_of({0, 0, 0}).position),
                       offset);
        int32_t deleted = 0;
        EXPECT_LT(change(true, at_cursor, 0), 0);
        EXPECT_LT(change(false, at_cursor, 0), 0);
        EXPECT_LT(update(at_cursor, 0, seeming.c_str(), deleted, 0), 0);
        EXPECT_EQ(sim::bytes("d"), before);
    }
}

TEST_F(Change, TheSearchForTheNextSlotGivesUpWithoutHarm)
{
    const auto noted = [] { return data_slots[0].reuse_offset; };
    const auto prepare_two = [] {
        start_over(mode::single);
        tsdelow32('y');
        sim::set_bytes(
            "d", data_file(3, 2, 4, 64, frame("1111", 'd') + frame("2222") + frame("3333", 'd')));
        ASSERT_EQ(tsopend32("d"), 0);
        ASSERT_EQ(data_slots[0].reuse_offset, 28);
        ASSERT_EQ(data_slots[0].current_record, 1);
    };
    prepare_two();
    sim::plan({.where = sim::only(sim::call::allocate)});
    EXPECT_EQ(tsundeld32(0, 1), TS_OK);
    EXPECT_EQ(noted(), no_offset);

    prepare_two();
    char body[4];
    int32_t deleted = 0;
    ASSERT_EQ(tsgetd32(0, 2, body, &deleted), TS_OK);
    sim::plan({.where = sim::only(sim::call::read)});
    EXPECT_EQ(next_reusable(0), TS_FRAME_READ_SHORT);
    EXPECT_EQ(noted(), 28);
    EXPECT_EQ(next_reusable(0), TS_OK);
    EXPECT_EQ(noted(), 52);
    ASSERT_EQ(tsgetd32(0, 2, body, &deleted), TS_OK);
    EXPECT_EQ(next_reusable(0), no_slot_left);
    EXPECT_EQ(noted(), no_offset);
    EXPECT_EQ(data_slots[0].current_record, 2);
    EXPECT_EQ(data_slots[0].current_offset, 40);

    // The first read is of the mark; the slot that stays noted names a live record, which an add
    // must not overwrite.
    prepare_two();
    sim::plan({.at = 2, .times = sim::for_good, .where = sim::only(sim::call::read)});
    EXPECT_EQ(tsundeld32(0, 1), TS_FRAME_READ_SHORT);
    sim::clear_fault();
    EXPECT_EQ(noted(), 28);
    EXPECT_EQ(data_slots[0].current_record, 1);
    ASSERT_EQ(tsadd32(0, "NEW!", 4, 'n'), TS_OK);
    EXPECT_EQ(stored(), frame("1111") + frame("2222") + frame("NEW!"));
}

TEST_F(Change, CountsAndLengthsOfADamagedHeader)
{
    for (const int32_t count : {INT32_MAX, INT32_MIN}) {
        sim::set_bytes("d", data_file(2, count, 4, 52, frame("1111") + frame("2222", 'd')));
        ASSERT_EQ(tsopend32("d"), 0);
        EXPECT_EQ(count > 0 ? tsdeld32(0, 1) : tsundeld32(0, 2), TS_OK);
        EXPECT_EQ(header().deleted_count, count);
        ASSERT_EQ(tsclosed32(0), TS_OK);
    }
    // Nothing is allocated by a length that the file itself doesn't have.
    tsdelow32('y');
    sim::set_bytes("d", data_file(1, 1, INT32_MAX, 40, frame("1111", 'd')));
    sim::count_afresh();
    ASSERT_EQ(tsopend32("d"), 0);
    EXPECT_EQ(sim::calls(sim::call::allocate), 0U);
}

} // namespace
