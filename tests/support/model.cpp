// The model's rules; see model.h. Entries are compared here, records handled in model_records.cpp.
#include "tests/support/model.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tarsil::model {

namespace {

template <class Number> Number load(const char* bytes)
{
    Number value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <class Number> int compare_numbers(const char* left, const char* right)
{
    const Number a = load<Number>(left);
    const Number b = load<Number>(right);
    return a < b ? -1 : a > b ? 1 : 0;
}

// The values of tests lie within a quarter of the tolerance around multiples of a half, so that
// "equal within the tolerance" means "around the same multiple".
template <class Number> int compare_around_halves(const char* left, const char* right)
{
    const auto a = std::lround(load<Number>(left) * 2);
    const auto b = std::lround(load<Number>(right) * 2);
    return a < b ? -1 : a > b ? 1 : 0;
}

// A string is what stands before its first 0 byte; where one ends, the 0 takes part as a byte.
int compare_strings(const char* left, const char* right, int32_t length)
{
    for (int32_t i = 0; i < length; ++i) {
        const auto a = static_cast<signed char>(left[i]);
        const auto b = static_cast<signed char>(right[i]);
        if (a != b) return a < b ? -1 : 1;
        if (a == 0) return 0;
    }
    return 0;
}

int compare_field(char type, const char* left, const char* right, int32_t length)
{
    switch (type) {
    case 'H': return compare_numbers<uint16_t>(left, right);
    case 'h': return compare_numbers<int16_t>(left, right);
    case 'L':
    case 'U': return compare_numbers<uint32_t>(left, right);
    case 'l':
    case 'i': return compare_numbers<int32_t>(left, right);
    case 'c': return compare_numbers<uint8_t>(left, right);
    case 'f': return compare_around_halves<float>(left, right);
    case 'd': return compare_around_halves<double>(left, right);
    case 's': return compare_strings(left, right, length);
    default: return 0; // a letter that is none decides nothing
    }
}

} // namespace

int compare(const std::vector<field>& fields, const std::string& left, const part& right)
{
    size_t at = 0;
    for (size_t i = 0; i < right.fields; ++i) {
        const bool shortened = i + 1 == right.fields && fields[i].type == 's';
        const int32_t length = shortened ? right.last_length : fields[i].length;
        const int order = compare_field(fields[i].type, left.data() + at, right.value.data() + at,
                                        length);
        if (order != 0) return order;
        at += static_cast<size_t>(fields[i].length);
    }
    return 0;
}

// What a record is too short for counts as zeros.
std::string image_of(const std::vector<field>& fields, const std::string& body)
{
    std::string image;
    for (const field& each : fields) {
        const auto length = static_cast<size_t>(each.length);
        const auto offset = static_cast<size_t>(each.offset);
        std::string piece = offset < body.size() ? body.substr(offset, length) : std::string();
        piece.resize(length);
        image += piece;
    }
    return image;
}

bool entry_order::operator()(const entry& left, const entry& right) const
{
    const int order = compare(*fields, left.image,
                              {right.image, fields->size(), fields->back().length});
    return order != 0 ? order < 0 : left.offset > right.offset;
}

bool entry_order::operator()(const entry& left, const part& right) const
{
    return compare(*fields, left.image, right) < 0;
}

bool entry_order::operator()(const part& left, const entry& right) const
{
    return compare(*fields, right.image, left) > 0;
}

void key::place(tree::iterator where)
{
    if (!has_cursor) return;
    state = cursor_state::on;
    at = where;
}

void key::lose()
{
    if (state == cursor_state::on) state = cursor_state::lost;
}

void key::insert(const entry& added) { place(entries.insert(added).first); }

// --- Reading by key -----------------------------------------------------------------------------

// A search ends in one leaf. The separator above it outlives the entry it is a copy of, so that it
// can lead a search for its value to a leaf without any, while equal entries stand in the next one.
bool data_file::may_have_been_missed(const key& in, const part& value) const
{
    return std::any_of(in.taken_out.begin(), in.taken_out.end(), [&](const std::string& image) {
        return compare(in.fields, image, value) == 0;
    });
}

outcome data_file::find(key& in, const part& value, int32_t missed)
{
    const auto found = in.entries.lower_bound(value);
    const bool is_there = found != in.entries.end() && compare(in.fields, found->image, value) == 0;
    if (!is_there || (given.code == missed && may_have_been_missed(in, value))) {
        in.lose();
        return {missed};
    }
    in.place(found);
    return {TS_OK, number_at(found->offset)};
}

outcome data_file::nearest(key& in, const part& value)
{
    const auto found = in.entries.lower_bound(value);
    const bool is_there = found != in.entries.end() && compare(in.fields, found->image, value) == 0;
    if (is_there && (given.code == TS_OK || !may_have_been_missed(in, value))) {
        in.place(found);
        return {TS_OK, number_at(found->offset)};
    }
    if (in.entries.empty()) return {TS_CURSOR_NONE};
    const bool at_start = found == in.entries.begin();
    const bool may_need_step = at_start || found != in.entries.end();
    if (!in.has_cursor && (at_start || (may_need_step && given.code == TS_CURSOR_NONE)))
        return {TS_CURSOR_NONE};
    const auto wanted = at_start ? found : std::prev(found);
    in.place(wanted);
    return {at_start ? 2 : 1, number_at(wanted->offset)};
}

outcome data_file::to_end(key& in, bool last_one)
{
    if (records.empty()) return {TS_WALK_NO_RECORDS};
    if (in.entries.empty()) return {TS_CURSOR_NONE};
    const auto wanted = last_one ? std::prev(in.entries.end()) : in.entries.begin();
    in.place(wanted);
    return {TS_OK, number_at(wanted->offset)};
}

outcome data_file::step(key& in, bool forward)
{
    if (in.state == cursor_state::none) return {TS_CURSOR_NONE};
    if (forward && std::next(in.at) == in.entries.end())
        return {TS_NEXT_ENTRY_AT_END, number_at(in.at->offset)};
    if (!forward && in.at == in.entries.begin())
        return {TS_PREVIOUS_ENTRY_AT_START, number_at(in.at->offset)};
    in.at = forward ? std::next(in.at) : std::prev(in.at);
    return {TS_OK, number_at(in.at->offset)};
}

outcome data_file::at_cursor(const key& in) const
{
    if (in.state == cursor_state::none) return {TS_CURSOR_NONE};
    return {TS_OK, number_at(in.at->offset)};
}

outcome data_file::cursor_to_record(const key& in)
{
    const outcome found = at_cursor(in);
    if (found.code == TS_OK) current = found.number;
    return found;
}

outcome data_file::record_to_cursor(key& in)
{
    if (current < 1) return {TS_NO_CURRENT_RECORD};
    const record& wanted = numbered(current);
    const auto found = in.entries.find({image_of(in.fields, wanted.body), wanted.offset});
    in.state = cursor_state::none;
    if (found == in.entries.end()) return {1, current};
    in.place(found);
    return {TS_OK, current};
}

} // namespace tarsil::model
