// tarsil reindex: builds index files anew from the records.
//
// What the keys are is read from the old file by its format, so that damaged trees don't matter; or
// the user tells it. The new file is made beside the old one, which is held alone meanwhile, and
// takes its place by one rename when it is whole and on stable storage.

#include "check/data_check.h"
#include "tool/command.h"
#include "tool/compaction.h"
#include "tool/describe.h"
#include "tool/file_guard.h"
#include "tool/key_records.h"
#include "tool/keys.h"
#include "tool/opening.h"
#include "tool/output.h"
#include "tool/signals.h"
#include "tool/staged_file.h"
#include "tool/watch.h"

namespace tarsil::tool {

namespace {

struct reindex_options {
    std::string data;
    std::vector<std::string> indexes;
    std::vector<std::string> keys;
    uint32_t order = 0;
    int32_t precision = default_precision;
};

struct old_index {
    std::string name;
    file_guard guard; // none where the file isn't there
    int64_t bytes = 0;
    std::vector<key_definition> definitions;
};

// An index over a file whose header is behind its records would lack those.
outcome check_data(const reindex_options& options, const common_options& common)
{
    const answer<file_guard> guard = file_guard::look(options.data, common.wait_seconds);
    if (!guard) return guard.why();
    check::file_bytes bytes;
    const outcome read = guard->read(bytes);
    if (!read) return read;
    const check::data_report report = check::check_data_file(bytes);
    if (!report.is_data_file || report.findings.is_sound()) return {};
    return failure{options.data + ": has to be mended first",
                   "`tarsil check` tells what is wrong and what mends it"};
}

outcome read_given_keys(const reindex_options& options, const field_list& fields, old_index& old)
{
    for (const std::string& text : options.keys) {
        const answer<key_definition> key = read_key_argument(text, fields, options.order);
        if (!key) return key.why();
        old.definitions.push_back(*key);
    }
    if (old.definitions.size() > TS_MAX_KEYS)
        return failure{fmt::format("{} keys for one index file", old.definitions.size()),
                       fmt::format("it has {} at most", int{TS_MAX_KEYS})};
    return {};
}

outcome read_old_keys(const open_files& files, check::file_bytes& bytes, old_index& old)
{
    answer<key_records> read = read_key_records(bytes, old.name, files.fields.record_length);
    if (!read) return read.why();
    for (const std::string& text : read->notes) note(old.name + ": " + text);
    old.definitions = std::move(read->definitions);
    return {};
}

// Nothing is put in the place of a file that isn't an index file.
outcome take_old(const reindex_options& options, const common_options& common,
                 const open_files& files, old_index& old)
{
    const file_kind kind = kind_of(old.name);
    const bool has_keys = !options.keys.empty();
    if (has_keys && kind == file_kind::not_there)
        return read_given_keys(options, files.fields, old);
    if (kind != file_kind::index && kind != file_kind::not_there)
        return failure{old.name + ": doesn't begin with the mark of an index file",
                       "check the name; if it is a damaged one, move it away and use `tarsil "
                       "index`"};
    answer<file_guard> guard = file_guard::alone(old.name, common.wait_seconds);
    if (!guard) return guard.why();
    old.guard = std::move(*guard);
    check::file_bytes bytes;
    const outcome read = old.guard.read(bytes);
    if (!read) return read;
    old.bytes = bytes.size();
    if (has_keys) return read_given_keys(options, files.fields, old);
    return read_old_keys(files, bytes, old);
}

outcome build(const open_files& files, const old_index& old)
{
    answer<staged_file> made = staged_file::beside(old.name, ".reindexing");
    if (!made) return made.why();
    const bool is_new = !old.guard.is_held();
    std::optional<private_files> only_mine;
    if (!is_new) only_mine.emplace();
    {
        const watch watching("building " + old.name + ", about", made->name(), old.bytes);
        result<index> built = files.data.build_index(made->name(), old.definitions);
        if (!built) return failure_on(built, old.name);
        const status closed = built->close();
        if (!closed) return failure_on(closed, old.name);
    }
    const outcome durable = made->make_durable(is_new ? std::string() : old.name);
    if (!durable) return durable;
    return made->take_place(is_new ? staged_file::exists::refuse : staged_file::exists::replace);
}

json tell(const old_index& old, const open_files& files, int32_t records,
          const common_options& common)
{
    json keys = json::array();
    std::string names;
    for (const key_definition& key : old.definitions) {
        const std::vector<field> parts = detail::fields_of(key);
        keys.push_back({{"fields", key_fields(parts, files.fields)}});
        names += fmt::format("{}({})", names.empty() ? "" : ", ", key_names(parts, files.fields));
    }
    if (!common.json)
        print("{}: {} over {}: {}\n", old.name,
              common.dry_run ? "would be built anew" : "built anew", counted(records, "record"),
              names);
    return {{"file", old.name},
            {"built", !common.dry_run},
            {"records", records},
            {"keys", std::move(keys)}};
}

outcome reindex_all(const reindex_options& options, const common_options& common,
                    const open_files& files)
{
    const result<file_facts> facts = files.data.facts();
    if (!facts) return failure_on(facts, options.data);
    json all = json::array();
    for (const std::string& name : options.indexes) {
        if (stop_wanted()) return failure{"stopped", "index files not told of are as they were"};
        old_index old{name, {}, 0, {}};
        const outcome taken = take_old(options, common, files, old);
        if (!taken) return taken;
        const outcome built = common.dry_run ? outcome() : build(files, old);
        if (!built) return built;
        all.push_back(tell(old, files, facts->records, common));
    }
    if (common.json) put_json(all);
    return {};
}

int run(const reindex_options& options, common_options& common)
{
    if (!options.keys.empty() && options.indexes.size() != 1)
        return fail({"--key is for one index file", "give one INDEX at a time"});
    outcome done = common.dry_run ? outcome()
                                  : settle_compaction(options.data, common.wait_seconds);
    if (done) done = check_data(options, common);
    if (!done) return fail(done.why());
    common.mode = sharing::alone;
    answer<open_files> files = open(options.data, {}, common, usual_mode::alone);
    if (!files) return fail(files.why());
    const int32_t set = tsspdoub32(options.precision);
    if (set < 0) return fail(failure_of(status(set), "--precision"));
    done = reindex_all(options, common, *files);
    if (!done) return fail(done.why());
    return exit_done;
}

} // namespace

run_command declare_reindex(option_set& options, common_options& common)
{
    auto given = std::make_shared<reindex_options>();
    options.add("DATA", given->data, "The data file").required();
    options.add("INDEX", given->indexes, "The index files to build anew").required();
    options
        .add("--key", given->keys, "A key, instead of those in the old file, as in `tarsil index`")
        .value_name("FIELD[,FIELD...][:cursor]");
    options
        .add("--order", given->order,
             "With --key: half the entries that a node has room for; 0 chooses")
        .between(0, 1'000'000)
        .value_name("N");
    options
        .add("--precision", given->precision,
             "Digits in which float and double keys are told apart")
        .between(0, 100)
        .shows_default();
    add_fields_file(options, common);
    add_wait(options, common);
    add_json(options, common);
    add_dry_run(options, common);
    return [given, &common] { return run(*given, common); };
}

} // namespace tarsil::tool
