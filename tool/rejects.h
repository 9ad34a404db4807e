// The rows that didn't go in: one line on standard error for each, and, where a file is asked for,
// the rows themselves as they were, so that they can be corrected and imported again.
#pragma once

#include "tool/output.h"
#include "tool/row_reader.h"

namespace tarsil::tool {

class rejects {
public:
    rejects(std::string source, row_format format) : source_(std::move(source)), format_(format) {}

    // The file is made at once: better now than at the first bad row.
    outcome keep_in(const std::string& name);
    void add(const row& bad, std::string_view reason, const std::string& header);
    int64_t count() const { return count_; }
    // A file without rows goes again.
    outcome close();

private:
    std::string source_;
    row_format format_;
    std::string name_;
    std::optional<byte_sink> file_;
    int64_t count_ = 0;
};

} // namespace tarsil::tool
