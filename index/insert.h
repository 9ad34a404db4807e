// Putting one entry for one record into one key: the only writer of tree shape.
//
// No recursion: a search leaves the way down in path_stack, and splits climb it level by level. The
// order of node writes is fixed: at each level the left node before the right one, both before the
// parent that points to them, a new root before the key records that name it. At the end the key's
// cursor stands on the new entry. In multi-user mode the caller holds the whole-file bracket of the
// index and has brought root and key records up to date.
#pragma once

#include <cstdint>

#include "index/search.h"

namespace tarsil {

// TS_OK or the first failure of tree_search, read_node, write_node or write_key_records; nothing is
// undone then. A tree that would outgrow the path is refused with TS_TREE_TOO_DEEP, a file that
// would pass the largest size with TS_NODE_WRITE_POSITION, a missing node_scratch with
// TS_NO_MEMORY_SCRATCH, all before anything is written. Duplicates are the caller's matter.
[[nodiscard]] int32_t tree_insert(const key_id& id, const record_image& record,
                                  int32_t record_offset);

// The same along a way that is known.
[[nodiscard]] int32_t tree_insert_along(const key_id& id, const record_image& record,
                                        int32_t record_offset, const known_way& way);

// An image of a leaf with room, and where the new entry goes in it.
struct leaf_place {
    unsigned char* node;
    int32_t node_offset;
    int32_t position;
    int32_t count; // entries without the new one
};

// Puts the entry for a packed key into the image of the leaf.
void put_entry(const key_record& record, const leaf_place& place, const unsigned char* packed);

} // namespace tarsil
