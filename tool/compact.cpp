// tarsil compact: takes the deleted records out of a data file and gives their space back, with its
// index files built anew.
//
// The new files are made beside the old ones, which stay as they are and are held alone meanwhile;
// when all of them are whole and on stable storage they take the old ones' places as one step
// (tool/compaction.h).

#include "check/data_check.h"
#include "core/letters.h"
#include "data/data_format.h"
#include "tool/command.h"
#include "tool/compaction.h"
#include "tool/file_guard.h"
#include "tool/key_records.h"
#include "tool/opening.h"
#include "tool/output.h"
#include "tool/progress.h"
#include "tool/signals.h"
#include "tool/staged_file.h"
#include "tool/watch.h"

namespace tarsil::tool {

namespace {

struct compact_options {
    std::string data;
    std::vector<std::string> indexes;
    int32_t precision = default_precision;
};

struct old_file {
    file_guard guard;
    check::file_bytes bytes;
};

struct old_files {
    old_file data;
    check::data_report report;
    std::vector<old_file> indexes;
    std::vector<key_records> keys; // of each index file
};

struct new_files {
    staged_file data;
    std::vector<staged_file> indexes;
};

// --- The old files -----------------------------------------------------------------------------

outcome take_alone(old_file& file, const std::string& name, double wait)
{
    answer<file_guard> guard = file_guard::alone(name, wait);
    if (!guard) return guard.why();
    file.guard = std::move(*guard);
    return file.guard.read(file.bytes);
}

// A header that is behind its records would lose them here.
outcome check_data(old_files& old, const std::string& name)
{
    old.report = check::check_data_file(old.data.bytes);
    if (!old.report.is_data_file)
        return failure{name + ": is no data file", "check the name; nothing was changed"};
    if (old.data.bytes.failed()) return failure{name + ": can't be read", "check the disk"};
    if (old.report.findings.is_sound()) return {};
    return failure{name + ": is damaged; nothing was changed",
                   "`tarsil check` tells what is wrong and what mends it"};
}

outcome take_old_files(const compact_options& options, const common_options& common, old_files& old)
{
    outcome done = take_alone(old.data, options.data, common.wait_seconds);
    if (!done) return done;
    done = check_data(old, options.data);
    if (!done) return done;
    old.indexes.resize(options.indexes.size());
    for (size_t i = 0; i < options.indexes.size(); ++i) {
        const std::string& name = options.indexes[i];
        done = take_alone(old.indexes[i], name, common.wait_seconds);
        if (!done) return done;
        answer<key_records> keys = read_key_records(old.indexes[i].bytes, name,
                                                    old.report.header.record_length);
        if (!keys)
            return failure{keys.why().text, "build it anew with `tarsil reindex`, or leave it out"};
        for (const std::string& text : keys->notes) note(name + ": " + text);
        old.keys.push_back(std::move(*keys));
    }
    return {};
}

std::vector<field_entry> field_table(old_files& old)
{
    const int32_t bytes = old.report.header.field_bytes;
    std::vector<field_entry> table(static_cast<size_t>(bytes / field_entry_bytes));
    const check::byte_span stored = old.data.bytes.at(field_table_offset, bytes);
    if (!stored.empty()) std::memcpy(table.data(), stored.data(), stored.size());
    return table;
}

// --- The new files -----------------------------------------------------------------------------

outcome stage(const compact_options& options, new_files& made)
{
    const auto add = [](const std::string& name, staged_file& file) -> outcome {
        answer<staged_file> staged = staged_file::beside(name, compacted_ending);
        if (!staged) return staged.why();
        file = std::move(*staged);
        return {};
    };
    outcome done = add(options.data, made.data);
    made.indexes.resize(options.indexes.size());
    for (size_t i = 0; i < options.indexes.size() && done; ++i)
        done = add(options.indexes[i], made.indexes[i]);
    return done;
}

outcome copy_live_records(old_files& old, const data_file& to)
{
    const data_header& header = old.report.header;
    progress line("copying", header.end_offset);
    int64_t offset = int64_t{field_table_offset} + header.field_bytes;
    for (int32_t number = 0; number < header.record_count; ++number) {
        if (stop_wanted()) return failure{"stopped", "nothing was changed"};
        line.at(offset, number);
        record_frame frame = {};
        const check::byte_span start = old.data.bytes.at(offset, frame_bytes);
        if (!start.empty()) std::memcpy(&frame, start.data(), sizeof frame);
        const check::byte_span body = old.data.bytes.at(offset + frame_bytes, frame.length);
        if (start.empty() || body.empty())
            return failure{old.data.guard.name() + ": can't be read", "check the disk"};
        offset += frame_bytes + int64_t{frame.length};
        if (frame.mark == mark_deleted) continue;
        const status added = to.add(std::as_bytes(body), duplicates::allow);
        if (!added) return failure_on(added, to.name());
    }
    return {};
}

outcome build_index(const data_file& data, const staged_file& to, const old_file& from,
                    const key_records& keys)
{
    const watch watching("building " + to.place() + ", about", to.name(), from.bytes.size());
    result<index> built = data.build_index(to.name(), keys.definitions);
    if (!built) return failure_on(built, to.name());
    const status closed = built->close();
    if (!closed) return failure_on(closed, to.name());
    return to.make_durable(from.guard.name());
}

outcome build(const compact_options& options, const common_options& common, old_files& old,
              const new_files& made)
{
    const private_files only_mine;
    const answer<library> started = start_library(common, false);
    if (!started) return started.why();
    const int32_t set = tsspdoub32(options.precision);
    if (set < 0) return failure_of(status(set), "--precision");
    result<data_file> file = started->create(made.data.name(), old.report.header.record_length,
                                             field_table(old));
    if (!file) return failure_on(file, made.data.name());
    const outcome copied = copy_live_records(old, *file);
    if (!copied) return copied;
    for (size_t i = 0; i < made.indexes.size(); ++i) {
        if (stop_wanted()) return failure{"stopped", "nothing was changed"};
        const outcome built = build_index(*file, made.indexes[i], old.indexes[i], old.keys[i]);
        if (!built) return built;
    }
    const status closed = file->close();
    if (!closed) return failure_on(closed, made.data.name());
    return made.data.make_durable(options.data);
}

outcome exchange_files(new_files& made)
{
    exchange_plan plan = {{made.data.place(), {}, {}}};
    for (const staged_file& one : made.indexes) plan.push_back({one.place(), {}, {}});
    bool is_planned = false;
    const outcome done = carry_out(std::move(plan), is_planned);
    if (is_planned) {
        made.data.keep();
        for (staged_file& one : made.indexes) one.keep();
    }
    return done;
}

// --- The command -------------------------------------------------------------------------------

struct sizes {
    std::string name;
    int64_t before;
    int64_t after;
};

void tell(const compact_options& options, const old_files& old, const std::vector<sizes>& files,
          const common_options& common)
{
    const data_header& header = old.report.header;
    json facts = {{"file", options.data},
                  {"compacted", !common.dry_run},
                  {"records", header.record_count - header.deleted_count},
                  {"removed", header.deleted_count},
                  {"files", json::array()}};
    for (const sizes& one : files)
        facts["files"].push_back(
            {{"file", one.name}, {"bytes_before", one.before}, {"bytes", one.after}});
    if (common.json) return put_json(facts);
    print("{}: {} deleted records {}, {} left\n", options.data, grouped(header.deleted_count),
          common.dry_run ? "would be taken out" : "taken out",
          grouped(header.record_count - header.deleted_count));
    for (const sizes& one : files)
        print("{}: {} bytes, before {}\n", one.name, grouped(one.after), grouped(one.before));
}

std::vector<sizes> sizes_of(const compact_options& options, const old_files& old)
{
    const auto now = [](const std::string& name) {
        check::file_bytes bytes;
        return bytes.open(name.c_str()) == check::open_result::opened ? bytes.size() : 0;
    };
    std::vector<sizes> all = {{options.data, old.data.bytes.size(), now(options.data)}};
    for (size_t i = 0; i < options.indexes.size(); ++i)
        all.push_back({options.indexes[i], old.indexes[i].bytes.size(), now(options.indexes[i])});
    return all;
}

outcome compact(const compact_options& options, const common_options& common, old_files& old)
{
    new_files made;
    outcome done = stage(options, made);
    if (done) done = build(options, common, old, made);
    if (done) done = exchange_files(made);
    return done;
}

int run(const compact_options& options, const common_options& common)
{
    outcome done = check_given_once(options.indexes);
    if (done && !common.dry_run) done = settle_compaction(options.data, common.wait_seconds);
    old_files old;
    if (done) done = take_old_files(options, common, old);
    if (!done) return fail(done.why());
    note_other_indexes(options.data, options.indexes);
    if (!common.dry_run) done = compact(options, common, old);
    if (!done) return fail(done.why());
    tell(options, old, common.dry_run ? std::vector<sizes>() : sizes_of(options, old), common);
    return exit_done;
}

} // namespace

run_command declare_compact(option_set& options, common_options& common)
{
    auto given = std::make_shared<compact_options>();
    options.add("DATA", given->data, "The data file").required();
    options.add("INDEX", given->indexes, "All of its index files");
    options
        .add("--precision", given->precision,
             "Digits in which float and double keys are told apart")
        .between(0, 100)
        .shows_default();
    add_wait(options, common);
    add_json(options, common);
    add_dry_run(options, common);
    return [given, &common] { return run(*given, common); };
}

} // namespace tarsil::tool
