// All 61 functions under failures: each in the situations in which it asks different things of the
// platform, in all modes. What has to follow is told in tests/unit/fault_sweep.h. Of tsadd32 here
// is what fault_add_test.cpp, which goes through its stages, has no shape for.
#include "index/index_format.h"
#include "index/slots.h"
#include "tests/support/settings.h"
#include "tests/unit/bracket_courses.h"
#include "tests/unit/fault_sweep.h"

#include <algorithm>
#include <random>
#include <set>

namespace tarsil::support {
namespace {

using sim::call;

// A record is two numbers, a letter and a filler; the keys of i0 are over the first number and over
// the letter, that of i1 over the second number.
std::string record_of(int32_t number, char letter = 'm')
{
    return i32(number) + i32(-number) + letter + "....";
}
constexpr int32_t record_bytes = 13;

// What is there before the call, and what of it is open.
enum class scene : uint8_t {
    nothing,
    closed,     // d, i0 and i1
    data_open,  // the same, and d is open
    no_records, // d alone and without records, open
    plain,      // d alone, open
    indexed,    // d, i0 and i1, open
    variable,   // the same, of variable length
    empty       // the same, of fixed length and without records
};

struct row {
    const char* function;
    const char* title;
    scene files;
    void (*place)(); // what stands before the call, behind the opens
    int32_t (*call)();
    int32_t success = TS_OK;
    leaves allowed = leaves::sound_files;
};

// What calls deliver goes here, and is of no interest.
char body[64];
int32_t told[6];

std::mt19937_64 random_order;

int32_t add(int32_t number, char duplicates = 'n')
{
    return tsadd32(0, record_of(number).c_str(), record_bytes, duplicates);
}

void add_all(const std::vector<int32_t>& numbers)
{
    for (const int32_t number : numbers) ASSERT_EQ(add(number), TS_OK);
}

void delete_all(const std::vector<int32_t>& records)
{
    for (const int32_t number : records) ASSERT_EQ(tsdeld32(0, number), TS_OK);
}

void build(scene files)
{
    if (files == scene::nothing) return;
    field_entry fields[] = {{4, 'l'}, {4, 'l'}};
    const int32_t length = files == scene::variable ? TS_VARIABLE_LENGTH : record_bytes;
    ASSERT_EQ(tscrdata32("d", length, 2, fields), 0);
    if (files == scene::no_records) return;
    if (files != scene::plain) {
        key_definition keys[] = {define_key(2, {{'l', 4, 0}}), define_key(2, {{'c', 1, 8}, {'l'}})};
        key_definition second = define_key(2, {{'l', 4, 4}});
        ASSERT_EQ(tscrind32(0, "i0", 2, keys), 0);
        ASSERT_EQ(tscrind32(0, "i1", 1, &second), 1);
    }
    if (files == scene::empty) return;
    std::vector<int32_t> numbers = {40, 10, 70, 20, 60, 30, 80, 50, 90};
    std::shuffle(numbers.begin() + 3, numbers.end(), random_order);
    add_all(numbers);
    delete_all({2, 5, 6});
}

void open(scene files)
{
    if (files == scene::nothing || files == scene::closed) return;
    tsdelow32('n');
    ASSERT_EQ(tsopend32("d"), 0);
    if (files < scene::indexed) return;
    char cursors[] = "yyy";
    ASSERT_EQ(tsopeni32(0, "i0", cursors), 0);
    ASSERT_EQ(tsopeni32(0, "i1", cursors), 1);
}

void ready() {} // nothing beside
void reuse() { tsdelow32('y'); }
void stand_on(int32_t number)
{
    ASSERT_EQ(tsgeti32(0, 0, 0, i32(number).data(), body, told), TS_OK);
    int32_t record = 0;
    ASSERT_EQ(tssetd2i32(0, 0, 0, &record), TS_OK);
}
void on_live() { stand_on(70); }    // record 3
void on_deleted() { stand_on(10); } // record 2, the first one deleted
void on_deleted_and_reuse()
{
    reuse();
    stand_on(10);
    data_slots[0].reuse_offset = data_slots[0].current_offset;
}
void on_first() { ASSERT_EQ(tsgetfi32(0, 0, 0, body, told), TS_OK); }
void on_last() { ASSERT_EQ(tsgetli32(0, 0, 0, body, told), TS_OK); }
void at_third() { ASSERT_EQ(tsgetd32(0, 3, body, told), TS_OK); }
void on_edge_of_leaf() // steps on until the next step leaves the leaf
{
    on_first();
    const key_slot& key = *data_slots[0].indexes[0]->keys[0];
    while (key.position + 1 < entry_count(key.key_record, key.work_node))
        ASSERT_EQ(tsgetni32(0, 0, 0, body, told), TS_OK);
}
void behind_edge_of_leaf()
{
    on_edge_of_leaf();
    ASSERT_EQ(tsgetni32(0, 0, 0, body, told), TS_OK);
}
int32_t lock_data() { return tslockd32(0); }
int32_t lock_index() { return tslocki32(0, 0); }
int32_t lock_record() { return tslockdr32(0, 3); }
int32_t lock_records() { return lock_record() + tslockdr32(0, 5); }
template <auto lock> void held()
{
    if (is_shared()) { ASSERT_GE(lock(), 0); }
}
void locked_by_caller()
{
    on_first();
    held<lock_data>();
    held<lock_index>();
}
void with_full_root()
{
    add_all({60, 70, 80, 90});
    locked_by_caller();
    held<[] { return tslocki32(0, 1); }>();
}
void with_changes() { add_all({55, 56}); }
void delete_the_others() { delete_all({1, 3, 4, 7, 8, 9}); }
// As a process leaves the file that ended before it wrote the header.
void header_behind()
{
    sim::set_bytes("d", with(with(sim::bytes("d"), 4, 2), 16, 44 + 2 * (record_bytes + 8)));
}
void zeros_behind() { sim::set_bytes("d", sim::bytes("d") + std::string(40, '\0')); }

int32_t by_number(const void* record, int32_t mode)
{
    return tsupd32(0, 3, record, record_bytes, told, body, mode);
}
int32_t at_current(const void* record, int32_t mode)
{
    return tsupcd32(0, record, record_bytes, told, body, mode);
}
int32_t by_value(const void* record, int32_t mode)
{
    return tsupi32(0, 0, 0, i32(70).data(), record, record_bytes, told, body, mode);
}
int32_t at_cursor(const void* record, int32_t mode)
{
    return tsupci32(0, 0, 0, record, record_bytes, told, body, mode);
}
const std::string changed_filler = i32(70) + i32(-70) + "m:-)!";
const std::string changed_key = record_of(75);

int32_t create_data()
{
    field_entry fields[] = {{4, 'i'}, {8, 's'}};
    return tscrdata32("d", 12, 2, fields);
}
int32_t create_index(decltype(&tscrind32) create)
{
    key_definition keys[] = {define_key(2, {{'l', 4, 0}}),
                             define_key(2, {{'c', 1, 8}, {'l'}}, 'n')};
    return create(0, "j", 2, keys);
}
int32_t build_index(int32_t data_handle, const char* name, int32_t count, key_definition* keys)
{
    return tscrindd32(data_handle, name, count, keys, body);
}
int32_t open_index()
{
    char cursors[] = "yn";
    return tsopeni32(0, "i0", cursors);
}
int32_t facts() { return tsstatd32(0, told, told + 1, told + 2, told + 3, told + 4); }
int32_t fields()
{
    field_entry table[2];
    return tsfields32(0, table);
}
int32_t version(int32_t mode) { return tsvernum32(mode, told, told + 1, 0, 0); }
int32_t report()
{
    key_report about;
    return tsstati32(0, 0, 1, told, told + 1, body, &about);
}
int32_t nearest(int32_t number)
{
    return tsgetipp32(0, 0, 0, i32(number).data(), 1, 0, body, told);
}

template <auto read> int32_t in_file() { return read(0, body, told); }
template <auto read> int32_t by_key() { return read(0, 0, 0, body, told); }
template <auto update> int32_t in_place() { return update(changed_filler.data(), 0); }
template <auto update, int32_t mode = 2> int32_t anew() { return update(changed_key.data(), mode); }
template <auto call, int32_t other> int32_t in_shared_mode()
{
    return is_shared() ? call() : other;
}
int32_t purge() { return tspurge32(0, body, told); }
int32_t rebuild() { return tsrbdbh32("d", body); }

constexpr leaves counts = leaves::counts_behind;
constexpr leaves keys = leaves::keys_behind;
constexpr leaves half = leaves::half_purged;
constexpr scene none = scene::nothing;
constexpr scene closed = scene::closed;
constexpr scene plain = scene::plain;
constexpr scene indexed = scene::indexed;
constexpr scene variable = scene::variable;

const row rows[] = {
    // Start, stop, options, texts.
    {"tsinit32", "", none, ready, [] { return tsfree32(), tsinit32(); }, TS_STARTED},
    {"tsfree32", "", none, ready, [] { return tsfree32(), 0; }},
    {"tsautoup32", "", none, ready, [] { return tsautoup32('x'); }, TS_BAD_AUTO_UPDATE_LETTER},
    {"tsdelow32", "", none, ready, [] { return tsdelow32('y'), 0; }},
    {"tsspdoub32", "", none, ready, [] { return tsspdoub32(3); }},
    {"tsmuser32", "", none, ready, [] { return tsmuser32('n'), tsmuser32('y'); }},
    {"check_share_loaded32", "", none, ready, [] { return check_share_loaded32(); }, 255},
    {"tsstrcvt32", "", none, ready, [] { return tsstrcvt32(body, body + 32, 1), 0; }},
    {"tsinitbf32", "", none, ready, [] { return tsinitbf32(9, 'x', body), 0; }},

    // The data file.
    {"tscrdata32", "", none, ready, create_data},
    {"tsopend32", "", closed, ready, [] { return tsopend32("d"); }},
    {"tsopend32", "with the scan", closed, reuse, [] { return tsopend32("d"); }},
    {"tsclosed32", "clean", indexed, ready, [] { return tsclosed32(0); }},
    {"tsclosed32", "changed", indexed, with_changes, [] { return tsclosed32(0); }},
    {"tsIsFileThere32", "", closed, ready,
     [] { return tsIsFileThere32("d") == 1 ? 0 : int32_t{TS_OPEN_DATA_NOT_THERE}; }},
    {"tsstatd32", "", plain, ready, facts},
    {"tsfields32", "", plain, ready, fields, 2},
    {"tsvernum32", "data", plain, ready, [] { return version(1); }},
    {"tsvernum32", "index", indexed, ready, [] { return version(2); }},
    {"tsrbdbh32", "", closed, header_behind, rebuild, 0, keys},
    {"tsrbdbh32", "zeros", closed, zeros_behind, rebuild, 0, keys},

    // Reading in file order.
    {"tsgetd32", "", plain, at_third, [] { return tsgetd32(0, 4, body, told); }},
    {"tsgetd32", "variable", variable, at_third, [] { return tsgetd32(0, 4, body, told); }},
    {"tsgetfd32", "", plain, at_third, in_file<tsgetfd32>},
    {"tsgetld32", "", plain, at_third, in_file<tsgetld32>},
    {"tsgetnd32", "", plain, at_third, in_file<tsgetnd32>},
    {"tsgetpd32", "", plain, at_third, in_file<tsgetpd32>},
    {"tsgetcd32", "", plain, at_third, in_file<tsgetcd32>},
    {"tsrecd32", "", variable, at_third, [] { return tsrecd32(0, told, told + 1, told + 2); }},

    // Changing records.
    {"tsadd32", "variable", variable, ready,
     [] { return tsadd32(0, (record_of(55) + "...").c_str(), 16, 'n'); }, 0, keys},
    {"tsadd32", "locked by the caller", indexed, locked_by_caller, [] { return add(55); }, 0, keys},
    {"tsadd32", "into a full root, locked by the caller", scene::empty, with_full_root,
     [] { return add(99); }, 0, keys},
    {"tsdeld32", "", plain, reuse, [] { return tsdeld32(0, 3); }, 0, counts},
    {"tsdelcd32", "", variable, on_live, [] { return tsdelcd32(0); }, 0, counts},
    {"tsdeli32", "", indexed, ready, [] { return tsdeli32(0, 0, 0, i32(70).data()); }, 0, counts},
    {"tsdelci32", "", indexed, on_live, [] { return tsdelci32(0, 0, 0); }, 0, counts},
    {"tsdelci32", "deleted already", indexed, on_deleted, [] { return tsdelci32(0, 0, 0); },
     TS_DELETE_CURSOR_DELETED},
    {"tsundeld32", "", indexed, on_deleted_and_reuse, [] { return tsundeld32(0, 2); }, 0, counts},
    {"tsudelcd32", "", indexed, on_deleted_and_reuse, [] { return tsudelcd32(0); }, 0, counts},
    {"tsundeli32", "", indexed, on_deleted_and_reuse,
     [] { return tsundeli32(0, 0, 0, i32(10).data()); }, 0, counts},
    {"tsudelci32", "", indexed, on_deleted, [] { return tsudelci32(0, 0, 0); }, 0, counts},
    {"tsupd32", "in place", indexed, ready, in_place<by_number>},
    {"tsupcd32", "in place", variable, on_live, in_place<at_current>},
    {"tsupi32", "in place", indexed, ready, in_place<by_value>},
    {"tsupci32", "in place", indexed, on_live, in_place<at_cursor>},
    {"tsupd32", "anew", indexed, ready, anew<by_number>, 1, keys},
    {"tsupcd32", "anew", variable, on_live, anew<at_current>, 1, keys},
    {"tsupi32", "anew", indexed, ready, anew<by_value, 1>, 1, keys},
    {"tsupci32", "anew", indexed, on_live, anew<at_cursor>, 1, keys},
    {"tsupd32", "key changed", indexed, ready, [] { return by_number(changed_key.data(), 0); },
     TS_UPDATE_KEY_CHANGED},
    {"tspurge32", "plain", plain, ready, purge, 0, half},
    {"tspurge32", "indexed", indexed, ready, purge, 0, half},
    {"tspurge32", "variable", variable, ready, purge, 0, half},
    {"tspurge32", "all", indexed, delete_the_others, purge, 0, half},
    {"tspurge32", "nothing", scene::no_records, ready, purge, TS_PURGE_NOTHING_DELETED},

    // Index files.
    {"tscrind32", "", scene::no_records, ready, [] { return create_index(tscrind32); }},
    {"tscrindd32", "", plain, ready, [] { return create_index(build_index); }, 0, keys},
    {"tscrindd32", "variable", variable, ready, [] { return create_index(build_index); }, 2, keys},
    {"tsopeni32", "", scene::data_open, ready, open_index},
    {"tsclosei32", "clean", indexed, ready, [] { return tsclosei32(0, 1); }},
    {"tsclosei32", "changed", indexed, with_changes, [] { return tsclosei32(0, 1); }},
    {"tsstati32", "", indexed, ready, report},

    // Reading through a key.
    {"tsgeti32", "", indexed, ready, [] { return tsgeti32(0, 0, 0, i32(60).data(), body, told); }},
    {"tsgeti32", "missing", indexed, ready,
     [] { return tsgeti32(0, 0, 0, i32(61).data(), body, told); }, TS_FIND_NO_ENTRY},
    {"tsgetip32", "", variable, ready, [] { return tsgetip32(0, 0, 1, "m", 1, 0, body, told); }},
    {"tsgetipp32", "equal", indexed, ready, [] { return nearest(60); }},
    {"tsgetipp32", "in front", indexed, ready, [] { return nearest(59); }, 1},
    {"tsgetipp32", "behind all", indexed, ready, [] { return nearest(99); }, 1},
    {"tsgetipp32", "before all", indexed, ready, [] { return nearest(1); }, 2},
    {"tsgetfi32", "", indexed, ready, by_key<tsgetfi32>},
    {"tsgetli32", "", indexed, ready, by_key<tsgetli32>},
    {"tsgetni32", "", indexed, on_first, by_key<tsgetni32>},
    {"tsgetni32", "across", indexed, on_edge_of_leaf, by_key<tsgetni32>},
    {"tsgetni32", "at the end", indexed, on_last, by_key<tsgetni32>, TS_NEXT_ENTRY_AT_END},
    {"tsgetni32", "locked by the caller", indexed, locked_by_caller, by_key<tsgetni32>},
    {"tsgetpi32", "", indexed, on_last, by_key<tsgetpi32>},
    {"tsgetpi32", "across", indexed, behind_edge_of_leaf, by_key<tsgetpi32>},
    {"tsgetpi32", "at the start", indexed, on_first, by_key<tsgetpi32>, TS_PREVIOUS_ENTRY_AT_START},
    {"tsgetci32", "", indexed, on_live, by_key<tsgetci32>},
    {"tssetd2i32", "", indexed, on_live, [] { return tssetd2i32(0, 0, 0, told); }},
    {"tssetd2i32", "variable", variable, on_live, [] { return tssetd2i32(0, 0, 0, told); }},
    {"tsseti2d32", "", indexed, on_live, [] { return tsseti2d32(0, 0, 0, body, body + 32, told); }},
    {"tsseti2d32", "in new files", none, [] { create_data(), create_index(tscrind32); },
     [] { return tsseti2d32(0, 0, 0, body, body + 32, told); }, TS_NO_CURRENT_RECORD},

    // Ranges of the caller.
    {"tslockd32", "", plain, ready, in_shared_mode<lock_data, 1>, 1},
    {"tsulockd32", "", plain, held<lock_data>, in_shared_mode<[] { return tsulockd32(0); }, 0>},
    {"tslockdr32", "", plain, ready, in_shared_mode<[] { return tslockdr32(0, 2); }, 0>},
    {"tsulckdr32", "", plain, held<lock_record>,
     in_shared_mode<[] { return tsulckdr32(0, 3); }, 0>},
    {"tslocki32", "", indexed, ready, in_shared_mode<lock_index, 1>, 1},
    {"tsulocki32", "", indexed, held<lock_index>,
     in_shared_mode<[] { return tsulocki32(0, 0); }, 0>},
    {"tsulalld32", "", plain, held<lock_records>, in_shared_mode<[] { return tsulalld32(0); }, 2>,
     2},
    {"tsulalli32", "", indexed, held<lock_index>,
     in_shared_mode<[] { return tsulalli32(0, 0); }, 1>, 1},
};

class FunctionFaults : public FaultSweep, public testing::WithParamInterface<mode> {
protected:
    data_slot before_;
    data_slot at_end_; // of the run without failures

