// Noting, searching and scanning for deleted slots; see data/reuse.h.
#include "data/reuse.h"

#include "core/offsets.h"
#include "core/tables.h"
#include "data/frames.h"
#include "data/navigation.h"
#include "files/files.h"

namespace tarsil {

namespace {

bool slots_are_reused(int32_t data_handle)
{
    return reuse_deleted == yes && data_slots[data_handle].header.record_length > 0;
}

// Steps from the current record to the first deleted one behind it, and no further than
// record_count. TS_OK: the current record is that one. no_slot_left: there is none. Else the code
// of a read.
int32_t step_to_deleted(int32_t data_handle, unsigned char* image, int32_t room)
{
    const data_slot& slot = data_slots[data_handle];
    for (int32_t number = slot.current_record; number < slot.header.record_count; ++number) {
        int32_t deleted = 0;
        int32_t length = 0;
        const int32_t code = read_next_record(data_handle, image, room, deleted, length);
        if (code != TS_OK) return code;
        if (deleted == 1) return TS_OK;
    }
    return no_slot_left;
}

int32_t scan_with_image(int32_t data_handle, unsigned char* image, int32_t room)
{
    data_slot& slot = data_slots[data_handle];
    int32_t deleted = 0;
    int32_t length = 0;
    int32_t code = read_first_record(data_handle, image, room, deleted, length);
    if (code != TS_OK) return code;
    if (deleted == 0) code = step_to_deleted(data_handle, image, room);
    if (code == TS_OK) slot.reuse_offset = slot.current_offset;
    return code == no_slot_left ? int32_t{TS_OK} : code;
}

} // namespace

void note_reusable(int32_t data_handle, int32_t offset)
{
    if (!slots_are_reused(data_handle)) return;
    int32_t& noted = data_slots[data_handle].reuse_offset;
    if (noted > 0 && offset >= noted) return;
    noted = offset;
}

int32_t next_reusable(int32_t data_handle)
{
    data_slot& slot = data_slots[data_handle];
    const int32_t saved_record = slot.current_record;
    const int32_t saved_offset = slot.current_offset;
    slot.current_offset = slot.reuse_offset;
    slot.current_record = record_number_at(data_handle, slot.reuse_offset);

    const int32_t room = slot.header.record_length;
    unsigned char* image = slot.header.deleted_count == 0 ? nullptr
                                                          : allocate_record_image(data_handle);
    if (image == nullptr) {
        // The search is given up, and the position stays on the slot that it was to start from.
        slot.reuse_offset = no_offset;
        return no_slot_left;
    }

    const int32_t code = step_to_deleted(data_handle, image, room);
    platform::LocalFree(image);
    if (code == TS_OK) {
        slot.reuse_offset = slot.current_offset;
        return TS_OK;
    }
    slot.current_record = saved_record;
    slot.current_offset = saved_offset;
    if (code == no_slot_left) slot.reuse_offset = no_offset;
    return code;
}

int32_t scan_for_reusable(int32_t data_handle)
{
    const data_header& header = data_slots[data_handle].header;
    if (!slots_are_reused(data_handle) || header.deleted_count == 0 || header.record_count < 1)
        return TS_OK;
    unsigned char* image = allocate_record_image(data_handle);
    if (image == nullptr) return TS_OK;
    const int32_t code = scan_with_image(data_handle, image, header.record_length);
    platform::LocalFree(image);
    return code;
}

unsigned char* allocate_record_image(int32_t data_handle)
{
    const data_slot& slot = data_slots[data_handle];
    const int32_t record_length = slot.header.record_length;
    if (record_length < 1 || record_length > size_of(slot.file)) return nullptr;
    return static_cast<unsigned char*>(platform::LocalAlloc(static_cast<size_t>(record_length)));
}

} // namespace tarsil
