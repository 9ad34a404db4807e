// Reading by key value and walking in key order, on a data file with equal values, deleted records
// and trees of several levels, against the same records sorted by the test.
#include "index/search.h"
#include "tests/support/library_fixture.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <vector>

using namespace tarsil;
using support::i32;
using support::mode;

namespace {

// A record is a number and a name of 4 bytes. Key 0: number. Key 1: name and number. Key 2: number,
// without a cursor.
struct row {
    int32_t number;
    char name[4];
    int32_t offset; // not stored: of its frame
    int32_t deleted;
};
constexpr int32_t row_bytes = 8;

// 90 records; every third number comes up twice, there are nine names, every seventh is deleted.
std::vector<row> make_rows()
{
    std::vector<row> rows;
    for (int32_t i = 0; i < 90; ++i) {
        const int32_t number = i < 60 ? i * 37 % 60 : (i - 60) * 3 % 60;
        row made = {number,
                    {'n', static_cast<char>('a' + number % 9), 0, 0},
                    28 + i * 16,
                    i % 7 == 0 ? 1 : 0};
        rows.push_back(made);
    }
    return rows;
}

void create_files(const std::vector<row>& rows)
{
    ASSERT_EQ(tscrdata32("d", row_bytes, 0, nullptr), 0);
    for (const row& each : rows) ASSERT_EQ(tsadd32(0, &each, 0, 'y'), TS_OK);
    for (size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].deleted == 1) { ASSERT_EQ(tsdeld32(0, static_cast<int32_t>(i) + 1), TS_OK); }
    }
    key_definition keys[3] = {};
    for (key_definition& key : keys) key = {'y', {}, 2, 1, 0, {'l'}, {}, {}};
    keys[1] = {'y', {}, 3, 2, 0, {'s', 'l'}, {4}, {4, 0}};
    keys[2].cursor = 'n';
    unsigned char buffer[row_bytes];
    ASSERT_EQ(tscrindd32(0, "i", 3, keys, buffer), rows.empty() ? TS_FIRST_RECORD_NONE : 0);
}

// The rows in the order of a key: among equal values the record furthest back comes first.
std::vector<row> sorted(std::vector<row> rows, int32_t key_number)
{
    const auto less = [&](const row& a, const row& b) {
        const int32_t names = key_number == 1 ? std::memcmp(a.name, b.name, 4) : 0;
        if (names != 0) return names < 0;
        return a.number != b.number ? a.number < b.number : a.offset > b.offset;
    };
    std::sort(rows.begin(), rows.end(), less);
    return rows;
}

using reader = int32_t (*)(int32_t, int32_t, int32_t, void*, int32_t*);

struct answer {
    int32_t code;
    row read;
};
answer read_by(reader read, int32_t key_number)
{
    answer told = {0, {-1, {}, 0, -1}};
    told.code = read(0, 0, key_number, &told.read, &told.read.deleted);
    return told;
}

// What was read is this row, told apart from its equals by the cursor's entry.
void expect_row(const answer& told, int32_t code, const row& wanted, int32_t key_number)
{
    const key_slot& key = key_of(0, 0, key_number);
    EXPECT_EQ(told.code, code);
    EXPECT_EQ(told.read.number, wanted.number);
    EXPECT_EQ(told.read.deleted, wanted.deleted);
    if (!has_cursor(key)) return;
    ASSERT_GE(key.position, 0);
    EXPECT_EQ(entry_link(entry_at(key.key_record, key.work_node, key.position)), wanted.offset);
}

class Walk : public support::Library {
protected:
    static void start(mode wanted, const std::vector<row>& rows)
    {
        finish();
        begin();
        support::switch_to(wanted);
        create_files(rows);
    }
};

