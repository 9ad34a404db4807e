// What the operations that create, open, close and rebuild a data file share: how a slot begins and
// how it lets go of its file.
#pragma once

#include <cstdint>

namespace tarsil {

// Makes record 1 the current record, also in a file without records, and notes no slot for reuse.
void begin_at_first_record(int32_t data_handle);

// Lets a slot begin without index files. A slot that tsinit32 has freed while files were open still
// names those of the file that was forgotten, and an add would write the new file's keys into them.
void begin_without_indexes(int32_t data_handle);

// Closes the file of a slot and forgets its ranges, which end with it. False when the platform
// reports a failure: the file is gone for this process all the same. Ranges are released before, by
// whoever placed them.
bool close_slot_file(int32_t data_handle);

// The end of a failed open or rebuild whose slot counted as open already: the slot is out of use
// until tsinit32.
void spoil_slot(int32_t data_handle);

} // namespace tarsil
