// Keys and their values from the command line.
#include "tool/keys.h"

#include <charconv>

#include <fmt/format.h>

#include "tool/describe.h"
#include "tool/output.h"
#include "tool/values.h"

namespace tarsil::tool {

namespace {

std::vector<std::string> split(std::string_view text)
{
    std::vector<std::string> parts;
    for (size_t comma = text.find(','); comma != text.npos; comma = text.find(',')) {
        parts.emplace_back(text.substr(0, comma));
        text.remove_prefix(comma + 1);
    }
    parts.emplace_back(text);
    return parts;
}

std::string all_names(const field_list& fields)
{
    std::string names;
    for (const field& one : fields.all) names += (names.empty() ? "" : ", ") + one.name;
    return names;
}

bool begins_with(const std::vector<field>& parts, const std::vector<std::string>& names,
                 const field_list& fields)
{
    if (names.size() > parts.size()) return false;
    for (size_t i = 0; i < names.size(); ++i) {
        const int number = fields.find(names[i]);
        if (number < 0 || fields.all[static_cast<size_t>(number)].offset != parts[i].offset)
            return false;
    }
    return true;
}

answer<named_key> take_key(const index& file, int32_t number)
{
    result<key_cursor> key = file.key(number);
    if (!key) return failure_on(key, file.name());
    result<key_facts> facts = key->facts();
    if (!facts) return failure_on(facts, file.name());
    return named_key{std::move(key).value(), facts->fields};
}

} // namespace

answer<key_definition> read_key_argument(const std::string& text, const field_list& fields,
                                         uint32_t order)
{
    constexpr std::string_view suffix = ":cursor";
    std::string_view names = text;
    const bool has_cursor = names.ends_with(suffix) && fields.find(names) < 0;
    if (has_cursor) names.remove_suffix(suffix.size());
    key_definition key = {};
    key.cursor = has_cursor ? 'y' : 'n';
    key.order = order;
    for (const std::string& name : split(names)) {
        const int number = fields.find(name);
        if (number < 0)
            return failure{fmt::format("--key {}: there is no field '{}'", text, name),
                           "the fields are " + all_names(fields)};
        const field& one = fields.all[static_cast<size_t>(number)];
        if (one.letter == 's' && one.length > TS_MAX_STRING_FIELD)
            return failure{
                fmt::format("--key {}: '{}' has {} bytes", text, name, one.length),
                fmt::format("a text in a key has {} bytes at most", int{TS_MAX_STRING_FIELD})};
        if (key.field_count == TS_MAX_KEY_FIELDS)
            return failure{fmt::format("--key {}: too many fields", text),
                           fmt::format("a key has {} at most", int{TS_MAX_KEY_FIELDS})};
        key.types[key.field_count] = one.letter;
        key.lengths[key.field_count] = one.length;
        key.offsets[key.field_count] = one.offset;
        ++key.field_count;
    }
    return key;
}

answer<named_key> find_key(const index& file, const std::string& text, const field_list& fields)
{
    int32_t number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool is_number = read.ec == std::errc() && read.ptr == text.data() + text.size();
    if (is_number && number >= 0 && number < file.key_count()) return take_key(file, number);

    std::string known;
    const std::vector<std::string> names = split(text);
    auto found = answer<named_key>(failure{});
    for (int32_t i = 0; i < file.key_count(); ++i) {
        answer<named_key> one = take_key(file, i);
        if (!one) return one;
        known += fmt::format("{}{} ({})", i == 0 ? "" : ", ", i, key_names(one->parts, fields));
        const bool is_meant = !is_number && begins_with(one->parts, names, fields);
        if (is_meant && found)
            return failure{fmt::format("{}: several keys begin with {}", file.name(), text),
                           "give the number of the key, or more of its fields"};
        if (is_meant) found = std::move(one);
    }
    if (found) return found;
    return failure{fmt::format("{}: has no key {}", file.name(), text),
                   known.empty() ? "it has none at all" : "its keys are " + known};
}

answer<key_value> read_key_value(const std::vector<field>& parts,
                                 const std::vector<std::string>& texts, bool is_beginning)
{
    if (texts.empty() || texts.size() > parts.size())
        return failure{fmt::format("{} for a key of {}", counted(std::ssize(texts), "value"),
                                   counted(std::ssize(parts), "field")),
                       "give one value a field, from the first on"};
    key_value value;
    for (const std::string& text : texts) {
        const field& one = parts[static_cast<size_t>(value.field_count++)];
        const size_t front = value.bytes.size();
        value.bytes.resize(front + static_cast<size_t>(one.length));
        size_t length = static_cast<size_t>(one.length);
        const bool is_text = one.letter == 's';
        const std::string problem = put_value(one, text, value.bytes.data() + front,
                                              is_text ? &length : nullptr);
        if (!problem.empty())
            return failure{fmt::format("value {} of the key: {}", value.field_count, problem),
                           "give a value that the field can hold"};
        value.last_length = static_cast<uint32_t>(is_beginning ? length
                                                               : static_cast<size_t>(one.length));
    }
    return value;
}

} // namespace tarsil::tool