TEST_F(Walk, MeetsEveryEntryOnceBothWaysAndTurnsAnywhere)
{
    for (const mode wanted : {mode::single, mode::shared}) {
        start(wanted, make_rows());
        for (const int32_t key_number : {0, 1}) {
            const std::vector<row> rows = sorted(make_rows(), key_number);
            ASSERT_GE(path_length(), 3);
            expect_row(read_by(tsgetfi32, key_number), TS_OK, rows.front(), key_number);
            for (size_t i = 1; i < rows.size(); ++i) {
                expect_row(read_by(tsgetni32, key_number), TS_OK, rows[i], key_number);
                expect_row(read_by(tsgetpi32, key_number), TS_OK, rows[i - 1], key_number);
                expect_row(read_by(tsgetni32, key_number), TS_OK, rows[i], key_number);
                if (HasFailure()) return;
            }
            for (int32_t times = 0; times < 2; ++times)
                expect_row(read_by(tsgetni32, key_number), TS_NEXT_ENTRY_AT_END, rows.back(),
                           key_number);
            expect_row(read_by(tsgetci32, key_number), TS_OK, rows.back(), key_number);
            expect_row(read_by(tsgetli32, key_number), TS_OK, rows.back(), key_number);
            for (size_t i = rows.size() - 1; i-- > 0;)
                expect_row(read_by(tsgetpi32, key_number), TS_OK, rows[i], key_number);
            for (int32_t times = 0; times < 2; ++times)
                expect_row(read_by(tsgetpi32, key_number), TS_PREVIOUS_ENTRY_AT_START, rows.front(),
                           key_number);
            expect_row(read_by(tsgetni32, key_number), TS_OK, rows[1], key_number);
        }
        expect_row(read_by(tsgetfi32, 2), TS_OK, sorted(make_rows(), 2).front(), 2);
        expect_row(read_by(tsgetli32, 2), TS_OK, sorted(make_rows(), 2).back(), 2);
    }
}

TEST_F(Walk, NeedsRecordsAPositionAndACursor)
{
    start(mode::single, {});
    for (const reader read : {tsgetfi32, tsgetli32})
        EXPECT_EQ(read_by(read, 0).code, TS_WALK_NO_RECORDS);
    start(mode::single, make_rows());
    EXPECT_EQ(tsclosei32(0, 0), TS_OK);
    char cursors[] = {'y', 'y', 'n'};
    ASSERT_EQ(tsopeni32(0, "i", cursors), 0);
    EXPECT_EQ(read_by(tsgetfi32, 2).code, TS_OK);
    for (const int32_t key_number : {0, 2}) {
        for (const reader read : {tsgetni32, tsgetpi32, tsgetci32})
            EXPECT_EQ(read_by(read, key_number).code, TS_CURSOR_NONE);
    }
    EXPECT_EQ(read_by(tsgetfi32, 3).code, TS_BAD_KEY_NUMBER);

    start(mode::shared, make_rows());
    for (const reader read : {tsgetni32, tsgetpi32, tsgetci32}) {
        data_slots[0].header.record_count += 1; // as if the file's had changed since
        EXPECT_EQ(read_by(read, 0).code, TS_CURSOR_FILE_CHANGED);
        EXPECT_EQ(read_by(read, 0).code, TS_OK);
    }
}

TEST_F(Walk, AFailedStepGivesTheCursorUpOnlyOnceItHasLeftTheLeaf)
{
    const std::vector<row> rows = sorted(make_rows(), 0);
    const auto prepare = [] {
        support::switch_to(mode::shared);
        create_files(make_rows());
        ASSERT_EQ(read_by(tsgetfi32, 0).code, TS_OK);
        while (key_of(0, 0, 0).position + 1 <
               entry_count(key_of(0, 0, 0).key_record, key_of(0, 0, 0).work_node))
            ASSERT_EQ(read_by(tsgetni32, 0).code, TS_OK);
    };
    const auto check = [&](int32_t code) {
        const key_slot& key = key_of(0, 0, 0);
        if (code != TS_OK) { EXPECT_LT(code, 0); }
        const int32_t next = read_by(tsgetni32, 0).code;
        EXPECT_EQ(next, key.position == no_position ? int32_t{TS_CURSOR_NONE} : int32_t{TS_OK});
        expect_row(read_by(tsgetfi32, 0), TS_OK, rows.front(), 0);
    };
    sweep(
        prepare, [] { return read_by(tsgetni32, 0).code; }, check);
}

struct search_case {
    const char* name;
    int32_t number;
    int32_t fields;
    uint32_t last_length;
    int32_t partial; // code of tsgetip32
    int32_t nearest; // of tsgetipp32
    size_t found;    // place in the order of key 1
};

