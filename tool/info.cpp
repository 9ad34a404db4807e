// tarsil info: what a file says of itself.
//
// The bytes are read as they stand, without the library and without locks, so that files can be
// looked at which somebody has alone, which may not be written, or which don't open. What a program
// has not written yet isn't seen: a file that is open elsewhere is told to be so.
#include <cstring>

#include "check/file_bytes.h"
#include "check/index_check.h"
#include "data/data_format.h"
#include "tool/command.h"
#include "tool/compaction.h"
#include "tool/describe.h"
#include "tool/holders.h"
#include "tool/opening.h"
#include "tool/output.h"

namespace tarsil::tool {

namespace {

constexpr int64_t most_file_bytes = 0x7fffffff;

template <class Stored> Stored load_from(check::file_bytes& file, int64_t offset)
{
    Stored stored{};
    const check::byte_span bytes = file.at(offset, sizeof stored);
    if (bytes.size() == sizeof stored) std::memcpy(&stored, bytes.data(), sizeof stored);
    return stored;
}

std::string version_of(check::file_bytes& file)
{
    const auto byte = load_from<uint8_t>(file, 0);
    return fmt::format("{}.{}", byte >> 4, byte & 15);
}

outcome look_into(check::file_bytes& file, const std::string& name)
{
    if (kind_of(name) == file_kind::not_there)
        return failure{name + ": there is no such file", "check the name"};
    switch (file.open(name.c_str())) {
    case check::open_result::opened: return {};
    case check::open_result::not_there:
        return failure{name + ": can't be read", "check its permissions"};
    case check::open_result::not_a_file:
        return failure{name + ": is not a regular file", "check the name"};
    case check::open_result::too_large:
        return failure{name + ": is longer than the 2 GiB that a file can have", "check the name"};
    }
    return {};
}

std::vector<field_entry> table_of(check::file_bytes& file, const data_header& header)
{
    std::vector<field_entry> table;
    const int64_t bytes = header.field_bytes;
    if (bytes < 0 || field_table_offset + bytes > file.size()) return table;
    for (int64_t at = 0; at + field_entry_bytes <= bytes; at += field_entry_bytes)
        table.push_back(load_from<field_entry>(file, field_table_offset + at));
    return table;
}

json data_facts(check::file_bytes& file, const data_header& header)
{
    const int64_t left = most_file_bytes - header.end_offset;
    json facts = {{"kind", "data file"},
                  {"version", version_of(file)},
                  {"bytes", file.size()},
                  {"records", header.record_count},
                  {"deleted", header.deleted_count},
                  {"end_of_records", header.end_offset},
                  {"bytes_left", left}};
    if (header.record_length > 0)
        facts["records_left"] = left / (int64_t{header.record_length} + frame_bytes);
    return facts;
}

json index_facts(check::file_bytes& file, const check::index_report& report,
                 const field_list& fields)
{
    json facts = {{"kind", "index file"},
                  {"version", version_of(file)},
                  {"bytes", file.size()},
                  {"bytes_left", most_file_bytes - file.size()},
                  {"keys", json::array()}};
    for (const check::key_report& one : report.keys) {
        std::vector<field> parts;
        const int32_t count = std::clamp<int32_t>(one.key.field_count, 0, TS_MAX_KEY_FIELDS);
        for (int32_t i = 0; i < count; ++i) {
            const key_field& part = one.key.fields[i];
            parts.push_back({"", part.type, part.length, part.offset});
        }
        facts["keys"].push_back({{"number", facts["keys"].items().size()},
                                 {"names", key_names(parts, fields)},
                                 {"fields", key_fields(parts, fields)},
                                 {"order", one.key.max_entries / 2},
                                 {"node_bytes", one.key.node_bytes},
                                 {"depth", one.depth},
                                 {"nodes", one.nodes()},
                                 {"entries", one.entries},
                                 {"fill_percent", one.fill_percent()}});
    }
    return facts;
}

std::string shown(const json& value)
{
    return value.is_number() ? grouped(value.number()) : value.text();
}

void put_fields(const json& fields)
{
    rows lines;
    for (const json& one : fields.items())
        lines.push_back({one.at("name").text(), one.at("type").text(), one.at("letter").text(),
                         shown(one.at("length")), shown(one.at("offset"))});
    print("\n");
    put_table({{"FIELD"}, {"TYPE"}, {"LETTER"}, {"BYTES", true}, {"OFFSET", true}}, lines);
}

void put_keys(const json& keys)
{
    rows lines;
    for (const json& one : keys.items())
        lines.push_back({shown(one.at("number")), one.at("names").text(), shown(one.at("order")),
                         shown(one.at("depth")), shown(one.at("nodes")), shown(one.at("entries")),
                         shown(one.at("fill_percent")) + " %"});
    print("\n");
    put_table({{"KEY", true},
               {"FIELDS"},
               {"ORDER", true},
               {"DEPTH", true},
               {"NODES", true},
               {"ENTRIES", true},
               {"FILL", true}},
              lines);
}

void put_for_people(const json& facts)
{
    std::vector<std::pair<std::string, std::string>> lines;
    for (const auto& [name, value] : facts.members()) {
        std::string words = name;
        std::replace(words.begin(), words.end(), '_', ' ');
        if (name == "record_length" && value.is_null())
            lines.emplace_back(words, "variable");
        else if (!value.is_array())
            lines.emplace_back(words, shown(value));
    }
    put_facts(lines);
    if (facts.contains("fields")) put_fields(facts.at("fields"));
    if (facts.contains("keys") && !facts.at("keys").items().empty()) put_keys(facts.at("keys"));
}

class informer {
public:
    explicit informer(const common_options& common) : common_(common) {}

