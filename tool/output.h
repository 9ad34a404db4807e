// What commands write: bytes to standard output or a file, lines by fmt, tables by libsmartcols,
// facts as JSON.
//
// A write that fails is noted and everything behind it is dropped; commands with much to write look
// at failed() and stop. finish_output() tells about it at the end, in one line, and chooses the
// exit status. Tables are as wide as the terminal (COLUMNS, or what the terminal says), and as
// wide as they like where there is none; a table that doesn't fit becomes blocks of one line per
// value.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tool/json.h"
#include <fmt/format.h>

#include "tool/failure.h"

namespace tarsil::tool {

class byte_sink {
public:
    byte_sink() = default;
    explicit byte_sink(std::FILE* file) : file_(file) {}
    byte_sink(byte_sink&& other) noexcept;
    byte_sink& operator=(byte_sink&&) = delete;
    ~byte_sink();

    // A new file; one that is there already is never overwritten.
    // Failures name it `told`, where it is to get another name.
    static answer<byte_sink> create(const std::string& name, const std::string& told = {});

    bool is_open() const { return file_ != nullptr; }
    void put(std::string_view bytes)
    {
        buffer_.append(bytes);
        if (buffer_.size() >= kept) flush();
    }
    void put(char byte) { buffer_.push_back(byte); }
    void flush();
    bool failed() const { return error_ != 0; }
    int error() const { return error_; }

    // Flushes and closes a file of create().
    outcome close();

private:
    static constexpr size_t kept = size_t{64} << 10;

    std::FILE* file_ = nullptr;
    std::string name_;
    std::string buffer_;
    int error_ = 0; // errno of the first write that failed
};

byte_sink& standard_output();

template <class... Values> void print(fmt::format_string<Values...> pattern, Values&&... values)
{
    standard_output().put(fmt::format(pattern, std::forward<Values>(values)...));
}

// The last step of a command: `status` unless standard output failed.
int finish_output(int status);

void put_json(const json& facts);

// Columns of the terminal, or 0 where standard output is none.
int terminal_width();

struct column {
    std::string name;
    bool is_number = false; // stands to the right
};
using rows = std::vector<std::vector<std::string>>;

void put_table(const std::vector<column>& columns, const rows& lines);

// Names to the left, values to the right, long values wrapped.
void put_facts(const std::vector<std::pair<std::string, std::string>>& facts);

// 1234567 as 1,234,567.
std::string grouped(int64_t number);
// "1 record", "1,234 records".
std::string counted(int64_t number, std::string_view noun);

} // namespace tarsil::tool
