// Insertions held back; see index/insert_buffer.h.
//
// The levels of a tree change with its root only, and a root changes in an insertion that isn't
// held back; the path that such an insertion leaves tells how many there are.
#include "index/insert_buffer.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "data/data_format.h"
#include "index/insert.h"
#include "index/node_io.h"
#include "index/search.h"

namespace tarsil {

namespace {

constexpr int32_t most_held = 32;
constexpr int64_t most_bytes = 16 << 20;

struct held_leaf {
    int32_t node_offset; // no_offset: the slot is free
    int32_t key_number;
    int32_t count; // entries of the leaf, with those that are held back
    int32_t held;
};

held_leaf& leaf_at(const insert_buffer& buffer, uint32_t slot)
{
    return *reinterpret_cast<held_leaf*>(buffer.memory + size_t{slot} * buffer.slot_bytes);
}

unsigned char* held_key(const insert_buffer& buffer, held_leaf& leaf, int32_t number)
{
    return reinterpret_cast<unsigned char*>(&leaf + 1) +
           static_cast<size_t>(number) * buffer.packed_bytes;
}

held_leaf& leaf_for(const insert_buffer& buffer, int32_t node_offset)
{
    const auto node_number = static_cast<uint32_t>(node_offset / buffer.node_bytes);
    return leaf_at(buffer, node_number & buffer.slot_mask);
}

// A slot for each leaf that there can be, since a split leaves half of a leaf's entries in either
// half; fewer where that is too much memory.
uint32_t wanted_slots(const insert_buffer& buffer, const index_slot& index)
{
    const data_slot& data = data_slots[buffer.data_handle];
    const int32_t most_records = size_of(data.file) / (frame_bytes + 1);
    const int64_t records = std::clamp(data.header.record_count, 0, std::max(most_records, 0));
    int64_t leaves = 1;
    for (int32_t number = 0; number < index.key_count; ++number)
        leaves += records / (index.keys[number]->key_record.max_entries / 2);
    const int64_t most = most_bytes / buffer.slot_bytes;
    const uint64_t wanted = std::bit_ceil(static_cast<uint64_t>(leaves));
    return static_cast<uint32_t>(std::min(wanted, std::bit_floor(static_cast<uint64_t>(most))));
}

// Puts the entries that are held back for a leaf into it.
int32_t insert_held(const insert_buffer& buffer, held_leaf& leaf)
{
    if (leaf.held == 0) return TS_OK;
    const key_id id = {buffer.data_handle, buffer.index_handle, leaf.key_number};
    key_slot& key = key_of(id);
    const key_record& record = key.key_record;

    key.work_offset = leaf.node_offset;
    int32_t code = read_node(id, leaf.node_offset, key.work_node);
    if (code != TS_OK) return code;
    leaf_place place = {key.work_node, leaf.node_offset, 0, entry_count(record, key.work_node)};
    if (place.count + leaf.held != leaf.count) return TS_NODE_DAMAGED;

    int32_t first_changed = place.count;
    for (int32_t i = 0; i < leaf.held; ++i, ++place.count) {
        const unsigned char* packed = held_key(buffer, leaf, i);
        node_scan(record, packed_key(place.node), packed, place.count, place.position, true);
        put_entry(record, place, packed);
        first_changed = std::min(first_changed, place.position);
    }
    leaf.held = 0;
    return write_node_from(id, place.node, place.node_offset, first_changed);
}

// Makes the slot that of a leaf, unless it is already.
int32_t take_slot(const insert_buffer& buffer, held_leaf& leaf, const key_id& id,
                  int32_t node_offset)
{
    if (leaf.node_offset == node_offset) return TS_OK;
    int32_t code = insert_held(buffer, leaf);
    if (code != TS_OK) return code;

    bool is_leaf = false;
    code = see_node(id, node_offset, key_of(id).work_node,
                    [&](const unsigned char*, const node_shape& shape) {
                        leaf = {node_offset, id.key_number, shape.count, 0};
                        is_leaf = shape.is_leaf;
                    });
    if (code == TS_OK && !is_leaf) code = TS_NODE_DAMAGED;
    if (code != TS_OK) leaf.node_offset = no_offset;
    return code;
}

int32_t insert_now(insert_buffer& buffer, const key_id& id, const record_image& record,
                   int32_t record_offset)
{
    const int32_t code = tree_insert(id, record, record_offset);
    buffer.levels[id.key_number] = path_length();
    return code;
}

} // namespace

void begin_insert_buffer(insert_buffer& buffer, int32_t data_handle, int32_t index_handle)
{
    buffer = {data_handle, index_handle, nullptr, 0, 0, 0, INT32_MAX, {}};
    if (is_shared()) return;

    const index_slot& index = index_of(data_handle, index_handle);
    for (int32_t number = 0; number < index.key_count; ++number) {
        const key_record& key = index.keys[number]->key_record;
        buffer.node_bytes = std::min(buffer.node_bytes, key.node_bytes);
        buffer.packed_bytes = std::max(buffer.packed_bytes,
                                       static_cast<uint32_t>(key.entry_key_bytes));
    }
    buffer.slot_bytes = static_cast<uint32_t>(sizeof(held_leaf)) + most_held * buffer.packed_bytes;
    buffer.slot_bytes = (buffer.slot_bytes + 3) / 4 * 4;
    const uint32_t slots = wanted_slots(buffer, index);
    buffer.slot_mask = slots - 1;
    buffer.memory = static_cast<unsigned char*>(
        platform::LocalAlloc(size_t{slots} * buffer.slot_bytes));
    if (buffer.memory == nullptr) return;
    for (uint32_t slot = 0; slot < slots; ++slot) leaf_at(buffer, slot) = {no_offset, 0, 0, 0};
}

int32_t insert_later(insert_buffer& buffer, int32_t key_number, const record_image& record,
                     int32_t record_offset)
{
    const key_id id = {buffer.data_handle, buffer.index_handle, key_number};
    const key_record& key = key_of(id).key_record;
    const int32_t levels = buffer.levels[key_number];
    if (buffer.memory == nullptr || levels == 0)
        return insert_now(buffer, id, record, record_offset);

    unsigned char packed[max_packed_key_bytes];
    pack_key(key, record, record_offset, packed);
    search_end end;
    int32_t code = find_leaf(id, packed, levels, end);
    if (code != TS_OK) return code;
    held_leaf& leaf = leaf_for(buffer, end.node_offset);
    code = take_slot(buffer, leaf, id, end.node_offset);
    const bool is_full = leaf.count == key.max_entries;
    if (code == TS_OK && (leaf.held == most_held || is_full)) code = insert_held(buffer, leaf);
    if (code != TS_OK) return code;
    if (is_full) {
        leaf.node_offset = no_offset;
        return insert_now(buffer, id, record, record_offset);
    }
    std::memcpy(held_key(buffer, leaf, leaf.held), packed,
                static_cast<size_t>(key.entry_key_bytes));
    leaf.held += 1;
    leaf.count += 1;
    return TS_OK;
}

int32_t end_insert_buffer(insert_buffer& buffer)
{
    if (buffer.memory == nullptr) return TS_OK;
    int32_t code = TS_OK;
    for (uint32_t slot = 0; code == TS_OK && slot <= buffer.slot_mask; ++slot)
        code = insert_held(buffer, leaf_at(buffer, slot));
    give_up_insert_buffer(buffer);
    return code;
}

void give_up_insert_buffer(insert_buffer& buffer)
{
    platform::LocalFree(buffer.memory);
    buffer.memory = nullptr;
}

} // namespace tarsil
