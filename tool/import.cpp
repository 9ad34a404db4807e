// tarsil import: rows of CSV, JSON Lines or raw bytes become records, with their keys in the index
// files that are given.
//
// A row that can't be stored is told with its line and passed over. A failure of the files ends the
// import: what was added stays, and the last line says where to go on.

#include "tool/assignments.h"
#include "tool/batch_lock.h"
#include "tool/command.h"
#include "tool/formats.h"
#include "tool/opening.h"
#include "tool/output.h"
#include "tool/progress.h"
#include "tool/rejects.h"
#include "tool/row_reader.h"
#include "tool/signals.h"

namespace tarsil::tool {

namespace {

struct request {
    std::string data;
    std::vector<std::string> files; // index files, and last the file with the rows
    std::string format;
    std::string rejects;
    reading_options reading;
    duplicates repeated = duplicates::allow;
    int64_t from_line = 1;
};

class importer {
public:
    importer(const request& wanted, open_files& files, line_source& source, rejects& bad,
             bool is_dry_run)
        : wanted_(wanted), files_(files), source_(source), bad_(bad), is_dry_run_(is_dry_run),
          lock_(files), progress_(is_dry_run ? "reading" : "importing", source.size()),
          reader_(source, files.fields, wanted.reading,
                  [this](const row& one) { return take(one); })
    {
    }

    outcome run()
    {
        // Nobody is kept out while the next rows are waited for.
        source_.before_waiting([this] { lock_.release(); });
        outcome done = reader_.read();
        // What ends then on a pipe need not be all of it.
        const bool is_pipe = source_.size() == 0;
        is_stopped_ = is_stopped_ || (is_pipe && stop_wanted());
        lock_.release();
        progress_.finish();
        return problem_ ? outcome(*problem_) : done;
    }

    int64_t added() const { return added_; }
    int64_t next_line() const { return next_line_; }
    bool is_stopped() const { return is_stopped_; }

private:
    bool take(const row& one)
    {
        if (one.line < wanted_.from_line) return true;
        progress_.at(source_.bytes_read(), added_);
        is_stopped_ = stop_wanted();
        if (is_stopped_) return false;
        const bool is_done = one.is_good ? store(one) : refuse(one, one.record.reason());
        if (is_done) next_line_ = one.line + 1;
        return is_done;
    }

    bool refuse(const row& one, std::string_view reason)
    {
        progress_.finish();
        bad_.add(one, reason, reader_.header());
        return true;
    }

    bool store(const row& one)
    {
        ++added_;
        if (is_dry_run_) return true;
        const outcome locked = lock_.step();
        if (!locked) return stop(locked.why());
        const status stored = files_.data.add(one.record.bytes(), wanted_.repeated);
        if (stored.code() == TS_DUPLICATE_KEY && !stored.half_done()) {
            --added_;
            return refuse(one, "a record with the same value of a key is there already");
        }
        if (stored.half_done()) {
            // The record is in, without some of its keys: the next import goes on behind it.
            next_line_ = one.line + 1;
            ++added_;
        }
        if (!stored) return stop(failure_on(stored, files_.data.name()));
        if (!one.record.is_deleted()) return true;
        const status marked = files_.data.erase_current();
        return marked ? true : stop(failure_on(marked, files_.data.name()));
    }

    bool stop(const failure& why)
    {
        --added_;
        problem_ = why;
        return false;
    }

