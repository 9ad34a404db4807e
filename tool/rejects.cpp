// Keeping the rows that didn't go in.
#include "tool/rejects.h"

#include <unistd.h>

namespace tarsil::tool {

outcome rejects::keep_in(const std::string& name)
{
    answer<byte_sink> made = byte_sink::create(name);
    if (!made) return made.why();
    file_.emplace(std::move(*made));
    name_ = name;
    return {};
}

void rejects::add(const row& bad, std::string_view reason, const std::string& header)
{
    const char* const unit = format_ == row_format::raw ? "record" : "line";
    const std::string where = fmt::format("{}, {} {}", source_, unit, bad.line);
    fmt::print(stderr, "{}: {}\n", where, reason);
    ++count_;
    if (!file_) return;
    if (count_ == 1) file_->put(header);
    file_->put(bad.text);
    const bool is_line = format_ != row_format::raw;
    if (is_line && !bad.text.ends_with('\n')) file_->put("\n");
}

outcome rejects::close()
{
    if (!file_) return {};
    outcome closed = file_->close();
    if (count_ == 0) unlink(name_.c_str());
    return closed;
}

} // namespace tarsil::tool
