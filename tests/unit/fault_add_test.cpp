// tsadd32 under failures: beside what holds for all functions, what is counted in memory, the noted
// slot, and which keys of which index hold the record, wherever it was left.
//
// Append and reuse of a deleted slot, the first one noted or a later one; none to two indexes of
// one or three keys, with room in the leaves and without; duplicates refused and allowed; fixed and
// variable length; all modes.
#include "tests/support/settings.h"
#include "tests/unit/fault_sweep.h"

#include <algorithm>

namespace tarsil::support {
namespace {

using sim::call;

// A record is three numbers and a letter; key n is over number n.
std::string record_of(int32_t number)
{
    return i32(number) + i32(-number) + i32(number * 7 % 100) + "x";
}

enum class slot : uint8_t {
    end_of_file,
    first_noted,
    second_noted, // the first one is alone in a leaf
    none_fits     // so that the record is appended
};

struct shape {
    int32_t indexes;
    int32_t keys; // of each index
    char duplicates;
    slot taken;
    int32_t records; // before
    bool variable;
    int32_t number; // of the record added
    int32_t success = TS_OK;
};

std::string name_of(int32_t index_handle) { return "i" + std::to_string(index_handle); }

void add_all(const std::vector<int32_t>& numbers)
{
    for (const int32_t number : numbers)
        ASSERT_EQ(tsadd32(0, record_of(number).c_str(), 13, 'y'), TS_OK);
}

void build(const shape& how)
{
    ASSERT_EQ(tscrdata32("d", how.variable ? TS_VARIABLE_LENGTH : 13, 0, nullptr), 0);
    for (int32_t i = 0; i < how.indexes; ++i) {
        std::vector<key_definition> keys;
        for (int32_t k = 0; k < how.keys; ++k) keys.push_back(define_key(2, {{'l', 4, 4 * k}}));
        ASSERT_EQ(tscrind32(0, name_of(i).c_str(), how.keys, keys.data()), i);
    }
    add_all({0, 10, 20, 30, 40});
    if (how.taken == slot::second_noted || how.taken == slot::none_fits) {
        // The leaves of key 0 are 0 10 20 and 30 40. 30 goes, 5 comes: 40 stays alone.
        tsdelow32('y');
        ASSERT_EQ(tsdeld32(0, 4), TS_OK);
        add_all({5});
        tsdelow32('n');
        ASSERT_EQ(tsdeld32(0, 5), TS_OK);
        for (int32_t n = 5; n < how.records; ++n) add_all({n - 4});
    } else {
        for (int32_t n = 5; n < how.records; ++n) add_all({10 * n});
    }
    if (how.taken == slot::first_noted) { ASSERT_EQ(tsdeld32(0, 2), TS_OK); }
    if (how.taken == slot::end_of_file || how.taken == slot::none_fits) return;
    for (const int32_t number : {6, 7}) ASSERT_EQ(tsdeld32(0, number), TS_OK);
}

void open(const shape& how)
{
    tsdelow32(how.taken == slot::end_of_file ? 'n' : 'y');
    ASSERT_EQ(tsopend32("d"), 0);
    char cursors[] = "yyyyyyyy";
    for (int32_t i = 0; i < how.indexes; ++i)
        ASSERT_EQ(tsopeni32(0, name_of(i).c_str(), cursors), i);
}

class AddFaults : public FaultSweep {
protected:
    const shape* how_ = nullptr;
    size_t blocks_ = 0;
    data_slot before_{}, at_end_{}; // of the run without failures
    size_t stored_ = 0;             // the place in its log of the write with which the add counts

    bool reuses() const
    {
        return how_->taken == slot::first_noted || how_->taken == slot::second_noted;
    }

    void sweep_shape(const shape& how)
    {
        how_ = &how;
        workload work;
        work.function = "tsadd32";
        work.title = std::to_string(how.indexes) + " indexes of " + std::to_string(how.keys) +
                     " keys, place " + std::to_string(static_cast<int>(how.taken)) + ", " +
                     std::to_string(how.records) + " records";
        work.build = [&how] { build(how); };
        work.open = [this, &how] { open(how), before_ = data_slots[0]; };
        work.call = [&how] {
            const int32_t length = how.success == TS_RECORD_TOO_SHORT ? 0 : 13;
            return tsadd32(0, record_of(how.number).c_str(), length, how.duplicates);
        };
        work.success = how.success;
        work.allowed = leaves::keys_behind;
        for (const mode each : all_modes) {
            if (!HasFailure()) sweep_workload(work, each);
        }
    }

