// Stepping through a data file with a buffer of this library's own.
//
// The exported reads trust that the caller's buffer holds record_length bytes of the header as it
// is at the read. A buffer allocated here holds record_length bytes of the header as it was at the
// allocation, and in multi-user mode each step reads the header anew: hence these forms, which know
// the room.
#pragma once

#include <cstdint>

namespace tarsil {

inline constexpr int32_t any_room = 0x7fffffff; // a caller's buffer, whose room nobody tells

// As tsgetfd32 and tsgetnd32, telling the length of the body too. TS_BODY_READ_SHORT, nothing
// moved, when the header has come to allow bodies of more than `room` bytes.
[[nodiscard]] int32_t read_first_record(int32_t data_handle, void* record, int32_t room,
                                        int32_t& deleted, int32_t& length);
[[nodiscard]] int32_t read_next_record(int32_t data_handle, void* record, int32_t room,
                                       int32_t& deleted, int32_t& length);

} // namespace tarsil
