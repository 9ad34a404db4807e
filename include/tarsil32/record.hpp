// Records as the face hands them out, and the room into which the library reads them.
//
// The library is told no size of a buffer and writes as many bytes as a frame in the file says. For
// a file of fixed length that this process has alone, record_length bytes are enough: nobody else
// can change the header from which the library takes the bound. In all other cases no length that
// is asked for in advance is safe, since the record may be another one by the time it is read. But
// no data file passes 0x7fffffff bytes, and the library reads no body that passes the end of its
// file: a reserve of that size is enough for any record, whatever happens in between. It is address
// space alone, one for the process, and costs memory only where something was written; the pages of
// very long records are given back. Where there is no such address space (a 32-bit process, a limit
// set) the answer is face::no_room, never a smaller buffer.
//
// The true length of a record is then found by asking: by tsrecd32 for the current record, and for
// a record read through a key by probe_length below.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

#if defined(__unix__) || defined(__APPLE__)
#include <sys/mman.h>
#define TARSIL_FACE_MAPS 1
#else
#include <new>
#endif

#include "tarsil32/result.hpp"

namespace tarsil {

struct record {
    std::vector<std::byte> bytes;
    bool deleted = false;
    int32_t number = 0; // 0 where the call that read it doesn't know: reads through a key

    // The record as a plain struct of exactly its length.
    template <class Struct> result<Struct> as() const
    {
        static_assert(std::is_trivially_copyable_v<Struct>);
        if (bytes.size() != sizeof(Struct)) {
            return status(face::wrong_length, "a record of " + std::to_string(bytes.size()) +
                                                  " bytes, a struct of " +
                                                  std::to_string(sizeof(Struct)));
        }
        Struct value;
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }
};

// The bytes of a plain struct, for calls that take a record. Of the struct itself: a pointer to it
// is refused by the compiler.
template <class Struct>
requires(std::is_trivially_copyable_v<Struct> && !std::is_pointer_v<Struct> &&
         !std::is_convertible_v<const Struct&, std::string_view>)
    std::span<const std::byte> bytes_of(const Struct& value)
{
    return std::as_bytes(std::span<const Struct, 1>(&value, 1));
}

// The bytes of a text, without a zero byte at its end.
inline std::span<const std::byte> bytes_of(std::string_view text)
{
    return std::as_bytes(std::span(text.data(), text.size()));
}
// The same of a char array, which needs no zero byte at its end.
template <size_t Room> std::span<const std::byte> bytes_of(const char (&text)[Room])
{
    return bytes_of(std::string_view(text, std::find(text, text + Room, '\0')));
}

namespace detail {

class reserve {
public:
    static constexpr size_t size = 0x7fffffff;

    // Null where the process has no such address space.
    static std::byte* room()
    {
        static reserve only;
        return only.room_;
    }

    // Gives back the pages of a long record; short ones stay, since the next is read there too.
    static void trim(size_t used)
    {
#ifdef TARSIL_FACE_MAPS
        if (used > kept) madvise(room(), used, MADV_DONTNEED);
#else
        (void)used;
#endif
    }

    reserve(const reserve&) = delete;
    reserve& operator=(const reserve&) = delete;

private:
    static constexpr size_t kept = size_t{16} << 20;

#ifdef TARSIL_FACE_MAPS
    reserve()
    {
#ifdef MAP_NORESERVE
        constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
#else
        constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS;
#endif
        void* mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, flags, -1, 0);
        if (mapped != MAP_FAILED) room_ = static_cast<std::byte*>(mapped);
    }
    ~reserve()
    {
        if (room_ != nullptr) munmap(room_, size);
    }
#else
    reserve() : room_(static_cast<std::byte*>(::operator new(size, std::nothrow))) {}
    ~reserve() { ::operator delete(room_); }
#endif

    std::byte* room_ = nullptr;
};

// Finds out how many bytes a read delivers that doesn't tell: by reading twice, over a background
// of zeros and over one of ones. The record's bytes are those that both reads agree on, and the
// first byte that differs is the first behind it. The background is twice the longest record seen
// so far and grows when a record covers it.
class length_probe {
public:
    // `again` reads the same record into the reserve once more: a code as the library gives it. The
    // record has just been read over the background of start().
    template <class Again> int32_t measure(Again&& again, size_t& length)
    {
        std::byte* const room = reserve::room();
        for (;;) {
            first_.assign(room, room + reach_);
            std::memset(room, 0xFF, reach_);
            int32_t code = again();
            if (code < 0) return code;
            length = static_cast<size_t>(std::mismatch(first_.begin(), first_.end(), room).first -
                                         first_.begin());
            if (length < reach_) break;
            if (reach_ == reserve::size) return face::record_changed;
            grow(reach_ * 2);
            start();
            code = again();
            if (code < 0) return code;
        }
        if (!is_background(length)) return face::record_changed;
        grow(length * 2);
        return TS_OK;
    }

    void start() const { std::memset(reserve::room(), 0, reach_); }

private:
    void grow(size_t reach) { reach_ = std::clamp(reach, reach_, reserve::size); }

    // Behind the record each read has left its own background: else the two read different records.
    bool is_background(size_t length) const
    {
        const std::byte* const room = reserve::room();
        const auto is_one = [](std::byte byte) { return byte == std::byte{0xFF}; };
        const auto is_zero = [](std::byte byte) { return byte == std::byte{0}; };
        return length > 0 && std::all_of(room + length, room + reach_, is_one) &&
               std::all_of(first_.begin() + static_cast<std::ptrdiff_t>(length), first_.end(),
                           is_zero);
    }

    size_t reach_ = 256;
    std::vector<std::byte> first_;
};

} // namespace detail

} // namespace tarsil