    void sweep_shapes(int32_t indexes, int32_t keys, int32_t number)
    {
        constexpr slot slots[] = {slot::end_of_file, slot::first_noted, slot::second_noted,
                                  slot::none_fits};
        for (const char duplicates : {'n', 'y'}) {
            for (const int32_t records : {7, 8, 12}) {
                for (const slot taken : slots) {
                    if (indexes == 0 && taken > slot::first_noted) continue;
                    sweep_shape({indexes, keys, duplicates, taken, records, false, number});
                }
                sweep_shape({indexes, keys, duplicates, slot::end_of_file, records, true, number});
            }
        }
    }

    void look_at_reference(const reference& run) override
    {
        blocks_ = sim::live_blocks();
        at_end_ = data_slots[0];
        size_t last_write = nowhere;
        stored_ = nowhere;
        for (size_t at = 0; at < run.sites.size(); ++at) {
            const sim::logged& met = run.sites[at].call;
            if (!is_data(met.file) || met.kind != call::write) continue;
            last_write = at;
            if (is_header_bracket(met)) stored_ = at;
        }
        stored_ = std::min(stored_, last_write);
        if (how_->success == TS_OK) return;
        EXPECT_EQ(sim::held_ranges(), 0U);
        EXPECT_TRUE(run.at_end == run.before);
    }

    // What a record has taken it keeps, from the write on that counts it; what wasn't written is
    // never counted.
    void look_at_state(const failed_call& failed) override
    {
        EXPECT_EQ(sim::live_blocks(), blocks_);
        if (failed.lasts() || !failed.ends_call()) return;
        const bool stored = failed.at > stored_;
        const data_header& now = data_slots[0].header;
        const data_header& expected = stored ? at_end_.header : before_.header;
        if (failed.site().transfer != stored_) {
            EXPECT_EQ(now.record_count, expected.record_count);
            EXPECT_EQ(now.deleted_count, expected.deleted_count);
            EXPECT_EQ(now.end_offset, expected.end_offset);
        }
        if (stored && how_->taken == slot::first_noted) {
            EXPECT_NE(data_slots[0].reuse_offset, before_.reuse_offset);
        }
        if (failed.at % 2 == 0) add_another(stored);
    }

    // Work goes on: no further add goes over the record.
    void add_another(bool stored)
    {
        const std::string record = frame(record_of(how_->number));
        const size_t place = sim::bytes("d").find(record);
        if (stored) { EXPECT_NE(place, std::string::npos); }
        release_ranges();
        tsautoup32('n');
        // A split that failed half way can leave a branch without a child for what is behind it.
        const int32_t code = tsadd32(0, record_of(77).c_str(), 13, 'y');
        EXPECT_TRUE(code == TS_OK || (stored && code == TS_NODE_DAMAGED)) << code;
        if (stored && reuses()) { EXPECT_EQ(sim::bytes("d").find(record), place); }
    }
};

TEST_F(AddFaults, LeaveWhatTheyPromise)
{
    const long long seed = setting("TARSIL32_FAULT_SEED", 4);
    const long long rounds = std::max(1LL, setting("TARSIL32_FAULT_ROUNDS", 0));
    if (setting("TARSIL32_FAULT_ROUNDS", 0) == 0) failures_every_ = 13;
    for (long long round = 0; round < rounds && !HasFailure(); ++round) {
        const auto number = static_cast<int32_t>(51 + (seed + round) % 9); // among those there
        for (const int32_t indexes : {0, 1, 2}) {
            for (const int32_t keys : {1, 3}) sweep_shapes(indexes, keys, number);
        }
        sweep_shape({2, 3, 'n', slot::first_noted, 8, false, 20, TS_DUPLICATE_KEY});
        sweep_shape({2, 3, 'y', slot::end_of_file, 8, true, number, TS_RECORD_TOO_SHORT});
    }
    tell_total("failures of platform calls in adds", static_cast<long long>(failures_made), seed);
}

} // namespace
} // namespace tarsil::support
