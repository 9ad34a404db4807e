// The driver of failures; see tests/unit/fault_sweep.h.
#include "tests/unit/fault_sweep.h"

#include "index/slots.h"
#include "tests/support/checked.h"

#include <algorithm>

namespace tarsil::support {
namespace {

using sim::call;

std::string describe(const sim::logged& call)
{
    static const char* const kinds[] = {"open",   "create", "close",    "remove",
                                        "read",   "write",  "position", "lock",
                                        "unlock", "flush",  "zero",     "allocate"};
    return std::string(kinds[static_cast<size_t>(call.kind)]) + " " + call.file + " at " +
           std::to_string(call.offset) + ", " + std::to_string(call.length);
}

std::string describe(const failed_call& failed)
{
    return std::string(failed.run.work.function) + ", " + failed.run.work.title + ", mode " +
           std::to_string(static_cast<int>(failed.run.in_mode)) + ", call " +
           std::to_string(failed.at + 1) + " of " + std::to_string(failed.run.sites.size()) + ": " +
           describe(failed.site().call) +
           (failed.planned.how == sim::failure::error ? "" : " short") +
           (failed.lasts() ? ", for good" : ", times " + std::to_string(failed.planned.times));
}

// The ways in which a call can fail, which is the nth of all and of its kind.
std::vector<sim::fault> failures_of(const sim::logged& met, uint64_t nth, uint64_t nth_of_kind)
{
    std::vector<sim::fault> all = {{.at = nth}, {.at = nth, .times = sim::for_good}};
    if (met.kind == call::read || met.kind == call::write) {
        for (const uint64_t times : {uint64_t{1}, sim::for_good})
            all.push_back({nth_of_kind, times, sim::only(met.kind), sim::failure::one_byte_short});
    }
    if (met.kind == call::lock || met.kind == call::unlock)
        all.push_back({.at = nth_of_kind, .times = lock_tries, .where = sim::only(met.kind)});
    return all;
}

// The files as a call leaves them.
void apply(file_images& files, const sim::logged& done, size_t missing_bytes = 0)
{
    if (!done.done) return;
    const auto offset = static_cast<size_t>(done.offset);
    if (done.kind == call::create) files[done.file];
    if (done.kind == call::zero)
        std::fill_n(files[done.file].begin() + done.offset, done.length, '\0');
    if (done.kind != call::write) return;
    const std::string_view written = done.written;
    overwrite(files[done.file], offset, written.substr(0, written.size() - missing_bytes));
}

using ranges = std::set<sim::range>;

ranges set_of(const std::vector<sim::range>& all) { return {all.begin(), all.end()}; }

sim::range range_of(const sim::logged& met) { return {met.file, met.offset, met.length}; }

// What the run without failures holds right before a call.
ranges held_at(const reference& run, size_t at)
{
    ranges held = set_of(run.held_before);
    for (size_t i = 0; i < at; ++i) {
        const sim::logged& met = run.sites[i].call;
        if (met.done && met.kind == call::lock) held.insert(range_of(met));
        if (met.done && met.kind == call::unlock) held.erase(range_of(met));
    }
    return held;
}

std::string text_of(const ranges& all)
{
    std::string text;
    for (const sim::range& each : all)
        text += each.file + ":" + std::to_string(each.offset) + "+" + std::to_string(each.length) +
                " ";
    return text;
}

bool is_part_of(const ranges& part, const ranges& whole)
{
    return std::includes(whole.begin(), whole.end(), part.begin(), part.end());
}

// Does this range stand once the call that serves it has failed for good? A request that did not
// come back to its position has been carried out.
bool stands_afterwards(const failed_call& failed)
{
    const fault_site& site = failed.site();
    const bool placing = failed.run.sites[site.range].call.kind == call::lock;
    return placing == (site.what == step::come_back);
}

bool is_named(const failed_call& failed, std::initializer_list<std::string_view> names)
{
    const std::string_view function = failed.run.work.function;
    return std::find(names.begin(), names.end(), function) != names.end();
}

// A purge keeps its brackets once it has begun to walk, but for those that it gives back at its
// end.
ranges kept_by_purge(const failed_call& failed)
{
    const reference& run = failed.run;
    ranges held = held_at(run, failed.at);
    std::erase_if(held, [](const sim::range& each) { return each.length != whole_file; });
    std::string given_back = failed.site().code == TS_PURGE_END_POSITION ? "d" : "";
    const size_t transfer = failed.site().transfer;
    if (transfer != nowhere && failed.site().code != TS_PURGE_END_POSITION) {
        const auto is_header = [](const fault_site& site) {
            return site.call.kind == call::write && is_header_bracket(site.call);
        };
        const auto header = std::find_if(run.sites.begin(), run.sites.end(), is_header);
        const bool at_end = header != run.sites.end() && transfer >= header->transfer;
        if (at_end) given_back = run.sites[transfer].call.file;
    }
    std::erase_if(held, [&](const sim::range& each) { return each.file == given_back; });
    return held;
}

bool purge_has_begun(const failed_call& failed)
{
    const auto& sites = failed.run.sites;
    const auto end = sites.begin() + static_cast<std::ptrdiff_t>(failed.at) + 1;
    return is_named(failed, {"tspurge32"}) &&
           std::any_of(sites.begin(), end,
                       [](const fault_site& each) { return each.code == TS_FRAME_READ_POSITION; });
}

// The ranges that have to be held after the call. Where the platform goes on failing, or a range
// went for the length of a flush, this is the most of it.
ranges expected_ranges(const failed_call& failed)
{
    const reference& run = failed.run;
    const fault_site& site = failed.site();
    if (failed.is_retried()) return set_of(run.held_at_end);
    ranges held = set_of(site.passed_over ? run.held_at_end : run.held_before);
    if (failed.ends_call() && purge_has_begun(failed)) held = kept_by_purge(failed);
    if (site.what == step::flush)
        std::erase_if(held, [&](const sim::range& each) { return each.file == site.call.file; });
    if (site.range != nowhere && !site.asked_again) {
        const sim::range range = range_of(run.sites[site.range].call);
        stands_afterwards(failed) ? void(held.insert(range)) : void(held.erase(range));
    }
    // What is open no more holds nothing.
    const std::vector<std::string> open = sim::open_files();
    std::erase_if(held, [&](const sim::range& each) {
        return std::find(open.begin(), open.end(), each.file) == open.end();
    });
    return held;
}

bool is_exact(const failed_call& failed)
{
    if (is_named(failed, {"tsulalld32", "tsulalli32"})) return false;
    return !failed.lasts() && !failed.site().in_flush && !failed.site().goes_on;
}

void judge_ranges(const failed_call& failed)
{
    const ranges held = set_of(sim::ranges());
    ranges expected = expected_ranges(failed);
    if (is_exact(failed)) {
        EXPECT_EQ(text_of(held), text_of(expected));
        return;
    }
    // A failure within a flush leaves the ranges of the end or of the start, but for its own.
    if (failed.lasts() || !failed.site().in_flush || purge_has_begun(failed))
        expected.merge(held_at(failed.run, failed.at));
    if (failed.site().range != nowhere)
        expected.insert(range_of(failed.run.sites[failed.site().range].call));
    for (const sim::range& each : failed.run.held_before) expected.insert(each);
    EXPECT_TRUE(is_part_of(held, expected)) << text_of(held) << "| " << text_of(expected);
}

// An index of which only the last release failed: it stays open.
bool is_index_left_open(const failed_call& failed)
{
    const fault_site& site = failed.site();
    return is_named(failed, {"tscrind32", "tscrindd32", "tsopeni32"}) && site.range != nowhere &&
           !site.in_flush && failed.run.sites[site.range].call.kind == call::unlock &&
           is_whole_file(failed.run.sites[site.range].call);
}

// Of the slot of a data file that couldn't be opened: spoilt once the file was looked into.
char expected_status(const failed_call& failed)
{
    const fault_site& site = failed.site();
    const sim::logged* range = site.range == nowhere ? nullptr : &failed.run.sites[site.range].call;
    const bool untouched = range != nullptr && !site.in_flush && range->kind == call::lock &&
                           is_whole_file(*range);
    if (is_named(failed, {"tscrdata32"}) || untouched || site.code == TS_REBUILD_NO_SIZE)
        return slot_free;
    const bool looked_into = site.call.kind != call::open || site.code == TS_VERSION_READ_POSITION;
    return looked_into ? slot_spoilt : slot_free;
}

// A function that opens a file and fails lets it go. All others leave open what is open.
void judge_handles(const failed_call& failed)
{
    const reference& run = failed.run;
    if (is_named(failed, {"tsclosed32", "tsclosei32"}) || is_index_left_open(failed)) return;
    const bool of_data = is_named(failed, {"tscrdata32", "tsopend32", "tsrbdbh32"});
    if (of_data && failed.ends_call() && !failed.lasts()) {
        EXPECT_EQ(data_slots[0].status, expected_status(failed));
    }
    const bool opened = failed.code >= 0 || run.work.success < 0;
    EXPECT_EQ(sim::open_handles(), opened ? run.open_at_end : run.open_before);
    if (!opened) { EXPECT_LE(sim::live_blocks(), std::max(run.blocks_before, run.blocks_at_end)); }
}

// The table says what the platform holds, and every open handle belongs to a slot.
void judge_tables()
{
    std::multiset<std::pair<int64_t, int64_t>> held, told;
    for (const sim::range& each : sim::ranges()) held.insert({each.offset, each.length});
    for (int32_t i = 0; lock_table != nullptr && i < 8 * files_per_slot * row_entries; ++i) {
        if (lock_table[i].offset != no_offset)
            told.insert({lock_table[i].offset, lock_table[i].length});
    }
    EXPECT_EQ(held, told);

    size_t handles = 0;
    for (const data_slot& slot : data_slots) {
        if (slot.status != slot_clean && slot.status != slot_dirty) continue;
        handles += slot.file == platform::no_file ? 0 : 1;
        for (const index_slot* index : slot.indexes)
            handles += index != nullptr && index->file != platform::no_file ? 1 : 0;
    }
    EXPECT_EQ(sim::open_handles(), handles);
    EXPECT_EQ(sim::stray_closes(), 0U);
}

void judge_code(const failed_call& failed)
{
    const reference& run = failed.run;
    const fault_site& site = failed.site();
    if (failed.is_retried()) {
        EXPECT_EQ(failed.code, run.work.success);
        return;
    }
    std::set<int32_t> expected = {site.code, site.or_code};
    // A range over the mark that couldn't be given back is in the way of what comes behind.
    if (site.goes_on && is_shared_mode(run.in_mode)) expected.insert(TS_LOCK_REFUSED);
    if (failed.lasts()) {
        for (size_t i = failed.at; i < run.sites.size(); ++i)
            expected.insert({run.sites[i].code, run.sites[i].or_code});
        if (failed.ends_call()) expected.erase(run.work.success);
        if (is_named(failed, {"tsrbdbh32"})) // of the end of the records, read as a frame
            expected.insert({TS_FRAME_READ_SHORT, TS_FRAME_READ_POSITION});
        // Of a release behind a failed transfer, and of a second try of a lock.
        expected.insert({TS_LOCK_NO_POSITION, TS_LOCK_POSITION});
    }
    EXPECT_TRUE(expected.count(failed.code) == 1)
        << failed.code << " and not " << testing::PrintToString(expected);
}

// What write-through promises: a record, a header and a node are on the disk before anything else
// is written to that file. In the other modes nothing waits for the disk.
void judge_flushes(const reference& run)
{
    const auto& sites = run.sites;
    for (size_t at = 0; at < sites.size(); ++at) {
        if (!writes_through(run.in_mode)) { EXPECT_NE(sites[at].what, step::flush); }
        const bool flushed = sites[at].what == step::transfer &&
                             (sites[at].code == TS_RECORD_WRITE_SHORT ||
                              sites[at].code == TS_HEADER_WRITE_SHORT ||
                              sites[at].code == TS_NODE_WRITE_SHORT);
        if (!flushed || !writes_through(run.in_mode)) continue;
        size_t next = at + 1;
        const auto concerns = [&](const sim::logged& met) {
            return met.file == sites[at].call.file &&
                   (met.kind == call::flush || met.kind == call::write);
        };
        while (next < sites.size() && !concerns(sites[next].call)) ++next;
        EXPECT_TRUE(next < sites.size() && sites[next].what == step::flush)
            << describe(sites[at].call) << " is not flushed";
    }
}

// May the files differ from what they were, in the way that the workload allows? Not before the
// first write; but a delete counts what it couldn't mark, a purge drops the trees as soon as it
// looks at the records, and the header that is rebuilt was wrong before.
bool may_have_changed(const failed_call& failed)
{
    if (failed.site().goes_on || is_named(failed, {"tsrbdbh32"})) return true;
    const auto& sites = failed.run.sites;
    const auto end = sites.begin() + static_cast<std::ptrdiff_t>(failed.at) + 1;
    return purge_has_begun(failed) || std::any_of(sites.begin(), end, [](const fault_site& each) {
               return each.call.kind == call::write || each.call.kind == call::zero;
           });
}

// Where removing fails as well, what couldn't be finished stays.
file_images files_to_judge(const failed_call& failed)
{
    file_images files = sim::files();
    if (failed.lasts())
        std::erase_if(files,
                      [&](const auto& each) { return failed.run.built.count(each.first) == 0; });
    return files;
}

int failed_parts()
{
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

// However far a purge has come, each live record stands somewhere.
void judge_half_purged(const failed_call& failed, const std::string& data)
{
    if (failed.planned.how != sim::failure::error) return;
    const std::string& before = failed.run.before.at("d");
    for (const auto& [at, whole] : frames_in(before, before.size())) {
        const bool is_there = data.find(whole) != std::string::npos;
        EXPECT_TRUE(is_there || whole[0] == mark_deleted) << "from " << at;
    }
}

} // namespace

bool failed_call::is_retried() const
{
    const bool is_range = site().call.kind == call::lock || site().call.kind == call::unlock;
    return is_range && planned.times < lock_tries;
}

void FaultSweep::start_with(const file_images& files, mode in_mode)
{
    begin();
    sim::offer_looks(turn_ % 2 == 0);
    switch_to(in_mode);
    for (const auto& [name, bytes] : files) sim::set_bytes(name, bytes);
}

void FaultSweep::let_go()
{
    sim::clear_fault();
    release_ranges();
    EXPECT_EQ(sim::held_ranges(), 0U);
    tsautoup32('n'); // a flush that has failed once fails for good
    finish();
}

void FaultSweep::run_without_failure(reference& run)
{
    begin();
    run.work.build();
    finish();
    run.built = sim::files();

    start_with(run.built, run.in_mode);
    run.work.open();
    run.before = sim::files();
    run.held_before = sim::ranges();
    run.open_before = sim::open_handles();
    run.blocks_before = sim::live_blocks();
    sim::start_recording();
    const int32_t code = run.work.call();
    EXPECT_EQ(code, run.work.success);
    run.sites = find_sites(sim::log(), run.work.function, run.work.success,
                           is_shared_mode(run.in_mode));
    run.held_at_end = sim::ranges();
    run.open_at_end = sim::open_handles();
    run.blocks_at_end = sim::live_blocks();
    run.at_end = sim::files();
    judge_tables();
    judge_flushes(run);
    look_at_reference(run);
    let_go();
    judge_findings(leaves::sound_files, find_in(sim::files(), leaves::sound_files));
}

void FaultSweep::judge_files(const failed_call& failed, const file_images& files)
{
    const leaves allowed = failed.run.work.allowed;
    if (allowed == leaves::half_purged) judge_half_purged(failed, files.at("d"));
    const fault_site& site = failed.site();
    const bool is_let_go = site.call.kind == call::close || site.what == step::give_back;
    const bool goes_unnoticed = site.passed_over && is_let_go && !failed.lasts();
    if (failed.is_retried() || goes_unnoticed) { EXPECT_TRUE(files == failed.run.at_end); }
    if (!failed.ends_call()) return;

    file_images expected = written_;
    if (failed.planned.how == sim::failure::one_byte_short) apply(expected, failed.site().call, 1);
    for (const auto& [name, bytes] : expected) {
        const auto file = files.find(name);
        // What this call has created and couldn't finish is taken away again.
        const bool may_be_gone = failed.run.before.count(name) == 0;
        if (file == files.end()) {
            EXPECT_TRUE(may_be_gone) << name;
        } else {
            EXPECT_TRUE(file->second == bytes) << name << " is not as written so far";
            const bool is_whole = bytes == failed.run.at_end.at(name);
            if (may_be_gone && !failed.lasts()) {
                EXPECT_TRUE(is_whole || is_index_left_open(failed)) << name << " stays";
            }
        }
    }
    EXPECT_LE(files.size(), expected.size());
}

void FaultSweep::fail(const failed_call& planned)
{
    failed_call failed = planned;
    const testing::ScopedTrace trace(__FILE__, __LINE__, describe(failed));
    start_with(failed.run.built, failed.run.in_mode);
    failed.run.work.open();
    sim::plan(failed.planned);
    failed.code = failed.run.work.call();
    sim::clear_fault();
    EXPECT_GT(sim::faults_met(), 0U);
    ++failures_made;

    judge_code(failed);
    judge_ranges(failed);
    judge_tables();
    judge_handles(failed);
    judge_files(failed, sim::files());
    look_at_state(failed);
    let_go();
    const leaves allowed = may_have_changed(failed) ? failed.run.work.allowed : leaves::sound_files;
    const found_files& found = find_in(files_to_judge(failed), allowed);
    judge_findings(allowed, found);
    look_at_files(failed, found);
}

void FaultSweep::sweep_workload(const workload& work, mode in_mode)
{
    const testing::ScopedTrace trace(__FILE__, __LINE__,
                                     std::string(work.function) + ", " + work.title + ", mode " +
                                         std::to_string(static_cast<int>(in_mode)));
    reference run(work, in_mode);
    checked_.clear();
    ++turn_;
    run_without_failure(run);
    written_ = run.before;
    const int parts = failed_parts(); // the first failure of a workload tells enough
    uint64_t of_kind[sim::call_kinds] = {};
    for (size_t at = 0; at < run.sites.size(); ++at) {
        const sim::logged& met = run.sites[at].call;
        const uint64_t nth_of_kind = ++of_kind[static_cast<size_t>(met.kind)];
        if ((at + turn_) % failures_every_ == 0) {
            for (const sim::fault& each : failures_of(met, at + 1, nth_of_kind)) {
                if (failed_parts() == parts) fail({run, at, each});
            }
        }
        apply(written_, met);
    }
}

} // namespace tarsil::support
