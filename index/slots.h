// What an open index file and each of its keys are in memory, and who owns it.
//
// A data_slot owns its index_slots, an index_slot its key_slots, a key_slot its buffers. All of it
// is allocated when an index is created or opened (index/index_memory.h) and nothing of it later. A
// key with a cursor owns work_node and saved_path; a key without one borrows shared_node as its
// work_node for each search and has no saved_path.
#pragma once

#include <cstdint>

#include "core/tables.h"
#include "index/index_format.h"

namespace tarsil {

inline constexpr int32_t no_position = -1;

struct key_slot {
    unsigned char*
        root_node; // image of the node at root_offset: every search starts from this copy
    unsigned char* work_node; // the node in hand, the cursor's leaf between calls
    int32_t* saved_path; // the path to the cursor's leaf, as path_stack; none means the key has no
                         // cursor
    int32_t position;    // of the cursor's entry in work_node, or no_position
    int32_t work_offset; // where the node in work_node stands in the file
    tarsil::key_record key_record;
};

struct index_slot {
    platform::file_handle file;
    char dirty; // yes: a tree was changed since the file was created or opened
    int32_t key_count;
    int32_t end_offset; // of the next new node; in multi-user mode taken from the file before it is
                        // used
    char node_area_is_new; // yes while a purge lays out the node area anew: end_offset then comes
                           // from memory in every mode
    key_slot* keys[TS_MAX_KEYS];
};

inline bool has_index(int32_t data_handle, int32_t index_handle)
{
    return data_slots[data_handle].indexes[index_handle] != nullptr;
}
inline index_slot& index_of(int32_t data_handle, int32_t index_handle)
{
    return *data_slots[data_handle].indexes[index_handle];
}
inline key_slot& key_of(int32_t data_handle, int32_t index_handle, int32_t key_number)
{
    return *index_of(data_handle, index_handle).keys[key_number];
}
inline bool has_cursor(const key_slot& key) { return key.saved_path != nullptr; }

// The three numbers by which every operation names a key. They have been validated.
struct key_id {
    int32_t data_handle;
    int32_t index_handle;
    int32_t key_number;
};
inline index_slot& index_of(const key_id& id) { return index_of(id.data_handle, id.index_handle); }
inline key_slot& key_of(const key_id& id)
{
    return key_of(id.data_handle, id.index_handle, id.key_number);
}

} // namespace tarsil
