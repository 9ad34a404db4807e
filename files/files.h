// The file primitives on which data files and index files stand alike.
//
// They turn the platform's answers into the few that the steps above test: a handle or no_file, a
// number of bytes or -1, reached or not. Positioning and transfer are separate because each site
// has a code for either; both cost nothing but the transfer itself.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace tarsil {

inline constexpr int32_t transfer_failed = -1;

// The file, or no_file. No name and an empty one lead nowhere, as the platform answers.
[[nodiscard]] platform::file_handle open_file(const char* name, platform::access wanted_access,
                                              platform::share wanted_share);
[[nodiscard]] platform::file_handle create_file(const char* name, platform::access wanted_access,
                                                platform::share wanted_share);

// The same for reading and writing, with the share mode of the present mode: read and write in
// multi-user mode, else none.
[[nodiscard]] platform::file_handle open_shared_file(const char* name);
[[nodiscard]] platform::file_handle create_shared_file(const char* name);

// Bytes moved at the file position, or transfer_failed.
[[nodiscard]] int32_t read_file(platform::file_handle file, void* buffer, int32_t bytes);
[[nodiscard]] int32_t write_file(platform::file_handle file, const void* buffer, int32_t bytes,
                                 platform::care wanted = platform::care::from_back);

// Sets the file position; false if `offset` is not where the file then stands. no_offset is never
// reached.
[[nodiscard]] bool move_to(platform::file_handle file, int32_t offset);

// Positions to `offset`: 0, or transfer_failed. In spite of its name it neither asks for the end
// nor moves it.
[[nodiscard]] int32_t seek_end(platform::file_handle file, int32_t offset);

// Size of the file in bytes, to whose end this moves; negative if it can't be had.
[[nodiscard]] int32_t size_of(platform::file_handle file);

} // namespace tarsil
