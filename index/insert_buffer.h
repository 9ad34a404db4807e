// Insertions that are held back while a new index is built, so that a leaf is read and written once
// for many of them.
//
//      memory:   +---------------------------------+---------------------------------+- - -
//                | node_offset, key_number, counts | node_offset, key_number, counts |
//                | packed key 0, 1, ... 31         | packed key 0, 1, ... 31         |
//                +---------------------------------+---------------------------------+- - -
//                  slot 0                            slot 1
//
// The tree is to the byte the one that insertions at once would make: within a leaf the entries go
// in by the same scan in the order in which they came, and the one for which the leaf has no room
// splits it, before any later one is looked at. What lies between two leaves doesn't tell.
//
// For single-user mode only, where nobody can look at the file meanwhile.
#pragma once

#include <cstddef>
#include <cstdint>

#include "index/compare.h"
#include "index/slots.h"

namespace tarsil {

struct insert_buffer {
    int32_t data_handle;
    int32_t index_handle;
    unsigned char* memory; // none: every insertion is made at once
    uint32_t slot_mask;    // slots - 1, with a power of 2 of slots
    uint32_t slot_bytes;
    uint32_t packed_bytes;       // room for a packed key of any key of the index
    int32_t node_bytes;          // of the smallest node: no two nodes begin within as many bytes
    int32_t levels[TS_MAX_KEYS]; // branches above the leaves
};

// Makes the buffer for a new and empty index to which all records of the data file will be added.
// Without memory for it, or in multi-user mode, it holds nothing back.
void begin_insert_buffer(insert_buffer& buffer, int32_t data_handle, int32_t index_handle);

// As tree_insert, now or later. The codes of tree_insert; they may belong to an earlier insertion.
[[nodiscard]] int32_t insert_later(insert_buffer& buffer, int32_t key_number,
                                   const record_image& record, int32_t record_offset);

// Makes all insertions that are held back, and gives the memory back: from now on none is. The
// codes of read_node and write_node.
[[nodiscard]] int32_t end_insert_buffer(insert_buffer& buffer);

// Gives the memory back, if there is any, with all that it holds.
void give_up_insert_buffer(insert_buffer& buffer);

} // namespace tarsil
