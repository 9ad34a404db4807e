// Damaged files: every number and letter of every structure of a sound pair of files set to the
// values that hurt, every length to which the files can be cut, and pairs of such faults; with a
// program behind them that reads and one that changes things (tests/support/hostile_life.h).
//
// TARSIL32_DAMAGE_ROUNDS (1) says how many scripts live with each file that has one fault, and how
// many files have several; TARSIL32_DAMAGE_SEED from which seed all of that is drawn.
#include "data/data_format.h"
#include "index/index_format.h"
#include "tests/support/checked.h"
#include "tests/support/hostile_life.h"
#include "tests/support/library_fixture.h"
#include "tests/support/settings.h"

#include <climits>
#include <random>

namespace tarsil {
namespace {

using namespace support;

// A number or letter of a file, `bytes` long.
struct place {
    bool in_index;
    size_t offset;
    size_t bytes;
};

void add_data_places(const std::string& file, std::vector<place>& places)
{
    for (size_t offset = 0; offset < 28; offset += 4) places.push_back({false, offset, 4});
    const auto fields = static_cast<size_t>(load_i32(file.data() + 20));
    for (size_t offset = 28; offset < 28 + fields; offset += 4)
        places.push_back({false, offset, 4});
    for (size_t offset = 28 + fields; offset + frame_bytes <= file.size();) {
        places.push_back({false, offset, 1});
        places.push_back({false, offset + 4, 4});
        offset += frame_bytes + static_cast<size_t>(load_i32(file.data() + offset + 4));
    }
}

// The nodes of a key, from the one at `offset` down.
void add_node_places(const std::string& file, const key_record& key, int32_t offset,
                     std::vector<place>& places)
{
    const auto at = static_cast<size_t>(offset);
    const auto* node = reinterpret_cast<const unsigned char*>(file.data()) + at;
    const auto stride = static_cast<size_t>(entry_stride(key));
    const auto tail = at + static_cast<size_t>(key.node_bytes) - node_tail_bytes;
    for (size_t entry = 0; entry < static_cast<size_t>(key.max_entries); ++entry) {
        places.push_back({true, at + entry * stride, 4});
        places.push_back({true, at + entry * stride + 4, 4});
        places.push_back({true, at + entry * stride + stride - 4, 4});
    }
    places.push_back({true, tail, 4});
    places.push_back({true, tail + node_tail_bytes - 1, 1});
    if (is_leaf(key, node)) return;
    for (int32_t entry = 0; entry <= entry_count(key, node); ++entry) {
        const int32_t child = entry_link(entry_at(key, node, entry));
        if (child > 0) add_node_places(file, key, child, places);
    }
}

void add_index_places(const std::string& file, std::vector<place>& places)
{
    places.push_back({true, 0, 4});
    places.push_back({true, key_count_offset, 4});
    const int32_t keys = load_i32(file.data() + key_count_offset);
    for (int32_t number = 0; number < keys; ++number) {
        const auto start = static_cast<size_t>(key_records_offset + number * key_record_bytes);
        key_record key;
        std::memcpy(&key, file.data() + start, sizeof key);
        for (size_t offset = 0; offset < 20; offset += 4)
            places.push_back({true, start + offset, 4});
        for (size_t field = 0; field < static_cast<size_t>(key.field_count); ++field) {
            const size_t field_start = start + 20 + 16 * field;
            places.push_back({true, field_start, 1});
            places.push_back({true, field_start + 4, 4});
            places.push_back({true, field_start + 8, 4});
        }
        add_node_places(file, key, key.root_offset, places);
    }
}

std::vector<place> places_of(const hostile_files& files)
{
    std::vector<place> places;
    add_data_places(files.data, places);
    add_index_places(files.index, places);
    return places;
}

// What a place is set to: the values that hurt, and what stands near the right one.
constexpr size_t hurts = 10;

void hurt(hostile_files& files, const place& where, size_t how)
{
    std::string& file = where.in_index ? files.index : files.data;
    int32_t right = 0;
    std::memcpy(&right, file.data() + where.offset, where.bytes);
    const auto near = static_cast<int64_t>(right);
    const int64_t values[hurts] = {0,
                                   1,
                                   -1,
                                   INT_MAX,
                                   INT_MIN,
                                   near + 1,
                                   near - 1,
                                   near * 2,
                                   static_cast<int64_t>(files.data.size()),
                                   static_cast<int64_t>(files.index.size())};
    const auto value = static_cast<int32_t>(values[how]);
    std::memcpy(file.data() + where.offset, &value, where.bytes);
}

class Damage : public testing::TestWithParam<int32_t> {
protected:
    void SetUp() override
    {
        made = sound_files(GetParam());
        ASSERT_TRUE(check_data(made.data).findings.is_sound());
        ASSERT_TRUE(check_index(made.index, made.data).is_sound());
        places = places_of(made);
    }

