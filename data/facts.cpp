// What an open data file tells about itself: its counts and its field table.
#include "core/tables.h"
#include "core/validators.h"
#include "data/data_format.h"
#include "data/header.h"
#include "files/files.h"

using namespace tarsil;

int32_t tsstatd32(int32_t data_handle, int32_t* record_count, int32_t* deleted_count,
                  int32_t* record_length, int32_t* current_record, int32_t* field_count)
{
    int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    code = refresh_if_shared(data_handle);
    if (code != TS_OK) return code;

    const data_slot& slot = data_slots[data_handle];
    *record_count = slot.header.record_count;
    *deleted_count = slot.header.deleted_count;
    *record_length = slot.header.record_length;
    *current_record = slot.current_record;
    *field_count = slot.header.field_bytes / field_entry_bytes;
    return TS_OK;
}

int32_t tsfields32(int32_t data_handle, field_entry* fields)
{
    int32_t record_count = 0;
    int32_t deleted_count = 0;
    int32_t record_length = 0;
    int32_t current_record = 0;
    int32_t field_count = 0;
    const int32_t code = tsstatd32(data_handle, &record_count, &deleted_count, &record_length,
                                   &current_record, &field_count);
    if (code != TS_OK) return code;

    // In multi-user mode the header has just been read, which leaves the position where the table
    // begins.
    const platform::file_handle file = data_slots[data_handle].file;
    if (!is_shared() && !move_to(file, field_table_offset)) return TS_HEADER_READ_POSITION;
    if (field_count == 0) return 0;

    // The table never changes after the creation of its file, so it is read without a lock.
    const int32_t table_bytes = field_count * field_entry_bytes;
    if (read_file(file, fields, table_bytes) != table_bytes) return TS_FIELD_TABLE_READ_SHORT;
    return field_count;
}
