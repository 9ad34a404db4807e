// clang-format off
// The index file, byte by byte.
//
//      0      1     4           8                        2216
//      +------+-----+-----------+------------------------+--------------------------------+
//      | 0x2A | TSI | key_count | 8 key_records of 276   | nodes, in order of allocation  |
//      +------+-----+-----------+------------------------+--------------------------------+
//
//      A node:   0                          max_entries * entry_stride        -8      -4       -1
//                +---------+---------+- - - +---------------------------------+-------+--------+------+
//                | entry 0 | entry 1 |      | slack, 4 * (fields - 1) for each | count | unused | type |
//                +---------+---------+- - - +---------------------------------+-------+--------+------+
//
//      An entry: 0            4                    4 + sum        entry_stride = sum + 8
//                +------------+--------------------+--------------+
//                | entry_link | key image, sum     | entry_record |   sum: of the fields' lengths
//                +------------+--------------------+--------------+
//                             |<--- a packed key: sum + 4 ------->|
//
// All numbers are little-endian, 32-bit, signed; entries stand unaligned. A leaf's entry_link and
// entry_record are both the offset of the record's frame in the data file. A branch with n
// separators has children in the entry_link of entries 0 to n; entry n is the final child.
// Invariants, by which tests and checkers cite them:
//   I1  The file mark is 0x2A "TSI"; key_count is 0 to 8; blocks at and above it are never read.
//   I2  A key_record has 1 to 16 fields of known letters and lengths, entry_key_bytes = sum + 4,
//       max_entries even and 4 or more, node_bytes = max_entries * (sum + 4 * fields + 4) + 8.
//   I3  Nodes lie within the file, at or behind 2216, overlap no other node and are reached from
//       one place.
//   I4  All leaves of a key have the same depth.
//   I5  A leaf has 1 to max_entries entries; only a root that is a leaf may have none. A branch has
//       1 to max_entries - 2 separators.
//   I6  Entries are in key order, equal fields by descending record offset (index/compare.h).
//   I7  Everything in child i is at most separator i and above separator i - 1; the final child
//       holds what is above the last one.
//   I8  The branches on the right edge of a tree have a final child; all others have -1 there.
//   I9  In a leaf entry_link equals entry_record. In a branch the rest of entry n is zero.
//   I10 Unused entries have entry_link -1 and all other bytes zero.
//   I11 Every entry leads to a record frame of the data file whose key fields are those of the
//       entry; every record of the data file has exactly one entry in every key of an index that
//       was open whenever records were added.
// Slack, the unused bytes of a node and the blocks of unused keys mean nothing; this library writes
// zeros or leaves what stood there.
// clang-format on
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/letters.h"
#include "core/offsets.h"
#include "tarsil32.h"

namespace tarsil {

inline constexpr char index_magic[3] = {'T', 'S', 'I'};
inline constexpr int32_t key_count_offset = 4;
inline constexpr int32_t key_records_offset = 8;
inline constexpr int32_t key_record_bytes = 276;
inline constexpr int32_t key_records_bytes = TS_MAX_KEYS * key_record_bytes;
inline constexpr int32_t first_node_offset = key_records_offset + key_records_bytes;
static_assert(first_node_offset == 2216);

inline constexpr int32_t max_packed_key_bytes = TS_MAX_PACKED_KEY;
inline constexpr int32_t entry_link_bytes = 4;
inline constexpr int32_t node_tail_bytes = 8; // count, unused bytes and type
inline constexpr int32_t min_entries = 4;     // the least that max_entries can be

struct key_field {
    char type; // one of the ten letters
    char reserved_1[3];
    int32_t length; // bytes in a key and in the record
    int32_t offset; // in the record
    int32_t reserved_2;
};
static_assert(sizeof(key_field) == 16 && offsetof(key_field, length) == 4 &&
              offsetof(key_field, offset) == 8);

struct key_record {
    int32_t max_entries; // twice the order
    int32_t node_bytes;
    int32_t field_count;
    int32_t entry_key_bytes; // of a packed key
    int32_t root_offset;     // the one value that changes after the file was created
    key_field fields[TS_MAX_KEY_FIELDS];
};
static_assert(sizeof(key_record) == key_record_bytes && offsetof(key_record, fields) == 20);

// Geometry of a node. Sizes that come from a definition or a file are formed in 64 bits and checked
// before they are used.
inline constexpr int64_t entry_charge(int32_t sum, int32_t field_count)
{
    return int64_t{sum} + 4 * int64_t{field_count} + 4;
}
inline constexpr int64_t node_size(int64_t max_entries, int32_t sum, int32_t field_count)
{
    return max_entries * entry_charge(sum, field_count) + node_tail_bytes;
}
inline int32_t entry_stride(const key_record& key)
{
    return key.entry_key_bytes + entry_link_bytes;
}

// The parts of a node image. `entry` is not tested here: callers stay below max_entries.
inline unsigned char* entry_at(const key_record& key, unsigned char* node, int32_t entry)
{
    return node + ptrdiff_t{entry} * entry_stride(key);
}
inline const unsigned char* entry_at(const key_record& key, const unsigned char* node,
                                     int32_t entry)
{
    return node + ptrdiff_t{entry} * entry_stride(key);
}
inline int32_t entry_count(const key_record& key, const unsigned char* node)
{
    return load_i32(node + key.node_bytes - node_tail_bytes);
}
inline char node_type(const key_record& key, const unsigned char* node)
{
    return static_cast<char>(node[key.node_bytes - 1]);
}
inline bool is_leaf(const key_record& key, const unsigned char* node)
{
    return node_type(key, node) == node_leaf;
}

// The parts of an entry, and of a packed key.
inline int32_t entry_link(const unsigned char* entry) { return load_i32(entry); }
inline void set_entry_link(unsigned char* entry, int32_t link) { store_i32(entry, link); }
inline unsigned char* packed_key(unsigned char* entry) { return entry + entry_link_bytes; }
inline const unsigned char* packed_key(const unsigned char* entry)
{
    return entry + entry_link_bytes;
}
inline int32_t record_of_packed_key(const key_record& key, const unsigned char* packed)
{
    return load_i32(packed + key.entry_key_bytes - 4);
}
inline int32_t entry_record(const key_record& key, const unsigned char* entry)
{
    return record_of_packed_key(key, packed_key(entry));
}

// The length that a type letter stands for; 0 for 's', whose length is its own, and -1 for a letter
// that is none of the ten.
inline constexpr int32_t unknown_letter = -1;
inline constexpr int32_t fixed_field_length(char type)
{
    switch (type) {
    case 'H':
    case 'h': return 2;
    case 'L':
    case 'U':
    case 'i':
    case 'l':
    case 'f': return 4;
    case 'd': return 8;
    case 'c': return 1;
    case 's': return 0;
    default: return unknown_letter;
    }
}

} // namespace tarsil
