// Field tables, the text file with the names, and --field arguments.
#include "tool/fields.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>

#include <fmt/format.h>

#include "tool/output.h"

namespace tarsil::tool {

namespace {

constexpr field_type types[] = {
    {'i', "i32", "-2147483648 to 2147483647"},
    {'U', "u32", "0 to 4294967295"},
    {'h', "i16", "-32768 to 32767"},
    {'H', "u16", "0 to 65535"},
    {'c', "u8", "0 to 255"},
    {'f', "f32", "a number of 7 digits"},
    {'d', "f64", "a number of 15 digits"},
    {'s', "text", "a text of so many bytes"},
    {'l', "i32", "-2147483648 to 2147483647"},
    {'L', "u32", "0 to 4294967295"},
};

constexpr int64_t most_file_bytes = 0x7fffffff;
constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text)
{
    const size_t first = text.find_first_not_of(blanks);
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The letter that a name of a type or a letter stands for, or 0.
char letter_of(std::string_view type)
{
    for (const field_type& one : types)
        if (type == one.name || (type.size() == 1 && type[0] == one.letter)) return one.letter;
    return 0;
}

bool read_length(std::string_view text, int32_t& length)
{
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, length);
    return read.ec == std::errc() && read.ptr == end && length > 0;
}

// The last word of a text, which is taken off it.
std::string_view take_last_word(std::string_view& text)
{
    text = trimmed(text);
    const size_t blank = text.find_last_of(blanks);
    const std::string_view word = blank == text.npos ? text : text.substr(blank + 1);
    text = trimmed(text.substr(0, text.size() - word.size()));
    return word;
}

answer<field_shape> read_line(std::string_view line, const std::string& where)
{
    const std::string_view length_word = take_last_word(line);
    const std::string_view type_word = take_last_word(line);
    field_shape shape{std::string(line), letter_of(type_word), 0};
    const bool fits = read_length(length_word, shape.length) && shape.letter != 0;
    const int32_t fixed = fits ? detail::letter_length(shape.letter) : 0;
    if (!fits || (fixed > 0 && fixed != shape.length))
        return failure{where + ": not a name, a letter and a length",
                       "a line is like `ident s 8`; correct it or remove the file"};
    const outcome named = check_name(shape.name);
    if (!named) return failure{where + ": " + named.why().text, named.why().advice};
    return shape;
}

outcome check_once(const std::vector<field_shape>& shapes, const std::string& where)
{
    for (size_t i = 0; i < shapes.size(); ++i)
        for (size_t other = 0; other < i; ++other)
            if (shapes[other].name == shapes[i].name)
                return failure{where + ": the name '" + shapes[i].name + "' stands twice",
                               "give each field a name of its own"};
    return {};
}

// The shapes as the file's table has them, under the names f1, f2 ...
std::vector<field_shape> shapes_of(const std::vector<field_entry>& table)
{
    std::vector<field_shape> shapes;
    for (const field_entry& one : table) {
        const char letter = letter_of(std::string(1, static_cast<char>(one.type)));
        shapes.push_back(
            {fmt::format("f{}", shapes.size() + 1), letter == 0 ? 's' : letter, one.length});
    }
    return shapes;
}

outcome take_names(std::vector<field_shape>& shapes, const std::vector<field_shape>& named,
                   const std::string& where)
{
    const std::string advice = "correct " + where + ", or remove it";
    if (named.size() != shapes.size())
        return failure{fmt::format("{}: has {}, the data file {}", where,
                                   counted(std::ssize(named), "field"),
                                   counted(std::ssize(shapes), "field")),
                       advice};
    for (size_t i = 0; i < shapes.size(); ++i) {
        if (named[i].letter != shapes[i].letter || named[i].length != shapes[i].length)
            return failure{fmt::format("{}: '{}' is {} {}, and in the data file {} {}", where,
                                       named[i].name, named[i].letter, named[i].length,
                                       shapes[i].letter, shapes[i].length),
                           advice};
        shapes[i].name = named[i].name;
    }
    return {};
}

// Back to back; false if they can't be the fields of records of this length.
bool place(const std::vector<field_shape>& shapes, field_list& list)
{
    int64_t end = 0;
    const bool is_variable = list.is_variable();
    const int64_t most = is_variable ? most_file_bytes : list.record_length;
    for (const field_shape& shape : shapes) {
        const int32_t fixed = detail::letter_length(shape.letter);
        if (shape.length < 1 || (fixed > 0 && fixed != shape.length)) return false;
        if (end + shape.length > most) return false;
        list.all.push_back({shape.name, shape.letter, shape.length, static_cast<int32_t>(end)});
        end += shape.length;
    }
    const bool has_rest = is_variable ? list.all.empty() || list.all.back().letter != 's'
                                      : end < most;
    if (has_rest)
        list.all.push_back({list.all.empty() ? "record" : "rest", 's',
                            static_cast<int32_t>(most - end), static_cast<int32_t>(end)});
    return true;
}

} // namespace

int64_t field_list::longest_record() const
{
    int64_t sum = 0;
    for (const field& one : all) sum += one.length;
    return sum;
}

int field_list::find(std::string_view name) const
{
    for (size_t i = 0; i < all.size(); ++i)
        if (all[i].name == name) return static_cast<int>(i);
    return -1;
}

