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
    json(); // null
    json(bool value);
    json(std::integral auto value) : json(whole{static_cast<int64_t>(value)}) {}
    json(double value);
    json(std::string value);
    json(std::string_view value) : json(std::string(value)) {}
    json(const char* value) : json(std::string(value)) {}
    json(const std::vector<std::string>& values);
    json(const std::vector<int32_t>& values);
    json(std::initializer_list<json_member> members);
    json(const json& other);
    json(json&& other) noexcept;
    json& operator=(const json& other);
    json& operator=(json&& other) noexcept;
    ~json();
    static json array();

    void push_back(json value);
    // The member of this name; a new one, null, where there is none.
    json& operator[](std::string_view name);
    const json& at(std::string_view name) const; // null where there is none
    bool contains(std::string_view name) const { return find(name) != nullptr; }
    void append(const json& members);

    bool is_null() const;
    bool is_array() const;
    bool is_number() const;
    const std::vector<json>& items() const;
    const std::vector<json_member>& members() const;
    const std::string& text() const;
    int64_t number() const;

    std::string dump() const; // several lines, indented

private:
    struct whole {
        int64_t number;
    };
    using list = std::vector<json>;
    using object = std::vector<json_member>;

    explicit json(whole value);
    const json* find(std::string_view name) const;

    friend struct json_writer;
    std::variant<std::monostate, bool, int64_t, double, std::string, list, object> value_;
};

struct json_member {
    std::string name;
    json value;
};

} // namespace tarsil::tool
