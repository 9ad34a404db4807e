// Searching a tree, and the path; see index/search.h.
//
// The root is never read here: root_node is the truth, and in multi-user mode the caller has
// brought it up to date. Nodes are scanned where they lie, the root in root_node, the others in the
// file if the platform lets us look there; work_node becomes a copy of the one where the search
// ends, as far as somebody will look at it. A key with a cursor gets a whole copy after a miss too:
// a step from there goes by what is in work_node.
//
// The scan of a branch matters only by its position: a value equal to a separator goes to the
// child on its left, of which the separator is the upper bound, and a value behind all separators
// to the final child.
#include "index/search.h"

#include <cstring>

#include "core/validators.h"
#include "index/node_io.h"
#include "multiuser/index_read.h"

namespace tarsil {

namespace {

// Words of a path in use, its end included.
int32_t used_words(const int32_t* path)
{
    int32_t length = 0;
    while (length < path_words - 1 && path[length] != no_offset) ++length;
    return length + 1;
}

void copy_words(int32_t* to, const int32_t* from, int32_t count)
{
    std::memmove(to, from, static_cast<size_t>(count) * sizeof *to);
}

void copy_path(int32_t* to, const int32_t* from)
{
    const int32_t used = used_words(from);
    copy_words(to, from, used);
    to[used - 1] = no_offset;
}

} // namespace

int32_t path_length() { return used_words(path_stack) - 1; }

int32_t path_put(int32_t offset, int32_t index)
{
    if (index == path_end) {
        const int32_t used = used_words(path_stack);
        if (used == path_words) return TS_TREE_TOO_DEEP;
        copy_words(path_stack + 1, path_stack, used);
        index = 0;
    }
    path_stack[index] = offset;
    return TS_OK;
}

int32_t path_take(int32_t index)
{
    if (index != path_end) return path_stack[index];
    const int32_t offset = path_stack[0];
    if (offset != no_offset) copy_words(path_stack, path_stack + 1, path_length());
    return offset;
}

void save_path(key_slot& key)
{
    if (has_cursor(key)) copy_path(key.saved_path, path_stack);
}

void restore_path(const key_slot& key) { copy_path(path_stack, key.saved_path); }

void place_cursor(key_slot& key, int32_t position)
{
    if (!has_cursor(key)) return;
    save_path(key);
    key.position = position;
}

namespace {

void copy_root_to_work_node(key_slot& key)
{
    std::memcpy(key.work_node, key.root_node, static_cast<size_t>(key.key_record.node_bytes));
    key.work_offset = key.key_record.root_offset;
}

// Empties the path and sees to a work_node; nothing is in it yet.
int32_t begin_at_root(key_slot& key, int32_t& node_offset)
{
    if (!has_cursor(key)) key.work_node = shared_node;
    if (key.work_node == nullptr) return TS_NO_MEMORY_SCRATCH;
    path_stack[0] = no_offset;
    node_offset = key.key_record.root_offset;
    return TS_OK;
}

// A search on its way down.
struct descent {
    key_slot& key;
    const unsigned char* search_key;
    char mode;
    leaf_part wanted;
    search_end& end;
    int32_t answer; // of the leaf
};

int32_t answer_of_leaf(scan_result result, char mode, search_end& end)
{
    if (result == scan_result::found) return TS_OK;
    if (mode != nearest_to_value) return not_in_leaf;
    if (result == scan_result::before) return next_is_behind;
    end.position -= 1;
    return not_in_leaf;
}

// Copies of a node that lies elsewhere what somebody will look at in work_node.
void keep_part(const descent& way, const unsigned char* node, const node_shape& shape)
{
    const key_record& record = way.key.key_record;
    int32_t first = 0;
    if (node == way.key.work_node) return;
    if (!has_cursor(way.key)) {
        if (way.wanted == leaf_part::nothing) return;
        const bool is_inserted = way.wanted == leaf_part::for_insertion &&
                                 shape.count < record.max_entries && node != way.key.root_node;
        if (is_inserted) first = way.end.position * entry_stride(record);
    }
    std::memcpy(way.key.work_node + first, node + first,
                static_cast<size_t>(record.node_bytes - first));
}

// Scans one node of the way. Where the way ends, in a leaf or at a missing child, the node goes to
// work_node as far as it is wanted there.
void scan_node(descent& way, const unsigned char* node, const node_shape& shape)
{
    const key_record& record = way.key.key_record;
    const bool with_record_offset = way.mode == exact_key || way.mode == exact_record;
    search_end& end = way.end;
    end.count = shape.count;
    const scan_result result = node_scan(record, packed_key(node), way.search_key, shape.count,
                                         end.position, with_record_offset);
    end.met_equal = end.met_equal || result == scan_result::found;
    if (shape.is_leaf) way.answer = answer_of_leaf(result, way.mode, end);
    const bool is_entry = end.position >= 0 && end.position < record.max_entries;
    end.link = is_entry ? entry_link(entry_at(record, node, end.position)) : no_offset;
    if (shape.is_leaf || end.link == no_offset) keep_part(way, node, shape);
}

} // namespace

int32_t begin_tree_walk(const key_id& id, int32_t& node_offset)
{
    key_slot& key = key_of(id);
    const int32_t code = begin_at_root(key, node_offset);
    if (code == TS_OK) copy_root_to_work_node(key);
    return code;
}

int32_t descend_child(const key_id& id, const unsigned char* branch, int32_t entry,
                      int32_t& node_offset)
{
    key_slot& key = key_of(id);
    node_offset = entry_link(entry_at(key.key_record, branch, entry));
    if (node_offset == no_offset) return child_missing;
    key.work_offset = node_offset;
    return read_node(id, node_offset, key.work_node);
}

int32_t index_of_child(const key_slot& key, int32_t child)
{
    const key_record& record = key.key_record;
    const int32_t count = entry_count(record, key.work_node);
    for (int32_t i = 0; i <= count; ++i) {
        if (entry_link(entry_at(record, key.work_node, i)) == child) return i;
    }
    return no_position;
}

int32_t read_branch(const key_id& id, int32_t offset)
{
    key_slot& key = key_of(id);
    key.work_offset = offset;
    const int32_t code = read_node(id, offset, key.work_node);
    if (code != TS_OK) return code;
    return is_leaf(key.key_record, key.work_node) ? int32_t{TS_NODE_DAMAGED} : int32_t{TS_OK};
}

namespace {

// Goes down from the root to a leaf, to a missing child, or to the child of the last of `levels`
// branches, which isn't read.
int32_t descend(descent& way, const key_id& id, int32_t levels)
{
    key_slot& key = way.key;
    search_end& end = way.end;
    int32_t code = begin_at_root(key, end.node_offset);
    if (code != TS_OK) return code;

    end.met_equal = false;
    node_shape shape = {entry_count(key.key_record, key.root_node),
                        is_leaf(key.key_record, key.root_node)};
    scan_node(way, key.root_node, shape);
    while (!shape.is_leaf) {
        code = path_put(end.node_offset, path_end);
        if (code != TS_OK) return code;
        end.node_offset = end.link;
        if (end.node_offset == no_offset || --levels == 0) return not_in_leaf;

        key.work_offset = end.node_offset;
        code = see_node(id, end.node_offset, key.work_node,
                        [&](const unsigned char* node, const node_shape& seen) {
                            shape = seen;
                            scan_node(way, node, seen);
                        });
        if (code != TS_OK) return code;
    }
    return way.answer;
}

} // namespace

int32_t tree_search(const key_id& id, const unsigned char* search_key, char mode, search_end& end,
                    leaf_part wanted)
{
    descent way = {key_of(id), search_key, mode, wanted, end, TS_OK};
    return descend(way, id, path_words);
}

int32_t find_leaf(const key_id& id, const unsigned char* packed, int32_t levels, search_end& end)
{
    descent way = {key_of(id), packed, exact_record, leaf_part::nothing, end, TS_OK};
    const int32_t code = descend(way, id, levels);
    if (code < 0) return code;
    const bool is_there = end.node_offset != no_offset && path_length() == levels;
    return is_there ? int32_t{TS_OK} : int32_t{TS_NODE_DAMAGED};
}

int32_t tree_search_record(const key_id& id, const record_image& record, int32_t record_offset,
                           char mode, search_end& end, leaf_part wanted)
{
    unsigned char packed[max_packed_key_bytes];
    pack_key(key_of(id).key_record, record, record_offset, packed);
    return tree_search(id, packed, mode, end, wanted);
}

void note_way(const search_end& end, known_way& way)
{
    way.levels = path_length();
    way.end = end;
    if (end.met_equal || way.levels > known_way::most_levels)
        way.end.node_offset = no_offset;
    else
        copy_words(way.path, path_stack, way.levels);
}

int32_t take_known_way(const key_id& id, const known_way& way, const unsigned char* packed,
                       search_end& end)
{
    key_slot& key = key_of(id);
    int32_t code = begin_at_root(key, end.node_offset);
    if (code != TS_OK) return code;
    const bool is_known = way.end.node_offset != no_offset && way.levels > 0;
    if (!is_known) return tree_search(id, packed, exact_record, end, leaf_part::for_insertion);

    end = way.end;
    copy_words(path_stack, way.path, way.levels);
    path_stack[way.levels] = no_offset;
    key.work_offset = end.node_offset;
    const descent kept = {key, packed, exact_record, leaf_part::for_insertion, end, TS_OK};
    bool is_same = false;
    code = see_node(id, end.node_offset, key.work_node,
                    [&](const unsigned char* node, const node_shape& shape) {
                        is_same = shape.is_leaf && shape.count == end.count;
                        if (is_same) keep_part(kept, node, shape);
                    });
    if (code != TS_OK) return code;
    if (is_same) return not_in_leaf;
    return tree_search(id, packed, exact_record, end, leaf_part::for_insertion);
}

int32_t check_key(const key_id& id)
{
    return check_key(id.data_handle, id.index_handle, id.key_number, test_key::on);
}

int32_t find_key(const key_id& id, const void* key_value, int32_t& record_offset)
{
    int32_t code = check_key(id);
    if (code != TS_OK) return code;
    code = refresh_root_if_shared(id);
    if (code != TS_OK) return code;

    search_end end;
    const int32_t result = tree_search(id, static_cast<const unsigned char*>(key_value),
                                       fields_of_value, end);
    if (result < 0) return result;
    if (result != TS_OK) return TS_FIND_NO_ENTRY;

    record_offset = end.link;
    place_cursor(key_of(id), end.position);
    return TS_OK;
}

int32_t check_cursor(const key_id& id)
{
    const int32_t code = check_key(id);
    if (code != TS_OK) return code;
    const key_slot& key = key_of(id);
    if (key.position == no_position || !has_cursor(key)) return TS_CURSOR_NONE;
    // A search that ended at a missing child, beside a process that splits nodes, has left a branch
    // behind, whose links lead to nodes. No record stands there.
    return is_leaf(key.key_record, key.work_node) ? int32_t{TS_OK} : int32_t{TS_CURSOR_NONE};
}

} // namespace tarsil