std::span<const field_type> field_types() { return types; }

std::string type_name(const field& one)
{
    if (one.letter == 's') return fmt::format("text:{}", one.length);
    for (const field_type& type : types)
        if (type.letter == one.letter) return type.name;
    return std::string(1, one.letter);
}

answer<field_shape> read_field_argument(const std::string& text)
{
    const std::string advice = "write NAME:TYPE, the type being i32, u32, i16, u16, u8, f32 or "
                               "f64, or NAME:text:LENGTH";
    std::string_view rest = text;
    field_shape shape{"", 0, 0};
    size_t colon = rest.rfind(':');
    if (colon != rest.npos && read_length(rest.substr(colon + 1), shape.length)) {
        rest = rest.substr(0, colon);
        colon = rest.rfind(':');
    }
    if (colon == rest.npos) return failure{"--field " + text + ": no type", advice};
    const std::string_view type = rest.substr(colon + 1);
    shape.letter = letter_of(type);
    shape.name = rest.substr(0, colon);
    if (shape.letter == 0)
        return failure{fmt::format("--field {}: '{}' is no type", text, type), advice};
    const int32_t fixed = detail::letter_length(shape.letter);
    if (fixed == 0 && shape.length == 0)
        return failure{"--field " + text + ": a text needs a length", advice};
    if (fixed > 0 && shape.length > 0 && shape.length != fixed)
        return failure{fmt::format("--field {}: {} has {} bytes", text, type, fixed), advice};
    if (fixed > 0) shape.length = fixed;
    const outcome named = check_name(shape.name);
    if (!named) return failure{"--field " + text + ": " + named.why().text, named.why().advice};
    return shape;
}

outcome check_name(std::string_view name)
{
    const bool has_control = std::any_of(name.begin(), name.end(), [](char byte) {
        const auto code = static_cast<unsigned char>(byte);
        return code < 0x20 || code == 0x7F;
    });
    if (name.empty()) return failure{"a field without a name", "give it one"};
    if (has_control || name != trimmed(name) || name.starts_with('#') || name == "_deleted" ||
        name == "_number" || name.find_first_of(",=") != name.npos)
        return failure{fmt::format("'{}' can't be the name of a field", name),
                       "choose one without , and =, without # at its front and blanks at its ends"};
    return {};
}

std::string fields_file_of(const std::string& data) { return data + ".fields"; }

answer<std::vector<field_shape>> read_fields_file(const std::string& name)
{
    constexpr size_t most_bytes = size_t{16} << 20;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(name.c_str(), "rb"),
                                                               std::fclose);
    if (!file)
        return failure{name + ": can't be read: " + std::strerror(errno),
                       "check its name and its permissions"};
    std::string text(most_bytes, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    if (text.size() == most_bytes || text.find('\0') != text.npos)
        return failure{name + ": no text file with fields", "correct or remove it"};

    std::vector<field_shape> shapes;
    std::string_view left = text;
    for (int line_number = 1; !left.empty(); ++line_number) {
        const size_t end = left.find('\n');
        const std::string_view line = trimmed(left.substr(0, end));
        left = end == left.npos ? std::string_view() : left.substr(end + 1);
        if (line.empty() || line.starts_with('#')) continue;
        answer<field_shape> shape = read_line(line, fmt::format("{}, line {}", name, line_number));
        if (!shape) return shape.why();
        shapes.push_back(std::move(*shape));
    }
    const outcome distinct = check_once(shapes, name);
    if (!distinct) return distinct.why();
    return shapes;
}

std::string fields_file_text(const std::vector<field>& fields)
{
    size_t width = 0;
    for (const field& one : fields) width = std::max(width, one.name.size());
    std::string text = "# The fields of the records, in their order: name, letter, length.\n";
    for (const field& one : fields)
        text += fmt::format("{}{} {} {}\n", one.name, std::string(width - one.name.size(), ' '),
                            one.letter, one.length);
    return text;
}

answer<field_list> fields_of_file(const std::string& data, const std::string& names_file,
                                  bool is_asked_for, const std::vector<field_entry>& table,
                                  int32_t record_length)
{
    field_list list;
    list.record_length = record_length;
    std::vector<field_shape> shapes = shapes_of(table);
    std::FILE* const there = std::fopen(names_file.c_str(), "rb");
    if (there != nullptr) std::fclose(there);
    if (there != nullptr || is_asked_for || errno != ENOENT) {
        answer<std::vector<field_shape>> named = read_fields_file(names_file);
        if (!named) return named.why();
        const outcome fits = table.empty() ? outcome() : take_names(shapes, *named, names_file);
        if (!fits) return fits.why();
        if (table.empty()) shapes = *named;
        list.has_names = true;
    }
    if (place(shapes, list)) return list;
    if (list.has_names && table.empty())
        return failure{fmt::format("{}: its fields are longer than the {} bytes of a record of {}",
                                   names_file, record_length, data),
                       "correct or remove it"};
    list.all.clear();
    list.has_names = false;
    warn(data + ": its field table can't be that of its records; they are taken as one field");
    place({}, list);
    return list;
}

} // namespace tarsil::tool
