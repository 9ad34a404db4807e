// tarsil salvage: saves what can be read of a damaged data file into a new one.
//
// The damaged file is only read, by a scanner that believes nothing (tool/frame_scanner.h), so that
// it works on files that the library refuses. The new file is made by the library, under another
// name, and gets its own when all is in it.
#include <array>
#include <filesystem>

#include "data/data_format.h"
#include "tool/command.h"
#include "tool/damaged_file.h"
#include "tool/file_guard.h"
#include "tool/opening.h"
#include "tool/output.h"
#include "tool/progress.h"
#include "tool/signals.h"
#include "tool/staged_file.h"

namespace tarsil::tool {

namespace {

struct salvage_options {
    std::string from;
    std::string to;
    std::string record_length;
    int64_t first = -1;
    std::vector<std::string> fields;
    bool only_live = false;
    bool with_doubtful = false;
};

struct salvaged {
    int64_t records = 0; // in the new file
    int64_t deleted = 0; // of these
    int64_t doubtful = 0;
    int64_t left_out = 0; // deleted ones that were not wanted
    gap_list gaps;
};

// --- What is known -----------------------------------------------------------------------------

outcome read_known(const salvage_options& options, known_facts& known)
{
    if (options.first >= 0) known.first = options.first;
    if (options.record_length.empty()) return {};
    if (options.record_length == "variable") {
        known.record_length = TS_VARIABLE_LENGTH;
        return {};
    }
    char* end = nullptr;
    const long length = std::strtol(options.record_length.c_str(), &end, 10);
    if (*end != '\0' || length < 1 || length > INT32_MAX)
        return failure{"--record-length " + options.record_length + ": is no length",
                       "give a number of bytes, or the word variable"};
    known.record_length = static_cast<int32_t>(length);
    return {};
}

// Fields that the user tells take the place of those in the damaged file.
outcome read_fields(const salvage_options& options, std::vector<field_entry>& table,
                    std::string& names)
{
    if (options.fields.empty()) return {};
    std::vector<field_shape> shapes;
    for (const std::string& text : options.fields) {
        const answer<field_shape> shape = read_field_argument(text);
        if (!shape) return shape.why();
        shapes.push_back(*shape);
    }
    const layout fields = layout::packed(shapes);
    if (!fields.state()) return failure_of(fields.state(), "--field");
    table = fields.field_table();
    names = fields_file_text(fields.fields());
    return {};
}

// --- Saving ------------------------------------------------------------------------------------

// Where the records go; with nothing open it is a dry run.
struct destination {
    std::optional<library> started;
    data_file file;
};

outcome store(destination& to, const found_record& one, check::byte_span body)
{
    if (!to.file.is_open()) return {};
    status stored = to.file.add(std::as_bytes(body), duplicates::allow);
    if (stored && one.is_deleted) stored = to.file.erase_current();
    if (!stored) return failure_on(stored, to.file.name());
    return {};
}

outcome copy_records(check::file_bytes& bytes, const scan_shape& shape, bool only_live,
                     destination& to, salvaged& done)
{
    frame_scanner scanner(bytes, shape);
    progress line("salvaging", bytes.size());
    found_record one;
    while (scanner.next(one)) {
        if (stop_wanted()) return failure{"stopped", "nothing was saved"};
        line.at(one.offset, done.records);
        const check::byte_span body = bytes.at(one.offset + frame_bytes, one.length);
        if (body.empty()) {
            done.gaps.add({one.offset, frame_bytes + int64_t{one.length}, gap_reason::unreadable});
            continue;
        }
        if (one.is_deleted && only_live) {
            ++done.left_out;
            continue;
        }
        const outcome stored = store(to, one, body);
        if (!stored) return stored;
        ++done.records;
        done.deleted += one.is_deleted ? 1 : 0;
        done.doubtful += one.is_doubtful ? 1 : 0;
    }
    for (const gap& skipped : scanner.gaps().kept) done.gaps.add(skipped);
    done.gaps.count += scanner.gaps().count - std::ssize(scanner.gaps().kept);
    done.gaps.bytes = scanner.gaps().bytes;
    return {};
}

// The names of the fields go with them, unless there are some for the new file already.
void write_names(const salvage_options& options, const std::string& names)
{
    namespace paths = std::filesystem;
    std::error_code failed;
    const paths::path from = fields_file_of(options.from);
    const paths::path to = fields_file_of(options.to);
    if (paths::exists(to, failed)) return;
    if (names.empty()) {
        if (paths::exists(from, failed)) paths::copy_file(from, to, failed);
        return;
    }
    answer<byte_sink> file = byte_sink::create(to.string());
    if (!file) return warn(file.why().text);
    file->put(names);
    const outcome closed = file->close();
    if (!closed) warn(closed.why().text);
}

outcome save(check::file_bytes& bytes, const salvage_options& options, const guessed_file& guess,
             const std::string& names, const common_options& common, salvaged& done)
{
    destination to;
    if (common.dry_run) return copy_records(bytes, guess.shape, options.only_live, to, done);

    answer<staged_file> made = staged_file::beside(options.to, ".salvaging");
    if (!made) return made.why();
    answer<library> started = start_library(common, false);
    if (!started) return started.why();
    to.started = std::move(*started);
    result<data_file> created = to.started->create(made->name(), guess.shape.record_length,
                                                   guess.table);
    if (!created) return failure_on(created, made->name());
    to.file = std::move(created).value();

    const outcome copied = copy_records(bytes, guess.shape, options.only_live, to, done);
    if (!copied) return copied;
    const status closed = to.file.close();
    if (!closed) return failure_on(closed, made->name());
    const outcome durable = made->make_durable();
    if (!durable) return durable;
    const outcome placed = made->take_place(staged_file::exists::refuse);
    if (!placed) return placed;
    write_names(options, names);
    return {};
}

// --- Telling -----------------------------------------------------------------------------------

void tell_json(const salvage_options& options, const guessed_file& guess, const salvaged& done)
{
    json gaps = json::array();
    for (const gap& one : done.gaps.kept)
        gaps.push_back({{"offset", one.offset}, {"bytes", one.bytes}, {"why", text_of(one.why)}});
    put_json({{"file", options.from},
              {"new_file", options.to},
              {"record_length", guess.shape.record_length},
              {"record_length_known", guess.length_source},
              {"first_record", guess.shape.first},
              {"fields", guess.table.size()},
              {"records", done.records},
              {"deleted", done.deleted},
              {"doubtful", done.doubtful},
              {"left_out", done.left_out},
              {"gaps", done.gaps.count},
              {"bytes_lost", done.gaps.bytes},
              {"gap_list", gaps}});
}

void tell_gaps(const gap_list& gaps)
{
    constexpr size_t most_shown = 20;
    print("not saved: {} bytes in {} {}\n", grouped(gaps.bytes), grouped(gaps.count),
          gaps.count == 1 ? "place" : "places");
    rows lines;
    for (const gap& one : gaps.kept) {
        if (lines.size() == most_shown) break;
        lines.push_back({std::to_string(one.offset), std::to_string(one.bytes), text_of(one.why)});
    }
    put_table({{"AT", true}, {"BYTES", true}, {"WHY"}}, lines);
    if (gaps.count > std::ssize(lines))
        print("and {} more; --json lists {} of them\n", grouped(gaps.count - std::ssize(lines)),
              grouped(std::ssize(gaps.kept)));
}

void tell(const salvage_options& options, const guessed_file& guess, const salvaged& done,
          bool is_dry)
{
    const std::string length = guess.shape.record_length == TS_VARIABLE_LENGTH
                                   ? "records of variable length"
                                   : fmt::format("records of {} bytes", guess.shape.record_length);
    print("{}: {}, {}; {}; the first record at {}\n", options.from, length, guess.length_source,
          counted(std::ssize(guess.table), "field"), guess.shape.first);
    print("{}: {} records {}, {} of them deleted\n", options.to, grouped(done.records),
          is_dry ? "would be saved" : "saved", grouped(done.deleted));
    if (done.left_out > 0) print("left out: {} deleted records\n", grouped(done.left_out));
    if (done.doubtful > 0)
        print("doubtful: {} records, whose frames are damaged\n", grouped(done.doubtful));
    if (done.gaps.count > 0) tell_gaps(done.gaps);
    if (!is_dry)
        print("The index files of {} don't fit it: make new ones with `tarsil index`.\n",
              options.from);
}

int run(const salvage_options& options, const common_options& common)
{
    known_facts known;
    const outcome is_known = read_known(options, known);
    if (!is_known) return fail(is_known.why());
    if (kind_of(options.from) == file_kind::index)
        return fail(
            {options.from + ": is an index file", "indexes are made anew by `tarsil index`"});
    if (!common.dry_run && kind_of(options.to) != file_kind::not_there)
        return fail({options.to + ": exists already", "choose another name, or remove it first"});
    const answer<file_guard> guard = file_guard::look(options.from, common.wait_seconds);
    if (!guard) return fail(guard.why());
    if (!guard->is_steady()) warn(unsteady_text(options.from));
    check::file_bytes bytes;
    const outcome is_read = guard->read(bytes);
    if (!is_read) return fail(is_read.why());

    answer<guessed_file> guess = guess_file(bytes, known);
    if (!guess) return fail({options.from + ": " + guess.why().text, guess.why().advice});
    guess->shape.with_doubtful = options.with_doubtful;
    std::string names;
    const outcome has_fields = read_fields(options, guess->table, names);
    if (!has_fields) return fail(has_fields.why());
    salvaged done;
    const outcome saved = save(bytes, options, *guess, names, common, done);
    if (!saved) return fail(saved.why());
    if (common.json)
        tell_json(options, *guess, done);
    else
        tell(options, *guess, done, common.dry_run);
    return done.gaps.count > 0 || done.doubtful > 0 ? exit_partly : exit_done;
}

} // namespace

run_command declare_salvage(option_set& options, common_options& common)
{
    auto given = std::make_shared<salvage_options>();
    options.add("DATA", given->from, "The damaged data file; it is only read").required();
    options.add("NEW", given->to, "The new data file").required();
    options
        .add("--record-length", given->record_length,
             "Bytes of each record, or the word variable, instead of what the file tells")
        .value_name("BYTES");
    options.add("--start", given->first, "Where the first record stands in the file")
        .between(0, INT32_MAX)
        .value_name("OFFSET");
    options.add("--field", given->fields, "A field of the new file, as in `tarsil create`")
        .value_name("NAME:TYPE[:LENGTH]");
    options.add("--live", given->only_live, "Leave out the records that are marked deleted");
    options.add("--doubtful", given->with_doubtful,
                "In a file of fixed length, save the bodies of records whose frames are "
                "damaged, too");
    add_wait(options, common);
    add_dry_run(options, common);
    add_json(options, common);
    return [given, &common] { return run(*given, common); };
}

} // namespace tarsil::tool
