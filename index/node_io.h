// Moving nodes and key records between memory and file, and the small operations on node images.
//
// A node that was read is also looked at: an entry count or a type that the format does not know is
// refused with TS_NODE_DAMAGED, so that everything above may trust that a node's entries lie within
// it. After any failure the image reads as an empty leaf.
#pragma once

#include <cstdint>

#include "index/slots.h"

namespace tarsil {

// Reads a whole node. TS_OK, TS_NODE_READ_POSITION, TS_NODE_READ_SHORT, TS_NODE_DAMAGED, a lock
// code.
[[nodiscard]] int32_t read_node(const key_id& id, int32_t offset, unsigned char* node);

// Writes a whole node and flushes it with write-through. TS_OK, TS_NODE_WRITE_POSITION (also past
// the largest file), TS_NODE_WRITE_SHORT, a flush or lock code.
[[nodiscard]] int32_t write_node(const key_id& id, const unsigned char* node, int32_t offset);

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

} // namespace tarsil