TEST_F(Walk, LeadingPartsAndNearestValuesPlaceTheCursor)
{
    const std::vector<row> rows = sorted(make_rows(), 1);
    const auto first = [&](char letter, int32_t number) {
        const auto is_it = [&](const row& each) {
            return each.name[1] == letter && each.number >= number;
        };
        return static_cast<size_t>(std::find_if(rows.begin(), rows.end(), is_it) - rows.begin());
    };
    const int32_t miss = TS_PARTIAL_NO_ENTRY;
    const search_case cases[] = {
        {"nc", 20, 2, 0, TS_OK, 0, first('c', 20)},
        {"nc", 99, 1, 4, TS_OK, 0, first('c', 0)},
        {"nc", 99, 1, 2, TS_OK, 0, first('c', 0)},
        {"n?", 99, 1, 1, TS_OK, 0, 0},
        {"nc", 21, 2, 0, miss, 1, first('c', 29) - 1},
        {"nc", -1, 2, 0, miss, 1, first('c', 0) - 1}, // behind an entry of the leaf before
        {"nb~", 0, 1, 4, miss, 1, first('c', 0) - 1},
        {"nz", 0, 1, 2, miss, 1, rows.size() - 1},
        {"a", 0, 1, 1, miss, 2, 0},
    };
    for (const mode wanted : {mode::single, mode::shared}) {
        start(wanted, make_rows());
        const int32_t current = data_slots[0].current_record;
        for (const search_case& each : cases) {
            SCOPED_TRACE(testing::Message() << each.name << each.number << " " << each.fields);
            std::string value = std::string(each.name).append(4, '\0').substr(0, 4);
            value += i32(each.number);
            answer told = {0, {}};
            told.code = tsgetip32(0, 0, 1, value.data(), each.fields, each.last_length, &told.read,
                                  &told.read.deleted);
            EXPECT_EQ(told.code, each.partial);
            if (each.partial == TS_OK) expect_row(told, TS_OK, rows[each.found], 1);
            told.code = tsgetipp32(0, 0, 1, value.data(), each.fields, each.last_length, &told.read,
                                   &told.read.deleted);
            expect_row(told, each.nearest, rows[each.found], 1);
            if (each.fields == 2 && each.last_length == 0) {
                told.code = tsgeti32(0, 0, 1, value.data(), &told.read, &told.read.deleted);
                EXPECT_EQ(told.code, each.partial == TS_OK ? TS_OK : TS_FIND_NO_ENTRY);
            }
            EXPECT_EQ(key_of(0, 0, 1).key_record.field_count, 2);
            EXPECT_EQ(key_of(0, 0, 1).key_record.fields[0].length, 4);
        }
        EXPECT_EQ(data_slots[0].current_record, current);
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
TEST_F(Walk, DamageAnywhereInAnIndexEndsInCodes)
{
    std::vector<row> rows = make_rows();
    rows.resize(14);
    start(mode::single, rows);
    ASSERT_EQ(tsclosei32(0, 0), TS_OK);
    const std::string sound = sim::bytes("i");
    const std::string no_child = sim::bytes("i").replace(
        static_cast<size_t>(load_i32(sound.data() + 24)), 4, i32(-1));
    sim::set_bytes("i", no_child);
    char cursors[] = {'y', 'y', 'n'};
    ASSERT_EQ(tsopeni32(0, "i", cursors), 0);
    EXPECT_EQ(read_by(tsgetfi32, 0).code, TS_WALK_CHILD_MISSING);

    std::vector<int32_t> codes;
    for (size_t at = 8; at < sound.size(); at += at < 836 ? 1 : at < 2216 ? 1380 : 1) {
        if (data_slots[0].indexes[0] != nullptr) { ASSERT_EQ(tsclosei32(0, 0), TS_OK); }
        std::string damaged = sound;
        damaged[at] = static_cast<char>(damaged[at] ^ (at % 2 == 0 ? 0x80 : 0x05));
        sim::set_bytes("i", damaged);
        if (tsopeni32(0, "i", cursors) != 0) continue;
        for (const int32_t key_number : {0, 1}) {
            for (const auto& [end, step] :
                 {std::pair<reader, reader>{tsgetfi32, tsgetni32}, {tsgetli32, tsgetpi32}}) {
                codes.push_back(read_by(end, key_number).code);
                for (int32_t i = 0; i < 40; ++i) codes.push_back(read_by(step, key_number).code);
            }
            answer told = {0, {}};
            codes.push_back(tsgetipp32(0, 0, key_number, "na\0\0\0\0\0\0", 1, 2, &told.read,
                                       &told.read.deleted));
        }
    }
    EXPECT_THAT(codes, testing::Each(testing::Le(2)));
    EXPECT_THAT(codes,
                testing::IsSupersetOf({int32_t{TS_NODE_DAMAGED}, int32_t{TS_NODE_READ_SHORT},
                                       int32_t{TS_FRAME_READ_POSITION}, int32_t{TS_CURSOR_NONE}}));
}

} // namespace
