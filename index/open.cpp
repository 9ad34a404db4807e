// Opening an index file.
//
// Opening writes nothing, and an open that fails leaves nothing behind. Nothing is allocated by a
// number from the file before that number was tested: the number of keys against the tables, the
// key records against the rules of the format, and the size of the nodes against the size of the
// file, which has to hold the roots.
#include "core/validators.h"
#include "files/file_mark.h"
#include "files/files.h"
#include "index/index_memory.h"
#include "index/node_io.h"
#include "multiuser/held_range.h"

using namespace tarsil;

namespace {

int32_t read_key_count(platform::file_handle file, int32_t& key_count)
{
    if (!move_to(file, key_count_offset)) return TS_KEY_COUNT_READ_POSITION;
    const int32_t bytes = read_file(file, &key_count, sizeof key_count);
    if (bytes != sizeof key_count) return TS_KEY_COUNT_READ_SHORT;
    if (key_count < 0 || key_count > TS_MAX_KEYS) return TS_INDEX_BAD_KEY_COUNT;
    return TS_OK;
}

// Key by key: its cursor letter and the size of its nodes.
int32_t take_shape(const index_slot& index, char* cursors, index_shape& shape)
{
    for (int32_t number = 0; number < index.key_count; ++number) {
        const int32_t code = normalise_yes_no(cursors[number]);
        if (code != TS_OK) return code;
        shape.cursors[number] = cursors[number];
        shape.node_bytes[number] = index.keys[number]->key_record.node_bytes;
    }
    return TS_OK;
}

// The end of the file is where new nodes go. A root that reaches past it could not be read.
int32_t find_end(index_slot& index)
{
    index.end_offset = size_of(index.file);
    if (index.end_offset < 0) return TS_NODE_READ_POSITION;
    for (int32_t number = 0; number < index.key_count; ++number) {
        const key_record& key = index.keys[number]->key_record;
        if (int64_t{key.root_offset} + key.node_bytes > index.end_offset) return TS_NODE_READ_SHORT;
    }
    return TS_OK;
}

int32_t read_roots(int32_t data_handle, int32_t index_handle)
{
    const index_slot& index = index_of(data_handle, index_handle);
    for (int32_t number = 0; number < index.key_count; ++number) {
        const key_slot& key = *index.keys[number];
        const int32_t code = read_node({data_handle, index_handle, number},
                                       key.key_record.root_offset, key.root_node);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

int32_t read_index(held_range& bracket, int32_t data_handle, int32_t index_handle, char* cursors)
{
    index_slot& index = index_of(data_handle, index_handle);
    int32_t code = lock_if_needed(bracket, whole_index_file(data_handle, index_handle));
    if (code < 0) return code;
    code = check_magic(index.file, index_magic, data_handle, index_handle);
    if (code != TS_OK) return code;
    index_shape shape = {};
    code = read_key_count(index.file, shape.key_count);
    if (code != TS_OK) return code;

    code = alloc_index_memory(data_handle, index_handle, shape, alloc_stage::key_slots);
    if (code != TS_OK) return code;
    index.key_count = shape.key_count;
    code = refresh_key_records(data_handle, index_handle);
    if (code != TS_OK) return code;
    code = take_shape(index, cursors, shape);
    if (code != TS_OK) return code;
    code = find_end(index);
    if (code != TS_OK) return code;

    code = alloc_index_memory(data_handle, index_handle, shape, alloc_stage::buffers);
    if (code != TS_OK) return code;
    return read_roots(data_handle, index_handle);
}

} // namespace

int32_t tsopeni32(int32_t data_handle, const char* name, char* cursors)
{
    int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    if (tsIsFileThere32(name) == 0) return TS_OPEN_INDEX_NOT_THERE;

    const int32_t index_handle = reserve_index_slot(data_handle);
    if (index_handle < 0) return index_handle;
    code = alloc_index_memory(data_handle, index_handle, {}, alloc_stage::index_slot);
    if (code != TS_OK) return code;

    const platform::file_handle file = open_shared_file(name);
    index_of(data_handle, index_handle).file = file;
    held_range bracket;
    code = file == platform::no_file ? int32_t{TS_OPEN_INDEX_FAILED}
                                     : read_index(bracket, data_handle, index_handle, cursors);
    if (code != TS_OK) {
        static_cast<void>(release_if_placed(bracket));
        close_index_file(file, data_handle, index_handle);
        // A failed allocation has given the memory back already.
        if (data_slots[data_handle].indexes[index_handle] != nullptr)
            release_index_memory(data_handle, index_handle);
        return code;
    }

    index_slot& index = index_of(data_handle, index_handle);
    index.dirty = no;
    index.node_area_is_new = no;
    code = release_if_placed(bracket);
    if (code < 0) return code; // the index stays open in its slot
    return index_handle;
}
