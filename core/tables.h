// The process-wide state of the library, one instance of each value and no logic.
//
// There is no context object: a caller holds small integers, and every exported function finds its
// state here through them. The tables are zero when the library is loaded, so that no slot accepts
// anything before tsinit32. One thread at a time may be inside the library, hence no locks and no
// atomics. The work buffers are allocated once and reused; no operation on records or keys
// allocates, but for the record image of the reuse of deleted records (data/reuse.h).
#pragma once

#include <cstdint>

#include "core/letters.h"
#include "platform/platform.h"
#include "tarsil32.h"

namespace tarsil {

struct index_slot; // index/slots.h
struct lock_entry; // multiuser/range_lock.h

// The header of a data file as it stands there, 24 bytes from offset 4 (data/data_format.h). The
// copy in a data_slot is the mirror of the file's: in single-user mode the truth, in multi-user
// mode as good as its last refresh.
struct data_header {
    int32_t record_count; // deleted records included
    int32_t deleted_count;
    int32_t record_length; // bytes of every body, or variable_length
    int32_t end_offset;    // where the next record is appended
    int32_t field_bytes;   // bytes of the field table
    int32_t header_spare;  // carried, never interpreted
};
static_assert(sizeof(data_header) == 24);

struct data_slot {
    char status; // slot_... of core/letters.h
    int32_t open_index_count;
    int32_t current_offset; // frame of the current record
    int32_t current_record; // 1-based; 0 means no current record
    int32_t reuse_offset;   // frame of the first deleted record that may be overwritten; no_offset
                            // for none
    platform::file_handle file;
    data_header header;
    index_slot* indexes[TS_MAX_INDEX_FILES]; // by index_handle; empty where none is open
};

inline constexpr int32_t variable_length = TS_VARIABLE_LENGTH;
inline constexpr int32_t path_words = 400; // a tree of d branch levels uses d + 1 of them
inline constexpr int32_t lock_tries = 3;
inline constexpr int32_t default_precision = 3;

extern data_slot data_slots[TS_MAX_DATA_FILES];

extern unsigned char* node_scratch; // one node of the largest size in use, and 4 bytes
extern unsigned char* shared_node;  // the work_node of all keys that have no cursor, and 8 bytes
extern int32_t*
    path_stack; // path_words offsets from the node in hand up to the root, then no_offset
extern unsigned char* key_scratch; // one packed key
extern int32_t scratch_bytes;      // capacity of node_scratch; 0 while there is none
extern char reuse_deleted;
extern int32_t compare_precision;
extern char auto_update;
extern char multi_user;
extern int32_t lock_position;  // where the last range lock asked for "at the file position" was
extern lock_entry* lock_table; // none in single-user mode

inline bool is_shared() { return multi_user == yes; }
inline bool is_write_through() { return auto_update == yes; }

} // namespace tarsil
