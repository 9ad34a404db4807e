// Reading an index that other processes may change: which copies are brought up to date, and the
// bracket of the cursor operations.
//
// A cursor is a private copy of a leaf and a path, never refreshed. What protects it between calls
// is one number, record_count: the bracket compares the file's with the mirror's and answers
// TS_CURSOR_FILE_CHANGED once per change.
#pragma once

#include <cstdint>

#include "index/slots.h"
#include "multiuser/held_range.h"

namespace tarsil {

// Brings the key records of the file and the root of one key up to date. TS_OK, or a code of
// refresh_key_records or read_node.
[[nodiscard]] int32_t refresh_root(const key_id& id);
[[nodiscard]] int32_t refresh_root_if_shared(const key_id& id);

// The same of all keys, which then are good for as long as the file is held as a whole; nothing in
// single-user mode.
[[nodiscard]] int32_t refresh_all_roots(int32_t data_handle, int32_t index_handle);

// The header bracket of the data file and the whole-file bracket of the index, together. In
// single-user mode both operations do nothing. Destroying it ends the bracket too, so that every
// way out does, and in the same order: the last member goes first.
struct index_bracket {
    held_range index;
    held_range header;
};

// TS_OK with both ranges held by this bracket or covered; or TS_CURSOR_FILE_CHANGED, a lock code, a
// code of refresh_data_header or refresh_root, with nothing left held by this bracket.
[[nodiscard]] int32_t begin_index_read(index_bracket& bracket, const key_id& id);

// Releases the header bracket, then the index's; what the releases answer is not looked at.
void end_index_read(index_bracket& bracket);

} // namespace tarsil
