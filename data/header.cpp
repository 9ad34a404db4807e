// Reading and writing the header of a data file; see data/header.h.
#include "data/header.h"

#include "core/tables.h"
#include "data/data_format.h"
#include "files/files.h"
#include "multiuser/held_range.h"

namespace tarsil {

int32_t refresh_data_header(int32_t data_handle)
{
    data_slot& slot = data_slots[data_handle];
    if (copies_are_fresh(data_handle, data_file_number)) return TS_OK;

    held_range bracket;
    int32_t code = lock_if_needed(bracket, header_bracket(data_handle));
    if (code < 0) return code;

    if (!move_to(slot.file, data_header_offset)) return TS_HEADER_READ_POSITION;
    const int32_t bytes = read_file(slot.file, &slot.header, data_header_bytes);

    code = release_if_placed(bracket);
    if (code < 0) return code;
    if (bytes != data_header_bytes) return TS_HEADER_READ_SHORT;
    note_copies(data_handle, data_file_number, true);
    return TS_OK;
}

int32_t refresh_if_shared(int32_t data_handle)
{
    return is_shared() ? refresh_data_header(data_handle) : int32_t{TS_OK};
}

int32_t write_data_header(int32_t data_handle)
{
    data_slot& slot = data_slots[data_handle];
    const bool were_fresh = copies_are_fresh(data_handle, data_file_number);
    note_copies(data_handle, data_file_number, false);
    if (!move_to(slot.file, data_header_offset)) return TS_HEADER_WRITE_POSITION;

    held_range bracket;
    int32_t code = lock_if_needed(bracket, header_bracket(data_handle));
    if (code < 0) return code;

    // A kill must not leave a count without the end that belongs to it.
    static_assert(offsetof(data_header, end_offset) + sizeof slot.header.end_offset <= 16);
    const int32_t bytes = write_file(slot.file, &slot.header, data_header_bytes,
                                     platform::care::first_16_at_once);
    if (is_write_through()) {
        code = flush_file(slot.file, data_handle, data_file_number);
        if (code != TS_OK) return code;
    }

    code = release_if_placed(bracket);
    if (code < 0) return code;
    if (bytes != data_header_bytes) return TS_HEADER_WRITE_SHORT;
    note_copies(data_handle, data_file_number, were_fresh && !is_write_through());
    return TS_OK;
}

int32_t store_header_change(int32_t data_handle)
{
    if (is_shared() || is_write_through()) return write_data_header(data_handle);
    data_slots[data_handle].status = slot_dirty;
    return TS_OK;
}

} // namespace tarsil
