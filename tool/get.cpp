// tarsil get: records by number.
#include "tool/command.h"
#include "tool/opening.h"
#include "tool/shown_records.h"

namespace tarsil::tool {

namespace {

struct request {
    std::string data;
    std::vector<int32_t> numbers;
    std::string format;
};

int run(const request& wanted, const common_options& common)
{
    answer<open_files> files = open(wanted.data, {}, common);
    if (!files) return fail(files.why());
    answer<shown_records> shown = shown_records::in_format(wanted.format, common, files->fields);
    if (!shown) return fail(shown.why());
    int status = exit_done;
    for (const int32_t number : wanted.numbers) {
        const result<record> one = files->data.get(number);
        if (one.code() == TS_BAD_RECORD_NUMBER) {
            const result<file_facts> facts = files->data.facts();
            note(fmt::format("{} has no record {}; it has {}", wanted.data, number,
                             facts ? grouped(facts->records) : "fewer"));
            status = exit_partly;
            continue;
        }
        if (!one) return fail(failure_on(one, wanted.data));
        const outcome put = shown->put(*one);
        if (!put) return fail(put.why());
    }
    shown->finish();
    return status;
}

} // namespace

run_command declare_get(option_set& options, common_options& common)
{
    auto wanted = std::make_shared<request>();
    options.add("DATA", wanted->data, "The data file").required();
    options.add("N", wanted->numbers, "Numbers of records, from 1 up").required().from_one();
    add_shown_format(options, wanted->format, common);
    add_fields_file(options, common);
    add_sharing(options, common);
    return [wanted, &common] { return run(*wanted, common); };
}

} // namespace tarsil::tool
