// Single trees: the nodes that splits leave, the order in which they are written, where searches
// end, and what happens when a tree or a file gives out or is damaged. Entries are put in without
// records behind them, so that record offsets are what a case wants. That walks and searches answer
// rightly on sound trees is the affair of model_test.cpp.
#include "index/index_memory.h"
#include "index/insert.h"
#include "index/search.h"
#include "tests/support/checked.h"
#include "tests/support/library_fixture.h"

#include <gmock/gmock.h>
#include <vector>

using namespace tarsil;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

constexpr key_id the_key = {0, 0, 0};
constexpr int32_t small_node = 56; // of order 2
key_slot& slot() { return key_of(the_key); }

// A new index with one key of one 'l' field.
void create(uint32_t order, char cursor = 'y')
{
    key_definition key = support::define_key(order, {{'l'}}, cursor);
    ASSERT_EQ(tscrdata32("d", 4, 0, nullptr), 0);
    ASSERT_EQ(tscrind32(0, "i", 1, &key), 0);
}

record_image image_of(const int32_t& value)
{
    return {reinterpret_cast<const unsigned char*>(&value), 4};
}

int32_t insert(int32_t value, int32_t record)
{
    return tree_insert(the_key, image_of(value), record);
}

int32_t search(int32_t value, int32_t record, char mode, search_end& end)
{
    return tree_search_record(the_key, image_of(value), record, mode, end);
}

// Values in the order given, their records at 100, 200 and so on.
void insert_all(const std::vector<int32_t>& values)
{
    int32_t record = 0;
    for (const int32_t value : values) ASSERT_EQ(insert(value, record += 100), TS_OK);
}

std::vector<int32_t> path() { return {path_stack, path_stack + path_length()}; }

const unsigned char* bytes_at(const std::string& content, int32_t offset)
{
    return reinterpret_cast<const unsigned char*>(content.data()) + offset;
}

check::index_report check_tree() { return support::check_index(sim::bytes("i"), {}); }

// All nodes by offset, in words: "2216 l 1@100 2@200", or "2328 b >2216 2@200 >2272", where ">" is
// a child and "@" a record.
std::vector<std::string> nodes_of_file()
{
    const key_record& key = slot().key_record;
    const std::string content = sim::bytes("i");
    std::vector<std::string> nodes;
    for (auto at = first_node_offset; at < static_cast<int32_t>(content.size()); at += small_node) {
        const unsigned char* node = bytes_at(content, at);
        std::string words = std::to_string(at) + " " + node_type(key, node);
        for (int32_t i = 0; i <= entry_count(key, node); ++i) {
            const unsigned char* entry = entry_at(key, node, i);
            if (!is_leaf(key, node)) words += " >" + std::to_string(entry_link(entry));
            if (i == entry_count(key, node)) break;
            words += " " + std::to_string(load_i32(packed_key(entry))) + "@" +
                     std::to_string(entry_record(key, entry));
        }
        nodes.push_back(words);
    }
    return nodes;
}

// The offsets that a deed reads from, as negative numbers, and writes to.
template <class Deed> std::vector<int64_t> transfers_of(const Deed& deed)
{
    sim::start_recording();
    deed();
    std::vector<int64_t> offsets;
    for (const sim::logged& call : sim::log()) {
        if (call.kind == sim::call::write) offsets.push_back(call.offset);
        if (call.kind == sim::call::read) offsets.push_back(-call.offset);
    }
    return offsets;
}

const std::vector<int32_t> ten_to_hundred = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100};

struct Tree : support::Library {
    char record[4];
    int32_t deleted = 0;
    int32_t number = 0;
};

