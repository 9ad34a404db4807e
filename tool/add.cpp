// tarsil add: one record, its fields by name.

#include "tool/assignments.h"
#include "tool/opening.h"
#include "tool/output.h"

namespace tarsil::tool {

namespace {

struct request {
    std::string data;
    std::vector<std::string> indexes;
    std::vector<std::string> assignments;
    duplicates repeated = duplicates::allow;
    bool is_partial = false;
};

answer<int32_t> store(const request& wanted, open_files& files, const record_builder& made)
{
    const status stored = files.data.add(made.bytes(), wanted.repeated);
    if (stored.code() == TS_DUPLICATE_KEY && !stored.half_done())
        return failure{wanted.data + ": a record with the same value of a key is there already",
                       "change the value, or give --duplicates yes"};
    if (!stored) return failure_on(stored, wanted.data);
    const result<file_position> where = files.data.position();
    if (!where) return failure_on(where, wanted.data);
    return where->number;
}

int run(const request& wanted, const common_options& common)
{
    answer<open_files> files = open(wanted.data, wanted.indexes, common);
    if (!files) return fail(files.why());
    const outcome all_counted = check_all_counted(*files);
    if (!all_counted) return fail(all_counted.why());
    record_builder made(files->fields, wanted.is_partial, false);
    made.begin();
    const outcome sound = assign(made, wanted.assignments, files->fields);
    if (!sound) return fail(sound.why());
    if (common.dry_run) {
        if (common.json) return put_json({{"file", wanted.data}, {"would_add", 1}}), exit_done;
        print("{}: a record of {} bytes would be added\n", wanted.data, made.bytes().size());
        return exit_done;
    }
    note_other_indexes(wanted.data, wanted.indexes);
    const answer<int32_t> number = store(wanted, *files, made);
    const outcome closed = files->close();
    if (!number) return fail(number.why());
    if (!closed) return fail(closed.why());
    if (common.json)
        put_json({{"file", wanted.data}, {"record", *number}});
    else
        print("{}: record {} added\n", wanted.data, *number);
    warn_of_size(wanted.data);
    return exit_done;
}

} // namespace

run_command declare_add(option_set& options, common_options& common)
{
    auto wanted = std::make_shared<request>();
    options.add("DATA", wanted->data, "The data file").required();
    options.add("INDEX", wanted->indexes, "Its index files");
    add_assignments(options, wanted->assignments);
    options.add("--partial", wanted->is_partial,
                "Fields that aren't set are 0 or empty, instead of an error");
    add_duplicates(options, wanted->repeated);
    add_for_changes(options, common);
    return [wanted, &common] { return run(*wanted, common); };
}

} // namespace tarsil::tool
