// Files put together by hand, from the pictures in docs/FILE_FORMATS.md: numbers, frames, data
// files, keys, nodes. No code of the library has a hand in them, so that tests and library don't
// rest on one idea of the formats.
#pragma once

#include "tarsil32.h"

#include <string>
#include <string_view>
#include <vector>

namespace tarsil::support {

template <class Number> std::string raw(Number value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

template <class Number> std::string i32(Number value) { return raw(static_cast<int32_t>(value)); }

// Puts a number into a copy of a file.
inline std::string with(std::string file, size_t offset, int32_t value)
{
    return file.replace(offset, 4, i32(value));
}

// Puts bytes over those of a file, or behind them.
inline void overwrite(std::string& file, size_t at, std::string_view bytes)
{
    if (file.size() < at + bytes.size()) file.resize(at + bytes.size());
    file.replace(at, bytes.size(), bytes);
}

inline std::string frame(const std::string& body, char mark = ' ')
{
    return std::string{mark, 0, 0, 0} + i32(body.size()) + body;
}

// A data file without fields.
inline std::string data_file(int32_t records, int32_t deleted, int32_t record_length,
                             int64_t end_offset, const std::string& frames = {})
{
    return "*TSD" + i32(records) + i32(deleted) + i32(record_length) + i32(end_offset) + i32(0) +
           i32(0) + frames;
}

// A field of a key; in a definition the library itself knows the lengths of all but strings.
struct key_part {
    char type;
    int32_t length = 0;
    int32_t offset = 0;
};

inline key_definition define_key(uint32_t order, const std::vector<key_part>& parts,
                                 char cursor = 'y')
{
    key_definition made = {};
    made.cursor = cursor;
    made.order = order;
    made.field_count = static_cast<int32_t>(parts.size());
    for (size_t i = 0; i < parts.size(); ++i) {
        made.types[i] = parts[i].type;
        made.lengths[i] = parts[i].length;
        made.offsets[i] = parts[i].offset;
    }
    return made;
}

// A key as it stands in an index file.
struct key_shape {
    std::vector<key_part> parts;
    int32_t max_entries = 4;

    int32_t stride() const
    {
        int32_t bytes = 8;
        for (const key_part& each : parts) bytes += each.length;
        return bytes;
    }
    int32_t node_bytes() const
    {
        return max_entries * (stride() + 4 * static_cast<int32_t>(parts.size()) - 4) + 8;
    }
};

inline std::string key_block(const key_shape& key, int64_t root)
{
    std::string block = i32(key.max_entries) + i32(key.node_bytes()) + i32(key.parts.size()) +
                        i32(key.stride() - 4) + i32(root);
    for (const key_part& each : key.parts)
        block += std::string{each.type, 0, 0, 0} + i32(each.length) + i32(each.offset) + i32(0);
    block.resize(276);
    return block;
}

// What stands in front of the nodes.
inline std::string index_head(const std::vector<std::string>& key_blocks)
{
    std::string file = "*TSI" + i32(key_blocks.size());
    for (const std::string& each : key_blocks) file += each;
    file.resize(2216);
    return file;
}

// `used` are the entries in front, in a branch with the one of the final child; `filler` stands
// where nothing is told.
inline std::string node(const key_shape& key, char type, int64_t count, std::string used = {},
                        char filler = 0)
{
    const auto stride = static_cast<size_t>(key.stride());
    while (used.size() < stride * static_cast<size_t>(key.max_entries))
        used += i32(-1) + std::string(stride - 4, '\0');
    used.resize(static_cast<size_t>(key.node_bytes()) - 8, filler);
    return used + i32(count) + std::string(3, filler) + type;
}

} // namespace tarsil::support
