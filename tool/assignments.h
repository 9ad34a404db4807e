// --set NAME=VALUE, for the commands that store a single record.
#pragma once

#include "tool/command.h"
#include "tool/record_builder.h"

namespace tarsil::tool {

void add_assignments(option_set& options, std::vector<std::string>& assignments);

// Puts the values into a record that has been begun.
outcome assign(record_builder& record, const std::vector<std::string>& assignments,
               const field_list& fields);

void add_duplicates(option_set& options, duplicates& repeated);

} // namespace tarsil::tool
