// tsadd32 under failures: what it was at when a call failed, by the log of the run without
// failures, and what it leaves then: counts in memory, the noted slot, records, and which keys of
// which index hold the record.
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

// What an add is at, in this order.
enum stage : uint8_t { checking, choosing, storing, counting, keys, next_slot, goes_on };

// The way that a run without failures took, by the places in its log.
struct flow {
    const std::vector<fault_site>& sites;
    size_t first_block = nowhere; // where a slot begins to be looked for
    size_t first_write = nowhere;
    size_t header = nowhere; // where it is written, or the record where the header waits

    explicit flow(const reference& run) : sites(run.sites)
    {
        for (size_t at = 0; at < sites.size(); ++at) {
            const sim::logged& met = sites[at].call;
            if (met.kind == call::allocate) first_block = std::min(first_block, at);
            if (!is_data(met.file) || met.kind != call::write) continue;
            first_write = std::min(first_write, at);
            if (header == nowhere || is_header_bracket(met) ||
                !is_header_bracket(sites[header].call))
                header = at;
        }
        first_block = std::min(first_block, first_write);
    }

    // What a call serves: a bracket by itself, or else a transfer. An allocation, or the release of
    // the header bracket, lets the add go on.
    size_t served_by(size_t at) const
    {
        const fault_site& site = sites[at];
        if (site.range != nowhere && !site.in_flush && is_bracket(sites[site.range].call))
            return site.asked_again ? nowhere : at;
        return site.call.kind == call::allocate || site.passed_over ? nowhere : site.transfer;
    }

    stage stage_of(size_t served) const
    {
        if (served == nowhere) return goes_on;
        if (served < first_block) return checking;
        if (served < first_write) return choosing;
        const sim::logged& met = sites[served].call;
        if (!is_data(met.file)) return keys;
        if (served > header) return next_slot;
        return is_header_bracket(met) ? counting : storing;
    }

    // Whether nodes of this index are read or written there.
    bool has_nodes(const std::string& file, size_t from, size_t to) const
    {
        constexpr int64_t all_key_records = 2208;
        return std::any_of(sites.begin() + static_cast<std::ptrdiff_t>(from),
                           sites.begin() + static_cast<std::ptrdiff_t>(to),
                           [&](const fault_site& site) {
                               return site.what == step::transfer && site.call.file == file &&
                                      site.call.length != all_key_records;
                           });
    }
};

class AddFaults : public FaultSweep {
protected:
    const shape* how_ = nullptr;
    size_t blocks_ = 0;
    data_slot at_end_{}; // of the run without failures
    data_slot before_{};
    bool worked_on_ = false;

    bool reuses() const
    {
        return how_->taken == slot::first_noted || how_->taken == slot::second_noted;
    }

    void sweep_shape(const shape& how)
    {
        how_ = &how;
        const auto add = [&how] {
            const int32_t length = how.success == TS_RECORD_TOO_SHORT ? 0 : 13;
            return tsadd32(0, record_of(how.number).c_str(), length, how.duplicates);
        };
        const std::string title = std::to_string(how.indexes) + " indexes of " +
                                  std::to_string(how.keys) + " keys, place " +
                                  std::to_string(static_cast<int>(how.taken)) + ", " +
                                  std::to_string(how.records) + " records";
        const auto open_all = [this, &how] { open(how), before_ = data_slots[0]; };
        const workload work = {"tsadd32", title,       [&how] { build(how); }, open_all,
                               add,       how.success, leaves::keys_behind};
        for (const mode each : all_modes) {
            if (!HasFailure()) sweep_workload(work, each);
        }
    }

