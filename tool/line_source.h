// A file, or standard input for the name "-", read line by line and looked at row by row: a row can
// be made of several lines, and a row that turns out to be broken is given up to its first line.
//
// Bytes stay in the buffer from the beginning of the row on. Their number is bounded: a line that
// is longer than the bound ends the reading with a failure.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tool/failure.h"

namespace tarsil::tool {

class line_source {
public:
    static answer<line_source> open(const std::string& name);
    line_source(line_source&& other) noexcept;
    line_source& operator=(line_source&&) = delete;
    ~line_source();

    // The next line with its line end, which the last line may lack. False at the end of the file
    // or after a failure.
    bool next_line(std::string_view& line);
    // The next bytes, fewer at the end of the file only.
    std::string_view next_bytes(size_t count);

    // The lines since the last end_row(), and the number of the first of them.
    std::string_view row() const { return {buffer_.data() + row_begin_, cursor_ - row_begin_}; }
    int64_t row_line() const { return row_line_; }
    void end_row();
    // Gives up the first line of the row; what follows is read again.
    void give_up_first_line();
    std::string_view first_line() const;

    // Called in front of every read that may have to wait for somebody: of anything but a file.
    void before_waiting(std::function<void()> call) { before_waiting_ = std::move(call); }

    int64_t size() const { return size_; } // 0 where it isn't known
    int64_t bytes_read() const { return bytes_before_ + static_cast<int64_t>(cursor_); }
    const std::optional<failure>& problem() const { return problem_; }
    const std::string& name() const { return name_; }

private:
    line_source() = default;
    bool fill();

    std::string name_;
    int descriptor_ = -1;
    int64_t size_ = 0;
    bool is_file_ = false;
    std::vector<char> buffer_;
    size_t end_ = 0;    // of the bytes in the buffer
    size_t cursor_ = 0; // behind the last line
    size_t row_begin_ = 0;
    int64_t bytes_before_ = 0; // bytes of the file in front of the buffer
    int64_t row_line_ = 1;
    int64_t lines_in_row_ = 0;
    bool is_at_end_ = false;
    std::optional<failure> problem_;
    std::function<void()> before_waiting_;
};

} // namespace tarsil::tool
