// Text that is to become records, as CSV and as JSON Lines: whatever it is, each row is a record of
// a length that the file takes, or is refused with a reason.
#pragma once

#include "fuzz/target.h"
#include "tool/row_reader.h"

#include <sys/mman.h>
#include <unistd.h>

namespace tarsil::fuzz {

// The reader takes files; this is one without a disk.
class file_in_memory {
public:
    file_in_memory(const uint8_t* bytes, size_t count) : descriptor_(memfd_create("rows", 0))
    {
        const ssize_t written = write(descriptor_, bytes, count);
        require(written == static_cast<ssize_t>(count), "a file in memory");
    }
    ~file_in_memory() { close(descriptor_); }
    file_in_memory(const file_in_memory&) = delete;
    file_in_memory& operator=(const file_in_memory&) = delete;

    std::string name() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

inline const tool::field_list& fields_of(bool is_variable)
{
    const auto make = [](int32_t record_length) {
        tool::field_list list;
        list.all = layout::packed({{"id", 'i'},
                                   {"small", 'c'},
                                   {"price", 'd'},
                                   {"ratio", 'f'},
                                   {"count", 'L'},
                                   {"note", 's', 12}})
                       .fields();
        list.has_names = true;
        list.record_length = record_length;
        return list;
    };
    static const tool::field_list lists[] = {make(33), make(TS_VARIABLE_LENGTH)};
    return lists[is_variable ? 1 : 0];
}

// The first byte holds the options.
inline void read_rows(const uint8_t* bytes, size_t count, tool::row_format format)
{
    if (count == 0) return;
    const file_in_memory file(bytes + 1, count - 1);
    tool::answer<tool::line_source> source = tool::line_source::open(file.name());
    require(bool(source), "the file can be opened");

    const bool is_variable = (bytes[0] & 1) != 0;
    tool::reading_options options;
    options.format = format;
    options.has_header = (bytes[0] & 2) == 0;
    options.is_empty_zero = (bytes[0] & 4) != 0;
    options.is_partial = (bytes[0] & 8) != 0;
    if ((bytes[0] & 16) != 0) options.separator = ';';
    int64_t last_line = 0;
    tool::row_reader reader(*source, fields_of(is_variable), options, [&](const tool::row& row) {
        require(row.line >= last_line, "rows come in order");
        require(row.is_good == row.record.reason().empty(), "a refused row has a reason");
        const size_t length = row.record.bytes().size();
        if (row.is_good && is_variable) require(length >= 1 && length <= 33, "a length that fits");
        if (row.is_good && !is_variable) require(length == 33, "the length of the file");
        last_line = row.line;
        return true;
    });
    const tool::outcome done = reader.read();
    require(done || !done.why().text.empty(), "a failure says what is wrong");
}

} // namespace tarsil::fuzz
