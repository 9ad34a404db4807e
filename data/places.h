// Where frames can stand: a test of offsets from damaged files, before anything is written there.
//
// An entry of a damaged index can name any offset, and a damaged header any first record. Reads
// come to no harm from that, but a mark or a record written over the header or across two records
// would damage what was sound. What the test uses never changes in the life of a file, so that it
// holds for a mirror of any age.
#pragma once

#include "core/tables.h"
#include "data/data_format.h"

namespace tarsil {

// True if `offset` lies behind the field table and, in a file of fixed length, where one of its
// frames does.
inline bool may_be_frame(int32_t data_handle, int32_t offset)
{
    const data_header& header = data_slots[data_handle].header;
    const int64_t behind_table = int64_t{offset} - field_table_offset - header.field_bytes;
    if (behind_table < 0 || offset < field_table_offset) return false;
    if (header.record_length < 1) return true;
    return behind_table % (int64_t{header.record_length} + frame_bytes) == 0;
}

} // namespace tarsil
