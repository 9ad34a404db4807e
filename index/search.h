// The way from the root of a tree to a leaf, and the path that remembers it.
//
// Leaves are not chained: the only way from one leaf to the next leads through the parents, so
// every descent leaves the offsets of the nodes it came through in path_stack, nearest first, with
// no_offset behind the root. The path is good until the next search on any key; a key's cursor
// keeps a copy. A descent that would outgrow the path is refused with TS_TREE_TOO_DEEP, which also
// ends every circle in a damaged file.
#pragma once

#include <cstdint>

#include "index/compare.h"

namespace tarsil {

inline constexpr int32_t path_end = -1; // as index of path_put and path_take: push, pop

// What tree_search answers beside 0 for found.
inline constexpr int32_t not_in_leaf = 1;
inline constexpr int32_t next_is_behind = -1; // mode 'p' only

struct search_end {
    int32_t node_offset; // of the leaf reached; no_offset where the way ended at a missing child
    int32_t position;    // of the entry, or where the value belongs
    int32_t count;       // entries of that leaf
    int32_t link;        // of the entry at the position; no_offset where the node has no such entry
    bool met_equal;      // some entry on the way had all fields of the value
};

// The way that a search took, for an insertion that would take the same one. Record offsets decide
// between equal fields alone: where a search by fields has met none, a search by fields and offset
// comes to the same place.
struct known_way {
    static constexpr int32_t most_levels = 8;
    search_end end; // its node_offset is no_offset where the way isn't known
    int32_t levels;
    int32_t path[most_levels];
};

// How much of the leaf reached has to be in work_node afterwards. A key with a cursor gets all of
// it every time.
enum class leaf_part : uint8_t {
    nothing,
    for_insertion, // from the position on; a full leaf, which will be split, or a root whole
    whole
};

// Makes work_node a copy of the root, empties the path and gives the root's offset. TS_OK, or
// TS_NO_MEMORY_SCRATCH where a key without a cursor finds no shared_node.
[[nodiscard]] int32_t begin_tree_walk(const key_id& id, int32_t& node_offset);

// Searches for a packed key in one of the modes of index/compare.h; leaves the way in path_stack,
// and of the leaf in work_node what is wanted; changes neither position nor saved_path. 0 found.
// not_in_leaf: `position` is where the value belongs, in mode 'p' the last entry of the leaf.
// next_is_behind: `position` is the first entry behind the value (0 in an empty leaf). Else a code
// of read_node, TS_TREE_TOO_DEEP, TS_NO_MEMORY_SCRATCH.
[[nodiscard]] int32_t tree_search(const key_id& id, const unsigned char* search_key, char mode,
                                  search_end& end, leaf_part wanted = leaf_part::nothing);

// The same for the fields of a record, with its offset for mode 'd'.
[[nodiscard]] int32_t tree_search_record(const key_id& id, const record_image& record,
                                         int32_t record_offset, char mode, search_end& end,
                                         leaf_part wanted = leaf_part::nothing);

// Goes down `levels` branches, at least one, on the way of an insertion to the node below them,
// which isn't read: its offset is end.node_offset. TS_OK, TS_NODE_DAMAGED where no node or a leaf
// comes sooner, the codes of tree_search.
[[nodiscard]] int32_t find_leaf(const key_id& id, const unsigned char* packed, int32_t levels,
                                search_end& end);

// Notes the way of the search just made, unless it met equal fields or is too long.
void note_way(const search_end& end, known_way& way);

// Leaves all as a search would that takes this way, with what an insertion wants in work_node. Only
// while nobody can have changed the tree. not_in_leaf; else a code of tree_search. The way is
// searched for anew by `packed` if the leaf isn't the one it was.
[[nodiscard]] int32_t take_known_way(const key_id& id, const known_way& way,
                                     const unsigned char* packed, search_end& end);

// Reads the child at an entry of a branch into work_node and gives its offset. The branch may be
// work_node itself. TS_OK, child_missing for a link of -1 (nothing is read then), else read_node's
// code.
inline constexpr int32_t child_missing = 1;
[[nodiscard]] int32_t descend_child(const key_id& id, const unsigned char* branch, int32_t entry,
                                    int32_t& node_offset);

// The index of a child in the branch in work_node, or no_position where the branch doesn't name it.
int32_t index_of_child(const key_slot& key, int32_t child);

// Reads a node of the path into work_node. read_node's codes, and TS_NODE_DAMAGED for a leaf.
[[nodiscard]] int32_t read_branch(const key_id& id, int32_t offset);

// path_put at path_end pushes, moving the words of the path up; TS_TREE_TOO_DEEP when there is no
// room. At any other index it stores. path_take at path_end pops, and gives no_offset of an empty
// path; at any other index it reads.
[[nodiscard]] int32_t path_put(int32_t offset, int32_t index);
int32_t path_take(int32_t index);

// Number of offsets in path_stack before its end.
int32_t path_length();

// Copies path_stack to the cursor, if the key has one, and the other way, each up to its end.
void save_path(key_slot& key);
void restore_path(const key_slot& key);

// Places the cursor on an entry of the leaf that the search has left in work_node, if the key has a
// cursor.
void place_cursor(key_slot& key, int32_t position);

// check_key with the test of the key number.
[[nodiscard]] int32_t check_key(const key_id& id);

// The exact search by a caller's key value: check_key's code, refresh_root's in multi-user mode,
// TS_FIND_NO_ENTRY, tree_search's codes; TS_OK with the record's offset and the cursor placed.
[[nodiscard]] int32_t find_key(const key_id& id, const void* key_value, int32_t& record_offset);

// The opening test of all operations at a cursor: check_key's code, TS_CURSOR_NONE (also where a
// search has left a branch in work_node), TS_OK.
[[nodiscard]] int32_t check_cursor(const key_id& id);

} // namespace tarsil
