#include "tool/json.h"

#include <nlohmann/json.hpp>

namespace tarsil::tool {

json::json() = default;
json::json(const json& other) = default;
json::json(json&& other) noexcept = default;
json& json::operator=(const json& other) = default;
json& json::operator=(json&& other) noexcept = default;
json::~json() = default;

json::json(bool value) : value_(value) {}
json::json(whole value) : value_(value.number) {}
json::json(double value) : value_(value) {}
json::json(std::string value) : value_(std::move(value)) {}
json::json(const std::vector<std::string>& values) : value_(list(values.begin(), values.end())) {}
json::json(const std::vector<int32_t>& values) : value_(list(values.begin(), values.end())) {}
json::json(std::initializer_list<json_member> members) : value_(object(members)) {}

json json::array()
{
    json made;
    made.value_ = list();
    return made;
}

void json::push_back(json value) { std::get<list>(value_).push_back(std::move(value)); }

const json* json::find(std::string_view name) const
{
    for (const json_member& one : members())
        if (one.name == name) return &one.value;
    return nullptr;
}

json& json::operator[](std::string_view name)
{
    if (is_null()) value_ = object();
    for (json_member& one : std::get<object>(value_))
        if (one.name == name) return one.value;
    return std::get<object>(value_).emplace_back(json_member{std::string(name), {}}).value;
}

const json& json::at(std::string_view name) const
{
    static const json none;
    const json* const found = find(name);
    return found == nullptr ? none : *found;
}

void json::append(const json& others)
{
    for (const json_member& one : others.members()) (*this)[one.name] = one.value;
}

bool json::is_null() const { return std::holds_alternative<std::monostate>(value_); }
bool json::is_array() const { return std::holds_alternative<list>(value_); }
bool json::is_number() const { return std::holds_alternative<int64_t>(value_); }
const std::string& json::text() const { return std::get<std::string>(value_); }
int64_t json::number() const { return std::get<int64_t>(value_); }
const std::vector<json>& json::items() const { return std::get<list>(value_); }
const std::vector<json_member>& json::members() const { return std::get<object>(value_); }

// --- Writing -----------------------------------------------------------------------------------

using written = nlohmann::ordered_json;

struct json_writer {
    static written of(const json& value) { return std::visit(json_writer(), value.value_); }

    written operator()(std::monostate) const { return nullptr; }
    written operator()(const std::vector<json>& items) const
    {
        written all = written::array();
        for (const json& one : items) all.push_back(of(one));
        return all;
    }
    written operator()(const std::vector<json_member>& members) const
    {
        written all = written::object();
        for (const json_member& one : members) all[one.name] = of(one.value);
        return all;
    }
    written operator()(const auto& plain) const { return plain; }
};

// Bytes that are no UTF-8, as a file's name may have them, are replaced.
std::string json::dump() const
{
    return json_writer::of(*this).dump(2, ' ', false, written::error_handler_t::replace);
}

} // namespace tarsil::tool
