// Records described by name: a layout has a name, a letter, a place and a length for each field.
// From it come a data file's field table, key definitions, key values, and single fields of
// records.
//
//     struct airport { int32_t id; char country[4]; char name[80]; };
//     const tarsil::layout fields = tarsil::layout::of<airport>({
//         TARSIL_FIELD(airport, id), TARSIL_FIELD(airport, country), TARSIL_FIELD(airport, name)});
//
// The letters of numbers follow from the members' types; char arrays are byte strings, which end at
// a zero byte or with their field. A layout that contradicts itself says so in state() and in
// every answer it gives. Texts that are too long and numbers out of range are refused, never cut.
#pragma once

#include <initializer_list>

#include "tarsil32/value.hpp"

namespace tarsil {

// Whether a key keeps a cursor, which walks and steps need; chosen anew whenever the file is
// opened.
enum class cursor : char { kept = 'y', none = 'n' };

// A field without a place, for layout::packed: length counts for byte strings only.
struct field_shape {
    std::string name;
    char letter;
    int32_t length = 0;
};

class layout {
public:
    layout() = default;
    layout(std::vector<field> fields, int32_t record_length)
        : fields_(std::move(fields)), record_length_(record_length), state_(find_fault())
    {
    }

    // The fields of a struct, by TARSIL_FIELD; padding between them is part of the record.
    template <class Struct> static layout of(std::initializer_list<field> fields)
    {
        static_assert(std::is_trivially_copyable_v<Struct>);
        return layout(fields, static_cast<int32_t>(sizeof(Struct)));
    }

    // Fields one behind the other without padding.
    static layout packed(const std::vector<field_shape>& shapes)
    {
        std::vector<field> fields;
        int64_t end = 0;
        for (const field_shape& shape : shapes) {
            const int32_t fixed = detail::letter_length(shape.letter);
            const int32_t length = fixed > 0 ? fixed : shape.length;
            fields.push_back({shape.name, shape.letter, length, static_cast<int32_t>(end)});
            end = std::min<int64_t>(end + std::max(length, 0), INT32_MAX);
        }
        return layout(std::move(fields), static_cast<int32_t>(end));
    }

    const status& state() const { return state_; }
    const std::vector<field>& fields() const { return fields_; }
    int32_t record_length() const { return record_length_; }

    result<field> find(std::string_view name) const
    {
        if (!state_) return state_;
        for (const field& one : fields_)
            if (one.name == name) return one;
        return status(face::no_such_field, std::string(name));
    }

    // The field table for a new data file.
    std::vector<field_entry> field_table() const
    {
        std::vector<field_entry> table;
        for (const field& one : fields_) table.push_back({one.length, one.letter});
        return table;
    }

    // A key over the fields named, in this order. order 0 lets the library choose the node size.
    result<key_definition> key(const std::vector<std::string_view>& names,
                               cursor with_cursor = cursor::kept, uint32_t order = 0) const
    {
        if (names.empty() || names.size() > TS_MAX_KEY_FIELDS)
            return status(TS_KEY_BAD_FIELD_COUNT, std::to_string(names.size()) + " fields");
        key_definition made = {};
        made.cursor = static_cast<char>(with_cursor);
        made.order = order;
        for (const std::string_view name : names) {
            const result<field> found = find(name);
            if (!found) return found;
            if (found->letter == 's' && found->length > TS_MAX_STRING_FIELD)
                return status(TS_KEY_BAD_STRING_LENGTH, found->name);
            made.types[made.field_count] = found->letter;
            made.lengths[made.field_count] = found->length;
            made.offsets[made.field_count] = found->offset;
            ++made.field_count;
        }
        return made;
    }

    // A key value from C++ values, one per field from the first; fewer make a leading part.
    template <class... Values>
    result<key_value> pack(const key_definition& definition, const Values&... values) const
    {
        if (!state_) return state_;
        return detail::pack(named(definition), values...);
    }

    result<key_value> pack_values(const key_definition& definition,
                                  std::span<const field_value> values) const
    {
        if (!state_) return state_;
        return detail::pack_values(named(definition), values);
    }

    // A single field of a record: as a value of its own kind, or as the type asked for.
    result<field_value> value(std::span<const std::byte> bytes, std::string_view name) const
    {
        const result<field> found = find(name);
        if (!found) return found;
        return detail::decode(*found, bytes);
    }
    template <class T> result<T> get(std::span<const std::byte> bytes, std::string_view name) const
    {
        const result<field_value> found = value(bytes, name);
        if (!found) return found;
        return detail::convert<T>(*found, name);
    }

    template <class V>
    status set(std::span<std::byte> bytes, std::string_view name, const V& new_value) const
    {
        const result<field> found = find(name);
        if (!found) return found;
        if (!detail::lies_within(*found, bytes.size()))
            return status(face::wrong_length, "the record ends before " + found->name);
        std::vector<std::byte> encoded;
        uint32_t text_length = 0;
        const status done = detail::encode(*found, new_value, encoded, text_length);
        if (done) std::memcpy(bytes.data() + found->offset, encoded.data(), encoded.size());
        return done;
    }

private:
    status find_fault() const
    {
        for (size_t i = 0; i < fields_.size(); ++i) {
            const field& one = fields_[i];
            const int32_t fixed = detail::letter_length(one.letter);
            if (one.letter != 's' && fixed == 0)
                return status(face::bad_layout, one.name + ": no letter of a field");
            if (one.length < 1 || (fixed > 0 && one.length != fixed))
                return status(face::bad_layout, one.name + ": its length");
            if (!detail::lies_within(one, static_cast<size_t>(std::max(record_length_, 0))))
                return status(face::bad_layout, one.name + ": outside the record");
            for (size_t other = 0; other < i; ++other)
                if (fields_[other].name == one.name)
                    return status(face::bad_layout, one.name + ": twice");
        }
        return {};
    }

    // The definition's fields with the names that the layout has for their places.
    std::vector<field> named(const key_definition& definition) const
    {
        std::vector<field> shape = detail::fields_of(definition);
        for (field& one : shape)
            for (const field& known : fields_)
                if (known.offset == one.offset) one.name = known.name;
        return shape;
    }

    std::vector<field> fields_;
    int32_t record_length_ = 0;
    status state_;
};

// One field of a struct for layout::of.
#define TARSIL_FIELD(type, member)                          \
    ::tarsil::detail::member_field<decltype(type::member)>( \
        #member, static_cast<int32_t>(offsetof(type, member)))

} // namespace tarsil
