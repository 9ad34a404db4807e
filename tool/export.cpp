// tarsil export: all records, or those between two values, in file order or in the order of a key.
#include <charconv>

#include "tool/batch_lock.h"
#include "tool/command.h"
#include "tool/formats.h"
#include "tool/keys.h"
#include "tool/opening.h"
#include "tool/output.h"
#include "tool/progress.h"
#include "tool/record_writer.h"
#include "tool/signals.h"
#include "tool/staged_file.h"

namespace tarsil::tool {

namespace {

struct request {
    std::string data;
    std::string by; // INDEX:KEY
    std::vector<std::string> from;
    std::vector<std::string> to;
    std::string format;
    std::string output;
    writing_options writing;
};

class exporter {
public:
    exporter(const request& wanted, open_files& files, byte_sink& sink, int64_t records)
        : wanted_(wanted), files_(files), sink_(sink), lock_(files),
          progress_("exporting", records), writer_(sink, files.fields, wanted.writing)
    {
    }

    outcome run()
    {
        outcome done = wanted_.by.empty() ? in_file_order() : in_key_order();
        lock_.release();
        progress_.finish();
        if (done && stop_wanted()) return failure{"stopped", "the rest was not written"};
        return done;
    }

    int64_t written() const { return written_; }

private:
    // False ends the export.
    bool put(const record& one, outcome& done)
    {
        if (!one.deleted || wanted_.writing.has_deleted) {
            done = writer_.put(one);
            if (!done) return false;
            ++written_;
        }
        progress_.at(++seen_, written_);
        return !sink_.failed() && !stop_wanted();
    }

    answer<int32_t> record_number(const std::vector<std::string>& texts, int32_t otherwise) const
    {
        if (texts.empty()) return otherwise;
        int32_t number = 0;
        const char* const end = texts[0].data() + texts[0].size();
        const auto read = std::from_chars(texts[0].data(), end, number);
        const bool is_one = read.ec == std::errc() && read.ptr == end && number > 0;
        if (is_one && texts.size() == 1) return number;
        return failure{fmt::format("'{}' is no number of a record", texts.back()),
                       "give a number from 1 up; values of a key go with --by"};
    }

    outcome in_file_order()
    {
        const answer<int32_t> from = record_number(wanted_.from, 1);
        if (!from) return from.why();
        const answer<int32_t> to = record_number(wanted_.to, INT32_MAX);
        if (!to) return to.why();
        writer_.begin();
        outcome done;
        for (int64_t number = *from; number <= *to; ++number) {
            done = lock_.step();
            if (!done) return done;
            const bool is_next = files_.fields.is_variable() && number > *from;
            const result<record> one = is_next ? files_.data.next()
                                               : files_.data.get(static_cast<int32_t>(number));
            const bool is_end = one.code() == TS_BAD_RECORD_NUMBER ||
                                one.code() == TS_NEXT_RECORD_AT_END;
            if (is_end) break;
            if (!one) return failure_on(one, wanted_.data);
            if (!put(*one, done)) break;
        }
        return done;
    }

    outcome in_key_order()
    {
        const size_t colon = wanted_.by.rfind(':');
        answer<named_key> key = find_key(
            files_.indexes[0], colon == std::string::npos ? "0" : wanted_.by.substr(colon + 1),
            files_.fields);
        if (!key) return key.why();
        key_walk walk = key->key.all();
        if (!wanted_.from.empty()) {
            answer<key_value> first = read_key_value(key->parts, wanted_.from, false);
            if (!first) return first.why();
            walk = key->key.from(std::move(*first));
        }
        if (!wanted_.to.empty()) {
            answer<key_value> last = read_key_value(key->parts, wanted_.to, false);
            if (!last) return last.why();
            walk.until(std::move(*last));
        }
        return follow(walk);
    }

