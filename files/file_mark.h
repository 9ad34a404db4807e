// The four bytes with which both formats begin: the version byte and three letters of magic.
//
// The version byte holds the major version in its high half and the minor in its low half. The
// library reads no other version than its own. The test reads through tsvernum32, so that a slot
// must count as open by then.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace tarsil {

inline constexpr int32_t magic_bytes = 3;
inline constexpr int32_t major_version = 2;
inline constexpr int32_t minor_version = 10;
inline constexpr char version_byte = major_version * 16 + minor_version;
static_assert(version_byte == 0x2a);

// `file_number` is data_file_number, or the index_handle of an index file.

// Writes the mark at the start of a new file. TS_OK, TS_FILE_MARK_WRITE_POSITION,
// TS_FILE_MARK_WRITE_SHORT, a lock code.
[[nodiscard]] int32_t write_magic(platform::file_handle file, const char (&magic)[magic_bytes],
                                  int32_t data_handle, int32_t file_number);

// Tests the mark. TS_OK, tsvernum32's codes, TS_BAD_MAJOR_VERSION, TS_BAD_MINOR_VERSION,
// TS_MAGIC_READ_POSITION, TS_MAGIC_READ_SHORT, TS_BAD_MAGIC, a lock code.
[[nodiscard]] int32_t check_magic(platform::file_handle file, const char (&magic)[magic_bytes],
                                  int32_t data_handle, int32_t file_number);

} // namespace tarsil
