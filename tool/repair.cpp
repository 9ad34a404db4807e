// tarsil repair: makes the header of a data file anew from its records.
//
// The library does it (tsrbdbh32), but takes a file as a whole: it refuses one that ends with half
// a record, as a kill in the middle of an add leaves it, and makes a file of variable length where
// one record has another length than the rest. So the frames are gone through here first. Half a
// record at the very end is cut off, if nothing in it looks like records; whatever else is wrong is
// a matter for `tarsil salvage`.
#include <cerrno>
#include <cstring>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "check/data_check.h"
#include "check/index_check.h"
#include "core/letters.h"
#include "tool/command.h"
#include "tool/compaction.h"
#include "tool/file_guard.h"
#include "tool/frame_scanner.h"
#include "tool/opening.h"
#include "tool/output.h"

namespace tarsil::tool {

namespace {

struct repair_options {
    std::string data;
    std::vector<std::string> indexes;
    bool may_become_variable = false;
    int32_t precision = default_precision;
};

// What a rebuild of the header would find.
struct frame_count {
    int64_t records = 0;
    int64_t deleted = 0;
    int64_t end = 0; // behind the last whole record
    int32_t shortest = INT32_MAX;
    int32_t longest = 0;

    bool is_mixed() const { return records > 0 && shortest != longest; }
};

struct repair_plan {
    check::data_report before;
    frame_count found;
    int64_t cut_bytes = 0; // half a record at the end
    bool is_needed = false;
};

frame_count count_frames(check::file_bytes& bytes, int64_t first)
{
    frame_count count;
    count.end = first;
    for (;;) {
        record_frame frame = {};
        const check::byte_span stored = bytes.at(count.end, frame_bytes);
        if (stored.empty()) return count;
        std::memcpy(&frame, stored.data(), sizeof frame);
        if (frame.length < 1 || frame.length > bytes.size() - count.end - frame_bytes) return count;
        ++count.records;
        count.deleted += frame.mark == mark_deleted ? 1 : 0;
        count.shortest = std::min(count.shortest, frame.length);
        count.longest = std::max(count.longest, frame.length);
        count.end += frame_bytes + int64_t{frame.length};
    }
}

// Is what lies behind the last whole record the front of one more, and nothing else? A header that
// tells records behind it, within the file, says no.
bool is_half_record(check::file_bytes& bytes, const repair_plan& plan)
{
    const int64_t from = plan.found.end;
    const int64_t left = bytes.size() - from;
    const check::byte_span frame = bytes.at(from, frame_bytes);
    const bool is_one_length = plan.found.records > 0 && !plan.found.is_mixed() &&
                               plan.before.header.record_length != TS_VARIABLE_LENGTH;
    const int32_t told = is_one_length ? plan.found.longest : plan.before.header.record_length;
    const int64_t told_end = plan.before.header.end_offset;
    if (told_end > from && told_end <= bytes.size()) return false;
    const int32_t length = frame.empty() ? 1
                                         : load_i32(frame.data() + offsetof(record_frame, length));
    if (length < 1 || (told >= 1 && !frame.empty() && length != told)) return false;
    if (told >= 1 && left >= int64_t{frame_bytes} + told) return false;
    frame_scanner scanner(bytes,
                          {.record_length = told >= 1 ? told : TS_VARIABLE_LENGTH, .first = from});
    return scanner.find_chain(from + 1) == bytes.size();
}

// --- What is to be done ------------------------------------------------------------------------

failure for_salvage(const std::string& name, const std::string& what)
{
    return {name + ": " + what + "; nothing was changed",
            fmt::format("`tarsil salvage {} NEW` saves what can be read", name)};
}

outcome plan_repair(const repair_options& options, check::file_bytes& bytes, repair_plan& plan)
{
    const std::string& name = options.data;
    plan.before = check::check_data_file(bytes);
    if (bytes.failed()) return for_salvage(name, "can't be read to its end");
    if (!plan.before.is_data_file)
        return failure{name + ": doesn't begin with the mark of a data file",
                       "if it is a damaged one, `tarsil salvage` saves what can be read"};
    plan.is_needed = !plan.before.findings.is_sound();
    if (!plan.is_needed) return {};
    if (!plan.before.is_walked) return for_salvage(name, "the place of the records can't be told");

    plan.found = count_frames(bytes, int64_t{field_table_offset} + plan.before.header.field_bytes);
    const bool is_whole = check::only_zeros_from(bytes, plan.found.end);
    if (!is_whole && !is_half_record(bytes, plan))
        return for_salvage(name, fmt::format("from {} on there are no whole records, and more "
                                             "follows than half a one",
                                             plan.found.end));
    if (!is_whole) plan.cut_bytes = bytes.size() - plan.found.end;
    const bool becomes_variable = plan.found.is_mixed() &&
                                  plan.before.header.record_length != TS_VARIABLE_LENGTH;
    if (becomes_variable && !options.may_become_variable)
        return failure{fmt::format("{}: has records of {} to {} bytes, and would become a file of "
                                   "variable length; nothing was changed",
                                   name, plan.found.shortest, plan.found.longest),
                       fmt::format("`tarsil salvage {} NEW` keeps those of the right length; "
                                   "--variable goes on",
                                   name)};
    return {};
}

// --- Doing it ----------------------------------------------------------------------------------

outcome cut_tail(const file_guard& guard, int64_t end)
{
    const bool done = ftruncate(guard.descriptor(), end) == 0 && fsync(guard.descriptor()) == 0;
    if (done) return {};
    return failure{guard.name() + ": can't be cut: " + std::strerror(errno),
                   "check its permissions and the disk"};
}

outcome rebuild(const repair_options& options, const common_options& common)
{
    const answer<library> started = start_library(common, false);
    if (!started) return started.why();
    result<data_file> file = started->rebuild(options.data);
    if (!file) return failure_on(file, options.data);
    const status closed = file->close();
    if (!closed) return failure_on(closed, options.data);
    return {};
}

// What a look at the files afterwards shows: the data file has to be sound, and the index files
// that aren't are listed.
outcome look_again(const repair_options& options, const common_options& common,
                   check::data_report& after, std::vector<std::string>& stale)
{
    check::frame_list frames;
    check::file_bytes data;
    const answer<file_guard> guard = file_guard::look(options.data, common.wait_seconds);
    if (!guard) return guard.why();
    outcome done = guard->read(data);
    if (!done) return done;
    after = check::check_data_file(data, &frames);
    const check::data_side side{data, frames};
    for (const std::string& name : options.indexes) {
        const answer<file_guard> index = file_guard::look(name, common.wait_seconds);
        if (!index) return index.why();
        check::file_bytes bytes;
        done = index->read(bytes);
        if (!done) return done;
        if (!check::check_index_file(bytes, after.is_walked ? &side : nullptr, options.precision)
                 .is_sound())
            stale.push_back(name);
    }
    return {};
}

// --- Telling -----------------------------------------------------------------------------------

nlohmann::ordered_json header_json(int64_t records, int64_t deleted, int64_t length, int64_t end)
{
    return {{"records", records}, {"deleted", deleted}, {"record_length", length}, {"end", end}};
}

void tell(const repair_options& options, const repair_plan& plan,
          const std::vector<std::string>& stale, const common_options& common)
{
    const data_header& old = plan.before.header;
    const frame_count& now = plan.found;
    if (common.json) {
        const int64_t length = now.is_mixed() || now.records == 0 ? old.record_length : now.longest;
        put_json({{"file", options.data},
                  {"needed", plan.is_needed},
                  {"repaired", plan.is_needed && !common.dry_run},
                  {"cut_at", plan.cut_bytes > 0 ? nlohmann::ordered_json(now.end) : nullptr},
                  {"cut_bytes", plan.cut_bytes},
                  {"before", header_json(old.record_count, old.deleted_count, old.record_length,
                                         old.end_offset)},
                  {"found", plan.is_needed ? header_json(now.records, now.deleted, length, now.end)
                                           : nlohmann::ordered_json()},
                  {"reindex", stale}});
        return;
    }
    if (!plan.is_needed) print("{}: nothing to repair\n", options.data);
    const char* const would = common.dry_run ? "would be " : "";
    if (plan.cut_bytes > 0)
        print("{}: {} bytes of half a record {}cut off at {}\n", options.data,
              grouped(plan.cut_bytes), would, now.end);
    if (plan.is_needed)
        print("{}: the header {}made anew: {} records, {} of them deleted; it told {} and {}\n",
              options.data, common.dry_run ? "would be " : "", grouped(now.records),
              grouped(now.deleted), grouped(old.record_count), grouped(old.deleted_count));
    std::string names;
    for (const std::string& name : stale) names += " " + name;
    if (!stale.empty())
        print("To mend the index files: tarsil reindex {}{}\n", options.data, names);
    if (plan.is_needed && options.indexes.empty())
        print("`tarsil check {} INDEX...` tells whether its index files fit.\n", options.data);
}

int run(const repair_options& options, const common_options& common)
{
    outcome done = common.dry_run ? outcome()
                                  : settle_compaction(options.data, common.wait_seconds);
    if (!done) return fail(done.why());
    answer<file_guard> guard = file_guard::alone(options.data, common.wait_seconds);
    if (!guard) return fail(guard.why());
    check::file_bytes bytes;
    done = guard->read(bytes);
    repair_plan plan;
    if (done) done = plan_repair(options, bytes, plan);
    const bool is_changing = plan.is_needed && !common.dry_run;
    if (done && is_changing && plan.cut_bytes > 0) done = cut_tail(*guard, plan.found.end);
    guard->release();
    if (done && is_changing) done = rebuild(options, common);
    check::data_report after;
    std::vector<std::string> stale;
    if (done && !common.dry_run) done = look_again(options, common, after, stale);
    if (!done) return fail(done.why());
    tell(options, plan, stale, common);
    if (!common.dry_run && !after.findings.is_sound())
        return fail({options.data + ": is not sound yet", "`tarsil check` tells what is wrong"});
    return stale.empty() ? exit_done : exit_partly;
}

} // namespace

run_command declare_repair(CLI::App& options, common_options& common)
{
    auto given = std::make_shared<repair_options>();
    options.add_option("DATA", given->data, "The data file")->required();
    options.add_option("INDEX", given->indexes, "Index files to look at afterwards");
    options.add_flag("--variable", given->may_become_variable,
                     "Let a file whose records have different lengths become one of variable "
                     "length");
    options
        .add_option("--precision", given->precision,
                    "Digits in which float and double keys were told apart when they were built")
        ->check(CLI::Range(0, 100))
        ->capture_default_str();
    add_wait(options, common);
    add_json(options, common);
    add_dry_run(options, common);
    return [given, &common] { return run(*given, common); };
}

} // namespace tarsil::tool
