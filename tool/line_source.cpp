// Reading lines.
#include "tool/line_source.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tool/signals.h"

namespace tarsil::tool {

namespace {

constexpr int no_descriptor = -1;
constexpr size_t read_bytes = size_t{256} << 10;
constexpr size_t most_buffer_bytes = size_t{256} << 20;

// A wish to stop ends the wait, where a read would go on with it. False: nothing more is wanted.
bool wait_for_bytes(int descriptor)
{
    constexpr int look_every = 200; // milliseconds
    struct pollfd one = {descriptor, POLLIN, 0};
    while (!stop_wanted()) {
        const int ready = poll(&one, 1, look_every);
        if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
    }
    return false;
}

} // namespace

answer<line_source> line_source::open(const std::string& name)
{
    line_source made;
    made.name_ = name == "-" ? "standard input" : name;
    made.descriptor_ = name == "-" ? dup(STDIN_FILENO) : ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat about = {};
    const bool is_there = made.descriptor_ >= 0 && fstat(made.descriptor_, &about) == 0;
    if (!is_there)
        return failure{made.name_ + ": can't be read: " + std::strerror(errno),
                       "check its name and its permissions"};
    if (S_ISDIR(about.st_mode))
        return failure{name + ": is a folder", "give a file, or - for standard input"};
    made.is_file_ = S_ISREG(about.st_mode);
    if (made.is_file_) made.size_ = about.st_size;
    return made;
}

line_source::line_source(line_source&& other) noexcept
    : name_(std::move(other.name_)), descriptor_(std::exchange(other.descriptor_, no_descriptor)),
      size_(other.size_), is_file_(other.is_file_)
{
}

line_source::~line_source()
{
    if (descriptor_ >= 0) close(descriptor_);
}

// More bytes behind those in the buffer; what lies in front of the row makes room.
bool line_source::fill()
{
    if (is_at_end_ || problem_) return false;
    if (row_begin_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + row_begin_, end_ - row_begin_);
        bytes_before_ += static_cast<int64_t>(row_begin_);
        end_ -= row_begin_;
        cursor_ -= row_begin_;
        row_begin_ = 0;
    }
    if (buffer_.size() < end_ + read_bytes) buffer_.resize((end_ + read_bytes) * 2);
    if (end_ > most_buffer_bytes) {
        problem_ = failure{fmt::format("{}, line {}: is longer than {} bytes", name_, row_line_,
                                       most_buffer_bytes),
                           "check the file; it doesn't look like rows of text"};
        return false;
    }
    if (!is_file_ && before_waiting_) before_waiting_();
    is_at_end_ = !is_file_ && !wait_for_bytes(descriptor_);
    if (is_at_end_) return false;
    ssize_t count = 0;
    do count = ::read(descriptor_, buffer_.data() + end_, read_bytes);
    while (count < 0 && errno == EINTR);
    if (count < 0)
        problem_ = failure{name_ + ": can't be read: " + std::strerror(errno), "try again"};
    is_at_end_ = count <= 0;
    if (count > 0) end_ += static_cast<size_t>(count);
    return count > 0;
}

bool line_source::next_line(std::string_view& line)
{
    size_t looked = cursor_ - row_begin_;
    const void* found = nullptr;
    for (;;) {
        const size_t from = row_begin_ + looked;
        if (from < end_) found = std::memchr(buffer_.data() + from, '\n', end_ - from);
        if (found != nullptr) break;
        looked = end_ - row_begin_;
        if (!fill()) break;
    }
    if (problem_) return false;
    const char* const front = buffer_.data() + cursor_;
    const size_t length = found == nullptr
                              ? end_ - cursor_
                              : static_cast<size_t>(static_cast<const char*>(found) - front) + 1;
    if (length == 0) return false;
    line = {front, length};
    cursor_ += length;
    ++lines_in_row_;
    return true;
}

std::string_view line_source::next_bytes(size_t count)
{
    while (end_ - cursor_ < count && fill()) {}
    const std::string_view bytes(buffer_.data() + cursor_, std::min(count, end_ - cursor_));
    cursor_ += bytes.size();
    return bytes;
}

void line_source::end_row()
{
    row_begin_ = cursor_;
    row_line_ += lines_in_row_;
    lines_in_row_ = 0;
}

std::string_view line_source::first_line() const
{
    const std::string_view all = row();
    return all.substr(0, std::min(all.find('\n'), all.size() - 1) + 1);
}

void line_source::give_up_first_line()
{
    row_begin_ += first_line().size();
    cursor_ = row_begin_;
    lines_in_row_ = 0;
    ++row_line_;
}

} // namespace tarsil::tool
