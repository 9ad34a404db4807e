// tarsil delete and tarsil undelete: the mark of records, by number. Keys stay as they are, so no
// index file is needed.

#include "tool/command.h"
#include "tool/opening.h"
#include "tool/output.h"

namespace tarsil::tool {

namespace {

struct request {
    std::string data;
    std::vector<int32_t> numbers;
    bool is_undelete = false;

    const char* done() const { return is_undelete ? "undeleted" : "deleted"; }
};

// A record that is as wanted already is told and does no harm.
bool is_so_already(int32_t code)
{
    return code == TS_DELETE_RECORD_DELETED || code == TS_UNDELETE_RECORD_LIVE;
}

status mark(const request& wanted, open_files& files, int32_t number, bool is_dry_run)
{
    if (!is_dry_run)
        return wanted.is_undelete ? files.data.undelete(number) : files.data.erase(number);
    const result<record> one = files.data.get(number);
    if (one && one->deleted != wanted.is_undelete)
        return status(wanted.is_undelete ? TS_UNDELETE_RECORD_LIVE : TS_DELETE_RECORD_DELETED);
    return one;
}

int run(const request& wanted, const common_options& common)
{
    answer<open_files> files = open(wanted.data, {}, common);
    if (!files) return fail(files.why());
    int status_now = exit_done;
    std::vector<int32_t> marked;
    std::optional<failure> problem;
    for (const int32_t number : wanted.numbers) {
        const status done = mark(wanted, *files, number, common.dry_run);
        if (done) {
            marked.push_back(number);
        } else if (is_so_already(done.code())) {
            note(fmt::format("record {} is {} already", number,
                             wanted.is_undelete ? "live" : "deleted"));
            status_now = exit_partly;
        } else if (done.code() == TS_BAD_RECORD_NUMBER) {
            problem = failure{fmt::format("{}: there is no record {}", wanted.data, number),
                              "`tarsil info` tells how many there are"};
            break;
        } else {
            problem = failure_on(done, wanted.data);
            break;
        }
    }
    const outcome closed = files->close();
    if (common.json)
        put_json(
            {{"file", wanted.data},
             {common.dry_run ? fmt::format("would_be_{}", wanted.done()) : wanted.done(), marked}});
    else if (!marked.empty())
        print("{}: {} {} {}{}\n", wanted.data, marked.size() == 1 ? "record" : "records",
              fmt::to_string(fmt::join(marked, ", ")), common.dry_run ? "would be " : "",
              wanted.done());
    if (problem) return fail(*problem);
    return closed ? status_now : fail(closed.why());
}

run_command declare(option_set& options, common_options& common, bool is_undelete)
{
    auto wanted = std::make_shared<request>();
    wanted->is_undelete = is_undelete;
    options.add("DATA", wanted->data, "The data file").required();
    options.add("N", wanted->numbers, "Numbers of records").required().from_one();
    add_sharing(options, common);
    add_json(options, common);
    add_dry_run(options, common);
    return [wanted, &common] { return run(*wanted, common); };
}

} // namespace

run_command declare_delete(option_set& options, common_options& common)
{
    return declare(options, common, false);
}

run_command declare_undelete(option_set& options, common_options& common)
{
    return declare(options, common, true);
}

} // namespace tarsil::tool
