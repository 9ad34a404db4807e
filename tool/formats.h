// Names of formats, and the options that import, export and look-ups share.
#pragma once

#include <string>

#include "tool/command.h"
#include "tool/row_reader.h"

namespace tarsil::tool {

void add_format(option_set& options, std::string& format, const char* text);
void add_separator(option_set& options, char& separator);

// "csv", "jsonl" or "raw"; for an empty name what the file's ending says, else CSV.
answer<row_format> read_format(const std::string& name, const std::string& file);

} // namespace tarsil::tool
