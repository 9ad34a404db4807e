// Facts about fields and keys in JSON and in words, for the commands that tell them.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "tool/fields.h"

namespace tarsil::tool {

// "record_length" (null for variable) and "fields".
void add_field_facts(nlohmann::ordered_json& facts, const field_list& list);

// The fields of a key by their names: "country, name". `list` may be empty: then by their places.
std::string key_names(const std::vector<field>& key, const field_list& list);
nlohmann::ordered_json key_fields(const std::vector<field>& key, const field_list& list);

} // namespace tarsil::tool
