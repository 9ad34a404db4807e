// What a call of the C++ face answers: a status, or a result that is a status with a value.
//
// A status carries the code of the library (or one of the face's own, below -9000), the texts that
// belong to it and a detail: the file, the field or the value that it is about. Both convert to
// true when all went well. value() on a failed result ends the program with the message; it never
// reads what isn't there. value_or_throw() throws tarsil::error where exceptions are on.
//
// half_done() is the one answer that a code can't give: the call failed after it had changed the
// files, or may have. Such a call must not simply be repeated.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#ifdef __cpp_exceptions
#include <stdexcept>
#endif

#include "tarsil32_text.h"

namespace tarsil {

// clang-format off
#define TARSIL_FACE_CODES(X) \
    X(empty_handle, -9001, "The object stands for nothing: moved from, closed, or its file was closed", \
      "Open the file again, and keep its object as long as those made from it") \
    X(already_started, -9002, "The library is started already in this process", \
      "Use the tarsil::library object that exists") \
    X(no_such_field, -9003, "The layout has no field of this name", \
      "Look at the names of the layout") \
    X(bad_layout, -9004, "The layout or the key contradicts itself", \
      "Correct the field that is named") \
    X(does_not_fit, -9005, "A value is not of the kind of its field, or does not fit into it", \
      "Use a value within the limits of the field") \
    X(wrong_length, -9006, "The bytes given are fewer or more than the file or the key takes", \
      "Use records of the file's length, long enough for every open key") \
    X(no_room, -9007, "There is no address space for the largest record that a file can hold", \
      "Run in a 64-bit process without a limit on its address space") \
    X(record_changed, -9008, "The record changed while it was being read, by a program that takes no locks", \
      "Read it again") \
    X(cursor_moved, -9009, "The key's cursor was moved while a walk was under way", \
      "Collect what the walk delivers first, or use another key inside it") \
    X(record_lock_held, -9010, "While a record is locked, only get, update in place and erase of that record are possible", \
      "Release the record's lock first, or lock the file instead")
// clang-format on

namespace face {
#define TARSIL_FACE_CODE_ENTRY(name, number, cause, remedy) name = (number),
enum code : int32_t { TARSIL_FACE_CODES(TARSIL_FACE_CODE_ENTRY) };
#undef TARSIL_FACE_CODE_ENTRY
} // namespace face

namespace detail {

struct code_texts {
    const char* name;
    const char* text;
    const char* remedy;
};

inline code_texts texts_of(int32_t code)
{
    switch (code) {
#define TARSIL_FACE_TEXTS(name, number, cause, remedy) \
    case number: return {"face::" #name, cause, remedy};
        TARSIL_FACE_CODES(TARSIL_FACE_TEXTS)
#undef TARSIL_FACE_TEXTS
    default:
        return {tarsil32_code_name(code), tarsil32_code_text(code), tarsil32_code_remedy(code)};
    }
}

} // namespace detail

// The texts of any code, of the library's or of the face's.
inline std::string_view code_name(int32_t code) { return detail::texts_of(code).name; }
inline std::string_view code_text(int32_t code) { return detail::texts_of(code).text; }
inline std::string_view code_remedy(int32_t code) { return detail::texts_of(code).remedy; }

class [[nodiscard]] status {
public:
    status() = default;
    explicit status(int32_t code, std::string detail = {}, bool half_done = false)
        : code_(code), half_done_(half_done), detail_(std::move(detail))
    {
    }

    explicit operator bool() const { return code_ >= 0; }
    int32_t code() const { return code_; }
    bool half_done() const { return half_done_; }

    std::string_view name() const { return code_name(code_); }
    std::string_view text() const { return code_text(code_); }
    std::string_view remedy() const { return code_remedy(code_); }
    const std::string& detail() const { return detail_; }

    // One line for people: name, number, cause, detail, remedy.
    std::string message() const
    {
        std::string line(name());
        line += " (" + std::to_string(code_) + "): ";
        line += text();
        if (!detail_.empty()) line += " [" + detail_ + "]";
        if (half_done_) line += ". The files may have changed already";
        line += ". ";
        line += remedy();
        return line;
    }

    void or_throw() const;

protected:
    int32_t code_ = TS_OK;
    bool half_done_ = false;
    std::string detail_;
};

#ifdef __cpp_exceptions
// The one exception of the face, thrown by or_throw() and value_or_throw() alone.
class error : public std::runtime_error {
public:
    explicit error(status why) : std::runtime_error(why.message()), why_(std::move(why)) {}
    const status& why() const { return why_; }

private:
    status why_;
};
#endif

namespace detail {

[[noreturn]] inline void end_program(const status& why)
{
    std::fprintf(stderr, "tarsil: no value: %s\n", why.message().c_str());
    std::abort();
}

[[noreturn]] inline void raise(const status& why)
{
#ifdef __cpp_exceptions
    throw error(why);
#else
    end_program(why);
#endif
}

} // namespace detail

inline void status::or_throw() const
{
    if (code_ < 0) detail::raise(*this);
}

template <class T> class [[nodiscard]] result : public status {
public:
    result(T value) : value_(std::move(value)) {}
    // A failure. A status that is none has no value to go with it and counts as an empty object.
    result(status why) : status(std::move(why))
    {
        if (code_ >= 0) code_ = face::empty_handle;
    }

    T& value() &
    {
        if (!value_) detail::end_program(*this);
        return *value_;
    }
    const T& value() const&
    {
        if (!value_) detail::end_program(*this);
        return *value_;
    }
    T value() && { return std::move(value()); }

    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T operator*() && { return std::move(value()); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

    T value_or(T other) && { return value_ ? std::move(*value_) : std::move(other); }

    T& value_or_throw() &
    {
        or_throw();
        return value();
    }
    T value_or_throw() &&
    {
        or_throw();
        return std::move(value());
    }

private:
    std::optional<T> value_;
};

} // namespace tarsil
