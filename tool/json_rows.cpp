// JSON Lines: an object a line, taken apart by nlohmann-json as it is read.
//
// Numbers with a fraction are handed on as they are written, so that no digit is lost on the way
// into a float or double.
#include <nlohmann/json.hpp>

#include <fmt/format.h>

#include "tool/row_reader.h"
#include "tool/values.h"

namespace tarsil::tool {

// What the parser calls. A value reaches the record under the key in front of it.
class json_row : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit json_row(row_reader& reader) : reader_(reader) {}

    void begin()
    {
        depth_ = 0;
        was_object_ = false;
        seen_.assign(reader_.fields_.all.size(), false);
    }
    bool was_object() const { return was_object_; }

    bool null() override { return put(absent_text, kind::null); }
    bool boolean(bool value) override { return put(value ? "true" : "false", kind::boolean); }
    bool number_integer(number_integer_t value) override
    {
        return put(std::to_string(value), kind::number);
    }
    bool number_unsigned(number_unsigned_t value) override
    {
        return put(std::to_string(value), kind::number);
    }
    bool number_float(number_float_t, const string_t& text) override
    {
        return put(text, kind::number);
    }
    bool string(string_t& text) override { return put(text, kind::text); }
    bool binary(binary_t&) override { return refuse("bytes are no value of a field"); }
    bool start_object(size_t) override
    {
        was_object_ = true;
        return ++depth_ == 1 || refuse("an object inside the object");
    }
    bool end_object() override { return true; }
    bool start_array(size_t) override { return refuse("a list is no value of a field"); }
    bool end_array() override { return true; }
    bool key(string_t& name) override
    {
        field_ = reader_.fields_.find(name);
        is_deleted_ = name == "_deleted";
        if (is_deleted_ || name == "_number" || reader_.options_.is_partial)
            return check_twice(name);
        if (field_ < 0) return refuse("there is no field " + in_quotes(name));
        return check_twice(name);
    }
    bool parse_error(size_t at, const std::string&, const nlohmann::detail::exception&) override
    {
        return refuse(fmt::format("no JSON, at byte {} of the line", at));
    }

private:
    enum class kind { null, boolean, number, text };

    bool refuse(std::string reason)
    {
        reader_.record_.refuse(std::move(reason));
        return false;
    }

    bool check_twice(const std::string& name)
    {
        if (field_ < 0) return true;
        if (seen_[static_cast<size_t>(field_)]) return refuse(in_quotes(name) + " stands twice");
        seen_[static_cast<size_t>(field_)] = true;
        return true;
    }

    bool put(std::string_view text, kind is)
    {
        if (depth_ == 0) return refuse("no object");
        if (is_deleted_) return reader_.record_.put_deleted(text), true;
        if (field_ < 0) return true;
        const field& one = reader_.fields_.all[static_cast<size_t>(field_)];
        if (is == kind::boolean) return refuse(one.name + ": neither a number nor a text");
        if (one.letter == 's' && is == kind::number)
            return refuse(fmt::format("{}: {} is no text", one.name, text));
        if (is == kind::text && text == absent_text)
            return refuse(one.name + ": null stands for the end of the record");
        reader_.record_.put(static_cast<size_t>(field_), text);
        return true;
    }

    row_reader& reader_;
    int depth_ = 0;
    int field_ = 0;
    bool is_deleted_ = false;
    bool was_object_ = false;
    std::vector<bool> seen_;
};

outcome row_reader::read_json_lines()
{
    json_row row(*this);
    std::string_view line;
    bool go_on = true;
    while (go_on && source_.next_line(line)) {
        const bool is_blank = line.find_first_not_of(" \t\r\n") == line.npos;
        if (!is_blank) {
            record_.begin();
            row.begin();
            nlohmann::json::sax_parse(line.begin(), line.end(), &row);
            if (!row.was_object()) record_.refuse("no object");
            go_on = deliver(line, source_.row_line());
        }
        source_.end_row();
    }
    if (source_.problem()) return *source_.problem();
    return {};
}

} // namespace tarsil::tool
