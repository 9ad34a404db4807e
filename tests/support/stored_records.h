// The records of a data file that is sound up to the end that its header tells, read from its
// bytes.
#pragma once

#include "core/offsets.h"
#include "data/data_format.h"

#include <string>
#include <vector>

namespace tarsil::support {

struct stored_record {
    char mark;
    std::string body;
    bool operator==(const stored_record&) const = default;
};

inline std::vector<stored_record> records_in(const std::string& file)
{
    std::vector<stored_record> records;
    const auto end = static_cast<size_t>(load_i32(file.data() + 16));
    const auto fields = static_cast<size_t>(load_i32(file.data() + 24));
    for (size_t at = field_table_offset + fields; at < end;) {
        const auto length = static_cast<size_t>(load_i32(file.data() + at + 4));
        records.push_back({file[at], file.substr(at + frame_bytes, length)});
        at += frame_bytes + length;
    }
    return records;
}

} // namespace tarsil::support