TEST_F(Tree, SplitsLeaveTheseNodesAndTheCursorOnTheNewEntry)
{
    const struct {
        std::vector<int32_t> values;
        std::vector<std::string> nodes;
        std::vector<int32_t> path;
        int32_t position;
    } cases[] = {
        {{1, 2, 3, 4, 5},
         {"2216 l 1@100 2@200 3@300", "2272 l 4@400 5@500", "2328 b >2216 3@300 >2272"},
         {2328},
         1},
        {{10, 20, 30, 40, 15},
         {"2216 l 10@100 15@500 20@200", "2272 l 30@300 40@400", "2328 b >2216 20@200 >2272"},
         {2328},
         1},
        // Equal values keep falling record offsets over the boundary.
        {{7, 7, 7, 7, 7},
         {"2216 l 7@500 7@400 7@300", "2272 l 7@200 7@100", "2328 b >2216 7@300 >2272"},
         {2328},
         0},
        // A root with two separators is full; the way to the new entry leads through its right
        // half, and in the last case through the left one.
        {{10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110},
         {"2216 l 10@100 20@200 30@300", "2272 l 40@400 50@500 60@600",
          "2328 b >2216 30@300 >2272 60@600 >-1", "2384 l 70@700 80@800 90@900",
          "2440 l 100@1000 110@1100", "2496 b >2384 90@900 >2440", "2552 b >2328 60@600 >2496"},
         {2496, 2552},
         1},
        {{100, 90, 80, 70, 60, 50, 40, 30, 20},
         {"2216 l 20@900 30@800 40@700", "2272 l 90@200 100@100",
          "2328 b >2216 40@700 >2440 60@500 >-1", "2384 l 70@400 80@300", "2440 l 50@600 60@500",
          "2496 b >2384 80@300 >2272", "2552 b >2328 60@500 >2496"},
         {2328, 2552},
         0},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.values));
        start_over(support::mode::single);
        create(2);
        insert_all(each.values);
        EXPECT_THAT(nodes_of_file(), ElementsAreArray(each.nodes));
        EXPECT_TRUE(check_tree().is_sound());
        EXPECT_EQ(index_of(the_key).end_offset,
                  first_node_offset + small_node * static_cast<int32_t>(each.nodes.size()));
        EXPECT_EQ(path(), each.path);
        EXPECT_TRUE(std::equal(path_stack, path_stack + path_length() + 1, slot().saved_path));
        EXPECT_EQ(slot().position, each.position);
        const unsigned char* entry = entry_at(slot().key_record, slot().work_node, each.position);
        EXPECT_EQ(load_i32(packed_key(entry)), each.values.back());
    }
}

TEST_F(Tree, ASplitWritesLeftThenRightThenParentThenKeyRecords)
{
    create(2);
    insert_all({10, 20, 30, 40, 50, 60, 70});
    // Search, left leaf, right leaf, key records; parent; at the end the leaf with the entry.
    EXPECT_THAT(transfers_of([] { EXPECT_EQ(insert(80, 800), TS_OK); }),
                ElementsAre(-2272, 2272, 2384, 8, -2328, 2328, -2384));
    // From the third entry of the leaf on.
    EXPECT_THAT(transfers_of([] { EXPECT_EQ(insert(90, 900), TS_OK); }), ElementsAre(-2384, 2408));
    EXPECT_EQ(insert(100, 1000), TS_OK);
    // Leaves, branches and the new root, each with the key records behind it.
    EXPECT_THAT(transfers_of([] { EXPECT_EQ(insert(110, 1100), TS_OK); }),
                ElementsAre(-2384, 2384, 2440, 8, -2328, 2328, 2496, 8, 2552, 8, -2440));
}

// With order 2, falling values give a tree another level every few insertions.
TEST_F(Tree, ATreeDeeperThanThePathIsRefusedBeforeAnythingIsWritten)
{
    create(2);
    int32_t value = 10000;
    do {
        sim::count_afresh();
        --value;
    } while (insert(value, 100) == TS_OK && value > 0);
    EXPECT_EQ(insert(value, 100), TS_TREE_TOO_DEEP);
    EXPECT_EQ(path_length(), path_words - 1);
    EXPECT_EQ(sim::calls(sim::call::write), 0U);
    // Where the parents of a full leaf have room, the tree still takes entries.
    for (const int32_t high : {20000, 20001, 20002}) EXPECT_EQ(insert(high, 100), TS_OK);
    const check::index_report report = check_tree();
    EXPECT_TRUE(report.is_sound());
    EXPECT_EQ(report.keys[0].depth, path_words);
    EXPECT_EQ(report.keys[0].entries, 10000 - value - 1 + 3);
}

