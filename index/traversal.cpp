// Walking a key in key order: first, last, next, previous, current.
//
// A step inside a leaf works on the leaf in work_node and reads nothing but the record. A step
// across its end climbs the saved path. In each parent a scan for an edge key of the leaf left
// behind tells which child the way came from, since separators are upper bounds, also where entries
// were removed below them; then the way leads down the near edge of the next subtree. Only the
// branches on the right edge of a tree have a final child: who comes up from one has left the last
// leaf.
//
// At either end of a key the last or first record is delivered again and the cursor stays on its
// entry, ready for a step back. Steps run inside the read bracket of multi-user mode; what begins
// anew, at either end, needs none.
#include <algorithm>
#include <cstring>

#include "core/tables.h"
#include "data/frames.h"
#include "index/node_io.h"
#include "index/search.h"
#include "multiuser/index_read.h"

using namespace tarsil;

namespace {

enum class direction : uint8_t { back, forward };

constexpr int32_t end_of_key = 1;

int32_t entries_of_work_node(const key_slot& key)
{
    return entry_count(key.key_record, key.work_node);
}

bool in_leaf(const key_slot& key) { return is_leaf(key.key_record, key.work_node); }

// Reads the record of the cursor's entry.
int32_t read_at_cursor(const key_id& id, void* record, int32_t& deleted)
{
    const key_slot& key = key_of(id);
    return read_body(id.data_handle, record, entry_record_offset(key, key.position), deleted);
}

// The entry of the branch in work_node that leads to this end of the tree.
int32_t outermost_child(const key_slot& key, direction towards)
{
    if (towards == direction::back) return 0;
    const int32_t count = entries_of_work_node(key);
    return entry_record_offset(key, count) < 0 ? count - 1 : count;
}

int32_t come_to_end_leaf(const key_id& id, direction towards)
{
    const key_slot& key = key_of(id);
    int32_t node_offset = no_offset;
    int32_t code = begin_tree_walk(id, node_offset);
    while (code == TS_OK && !in_leaf(key)) {
        code = path_put(node_offset, path_end);
        if (code != TS_OK) return code;
        const int32_t child = outermost_child(key, towards);
        code = descend_child(id, key.work_node, child, node_offset);
        if (code == child_missing) return TS_WALK_CHILD_MISSING;
    }
    return code;
}

int32_t step(const key_id& id, direction way, void* record, int32_t* deleted);

// tsgetfi32 and tsgetli32. In a key without entries the answer is that of a step the other way,
// which says that the cursor has no position.
int32_t walk_to_end(const key_id& id, direction towards, void* record, int32_t* deleted)
{
    int32_t code = check_key(id);
    if (code != TS_OK) return code;
    if (data_slots[id.data_handle].header.record_count == 0) return TS_WALK_NO_RECORDS;
    code = refresh_root_if_shared(id);
    if (code != TS_OK) return code;
    code = come_to_end_leaf(id, towards);
    if (code != TS_OK) return code;

    key_slot& key = key_of(id);
    const int32_t count = entries_of_work_node(key);
    if (count == 0) {
        const direction inwards = towards == direction::back ? direction::forward : direction::back;
        return step(id, inwards, record, deleted);
    }
    key.position = towards == direction::back ? 0 : count - 1;
    code = read_at_cursor(id, record, *deleted);
    if (code == TS_OK)
        save_path(key);
    else
        key.position = no_position;
    return code;
}

// A child to come down to: an entry of the branch in work_node, and that branch's offset.
struct branch_place {
    int32_t node_offset;
    int32_t entry;
};

bool has_tolerance(const key_record& key)
{
    return std::any_of(key.fields, key.fields + key.field_count, [](const key_field& field) {
        return field.type == 'f' || field.type == 'd';
    });
}

// Which child of the branch in work_node the way came from: the one whose separators bound the edge
// key, also after another process has split it. Float and double values that are equal by the
// tolerance alone can lead that scan to another child, and a walk by it would skip leaves or never
// end; there the child's link decides, as long as the branch still names it.
int32_t child_left_behind(const key_slot& key, const unsigned char* edge_key, int32_t child)
{
    const key_record& record = key.key_record;
    int32_t position = has_tolerance(record) ? index_of_child(key, child) : no_position;
    if (position == no_position)
        node_scan(record, packed_key(key.work_node), edge_key, entries_of_work_node(key), position,
                  true);
    return position;
}

// Climbs to the first ancestor with a child beyond the one that holds edge_key. A path that ends
// before the root, as in a damaged file, ends in the code of a node that can't be read.
int32_t climb(const key_id& id, direction way, const unsigned char* edge_key, branch_place& place)
{
    const key_slot& key = key_of(id);
    for (;;) {
        const int32_t child = key.work_offset;
        place.node_offset = path_take(path_end);
        const int32_t code = read_branch(id, place.node_offset);
        if (code != TS_OK) return code;

        const int32_t position = child_left_behind(key, edge_key, child);
        place.entry = way == direction::forward ? position + 1 : position - 1;
        if (way == direction::back && place.entry >= 0) return TS_OK;
        if (way == direction::forward && position == entries_of_work_node(key)) return end_of_key;
        if (entry_record_offset(key, place.entry) != no_offset) return TS_OK;
        if (place.node_offset == key.key_record.root_offset) return end_of_key;
    }
}

// Comes down to the near edge of the subtree at `place`. The right edge of a subtree to the left
// never leads through final children, since that subtree isn't at the right edge of the tree.
int32_t come_down(const key_id& id, direction way, branch_place place)
{
    const key_slot& key = key_of(id);
    for (;;) {
        int32_t code = path_put(place.node_offset, path_end);
        if (code != TS_OK) return code;
        code = descend_child(id, key.work_node, place.entry, place.node_offset);
        if (code == child_missing) return TS_NODE_READ_POSITION;
        if (code != TS_OK) return code;

        const int32_t count = entries_of_work_node(key);
        if (count == 0) return TS_NODE_DAMAGED;
        place.entry = way == direction::forward ? 0 : count - 1;
        if (in_leaf(key)) break;
    }
    place_cursor(key_of(id), place.entry);
    return TS_OK;
}

// Moves the cursor into the neighbour leaf. From the first step of the climb until it has arrived
// it has no position.
int32_t cross_to_neighbour(const key_id& id, direction way)
{
    key_slot& key = key_of(id);
    if (is_leaf(key.key_record, key.root_node)) return end_of_key;

    unsigned char edge_key[max_packed_key_bytes];
    std::memcpy(edge_key, packed_key(entry_at(key.key_record, key.work_node, key.position)),
                static_cast<size_t>(key.key_record.entry_key_bytes));
    key.position = no_position;
    restore_path(key);

    branch_place place;
    const int32_t code = climb(id, way, edge_key, place);
    if (code != TS_OK) return code;
    return come_down(id, way, place);
}

int32_t move_forward(const key_id& id)
{
    key_slot& key = key_of(id);
    if (key.position + 1 == entries_of_work_node(key))
        return cross_to_neighbour(id, direction::forward);
    // A cursor that a failed search has left behind in another leaf may stand behind its entries;
    // it gets no further than the node.
    if (key.position < key.key_record.max_entries) key.position += 1;
    return TS_OK;
}

int32_t move_back(const key_id& id)
{
    key_slot& key = key_of(id);
    if (key.position == 0) return cross_to_neighbour(id, direction::back);
    key.position -= 1;
    return TS_OK;
}

int32_t deliver_again(const key_id& id, direction way, void* record, int32_t* deleted)
{
    const int32_t code = walk_to_end(id, way, record, deleted);
    if (way == direction::forward)
        return code == TS_OK ? int32_t{TS_NEXT_ENTRY_AT_END} : int32_t{TS_NEXT_ENTRY_LOST};
    return code == TS_OK ? int32_t{TS_PREVIOUS_ENTRY_AT_START} : int32_t{TS_PREVIOUS_ENTRY_LOST};
}

int32_t step(const key_id& id, direction way, void* record, int32_t* deleted)
{
    int32_t code = check_cursor(id);
    if (code != TS_OK) return code;
    index_bracket bracket;
    code = begin_index_read(bracket, id);
    if (code < 0) return code;
    if (way == direction::forward && data_slots[id.data_handle].header.record_count < 1)
        return TS_NEXT_ENTRY_AT_END;

    code = way == direction::forward ? move_forward(id) : move_back(id);
    if (code == TS_OK) code = read_at_cursor(id, record, *deleted);
    end_index_read(bracket);
    return code == end_of_key ? deliver_again(id, way, record, deleted) : code;
}

} // namespace

