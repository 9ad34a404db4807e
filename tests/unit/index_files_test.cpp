// Index files: their bytes, the rules of definitions, slots and memory, the report of a key, and
// what damaged files do.
#include "index/index_memory.h"

#include "index/node_io.h"
#include "multiuser/index_read.h"
#include "tests/support/library_fixture.h"

namespace tarsil {
namespace {

using namespace support;

constexpr char name[] = "keys.tsi";

// Two small keys: 56 and 88 bytes a node. The second has no cursor.
std::vector<key_definition> small_keys()
{
    return {define_key(2, {{'l'}}), define_key(2, {{'l'}, {'s', 4, 4}}, 'n')};
}

struct IndexFiles : Library {
    void SetUp() override
    {
        Library::SetUp();
        open_data();
    }

    static void open_data() { ASSERT_EQ(tscrdata32("data.tsd", 8, 0, nullptr), 0); }
    static void start_over(mode wanted)
    {
        Library::start_over(wanted);
        open_data();
    }
    static int32_t create(std::vector<key_definition> keys)
    {
        return tscrind32(0, name, static_cast<int32_t>(keys.size()), keys.data());
    }
    static int32_t open()
    {
        char cursors[] = "YNnnnnnn";
        return tsopeni32(0, name, cursors);
    }
    // The bytes of a file with the small keys, closed.
    static std::string make_small_file()
    {
        EXPECT_EQ(create(small_keys()), 0);
        EXPECT_EQ(tsclosei32(0, 0), TS_OK);
        return sim::bytes(name);
    }
    static void expect_nothing_open()
    {
        EXPECT_EQ(data_slots[0].open_index_count, 0);
        EXPECT_EQ(data_slots[0].indexes[0], nullptr);
        EXPECT_EQ(sim::open_handles(), 1U); // the data file
    }
};

TEST_F(IndexFiles, ANewFileIsExactlyThis)
{
    const key_shape number = {{{'l', 4, 4}}, 682};
    const key_shape name_and_number = {{{'s', 30, 0}, {'i', 4, 77}}, 178};
    const std::string expected = index_head({key_block(number, 2216),
                                             key_block(name_and_number, 2216 + 8192)}) +
                                 node(number, 'l', 0) + node(name_and_number, 'l', 0);
    for (const mode each : all_modes) {
        start_over(each);
        ASSERT_EQ(create({define_key(0, number.parts), define_key(0, name_and_number.parts)}), 0);
        EXPECT_EQ(index_of(0, 0).end_offset, 2216 + 8192 + 8196);
        ASSERT_EQ(tsclosei32(0, 0), TS_OK);
        EXPECT_TRUE(sim::bytes(name) == expected);
        ASSERT_EQ(open(), 0);
        EXPECT_EQ(index_of(0, 0).end_offset, 2216 + 8192 + 8196);
        EXPECT_EQ(key_of(0, 0, 0).position, no_position);
        EXPECT_TRUE(has_cursor(key_of(0, 0, 0)) && !has_cursor(key_of(0, 0, 1)));
    }
    EXPECT_EQ(tsclosei32(0, 0), TS_OK);
    ASSERT_EQ(tscrind32(0, "none.tsi", 0, nullptr), 0);
    EXPECT_EQ(sim::bytes("none.tsi"), index_head({}));
    EXPECT_EQ(tsclosei32(0, 0), TS_OK);
    EXPECT_EQ(tsopeni32(0, "none.tsi", nullptr), 0);
    EXPECT_EQ(tsgeti32(0, 0, 0, "", nullptr, nullptr), TS_BAD_KEY_NUMBER);
}

// An even number of entries, as many as 8205 bytes hold, and four at least.
TEST_F(IndexFiles, WithoutAnOrderANodeHasItsUsualSize)
{
    const struct {
        size_t fields;
        int32_t last;
        uint32_t max_entries;
        int32_t node_bytes;
    } cases[] = {
        {6, 59, 6, 6 * 1367 + 8},
        {6, 60, 4, 4 * 1368 + 8},
        {16, 256, 4, 16664},
    };
    for (const auto& each : cases) {
        std::vector<key_part> fields(each.fields - 1, {'s', 256, 0});
        fields.push_back({'s', each.last, 0});
        std::vector<key_definition> keys = {define_key(0, fields, 'Y')};
        ASSERT_EQ(tscrind32(0, name, 1, keys.data()), 0);
        EXPECT_EQ(keys[0].order, each.max_entries);
        EXPECT_EQ(keys[0].cursor, 'Y');
        EXPECT_EQ(sim::bytes(name).size(), static_cast<size_t>(2216 + each.node_bytes));
        discard_index(0, 0, name);
    }
    expect_nothing_open();
}

TEST_F(IndexFiles, DefinitionsAreRefusedInAFixedOrder)
{
    // Two roots of this order pass the end of the largest file.
    constexpr uint32_t half_of_all = 0x7fffffff / 12 / 2 / 2 + 1;
    const key_part bad_string = {'s', 257, 0};
    const struct {
        std::vector<key_definition> keys;
        int32_t code;
        uint32_t order_left; // in the last definition
    } cases[] = {
        {{define_key(1, {})}, TS_KEY_BAD_ORDER, 1},
        {{define_key(3, {}, 'x')}, TS_KEY_BAD_FIELD_COUNT, 6},
        {{define_key(0, {{'h', 99, 0}, {'x', 4, 0}, bad_string}, 'x')}, TS_KEY_BAD_TYPE, 0},
        {{define_key(0, {bad_string, {'x', 4, 0}}, 'x')}, TS_KEY_BAD_STRING_LENGTH, 0},
        {{define_key(0, {{'s'}})}, TS_KEY_BAD_STRING_LENGTH, 0},
        {{define_key(5, {{'l'}}, 'x')}, TS_BAD_CURSOR_LETTER, 10},
        {{define_key(2, {{'l'}}), define_key(1, {})}, TS_KEY_BAD_ORDER, 1},
        {{define_key(1, {}), define_key(2, {{'l'}})}, TS_KEY_BAD_ORDER, 2},
        {{define_key(0x7fffffff, {{'c'}})}, TS_KEY_BAD_ORDER, 0xfffffffe},
        {{define_key(0x80000000, {{'c'}})}, TS_KEY_BAD_ORDER, 0},
        {{define_key(half_of_all, {{'l'}}), define_key(half_of_all, {{'l'}})},
         TS_KEY_BAD_ORDER,
         2 * half_of_all},
    };
    sim::set_bytes(name, "in the way");
    for (const auto& each : cases) {
        std::vector<key_definition> keys = each.keys;
        const uint64_t allocations = sim::calls(sim::call::allocate);
        EXPECT_EQ(tscrind32(0, name, static_cast<int32_t>(keys.size()), keys.data()), each.code);
        EXPECT_EQ(keys.back().order, each.order_left);
        if (keys[0].types[0] == 'h') { EXPECT_EQ(keys[0].lengths[0], 2); }
        EXPECT_EQ(sim::calls(sim::call::allocate), allocations);
    }
    key_definition seventeen = define_key(2, {{'l'}});
    seventeen.field_count = 17;
    EXPECT_EQ(create({seventeen}), TS_KEY_BAD_FIELD_COUNT);
    EXPECT_EQ(tscrind32(0, name, 9, nullptr), TS_BAD_KEY_COUNT);
    EXPECT_EQ(tscrind32(0, name, -1, nullptr), TS_BAD_KEY_COUNT);
    EXPECT_EQ(create(small_keys()), TS_CREATE_INDEX_FILE_EXISTS);
    EXPECT_EQ(sim::bytes(name), "in the way");
    expect_nothing_open();
}

TEST_F(IndexFiles, ACloseEndsAnIndexOnceAndWithItsRanges)
{
    start_over(mode::shared);
    ASSERT_EQ(create(small_keys()), 0);
    char cursors[] = "yx";
    EXPECT_EQ(tsopeni32(0, name, cursors), TS_BAD_CURSOR_LETTER);
    EXPECT_EQ(data_slots[0].open_index_count, 1);
    ASSERT_EQ(tslocki32(0, 0), 1);
    index_of(0, 0).dirty = yes; // from before the mode was switched
    sim::count_afresh();
    EXPECT_EQ(tsclosei32(0, 0), TS_OK); // for the range see the end of every test
    EXPECT_EQ(sim::calls(sim::call::write), 0U);
    EXPECT_EQ(tsclosei32(0, 0), TS_INDEX_NOT_OPEN);
    expect_nothing_open();
}

// As in a forked child, or after a start without a close: the slots are free, and what they named
// before is nobody's any more.
TEST_F(IndexFiles, AStartAnewForgetsIndexFilesToo)
{
    char body[8];
    for (const char begin_with : {'c', 'o', 'r'}) {
        start_over(mode::single);
        ASSERT_EQ(create(small_keys()), 0);
        ASSERT_EQ(tsadd32(0, "12345678", 8, 'n'), TS_OK);
        sim::end_process();
        shared_node = nullptr;
        ASSERT_EQ(tsinit32(), TS_STARTED);

        EXPECT_EQ(begin_with == 'c'   ? tscrdata32("other.tsd", 8, 0, nullptr)
                  : begin_with == 'o' ? tsopend32("data.tsd")
                                      : tsrbdbh32("data.tsd", body),
                  0);
        EXPECT_EQ(tsadd32(0, "12345678", 8, 'n'), TS_OK);
        EXPECT_EQ(open(), 0);
    }
}

// Two keys, one of them with a cursor, in the order of the allocations for them.
TEST_F(IndexFiles, ScratchFallsBackToItsOldSize)
{
    const auto fail_next = [] { sim::plan({.where = only(sim::call::allocate)}); };
    const struct {
        uint64_t first, second; // failing allocations of the growth
        int32_t code;
    } cases[] = {{1, 0, TS_NO_MEMORY_SCRATCH}, {2, 0, TS_NO_MEMORY_SCRATCH},
                 {1, 2, TS_SCRATCH_LOST},      {1, 3, TS_SHARED_NODE_LOST},
                 {2, 3, TS_SCRATCH_LOST},      {2, 4, TS_SHARED_NODE_LOST}};
    for (const auto& each : cases) {
        start_over(mode::single);
        fail_next();
        EXPECT_EQ(grow_scratch(1000), TS_NO_MEMORY_SCRATCH); // no old size to fall back to
        ASSERT_EQ(tsadd32(0, "12345678", 8, 'n'), TS_OK);
        ASSERT_EQ(tsdeld32(0, 1), TS_OK);
        ASSERT_EQ(create(small_keys()), 0);
        ASSERT_EQ(scratch_bytes, 88 + 4);
        sim::plan({.at = each.first, .where = only(sim::call::allocate)});
        if (each.second > 0) sim::meanwhile(each.second, only(sim::call::allocate), fail_next);
        EXPECT_EQ(grow_scratch(92), TS_OK); // needs nothing
        EXPECT_EQ(grow_scratch(5000), each.code);
        sim::clear_fault();
        const bool is_there = each.code == TS_NO_MEMORY_SCRATCH;
        EXPECT_EQ(has_scratch(), is_there);
        char record[8] = {};
        int32_t deleted = 0;
        const auto search = [&] { return tsgeti32(0, 0, 1, "\1\0\0\0key", record, &deleted); };
        EXPECT_EQ(search(), is_there ? TS_FIND_NO_ENTRY : TS_NO_MEMORY_SCRATCH);
        if (!is_there) { EXPECT_EQ(tspurge32(0, record, &deleted), TS_NO_MEMORY_SCRATCH); }
        EXPECT_EQ(grow_scratch(8), TS_OK);
        EXPECT_GE(scratch_bytes, 92); // the index is open all the time
        EXPECT_EQ(search(), TS_FIND_NO_ENTRY);
    }
}

TEST_F(IndexFiles, DamagedFilesAreRefused)
{
    const std::string whole = make_small_file();
    constexpr size_t second = 8 + 276;
    constexpr size_t tail = 2216 + 56 - 8;
    const auto geometry = [&](int32_t max_entries, int32_t node_bytes) {
        return with(with(whole, second, max_entries), second + 4, node_bytes);
    };
    const struct {
        std::string file;
        int32_t code;
    } cases[] = {
        {with(whole, 0, 0x4953542b), TS_BAD_MINOR_VERSION},
        {with(whole, 0, 0x4453542a), TS_BAD_MAGIC},
        {with(whole, 4, 9), TS_INDEX_BAD_KEY_COUNT},
        {with(whole, 4, -1), TS_INDEX_BAD_KEY_COUNT},
        {geometry(2, 2 * 20 + 8), TS_INDEX_BAD_KEY_RECORD},
        {geometry(5, 5 * 20 + 8), TS_INDEX_BAD_KEY_RECORD},
        {geometry(4, 4 * 20 + 9), TS_INDEX_BAD_KEY_RECORD},
        {geometry(0x40000004, 4 * 20 + 8), TS_INDEX_BAD_KEY_RECORD},        // right in 32 bits
        {geometry(107374180, 107374180 * 20 + 8), TS_INDEX_BAD_KEY_RECORD}, // past any file
        {geometry(107374000, 107374000 * 20 + 8), TS_NODE_READ_SHORT},      // past this one
        {with(whole, second + 8, 17), TS_INDEX_BAD_KEY_RECORD},
        {with(with(geometry(4, 4 * 4 + 8), second + 8, 0), second + 12, 4),
         TS_INDEX_BAD_KEY_RECORD}, // a key without fields
        {with(whole, second + 12, 11), TS_INDEX_BAD_KEY_RECORD},
        {with(whole, second + 16, 2215), TS_INDEX_BAD_KEY_RECORD},
        {with(whole, second + 16, 2217 + 56), TS_NODE_READ_SHORT},
        {with(whole, second + 16, 0x7fffffff), TS_NODE_READ_SHORT},
        {with(whole, second + 20, 'x'), TS_INDEX_BAD_KEY_RECORD},
        {with(with(with(geometry(4, 4 * 15 + 8), second + 12, 7), second + 20, 'x'), second + 24,
              unknown_letter),
         TS_INDEX_BAD_KEY_RECORD},
        {with(with(whole, second + 24, 8), second + 40, 0),
         TS_INDEX_BAD_KEY_RECORD}, // the sum stays
        {with(whole, tail, -1), TS_NODE_DAMAGED},
        {with(whole, tail, 5), TS_NODE_DAMAGED},
        {with(whole, tail + 4, 'x' << 24), TS_NODE_DAMAGED},
        {with(with(whole, tail + 4, 'b' << 24), tail, 3), TS_NODE_DAMAGED},
    };
    sim::start_recording();
    for (size_t i = 0; i < std::size(cases); ++i) {
        sim::set_bytes(name, cases[i].file);
        EXPECT_EQ(open(), cases[i].code) << "case " << i;
        EXPECT_TRUE(sim::bytes(name) == cases[i].file);
        expect_nothing_open();
    }
    for (size_t size = 0; size < whole.size(); ++size) {
        sim::set_bytes(name, whole.substr(0, size));
        ASSERT_LT(open(), 0) << "cut to " << size;
    }
    expect_nothing_open();
    for (const sim::logged& each : sim::log()) {
        EXPECT_NE(each.kind, sim::call::write);
        if (each.kind == sim::call::allocate) { EXPECT_LT(each.length, 4096); }
    }
}

TEST_F(IndexFiles, SharedReadingTakesOverWhatIsSound)
{
    start_over(mode::shared);
    ASSERT_EQ(create(small_keys()), 0);
    const std::string whole = sim::bytes(name);
    const key_id id = {0, 0, 0};
    sim::set_bytes(name,
                   with(with(whole, 8, 6), 12, 6 * 12 + 8)); // sound, and too large for the buffers
    EXPECT_EQ(refresh_root(id), TS_INDEX_BAD_KEY_RECORD);
    const std::string two_fields = key_block({{{'h', 2, 0}, {'h', 2, 2}}}, 2216);
    sim::set_bytes(name, std::string(whole).replace(8, two_fields.size(), two_fields));
    EXPECT_EQ(refresh_root(id), TS_INDEX_BAD_KEY_RECORD)
        << "entries of the same size, larger nodes";
    EXPECT_EQ(key_of(id).key_record.max_entries, 4);
    sim::set_bytes(name, with(with(whole, 8 + 16, 2217), 2216 + 49, 9)); // a root that is none
    EXPECT_EQ(refresh_root(id), TS_NODE_DAMAGED);
    EXPECT_EQ(entry_count(key_of(id).key_record, key_of(id).root_node), 0);
    sim::set_bytes(name, whole);
    EXPECT_EQ(refresh_root(id), TS_OK);
}

} // namespace
} // namespace tarsil
