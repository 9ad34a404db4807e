// Splitting nodes; see index/split.h for the thresholds and index/index_format.h for the rules that
// the nodes obey afterwards.
//
// The climb holds its left half in work_node, from which the separator is taken, and builds right
// halves and roots in node_scratch; key_scratch keeps the separator while the parent is read. Word
// n of path_stack is the parent of level n of the climb, level 0 being the leaf. Where the new
// entry ends up below a new node, that word is put right, so that the path leads to the entry at
// the end. A failure half way leaves nodes that nothing points to, never a pointer to a node that
// isn't there.
#include "index/split.h"

#include <algorithm>
#include <cstring>

#include "files/files.h"
#include "index/index_memory.h"
#include "index/insert.h"
#include "index/node_io.h"

namespace tarsil {

namespace {

// A node that was split, on the way to its parent.
struct split_node {
    int32_t node_offset; // the left half
    int32_t new_child;   // the right half, which the parent has to take in
    int32_t final_node;  // the leaf that holds the new entry
    int32_t level;       // of the parent, as a word of path_stack
    bool way_is_right;   // the way to final_node leads through the right half
};

// The most separators that a branch holds; a node with as many is split by one more.
int32_t most_separators(const key_record& record) { return record.max_entries - 2; }

size_t bytes_of_entries(const key_record& record, int32_t count)
{
    return static_cast<size_t>(count) * static_cast<size_t>(entry_stride(record));
}

// Other processes append nodes too, and a new node must never land on one of theirs. One look at
// the file is good for all nodes of an insertion, since the caller holds the whole file;
// tscrindd32, which does not, works on a file that nobody else has heard of. A purge lays out the
// nodes anew in a file that keeps its length.
int32_t move_end_to_end_of_file(index_slot& index)
{
    if (!is_shared() || index.node_area_is_new == yes) return TS_OK;
    const int32_t size = size_of(index.file);
    if (size < 0) return TS_NODE_WRITE_POSITION;
    index.end_offset = std::max(index.end_offset, size);
    return TS_OK;
}

// How many nodes the split of a leaf makes in the end: one a level up to the first parent with
// room, and a root where there is none.
int32_t count_new_nodes(const key_id& id, int32_t levels, int32_t& nodes)
{
    const key_record& record = key_of(id).key_record;
    nodes = 1;
    for (int32_t level = 0; level < levels; ++level, ++nodes) {
        const int32_t code = read_node(id, path_take(level), node_scratch);
        if (code != TS_OK) return code;
        if (entry_count(record, node_scratch) < most_separators(record)) return TS_OK;
    }
    nodes += 1;
    return TS_OK;
}

// Refuses, before anything is written, what could not be finished. The parents are read for it only
// where it matters: near the end of the path, or of what a file can hold.
int32_t check_room(const key_id& id)
{
    index_slot& index = index_of(id);
    int32_t code = move_end_to_end_of_file(index);
    if (code != TS_OK) return code;

    const int64_t node_bytes = key_of(id).key_record.node_bytes;
    const int32_t levels = path_length();
    int32_t nodes = levels + 2;
    const bool may_be_too_deep = levels + 1 == path_words;
    if (!may_be_too_deep && fits_in_file(index.end_offset, nodes * node_bytes)) return TS_OK;

    code = count_new_nodes(id, levels, nodes);
    if (code != TS_OK) return code;
    if (may_be_too_deep && nodes == levels + 2) return TS_TREE_TOO_DEEP;
    if (!fits_in_file(index.end_offset, nodes * node_bytes)) return TS_NODE_WRITE_POSITION;
    return TS_OK;
}

int32_t take_new_node(const key_id& id)
{
    index_slot& index = index_of(id);
    const int32_t offset = index.end_offset;
    index.end_offset = to_offset(int64_t{offset} + key_of(id).key_record.node_bytes);
    return offset;
}

// Splits the leaf in work_node so that the left half has order + 1 entries with the new one.
int32_t split_leaf(const key_id& id, const search_end& place, const unsigned char* packed,
                   split_node& split)
{
    key_slot& key = key_of(id);
    const key_record& record = key.key_record;
    const int32_t half = record.max_entries / 2 + 1;
    const bool goes_left = place.position < half;
    const int32_t kept = goes_left ? half - 1 : half;
    const int32_t moved = record.max_entries - kept;

    split = {place.node_offset, take_new_node(id), no_offset, 0, !goes_left};
    unsigned char* first_moved = entry_at(record, key.work_node, kept);
    init_node(record, node_leaf, node_scratch);
    std::memcpy(node_scratch, first_moved, bytes_of_entries(record, moved));
    clear_entries(first_moved, entry_stride(record), moved);

    const leaf_place left = {key.work_node, place.node_offset, place.position, kept};
    const leaf_place right = {node_scratch, split.new_child, place.position - kept, moved};
    const leaf_place& holder = goes_left ? left : right;
    set_entry_count(record, left.node, left.count);
    set_entry_count(record, right.node, right.count);
    put_entry(record, holder, packed);
    int32_t code = write_node(id, left.node, left.node_offset);
    if (code != TS_OK) return code;
    code = write_node(id, right.node, right.node_offset);
    if (code != TS_OK) return code;

    key.position = holder.position;
    split.final_node = holder.node_offset;
    return TS_OK;
}

// Puts a separator and the child on its right into the image of a branch with room for them. They
// move as one cell: the packed key of an entry and the entry_link of the next. The link of the
// entry itself, the child on the left, stays.
void entry_insert_key(const key_record& record, unsigned char* node, int32_t position,
                      const unsigned char* packed, int32_t new_child)
{
    const int32_t count = entry_count(record, node);
    unsigned char* cell = packed_key(entry_at(record, node, position));
    std::memmove(cell + entry_stride(record), cell, bytes_of_entries(record, count - position));
    std::memcpy(cell, packed, static_cast<size_t>(record.entry_key_bytes));
    set_entry_link(cell + record.entry_key_bytes, new_child);
    set_entry_count(record, node, count + 1);
}

void keep_if_root(key_slot& key, int32_t node_offset, const unsigned char* node)
{
    if (key.key_record.root_offset == node_offset)
        std::memcpy(key.root_node, node, static_cast<size_t>(key.key_record.node_bytes));
}

int32_t insert_into_parent(const key_id& id, int32_t parent_offset, int32_t position,
                           const split_node& split)
{
    key_slot& key = key_of(id);
    entry_insert_key(key.key_record, key.work_node, position, key_scratch, split.new_child);
    const int32_t code = write_node(id, key.work_node, parent_offset);
    if (code != TS_OK) return code;
    keep_if_root(key, parent_offset, key.work_node);
    return TS_OK;
}

// Merges the separator into a copy of the full branch in work_node and deals the copy out to both
// halves.
void share_out_branch(key_slot& key, int32_t position, int32_t new_child)
{
    const key_record& record = key.key_record;
    const int32_t stride = entry_stride(record);
    const int32_t half = record.max_entries / 2;
    const int32_t rest = record.max_entries - half;

    std::memcpy(node_scratch, key.work_node, static_cast<size_t>(record.node_bytes));
    entry_insert_key(record, node_scratch, position, key_scratch, new_child);

    std::memcpy(key.work_node, node_scratch, bytes_of_entries(record, half));
    clear_entries(entry_at(record, key.work_node, half), stride, rest);
    set_entry_count(record, key.work_node, half);

    std::memmove(node_scratch, entry_at(record, node_scratch, half),
                 bytes_of_entries(record, rest));
    clear_entries(entry_at(record, node_scratch, rest), stride, half);
    set_entry_count(record, node_scratch, rest - 1);
}

int32_t split_branch(const key_id& id, int32_t parent_offset, int32_t position, split_node& split)
{
    key_slot& key = key_of(id);
    const int32_t half = key.key_record.max_entries / 2;
    const int32_t right_offset = take_new_node(id);
    share_out_branch(key, position, split.new_child);

    int32_t code = write_node(id, key.work_node, parent_offset);
    if (code != TS_OK) return code;
    code = write_node(id, node_scratch, right_offset);
    if (code != TS_OK) return code;
    code = write_key_records(id.data_handle, id.index_handle);
    if (code != TS_OK) return code;
    keep_if_root(key, parent_offset, key.work_node);

    const int32_t child_on_way = position + (split.way_is_right ? 1 : 0);
    split.way_is_right = child_on_way >= half;
    if (split.way_is_right) code = path_put(right_offset, split.level);
    split.node_offset = parent_offset;
    split.new_child = right_offset;
    split.level += 1;
    return code;
}

// The old root stays where it is, as the left child.
int32_t make_new_root(const key_id& id, const split_node& split)
{
    key_slot& key = key_of(id);
    key_record& record = key.key_record;
    if (split.level + 1 >= path_words) return TS_TREE_TOO_DEEP;

    init_node(record, node_branch, node_scratch);
    set_entry_link(node_scratch, split.node_offset);
    entry_insert_key(record, node_scratch, 0, key_scratch, split.new_child);

    const int32_t root_offset = index_of(id).end_offset;
    int32_t code = write_node(id, node_scratch, root_offset);
    if (code != TS_OK) return code;
    record.root_offset = take_new_node(id);
    keep_if_root(key, root_offset, node_scratch);
    code = write_key_records(id.data_handle, id.index_handle);
    if (code != TS_OK) return code;

    code = path_put(root_offset, split.level);
    if (code != TS_OK) return code;
    return path_put(no_offset, split.level + 1);
}

// Takes the separator of a split, the last entry of the left half in work_node, to the parent, and
// on for as long as parents are split by it. The link of the child that was split tells the place:
// with the tolerance of float and double fields a scan for the separator may stop at another child
// that counts as equal.
int32_t climb(const key_id& id, split_node& split)
{
    key_slot& key = key_of(id);
    const key_record& record = key.key_record;
    for (;;) {
        const int32_t last = entry_count(record, key.work_node) - 1;
        std::memcpy(key_scratch, packed_key(entry_at(record, key.work_node, last)),
                    static_cast<size_t>(record.entry_key_bytes));
        if (record.root_offset == split.node_offset) return make_new_root(id, split);

        const int32_t parent_offset = path_take(split.level);
        int32_t code = read_branch(id, parent_offset);
        if (code != TS_OK) return code;
        const int32_t position = index_of_child(key, split.node_offset);
        if (position == no_position) return TS_NODE_DAMAGED;
        if (entry_count(record, key.work_node) < most_separators(record))
            return insert_into_parent(id, parent_offset, position, split);
        code = split_branch(id, parent_offset, position, split);
        if (code != TS_OK) return code;
    }
}

} // namespace

int32_t insert_by_split(const key_id& id, const search_end& place, const unsigned char* packed)
{
    if (!has_scratch()) return TS_NO_MEMORY_SCRATCH;
    int32_t code = check_room(id);
    if (code != TS_OK) return code;

    split_node split;
    code = split_leaf(id, place, packed, split);
    if (code != TS_OK) return code;
    code = write_key_records(id.data_handle, id.index_handle);
    if (code != TS_OK) return code;
    code = climb(id, split);
    if (code != TS_OK) return code;

    key_slot& key = key_of(id);
    save_path(key);
    key.work_offset = split.final_node;
    return read_node(id, split.final_node, key.work_node);
}

} // namespace tarsil
