// The operands and options of a command, as the command declares them. From this list come the
// reading of the command line (tool/command_line.cpp), the manual page and the completion.
//
// A name that begins with -- is an option's, any other one an operand's. An operand for a list
// takes all words that are left; an option for a list is given once for each value. The values are
// stored where the command says, which has to last until it has run.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace tarsil::tool {

using on_flag = std::function<void()>;
using on_value = std::function<void(const std::string& text)>;

class option {
public:
    using target =
        std::variant<bool*, int32_t*, uint32_t*, int64_t*, double*, std::string*,
                     std::vector<std::string>*, std::vector<int32_t>*, on_flag, on_value>;
    using value_test = std::function<bool(const std::string& text)>;

    option(const char* name, target value, const char* about);

    option& required();
    option& value_name(const char* name); // as the help shows it
    // Numbers. Without a limit `high` is INT32_MAX, and isn't told.
    option& between(double low, double high);
    option& from_one();
    // What a value has to be, in words behind "is no".
    option& test(value_test passes, const char* wanted);
    option& excludes(const char* name);
    option& shows_default();

    bool is_operand() const { return name[0] != '-'; }
    bool is_flag() const
    {
        return std::holds_alternative<bool*>(value) || std::holds_alternative<on_flag>(value);
    }
    bool is_list() const;

    std::string name;
    std::string about;
    std::string value_text = "TEXT";
    std::string default_text; // where it is shown
    std::string excluded;
    std::string wanted;
    value_test passes;
    target value;
    bool is_required = false;
};

class option_set {
public:
    template <class T> option& add(const char* name, T& value, const char* about)
    {
        return all_.emplace_back(name, &value, about);
    }
    option& add_call(const char* name, on_flag call, const char* about)
    {
        return all_.emplace_back(name, std::move(call), about);
    }
    option& add_call(const char* name, on_value call, const char* about)
    {
        return all_.emplace_back(name, std::move(call), about);
    }
    const std::deque<option>& all() const { return all_; }

private:
    std::deque<option> all_;
};

} // namespace tarsil::tool
