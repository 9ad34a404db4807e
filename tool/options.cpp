#include "tool/options.h"

#include <charconv>

#include <fmt/format.h>

namespace tarsil::tool {

option::option(const char* its_name, target its_value, const char* its_about)
    : name(its_name), about(its_about), value(std::move(its_value))
{
}

option& option::required()
{
    is_required = true;
    return *this;
}

option& option::value_name(const char* text)
{
    value_text = text;
    return *this;
}

option& option::between(double low, double high)
{
    const bool is_whole = !std::holds_alternative<double*>(value);
    passes = [=](const std::string& text) {
        double number = 0;
        const char* const end = text.data() + text.size();
        const auto read = std::from_chars(text.data(), end, number);
        const bool is_number = read.ec == std::errc() && read.ptr == end;
        const bool is_plain = !is_whole || text.find_first_of(".eE") == text.npos;
        return is_number && is_plain && number >= low && number <= high;
    };
    wanted = high < INT32_MAX ? fmt::format("number from {} to {}", low, high)
                              : fmt::format("number from {} up", low);
    return *this;
}

option& option::from_one() { return between(1, INT32_MAX); }

option& option::test(value_test test, const char* text)
{
    passes = std::move(test);
    wanted = text;
    return *this;
}

option& option::excludes(const char* other)
{
    excluded = other;
    return *this;
}

option& option::shows_default()
{
    if (const auto* const whole = std::get_if<int32_t*>(&value))
        default_text = std::to_string(**whole);
    if (const auto* const number = std::get_if<double*>(&value))
        default_text = fmt::format("{}", **number);
    return *this;
}

bool option::is_list() const
{
    return std::holds_alternative<std::vector<std::string>*>(value) ||
           std::holds_alternative<std::vector<int32_t>*>(value);
}

} // namespace tarsil::tool
