// The record primitives: finding, reading and writing frames and bodies.
//
// All expect a validated handle but locate_record and find_record, which validate it themselves.
// Offsets are those of frames. The deleted flag is 1 or 0 and is written only when a frame was read
// whole.
#pragma once

#include <cstdint>

#include "data/data_format.h"

namespace tarsil {

// Offset of the frame of record `record_number`, no_offset where that is no place in a file. In a
// file of variable length it is right for record 1 only.
int32_t record_offset(int32_t data_handle, int32_t record_number);

// Number of the record whose frame stands at `offset`, in a file of fixed length.
int32_t record_number_at(int32_t data_handle, int32_t offset);

// Offset of the frame behind a record, or no_offset for a length that is none.
int32_t next_frame(int32_t offset, int32_t length);

// Reads the frame. TS_OK, TS_FRAME_READ_POSITION, TS_FRAME_READ_SHORT, a lock code.
[[nodiscard]] int32_t read_frame(int32_t data_handle, int32_t offset, int32_t& length,
                                 int32_t& deleted);

// Reads the frame anew and then the body, as long as the frame says. TS_BODY_READ_SHORT when that
// can't be: a length below 1, above the record_length of a file of fixed length, or past both
// end_offset and the end of one of variable length, nothing being written to `record` then; or when
// the file ends within the body. Or read_frame's codes.
[[nodiscard]] int32_t read_body(int32_t data_handle, void* record, int32_t offset,
                                int32_t& deleted);

// The same, telling the length, and in any_length not bounded by record_length, for a header that
// can't be trusted.
enum class body_bound : uint8_t { record_length, any_length };
[[nodiscard]] int32_t read_bounded_body(int32_t data_handle, void* record, int32_t offset,
                                        int32_t& deleted, int32_t& length, body_bound bound);

// Finds a record by number: check_data_slot's code, a refresh in multi-user mode,
// TS_BAD_RECORD_NUMBER, then its frame. In a file of variable length this walks there from the
// first record. find_record leaves the frame of a fixed-length record unread, for callers who read
// it next anyway.
[[nodiscard]] int32_t locate_record(int32_t data_handle, int32_t record_number, int32_t& offset,
                                    int32_t& deleted, int32_t& length);
[[nodiscard]] int32_t find_record(int32_t data_handle, int32_t record_number, int32_t& offset);

// Writes at the file position, flushing with write-through. TS_OK, TS_RECORD_WRITE_SHORT, a flush
// or lock code.
[[nodiscard]] int32_t write_locked(int32_t data_handle, const void* bytes, int32_t count,
                                   platform::care wanted = platform::care::from_back);

// Writes frame and body, the mark live. TS_RECORD_TOO_SHORT and TS_RECORD_WRITE_POSITION (also
// where the record would pass the largest file) before anything is written; or write_locked's
// codes. `wanted` is for the one transfer in which most records go; with write-through, and for
// large ones, frame and body go one after the other.
[[nodiscard]] int32_t write_record(int32_t data_handle, const void* record, int32_t length,
                                   int32_t offset,
                                   platform::care wanted = platform::care::from_back);

} // namespace tarsil
