// A record put together from values as text, field by field, without an allocation a record. The
// first thing that is wrong is kept as the reason why the record can't be stored.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tool/fields.h"

namespace tarsil::tool {

class record_builder {
public:
    // `may_lack_fields`: fields that get no value are 0 or empty; else that is a fault.
    // `is_empty_zero`: an empty text is the number 0.
    record_builder(const field_list& fields, bool may_lack_fields, bool is_empty_zero);

    // Begins a new record, or one that starts as a copy of `old`.
    void begin();
    void begin(std::span<const std::byte> old);

    void put(size_t field_number, std::string_view text);
    // What isn't a value of a field: "_deleted".
    void put_deleted(std::string_view text);
    void refuse(std::string reason);

    // No more values come: is it a record? reason() says why not.
    bool finish();
    // The first `length` bytes of what begin(old) was given are the record.
    bool take_as_it_is(size_t length);

    const std::string& reason() const { return reason_; }
    std::span<const std::byte> bytes() const { return {bytes_.data(), length_}; }
    bool is_deleted() const { return is_deleted_; }

private:
    void find_length();

    enum class state : unsigned char { missing, present, absent };

    const field_list& fields_;
    bool may_lack_fields_;
    bool is_empty_zero_;
    std::vector<std::byte> bytes_;
    std::vector<state> states_;
    size_t length_ = 0;
    size_t text_length_ = 0; // of the last field in a file of variable length
    bool is_deleted_ = false;
    std::string reason_;
};

} // namespace tarsil::tool
