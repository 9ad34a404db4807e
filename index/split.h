// Making room: the split of a full leaf, the climb that takes the separators to the parents, and
// new roots.
//
// A leaf is full at max_entries entries, a branch at max_entries - 2 separators already, since its
// split first merges the new separator into a copy of the whole node. A split leaves order + 1
// entries, or order separators, in the left node at the old place and puts the rest in a new node
// at the end of the file. No key leaves a branch: the separator that rises stays as the left node's
// last one, with a final child of -1.
#pragma once

#include <cstdint>

#include "index/search.h"

namespace tarsil {

// Puts the entry for a packed key into the full leaf in work_node, which a search by that key has
// reached. The codes are those of tree_insert.
[[nodiscard]] int32_t insert_by_split(const key_id& id, const search_end& place,
                                      const unsigned char* packed);

} // namespace tarsil
