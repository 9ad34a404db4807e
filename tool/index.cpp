// tarsil index: a new index file, built from the records.

#include "tool/command.h"
#include "tool/describe.h"
#include "tool/keys.h"
#include "tool/opening.h"
#include "tool/output.h"
#include "tool/staged_file.h"
#include "tool/watch.h"

namespace tarsil::tool {

namespace {

struct request {
    std::string data;
    std::string index;
    std::vector<std::string> keys;
    uint32_t order = 0;
};

using key_list = std::vector<key_definition>;

answer<key_list> read_keys(const request& wanted, const field_list& fields)
{
    key_list keys;
    for (const std::string& text : wanted.keys) {
        const answer<key_definition> key = read_key_argument(text, fields, wanted.order);
        if (!key) return key.why();
        keys.push_back(*key);
    }
    if (keys.size() > TS_MAX_KEYS)
        return failure{fmt::format("{} keys for one index file", keys.size()),
                       fmt::format("it has {} at most; make a second one", int{TS_MAX_KEYS})};
    return keys;
}

// A leaf is filled to about seven tenths on average; an entry is a key image and eight bytes.
int64_t expected_bytes(const key_list& keys, int32_t records)
{
    int64_t bytes = 0;
    for (const key_definition& key : keys) {
        int64_t entry = 8 + 4 * (key.field_count - 1);
        for (int32_t i = 0; i < key.field_count; ++i) entry += key.lengths[i];
        bytes += entry * records / 7 * 10;
    }
    return bytes;
}

outcome build(const request& wanted, open_files& files, const key_list& keys, int32_t records)
{
    answer<staged_file> made = staged_file::beside(wanted.index, ".building");
    if (!made) return made.why();
    {
        const watch watching("building " + wanted.index + ", about", made->name(),
                             expected_bytes(keys, records));
        result<index> built = files.data.build_index(made->name(), keys);
        if (!built) return failure_on(status(built.code()), wanted.index);
        const status closed = built->close();
        if (!closed) return failure_on(closed, wanted.index);
    }
    const outcome closed = files.close();
    if (!closed) return closed;
    const outcome durable = made->make_durable();
    if (!durable) return durable;
    return made->take_place(staged_file::exists::refuse);
}

void tell(const request& wanted, const key_list& keys, const field_list& fields, int32_t records,
          const common_options& common)
{
    json facts = {{"file", wanted.index},
                  {"created", !common.dry_run},
                  {"records", records},
                  {"keys", json::array()}};
    std::string names;
    for (const key_definition& key : keys) {
        const std::vector<field> parts = detail::fields_of(key);
        facts["keys"].push_back({{"fields", key_fields(parts, fields)}});
        names += fmt::format("{}({})", names.empty() ? "" : ", ", key_names(parts, fields));
    }
    if (common.json) return put_json(facts);
    print("{}{}: {} over {}: {}\n", common.dry_run ? "would make " : "", wanted.index,
          counted(static_cast<int64_t>(keys.size()), "key"), counted(records, "record"), names);
}

int run(const request& wanted, const common_options& common)
{
    if (kind_of(wanted.index) != file_kind::not_there)
        return fail({wanted.index + ": exists already",
                     "choose another name; `tarsil reindex` builds an index file anew"});
    answer<open_files> files = open(wanted.data, {}, common, usual_mode::either);
    if (!files) return fail(files.why());
    const outcome all_counted = check_all_counted(*files);
    if (!all_counted) return fail(all_counted.why());
    const answer<key_list> keys = read_keys(wanted, files->fields);
    if (!keys) return fail(keys.why());
    const result<file_facts> facts = files->data.facts();
    if (!facts) return fail(failure_on(facts, wanted.data));
    const outcome done = common.dry_run ? outcome() : build(wanted, *files, *keys, facts->records);
    if (!done) return fail(done.why());
    tell(wanted, *keys, files->fields, facts->records, common);
    warn_of_size(wanted.index);
    return exit_done;
}

} // namespace

run_command declare_index(option_set& options, common_options& common)
{
    auto wanted = std::make_shared<request>();
    options.add("DATA", wanted->data, "The data file").required();
    options.add("INDEX", wanted->index, "The new index file").required();
    options
        .add("--key", wanted->keys,
             "A key: its fields by name, separated by commas; once for each key")
        .required()
        .value_name("FIELD[,FIELD...][:cursor]");
    options.add("--order", wanted->order, "Half the entries that a node has room for; 0 chooses")
        .between(0, 1'000'000)
        .value_name("N");
    add_for_changes(options, common);
    return [wanted, &common] { return run(*wanted, common); };
}

} // namespace tarsil::tool
