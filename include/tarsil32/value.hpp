// Fields and their values: the bytes of a C++ value in a field, and back; key values; and the order
// of values, which is that of the library's trees.
//
// A number goes into a field only if it is the same number there; a double may lose digits in a
// float field. A text goes only into a byte string, whose rest is filled with zeros.
//
// The order has two surprises. Bytes of strings compare as signed ones, so that letters beyond
// ASCII come first, and a string ends at a zero byte. Floats and doubles are equal when they differ
// by less than about 0.1 to the power of the library's precision.
#pragma once

#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <variant>

#include "tarsil32/record.hpp"

namespace tarsil {

struct field {
    std::string name;
    char letter;
    int32_t length;
    int32_t offset;
};

// A field's value where its kind is known at run time only.
using field_value = std::variant<int64_t, double, std::string>;

// The packed fields of a key from the first on. A leading part has fewer fields than the key.
struct key_value {
    std::vector<std::byte> bytes;
    int32_t field_count = 0;
    uint32_t last_length = 0; // bytes of the last field's text; of a number its length
};

namespace detail {

static_assert(std::endian::native == std::endian::little, "Records hold little-endian numbers.");

// 0 for a byte string and for what is no letter.
constexpr int32_t letter_length(char letter)
{
    switch (letter) {
    case 'c': return 1;
    case 'H':
    case 'h': return 2;
    case 'L':
    case 'U':
    case 'i':
    case 'l':
    case 'f': return 4;
    case 'd': return 8;
    default: return 0;
    }
}

template <class> inline constexpr bool never = false;

template <class Member> field member_field(const char* name, int32_t offset)
{
    using type = std::remove_cv_t<Member>;
    constexpr auto bytes = static_cast<int32_t>(sizeof(type));
    if constexpr (std::is_array_v<type> || std::is_same_v<type, char>) {
        static_assert(sizeof(std::remove_all_extents_t<type>) == 1, "a field is no array");
        return {name, 's', bytes, offset};
    } else if constexpr (std::is_enum_v<type>) {
        return member_field<std::underlying_type_t<type>>(name, offset);
    } else if constexpr (std::is_same_v<type, float>) {
        return {name, 'f', bytes, offset};
    } else if constexpr (std::is_same_v<type, double>) {
        return {name, 'd', bytes, offset};
    } else if constexpr (std::is_integral_v<type> && sizeof(type) == 4) {
        return {name, std::is_signed_v<type> ? 'i' : 'U', bytes, offset};
    } else if constexpr (std::is_integral_v<type> && sizeof(type) == 2) {
        return {name, std::is_signed_v<type> ? 'h' : 'H', bytes, offset};
    } else if constexpr (std::is_same_v<type, unsigned char>) {
        return {name, 'c', bytes, offset};
    } else {
        static_assert(never<type>, "no letter stands for a member of this type");
    }
}

inline bool lies_within(const field& one, size_t bytes)
{
    return one.offset >= 0 && one.length > 0 &&
           static_cast<size_t>(one.offset) + static_cast<size_t>(one.length) <= bytes;
}

// The fields of a key_definition or a key_report; a count that can't be is cut to what can.
template <class Key> std::vector<field> fields_of(const Key& key)
{
    std::vector<field> fields;
    const int32_t count = std::clamp<int32_t>(key.field_count, 0, TS_MAX_KEY_FIELDS);
    for (int32_t i = 0; i < count; ++i) {
        const int32_t fixed = letter_length(key.types[i]);
        const int32_t length = fixed > 0 ? fixed : key.lengths[i];
        fields.push_back({"field " + std::to_string(i + 1), key.types[i],
                          std::clamp<int32_t>(length, 1, TS_MAX_STRING_FIELD), key.offsets[i]});
    }
    return fields;
}

// --- Encoding ----------------------------------------------------------------------------------

inline status misfit(const field& one, const std::string& what)
{
    return status(face::does_not_fit, one.name + " (" + one.letter + "): " + what);
}

template <class Stored> void append(std::vector<std::byte>& out, Stored stored)
{
    const auto bytes = std::bit_cast<std::array<std::byte, sizeof(Stored)>>(stored);
    out.insert(out.end(), bytes.begin(), bytes.end());
}

template <class Stored, class V>
status append_integer(const field& one, V value, std::vector<std::byte>& out)
{
    if (!std::in_range<Stored>(value)) return misfit(one, std::to_string(value));
    append(out, static_cast<Stored>(value));
    return {};
}

template <class V> status encode_integer(const field& one, V value, std::vector<std::byte>& out)
{
    switch (one.letter) {
    case 'c': return append_integer<uint8_t>(one, value, out);
    case 'H': return append_integer<uint16_t>(one, value, out);
    case 'h': return append_integer<int16_t>(one, value, out);
    case 'L':
    case 'U': return append_integer<uint32_t>(one, value, out);
    case 'i':
    case 'l': return append_integer<int32_t>(one, value, out);
    default: break;
    }
    // A whole number beyond the digits of a float or double would become another one.
    constexpr int64_t float_whole = int64_t{1} << 24;
    constexpr int64_t double_whole = int64_t{1} << 53;
    const int64_t whole = one.letter == 'f' ? float_whole : double_whole;
    if (one.letter == 's') return misfit(one, "a number for a text");
    if (std::cmp_less(value, -whole) || std::cmp_greater(value, whole))
        return misfit(one, std::to_string(value));
    if (one.letter == 'f')
        append(out, static_cast<float>(value));
    else
        append(out, static_cast<double>(value));
    return {};
}

inline status encode_floating(const field& one, double value, std::vector<std::byte>& out)
{
    if (one.letter == 'd') {
        append(out, value);
    } else if (one.letter == 'f') {
        if (std::isfinite(value) && std::fabs(value) > double{std::numeric_limits<float>::max()})
            return misfit(one, std::to_string(value));
        append(out, static_cast<float>(value));
    } else {
        return misfit(one, "a number with a fraction");
    }
    return {};
}

inline status encode_text(const field& one, std::string_view text, std::vector<std::byte>& out,
                          uint32_t& text_length)
{
    if (one.letter != 's') return misfit(one, "a text for a number");
    const auto length = static_cast<size_t>(one.length);
    if (text.size() > length) {
        return misfit(one, "\"" + std::string(text) + "\" has " + std::to_string(text.size()) +
                               " bytes, the field " + std::to_string(length));
    }
    const size_t end = std::min(text.find('\0'), text.size());
    if (text.find_first_not_of('\0', end) != std::string_view::npos)
        return misfit(one, "a text with a zero byte inside it, where it would end");
    const auto bytes = std::as_bytes(std::span(text.data(), text.size()));
    out.insert(out.end(), bytes.begin(), bytes.end());
    out.resize(out.size() + length - text.size());
    text_length = static_cast<uint32_t>(text.size());
    return {};
}

// The text of a char array, which needs no zero byte at its end.
template <size_t Room> std::string_view text_of(const char (&array)[Room])
{
    return {array, static_cast<size_t>(std::find(array, array + Room, '\0') - array)};
}

// Appends the field's bytes. text_length gets the bytes of a text, or the length of a number.
template <class V>
status encode(const field& one, const V& value, std::vector<std::byte>& out, uint32_t& text_length)
{
    text_length = static_cast<uint32_t>(one.length);
    if constexpr (std::is_same_v<V, field_value>) {
        return std::visit([&](const auto& held) { return encode(one, held, out, text_length); },
                          value);
    } else if constexpr (std::is_array_v<V>) {
        return encode_text(one, text_of(value), out, text_length);
    } else if constexpr (std::is_same_v<V, char>) {
        return encode_text(one, std::string_view(&value, 1), out, text_length);
    } else if constexpr (std::is_convertible_v<const V&, std::string_view>) {
        if constexpr (std::is_pointer_v<V>)
            if (value == nullptr) return misfit(one, "a null pointer");
        return encode_text(one, value, out, text_length);
    } else if constexpr (std::is_enum_v<V>) {
        return encode(one, static_cast<std::underlying_type_t<V>>(value), out, text_length);
    } else if constexpr (std::is_floating_point_v<V>) {
        static_assert(sizeof(V) <= sizeof(double), "no field holds a long double");
        return encode_floating(one, static_cast<double>(value), out);
    } else if constexpr (std::is_signed_v<V> && sizeof(V) <= sizeof(int64_t)) {
        return encode_integer(one, static_cast<int64_t>(value), out);
    } else {
        static_assert(std::is_integral_v<V>, "a field holds a number or a text");
        static_assert(sizeof(V) <= sizeof(int64_t), "no field holds so large a number");
        return encode_integer(one, static_cast<uint64_t>(value), out);
    }
}

// --- Decoding ----------------------------------------------------------------------------------

template <class Stored> Stored load(const std::byte* place)
{
    Stored stored;
    std::memcpy(&stored, place, sizeof stored);
    return stored;
}

inline field_value decode_number(char letter, const std::byte* place)
{
    switch (letter) {
    case 'c': return int64_t{load<uint8_t>(place)};
    case 'H': return int64_t{load<uint16_t>(place)};
    case 'h': return int64_t{load<int16_t>(place)};
    case 'L':
    case 'U': return int64_t{load<uint32_t>(place)};
    case 'f': return double{load<float>(place)};
    case 'd': return load<double>(place);
    default: return int64_t{load<int32_t>(place)};
    }
}

inline result<field_value> decode(const field& one, std::span<const std::byte> bytes)
{
    if (!lies_within(one, bytes.size()))
        return status(face::wrong_length, "the record ends before " + one.name);
    const std::byte* const place = bytes.data() + one.offset;
    if (one.letter != 's') return decode_number(one.letter, place);
    std::string text(static_cast<size_t>(one.length), '\0');
    std::memcpy(text.data(), place, text.size());
    text.resize(std::min(text.find('\0'), text.size()));
    return field_value(std::move(text));
}

template <class T> result<T> convert(const field_value& value, std::string_view name)
{
    if constexpr (std::is_same_v<T, std::string>) {
        if (const auto* text = std::get_if<std::string>(&value)) return *text;
    } else if constexpr (std::is_floating_point_v<T>) {
        const auto* number = std::get_if<double>(&value);
        const double largest{std::numeric_limits<T>::max()};
        const bool fits = number != nullptr &&
                          (!std::isfinite(*number) || std::fabs(*number) <= largest);
        if (fits) return static_cast<T>(*number);
    } else {
        const auto* number = std::get_if<int64_t>(&value);
        if (number != nullptr && std::in_range<T>(*number)) return static_cast<T>(*number);
    }
    return status(face::does_not_fit, std::string(name) + ": the type asked for");
}

// --- Key values --------------------------------------------------------------------------------

template <class... Values>
result<key_value> pack(const std::vector<field>& shape, const Values&... values)
{
    constexpr size_t count = sizeof...(Values);
    if (count < 1 || count > shape.size()) {
        return status(face::wrong_length, std::to_string(count) + " values for a key of " +
                                              std::to_string(shape.size()) + " fields");
    }
    key_value packed;
    status done;
    const auto add = [&](const auto& value) {
        const field& one = shape[static_cast<size_t>(packed.field_count++)];
        if (done) done = encode(one, value, packed.bytes, packed.last_length);
    };
    (add(values), ...);
    if (!done) return done;
    return packed;
}

// The same from values whose number and kinds are known at run time.
inline result<key_value> pack_values(const std::vector<field>& shape,
                                     std::span<const field_value> values)
{
    if (values.empty() || values.size() > shape.size())
        return status(face::wrong_length, std::to_string(values.size()) + " values for a key");
    key_value packed;
    for (const field_value& value : values) {
        const field& one = shape[static_cast<size_t>(packed.field_count++)];
        const status done = encode(one, value, packed.bytes, packed.last_length);
        if (!done) return done;
    }
    return packed;
}

// --- Order -------------------------------------------------------------------------------------

inline int order_of_texts(const std::byte* left, const std::byte* right, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        const auto from_left = static_cast<signed char>(left[i]);
        const auto from_right = static_cast<signed char>(right[i]);
        if (from_left != from_right) return from_left < from_right ? -1 : 1;
        if (from_left == 0) return 0;
    }
    return 0;
}

// `tolerance` is 1 for float and 0.9999999999 for double before the multiplications.
template <class Number>
int order_of_floating(const std::byte* left, const std::byte* right, Number tolerance,
                      int32_t precision)
{
    const Number from_left = load<Number>(left);
    const Number from_right = load<Number>(right);
    for (int32_t i = 0; i < precision && tolerance > 0; ++i)
        tolerance = static_cast<Number>(tolerance * static_cast<Number>(0.1));
    const Number difference = static_cast<Number>(std::fabs(from_left - from_right));
    if (!(difference >= tolerance)) return 0;
    return from_left < from_right ? -1 : 1;
}

inline int order_of_fields(char letter, const std::byte* left, const std::byte* right,
                           size_t length, int32_t precision)
{
    if (letter == 's') return order_of_texts(left, right, length);
    if (letter == 'f') return order_of_floating<float>(left, right, 1.0F, precision);
    if (letter == 'd') return order_of_floating<double>(left, right, 0.9999999999, precision);
    const auto from_left = std::get<int64_t>(decode_number(letter, left));
    const auto from_right = std::get<int64_t>(decode_number(letter, right));
    return from_left == from_right ? 0 : from_left < from_right ? -1 : 1;
}

// The field's bytes, and zeros where the record has none.
inline std::array<std::byte, TS_MAX_STRING_FIELD> padded_field(const field& one,
                                                               std::span<const std::byte> bytes)
{
    std::array<std::byte, TS_MAX_STRING_FIELD> padded{};
    if (one.offset < 0) return padded;
    const auto offset = std::min(static_cast<size_t>(one.offset), bytes.size());
    const auto length = static_cast<size_t>(one.length);
    std::copy_n(bytes.data() + offset, std::min(length, bytes.size() - offset), padded.data());
    return padded;
}

// The key of a record: its fields back to back.
inline std::vector<std::byte> packed_fields(const std::vector<field>& shape,
                                            std::span<const std::byte> bytes)
{
    std::vector<std::byte> packed;
    for (const field& one : shape) {
        const auto padded = padded_field(one, bytes);
        packed.insert(packed.end(), padded.begin(), padded.begin() + one.length);
    }
    return packed;
}

// Does the value stand before (-1), at (0) or behind (1) the record in key order, as far as the
// value goes? Of the last text only last_length bytes count. A record of variable length that ends
// before a field is taken as if zeros followed.
inline int order_of(const std::vector<field>& shape, const key_value& value,
                    std::span<const std::byte> bytes, int32_t precision)
{
    size_t at = 0;
    for (int32_t i = 0; i < value.field_count; ++i) {
        const field& one = shape[static_cast<size_t>(i)];
        const auto length = static_cast<size_t>(one.length);
        const std::array<std::byte, TS_MAX_STRING_FIELD> padded = padded_field(one, bytes);

        const bool is_part = one.letter == 's' && i + 1 == value.field_count;
        const size_t counted = is_part ? size_t{value.last_length} : length;
        const int order = order_of_fields(one.letter, value.bytes.data() + at, padded.data(),
                                          counted, precision);
        if (order != 0) return order;
        at += length;
    }
    return 0;
}

} // namespace detail

} // namespace tarsil
