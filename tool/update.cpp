// tarsil update: new values for some fields of one record.
//
// Between the reading and the writing nobody else can change the record: the files are locked. A
// record whose key changes can't stay where it is; it is deleted and added anew, if that is asked
// for.

#include "tool/assignments.h"
#include "tool/opening.h"
#include "tool/output.h"

namespace tarsil::tool {

namespace {

struct request {
    std::string data;
    int32_t number = 0;
    std::vector<std::string> indexes;
    std::vector<std::string> assignments;
    bool may_move = false;
    duplicates repeated = duplicates::allow;

    key_change keys() const
    {
        if (!may_move) return key_change::refuse;
        return repeated == duplicates::allow ? key_change::move : key_change::move_if_unique;
    }
};

failure failure_of_update(const status& why, const request& wanted)
{
    const std::string what = fmt::format("{}, record {}", wanted.data, wanted.number);
    switch (why.code()) {
    case TS_UPDATE_KEY_CHANGED:
        return {what + ": a field of a key changes, so the record can't stay in its place",
                "give --move to delete it and add it anew, under a new number"};
    case TS_UPDATE_LENGTH_DIFFERS:
        return {what + ": the record would change its length",
                "delete it and add the new one instead"};
    case TS_UPDATE_RECORD_DELETED:
        return {what + ": is deleted", "bring it back by `tarsil undelete` first"};
    case TS_BAD_RECORD_NUMBER:
        return {what + ": there is no such record", "`tarsil info` tells how many there are"};
    case TS_DUPLICATE_KEY:
        return {what + ": a record with the same value of a key is there already",
                why.half_done() ? "the record is deleted now; `tarsil undelete` brings it back"
                                : "change the value, or give --duplicates yes"};
    default: return failure_on(why, wanted.data);
    }
}

// Answers the record's number afterwards.
answer<int32_t> store(const request& wanted, open_files& files, bool is_dry_run)
{
    result<file_lock> lock = file_lock();
    if (files.is_shared) lock = files.data.lock_all();
    if (!lock) return failure_on(lock, wanted.data);
    const result<record> old = files.data.get(wanted.number);
    if (!old) return failure_of_update(old, wanted);
    if (old->deleted) return failure_of_update(status(TS_UPDATE_RECORD_DELETED), wanted);
    record_builder made(files.fields, false, false);
    made.begin(old->bytes);
    const outcome sound = assign(made, wanted.assignments, files.fields);
    if (!sound) return sound.why();
    if (made.bytes().size() != old->bytes.size())
        return failure_of_update(status(TS_UPDATE_LENGTH_DIFFERS), wanted);
    if (is_dry_run) return wanted.number;
    const result<updated> done = files.data.update(wanted.number, made.bytes(), wanted.keys());
    if (!done) return failure_of_update(done, wanted);
    if (*done == updated::in_place) return wanted.number;
    const result<file_position> where = files.data.position();
    if (!where) return failure_on(where, wanted.data);
    return where->number;
}

int run(const request& wanted, const common_options& common)
{
    answer<open_files> files = open(wanted.data, wanted.indexes, common);
    if (!files) return fail(files.why());
    const outcome all_counted = wanted.may_move ? check_all_counted(*files) : outcome();
    if (!all_counted) return fail(all_counted.why());
    if (!common.dry_run) note_other_indexes(wanted.data, wanted.indexes);
    const answer<int32_t> number = store(wanted, *files, common.dry_run);
    const outcome closed = files->close();
    if (!number) return fail(number.why());
    if (!closed) return fail(closed.why());
    if (common.json) {
        put_json({{"file", wanted.data},
                  {"updated", !common.dry_run},
                  {"old_record", wanted.number},
                  {"record", *number}});
    } else if (*number == wanted.number) {
        print("{}: record {} {}\n", wanted.data, *number,
              common.dry_run ? "would be updated" : "updated");
    } else {
        print("{}: record {} is now record {}\n", wanted.data, wanted.number, *number);
    }
    return exit_done;
}

} // namespace

run_command declare_update(option_set& options, common_options& common)
{
    auto wanted = std::make_shared<request>();
    options.add("DATA", wanted->data, "The data file").required();
    options.add("N", wanted->number, "Number of the record").required().from_one();
    options.add("INDEX", wanted->indexes, "Its index files");
    add_assignments(options, wanted->assignments);
    options.add("--move", wanted->may_move,
                "Where a key changes: delete the record and add the new one");
    add_duplicates(options, wanted->repeated);
    add_for_changes(options, common);
    return [wanted, &common] { return run(*wanted, common); };
}

} // namespace tarsil::tool
