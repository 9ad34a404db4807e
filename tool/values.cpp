// Text to bytes and back.
#include "tool/values.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>

#include <fmt/format.h>

namespace tarsil::tool {

namespace {

// --- Texts -------------------------------------------------------------------------------------

// The length of the UTF-8 character at the front of a text, or 0 if there is none.
size_t character_length(std::string_view text)
{
    const auto at = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const auto follows = [&](size_t i, int least, int most) {
        return i < text.size() && at(i) >= least && at(i) <= most;
    };
    const int lead = at(0);
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return follows(1, 0x80, 0xBF) ? 2 : 0;
    if (lead >= 0xE0 && lead <= 0xEF) {
        const int least = lead == 0xE0 ? 0xA0 : 0x80;
        const int most = lead == 0xED ? 0x9F : 0xBF;
        return follows(1, least, most) && follows(2, 0x80, 0xBF) ? 3 : 0;
    }
    if (lead < 0xF0 || lead > 0xF4) return 0;
    const int least = lead == 0xF0 ? 0x90 : 0x80;
    const int most = lead == 0xF4 ? 0x8F : 0xBF;
    return follows(1, least, most) && follows(2, 0x80, 0xBF) && follows(3, 0x80, 0xBF) ? 4 : 0;
}

bool is_control(char byte)
{
    const auto code = static_cast<unsigned char>(byte);
    return code < 0x20 || code == 0x7F;
}

// The length of the first character if it can stand as it is in a text file, or 0.
size_t plain_length(std::string_view text)
{
    const char first = text[0];
    const bool is_space = first == '\t' || first == '\n' || first == '\r';
    if (is_control(first) && !is_space) return 0;
    return character_length(text);
}

bool is_plain(std::string_view text)
{
    if (text.starts_with(escape_mark) || text == absent_text) return false;
    while (!text.empty()) {
        const size_t length = plain_length(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

void append_escaped_byte(std::string& out, char byte)
{
    constexpr char digits[] = "0123456789abcdef";
    const auto code = static_cast<unsigned char>(byte);
    out += "\\x";
    out += digits[code >> 4];
    out += digits[code & 15];
}

std::string shown_text(std::string_view text)
{
    std::string shown;
    while (!text.empty()) {
        const size_t length = is_control(text[0]) ? 0 : character_length(text);
        if (length == 0)
            append_escaped_byte(shown, text[0]);
        else
            shown += text.substr(0, length);
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return shown;
}

// What stands behind the mark, as bytes; false if that isn't written as it has to be.
bool read_escaped(std::string_view text, std::string& bytes)
{
    while (!text.empty()) {
        if (text[0] != '\\') {
            bytes += text[0];
            text.remove_prefix(1);
        } else if (text.starts_with("\\\\")) {
            bytes += '\\';
            text.remove_prefix(2);
        } else {
            unsigned value = 0;
            if (!text.starts_with("\\x") || text.size() < 4) return false;
            const auto read = std::from_chars(text.data() + 2, text.data() + 4, value, 16);
            if (read.ec != std::errc() || read.ptr != text.data() + 4) return false;
            bytes += static_cast<char>(value);
            text.remove_prefix(4);
        }
    }
    return true;
}

std::string put_text(const field& one, std::string_view text, std::byte* place, size_t* length)
{
    std::string bytes;
    if (text.starts_with(escape_mark)) {
        if (!read_escaped(text.substr(escape_mark.size()), bytes))
            return "behind \\: stand characters, \\xHH and \\\\ only";
        text = bytes;
    }
    const auto room = static_cast<size_t>(one.length);
    if (text.size() > room)
        return fmt::format("the text has {} bytes, the field {}", text.size(), room);
    std::memcpy(place, text.data(), text.size());
    if (length != nullptr)
        *length = text.size();
    else
        std::memset(place + text.size(), 0, room - text.size());
    return {};
}

// --- Numbers -----------------------------------------------------------------------------------

template <class Number> void append_number(std::string& out, const std::byte* place)
{
    char text[64];
    const auto number = detail::load<Number>(place);
    const auto written = std::to_chars(text, text + sizeof text, number);
    out.append(text, written.ptr);
}

// Number is float or double, Bits the whole number of its size.
template <class Number, class Bits> void append_floating(std::string& out, const std::byte* place)
{
    const auto number = detail::load<Number>(place);
    const auto bits = std::bit_cast<Bits>(number);
    if (number == number)
        append_number<Number>(out, place);
    else if (bits == std::bit_cast<Bits>(std::numeric_limits<Number>::quiet_NaN()))
        out += "nan";
    else
        fmt::format_to(std::back_inserter(out), "nan(0x{:x})", bits);
}

std::string_view trimmed(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t");
    if (first == text.npos) return {};
    text = text.substr(first, text.find_last_not_of(" \t") - first + 1);
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    return text;
}

std::string range_of(const field& one)
{
    for (const field_type& type : field_types())
        if (type.letter == one.letter) return fmt::format("{} ({})", type.name, type.range);
    return type_name(one);
}

template <class Number>
std::string put_number(const field& one, std::string_view text, std::byte* place)
{
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec == std::errc() && read.ptr == end) {
        std::memcpy(place, &number, sizeof number);
        return {};
    }
    // Of the range speaks only what is a number otherwise, such as -1 for an unsigned field.
    double any = 0;
    const auto general = std::from_chars(text.data(), end, any);
    if (text.empty()) return "a number is missing";
    if (general.ec == std::errc::invalid_argument || general.ptr != end)
        return in_quotes(text) + " is no number";
    if (std::is_integral_v<Number> && text.find_first_of(".eEn") != text.npos)
        return in_quotes(text) + " is no whole number";
    return fmt::format("{} doesn't fit {}", in_quotes(text), range_of(one));
}

template <class Number, class Bits>
std::string put_floating(const field& one, std::string_view text, std::byte* place)
{
    constexpr std::string_view front = "nan(0x";
    if (!text.starts_with(front) || !text.ends_with(')'))
        return put_number<Number>(one, text, place);
    Bits bits = 0;
    const char* const end = text.data() + text.size() - 1;
    const auto read = std::from_chars(text.data() + front.size(), end, bits, 16);
    const auto number = std::bit_cast<Number>(bits);
    if (read.ec != std::errc() || read.ptr != end || number == number)
        return in_quotes(text) + " is no number";
    std::memcpy(place, &bits, sizeof bits);
    return {};
}

} // namespace

std::string_view text_bytes(const field&, std::span<const std::byte> bytes, bool is_open_ended)
{
    const void* const front = bytes.data();
    std::string_view text(static_cast<const char*>(front), bytes.size());
    if (!is_open_ended) text = text.substr(0, text.find_last_not_of('\0') + 1);
    return text;
}

void append_text(std::string& out, std::string_view text)
{
    if (is_plain(text)) {
        out += text;
        return;
    }
    out += escape_mark;
    while (!text.empty()) {
        const size_t length = plain_length(text);
        if (length == 0)
            append_escaped_byte(out, text[0]);
        else if (text[0] == '\\')
            out += "\\\\";
        else
            out += text.substr(0, length);
        text.remove_prefix(std::max<size_t>(length, 1));
    }
}

void append_value(std::string& out, const field& one, std::span<const std::byte> bytes,
                  bool is_open_ended)
{
    switch (one.letter) {
    case 's': append_text(out, text_bytes(one, bytes, is_open_ended)); break;
    case 'c': append_number<uint8_t>(out, bytes.data()); break;
    case 'H': append_number<uint16_t>(out, bytes.data()); break;
    case 'h': append_number<int16_t>(out, bytes.data()); break;
    case 'L':
    case 'U': append_number<uint32_t>(out, bytes.data()); break;
    case 'f': append_floating<float, uint32_t>(out, bytes.data()); break;
    case 'd': append_floating<double, uint64_t>(out, bytes.data()); break;
    default: append_number<int32_t>(out, bytes.data()); break;
    }
}

std::string put_value(const field& one, std::string_view text, std::byte* place, size_t* length)
{
    switch (one.letter) {
    case 's': return put_text(one, text, place, length);
    case 'c': return put_number<uint8_t>(one, trimmed(text), place);
    case 'H': return put_number<uint16_t>(one, trimmed(text), place);
    case 'h': return put_number<int16_t>(one, trimmed(text), place);
    case 'L':
    case 'U': return put_number<uint32_t>(one, trimmed(text), place);
    case 'f': return put_floating<float, uint32_t>(one, trimmed(text), place);
    case 'd': return put_floating<double, uint64_t>(one, trimmed(text), place);
    default: return put_number<int32_t>(one, trimmed(text), place);
    }
}

std::string in_quotes(std::string_view text)
{
    constexpr size_t most = 40;
    const bool is_cut = text.size() > most;
    return fmt::format("'{}{}'", shown_text(text.substr(0, most)), is_cut ? "..." : "");
}

std::string shown_value(const field& one, std::span<const std::byte> bytes)
{
    if (one.letter == 's') {
        const std::string_view text = text_bytes(one, bytes, true);
        return shown_text(text.substr(0, text.find('\0')));
    }
    std::string shown;
    append_value(shown, one, bytes, false);
    return shown;
}

} // namespace tarsil::tool
