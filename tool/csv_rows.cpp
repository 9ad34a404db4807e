// CSV, taken apart by libcsv.
//
// libcsv is given one line at a time, so that it is known which lines a row is made of. It is set
// to refuse quotes that stand where they mustn't, and to leave blanks alone.
#include <csv.h>

#include <fmt/format.h>

#include "tool/row_reader.h"
#include "tool/values.h"

namespace tarsil::tool {

namespace {

constexpr int deleted_column = -1; // not of a field: "_deleted"
constexpr int passed_over = -2;    // "_number", or a column without a field

extern "C" int is_no_space(unsigned char) { return 0; }

} // namespace

class csv_rows {
public:
    explicit csv_rows(row_reader& reader);
    ~csv_rows() { csv_free(&parser_); }
    csv_rows(const csv_rows&) = delete;
    csv_rows& operator=(const csv_rows&) = delete;

    outcome read();

private:
    void set_up();
    bool feed(std::string_view line);
    void take_cell(std::string_view text);
    void take_row();
    void begin_row();
    bool give_up(const char* reason);
    outcome map_header();
    outcome map_by_place(size_t columns);
    int field_of_column(const std::string& name) const;

    static void on_cell(void* text, size_t length, void* self)
    {
        static_cast<csv_rows*>(self)->take_cell({static_cast<const char*>(text), length});
    }
    static void on_row(int, void* self) { static_cast<csv_rows*>(self)->take_row(); }

    row_reader& reader_;
    csv_parser parser_{};
    bool is_in_header_;
    std::vector<std::string> header_;
    std::vector<int> columns_; // the field of each
    size_t column_ = 0;
    bool is_whole_ = false; // the row has come to its end
    size_t longest_row_ = 0;
};

// No row that fits is longer: each byte of a record in four, and something for each field. It
// bounds how far a quote that is never closed is followed.
csv_rows::csv_rows(row_reader& reader) : reader_(reader), is_in_header_(reader.options_.has_header)
{
    constexpr int64_t most = int64_t{64} << 20;
    const int64_t bytes = reader.fields_.longest_record() * 4 +
                          64 * static_cast<int64_t>(reader.fields_.all.size());
    longest_row_ = static_cast<size_t>(std::min(bytes + (64 << 10), most));
    set_up();
}

void csv_rows::set_up()
{
    csv_free(&parser_);
    csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI);
    csv_set_delim(&parser_, static_cast<unsigned char>(reader_.options_.separator));
    csv_set_space_func(&parser_, is_no_space);
    begin_row();
}

void csv_rows::begin_row()
{
    column_ = 0;
    is_whole_ = false;
    header_.clear();
    reader_.record_.begin();
}

bool csv_rows::feed(std::string_view line)
{
    return csv_parse(&parser_, line.data(), line.size(), on_cell, on_row, this) == line.size();
}

void csv_rows::take_cell(std::string_view text)
{
    const size_t number = column_++;
    if (is_in_header_) {
        header_.emplace_back(text);
    } else if (number < columns_.size() && columns_[number] >= 0) {
        reader_.record_.put(static_cast<size_t>(columns_[number]), text);
    } else if (number < columns_.size() && columns_[number] == deleted_column) {
        reader_.record_.put_deleted(text);
    }
}

void csv_rows::take_row()
{
    is_whole_ = true;
    if (is_in_header_ || column_ == columns_.size()) return;
    reader_.record_.begin(); // Whatever else is wrong is wrong because of this.
    reader_.record_.refuse(fmt::format("{} columns instead of {}", column_, columns_.size()));
}

// The first line of the row is delivered as a bad one; those behind it are read again.
bool csv_rows::give_up(const char* reason)
{
    set_up();
    reader_.record_.refuse(reason);
    const bool go_on = reader_.deliver(reader_.source_.first_line(), reader_.source_.row_line());
    reader_.source_.give_up_first_line();
    begin_row();
    return go_on;
}