    void look_at_reference(const reference& run) override
    {
        at_end_ = data_slots[0];
        if (run.in_mode == mode::shared) {
            EXPECT_EQ(course_of(run.sites), expected_course(run.work));
        }
    }

    void look_at_state(const failed_call& failed) override
    {
        if (failed.lasts()) return;
        // A mark that can't be written is counted all the same.
        if (failed.site().goes_on) {
            EXPECT_EQ(data_slots[0].header.deleted_count, at_end_.header.deleted_count);
        }
        if (failed.code == TS_PURGE_END_POSITION) look_at_purged();
        const std::string function = failed.run.work.function;
        // Only the first read and the step back have moved when the record can't be read.
        const bool in_file_order = function.starts_with("tsget") && function.ends_with("d32");
        if (in_file_order &&
            (failed.code == TS_FRAME_READ_SHORT || failed.code == TS_BODY_READ_SHORT)) {
            const bool has_moved = function == "tsgetfd32" || function == "tsgetpd32";
            const data_slot& expected = has_moved ? at_end_ : before_;
            EXPECT_EQ(data_slots[0].current_record, expected.current_record);
        }
        if (function == "tsgetni32" || function == "tsgetpi32") look_at_cursor(failed, function);
        if (function == "tsadd32" && failed.ends_call())
            go_on_adding(failed, [](int32_t number) { return record_of(number); });
    }

