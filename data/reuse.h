// Which deleted record a later add may overwrite: reuse_offset of the data_slot and how it moves.
//
// Nothing of this stands in the file. The offset is found by a scan at the open, lowered by deletes
// and moved on when its slot is taken or undeleted, each by this process alone. It is what was
// noted, not a promise: another process may have undeleted or overwritten the slot, and a mark that
// failed to reach the file is noted all the same, so the mark of the candidate decides in an add.
// Only files of fixed length take part, since only there any record fits any slot.
#pragma once

#include <cstdint>

namespace tarsil {

// Called with the offset of a frame just marked deleted: reuse_offset is lowered to it.
void note_reusable(int32_t data_handle, int32_t offset);

// Looks for the next deleted slot behind reuse_offset, which is above 0. TS_OK: it stands in
// reuse_offset, and the current record stays on it. no_slot_left: reuse_offset is no_offset. Else
// the code of a read, with reuse_offset and the current record as they were.
inline constexpr int32_t no_slot_left = 1;
[[nodiscard]] int32_t next_reusable(int32_t data_handle);

// The scan at the open: leaves reuse_offset and the current record on the first deleted record, or
// the current record on the last one. TS_OK, also where nothing is to be scanned; or the code of a
// read.
[[nodiscard]] int32_t scan_for_reusable(int32_t data_handle);

// A zero-filled buffer for one record of a file of fixed length, to be given back with
// platform::LocalFree; none when memory is short or when the header tells a length that the file
// itself doesn't have.
unsigned char* allocate_record_image(int32_t data_handle);

} // namespace tarsil
