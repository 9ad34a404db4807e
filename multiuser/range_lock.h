// The ranges that this process holds, and the one operation that places and releases them.
//
// lock_table has a row of five entries per file: invariants of a row are that the used entries
// stand first, in the order in which they were placed, and that each stands for one lock which the
// process holds through the file's handle. The table says nothing about other processes. It exists
// only in multi-user mode; every caller here has tested multi_user, or goes through held_range
// which does.
#pragma once

#include <cstdint>

#include "core/offsets.h"
#include "platform/platform.h"

namespace tarsil {

struct lock_entry {
    int32_t offset; // first byte; no_offset marks the entry free
    int32_t length;
    bool has_fresh_copies = false; // of a range over the whole file: see copies_are_fresh
};

inline constexpr int32_t row_entries = 5;
inline constexpr int32_t files_per_slot = 6;
inline constexpr int32_t data_file_number = 5; // the index files have their index_handle, 0 to 4
inline constexpr int32_t at_file_position =
    -1; // range_lock takes the current position and notes it in lock_position
inline constexpr int32_t whole_file_bytes = 0x7fffffff;

enum class lock_action : int32_t { release = 0, place = 1 };

struct file_range {
    platform::file_handle file;
    int32_t data_handle;
    int32_t file_number;
    int32_t offset;
    int32_t length;
};

// Places or releases a range. Placing: 1 placed, 0 a held range covers it already. Releasing: 0.
// Else TS_LOCK_NO_POSITION, TS_UNLOCK_NOT_HELD, TS_UNLOCK_NOT_HELD_FULL, TS_LOCK_TABLE_FULL,
// TS_LOCK_POSITION, TS_LOCK_REFUSED, or TS_LOCK_RESTORE_POSITION, with which the range has been
// placed or released all the same. The file position is afterwards what it was before.
[[nodiscard]] int32_t range_lock(const file_range& range, lock_action action);

// Releases every range of a file. How many there were, 4 also for a full row of 5; or
// TS_UNLOCK_ALL_SINGLE_USER or range_lock's code.
[[nodiscard]] int32_t release_all_locks(platform::file_handle file, int32_t data_handle,
                                        int32_t file_number);

// Flushes a file, for write-through. Gives up all its ranges meanwhile and takes them back in their
// old order. TS_OK, TS_FLUSH_FAILED (the ranges then stay given up), or range_lock's code.
[[nodiscard]] int32_t flush_file(platform::file_handle file, int32_t data_handle,
                                 int32_t file_number);

// Under a range over the whole file nobody else changes it. What was read of it once under that
// range is good until the range is given up, be it for a flush, or until a write of ours fails: the
// copies of the header, of the key records and all roots. Noting does nothing where no such range
// is held, or in single-user mode, where copies_are_fresh is false as well.
[[nodiscard]] bool copies_are_fresh(int32_t data_handle, int32_t file_number);
void note_copies(int32_t data_handle, int32_t file_number, bool are_fresh);

// Marks the row of a file free: closing the file has ended its locks, and stale entries would cover
// for the next file in the slot.
void forget_ranges(int32_t data_handle, int32_t file_number);

} // namespace tarsil
