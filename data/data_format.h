// clang-format off
// The data file, byte by byte.
//
//      0      1     4             28             28 + field_bytes          end_offset
//      +------+-----+-------------+--------------+-------------------------+ - - - - -
//      | 0x2A | TSD | data_header | field table  | records: frame and body | no reader
//      +------+-----+-------------+--------------+-------------------------+ - - - - -
//
//      A record:    0      1           4        8               8 + length
//                   +------+-----------+--------+---------------+
//                   | mark | 3 bytes 0 | length | body          | next frame
//                   +------+-----------+--------+---------------+
//
// All numbers are little-endian, 32-bit, signed. Invariants, by which tests and checkers cite them:
//   D1  The file mark is 0x2A "TSD".
//   D2  record_length is 1 or more, or -1 for variable length.
//   D3  field_bytes is 8 times the number of fields, 0 or more.
//   D4  The first frame stands at 28 + field_bytes, each further one at the end of the body before
//       it.
//   D5  record_count frames lead exactly to end_offset, which is no larger than the file.
//   D6  Every length is 1 or more, and equals record_length in a file of fixed length.
//   D7  deleted_count frames carry the mark 'd'. Any other mark is live; this library writes ' '.
// Between the moments when the header reaches the file (docs/BEHAVIOUR.md) D5 and D7 hold for the
// mirror in memory only.
// clang-format on
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "core/tables.h"

namespace tarsil {

static_assert(std::endian::native == std::endian::little,
              "Numbers go to and from the files as they stand in memory.");

inline constexpr char data_magic[3] = {'T', 'S', 'D'};
inline constexpr int32_t data_header_offset = 4;
inline constexpr int32_t data_header_bytes = 24;
inline constexpr int32_t field_table_offset = 28;
inline constexpr int32_t field_entry_bytes = 8;

static_assert(sizeof(data_header) == data_header_bytes);
static_assert(offsetof(data_header, record_count) == 0 &&
              offsetof(data_header, deleted_count) == 4);
static_assert(offsetof(data_header, record_length) == 8 && offsetof(data_header, end_offset) == 12);
static_assert(offsetof(data_header, field_bytes) == 16 &&
              offsetof(data_header, header_spare) == 20);
static_assert(offsetof(field_entry, length) == 0 && offsetof(field_entry, type) == 4);

// What stands in front of every body, in files of fixed length too. Readers take the length from
// here, never from the header.
struct record_frame {
    char mark;         // mark_live or mark_deleted
    char undefined[3]; // written as zeros, never read
    int32_t length;    // bytes of the body
};
inline constexpr int32_t frame_bytes = 8;
static_assert(sizeof(record_frame) == frame_bytes);
static_assert(offsetof(record_frame, mark) == 0 && offsetof(record_frame, length) == 4);

} // namespace tarsil