    outcome follow(key_walk& walk)
    {
        outcome done = lock_.step();
        if (!done) return done;
        writer_.begin();
        for (auto at = walk.begin(); at != walk.end(); ++at) {
            if (!put(*at, done)) return done;
            done = lock_.step();
            if (!done) return done;
        }
        if (!walk.state()) return failure_on(walk.state(), files_.indexes[0].name());
        return done;
    }

    const request& wanted_;
    open_files& files_;
    byte_sink& sink_;
    batch_lock lock_;
    progress progress_;
    record_writer writer_;
    int64_t written_ = 0;
    int64_t seen_ = 0;
};

std::vector<std::string> indexes_of(const request& wanted)
{
    if (wanted.by.empty()) return {};
    return {wanted.by.substr(0, wanted.by.rfind(':'))};
}

outcome write_file(const request& wanted, open_files& files, int64_t records, int64_t& written)
{
    if (kind_of(wanted.output) != file_kind::not_there)
        return failure{wanted.output + ": exists already",
                       "choose another name, or remove it first"};
    answer<staged_file> made = staged_file::beside(wanted.output, ".exporting");
    if (!made) return made.why();
    answer<byte_sink> sink = byte_sink::create(made->name(), wanted.output);
    if (!sink) return sink.why();
    exporter work(wanted, files, *sink, records);
    const outcome done = work.run();
    const outcome closed = sink->close();
    if (!done) return done;
    if (!closed) return closed;
    written = work.written();
    const outcome durable = made->make_durable();
    if (!durable) return durable;
    return made->take_place(staged_file::exists::refuse);
}

int run(request& wanted, const common_options& common)
{
    const answer<row_format> format = read_format(wanted.format, wanted.output);
    if (!format) return fail(format.why());
    wanted.writing.format = common.json ? row_format::json_lines : *format;
    if (wanted.writing.format == row_format::raw && wanted.writing.has_deleted)
        return fail(
            {"--deleted with raw bytes: they have no place for the mark", "choose csv or jsonl"});
    answer<open_files> files = open(wanted.data, indexes_of(wanted), common);
    if (!files) return fail(files.why());
    const outcome all_counted = check_all_counted(*files);
    if (!all_counted) warn(all_counted.why().text + "; they are not among those exported");
    const result<file_facts> facts = files->data.facts();
    if (!facts) return fail(failure_on(facts, wanted.data));
    if (wanted.output.empty()) {
        const outcome done = exporter(wanted, *files, standard_output(), facts->records).run();
        return done ? exit_done : fail(done.why());
    }
    int64_t written = 0;
    const outcome done = write_file(wanted, *files, facts->records, written);
    if (!done) return fail(done.why());
    print("{}: {}\n", wanted.output, counted(written, "record"));
    return exit_done;
}

} // namespace

run_command declare_export(option_set& options, common_options& common)
{
    auto wanted = std::make_shared<request>();
    options.add("DATA", wanted->data, "The data file").required();
    options
        .add("--by", wanted->by,
             "In the order of a key: its number from 0, or its first fields by name")
        .value_name("INDEX:KEY");
    options
        .add("--from", wanted->from,
             "Begin with this value of the key, or number of a record; given again, the "
             "value of the key's next field")
        .value_name("V");
    options.add("--to", wanted->to, "End with this value, itself included").value_name("V");
    options.add("--deleted", wanted->writing.has_deleted,
                "Deleted records too; a column _deleted tells which they are");
    add_format(options, wanted->format, "csv, jsonl or raw; usually by the ending of --output");
    options.add("--output", wanted->output, "New file to write, instead of standard output")
        .value_name("FILE");
    add_separator(options, wanted->writing.separator);
    options.add_call(
        "--no-header", [wanted] { wanted->writing.has_header = false; },
        "No line with the names of the fields");
    add_fields_file(options, common);
    add_sharing(options, common);
    options.add("--json", common.json, "The same as --format jsonl");
    return [wanted, &common] { return run(*wanted, common); };
}

} // namespace tarsil::tool
