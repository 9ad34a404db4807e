// Comparing a search value with the entries of a node: the one place where keys are compared. The
// order of a tree is the order of this scan.
//
// Entries are in ascending order of the key fields under the rules of their letters; among equal
// fields the record furthest back in the file comes first, so the tie-break on the record offset
// runs against the fields. The scan is linear from entry 0, by definition: with the tolerance of
// float and double fields neighbours may stand against the order of their values, and only the
// first entry that is not right of the search value is the answer.
#pragma once

#include <cstdint>

#include "index/slots.h"

namespace tarsil {

// How a search value is compared.
//   'k'  packed key, and the record offset that stands in it
//   'd'  fields, and the record offset given beside them
//   'c'  fields alone, of a record that is to be added
//   's'  fields alone, of a caller's key value
//   'p'  as 's'; tree_search then answers with the nearest entry (index/search.h)
inline constexpr char exact_key = 'k';
inline constexpr char exact_record = 'd';
inline constexpr char fields_of_record = 'c';
inline constexpr char fields_of_value = 's';
inline constexpr char nearest_to_value = 'p';

// A record as its caller or the data file has it. Fields that reach past its length read as zeros,
// so that no definition, however wrong, leads out of the buffer.
struct record_image {
    const unsigned char* bytes;
    int32_t length;
};

// Copies the fields of a key out of a record, back to back, and the record offset behind them:
// entry_key_bytes bytes.
void pack_key(const key_record& key, const record_image& record, int32_t record_offset,
              unsigned char* packed);

enum class scan_result : int32_t { before = -1, found = 0, behind_all = 1 };

// Walks `count` entries from `entries`, the packed key of entry 0, up to the first that is equal to
// or behind the search value. `search_key` is a packed key in every mode; its record offset counts
// in exact modes only. `position`: the entry found, the entry before which the value belongs, or
// `count`; 0 for an empty node. Reads field_count and the lengths of the key record at every call:
// a partial search changes them for the time of one search.
scan_result node_scan(const key_record& key, const unsigned char* entries,
                      const unsigned char* search_key, int32_t count, int32_t& position,
                      bool with_record_offset);

} // namespace tarsil
