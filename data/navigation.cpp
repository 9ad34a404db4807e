// The seven reads without a key: by number, first, last, next, previous, current, and the frame of
// the current record.
//
// They walk the file in its physical order and never skip a deleted record; they say so through
// `deleted`. The order of the tests decides which code a caller sees, and what happens to the
// current record when a read fails differs on purpose: tsgetfd32 and tsgetpd32 have moved by then,
// the others stay.
#include "data/navigation.h"

#include "core/tables.h"
#include "core/validators.h"
#include "data/frames.h"
#include "data/header.h"

using namespace tarsil;

namespace {

void set_current(int32_t data_handle, int32_t record_number, int32_t offset)
{
    data_slots[data_handle].current_record = record_number;
    data_slots[data_handle].current_offset = offset;
}

// True if no body that read_body delivers under the present header is longer than `room`.
bool holds_any_body(int32_t data_handle, int32_t room)
{
    const int32_t record_length = data_slots[data_handle].header.record_length;
    return room == any_room || (record_length >= 1 && record_length <= room);
}

} // namespace

namespace tarsil {

int32_t read_first_record(int32_t data_handle, void* record, int32_t room, int32_t& deleted,
                          int32_t& length)
{
    int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    code = refresh_if_shared(data_handle);
    if (code != TS_OK) return code;
    if (data_slots[data_handle].header.record_count == 0) return TS_FIRST_RECORD_NONE;
    if (!holds_any_body(data_handle, room)) return TS_BODY_READ_SHORT;

    const int32_t offset = record_offset(data_handle, 1);
    code = read_bounded_body(data_handle, record, offset, deleted, length,
                             body_bound::record_length);
    set_current(data_handle, 1, offset);
    return code;
}

int32_t read_next_record(int32_t data_handle, void* record, int32_t room, int32_t& deleted,
                         int32_t& length)
{
    int32_t code = check_current(data_handle);
    if (code != TS_OK) return code;
    code = refresh_if_shared(data_handle);
    if (code != TS_OK) return code;
    const data_slot& slot = data_slots[data_handle];
    if (slot.header.record_count == slot.current_record) return TS_NEXT_RECORD_AT_END;
    if (!holds_any_body(data_handle, room)) return TS_BODY_READ_SHORT;

    code = read_frame(data_handle, slot.current_offset, length, deleted);
    if (code != TS_OK) return code;
    const int32_t offset = next_frame(slot.current_offset, length);
    code = read_bounded_body(data_handle, record, offset, deleted, length,
                             body_bound::record_length);
    if (code != TS_OK) return code;
    set_current(data_handle, slot.current_record + 1, offset);
    return TS_OK;
}

} // namespace tarsil

int32_t tsgetd32(int32_t data_handle, int32_t record_number, void* record, int32_t* deleted)
{
    int32_t offset = 0;
    int32_t code = find_record(data_handle, record_number, offset);
    if (code != TS_OK) return code;
    code = read_body(data_handle, record, offset, *deleted);
    if (code != TS_OK) return code;
    set_current(data_handle, record_number, offset);
    return TS_OK;
}

int32_t tsgetfd32(int32_t data_handle, void* record, int32_t* deleted)
{
    int32_t length = 0;
    return read_first_record(data_handle, record, any_room, *deleted, length);
}

int32_t tsgetld32(int32_t data_handle, void* record, int32_t* deleted)
{
    int32_t code = check_current(data_handle);
    if (code != TS_OK) return code;
    code = check_not_variable(data_handle);
    if (code != TS_OK) return code;
    code = refresh_if_shared(data_handle);
    if (code != TS_OK) return code;
    const int32_t last = data_slots[data_handle].header.record_count;
    if (last == 0) return TS_LAST_RECORD_NONE;

    const int32_t offset = record_offset(data_handle, last);
    code = read_body(data_handle, record, offset, *deleted);
    if (code != TS_OK) return code;
    set_current(data_handle, last, offset);
    return TS_OK;
}

int32_t tsgetnd32(int32_t data_handle, void* record, int32_t* deleted)
{
    int32_t length = 0;
    return read_next_record(data_handle, record, any_room, *deleted, length);
}

int32_t tsgetpd32(int32_t data_handle, void* record, int32_t* deleted)
{
    int32_t code = check_current(data_handle);
    if (code != TS_OK) return code;
    code = check_not_variable(data_handle);
    if (code != TS_OK) return code;
    const int32_t current = data_slots[data_handle].current_record;
    if (current == 1) return TS_PREVIOUS_RECORD_AT_START;
    code = refresh_if_shared(data_handle);
    if (code != TS_OK) return code;

    const int32_t offset = record_offset(data_handle, current - 1);
    set_current(data_handle, current - 1, offset);
    return read_body(data_handle, record, offset, *deleted);
}

int32_t tsgetcd32(int32_t data_handle, void* record, int32_t* deleted)
{
    int32_t code = check_current(data_handle);
    if (code != TS_OK) return code;
    code = refresh_if_shared(data_handle);
    if (code != TS_OK) return code;
    return read_body(data_handle, record, data_slots[data_handle].current_offset, *deleted);
}

int32_t tsrecd32(int32_t data_handle, int32_t* record_number, int32_t* deleted, int32_t* length)
{
    int32_t code = check_current(data_handle);
    if (code != TS_OK) return code;
    code = refresh_if_shared(data_handle);
    if (code != TS_OK) return code;
    *record_number = data_slots[data_handle].current_record;
    return read_frame(data_handle, data_slots[data_handle].current_offset, *length, *deleted);
}