    const request& wanted_;
    open_files& files_;
    line_source& source_;
    rejects& bad_;
    bool is_dry_run_;
    batch_lock lock_;
    progress progress_;
    row_reader reader_;
    int64_t added_ = 0;
    int64_t next_line_ = 1;
    bool is_stopped_ = false;
    std::optional<failure> problem_;
};

std::vector<std::string> indexes_of(const request& wanted)
{
    return {wanted.files.begin(), wanted.files.end() - 1};
}

void tell(const request& wanted, const importer& work, const rejects& bad,
          const common_options& common, double seconds)
{
    if (common.json)
        return put_json({{"file", wanted.data},
                         {common.dry_run ? "would_add" : "added", work.added()},
                         {"refused", bad.count()},
                         {"seconds", seconds},
                         {"next_line", work.next_line()}});
    print("{}: {} {}{}\n", wanted.data, counted(work.added(), "record"),
          common.dry_run ? "would be added" : "added",
          bad.count() == 0 ? "" : fmt::format(", {} refused", grouped(bad.count())));
}

int end(const request& wanted, const importer& work, const rejects& bad, const outcome& done)
{
    const std::string rest = fmt::format("{} added; --from-line {} goes on behind that",
                                         counted(work.added(), "record"), work.next_line());
    if (!done && work.added() == 0) return fail(done.why());
    if (!done) return fail({done.why().text, done.why().advice + ". " + rest});
    if (work.is_stopped()) return fail({"stopped", rest});
    warn_of_size(wanted.data);
    return bad.count() > 0 ? exit_partly : exit_done;
}

int run(request& wanted, const common_options& common)
{
    const auto start = std::chrono::steady_clock::now();
    const std::string& rows_file = wanted.files.back();
    const answer<row_format> format = read_format(wanted.format, rows_file);
    if (!format) return fail(format.why());
    wanted.reading.format = *format;
    const file_kind kind = kind_of(rows_file);
    if (kind == file_kind::data || kind == file_kind::index)
        return fail({fmt::format("{}: is no file of rows, but {} file", rows_file,
                                 kind == file_kind::data ? "a data" : "an index"),
                     "give the file with the rows last"});
    answer<line_source> source = line_source::open(rows_file);
    if (!source) return fail(source.why());
    answer<open_files> files = open(wanted.data, indexes_of(wanted), common, usual_mode::either);
    if (!files) return fail(files.why());
    const outcome all_counted = check_all_counted(*files);
    if (!all_counted) return fail(all_counted.why());
    rejects bad(source->name(), *format);
    if (!wanted.rejects.empty()) {
        const outcome made = bad.keep_in(wanted.rejects);
        if (!made) return fail(made.why());
    }
    if (!common.dry_run) note_other_indexes(wanted.data, indexes_of(wanted));

    importer work(wanted, *files, *source, bad, common.dry_run);
    outcome done = work.run();
    const outcome closed = files->close();
    const outcome kept = bad.close();
    if (done && !closed) done = closed;
    if (done && !kept) done = kept;
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    if (done && !work.is_stopped()) tell(wanted, work, bad, common, time.count());
    return end(wanted, work, bad, done);
}

} // namespace

run_command declare_import(option_set& options, common_options& common)
{
    auto wanted = std::make_shared<request>();
    options.add("DATA", wanted->data, "The data file").required();
    options
        .add("FILES", wanted->files,
             "Its index files, and last the file with the rows, or - for standard input")
        .required();
    add_format(options, wanted->format, "csv, jsonl or raw; usually by the ending of the name");
    add_duplicates(options, wanted->repeated);
    options.add("--rejects", wanted->rejects, "New file for the rows that are refused")
        .value_name("FILE");
    add_separator(options, wanted->reading.separator);
    options.add_call(
        "--no-header", [wanted] { wanted->reading.has_header = false; },
        "The first line is a row; columns are in the order of the fields");
    options.add("--partial", wanted->reading.is_partial,
                "Pass over columns without a field; fields without a column are 0 or empty");
    options.add("--empty-is-zero", wanted->reading.is_empty_zero,
                "Take the empty cell of a number for 0 instead of refusing the row");
    options.add("--from-line", wanted->from_line, "Pass over rows in front of this line")
        .from_one()
        .value_name("N");
    add_for_changes(options, common);
    return [wanted, &common] { return run(*wanted, common); };
}

} // namespace tarsil::tool
