// Keys as users name them: --key FIELD[,FIELD...][:cursor] for a new one; for one that is there its
// number, counted from 0, or the names of its first fields.
#pragma once

#include <string>
#include <vector>

#include "tool/fields.h"
#include "tool/opening.h"

namespace tarsil::tool {

answer<key_definition> read_key_argument(const std::string& text, const field_list& fields,
                                         uint32_t order);

// The key of an open index that `text` means, and its fields.
struct named_key {
    key_cursor key;
    std::vector<field> parts;
};
answer<named_key> find_key(const index& file, const std::string& text, const field_list& fields);

// A value of the key from texts, one a field from the first on. The last text counts in its whole
// field, or, as a beginning, only as far as it goes.
answer<key_value> read_key_value(const std::vector<field>& parts,
                                 const std::vector<std::string>& texts, bool is_beginning);

} // namespace tarsil::tool
