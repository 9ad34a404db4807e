// Growing indexes anew; see index/regrow.h.
#include "index/regrow.h"

#include "index/index_memory.h"
#include "index/insert.h"
#include "index/node_io.h"
#include "multiuser/range_lock.h"

namespace tarsil {

namespace {

bool roots_fit(const index_slot& index)
{
    int64_t bytes = 0;
    for (int32_t key_number = 0; key_number < index.key_count; ++key_number)
        bytes += index.keys[key_number]->key_record.node_bytes;
    return fits_in_file(first_node_offset, bytes);
}

// The layout of a new index file: the roots one behind the other.
void lay_out_roots(index_slot& index)
{
    index.end_offset = first_node_offset;
    index.node_area_is_new = yes;
    for (int32_t key_number = 0; key_number < index.key_count; ++key_number) {
        key_slot& key = *index.keys[key_number];
        index.dirty = yes;
        key.key_record.root_offset = index.end_offset;
        index.end_offset += key.key_record.node_bytes;
        init_node(key.key_record, node_leaf, key.root_node);
    }
}

int32_t insert_into_index(int32_t data_handle, int32_t index_handle, const record_image& record,
                          int32_t record_offset)
{
    const int32_t key_count = index_of(data_handle, index_handle).key_count;
    for (int32_t key_number = 0; key_number < key_count; ++key_number) {
        const int32_t code = tree_insert({data_handle, index_handle, key_number}, record,
                                         record_offset);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

int32_t write_roots(int32_t data_handle, int32_t index_handle)
{
    const index_slot& index = index_of(data_handle, index_handle);
    for (int32_t key_number = 0; key_number < index.key_count; ++key_number) {
        const key_slot& key = *index.keys[key_number];
        const key_id id = {data_handle, index_handle, key_number};
        const int32_t code = write_node(id, key.root_node, key.key_record.root_offset);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

} // namespace

int32_t begin_regrowth(int32_t data_handle)
{
    for (const index_slot* index : data_slots[data_handle].indexes) {
        if (index == nullptr) continue;
        if (index->key_count > 0 && !has_scratch()) return TS_NO_MEMORY_SCRATCH;
        if (!roots_fit(*index)) return TS_NODE_WRITE_POSITION;
    }
    for (int32_t index_handle = 0; index_handle < TS_MAX_INDEX_FILES; ++index_handle) {
        if (!has_index(data_handle, index_handle)) continue;
        note_copies(data_handle, index_handle, false);
        lay_out_roots(index_of(data_handle, index_handle));
    }
    return TS_OK;
}

int32_t regrow_record(int32_t data_handle, const record_image& record, int32_t record_offset)
{
    for (int32_t index_handle = 0; index_handle < TS_MAX_INDEX_FILES; ++index_handle) {
        if (!has_index(data_handle, index_handle)) continue;
        const int32_t code = insert_into_index(data_handle, index_handle, record, record_offset);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

int32_t write_empty_roots(int32_t data_handle)
{
    for (int32_t index_handle = 0; index_handle < TS_MAX_INDEX_FILES; ++index_handle) {
        if (!has_index(data_handle, index_handle)) continue;
        const int32_t code = write_roots(data_handle, index_handle);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

void end_regrowth(int32_t data_handle)
{
    for (index_slot* index : data_slots[data_handle].indexes) {
        if (index != nullptr) index->node_area_is_new = no;
    }
}

} // namespace tarsil
