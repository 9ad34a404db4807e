// Moving nodes and key records between memory and file, and the small operations on node images.
//
// A node that was read is also looked at: an entry count or a type that the format does not know is
// refused with TS_NODE_DAMAGED, so that everything above may trust that a node's entries lie within
// it. After any failure the image reads as an empty leaf.
#pragma once

#include <cstdint>

#include "files/files.h"
#include "index/slots.h"
#include "multiuser/held_range.h"

namespace tarsil {

// Reads a whole node. TS_OK, TS_NODE_READ_POSITION, TS_NODE_READ_SHORT, TS_NODE_DAMAGED, a lock
// code.
[[nodiscard]] int32_t read_node(const key_id& id, int32_t offset, unsigned char* node);

// What a node tells of itself, read once and tested.
struct node_shape {
    int32_t count;
    bool is_leaf;
};

// Shows a node to `see`, where it lies in the file if the platform lets us look there, else in
// `buffer`, into which it is read then. `see` gets the image and a node_shape; it may be called
// twice, the second time being the one that counts, and must call nothing of the platform. The
// codes of read_node; after a failure the buffer reads as an empty leaf.
template <class sight>
[[nodiscard]] int32_t see_node(const key_id& id, int32_t offset, unsigned char* buffer,
                               const sight& see);

// Writes a whole node and flushes it with write-through. TS_OK, TS_NODE_WRITE_POSITION (also past
// the largest file), TS_NODE_WRITE_SHORT, a flush or lock code.
[[nodiscard]] int32_t write_node(const key_id& id, const unsigned char* node, int32_t offset);

// The same where nothing in front of entry `first_changed` has changed since the node was written.
// Entries that have moved up go from the back, such as have moved down from the front.
[[nodiscard]] int32_t write_node_from(const key_id& id, const unsigned char* node, int32_t offset,
                                      int32_t first_changed,
                                      platform::care wanted = platform::care::from_back);

// Reads all eight key records in one block and takes over those of the keys that exist, each only
// if it is sound and has the geometry that the key's buffers were made for. TS_OK,
// TS_KEY_RECORDS_READ_POSITION, TS_KEY_RECORDS_READ_SHORT, TS_INDEX_BAD_KEY_RECORD, a lock code; on
// a failure all key records stay as they were.
[[nodiscard]] int32_t refresh_key_records(int32_t data_handle, int32_t index_handle);

// Writes all eight blocks, unused ones as zeros. TS_OK, TS_KEY_RECORDS_WRITE_POSITION,
// TS_KEY_RECORDS_WRITE_SHORT, a lock code.
[[nodiscard]] int32_t write_key_records(int32_t data_handle, int32_t index_handle);

// True if a key record obeys invariant I2, its nodes have room in a file and its root stands in the
// node area. Whether the root lies within the file is found out by reading it.
bool is_sound(const key_record& key);

// Makes the image an empty node. Slack and unused bytes stay.
void init_node(const key_record& key, char type, unsigned char* node);

// Makes `count` entries from `entry` on unused: entry_link -1, all else zero. A count below 1 does
// nothing.
void clear_entries(unsigned char* entry, int32_t stride, int32_t count);

void set_entry_count(const key_record& key, unsigned char* node, int32_t count);

// Link of an entry of the key's work_node; no_offset for an entry that the node has no room for, as
// a cursor left behind by a failed search can name.
int32_t entry_record_offset(const key_slot& key, int32_t entry);

// The steps of see_node: to the node, with its range; the tests; the end of a read.
[[nodiscard]] int32_t reach_node(const key_id& id, int32_t offset, held_range& range);
[[nodiscard]] bool has_possible_shape(const key_record& key, const unsigned char* node,
                                      int32_t offset, node_shape& shape);
[[nodiscard]] int32_t fill_node(const key_id& id, int32_t offset, unsigned char* node,
                                held_range& range, node_shape& shape);
int32_t spoil_node(const key_record& key, unsigned char* node, int32_t code);

template <class sight>
int32_t see_node(const key_id& id, int32_t offset, unsigned char* buffer, const sight& see)
{
    const platform::file_handle file = index_of(id).file;
    const key_record& key = key_of(id).key_record;
    held_range range;
    node_shape shape;
    int32_t code = reach_node(id, offset, range);
    if (code < 0) return spoil_node(key, buffer, code);

    const unsigned char* image = platform::LookAtFile(file, static_cast<uint32_t>(key.node_bytes));
    if (image != nullptr) {
        const bool possible = has_possible_shape(key, image, offset, shape);
        if (possible) see(image, shape);
        if (platform::EndLook(file)) {
            code = release_if_placed(range);
            if (code == TS_OK && !possible) code = TS_NODE_DAMAGED;
            return code == TS_OK ? int32_t{TS_OK} : spoil_node(key, buffer, code);
        }
    }
    code = fill_node(id, offset, buffer, range, shape);
    if (code != TS_OK) return spoil_node(key, buffer, code);
    see(buffer, shape);
    return TS_OK;
}

} // namespace tarsil