int32_t tsgetfi32(int32_t data_handle, int32_t index_handle, int32_t key_number, void* record,
                  int32_t* deleted)
{
    return walk_to_end({data_handle, index_handle, key_number}, direction::back, record, deleted);
}

int32_t tsgetli32(int32_t data_handle, int32_t index_handle, int32_t key_number, void* record,
                  int32_t* deleted)
{
    return walk_to_end({data_handle, index_handle, key_number}, direction::forward, record,
                       deleted);
}

int32_t tsgetni32(int32_t data_handle, int32_t index_handle, int32_t key_number, void* record,
                  int32_t* deleted)
{
    return step({data_handle, index_handle, key_number}, direction::forward, record, deleted);
}

int32_t tsgetpi32(int32_t data_handle, int32_t index_handle, int32_t key_number, void* record,
                  int32_t* deleted)
{
    return step({data_handle, index_handle, key_number}, direction::back, record, deleted);
}

int32_t tsgetci32(int32_t data_handle, int32_t index_handle, int32_t key_number, void* record,
                  int32_t* deleted)
{
    const key_id id = {data_handle, index_handle, key_number};
    int32_t code = check_cursor(id);
    if (code != TS_OK) return code;
    index_bracket bracket;
    code = begin_index_read(bracket, id);
    if (code < 0) return code;
    code = read_at_cursor(id, record, *deleted);
    end_index_read(bracket);
    return code;
}
