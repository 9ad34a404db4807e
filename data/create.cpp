// tscrdata32: a new data file, left open without a current record.
//
// The order of the tests is fixed: a full table wins over an existing file, and an existing file
// over a bad length. The slot stays free all through, so that a failure needs nothing undone there.
// A file that fails half way is removed, but only if this call made it: the name may stand for a
// file that merely can't be opened now.
#include "core/offsets.h"
#include "core/tables.h"
#include "core/validators.h"
#include "data/data_format.h"
#include "data/header.h"
#include "data/slot_file.h"
#include "files/file_mark.h"
#include "files/files.h"
#include "index/index_format.h"
#include "multiuser/held_range.h"

using namespace tarsil;

namespace {

bool is_record_length(int32_t record_length)
{
    return record_length >= 1 || record_length == variable_length;
}

// A table that the file has no room for would let the records begin at a wrong place.
bool has_room_for_fields(int32_t field_count)
{
    return fits_in_file(field_table_offset, int64_t{field_count} * field_entry_bytes);
}

void fill_slot(data_slot& slot, int32_t record_length, int32_t field_count)
{
    const int32_t field_bytes = field_count * field_entry_bytes;
    slot.header = {0, 0, record_length, field_table_offset + field_bytes, field_bytes, 0};
    slot.reuse_offset = no_offset;
}

// Letters with a length of their own get it whatever the caller gave; all others stay as they are.
void set_stored_length(field_entry& field)
{
    const bool may_be_letter = field.type >= 0 && field.type <= INT8_MAX;
    const int32_t length = may_be_letter ? fixed_field_length(static_cast<char>(field.type))
                                         : unknown_letter;
    if (length > 0) field.length = length;
}

// The table goes right behind the header, where writing the header has left the position.
int32_t write_field_table(int32_t data_handle, int32_t field_count, field_entry* fields)
{
    if (field_count == 0) return TS_OK;
    for (int32_t i = 0; i < field_count; ++i) set_stored_length(fields[i]);
    const int32_t table_bytes = field_count * field_entry_bytes;
    const int32_t written = write_file(data_slots[data_handle].file, fields, table_bytes);
    return written == table_bytes ? int32_t{TS_OK} : int32_t{TS_FIELD_TABLE_WRITE_SHORT};
}

int32_t write_new_file(int32_t data_handle, held_range& bracket, int32_t field_count,
                       field_entry* fields)
{
    int32_t code = lock_if_needed(bracket, whole_data_file(data_handle));
    if (code < 0) return code;
    code = write_magic(data_slots[data_handle].file, data_magic, data_handle, data_file_number);
    if (code != TS_OK) return code;
    code = write_data_header(data_handle);
    if (code != TS_OK) return code;
    return write_field_table(data_handle, field_count, fields);
}

void remove_new_file(int32_t data_handle, const char* name)
{
    const bool created = data_slots[data_handle].file != platform::no_file;
    close_slot_file(data_handle);
    if (created) platform::DeleteFileA(name);
}

} // namespace

int32_t tscrdata32(const char* name, int32_t record_length, int32_t field_count,
                   field_entry* fields)
{
    const int32_t data_handle = find_free_data_slot();
    if (data_handle < 0) return data_handle;
    if (tsIsFileThere32(name) == 1) return TS_CREATE_DATA_FILE_EXISTS;
    if (!is_record_length(record_length) || !has_room_for_fields(field_count))
        return TS_CREATE_BAD_RECORD_LENGTH;

    data_slot& slot = data_slots[data_handle];
    fill_slot(slot, record_length, field_count);
    slot.file = create_shared_file(name);

    held_range bracket;
    const int32_t code = write_new_file(data_handle, bracket, field_count, fields);
    const int32_t release_code = release_if_placed(bracket);
    if (code != TS_OK) {
        remove_new_file(data_handle, name);
        return code;
    }
    if (release_code < 0) {
        // The file is complete and stays; only this process lets go of it.
        close_slot_file(data_handle);
        return release_code;
    }

    slot.status = slot_clean;
    slot.current_record = 0;
    begin_without_indexes(data_handle);
    return data_handle;
}
