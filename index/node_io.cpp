// Moving nodes and key records; see index/node_io.h for what is promised and index/index_format.h
// for the bytes.
//
// This is where bytes of an index file come in, so this is where they are tested: what passes
// read_node and refresh_key_records can be walked without a further look at counts, lengths or
// sizes. Nodes are positioned before they are locked and key records after; a range lock puts the
// file position back, so both orders work at the place that was sought.
#include "index/node_io.h"

#include <algorithm>

#include "files/files.h"
#include "multiuser/held_range.h"

namespace tarsil {

namespace {

void set_node_type(const key_record& key, unsigned char* node, char type)
{
    node[key.node_bytes - 1] = static_cast<unsigned char>(type);
}

} // namespace

// A descent relies on these bounds: an entry found by a scan, and the final child behind it, lie
// within the entries of the node.
bool has_possible_shape(const key_record& key, const unsigned char* node, int32_t offset,
                        node_shape& shape)
{
    const char type = node_type(key, node);
    shape = {entry_count(key, node), type == node_leaf};
    if (type == node_leaf)
        return shape.count <= key.max_entries && shape.count >= (offset == key.root_offset ? 0 : 1);
    return type == node_branch && shape.count >= 1 && shape.count <= key.max_entries - 2;
}

int32_t reach_node(const key_id& id, int32_t offset, held_range& range)
{
    if (offset < first_node_offset || !move_to(index_of(id).file, offset))
        return TS_NODE_READ_POSITION;
    return lock_if_needed(range, index_range(id.data_handle, id.index_handle, offset,
                                             key_of(id).key_record.node_bytes));
}

int32_t fill_node(const key_id& id, int32_t offset, unsigned char* node, held_range& range,
                  node_shape& shape)
{
    const key_record& key = key_of(id).key_record;
    const int32_t bytes = read_file(index_of(id).file, node, key.node_bytes);

    const int32_t code = release_if_placed(range);
    if (code < 0) return code;
    if (bytes != key.node_bytes) return TS_NODE_READ_SHORT;
    return has_possible_shape(key, node, offset, shape) ? int32_t{TS_OK} : int32_t{TS_NODE_DAMAGED};
}

int32_t spoil_node(const key_record& key, unsigned char* node, int32_t code)
{
    set_node_type(key, node, node_leaf);
    set_entry_count(key, node, 0);
    return code;
}

int32_t read_node(const key_id& id, int32_t offset, unsigned char* node)
{
    held_range range;
    node_shape shape;
    int32_t code = reach_node(id, offset, range);
    if (code >= 0) code = fill_node(id, offset, node, range, shape);
    return code == TS_OK ? code : spoil_node(key_of(id).key_record, node, code);
}

int32_t write_node(const key_id& id, const unsigned char* node, int32_t offset)
{
    return write_node_from(id, node, offset, 0);
}

int32_t write_node_from(const key_id& id, const unsigned char* node, int32_t offset,
                        int32_t first_changed, platform::care wanted)
{
    const platform::file_handle file = index_of(id).file;
    const key_record& key = key_of(id).key_record;
    const int32_t node_bytes = key.node_bytes;
    const int32_t unchanged = first_changed * entry_stride(key);
    if (!fits_in_file(offset, node_bytes)) return TS_NODE_WRITE_POSITION;
    if (!move_to(file, offset + unchanged)) return TS_NODE_WRITE_POSITION;

    held_range range;
    int32_t code = lock_if_needed(range,
                                  index_range(id.data_handle, id.index_handle, offset, node_bytes));
    if (code < 0) return code;

    const int32_t bytes = write_file(file, node + unchanged, node_bytes - unchanged, wanted);
    if (is_write_through()) {
        code = flush_file(file, id.data_handle, id.index_handle);
        if (code != TS_OK) return code;
    }

    code = release_if_placed(range);
    if (code < 0) return code;
    if (bytes != node_bytes - unchanged) return TS_NODE_WRITE_SHORT;
    return TS_OK;
}

namespace {

// Another process, or damage, must not make a node larger than the buffers that it is read into.
bool fits_buffers(const key_slot& key, const key_record& stored)
{
    if (key.root_node == nullptr)
        return true; // the file is being opened: the buffers will be made to measure
    const key_record& known = key.key_record;
    return stored.max_entries == known.max_entries && stored.node_bytes == known.node_bytes &&
           stored.entry_key_bytes == known.entry_key_bytes;
}

int32_t take_over_key_records(index_slot& index, const key_record* stored)
{
    for (int32_t number = 0; number < index.key_count; ++number) {
        const bool acceptable = is_sound(stored[number]) &&
                                fits_buffers(*index.keys[number], stored[number]);
        if (!acceptable) return TS_INDEX_BAD_KEY_RECORD;
    }
    for (int32_t number = 0; number < index.key_count; ++number)
        index.keys[number]->key_record = stored[number];
    return TS_OK;
}

} // namespace

int32_t refresh_key_records(int32_t data_handle, int32_t index_handle)
{
    index_slot& index = index_of(data_handle, index_handle);
    if (copies_are_fresh(data_handle, index_handle)) return TS_OK;

    held_range range;
    int32_t code = lock_if_needed(
        range, index_range(data_handle, index_handle, key_records_offset, key_records_bytes));
    if (code < 0) return code;

    if (!move_to(index.file, key_records_offset)) return TS_KEY_RECORDS_READ_POSITION;
    key_record stored[TS_MAX_KEYS];
    const int32_t bytes = read_file(index.file, stored, key_records_bytes);

    code = release_if_placed(range);
    if (code < 0) return code;
    if (bytes != key_records_bytes) return TS_KEY_RECORDS_READ_SHORT;
    return take_over_key_records(index, stored);
}

int32_t write_key_records(int32_t data_handle, int32_t index_handle)
{
    const index_slot& index = index_of(data_handle, index_handle);

    held_range range;
    int32_t code = lock_if_needed(
        range, index_range(data_handle, index_handle, key_records_offset, key_records_bytes));
    if (code < 0) return code;

    if (!move_to(index.file, key_records_offset)) return TS_KEY_RECORDS_WRITE_POSITION;
    key_record stored[TS_MAX_KEYS] = {};
    for (int32_t number = 0; number < index.key_count; ++number)
        stored[number] = index.keys[number]->key_record;
    const int32_t bytes = write_file(index.file, stored, key_records_bytes);

    code = release_if_placed(range);
    if (code < 0) return code;
    if (bytes != key_records_bytes) return TS_KEY_RECORDS_WRITE_SHORT;
    return TS_OK;
}

namespace {

bool is_sound(const key_field& field)
{
    const int32_t fixed = fixed_field_length(field.type);
    if (fixed == 0) return field.length >= 1 && field.length <= TS_MAX_STRING_FIELD;
    return fixed != unknown_letter && field.length == fixed;
}

} // namespace

bool is_sound(const key_record& key)
{
    if (key.field_count < 1 || key.field_count > TS_MAX_KEY_FIELDS) return false;
    int32_t sum = 0; // at most 16 times 256
    for (int32_t i = 0; i < key.field_count; ++i) {
        if (!is_sound(key.fields[i])) return false;
        sum += key.fields[i].length;
    }
    const bool has_entries = key.max_entries >= min_entries && key.max_entries % 2 == 0;
    const bool has_geometry = key.entry_key_bytes == sum + 4 &&
                              key.node_bytes == node_size(key.max_entries, sum, key.field_count);
    return has_entries && has_geometry && key.root_offset >= first_node_offset &&
           fits_in_file(first_node_offset, key.node_bytes);
}

void init_node(const key_record& key, char type, unsigned char* node)
{
    set_node_type(key, node, type);
    set_entry_count(key, node, 0);
    clear_entries(node, entry_stride(key), key.max_entries);
}

void clear_entries(unsigned char* entry, int32_t stride, int32_t count)
{
    for (int32_t i = 0; i < count; ++i, entry += stride) {
        set_entry_link(entry, no_offset);
        std::fill(packed_key(entry), entry + stride, static_cast<unsigned char>(0));
    }
}

void set_entry_count(const key_record& key, unsigned char* node, int32_t count)
{
    store_i32(node + key.node_bytes - node_tail_bytes, count);
}

int32_t entry_record_offset(const key_slot& key, int32_t entry)
{
    if (entry < 0 || entry >= key.key_record.max_entries) return no_offset;
    return entry_link(entry_at(key.key_record, key.work_node, entry));
}

} // namespace tarsil
