// What a damaged data file must have been: where its records begin, how long they are, which fields
// it told. The header is believed where it agrees with what stands in the file; what it doesn't
// tell is taken from the frames that are found.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tarsil32.hpp"
#include "tool/failure.h"
#include "tool/frame_scanner.h"

namespace tarsil::tool {

// What the user knows better.
struct known_facts {
    std::optional<int32_t> record_length; // or TS_VARIABLE_LENGTH
    std::optional<int64_t> first;
};

struct guessed_file {
    bool has_mark = false;
    scan_shape shape;
    std::vector<field_entry> table;
    bool is_table_believed = false;
    std::string length_source; // "as the header tells", ...
};

answer<guessed_file> guess_file(check::file_bytes& bytes, const known_facts& known);

} // namespace tarsil::tool