    // The records are all in their new places by then.
    void look_at_purged() const
    {
        const data_slot& slot = data_slots[0];
        EXPECT_EQ(std::memcmp(&slot.header, &at_end_.header, sizeof slot.header), 0);
        EXPECT_EQ(slot.status, at_end_.status);
        EXPECT_EQ(slot.current_record, 1);
        EXPECT_EQ(slot.current_offset, at_end_.current_offset);
        EXPECT_EQ(slot.reuse_offset, no_offset);
    }

    // A failed step gives the cursor up only once it has left the leaf, and a walk can begin anew.
    static void look_at_cursor(const failed_call& failed, const std::string& function)
    {
        release_ranges();
        const key_slot& key = *data_slots[0].indexes[0]->keys[0];
        const bool left = key.position == no_position;
        if (failed.run.work.success == TS_OK) {
            const auto step = function == "tsgetni32" ? tsgetni32 : tsgetpi32;
            EXPECT_EQ(step(0, 0, 0, body, told), left ? TS_CURSOR_NONE : TS_OK);
        }
        EXPECT_EQ(tsgetfi32(0, 0, 0, body, told), TS_OK);
        EXPECT_EQ(std::string(body, 4), i32(10));
    }
};

TEST_P(FunctionFaults, EveryCallOfEveryFunction)
{
    const long long seed = setting("TARSIL32_FAULT_SEED", 61);
    const auto rounds = static_cast<size_t>(setting("TARSIL32_FAULT_ROUNDS", 1));
    random_order.seed(static_cast<uint64_t>(seed));
    std::set<std::string> functions;
    for (size_t n = 0; n < rounds * std::size(rows); ++n) {
        const row& each = rows[n % std::size(rows)];
        functions.insert(each.function);
        const workload work = {each.function,
                               each.title,
                               [&each] { build(each.files); },
                               [&each, this] {
                                   open(each.files), each.place();
                                   before_ = data_slots[0];
                               },
                               each.call,
                               each.success,
                               each.allowed};
        sweep_workload(work, GetParam());
    }
    EXPECT_EQ(functions.size(), 61U);
    std::printf("%zu workloads\n", std::size(rows));
    tell_total("failures of platform calls", static_cast<long long>(failures_made), seed);
}

INSTANTIATE_TEST_SUITE_P(AllModes, FunctionFaults, testing::ValuesIn(all_modes),
                         [](const auto& of) { return "mode_" + std::to_string(of.index); });

// The same calls where what they need isn't open.
using FunctionsWithoutFiles = Library;
TEST_F(FunctionsWithoutFiles, DoNothing)
{
    for (const row& each : rows) {
        SCOPED_TRACE(each.function);
        if (each.files == none || each.files == closed) continue;
        start_over(mode::shared);
        EXPECT_EQ(each.call(), TS_DATA_NOT_OPEN);
        const bool by_index = std::strstr(each.function, "i32") != nullptr;
        if (each.files != indexed || !by_index) continue;
        ASSERT_EQ(tscrdata32("d", record_bytes, 0, nullptr), 0);
        EXPECT_EQ(each.call(), TS_INDEX_NOT_OPEN);
    }
}

} // namespace
} // namespace tarsil::support
