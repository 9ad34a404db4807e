// tarsil create: a new data file with its field table, and the names of the fields beside it.
//
// The text file with the names is made first and taken away again when the data file can't be made,
// so that no data file stands there without its names.
#include <unistd.h>

#include "tool/command.h"
#include "tool/describe.h"
#include "tool/opening.h"
#include "tool/output.h"

namespace tarsil::tool {

namespace {

// What is left of the most bytes that a file can have, roughly.
constexpr int64_t most_record_bytes = 0x7fffff00;

struct request {
    std::string data;
    std::vector<std::string> fields;
    bool is_variable = false;
};

answer<field_list> read_fields(const request& wanted)
{
    std::vector<field_shape> shapes;
    for (const std::string& text : wanted.fields) {
        answer<field_shape> shape = read_field_argument(text);
        if (!shape) return shape.why();
        for (const field_shape& other : shapes)
            if (other.name == shape->name)
                return failure{"--field " + text + ": the name stands twice",
                               "give each field a name of its own"};
        shapes.push_back(std::move(*shape));
    }
    if (wanted.is_variable && shapes.back().letter != 's')
        return failure{"--variable: the last field is no text",
                       "put the text whose length varies behind all other fields"};
    int64_t bytes = 0;
    for (const field_shape& shape : shapes) bytes += shape.length;
    if (bytes > most_record_bytes)
        return failure{fmt::format("{}: a record would have {} bytes", wanted.data, grouped(bytes)),
                       "a file holds 2 GiB at most; make the texts shorter"};
    const layout packed = layout::packed(shapes);
    if (!packed.state()) return failure_of(packed.state(), wanted.data);
    field_list list;
    list.all = packed.fields();
    list.record_length = wanted.is_variable ? TS_VARIABLE_LENGTH : packed.record_length();
    list.has_names = true;
    return list;
}

outcome check_free(const request& wanted)
{
    if (kind_of(wanted.data) != file_kind::not_there)
        return failure{wanted.data + ": exists already", "choose another name, or remove it first"};
    return {};
}

outcome make_files(const request& wanted, const field_list& list, const common_options& common)
{
    const answer<library> started = start_library(common, false);
    if (!started) return started.why();
    const std::string names = fields_file_of(wanted.data);
    answer<byte_sink> text = byte_sink::create(names);
    if (!text) return text.why();
    text->put(fields_file_text(list.all));
    outcome done = text->close();
    if (done) {
        std::vector<field_entry> table;
        for (const field& one : list.all) table.push_back({one.length, one.letter});
        result<data_file> made = started->create(wanted.data, list.record_length, table);
        if (!made) done = failure_on(made, wanted.data);
        const status closed = made ? made->close() : status();
        if (!closed) done = failure_on(closed, wanted.data);
    }
    if (!done) unlink(names.c_str());
    return done;
}

int run(const request& wanted, const common_options& common)
{
    const answer<field_list> list = read_fields(wanted);
    if (!list) return fail(list.why());
    outcome done = check_free(wanted);
    if (done && !common.dry_run) done = make_files(wanted, *list, common);
    if (!done) return fail(done.why());
    if (common.json) {
        json facts = {{"file", wanted.data}, {"created", !common.dry_run}};
        add_field_facts(facts, *list);
        put_json(facts);
        return exit_done;
    }
    const std::string length = list->is_variable() ? "variable length"
                                                   : fmt::format("{} bytes", list->record_length);
    print("{}{}: {}, records of {}\n", common.dry_run ? "would make " : "", wanted.data,
          counted(static_cast<int64_t>(list->all.size()), "field"), length);
    return exit_done;
}

} // namespace

run_command declare_create(option_set& options, common_options& common)
{
    auto wanted = std::make_shared<request>();
    options.add("DATA", wanted->data, "The new data file").required();
    options
        .add("--field", wanted->fields,
             "A field: NAME:TYPE, or NAME:text:BYTES; once for each, in their order")
        .required()
        .value_name("NAME:TYPE[:LENGTH]");
    options.add("--variable", wanted->is_variable,
                "Records as long as the text in the last field makes them");
    add_json(options, common);
    add_dry_run(options, common);
    return [wanted, &common] { return run(*wanted, common); };
}

} // namespace tarsil::tool
