// Arithmetic on numbers that come from files and callers.
//
// Offsets are 32-bit signed in both formats, and any number can stand in a damaged file. All sums
// are therefore formed in 64 bits and come back through to_offset, which turns whatever is no place
// in a file into no_offset; positioning refuses that one (files/files.h), so that a wrong number
// ends as the code of its site and never as undefined behaviour.
#pragma once

#include <cstdint>
#include <cstring>

#include "platform/platform.h"

namespace tarsil {

inline constexpr int32_t no_offset = -1;

inline constexpr int32_t to_offset(int64_t value)
{
    return value >= 0 && value <= platform::max_file_bytes ? static_cast<int32_t>(value)
                                                           : no_offset;
}

// True if `bytes` bytes from `offset` end within the largest file there can be.
inline constexpr bool fits_in_file(int32_t offset, int64_t bytes)
{
    return offset >= 0 && bytes >= 0 && int64_t{offset} + bytes <= platform::max_file_bytes;
}

// Numbers inside nodes, frames and records stand at any address, so they are copied in and out.
inline int32_t load_i32(const void* place)
{
    int32_t value;
    std::memcpy(&value, place, sizeof value);
    return value;
}

inline void store_i32(void* place, int32_t value) { std::memcpy(place, &value, sizeof value); }

} // namespace tarsil