TEST_F(Tree, AFileThatWouldPassTheLargestSizeIsRefusedBeforeAnythingIsWritten)
{
    create(2);
    insert_all(ten_to_hundred);
    const std::string before = sim::bytes("i");
    const auto insert_with_room_for = [](int32_t nodes) {
        index_of(the_key).end_offset = platform::max_file_bytes - small_node * nodes;
        return insert(110, 1100); // makes three: a leaf, a branch, a root
    };
    EXPECT_EQ(insert_with_room_for(0), TS_NODE_WRITE_POSITION);
    EXPECT_EQ(insert_with_room_for(2), TS_NODE_WRITE_POSITION);
    EXPECT_EQ(sim::bytes("i"), before);
    // With room for all of them it is the simulated disk that is full, behind the left leaf.
    EXPECT_EQ(insert_with_room_for(3), TS_NODE_WRITE_SHORT);
    EXPECT_NE(sim::bytes("i"), before);
}

TEST_F(Tree, NodesThatLeadInACircleOrNowhereEndInACode)
{
    create(2);
    insert_all(ten_to_hundred);
    ASSERT_EQ(insert(110, 1100), TS_OK);
    for (const int32_t link : {2552, 2328, no_offset, 0, -7, 2000000000, 8}) {
        SCOPED_TRACE(link);
        // It becomes the first child of the root's first child.
        const std::string content = support::with(sim::bytes("i"), 2328, link);
        sim::set_bytes("i", content);
        search_end end;
        const int32_t result = search(10, 100, exact_record, end);
        EXPECT_TRUE(link == no_offset ? result == not_in_leaf : result < next_is_behind) << result;
        EXPECT_LT(insert(10, 100), 0);
        EXPECT_EQ(sim::bytes("i"), content);
    }
}

TEST_F(Tree, LostWorkBuffersAreRefused)
{
    create(2, 'n');
    insert_all({1, 2, 3, 4});
    for (unsigned char** lost : {&shared_node, &node_scratch}) {
        unsigned char* const kept = std::exchange(*lost, nullptr);
        EXPECT_EQ(insert(5, 500), TS_NO_MEMORY_SCRATCH);
        *lost = kept;
    }
    EXPECT_EQ(insert(5, 500), TS_OK);
}

TEST_F(Tree, InMultiUserModeNewNodesGoBehindThoseOfOthers)
{
    support::switch_to(support::mode::shared);
    create(2);
    insert_all({1, 2, 3, 4});
    const std::string of_others(small_node, 'x');
    sim::set_bytes("i", sim::bytes("i") + of_others);
    ASSERT_EQ(insert(5, 500), TS_OK);
    EXPECT_EQ(slot().key_record.root_offset, 2216 + 3 * small_node);
    EXPECT_EQ(sim::bytes("i").substr(2272, small_node), of_others);

    // Inside a purge, which lays the nodes out anew in a file of the old length, memory counts.
    index_of(the_key).node_area_is_new = 'y';
    index_of(the_key).end_offset = 2272;
    for (const int32_t value : {6, 7, 8}) ASSERT_EQ(insert(value, value * 100), TS_OK);
    EXPECT_NE(sim::bytes("i").substr(2272, small_node), of_others);
}

