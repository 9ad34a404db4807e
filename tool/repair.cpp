// tarsil repair: makes the header of a data file anew from its records.
//
// The library does it (tsrbdbh32). What it would refuse, or do otherwise than is wanted, is found
// out before (tool/repair_plan.h), and half a record at the end of the file is cut off.
#include <cerrno>
#include <cstring>

#include <unistd.h>

#include "check/data_check.h"
#include "check/index_check.h"
#include "tool/command.h"
#include "tool/compaction.h"
#include "tool/file_guard.h"
#include "tool/opening.h"
#include "tool/output.h"
#include "tool/repair_plan.h"

namespace tarsil::tool {

namespace {

struct repair_options {
    std::string data;
    std::vector<std::string> indexes;
    bool may_become_variable = false;
    int32_t precision = default_precision;
};

outcome make_plan(const repair_options& options, check::file_bytes& bytes, repair_plan& plan)
{
    plan.before = check::check_data_file(bytes);
    const outcome planned = plan_repair(options.data, bytes, plan);
    if (!planned || !plan.becomes_variable || options.may_become_variable) return planned;
    return failure{fmt::format("{}: has records of {} to {} bytes, and would become a file of "
                               "variable length; nothing was changed",
                               options.data, plan.found.shortest, plan.found.longest),
                   fmt::format("`tarsil salvage {} NEW` keeps those of the right length; "
                               "--variable goes on",
                               options.data)};
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

json header_json(int64_t records, int64_t deleted, int64_t length, int64_t end)
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
                  {"cut_at", plan.cut_bytes > 0 ? json(now.end) : json()},
                  {"cut_bytes", plan.cut_bytes},
                  {"before", header_json(old.record_count, old.deleted_count, old.record_length,
                                         old.end_offset)},
                  {"found", plan.is_needed ? header_json(now.records, now.deleted, length, now.end)
                                           : json()},
                  {"reindex", stale}});
        return;
    }
    if (!plan.is_needed) print("{}: nothing to repair\n", options.data);
    const char* const would = common.dry_run ? "would be " : "";
    if (plan.cut_bytes > 0)
        print("{}: {} bytes of half a record {}cut off at {}\n", options.data,
              grouped(plan.cut_bytes), would, now.end);
    if (plan.is_needed)
        print("{}: the header {}made anew: {}, {} of them deleted; it told {} and {}\n",
              options.data, common.dry_run ? "would be " : "", counted(now.records, "record"),
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
    if (done) done = make_plan(options, bytes, plan);
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

run_command declare_repair(option_set& options, common_options& common)
{
    auto given = std::make_shared<repair_options>();
    options.add("DATA", given->data, "The data file").required();
    options.add("INDEX", given->indexes, "Index files to look at afterwards");
    options.add("--variable", given->may_become_variable,
                "Let a file whose records have different lengths become one of variable "
                "length");
    options
        .add("--precision", given->precision,
             "Digits in which float and double keys were told apart when they were built")
        .between(0, 100)
        .shows_default();
    add_wait(options, common);
    add_json(options, common);
    add_dry_run(options, common);
    return [given, &common] { return run(*given, common); };
}

} // namespace tarsil::tool