    void TearDown() override
    {
        tell_total("damaged files", damaged, seed);
        tell_total("lives with damaged files", lives, seed);
    }

    // A script of reads alone, or of any calls.
    std::vector<uint8_t> draw_script()
    {
        std::vector<uint8_t> script(1 + 3 * (4 + random() % 24));
        const bool only_reads = random() % 4 == 0;
        for (size_t i = 0; i < script.size(); ++i) {
            script[i] = static_cast<uint8_t>(random());
            const bool is_call = i % 3 == 1;
            if (is_call && only_reads) script[i] = static_cast<uint8_t>(script[i] % reading_calls);
            if (i % 3 == 2 && random() % 2 == 0) script[i] %= 44;
        }
        return script;
    }

    void expect_promises(const hostile_files& files, long long scripts, const std::string& what)
    {
        // The checker takes any content too.
        check_index(files.index, files.data);
        ++damaged;
        for (; scripts > 0; --scripts) {
            const std::vector<uint8_t> script = draw_script();
            ASSERT_EQ(live_with(files, script), "") << what << ", seed " << seed;
            ++lives;
        }
    }

    const long long rounds = setting("TARSIL32_DAMAGE_ROUNDS", 1);
    const long long seed = setting("TARSIL32_DAMAGE_SEED", 20261123);
    std::mt19937_64 random{static_cast<uint64_t>(seed)};
    hostile_files made;
    std::vector<place> places;
    long long damaged = 0;
    long long lives = 0;
};

TEST_P(Damage, AnyNumberOfAnyStructureMayBeWrong)
{
    for (const place& where : places) {
        for (size_t how = 0; how < hurts; ++how) {
            hostile_files files = made;
            hurt(files, where, how);
            expect_promises(files, rounds,
                            (where.in_index ? "index at " : "data at ") +
                                std::to_string(where.offset) + ", way " + std::to_string(how));
            if (HasFatalFailure()) return;
        }
    }
}

TEST_P(Damage, SeveralMayBeWrongAtOnce)
{
    const long long several = 4 * rounds * static_cast<long long>(places.size());
    for (long long i = 0; i < several; ++i) {
        hostile_files files = made;
        for (size_t faults = 2 + random() % 4; faults > 0; --faults)
            hurt(files, places[random() % places.size()], random() % hurts);
        expect_promises(files, 1, "several, number " + std::to_string(i));
        if (HasFatalFailure()) return;
    }
}

TEST_P(Damage, FilesMayEndAnywhere)
{
    for (size_t bytes = 0; bytes < made.data.size(); ++bytes) {
        expect_promises({made.data.substr(0, bytes), made.index}, rounds, "data cut");
        if (HasFatalFailure()) return;
    }
    // The blocks of keys that aren't there mean nothing, cut or not.
    for (size_t bytes = 0; bytes < made.index.size(); ++bytes) {
        if (bytes > 700 && bytes < first_node_offset && bytes % 64 != 0) continue;
        expect_promises({made.data, made.index.substr(0, bytes)}, rounds, "index cut");
        if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Files, Damage, testing::Values(20, TS_VARIABLE_LENGTH),
                         [](const auto& of) { return of.param > 0 ? "fixed" : "variable"; });

} // namespace
} // namespace tarsil
