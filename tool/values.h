// Values as text and as bytes of a field, both ways, by the field's letter.
//
// Numbers are written in the shortest form that reads back as the same number, to the last bit;
// infinities as inf and -inf, and what is no number as nan, or nan(0x7ff8000000000001) where its
// bits are not the usual ones. Reading refuses what doesn't fit: a number out of range, a text that
// is too long. Nothing is cut; a decimal number becomes the float or double nearest to it.
//
// A text stands as it is, up to the zero bytes that fill its field. Where that wouldn't give the
// same bytes back (a zero byte inside, bytes that aren't UTF-8, control characters) it is written
// with the mark \: in front, and behind the mark \xHH stands for a byte and \\ for a backslash. A
// text that begins with \: itself, or is \N, is written that way too. \N stands for a field that
// the record, being of variable length, ends before. A text without the mark is never changed.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "tool/fields.h"

namespace tarsil::tool {

inline constexpr std::string_view escape_mark = "\\:";
inline constexpr std::string_view absent_text = "\\N";

// The bytes of a field in its record: a text's bytes without the zeros that fill the field.
std::string_view text_bytes(const field& one, std::span<const std::byte> bytes, bool is_open_ended);

// Appends the value as export writes it; `bytes` are those of the field.
void append_value(std::string& out, const field& one, std::span<const std::byte> bytes,
                  bool is_open_ended);
void append_text(std::string& out, std::string_view text);

// Puts a value into a field of a record: a number's bytes, a text's bytes and zeros behind them.
// `length`, if given, becomes the text's length. The answer is empty, or the reason why not.
std::string put_value(const field& one, std::string_view text, std::byte* place,
                      size_t* length = nullptr);

// A text for a line to people: in quotes, cut to some characters, nothing in it but what can be
// shown.
std::string in_quotes(std::string_view text);

// A text as people see it: up to its first zero byte, with \xHH for what can't be shown.
std::string shown_value(const field& one, std::span<const std::byte> bytes);

} // namespace tarsil::tool
