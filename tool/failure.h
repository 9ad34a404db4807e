// How the tool tells that something went wrong: an answer carries its value or a failure, and a
// failure is one line that ends with what to do next.
//
// Commands end with one of three exit statuses: done; done, but with something to be told (rows
// refused, nothing found, a file damaged); not done. Nothing here throws; the exceptions of the
// libraries that do are caught where those are called.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tarsil32.hpp"

namespace tarsil::tool {

inline constexpr int exit_done = 0;
inline constexpr int exit_partly = 1;
inline constexpr int exit_failed = 2;

struct failure {
    std::string text;   // what is wrong with what
    std::string advice; // what to do next
};

class [[nodiscard]] outcome {
public:
    outcome() = default;
    outcome(failure why) : why_(std::move(why)) {}

    explicit operator bool() const { return !why_; }
    const failure& why() const { return *why_; }

private:
    std::optional<failure> why_;
};

// As outcome, with a value where all went well.
template <class T> class [[nodiscard]] answer : public outcome {
public:
    answer(T value) : value_(std::move(value)) {}
    answer(failure why) : outcome(std::move(why)) {}

    T& operator*() { return *value_; }
    const T& operator*() const { return *value_; }
    T* operator->() { return &*value_; }
    const T* operator->() const { return &*value_; }

private:
    std::optional<T> value_;
};

// The command that is under way stands in front of every line.
void set_command(std::string_view name);
std::string_view current_command();

// Each writes one line on standard error. fail() gives back exit_failed.
int fail(const failure& why);
void warn(std::string_view text);
void note(std::string_view text);

// What the library answered about a file, in words. The advice is the code's own.
failure failure_of(const status& why, std::string_view what);

} // namespace tarsil::tool
