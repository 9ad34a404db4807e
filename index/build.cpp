// tscrindd32: a new index over the records that a data file holds already.
//
// The walk is in file order and takes deleted records in like live ones, since they keep their keys
// until their place is used again. It holds no bracket: the file is new, and every node is locked
// for itself. A failure takes the new file away; only a data file without records leaves it, empty
// and open.
//
// Nobody sees the index before it is done, so most insertions are held back for a while; the last
// one isn't, and leaves the cursors where it finds its entries.
#include "data/navigation.h"
#include "index/index_memory.h"
#include "index/insert_buffer.h"

using namespace tarsil;

namespace {

bool is_last_record(int32_t data_handle)
{
    return data_slots[data_handle].current_record == data_slots[data_handle].header.record_count;
}

int32_t insert_into_all_keys(insert_buffer& buffer, const record_image& record)
{
    const int32_t key_count = index_of(buffer.data_handle, buffer.index_handle).key_count;
    const int32_t offset = data_slots[buffer.data_handle].current_offset;
    if (is_last_record(buffer.data_handle)) {
        const int32_t code = end_insert_buffer(buffer);
        if (code != TS_OK) return code;
    }
    for (int32_t key_number = 0; key_number < key_count; ++key_number) {
        const int32_t code = insert_later(buffer, key_number, record, offset);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

int32_t build_keys(insert_buffer& buffer, void* room)
{
    const int32_t data_handle = buffer.data_handle;
    record_image record = {static_cast<const unsigned char*>(room), 0};
    int32_t deleted = 0;
    int32_t code = read_first_record(data_handle, room, any_room, deleted, record.length);
    while (code == TS_OK) {
        code = insert_into_all_keys(buffer, record);
        if (code != TS_OK) return code;
        code = read_next_record(data_handle, room, any_room, deleted, record.length);
    }
    return code == TS_NEXT_RECORD_AT_END ? int32_t{TS_OK} : code;
}

} // namespace

int32_t tscrindd32(int32_t data_handle, const char* name, int32_t key_count,
                   key_definition* definitions, void* record)
{
    const int32_t index_handle = tscrind32(data_handle, name, key_count, definitions);
    if (index_handle < 0) return index_handle;
    insert_buffer buffer;
    begin_insert_buffer(buffer, data_handle, index_handle);
    const int32_t code = build_keys(buffer, record);
    give_up_insert_buffer(buffer);
    if (code == TS_OK) return index_handle;
    if (code != TS_FIRST_RECORD_NONE) discard_index(data_handle, index_handle, name);
    return code;
}
