// Records as text: CSV, JSON Lines or raw bytes, in the forms that import reads (tool/row_reader.h,
// tool/values.h), so that what is exported and imported again is the same to the last byte.
//
// Beside the fields there can be two more columns: "_number", which import passes over, and
// "_deleted".
#pragma once

#include "tool/output.h"
#include "tool/row_reader.h"

namespace tarsil::tool {

struct writing_options {
    row_format format = row_format::csv;
    char separator = ',';
    bool has_header = true;
    bool has_deleted = false;
    bool has_number = false;
};

class record_writer {
public:
    record_writer(byte_sink& sink, const field_list& fields, const writing_options& options);

    // The header line, where there is one.
    void begin();
    // Fails for a record of variable length that ends inside a field: only raw bytes can hold it.
    outcome put(const record& one);

private:
    outcome put_csv(const record& one);
    outcome put_json(const record& one);
    void put_raw(const record& one);
    void end_cell();
    outcome cut(const record& one, size_t field_number) const;

    byte_sink& sink_;
    const field_list& fields_;
    writing_options options_;
    std::vector<std::string> json_names_; // "name":
    std::string line_;
    std::string cell_;
};

// The bytes of a field in a record: none if the record ends before it.
enum class presence { whole, absent, cut };
presence find_field(const field_list& fields, size_t number, std::span<const std::byte> record,
                    std::span<const std::byte>& found);

} // namespace tarsil::tool
