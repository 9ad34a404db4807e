// Bringing an index up to date for reading, and the bracket of the cursor operations; see
// multiuser/index_read.h.
//
// The bracket's test of record_count compares with what this process knew, and the refresh has then
// replaced that: a change is told once, and the next call goes on from the old cursor.
#include "multiuser/index_read.h"

#include "data/header.h"
#include "index/node_io.h"

namespace tarsil {

int32_t refresh_root(const key_id& id)
{
    if (index_of(id).key_count == 1) return refresh_all_roots(id.data_handle, id.index_handle);
    if (copies_are_fresh(id.data_handle, id.index_handle)) return TS_OK;
    const int32_t code = refresh_key_records(id.data_handle, id.index_handle);
    if (code != TS_OK) return code;
    const key_slot& key = key_of(id);
    return read_node(id, key.key_record.root_offset, key.root_node);
}

int32_t refresh_all_roots(int32_t data_handle, int32_t index_handle)
{
    const index_slot& index = index_of(data_handle, index_handle);
    if (!is_shared() || index.key_count == 0) return TS_OK;
    if (copies_are_fresh(data_handle, index_handle)) return TS_OK;

    int32_t code = refresh_key_records(data_handle, index_handle);
    for (int32_t key_number = 0; code == TS_OK && key_number < index.key_count; ++key_number) {
        const key_id id = {data_handle, index_handle, key_number};
        code = read_node(id, key_of(id).key_record.root_offset, key_of(id).root_node);
    }
    if (code == TS_OK) note_copies(data_handle, index_handle, true);
    return code;
}

int32_t refresh_root_if_shared(const key_id& id)
{
    return is_shared() ? refresh_root(id) : int32_t{TS_OK};
}

namespace {

// Always the data file first, so that the order of brackets is the same everywhere.
int32_t take_bracket(index_bracket& bracket, const key_id& id)
{
    int32_t code = lock_if_needed(bracket.header, header_bracket(id.data_handle));
    if (code < 0) return code;

    const data_header& header = data_slots[id.data_handle].header;
    const int32_t known_count = header.record_count;
    code = refresh_data_header(id.data_handle);
    if (code != TS_OK) return code;
    if (header.record_count != known_count) return TS_CURSOR_FILE_CHANGED;

    code = lock_if_needed(bracket.index, whole_index_file(id.data_handle, id.index_handle));
    if (code < 0) return code;
    return refresh_root(id);
}

} // namespace

int32_t begin_index_read(index_bracket& bracket, const key_id& id)
{
    if (!is_shared()) return TS_OK;
    const int32_t code = take_bracket(bracket, id);
    if (code != TS_OK) end_index_read(bracket);
    return code;
}

void end_index_read(index_bracket& bracket)
{
    static_cast<void>(release_if_placed(bracket.header));
    static_cast<void>(release_if_placed(bracket.index));
}

} // namespace tarsil
