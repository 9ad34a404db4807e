// tsadd32 under failures, exit by exit: where the call that failed belongs to, by the log of the
// run without failures, and what that exit leaves: counts in memory, the noted slot, records, and
// which keys of which index hold the record.
//
// Append and reuse of a deleted slot, the first one noted or a later one; none to two indexes of
// one or three keys, with room in the leaves and without; duplicates refused and allowed; fixed and
// variable length; all modes. Every exit must have been seen at the end.
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

// The exits in the order of the flow.
enum exit : uint8_t {
    header_bracket,
    header_read,
    check_bracket,
    check_roots,
    check_search,
    check_release,
    candidate_body,
    candidate_bracket,
    candidate_roots,
    candidate_search,
    candidate_release,
    next_candidate,
    next_candidate_body,
    record_written,
    header_written,
    update_bracket,
    update_key_records,
    update_root,
    update_removal,
    update_insertion,
    update_release,
    update_store,
    next_slot,
    exit_count,
    no_exit // an allocation, the release of the header bracket: the add goes on
};
constexpr const char* exit_names[] = {
    "header bracket",       "header read",       "check: bracket",     "check: roots",
    "check: search",        "check: release",    "candidate: body",    "candidate: bracket",
    "candidate: roots",     "candidate: search", "candidate: release", "next candidate",
    "next candidate: body", "record written",    "header written",     "update: bracket",
    "update: key records",  "update: root",      "update: removal",    "update: insertion",
    "update: release",      "update: store",     "next slot"};

// The way that a run without failures took, by the places in its log.
class flow {
public:
    flow(const reference& the_run, const shape& its_shape) : run(the_run), how(its_shape)
    {
        const auto& all = run.sites;
        for (size_t at = 0; at < all.size(); ++at) {
            const sim::logged& met = all[at].call;
            if (met.kind == call::allocate) first_block = std::min(first_block, at);
            if (!is_data(met.file) || met.kind != call::write) continue;
            first_write = std::min(first_write, at);
            if (is_header_bracket(met)) header = at;
        }
        first_block = std::min(first_block, first_write);
        for (size_t at = all.size(); at-- > 0 && header == nowhere;)
            if (is_data(all[at].call.file) && all[at].call.kind == call::write) header = at;
    }

    exit exit_of(size_t at) const
    {
        const fault_site& site = run.sites[at];
        const bool of_bracket = site.range != nowhere && !site.in_flush &&
                                is_bracket(run.sites[site.range].call);
        if (of_bracket) return exit_of_bracket(at, run.sites[site.range].call);
        if (site.call.kind == call::allocate || site.transfer == nowhere) return no_exit;
        if (site.passed_over) return no_exit;
        const size_t transfer = site.transfer;
        const sim::logged& met = run.sites[transfer].call;
        if (transfer >= first_write && transfer <= header && is_data(met.file))
            return is_header_bracket(met) ? header_written : record_written;
        if (transfer > header) return is_data(met.file) ? next_slot : exit_of_update(transfer);
        if (is_data(met.file)) return exit_of_data_read(transfer);
        const bool checking = transfer < first_block;
        const bool of_root = is_key_records(met) || is_root(met);
        if (checking) return of_root ? check_roots : check_search;
        return of_root ? candidate_roots : candidate_search;
    }

private:
    const reference& run;
    const shape& how;
    size_t first_block = nowhere; // where a slot begins to be looked for
    size_t first_write = nowhere;
    size_t header = nowhere; // where it is written, or the record where the header waits

    static bool is_key_records(const sim::logged& met) { return met.length == 2208; }

    // Only in multi-user mode are roots read.
    bool is_root(const sim::logged& met) const
    {
        const check::index_report report = check::check_index_image(
            {reinterpret_cast<const unsigned char*>(run.before.at(met.file).data()),
             run.before.at(met.file).size()},
            {});
        return std::any_of(report.keys.begin(), report.keys.end(),
                           [&](const auto& key) { return key.key.root_offset == met.offset; });
    }

    exit exit_of_bracket(size_t at, const sim::logged& range) const
    {
        const bool placing = range.kind == call::lock;
        if (is_data(range.file)) {
            if (at < 4) return header_bracket;
            if (run.sites[at].asked_again) return no_exit;
            return at > header ? next_slot : next_candidate;
        }
        if (at > header) return placing ? update_bracket : update_release;
        if (at < first_block) return placing ? check_bracket : check_release;
        return placing ? candidate_bracket : candidate_release;
    }

