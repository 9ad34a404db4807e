// Facts about fields and keys in JSON and in words, for the commands that tell them.
#pragma once

#include <string>
#include <vector>

#include "tool/json.h"

#include "tool/fields.h"

namespace tarsil::tool {

// "record_length" (null for variable) and "fields".
void add_field_facts(json& facts, const field_list& list);

// The fields of a key by their names: "country, name". `list` may be empty: then by their places.
std::string key_names(const std::vector<field>& key, const field_list& list);
json key_fields(const std::vector<field>& key, const field_list& list);

} // namespace tarsil::tool
