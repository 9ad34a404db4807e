// The key definitions that stand in an index file, read by the format alone: an index whose trees
// are damaged, so that the library doesn't open it, still tells what its keys were.
#pragma once

#include <string>
#include <vector>

#include "check/file_bytes.h"
#include "tarsil32.hpp"
#include "tool/failure.h"

namespace tarsil::tool {

struct key_records {
    std::vector<key_definition> definitions;
    std::vector<std::string> notes; // what had to be left to the library to choose
};

// `name` is for the words of a failure. record_length: a key must lie within records of fixed
// length.
answer<key_records> read_key_records(check::file_bytes& bytes, const std::string& name,
                                     int32_t record_length);

} // namespace tarsil::tool
