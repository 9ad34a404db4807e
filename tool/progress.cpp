// The progress line.
#include "tool/progress.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "tool/failure.h"
#include "tool/output.h"

namespace tarsil::tool {

namespace {

using namespace std::chrono_literals;

constexpr auto first_line = 1s;
constexpr auto between_on_terminal = 200ms;
constexpr auto between_elsewhere = 10s;

std::string as_time(double seconds)
{
    const auto whole = static_cast<int64_t>(seconds + 0.5);
    if (whole < 60) return fmt::format("{} s", whole);
    return fmt::format("{} min {:02} s", whole / 60, whole % 60);
}

} // namespace

progress::progress(std::string what, int64_t total)
    : what_(std::move(what)), total_(total), start_(clock::now())
{
    choose_pace();
}

void progress::choose_pace()
{
    const char* const told = std::getenv("TARSIL_PROGRESS");
    const double seconds = told != nullptr ? std::atof(told) : 0;
    is_rewritten_ = seconds <= 0 && isatty(STDERR_FILENO) == 1;
    between_ = is_rewritten_ ? clock::duration(between_on_terminal) : between_elsewhere;
    next_ = start_ + (is_rewritten_ ? clock::duration(first_line) : between_);
    if (seconds <= 0) return;
    const auto pace = std::chrono::duration<double>(std::min(seconds, 1e6));
    between_ = std::chrono::duration_cast<clock::duration>(pace);
    next_ = start_ + between_;
}

void progress::look(int64_t done, int64_t records)
{
    const clock::time_point now = clock::now();
    if (now < next_) return;
    next_ = now + between_;
    show(done, records, now);
}

void progress::show(int64_t done, int64_t records, clock::time_point now)
{
    const double seconds = std::chrono::duration<double>(now - start_).count();
    std::string line = what_;
    if (total_ > 0) {
        const double part = std::clamp(static_cast<double>(done) / static_cast<double>(total_), 0.0,
                                       0.999);
        line += fmt::format(" {:.0f} %", part * 100);
    }
    if (records > 0) {
        const auto rate = static_cast<int64_t>(static_cast<double>(records) / seconds);
        line += fmt::format(", {} records, {} a second", grouped(records), grouped(rate));
    }
    if (total_ > 0 && done > 0 && done < total_) {
        const double left = seconds / static_cast<double>(done) *
                            static_cast<double>(total_ - done);
        line += ", " + as_time(left) + " left";
    }
    const int width = terminal_width();
    if (is_rewritten_ && width > 1) line = line.substr(0, static_cast<size_t>(width - 1));
    fmt::print(stderr, "{}{}{}", is_rewritten_ ? "\r\033[K" : "", line, is_rewritten_ ? "" : "\n");
    is_shown_ = is_rewritten_;
}

void progress::finish()
{
    if (is_shown_) fmt::print(stderr, "\r\033[K");
    is_shown_ = false;
}

} // namespace tarsil::tool
