// Lock-if-needed and release-if-placed; see multiuser/held_range.h.
#include "multiuser/held_range.h"

#include "data/data_format.h"
#include "index/slots.h"

namespace tarsil {

int32_t lock_if_needed(held_range& held, const file_range& range)
{
    if (!is_shared()) return 0;
    const int32_t code = range_lock(range, lock_action::place);
    if (code < 0) return code;
    held.range_ = range;
    if (range.offset == at_file_position) held.range_.offset = lock_position;
    held.placed_ = code == 1;
    return code;
}

int32_t release_if_placed(held_range& held)
{
    if (!held.placed_) return 0;
    held.placed_ = false;
    return range_lock(held.range_, lock_action::release);
}

void release_insistently(held_range& held)
{
    if (!held.placed_) return;
    held.placed_ = false;
    if (range_lock(held.range_, lock_action::release) < 0) held.give_back_silently();
}

void held_range::give_back_silently()
{
    placed_ = false;
    static_cast<void>(range_lock(range_, lock_action::release));
}

file_range data_range(int32_t data_handle, int32_t offset, int32_t length)
{
    return {data_slots[data_handle].file, data_handle, data_file_number, offset, length};
}

file_range index_range(int32_t data_handle, int32_t index_handle, int32_t offset, int32_t length)
{
    return {data_slots[data_handle].indexes[index_handle]->file, data_handle, index_handle, offset,
            length};
}

file_range header_bracket(int32_t data_handle)
{
    return data_range(data_handle, data_header_offset, data_header_bytes);
}

file_range whole_data_file(int32_t data_handle)
{
    return data_range(data_handle, 0, whole_file_bytes);
}

file_range whole_index_file(int32_t data_handle, int32_t index_handle)
{
    return index_range(data_handle, index_handle, 0, whole_file_bytes);
}

} // namespace tarsil
