// Facts about fields and keys. A key knows its fields by letter, length and place; their names are
// those of the data file's fields at the same place.
#include "tool/describe.h"

#include <fmt/format.h>

namespace tarsil::tool {

namespace {

std::string name_at(const field& part, const field_list& list)
{
    for (const field& one : list.all)
        if (one.offset == part.offset && one.letter == part.letter) return one.name;
    return {};
}

} // namespace

void add_field_facts(json& facts, const field_list& list)
{
    facts["record_length"] = list.is_variable() ? json() : json(list.record_length);
    facts["fields"] = json::array();
    for (const field& one : list.all)
        facts["fields"].push_back({{"name", one.name},
                                   {"type", type_name(one)},
                                   {"letter", std::string(1, one.letter)},
                                   {"length", one.length},
                                   {"offset", one.offset}});
}

std::string key_names(const std::vector<field>& key, const field_list& list)
{
    std::string names;
    for (const field& part : key) {
        const std::string name = name_at(part, list);
        if (!names.empty()) names += ", ";
        names += name.empty() ? fmt::format("{} at {}", type_name(part), part.offset) : name;
    }
    return names;
}

json key_fields(const std::vector<field>& key, const field_list& list)
{
    auto all = json::array();
    for (const field& part : key) {
        const std::string name = name_at(part, list);
        json one;
        if (!name.empty()) one["name"] = name;
        one["type"] = type_name(part);
        one["letter"] = std::string(1, part.letter);
        one["length"] = part.length;
        one["offset"] = part.offset;
        all.push_back(std::move(one));
    }
    return all;
}

} // namespace tarsil::tool
