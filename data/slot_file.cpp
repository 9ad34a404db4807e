// The beginning and the end of a slot's file; see data/slot_file.h.
#include "data/slot_file.h"

#include <algorithm>

#include "core/tables.h"
#include "data/frames.h"
#include "multiuser/range_lock.h"

namespace tarsil {

void begin_at_first_record(int32_t data_handle)
{
    data_slot& slot = data_slots[data_handle];
    slot.current_record = 1;
    slot.current_offset = record_offset(data_handle, 1);
    slot.reuse_offset = no_offset;
}

void begin_without_indexes(int32_t data_handle)
{
    data_slot& slot = data_slots[data_handle];
    slot.open_index_count = 0;
    std::fill_n(slot.indexes, TS_MAX_INDEX_FILES, nullptr);
}

bool close_slot_file(int32_t data_handle)
{
    data_slot& slot = data_slots[data_handle];
    const bool closed = platform::CloseHandle(slot.file);
    slot.file = platform::no_file;
    forget_ranges(data_handle, data_file_number);
    return closed;
}

void spoil_slot(int32_t data_handle)
{
    close_slot_file(data_handle);
    data_slots[data_handle].status = slot_spoilt;
}

} // namespace tarsil
