// What the three formats share, and raw bytes.
#include "tool/row_reader.h"

#include <cstring>

#include <fmt/format.h>

namespace tarsil::tool {

outcome row_reader::read()
{
    switch (options_.format) {
    case row_format::csv: return read_csv();
    case row_format::json_lines: return read_json_lines();
    case row_format::raw: return read_raw();
    }
    return {};
}

bool row_reader::deliver(std::string_view text, int64_t line)
{
    const bool is_good = record_.finish();
    return take_({line, text, record_, is_good});
}

outcome row_reader::read_raw()
{
    constexpr size_t prefix_bytes = 4;
    for (int64_t number = 1;; ++number) {
        auto length = static_cast<size_t>(std::max(fields_.record_length, 0));
        if (fields_.is_variable()) {
            const std::string_view prefix = source_.next_bytes(prefix_bytes);
            if (prefix.empty()) break;
            int32_t told = 0;
            if (prefix.size() == prefix_bytes) std::memcpy(&told, prefix.data(), prefix_bytes);
            if (told < 1)
                return failure{fmt::format("{}, record {}: has no length", source_.name(), number),
                               "check that the file holds records behind their lengths"};
            length = static_cast<size_t>(told);
        }
        const std::string_view body = source_.next_bytes(length);
        if (source_.problem()) break;
        if (body.size() < length && (fields_.is_variable() || !body.empty()))
            return failure{
                fmt::format("{}, record {}: the file ends inside it", source_.name(), number),
                "check that the file is whole and of records of this length"};
        if (body.empty()) break;
        record_.begin(std::as_bytes(std::span(body)));
        const bool go_on = take_({number, source_.row(), record_, record_.take_as_it_is(length)});
        source_.end_row();
        if (!go_on) break;
    }
    if (source_.problem()) return *source_.problem();
    return {};
}

} // namespace tarsil::tool
