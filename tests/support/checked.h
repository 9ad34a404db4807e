// What files hold by their bytes in memory: what the checkers say of them, and the records of a
// data file that is sound up to the end that is asked for.
#pragma once

#include "check/index_check.h"
#include "core/offsets.h"
#include "data/data_format.h"

#include <map>
#include <string>
#include <vector>

namespace tarsil::support {

inline check::byte_span span_of(const std::string& bytes)
{
    return {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
}

inline check::data_report check_data(const std::string& bytes)
{
    return check::check_data_image(span_of(bytes));
}

inline check::index_report check_index(const std::string& bytes, const std::string& data)
{
    return check::check_index_image(span_of(bytes), span_of(data));
}

struct stored_record {
    char mark;
    std::string body;
    bool operator==(const stored_record&) const = default;
};

// Whole frames by their offsets.
inline std::map<size_t, std::string> frames_in(const std::string& file, size_t end)
{
    std::map<size_t, std::string> frames;
    const auto fields = static_cast<size_t>(load_i32(file.data() + 20));
    for (size_t at = field_table_offset + fields; at < end;) {
        const auto length = static_cast<size_t>(load_i32(file.data() + at + 4));
        frames[at] = file.substr(at, frame_bytes + length);
        at += frame_bytes + length;
    }
    return frames;
}

// Up to the end that the header tells.
inline std::vector<stored_record> records_in(const std::string& file)
{
    std::vector<stored_record> records;
    const auto end = static_cast<size_t>(load_i32(file.data() + 16));
    for (const auto& [offset, whole] : frames_in(file, end))
        records.push_back({whole[0], whole.substr(frame_bytes)});
    return records;
}

} // namespace tarsil::support
