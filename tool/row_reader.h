// Rows of CSV, JSON Lines or raw bytes, turned into records one by one.
//
// Each row reaches `take` either as a record or with the reason why it is none; the rows behind a
// bad one are read as if it weren't there. CSV: quotes that don't pair cost the one line in which
// they begin. Raw bytes: bodies back to back in a file of fixed length; in one of variable length
// each behind its length, 4 bytes with the lowest first.
#pragma once

#include <functional>

#include "tool/line_source.h"
#include "tool/record_builder.h"

namespace tarsil::tool {

enum class row_format { csv, json_lines, raw };

struct reading_options {
    row_format format = row_format::csv;
    char separator = ',';
    bool has_header = true;
    bool is_empty_zero = false; // an empty cell of a number
    bool is_partial = false;    // columns without a field, fields without a column
};

struct row {
    int64_t line;          // of the file, from 1; of raw bytes the number of the record
    std::string_view text; // as it stands in the file
    const record_builder& record;
    bool is_good;
};

// False ends the reading.
using take_row = std::function<bool(const row&)>;

class row_reader {
public:
    row_reader(line_source& source, const field_list& fields, const reading_options& options,
               take_row take)
        : source_(source), fields_(fields), options_(options), take_(std::move(take)),
          record_(fields, options.is_partial, options.is_empty_zero)
    {
    }

    // To the end of the source, or until a row is not taken. A failure is one of the source, or of
    // a header that doesn't fit the fields.
    outcome read();

    // The header line of CSV as it stands in the file.
    const std::string& header() const { return header_; }

private:
    friend class csv_rows;
    friend class json_row;

    outcome read_csv();
    outcome read_json_lines();
    outcome read_raw();
    bool deliver(std::string_view text, int64_t line);

    line_source& source_;
    const field_list& fields_;
    const reading_options& options_;
    take_row take_;
    record_builder record_;
    std::string header_;
};

} // namespace tarsil::tool
