// Damaged files: any byte and any four bytes of a sound pair of files set to the values that hurt,
// every length to which the files can be cut, and several such faults at once; with a program
// behind them that reads and one that changes things (tests/support/hostile_life.h).
//
// A short run takes one fault in so many. TARSIL32_DAMAGE_ROUNDS=1 takes them all, and a higher
// number lets so many programs live with each file; TARSIL32_DAMAGE_SEED says from which seed they
// are drawn.
#include "index/index_format.h"
#include "tests/support/checked.h"
#include "tests/support/hostile_life.h"
#include "tests/support/library_fixture.h"
#include "tests/support/settings.h"

#include <climits>
#include <random>
#include <set>

namespace tarsil {
namespace {

using namespace support;

// A number or letter of a file, `bytes` long, or parts of such.
struct place {
    bool in_index;
    size_t offset;
    size_t bytes;
};

// Everything but the blocks of keys that aren't there.
std::vector<place> places_of(const hostile_files& files)
{
    std::vector<place> places;
    const auto add = [&places](const std::string& file, size_t from, size_t to, bool in_index) {
        for (size_t offset = from; offset < std::min(to, file.size()); ++offset) {
            places.push_back({in_index, offset, 1});
            if (offset + 4 <= file.size()) places.push_back({in_index, offset, 4});
        }
    };
    const int32_t keys = load_i32(files.index.data() + key_count_offset);
    add(files.data, 0, files.data.size(), false);
    add(files.index, 0, static_cast<size_t>(key_records_offset + keys * key_record_bytes), true);
    add(files.index, first_node_offset, files.index.size(), true);
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
    const auto data_end = static_cast<int64_t>(files.data.size());
    const auto index_end = static_cast<int64_t>(files.index.size());
    const int64_t values[hurts] = {0,        1,        -1,       INT_MAX,  INT_MIN,
                                   near + 1, near - 1, near * 2, data_end, index_end};
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
        tell_total("different damaged files", damaged, seed);
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
        if (files.data == made.data && files.index == made.index) return; // set to what it was
        // The checker takes any content too.
        check_index(files.index, files.data);
        const std::hash<std::string> hash;
        if (met.insert({hash(files.data), hash(files.index)}).second) ++damaged;
        for (; scripts > 0; --scripts) {
            const std::vector<uint8_t> script = draw_script();
            ASSERT_EQ(live_with(files, script), "") << what << ", seed " << seed;
            ++lives;
        }
    }

    const bool is_short = setting("TARSIL32_DAMAGE_ROUNDS", 0) == 0;
    const int64_t rounds = std::max(1LL, setting("TARSIL32_DAMAGE_ROUNDS", 0));
    const long long seed = setting("TARSIL32_DAMAGE_SEED", 20261123);
    std::mt19937_64 random{static_cast<uint64_t>(seed)};
    hostile_files made;
    std::vector<place> places;
    // Of all tests here, since two changes can make one file.
    static inline std::set<std::pair<size_t, size_t>> met;
    long long damaged = 0; // each different
    long long lives = 0;
};

TEST_P(Damage, AnyNumberOfAnyStructureMayBeWrong)
{
    const size_t every = is_short ? 13 : 1;
    for (size_t i = random() % every; i < places.size() * hurts; i += every) {
        const place& where = places[i / hurts];
        hostile_files files = made;
        hurt(files, where, i % hurts);
        expect_promises(files, rounds,
                        (where.in_index ? "index at " : "data at ") + std::to_string(where.offset) +
                            ", way " + std::to_string(i % hurts));
        if (HasFatalFailure()) return;
    }
}

TEST_P(Damage, SeveralMayBeWrongAtOnce)
{
    for (int64_t i = 0; i < 4000 * rounds; ++i) {
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

class DamagedFrames : public Library {};

// A frame is believed as far as the file and the caller's room for a record go.
TEST_F(DamagedFrames, LeadNoReadAstray)
{
    const std::string two = frame("aaaa") + frame("bbbb");
    const auto code_with = [&two](int32_t record_length, size_t where, int32_t length) {
        sim::set_bytes("d", with(data_file(2, 0, record_length, 52, two), where, length));
        EXPECT_EQ(tsopend32("d"), 0);
        char body[4] = {};
        int32_t deleted = 0;
        const int32_t code = tsgetd32(0, 2, body, &deleted);
        EXPECT_EQ(std::string(body, 4), std::string(4, 0)) << "nothing is delivered";
        EXPECT_EQ(tsclosed32(0), TS_OK);
        return code;
    };
    for (const int32_t length : {INT32_MIN, -1, 0, 5, INT32_MAX}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(code_with(4, 44, length), TS_BODY_READ_SHORT);
        EXPECT_EQ(code_with(TS_VARIABLE_LENGTH, 44, length), TS_BODY_READ_SHORT);
        EXPECT_EQ(code_with(TS_VARIABLE_LENGTH, 32, length),
                  length == 5 ? TS_BODY_READ_SHORT : TS_FRAME_READ_POSITION);
    }
}

} // namespace
} // namespace tarsil