    void sweep_shapes(int32_t indexes, int32_t keys, int32_t number)
    {
        constexpr slot slots[] = {slot::end_of_file, slot::first_noted, slot::second_noted,
                                  slot::none_fits};
        for (const char duplicates : {'n', 'y'}) {
            for (const int32_t records : {7, 8, 10, 12}) {
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
        if (how_->success == TS_OK) return;
        EXPECT_EQ(sim::held_ranges(), 0U);
        EXPECT_TRUE(run.at_end == run.before);
    }

    void look_at_state(const failed_call& failed) override
    {
        EXPECT_EQ(sim::live_blocks(), blocks_);
        worked_on_ = false;
        if (failed.lasts() || !failed.ends_call()) return;
        const flow the_way(failed.run);
        const stage met = the_way.stage_of(the_way.served_by(failed.at));
        if (met == goes_on) return;
        const data_slot& data = data_slots[0];
        // In multi-user mode the search for the next slot reads whatever header is in the file.
        const bool read_anew = met == counting && reuses() && is_shared();
        const data_slot& expected = met <= storing ? before_ : at_end_;
        EXPECT_EQ(data.header.record_count, expected.header.record_count) << met;
        if (!read_anew) { EXPECT_EQ(data.header.deleted_count, expected.header.deleted_count); }
        EXPECT_EQ(data.header.end_offset, expected.header.end_offset) << met;
        if (met == storing && how_->taken != slot::second_noted) {
            EXPECT_EQ(data.current_record, before_.current_record);
            EXPECT_EQ(data.current_offset, before_.current_offset);
        }
        if (met == checking) { EXPECT_EQ(data.reuse_offset, before_.reuse_offset); }
        if (met == choosing) { EXPECT_GE(data.reuse_offset, before_.reuse_offset); }
        if (met >= counting && how_->taken == slot::first_noted) {
            EXPECT_NE(data.reuse_offset, before_.reuse_offset);
        }
        if (failed.at % 2 == 0) go_on_adding(failed, record_of);
        worked_on_ = failed.at % 2 == 0;
    }

    void look_at_files(const failed_call& failed, const found_files& found) override
    {
        if (failed.lasts() || !failed.ends_call() || worked_on_) return;
        const flow the_way(failed.run);
        const size_t served = the_way.served_by(failed.at);
        const stage met = the_way.stage_of(served);
        if (met < storing || met == goes_on) return;
        const check::data_report& data = found.data;
        const int64_t stored = at_end_.header.record_count;
        if (met == storing) { EXPECT_EQ(data.records, before_.header.record_count); }
        if (met == counting) { EXPECT_EQ(data.records + data.tail_records, stored); }
        if (met <= counting) return;
        EXPECT_EQ(data.records, stored);
        EXPECT_TRUE(data.findings.is_sound());
        const std::string& file = failed.site().call.file;
        const bool begun = the_way.has_nodes(file, the_way.header, served + 1);
        const bool done = !the_way.has_nodes(file, served, failed.run.sites.size());
        for (const auto& [name, report] : found.indexes) {
            const bool all = met == next_slot || name < file || (name == file && done);
            judge_keys(report, all, !all && (name > file || !begun));
        }
    }

    // Keys are brought up one after the other: first those that hold the record, then one that may
    // or may not, then those that lack it.
    void judge_keys(const check::index_report& report, bool all, bool none) const
    {
        size_t held = 0;
        while (held < report.keys.size() && report.keys[held].findings.is_sound()) ++held;
        if (all) { EXPECT_EQ(held, report.keys.size()); }
        if (none) { EXPECT_EQ(held, 0U); }
        for (size_t key = none ? 0 : held + 1; key < report.keys.size(); ++key) {
            // Where the slot held another record, the entry of that one is still there.
            EXPECT_EQ(report.keys[key].missing_entries, reuses() ? 0 : 1) << "key " << key;
            EXPECT_EQ(report.keys[key].findings.total(), 1) << "key " << key;
        }
    }
};

TEST_F(AddFaults, EveryStageLeavesWhatItPromises)
{
    const long long seed = setting("TARSIL32_FAULT_SEED", 4);
    const long long rounds = std::max(1LL, setting("TARSIL32_FAULT_ROUNDS", 0));
    if (setting("TARSIL32_FAULT_ROUNDS", 0) == 0) failures_every_ = 5;
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
