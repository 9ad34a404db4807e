// The fields of a file's records, as the tool knows them: name, letter, length, and the place in
// the record, where they stand back to back.
//
// A data file tells letters and lengths at most. Names come from a small text file beside it,
// DATA.fields, which the tool writes with a file that it creates:
//
//     # comment
//     ident      s 8
//     latitude   d 8
//
// A line is a name, which may hold blanks, a letter and a length. Without that file the fields are
// called f1, f2 ... A file without a field table, or whose table can't be that of its records, has
// one field "record" over the whole of them; bytes behind the last field are a field "rest".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tarsil32.hpp"
#include "tool/failure.h"

namespace tarsil::tool {

struct field_list {
    std::vector<field> all;
    bool has_names = false;    // from DATA.fields
    int32_t record_length = 0; // TS_VARIABLE_LENGTH for variable

    bool is_variable() const { return record_length == TS_VARIABLE_LENGTH; }
    // The last field of a record of variable length is as long as its text.
    bool is_open_ended(size_t number) const
    {
        return is_variable() && number + 1 == all.size() && all[number].letter == 's';
    }
    // The longest record that the fields can make.
    int64_t longest_record() const;
    // The number of a field, or -1.
    int find(std::string_view name) const;
};

// "i32" or "i", "text"; as users name types. Lengths are the letters' own, but for text.
struct field_type {
    char letter;
    const char* name;
    const char* range;
};
std::span<const field_type> field_types();
std::string type_name(const field& one); // "i32", "text:80"

// NAME:TYPE[:LENGTH]; names may hold colons, as the text is read from its end.
answer<field_shape> read_field_argument(const std::string& text);

// What a name may not be: empty, with blanks at its ends, with control characters or , = : in it...
outcome check_name(std::string_view name);

std::string fields_file_of(const std::string& data);
answer<std::vector<field_shape>> read_fields_file(const std::string& name);
std::string fields_file_text(const std::vector<field>& fields);

// The fields of a data file by its table and its length, with the names of `names_file` if that is
// there (it has to be, if `is_asked_for`).
answer<field_list> fields_of_file(const std::string& data, const std::string& names_file,
                                  bool is_asked_for, const std::vector<field_entry>& table,
                                  int32_t record_length);

} // namespace tarsil::tool
