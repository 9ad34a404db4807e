// Facts as JSON: put together here, written by nlohmann-json (tool/json.cpp), whose headers would
// cost every command a part of its compilation.
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tarsil::tool {

struct json_member;

// Members of an object keep their order.
class json {
public:
    json() = default; // null
    json(bool value) : value_(value) {}
    json(std::integral auto value) : value_(static_cast<int64_t>(value)) {}
    json(double value) : value_(value) {}
    json(std::string value) : value_(std::move(value)) {}
    json(std::string_view value) : value_(std::string(value)) {}
    json(const char* value) : value_(std::string(value)) {}
    json(const std::vector<std::string>& values);
    json(const std::vector<int32_t>& values);
    json(std::initializer_list<json_member> members);
    static json array();

    void push_back(json value);
    // The member of this name; a new one, null, where there is none.
    json& operator[](std::string_view name);
    const json& at(std::string_view name) const; // null where there is none
    bool contains(std::string_view name) const { return find(name) != nullptr; }
    void append(const json& members);

    bool is_null() const { return std::holds_alternative<std::monostate>(value_); }
    bool is_array() const { return std::holds_alternative<list>(value_); }
    const std::vector<json>& items() const;
    const std::vector<json_member>& members() const;
    const std::string& text() const { return std::get<std::string>(value_); }
    int64_t number() const { return std::get<int64_t>(value_); }
    bool is_number() const { return std::holds_alternative<int64_t>(value_); }

    std::string dump() const; // several lines, indented
    template <class Visitor> auto visit(const Visitor& of) const { return std::visit(of, value_); }

private:
    using list = std::vector<json>;
    using object = std::vector<json_member>;

    const json* find(std::string_view name) const;

    std::variant<std::monostate, bool, int64_t, double, std::string, list, object> value_;
};

struct json_member {
    std::string name;
    json value;
};

} // namespace tarsil::tool