    // Reads of records by the search of a slot. A candidate's body is read right before its entries
    // are looked at.
    exit exit_of_data_read(size_t transfer) const
    {
        if (transfer < first_block) return header_read;
        int32_t blocks = 0;
        for (size_t at = 0; at < transfer; ++at)
            blocks += run.sites[at].call.kind == call::allocate ? 1 : 0;
        if (blocks <= 1) return candidate_body;
        size_t reads_behind = 0;
        for (size_t at = transfer + 1; at < first_write; ++at) {
            const sim::logged& met = run.sites[at].call;
            if (!is_data(met.file) || met.kind == call::allocate) break;
            if (met.kind == call::read) ++reads_behind;
        }
        const bool last_two = reads_behind < 2 && how.taken == slot::second_noted;
        return last_two ? next_candidate_body : next_candidate;
    }

    exit exit_of_update(size_t transfer) const
    {
        const sim::logged& met = run.sites[transfer].call;
        const bool shared = !run.sites[0].call.file.empty() &&
                            run.sites[0].what == step::ask_position;
        size_t writes_of_nodes = 0; // since the root was read
        bool last = true;           // transfer of this index
        for (size_t at = header + 1; at < run.sites.size(); ++at) {
            const sim::logged& other = run.sites[at].call;
            if (run.sites[at].what != step::transfer || other.file != met.file) continue;
            if (at > transfer) last = false;
            if (at >= transfer) continue;
            if (other.kind == call::read && is_root(other)) writes_of_nodes = 0;
            if (other.kind == call::write && !is_key_records(other)) ++writes_of_nodes;
        }
        if (is_key_records(met) && met.kind == call::read) return update_key_records;
        if (is_key_records(met) && shared && last) return update_store;
        if (met.kind == call::read && shared && is_root(met) && writes_of_nodes == 0)
            return update_root;
        const bool removing = how.taken == slot::first_noted || how.taken == slot::second_noted;
        const bool first = met.kind == call::write && !is_key_records(met) && writes_of_nodes == 0;
        return removing && first ? update_removal : update_insertion;
    }
};

class AddFaults : public FaultSweep {
protected:
    bool seen_[exit_count] = {};
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
        if (how_->success == TS_OK) return;
        EXPECT_EQ(sim::held_ranges(), 0U);
        EXPECT_TRUE(run.at_end == run.before);
    }

    void look_at_state(const failed_call& failed) override
    {
        EXPECT_EQ(sim::live_blocks(), blocks_);
        worked_on_ = false;
        if (failed.lasts() || !failed.ends_call()) return;
        const exit met = flow(failed.run, *how_).exit_of(failed.at);
        if (met == no_exit) return;
        seen_[met] = true;
        const data_slot& data = data_slots[0];
        // In multi-user mode the search for the next slot reads whatever header is in the file.
        const bool read_anew = met == header_written && reuses() && is_shared();
        const data_slot& expected = met <= record_written ? before_ : at_end_;
        EXPECT_EQ(data.header.record_count, expected.header.record_count) << exit_names[met];
        if (!read_anew) { EXPECT_EQ(data.header.deleted_count, expected.header.deleted_count); }
        EXPECT_EQ(data.header.end_offset, expected.header.end_offset) << exit_names[met];
        if (met < candidate_body) { EXPECT_EQ(data.reuse_offset, before_.reuse_offset); }
        if (met == next_candidate_body) { EXPECT_GT(data.reuse_offset, before_.reuse_offset); }
        if (met >= header_written && how_->taken == slot::first_noted) {
            EXPECT_NE(data.reuse_offset, before_.reuse_offset);
        }
        if (failed.at % 2 == 0) go_on_adding(failed, record_of);
        worked_on_ = failed.at % 2 == 0;
    }

    void look_at_files(const failed_call& failed, const found_files& found) override
    {
        if (failed.lasts() || !failed.ends_call() || worked_on_) return;
        const exit met = flow(failed.run, *how_).exit_of(failed.at);
        if (met < record_written || met == no_exit) return;
        const check::data_report& data = found.data;
        const int64_t stored = at_end_.header.record_count;
        if (met == record_written) { EXPECT_EQ(data.records, before_.header.record_count); }
        if (met == header_written) { EXPECT_EQ(data.records + data.tail_records, stored); }
        if (met <= header_written) return;
        EXPECT_EQ(data.records, stored);
        EXPECT_TRUE(data.findings.is_sound());
        const std::string& file = failed.run.sites[failed.at].call.file;
        for (const auto& [name, report] : found.indexes) {
            const bool done = met == update_release || met == update_store;
            const bool begun = met != update_bracket && met != update_key_records;
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

TEST_F(AddFaults, EveryExitLeavesWhatItPromises)
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
    for (int32_t each = 0; each < exit_count; ++each)
        EXPECT_TRUE(seen_[each]) << exit_names[each] << " was never left by";
    tell_total("failures of platform calls in adds", static_cast<long long>(failures_made), seed);
}

} // namespace
} // namespace tarsil::support