int csv_rows::field_of_column(const std::string& name) const
{
    if (name == "_deleted") return deleted_column;
    if (name == "_number") return passed_over;
    return reader_.fields_.find(name);
}

outcome csv_rows::map_by_place(size_t columns)
{
    const size_t fields = reader_.fields_.all.size();
    if (columns != fields)
        return failure{
            fmt::format("{}: {} columns for {} fields", reader_.source_.name(), columns, fields),
            "give the names of the fields in a header line"};
    for (size_t i = 0; i < fields; ++i) columns_.push_back(static_cast<int>(i));
    return {};
}

outcome csv_rows::map_header()
{
    const field_list& fields = reader_.fields_;
    reader_.header_ = reader_.source_.row();
    const std::string where = reader_.source_.name() + ", header line";
    std::vector<bool> has_column(fields.all.size());
    bool is_any_known = false;
    for (const std::string& name : header_) {
        const int field = field_of_column(name);
        const bool is_unknown = field < 0 && name != "_deleted" && name != "_number";
        is_any_known = is_any_known || field >= 0;
        if (is_unknown && !reader_.options_.is_partial && fields.has_names)
            return failure{fmt::format("{}: there is no field {}", where, in_quotes(name)),
                           "correct the name; --partial passes over such columns"};
        if (field >= 0 && has_column[static_cast<size_t>(field)])
            return failure{fmt::format("{}: {} stands twice", where, in_quotes(name)),
                           "remove one of them"};
        if (field >= 0) has_column[static_cast<size_t>(field)] = true;
        columns_.push_back(is_unknown ? passed_over : field);
    }
    if (!is_any_known && !fields.has_names) {
        columns_.clear();
        return map_by_place(header_.size());
    }
    for (size_t i = 0; i < has_column.size(); ++i)
        if (!has_column[i] && !reader_.options_.is_partial)
            return failure{
                fmt::format("{}: no column for the field '{}'", where, fields.all[i].name),
                "add it; with --partial such fields become 0 or empty"};
    return {};
}

outcome csv_rows::read()
{
    line_source& source = reader_.source_;
    bool go_on = true;
    bool is_first = true;
    if (!is_in_header_) {
        outcome mapped = map_by_place(reader_.fields_.all.size());
        if (!mapped) return mapped;
    }
    while (go_on) {
        std::string_view line;
        if (!source.next_line(line)) {
            if (source.problem() || source.row().empty()) break;
            go_on = give_up("a quote isn't closed");
            continue;
        }
        constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
        const bool is_last = line.back() != '\n';
        if (std::exchange(is_first, false) && line.starts_with(byte_order_mark))
            line.remove_prefix(byte_order_mark.size());
        const bool is_blank = line == "\n" || line == "\r\n";
        if (is_blank && source.row().size() == line.size()) {
            source.end_row();
            continue;
        }
        const bool is_sound = feed(line) && (!is_last || is_whole_ || feed("\n"));
        if (!is_sound && is_in_header_)
            return failure{source.name() + ", header line: a quote stands in a wrong place",
                           "correct it"};
        if (!is_sound) {
            go_on = give_up("a quote stands in a wrong place");
        } else if (is_whole_ && is_in_header_) {
            outcome mapped = map_header();
            if (!mapped) return mapped;
            is_in_header_ = false;
            source.end_row();
            begin_row();
        } else if (is_whole_) {
            go_on = reader_.deliver(source.row(), source.row_line());
            source.end_row();
            begin_row();
        } else if (source.row().size() > longest_row_) {
            go_on = give_up("a quote isn't closed, or the row is longer than any record");
        }
    }
    if (source.problem()) return *source.problem();
    if (is_in_header_)
        return failure{source.name() + ": has no header line",
                       "put the names of the fields there; --no-header goes without"};
    return {};
}

outcome row_reader::read_csv()
{
    csv_rows rows(*this);
    return rows.read();
}

} // namespace tarsil::tool
