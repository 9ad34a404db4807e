// The memory of open index files: their records, their node buffers, and the two work buffers that
// all of them share.
//
// Memory comes in stages, because tsopeni32 learns step by step what the file holds, and each
// failure gives back exactly what exists, the place taken by reserve_index_slot included.
// node_scratch and shared_node grow to the largest node that was ever open and never shrink. Should
// they be lost while indexes are open, no search may run before they are back: see has_scratch.
#pragma once

#include <cstdint>

#include "index/slots.h"

namespace tarsil {

// What the buffers of an index are made for, by key number.
struct index_shape {
    int32_t key_count;
    int32_t node_bytes[TS_MAX_KEYS];
    char cursors[TS_MAX_KEYS]; // normalised
};

enum class alloc_stage : uint8_t { index_slot = 1, key_slots = 2, buffers = 3, all = 4 };
enum class free_stage : uint8_t { nothing, slots, root_nodes, work_nodes, saved_paths };

// The lowest free index_handle, or TS_NO_FREE_INDEX_SLOT. Counts the index as open; whatever fails
// later gives the place back by free_index_memory.
[[nodiscard]] int32_t reserve_index_slot(int32_t data_handle);

// index_slot needs nothing of the shape, key_slots its key_count, buffers all of it. TS_OK; or,
// with everything given back, TS_NO_MEMORY_INDEX_SLOT, TS_NO_MEMORY_KEY_SLOT,
// TS_NO_MEMORY_ROOT_NODE, TS_NO_MEMORY_WORK_NODE, TS_NO_MEMORY_SAVED_PATH or grow_scratch's code.
[[nodiscard]] int32_t alloc_index_memory(int32_t data_handle, int32_t index_handle,
                                         const index_shape& shape, alloc_stage stage);

// Gives back what exists up to a stage, and the place. Takes every work_node for the key's own.
void free_index_memory(int32_t data_handle, int32_t index_handle, free_stage stage);

// Gives back all of an index, whatever there is; shared_node, which keys without a cursor borrow,
// stays.
void release_index_memory(int32_t data_handle, int32_t index_handle);

// Makes node_scratch and shared_node large enough for nodes of so many bytes. TS_OK;
// TS_NO_MEMORY_SCRATCH with buffers of the old size back in place, if there were any;
// TS_SCRATCH_LOST or TS_SHARED_NODE_LOST when not even those can be had.
[[nodiscard]] int32_t grow_scratch(int32_t bytes);

// False while a failed growth has left node_scratch or shared_node missing.
inline bool has_scratch() { return node_scratch != nullptr && shared_node != nullptr; }

// Closes the file of an index, if it is open, and forgets its ranges.
void close_index_file(platform::file_handle file, int32_t data_handle, int32_t index_handle);

// Gives up a new index: closes its file, deletes it by name and releases its memory.
void discard_index(int32_t data_handle, int32_t index_handle, const char* name);

} // namespace tarsil
