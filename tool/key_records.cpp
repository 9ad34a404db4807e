#include "tool/key_records.h"

#include <cstring>

#include <fmt/format.h>

#include "index/index_format.h"

namespace tarsil::tool {

namespace {

constexpr unsigned char expected_version = 0x2A;

// What is wrong with a field of a key, or nothing.
std::string fault_of(const key_field& field, int32_t record_length)
{
    const int32_t fixed = fixed_field_length(field.type);
    if (fixed == unknown_letter) return "its letter is none of the ten";
    const bool is_length = fixed > 0 ? field.length == fixed
                                     : field.length >= 1 && field.length <= TS_MAX_STRING_FIELD;
    if (!is_length) return fmt::format("its length can't be {}", field.length);
    if (field.offset < 0) return fmt::format("its place can't be {}", field.offset);
    if (record_length >= 1 && int64_t{field.offset} + field.length > record_length)
        return fmt::format("it ends at {}, behind the records' {} bytes",
                           int64_t{field.offset} + field.length, record_length);
    return {};
}

// The order, if the key record's numbers bear each other out, or 0: the library then chooses.
uint32_t order_of(const key_record& key, int32_t sum)
{
    const bool is_even = key.max_entries >= min_entries && key.max_entries % 2 == 0;
    const bool is_borne_out = is_even &&
                              node_size(key.max_entries, sum, key.field_count) == key.node_bytes;
    return is_borne_out ? static_cast<uint32_t>(key.max_entries / 2) : 0;
}

outcome read_one(const key_record& key, int32_t number, int32_t record_length, key_records& into)
{
    const std::string advice = "give the keys with --key, as for `tarsil index`";
    if (key.field_count < 1 || key.field_count > TS_MAX_KEY_FIELDS)
        return failure{fmt::format("key {} tells {} fields", number, key.field_count), advice};
    key_definition made = {};
    made.cursor = 'y';
    made.field_count = key.field_count;
    int32_t sum = 0;
    for (int32_t i = 0; i < key.field_count; ++i) {
        const key_field& field = key.fields[i];
        const std::string fault = fault_of(field, record_length);
        if (!fault.empty())
            return failure{fmt::format("key {}, field {}: {}", number, i + 1, fault), advice};
        made.types[i] = field.type;
        made.lengths[i] = field.length;
        made.offsets[i] = field.offset;
        sum += field.length;
    }
    made.order = order_of(key, sum);
    if (made.order == 0)
        into.notes.push_back(fmt::format("the order of key {} can't be told; the library chooses "
                                         "it anew",
                                         number));
    into.definitions.push_back(made);
    return {};
}

} // namespace

answer<key_records> read_key_records(check::file_bytes& bytes, const std::string& name,
                                     int32_t record_length)
{
    const check::byte_span start = bytes.at(0, first_node_offset);
    if (start.empty())
        return failure{name + ": is shorter than the key records of an index file",
                       "make it anew with `tarsil index`"};
    if (start[0] != expected_version ||
        std::memcmp(start.data() + 1, index_magic, sizeof index_magic) != 0)
        return failure{name + ": doesn't begin with the mark of an index file",
                       "check the name; if it is a damaged one, move it away and use `tarsil "
                       "index`"};
    const int32_t count = load_i32(start.data() + key_count_offset);
    if (count < 0 || count > TS_MAX_KEYS)
        return failure{fmt::format("{}: tells {} keys", name, count),
                       "give the keys with --key, as for `tarsil index`"};
    key_records read;
    for (int32_t number = 0; number < count; ++number) {
        key_record key;
        std::memcpy(&key, start.data() + key_records_offset + ptrdiff_t{number} * key_record_bytes,
                    sizeof key);
        const outcome done = read_one(key, number, record_length, read);
        if (!done) return failure{name + ": " + done.why().text, done.why().advice};
    }
    return read;
}

} // namespace tarsil::tool
