// The header of a data file between its mirror in memory and the file.
//
// In single-user mode the mirror is the truth and the file catches up; in multi-user mode the file
// is the truth, and an operation that relies on the mirror refreshes it first. Who changes the
// header does so under the header bracket, on a mirror that was refreshed under the same bracket:
// the header goes out as one block, and a count read earlier would undo another process's work.
#pragma once

#include <cstdint>

namespace tarsil {

// Reads the 24 bytes into the mirror. TS_OK, TS_HEADER_READ_POSITION, TS_HEADER_READ_SHORT (the
// mirror overwritten in part), a lock code. The file position is then behind the header.
[[nodiscard]] int32_t refresh_data_header(int32_t data_handle);

// refresh_data_header in multi-user mode, else TS_OK.
[[nodiscard]] int32_t refresh_if_shared(int32_t data_handle);

// Writes the mirror to the file and flushes it with write-through. TS_OK, TS_HEADER_WRITE_POSITION,
// TS_HEADER_WRITE_SHORT, a flush or lock code. Leaves status alone.
[[nodiscard]] int32_t write_data_header(int32_t data_handle);

// What follows a change of the mirror: in multi-user mode or with write-through the header is
// written, otherwise the slot becomes dirty and tsclosed32 writes it.
[[nodiscard]] int32_t store_header_change(int32_t data_handle);

} // namespace tarsil
