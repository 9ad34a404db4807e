// Writing records.
#include "tool/record_writer.h"

#include <cstring>

#include "tool/output.h"
#include "tool/values.h"

namespace tarsil::tool {

namespace {

void append_json_text(std::string& out, std::string_view text)
{
    out += '"';
    for (const char byte : text) {
        if (byte == '"' || byte == '\\') {
            out += '\\';
            out += byte;
        } else if (static_cast<unsigned char>(byte) < 0x20) {
            fmt::format_to(std::back_inserter(out), "\\u{:04x}", static_cast<unsigned>(byte));
        } else {
            out += byte;
        }
    }
    out += '"';
}

// JSON has no infinities, and takes a number without a point for a whole one, whose -0 is 0.
void append_json_number(std::string& out, std::string_view number, bool is_floating)
{
    const bool is_number = number.find_first_of("ni") == number.npos;
    if (!is_number) return append_json_text(out, number);
    out += number;
    if (is_floating && number.find_first_of(".e") == number.npos) out += ".0";
}

} // namespace

presence find_field(const field_list& fields, size_t number, std::span<const std::byte> record,
                    std::span<const std::byte>& found)
{
    const field& one = fields.all[number];
    const auto offset = static_cast<size_t>(one.offset);
    const auto length = static_cast<size_t>(one.length);
    const bool is_open_ended = fields.is_open_ended(number);
    found = {};
    if (record.size() < offset + (is_open_ended ? 0 : 1)) return presence::absent;
    found = record.subspan(offset);
    if (is_open_ended) return presence::whole;
    if (found.size() < length) return presence::cut;
    found = found.first(length);
    return presence::whole;
}

record_writer::record_writer(byte_sink& sink, const field_list& fields,
                             const writing_options& options)
    : sink_(sink), fields_(fields), options_(options)
{
    for (const field& one : fields.all) {
        std::string name;
        append_json_text(name, one.name);
        json_names_.push_back(name + ":");
    }
}

void record_writer::end_cell()
{
    const bool has_blank_end = !cell_.empty() && (cell_.front() == ' ' || cell_.back() == ' ' ||
                                                  cell_.front() == '\t' || cell_.back() == '\t');
    const bool is_quoted = has_blank_end || cell_.find(options_.separator) != cell_.npos ||
                           cell_.find_first_of("\"\r\n") != cell_.npos ||
                           (cell_.empty() && fields_.all.size() == 1);
    if (!is_quoted) {
        line_ += cell_;
    } else {
        line_ += '"';
        for (const char byte : cell_) {
            if (byte == '"') line_ += '"';
            line_ += byte;
        }
        line_ += '"';
    }
    line_ += options_.separator;
    cell_.clear();
}

void record_writer::begin()
{
    if (options_.format != row_format::csv || !options_.has_header) return;
    line_.clear();
    const auto put_name = [&](std::string_view name) {
        cell_ = name;
        end_cell();
    };
    if (options_.has_number) put_name("_number");
    for (const field& one : fields_.all) put_name(one.name);
    if (options_.has_deleted) put_name("_deleted");
    line_.back() = '\n';
    sink_.put(line_);
}

outcome record_writer::put(const record& one)
{
    switch (options_.format) {
    case row_format::csv: return put_csv(one);
    case row_format::json_lines: return put_json(one);
    case row_format::raw: put_raw(one); break;
    }
    return {};
}

outcome record_writer::cut(const record& one, size_t field_number) const
{
    return failure{fmt::format("a record of {} ends inside the field '{}'",
                               counted(std::ssize(one.bytes), "byte"),
                               fields_.all[field_number].name),
                   "--format raw takes it as it is; or describe the records anew by --fields"};
}

outcome record_writer::put_csv(const record& one)
{
    line_.clear();
    if (options_.has_number) {
        cell_ = std::to_string(one.number);
        end_cell();
    }
    for (size_t i = 0; i < fields_.all.size(); ++i) {
        std::span<const std::byte> bytes;
        const presence there = find_field(fields_, i, one.bytes, bytes);
        if (there == presence::cut) return cut(one, i);
        if (there == presence::absent)
            cell_ = absent_text;
        else
            append_value(cell_, fields_.all[i], bytes, fields_.is_open_ended(i));
        end_cell();
    }
    if (options_.has_deleted) {
        cell_ = one.deleted ? "1" : "0";
        end_cell();
    }
    line_.back() = '\n';
    sink_.put(line_);
    return {};
}

outcome record_writer::put_json(const record& one)
{
    line_ = "{";
    if (options_.has_number)
        fmt::format_to(std::back_inserter(line_), "\"_number\":{},", one.number);
    for (size_t i = 0; i < fields_.all.size(); ++i) {
        const field& about = fields_.all[i];
        std::span<const std::byte> bytes;
        const presence there = find_field(fields_, i, one.bytes, bytes);
        if (there == presence::cut) return cut(one, i);
        line_ += json_names_[i];
        cell_.clear();
        if (there == presence::whole) append_value(cell_, about, bytes, fields_.is_open_ended(i));
        if (there == presence::absent)
            line_ += "null";
        else if (about.letter == 's')
            append_json_text(line_, cell_);
        else
            append_json_number(line_, cell_, about.letter == 'f' || about.letter == 'd');
        line_ += ',';
    }
    cell_.clear();
    if (options_.has_deleted && one.deleted) line_ += "\"_deleted\":true,";
    line_.back() = '}';
    line_ += '\n';
    sink_.put(line_);
    return {};
}

void record_writer::put_raw(const record& one)
{
    if (fields_.is_variable()) {
        const auto length = static_cast<int32_t>(one.bytes.size());
        char prefix[sizeof length];
        std::memcpy(prefix, &length, sizeof length);
        sink_.put(std::string_view(prefix, sizeof prefix));
    }
    const void* const front = one.bytes.data();
    sink_.put(std::string_view(static_cast<const char*>(front), one.bytes.size()));
}

} // namespace tarsil::tool