// A search that ends in a branch leaves the cursor in no leaf; its links lead to no records.
TEST_F(Tree, ACursorStandsOnRecordsAlone)
{
    create(2);
    for (int32_t value = 1; value < 15; ++value) ASSERT_EQ(tsadd32(0, &value, 4, 'n'), TS_OK);
    ASSERT_EQ(tsgetfi32(0, 0, 0, record, &deleted), TS_OK);
    for (const int32_t link : {no_offset, 0, 27, INT32_MIN, 41}) {
        set_entry_link(entry_at(slot().key_record, slot().work_node, 0), link);
        EXPECT_EQ(tssetd2i32(0, 0, 0, &number), TS_FRAME_READ_POSITION);
    }
    // However often a cursor behind the entries of its leaf is moved on, it gets nowhere.
    slot().position = entry_count(slot().key_record, slot().work_node);
    for (int32_t steps = 0; steps < 9; ++steps) {
        EXPECT_LT(tsgetni32(0, 0, 0, record, &deleted), 0);
        EXPECT_LE(slot().position, slot().key_record.max_entries);
    }
    EXPECT_EQ(tsgetci32(0, 0, 0, record, &deleted), TS_FRAME_READ_POSITION);

    ASSERT_EQ(tsclosei32(0, 0), TS_OK);
    const auto root = static_cast<size_t>(load_i32(bytes_at(sim::bytes("i"), 24)));
    sim::set_bytes("i", support::with(sim::bytes("i"), root, no_offset));
    char cursor[] = "y";
    ASSERT_EQ(tsopeni32(0, "i", cursor), 0);
    EXPECT_EQ(tsgetfi32(0, 0, 0, record, &deleted), TS_WALK_CHILD_MISSING);
    EXPECT_EQ(tsgetli32(0, 0, 0, record, &deleted), TS_OK);
    EXPECT_EQ(tsgeti32(0, 0, 0, support::i32(-1).data(), record, &deleted), TS_FIND_NO_ENTRY);
    for (const auto read : {tsgetci32, tsgetni32, tsgetpi32})
        EXPECT_EQ(read(0, 0, 0, record, &deleted), TS_CURSOR_NONE);
    EXPECT_EQ(tssetd2i32(0, 0, 0, &number), TS_CURSOR_NONE);
    EXPECT_EQ(tsdelci32(0, 0, 0), TS_CURSOR_NONE);
}

// Between the look for duplicates and the insertion another process has put 15 where 20 was.
TEST_F(Tree, AWayThatMayHaveChangedIsNotTaken)
{
    support::switch_to(support::mode::shared);
    create(2);
    for (const int32_t value : {10, 20, 30, 40, 50}) ASSERT_EQ(tsadd32(0, &value, 4, 'n'), TS_OK);
    const auto twenty = static_cast<size_t>(first_node_offset + 12 + entry_link_bytes);
    ASSERT_EQ(load_i32(bytes_at(sim::bytes("i"), first_node_offset + 16)), 20);
    sim::meanwhile(1, sim::only(sim::call::write),
                   [&] { sim::set_bytes("i", support::with(sim::bytes("i"), twenty, 15)); });
    const int32_t value = 17;
    EXPECT_EQ(tsadd32(0, &value, 4, 'n'), TS_OK);
    EXPECT_EQ(nodes_of_file().front(), "2216 l 10@28 15@40 17@88 30@52");
}

// Another process has added a record since. A call that reads the header takes notice by itself.
TEST_F(Tree, ACursorTellsAChangedFileOnce)
{
    support::switch_to(support::mode::shared);
    create(2);
    const int32_t value = 1;
    ASSERT_EQ(tsadd32(0, &value, 4, 'n'), TS_OK);
    const auto current = [&] { return tsgetci32(0, 0, 0, record, &deleted); };
    const std::function<int32_t()> calls[] = {
        current,
        [&] { return tsgetni32(0, 0, 0, record, &deleted); },
        [&] { return tsgetpi32(0, 0, 0, record, &deleted); },
        [&] { return tssetd2i32(0, 0, 0, &number); },
        [] { return tsdelci32(0, 0, 0); },
    };
    for (const auto& call : calls) {
        ASSERT_EQ(tsgetfi32(0, 0, 0, record, &deleted), TS_OK);
        data_slots[0].header.record_count += 1;
        EXPECT_EQ(call(), TS_CURSOR_FILE_CHANGED);
        EXPECT_EQ(current(), TS_OK);
    }
    data_slots[0].header.record_count += 1;
    EXPECT_EQ(tsgetcd32(0, record, &deleted), TS_OK);
    EXPECT_EQ(current(), TS_OK);
}

} // namespace