    // The facts of a file; the fields of a data file name those of the index files behind it.
    answer<json> facts_of(const std::string& name)
    {
        check::file_bytes file;
        const outcome opened = look_into(file, name);
        if (!opened) return opened.why();
        json facts = {{"file", name}};
        switch (kind_of(name)) {
        case file_kind::data: {
            const outcome done = add_data(file, name, facts);
            if (!done) return done.why();
            break;
        }
        case file_kind::index: {
            const check::index_report report = check::check_index_file(file, nullptr);
            facts.append(index_facts(file, report, fields_));
            if (!report.is_sound()) warn(name + ": is damaged; `tarsil check` tells more");
            break;
        }
        case file_kind::empty:
            return failure{name + ": is empty, so it is neither a data file nor an index file",
                           "restore it from a copy, or remove it and make it anew"};
        default:
            return failure{name + ": doesn't begin with the mark of a data file or index file",
                           "check the name"};
        }
        const pending_exchange pending = pending_compaction(name);
        if (!pending.text.empty()) warn(pending.text);
        const holders open_elsewhere = holders_of(name);
        if (!open_elsewhere.known.empty()) facts["open_in"] = names_of(open_elsewhere);
        warn_of_size(name);
        return facts;
    }

private:
    outcome add_data(check::file_bytes& file, const std::string& name, json& facts)
    {
        const auto header = load_from<data_header>(file, data_header_offset);
        facts.append(data_facts(file, header));
        if (header.record_length < 1 && header.record_length != TS_VARIABLE_LENGTH) {
            warn(name + ": its header can't be true; `tarsil check` tells more");
            return {};
        }
        const bool is_asked_for = !common_.fields_file.empty();
        answer<field_list> fields = fields_of_file(
            name, is_asked_for ? common_.fields_file : fields_file_of(name), is_asked_for,
            table_of(file, header), header.record_length);
        if (!fields) return fields.why();
        fields_ = std::move(*fields);
        add_field_facts(facts, fields_);
        return {};
    }

    const common_options& common_;
    field_list fields_;
};

int run(const std::vector<std::string>& names, const common_options& common)
{
    informer about(common);
    json all = json::array();
    int status = exit_done;
    for (const std::string& name : names) {
        const answer<json> facts = about.facts_of(name);
        if (!facts) {
            status = fail(facts.why());
            continue;
        }
        if (!common.json && !all.items().empty()) print("\n");
        if (!common.json) put_for_people(*facts);
        all.push_back(*facts);
    }
    if (common.json) put_json(all);
    return status;
}

} // namespace

run_command declare_info(option_set& options, common_options& common)
{
    auto names = std::make_shared<std::vector<std::string>>();
    options
        .add("FILE", *names,
             "Data files and index files; a data file names the fields of those behind it")
        .required();
    add_fields_file(options, common);
    add_json(options, common);
    return [names, &common] { return run(*names, common); };
}

} // namespace tarsil::tool
