// tarsil purge: takes the deleted records out in place and builds the given indexes anew.
//
// One call of the library, with no way back from an interruption, which the manual says; Ctrl-C is
// only noted meanwhile. The file keeps its length, but its end is given back to the disk.

#include "check/data_check.h"
#include "tool/command.h"
#include "tool/opening.h"
#include "tool/output.h"
#include "tool/watch.h"

namespace tarsil::tool {

namespace {

struct request {
    std::string data;
    std::vector<std::string> indexes;
};

// The counts of the header decide what a purge leaves: records that it doesn't know of would go.
outcome check_data(const open_files& files)
{
    const std::string name = files.data.name();
    result<file_lock> lock = file_lock();
    if (files.is_shared) lock = files.data.lock_all();
    if (!lock) return failure_on(lock, name);
    check::file_bytes bytes;
    if (bytes.open(name.c_str()) != check::open_result::opened)
        return failure{name + ": can't be read", "check its permissions"};
    const check::data_report report = check::check_data_file(bytes);
    if (bytes.failed()) return failure{name + ": can't be read", "check the disk"};
    if (report.findings.is_sound()) return {};
    return failure{name + ": is damaged; nothing was changed",
                   "`tarsil check` tells what is wrong and what mends it"};
}

answer<int32_t> purge(const request& wanted, open_files& files)
{
    const watch watching("purging " + wanted.data, wanted.data, 0);
    const result<int32_t> removed = files.data.purge();
    if (removed.code() == TS_PURGE_NOTHING_DELETED) return 0;
    if (!removed) return failure_on(removed, wanted.data);
    return *removed;
}

int run(const request& wanted, const common_options& common)
{
    answer<open_files> files = open(wanted.data, wanted.indexes, common, usual_mode::alone);
    if (!files) return fail(files.why());
    const outcome sound = check_data(*files);
    if (!sound) return fail(sound.why());
    const result<file_facts> facts = files->data.facts();
    if (!facts) return fail(failure_on(facts, wanted.data));
    if (facts->deleted > 0) note_other_indexes(wanted.data, wanted.indexes);
    answer<int32_t> removed = facts->deleted;
    if (!common.dry_run) removed = purge(wanted, *files);
    const outcome closed = files->close();
    if (!removed) return fail(removed.why());
    if (!closed) return fail(closed.why());
    if (common.json)
        put_json({{"file", wanted.data},
                  {common.dry_run ? "would_remove" : "removed", *removed},
                  {"records", facts->records - *removed}});
    else
        print("{}: {} {}, {} left\n", wanted.data, counted(*removed, "deleted record"),
              common.dry_run ? "would be removed" : "removed", grouped(facts->records - *removed));
    return exit_done;
}

} // namespace

run_command declare_purge(option_set& options, common_options& common)
{
    auto wanted = std::make_shared<request>();
    options.add("DATA", wanted->data, "The data file").required();
    options.add("INDEX", wanted->indexes, "All of its index files");
    add_sharing(options, common);
    add_json(options, common);
    add_dry_run(options, common);
    return [wanted, &common] { return run(*wanted, common); };
}

} // namespace tarsil::tool
