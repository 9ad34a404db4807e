// tscrindd32: a new index over the records that a data file holds already.
//
// The walk is in file order and takes deleted records in like live ones, since they keep their keys
// until their place is used again. It holds no bracket: the file is new, and every node is locked
// for itself. A failure takes the new file away; only a data file without records leaves it, empty
// and open.
#include "data/navigation.h"
#include "index/index_memory.h"
#include "index/insert.h"

using namespace tarsil;

namespace {

int32_t insert_into_all_keys(int32_t data_handle, int32_t index_handle, const record_image& record)
{
    const int32_t key_count = index_of(data_handle, index_handle).key_count;
    const int32_t offset = data_slots[data_handle].current_offset;
    for (int32_t key_number = 0; key_number < key_count; ++key_number) {
        const int32_t code = tree_insert({data_handle, index_handle, key_number}, record, offset);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

int32_t build_keys(int32_t data_handle, int32_t index_handle, void* buffer)
{
    record_image record = {static_cast<const unsigned char*>(buffer), 0};
    int32_t deleted = 0;
    int32_t code = read_first_record(data_handle, buffer, any_room, deleted, record.length);
    while (code == TS_OK) {
        code = insert_into_all_keys(data_handle, index_handle, record);
        if (code != TS_OK) return code;
        code = read_next_record(data_handle, buffer, any_room, deleted, record.length);
    }
    return code == TS_NEXT_RECORD_AT_END ? int32_t{TS_OK} : code;
}

} // namespace

int32_t tscrindd32(int32_t data_handle, const char* name, int32_t key_count,
                   key_definition* definitions, void* record)
{
    const int32_t index_handle = tscrind32(data_handle, name, key_count, definitions);
    if (index_handle < 0) return index_handle;
    const int32_t code = build_keys(data_handle, index_handle, record);
    if (code == TS_OK) return index_handle;
    if (code != TS_FIRST_RECORD_NONE) discard_index(data_handle, index_handle, name);
    return code;
}
